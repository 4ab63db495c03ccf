#include <gtest/gtest.h>

#include <vector>

#include "OstLinkApp/OstLinkAppEnvelope.h"

TEST(OstLinkAppEnvelopeTest, Encode_Command_WritesBigEndianLengthThenTypeThenFrame) {
    const uint8 frame[] = {0x00, 0x01, 0x01};
    const std::vector<uint8> expected = {0x00, 0x00, 0x00, 0x04, 0x03, 0x00, 0x01, 0x01};
    EXPECT_EQ(expected, OstLinkAppEnvelope::encode(OstLinkAppEnvelope::en_TYPE_COMMAND, frame, 3));
}

TEST(OstLinkAppEnvelopeTest, Encode_EmptyPayload_IsLengthOneAndTheTypeByte) {
    const std::vector<uint8> expected = {0x00, 0x00, 0x00, 0x01, 0x03};
    EXPECT_EQ(expected,
              OstLinkAppEnvelope::encode(OstLinkAppEnvelope::en_TYPE_COMMAND, nullptr, 0));
}

TEST(OstLinkAppEnvelopeTest, WriteHeader_LongPayload_WritesEveryLengthByteMostSignificantFirst) {
    uint8 header[OstLinkAppEnvelope::HEADER_SIZE];
    OstLinkAppEnvelope::writeHeader(header, 0x02, 0x01020304u - 1u);
    const std::vector<uint8> expected = {0x01, 0x02, 0x03, 0x04, 0x02};
    EXPECT_EQ(expected, std::vector<uint8>(header, header + sizeof(header)));
}

TEST(OstLinkAppEnvelopeTest, WriteHeader_PayloadBeyondTheLengthField_WritesTheLargestLength) {
    uint8 header[OstLinkAppEnvelope::HEADER_SIZE];
    OstLinkAppEnvelope::writeHeader(header, 0x03, 0xFFFFFFFFu);
    const std::vector<uint8> expected = {0xFF, 0xFF, 0xFF, 0xFF, 0x03};
    EXPECT_EQ(expected, std::vector<uint8>(header, header + sizeof(header)));
}

TEST(OstLinkAppEnvelopeTest, ReadLength_FourBytes_ReadsThemBigEndian) {
    const uint8 bytes[] = {0x00, 0x10, 0x00, 0x01};
    EXPECT_EQ(0x00100001u, OstLinkAppEnvelope::readLength(bytes));
}

TEST(OstLinkAppEnvelopeTest, Limits_AreOneMebibyteForTypeAndPayload) {
    EXPECT_EQ(1048576u, OstLinkAppHost::MAX_ENVELOPE_LENGTH);
    EXPECT_EQ(1048575u, OstLinkAppEnvelope::MAX_PAYLOAD_SIZE);
    EXPECT_EQ(0x01, OstLinkAppEnvelope::en_TYPE_DEVICE_INFO);
    EXPECT_EQ(0x02, OstLinkAppEnvelope::en_TYPE_DEVICE_STATUS);
    EXPECT_EQ(0x03, OstLinkAppEnvelope::en_TYPE_COMMAND);
}
