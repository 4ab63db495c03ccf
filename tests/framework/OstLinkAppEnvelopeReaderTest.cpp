#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ByteText.h"
#include "LinkWire.h"
#include "OstLinkApp/OstLinkAppEnvelope.h"
#include "OstLinkApp/OstLinkAppEnvelopeReader.h"

namespace {

typedef std::vector<uint8> Bytes;

// Collects what a reader delivers as "type [payload]".
class Collector {
public:
    OstLinkAppEnvelopeReader::Handler handler() {
        return [this](uint8 type, const uint8* payload, uint32 size) {
            messages.push_back(std::to_string(type) + " " + byteText(payload, size));
        };
    }
    std::vector<std::string> messages;
};

using linkwire::envelope;

Bytes concat(const std::vector<Bytes>& parts) {
    Bytes all;
    for (const Bytes& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

const Bytes kSampleStream = concat({envelope(1, {0x01, 'P', 'i', 'x'}), envelope(2, {0x02}),
                                    envelope(3, {0x80, 0x01, 0, 0, 0, 0, 0, 0})});
const std::vector<std::string> kSampleMessages = {"1 [01 50 69 78]", "2 [02]",
                                                  "3 [80 01 00 00 00 00 00 00]"};

}  // namespace

TEST(OstLinkAppEnvelopeReaderTest, Feed_WholeStreamAtOnce_DeliversEveryMessageInOrder) {
    OstLinkAppEnvelopeReader reader;
    Collector collector;
    EXPECT_TRUE(reader.feed(kSampleStream.data(), kSampleStream.size(), collector.handler()));
    EXPECT_EQ(kSampleMessages, collector.messages);
    EXPECT_TRUE(reader.isIdle());
    EXPECT_EQ(0u, reader.getBufferedSize());
    EXPECT_TRUE(reader.finish());
}

TEST(OstLinkAppEnvelopeReaderTest, Feed_OneByteAtATime_DeliversTheSameMessages) {
    OstLinkAppEnvelopeReader reader;
    Collector collector;
    for (uint8 byte : kSampleStream) {
        ASSERT_TRUE(reader.feed(&byte, 1, collector.handler()));
    }
    EXPECT_EQ(kSampleMessages, collector.messages);
    EXPECT_TRUE(reader.finish());
}

TEST(OstLinkAppEnvelopeReaderTest, Feed_PartOfAnEnvelope_DeliversNothingUntilItsLastByte) {
    OstLinkAppEnvelopeReader reader;
    Collector collector;
    const Bytes status = envelope(2, {0x03});
    EXPECT_TRUE(reader.feed(status.data(), status.size() - 1, collector.handler()));
    EXPECT_TRUE(collector.messages.empty());
    EXPECT_FALSE(reader.isIdle());
    EXPECT_EQ(status.size() - 1, reader.getBufferedSize());
    EXPECT_TRUE(reader.feed(&status.back(), 1, collector.handler()));
    EXPECT_EQ(std::vector<std::string>{"2 [03]"}, collector.messages);
}

TEST(OstLinkAppEnvelopeReaderTest, Feed_CommandWithEmptyFrame_DeliversAnEmptyPayload) {
    OstLinkAppEnvelopeReader reader;
    Collector collector;
    const Bytes empty = envelope(3, {});
    EXPECT_TRUE(reader.feed(empty.data(), empty.size(), collector.handler()));
    EXPECT_EQ(std::vector<std::string>{"3 []"}, collector.messages);
}

TEST(OstLinkAppEnvelopeReaderTest, Feed_DeviceInfoWithOnlyTheOsType_IsAccepted) {
    OstLinkAppEnvelopeReader reader;
    Collector collector;
    const Bytes info = envelope(1, {0x00});
    EXPECT_TRUE(reader.feed(info.data(), info.size(), collector.handler()));
    EXPECT_EQ(std::vector<std::string>{"1 [00]"}, collector.messages);
}

TEST(OstLinkAppEnvelopeReaderTest, Feed_LengthAtTheLimit_DeliversTheWholeFrame) {
    OstLinkAppEnvelopeReader reader;
    uint32 delivered = 0;
    const Bytes big = envelope(3, Bytes(OstLinkAppEnvelope::MAX_PAYLOAD_SIZE, 0x5A));
    size_t maxBuffered = 0;
    for (size_t pos = 0; pos < big.size(); pos += 4093) {
        const size_t take = std::min<size_t>(4093, big.size() - pos);
        ASSERT_TRUE(
            reader.feed(big.data() + pos, take,
                        [&delivered](uint8, const uint8*, uint32 size) { delivered = size; }));
        maxBuffered = std::max(maxBuffered, reader.getBufferedSize());
    }
    EXPECT_EQ(OstLinkAppEnvelope::MAX_PAYLOAD_SIZE, delivered);
    EXPECT_LT(maxBuffered, big.size());
    EXPECT_GT(maxBuffered, big.size() - 4093);
}

TEST(OstLinkAppEnvelopeReaderTest, Feed_LengthZero_FailsWithItsReason) {
    OstLinkAppEnvelopeReader reader;
    Collector collector;
    const Bytes bytes = {0, 0, 0, 0, 2, 1};
    EXPECT_FALSE(reader.feed(bytes.data(), bytes.size(), collector.handler()));
    EXPECT_EQ(OstLinkAppEnvelopeReader::en_ERROR_ZERO_LENGTH, reader.getError());
    EXPECT_EQ("envelope length 0", reader.getErrorText());
    EXPECT_TRUE(collector.messages.empty());
}

TEST(OstLinkAppEnvelopeReaderTest, Feed_LengthOverTheLimit_FailsWhenTheLengthArrives) {
    OstLinkAppEnvelopeReader reader;
    Collector collector;
    const Bytes length = {0x00, 0x10, 0x00, 0x01};
    EXPECT_FALSE(reader.feed(length.data(), length.size(), collector.handler()));
    EXPECT_EQ(OstLinkAppEnvelopeReader::en_ERROR_TOO_LONG, reader.getError());
    EXPECT_EQ("envelope length 1048577 over the limit of 1048576", reader.getErrorText());
}

TEST(OstLinkAppEnvelopeReaderTest, Feed_LargestLengthField_FailsWithoutBufferingThePayload) {
    OstLinkAppEnvelopeReader reader;
    Collector collector;
    const Bytes bytes = {0xFF, 0xFF, 0xFF, 0xFF, 0x03, 0x00};
    EXPECT_FALSE(reader.feed(bytes.data(), bytes.size(), collector.handler()));
    EXPECT_EQ("envelope length 4294967295 over the limit of 1048576", reader.getErrorText());
    EXPECT_EQ(4u, reader.getBufferedSize());
}

TEST(OstLinkAppEnvelopeReaderTest, Feed_UnknownType_FailsOnTheTypeByteBeforeThePayload) {
    OstLinkAppEnvelopeReader reader;
    Collector collector;
    const Bytes bytes = {0x00, 0x00, 0x10, 0x00, 0x04};
    EXPECT_FALSE(reader.feed(bytes.data(), bytes.size(), collector.handler()));
    EXPECT_EQ(OstLinkAppEnvelopeReader::en_ERROR_UNKNOWN_TYPE, reader.getError());
    EXPECT_EQ("unknown envelope type 0x04", reader.getErrorText());
}

TEST(OstLinkAppEnvelopeReaderTest, Feed_TypeZero_IsUnknown) {
    OstLinkAppEnvelopeReader reader;
    const Bytes bytes = envelope(0x00, {0x01});
    EXPECT_FALSE(reader.feed(bytes.data(), bytes.size(), nullptr));
    EXPECT_EQ("unknown envelope type 0x00", reader.getErrorText());
}

TEST(OstLinkAppEnvelopeReaderTest, Feed_DeviceStatusWithTwoBytes_FailsWithThePayloadSize) {
    OstLinkAppEnvelopeReader reader;
    Collector collector;
    const Bytes bytes = envelope(2, {0x02, 0x00});
    EXPECT_FALSE(reader.feed(bytes.data(), bytes.size(), collector.handler()));
    EXPECT_EQ(OstLinkAppEnvelopeReader::en_ERROR_PAYLOAD_SIZE, reader.getError());
    EXPECT_EQ("device status envelope with 2 payload bytes, expected 1", reader.getErrorText());
    EXPECT_TRUE(collector.messages.empty());
}

TEST(OstLinkAppEnvelopeReaderTest, Feed_DeviceStatusWithoutItsByte_FailsWithThePayloadSize) {
    OstLinkAppEnvelopeReader reader;
    const Bytes bytes = envelope(2, {});
    EXPECT_FALSE(reader.feed(bytes.data(), bytes.size(), nullptr));
    EXPECT_EQ("device status envelope with 0 payload bytes, expected 1", reader.getErrorText());
}

TEST(OstLinkAppEnvelopeReaderTest, Feed_DeviceInfoWithoutOsType_Fails) {
    OstLinkAppEnvelopeReader reader;
    const Bytes bytes = envelope(1, {});
    EXPECT_FALSE(reader.feed(bytes.data(), bytes.size(), nullptr));
    EXPECT_EQ(OstLinkAppEnvelopeReader::en_ERROR_PAYLOAD_SIZE, reader.getError());
    EXPECT_EQ("device info envelope without an OS type", reader.getErrorText());
}

TEST(OstLinkAppEnvelopeReaderTest, Feed_ErrorAfterGoodMessages_DeliversThoseBeforeIt) {
    OstLinkAppEnvelopeReader reader;
    Collector collector;
    const Bytes bytes = concat({envelope(2, {0x01}), {0, 0, 0, 0}, envelope(2, {0x02})});
    EXPECT_FALSE(reader.feed(bytes.data(), bytes.size(), collector.handler()));
    EXPECT_EQ(std::vector<std::string>{"2 [01]"}, collector.messages);
}

TEST(OstLinkAppEnvelopeReaderTest, Feed_AfterAnError_DeliversNothingAndKeepsTheError) {
    OstLinkAppEnvelopeReader reader;
    Collector collector;
    const Bytes bad = {0, 0, 0, 0};
    const Bytes good = envelope(2, {0x01});
    EXPECT_FALSE(reader.feed(bad.data(), bad.size(), collector.handler()));
    EXPECT_FALSE(reader.feed(good.data(), good.size(), collector.handler()));
    EXPECT_FALSE(reader.finish());
    EXPECT_TRUE(collector.messages.empty());
    EXPECT_EQ(OstLinkAppEnvelopeReader::en_ERROR_ZERO_LENGTH, reader.getError());
    EXPECT_EQ("envelope length 0", reader.getErrorText());
}

TEST(OstLinkAppEnvelopeReaderTest, Finish_InsideTheLength_FailsAsCutOff) {
    OstLinkAppEnvelopeReader reader;
    const Bytes bytes = {0x00, 0x00};
    EXPECT_TRUE(reader.feed(bytes.data(), bytes.size(), nullptr));
    EXPECT_FALSE(reader.finish());
    EXPECT_EQ(OstLinkAppEnvelopeReader::en_ERROR_CUT_OFF, reader.getError());
    EXPECT_EQ("stream ended inside an envelope length (2 of 4 bytes)", reader.getErrorText());
}

TEST(OstLinkAppEnvelopeReaderTest, Finish_InsideTheBody_FailsAsCutOffWithTheCounts) {
    OstLinkAppEnvelopeReader reader;
    const Bytes frame = envelope(3, {1, 2, 3, 4, 5, 6, 7, 8, 9});
    EXPECT_TRUE(reader.feed(frame.data(), 4 + 3, nullptr));
    EXPECT_FALSE(reader.finish());
    EXPECT_EQ("stream ended inside an envelope (3 of 10 bytes)", reader.getErrorText());
}

TEST(OstLinkAppEnvelopeReaderTest, Finish_BetweenEnvelopes_Succeeds) {
    OstLinkAppEnvelopeReader reader;
    EXPECT_TRUE(reader.finish());
    const Bytes status = envelope(2, {0x00});
    EXPECT_TRUE(reader.feed(status.data(), status.size(), nullptr));
    EXPECT_TRUE(reader.finish());
    EXPECT_EQ(OstLinkAppEnvelopeReader::en_ERROR_NONE, reader.getError());
    EXPECT_EQ("", reader.getErrorText());
}

TEST(OstLinkAppEnvelopeReaderTest, Reset_AfterAnError_ReadsAFreshStream) {
    OstLinkAppEnvelopeReader reader;
    Collector collector;
    const Bytes bad = {0, 0, 0, 0};
    EXPECT_FALSE(reader.feed(bad.data(), bad.size(), collector.handler()));
    reader.reset();
    EXPECT_EQ(OstLinkAppEnvelopeReader::en_ERROR_NONE, reader.getError());
    EXPECT_TRUE(reader.feed(kSampleStream.data(), kSampleStream.size(), collector.handler()));
    EXPECT_EQ(kSampleMessages, collector.messages);
}
