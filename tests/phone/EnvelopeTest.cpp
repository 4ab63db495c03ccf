// Envelope encoding, byte for byte.
#include "moxphone/Envelope.h"

#include <gtest/gtest.h>

using moxphone::Bytes;
using moxphone::Envelope;

TEST(EnvelopeTest, Encode_LengthCountsTheTypeByte) {
    EXPECT_EQ((Bytes{0x00, 0x00, 0x00, 0x03, 0x03, 0xAB, 0xCD}),
              Envelope::encode(0x03, Bytes{0xAB, 0xCD}));
    EXPECT_EQ((Bytes{0x00, 0x00, 0x00, 0x01, 0x02}), Envelope::encode(0x02, Bytes{}));
}

TEST(EnvelopeTest, DeviceInfo_OsTypeThenName) {
    EXPECT_EQ((Bytes{0x00, 0x00, 0x00, 0x04, 0x01, 0x00, 'i', 'P'}),
              Envelope::deviceInfo(Envelope::kOsIos, "iP"));
}

TEST(EnvelopeTest, DeviceStatusAndCommand) {
    EXPECT_EQ((Bytes{0x00, 0x00, 0x00, 0x02, 0x02, 0x02}), Envelope::deviceStatus(2));
    EXPECT_EQ((Bytes{0x00, 0x00, 0x00, 0x03, 0x03, 0x0F, 0xFF}),
              Envelope::command(Bytes{0x0F, 0xFF}));
}

TEST(EnvelopeTest, IsKnownType_OnlyOneToThree) {
    EXPECT_FALSE(Envelope::isKnownType(0x00));
    EXPECT_TRUE(Envelope::isKnownType(0x01));
    EXPECT_TRUE(Envelope::isKnownType(0x02));
    EXPECT_TRUE(Envelope::isKnownType(0x03));
    EXPECT_FALSE(Envelope::isKnownType(0x04));
    EXPECT_FALSE(Envelope::isKnownType(0x7F));
}

TEST(EnvelopeTest, MaxLength_IsThePhoneLinksLimit) {
    EXPECT_EQ(1048576u, Envelope::kMaxLength);
}
