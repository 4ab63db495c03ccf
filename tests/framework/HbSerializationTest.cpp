#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "HbFramework/HbSerialization.h"

using HbSerialization::Archive;

namespace {

std::vector<uint8> bytesOf(const Archive& archive) {
    return std::vector<uint8>(archive.data(), archive.data() + archive.size());
}

// The smallest serialisable message: one byte.
class OneByte : public HbSerialization::HbSerializable {
public:
    bool serialize() override { return mArchive.write(value); }
    bool unserialize(const void* data, uint32 size) override {
        mArchive.write(data, size);
        return mArchive.read(value);
    }
    uint8 value = 0;
};

}  // namespace

TEST(HbSerializationTest, NewArchive_IsEmpty) {
    Archive archive;
    EXPECT_EQ(0u, archive.size());
    EXPECT_EQ(0u, archive.remaining());
}

TEST(HbSerializationTest, Write16_StoresMostSignificantByteFirst) {
    Archive archive;
    EXPECT_TRUE(archive.write(static_cast<uint16>(0x1234)));
    EXPECT_TRUE(archive.write(static_cast<uint16>(0xFF01)));
    const std::vector<uint8> expected = {0x12, 0x34, 0xFF, 0x01};
    EXPECT_EQ(expected, bytesOf(archive));
}

TEST(HbSerializationTest, WriteBytesAnd8_AppendInOrder) {
    Archive archive;
    const uint8 raw[] = {0xAA, 0x00, 0xBB};
    EXPECT_TRUE(archive.write(static_cast<uint8>(0x7F)));
    EXPECT_TRUE(archive.write(raw, 3));
    const std::vector<uint8> expected = {0x7F, 0xAA, 0x00, 0xBB};
    EXPECT_EQ(expected, bytesOf(archive));
}

TEST(HbSerializationTest, RoundTrip_MixedValues_ReadBackInWriteOrder) {
    Archive archive;
    const uint8 raw[] = {1, 2, 3, 0, 5};
    archive.write(static_cast<uint8>(0xC3));
    archive.write(static_cast<uint16>(0xBEEF));
    archive.write(raw, 5);
    archive.write(static_cast<uint16>(0x0001));
    EXPECT_EQ(10u, archive.remaining());

    uint8 byte = 0;
    uint16 word = 0;
    uint8 back[5] = {};
    uint16 last = 0;
    EXPECT_TRUE(archive.read(byte));
    EXPECT_TRUE(archive.read(word));
    EXPECT_TRUE(archive.read(back, 5));
    EXPECT_TRUE(archive.read(last));
    EXPECT_EQ(0xC3, byte);
    EXPECT_EQ(0xBEEF, word);
    EXPECT_EQ(0, std::memcmp(raw, back, 5));
    EXPECT_EQ(0x0001, last);
    EXPECT_EQ(0u, archive.remaining());
    EXPECT_EQ(10u, archive.size());  // reading consumes, it does not erase
}

TEST(HbSerializationTest, Read16_FromWireBytes_IsBigEndian) {
    Archive archive;
    const uint8 wire[] = {0x01, 0x02};
    archive.write(wire, 2);
    uint16 value = 0;
    EXPECT_TRUE(archive.read(value));
    EXPECT_EQ(0x0102, value);
}

TEST(HbSerializationTest, Read8_PastTheEnd_YieldsZeroAndFalse) {
    Archive archive;
    uint8 value = 0x55;
    EXPECT_FALSE(archive.read(value));
    EXPECT_EQ(0, value);
}

TEST(HbSerializationTest, Read16_WithOneByteLeft_YieldsThatByteThenZeroAndFalse) {
    Archive archive;
    archive.write(static_cast<uint8>(0xAB));
    uint16 value = 0x5555;
    EXPECT_FALSE(archive.read(value));
    EXPECT_EQ(0xAB00, value);
    EXPECT_EQ(0u, archive.remaining());
}

TEST(HbSerializationTest, ReadBytes_PastTheEnd_CopiesWhatIsLeftZeroFillsTheRestAndFails) {
    Archive archive;
    const uint8 raw[] = {9, 8};
    archive.write(raw, 2);
    uint8 out[5] = {0xEE, 0xEE, 0xEE, 0xEE, 0xEE};
    EXPECT_FALSE(archive.read(out, 5));
    const uint8 expected[5] = {9, 8, 0, 0, 0};
    EXPECT_EQ(0, std::memcmp(expected, out, 5));
    EXPECT_EQ(0u, archive.remaining());
    uint8 after = 0x55;
    EXPECT_FALSE(archive.read(after));
    EXPECT_EQ(0, after);
}

TEST(HbSerializationTest, WriteBytes_NullWithSize_FailsAndAddsNothing) {
    Archive archive;
    EXPECT_FALSE(archive.write(nullptr, 3));
    EXPECT_EQ(0u, archive.size());
}

TEST(HbSerializationTest, ZeroSizedWriteAndRead_SucceedAndChangeNothing) {
    Archive archive;
    EXPECT_TRUE(archive.write(nullptr, 0));
    EXPECT_EQ(0u, archive.size());
    EXPECT_TRUE(archive.read(nullptr, 0));
}

TEST(HbSerializationTest, ReadBytes_IntoNull_Fails) {
    Archive archive;
    archive.write(static_cast<uint8>(1));
    EXPECT_FALSE(archive.read(nullptr, 1));
    EXPECT_EQ(1u, archive.remaining());
}

TEST(HbSerializationTest, Serializable_WritesIntoItsOwnArchive) {
    OneByte message;
    message.value = 0x42;
    EXPECT_TRUE(message.serialize());
    ASSERT_EQ(1u, message.getArchive().size());
    EXPECT_EQ(0x42, message.getArchive().data()[0]);

    OneByte copy;
    EXPECT_TRUE(copy.unserialize(message.getArchive().data(), message.getArchive().size()));
    EXPECT_EQ(0x42, copy.value);
}
