#include <gtest/gtest.h>

#include <string>
#include <type_traits>
#include <vector>

#include "HbSMoxDef.h"
#include "private/MoxSearchInfo.h"

namespace {

std::vector<uint8> bytesOf(MoxSearchInfo& message) {
    const HbSerialization::Archive& archive = message.getArchive();
    return std::vector<uint8>(archive.data(), archive.data() + archive.size());
}

// Serialises `source` and reads the bytes back into a fresh message.
void roundTrip(MoxSearchInfo& source, MoxSearchInfo& target) {
    ASSERT_TRUE(source.serialize());
    const std::vector<uint8> bytes = bytesOf(source);
    ASSERT_TRUE(target.unserialize(bytes.data(), static_cast<uint32>(bytes.size())));
}

}  // namespace

TEST(MoxSearchInfoTest, IsASerializableMessage) {
    EXPECT_TRUE((std::is_base_of<HbSerialization::HbSerializable, MoxSearchInfo>::value));
    EXPECT_TRUE(std::has_virtual_destructor<MoxSearchInfo>::value);
}

TEST(MoxSearchInfoTest, Construction_FieldsStartAtZeroAndEmpty) {
    MoxSearchInfo message;
    EXPECT_EQ(0, message.lookupKind);
    EXPECT_EQ(0, message.lookupParam1);
    EXPECT_EQ(0, message.lookupParam2);
    EXPECT_EQ("", message.toc);
    EXPECT_EQ(0u, message.getArchive().size());
}

TEST(MoxSearchInfoTest, Construction_FromSearchInfo_TakesEveryField) {
    HbSMoxDef::SearchInfo info{7, 0x1234, 0xABCD, "0000960046E6"};
    MoxSearchInfo message(info);
    EXPECT_EQ(7, message.lookupKind);
    EXPECT_EQ(0x1234, message.lookupParam1);
    EXPECT_EQ(0xABCD, message.lookupParam2);
    EXPECT_EQ("0000960046E6", message.toc);
}

TEST(MoxSearchInfoTest, Serialize_WritesKindParamsLengthAndTextInOrder) {
    MoxSearchInfo message;
    message.lookupKind = 0x05;
    message.lookupParam1 = 0x0102;
    message.lookupParam2 = 0xA0B0;
    message.toc = "AB1";
    EXPECT_TRUE(message.serialize());
    const std::vector<uint8> expected = {0x05, 0x01, 0x02, 0xA0, 0xB0, 0x00, 0x03, 'A', 'B', '1'};
    EXPECT_EQ(expected, bytesOf(message));
}

TEST(MoxSearchInfoTest, Serialize_EmptyToc_WritesSevenBytesAndComesBackEmpty) {
    MoxSearchInfo source;
    source.lookupKind = 1;
    source.lookupParam1 = 2;
    source.lookupParam2 = 3;
    ASSERT_TRUE(source.serialize());
    const std::vector<uint8> expected = {0x01, 0x00, 0x02, 0x00, 0x03, 0x00, 0x00};
    EXPECT_EQ(expected, bytesOf(source));

    MoxSearchInfo target;
    target.toc = "stale";
    const std::vector<uint8> bytes = bytesOf(source);
    EXPECT_TRUE(target.unserialize(bytes.data(), static_cast<uint32>(bytes.size())));
    EXPECT_EQ(1, target.lookupKind);
    EXPECT_EQ(2, target.lookupParam1);
    EXPECT_EQ(3, target.lookupParam2);
    EXPECT_EQ("", target.toc);
}

TEST(MoxSearchInfoTest, RoundTrip_TypicalRequest_ComesBackUnchanged) {
    MoxSearchInfo source;
    source.lookupKind = 0xFF;
    source.lookupParam1 = 0xFFFF;
    source.lookupParam2 = 0x8000;
    source.toc = "0000960046E6008D3600D386";
    MoxSearchInfo target;
    roundTrip(source, target);
    EXPECT_EQ(0xFF, target.lookupKind);
    EXPECT_EQ(0xFFFF, target.lookupParam1);
    EXPECT_EQ(0x8000, target.lookupParam2);
    EXPECT_EQ("0000960046E6008D3600D386", target.toc);
}

TEST(MoxSearchInfoTest, RoundTrip_TocWithZeroBytes_ComesBackUnchanged) {
    MoxSearchInfo source;
    source.toc = std::string("\0AB\0\0C\0", 7);
    MoxSearchInfo target;
    roundTrip(source, target);
    EXPECT_EQ(7u, target.toc.size());
    EXPECT_EQ(source.toc, target.toc);
    const std::vector<uint8> bytes = bytesOf(source);
    ASSERT_EQ(14u, bytes.size());
    EXPECT_EQ(0x00, bytes[5]);
    EXPECT_EQ(0x07, bytes[6]);
}

TEST(MoxSearchInfoTest, RoundTrip_Toc65535Bytes_IsTheLongestThatSurvives) {
    MoxSearchInfo source;
    source.toc.assign(65535, 'x');
    source.toc[0] = 'a';
    source.toc[65534] = 'z';
    MoxSearchInfo target;
    roundTrip(source, target);
    EXPECT_EQ(7u + 65535u, source.getArchive().size());
    EXPECT_EQ(source.toc, target.toc);
}

TEST(MoxSearchInfoTest, Serialize_Toc65536Bytes_WritesLengthZeroAndNoText) {
    MoxSearchInfo source;
    source.lookupKind = 4;
    source.toc.assign(65536, 'T');
    ASSERT_TRUE(source.serialize());
    const std::vector<uint8> expected = {0x04, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00};
    EXPECT_EQ(expected, bytesOf(source));

    MoxSearchInfo target;
    const std::vector<uint8> bytes = bytesOf(source);
    ASSERT_TRUE(target.unserialize(bytes.data(), static_cast<uint32>(bytes.size())));
    EXPECT_EQ(4, target.lookupKind);
    EXPECT_EQ("", target.toc);  // the text is lost: the length holds only 16 bits
}

TEST(MoxSearchInfoTest, Serialize_Toc65538Bytes_KeepsOnlyTheFirstTwoBytes) {
    MoxSearchInfo source;
    source.toc.assign(65538, 'T');
    source.toc[0] = 'F';
    source.toc[1] = 'G';
    MoxSearchInfo target;
    roundTrip(source, target);
    const std::vector<uint8> bytes = bytesOf(source);
    ASSERT_EQ(9u, bytes.size());
    EXPECT_EQ(0x00, bytes[5]);
    EXPECT_EQ(0x02, bytes[6]);
    EXPECT_EQ("FG", target.toc);
}

TEST(MoxSearchInfoTest, Unserialize_ShortBuffer_FillsMissingBytesWithZerosAndReturnsTrue) {
    // Claims 3 text bytes but carries only one.
    const uint8 bytes[] = {0x09, 0x00, 0x01, 0x00, 0x02, 0x00, 0x03, 'Q'};
    MoxSearchInfo target;
    EXPECT_TRUE(target.unserialize(bytes, sizeof(bytes)));
    EXPECT_EQ(9, target.lookupKind);
    EXPECT_EQ(1, target.lookupParam1);
    EXPECT_EQ(2, target.lookupParam2);
    EXPECT_EQ(std::string("Q\0\0", 3), target.toc);
}

TEST(MoxSearchInfoTest, Unserialize_NothingAtAll_GivesZerosAndReturnsTrue) {
    MoxSearchInfo target;
    target.lookupKind = 5;
    target.toc = "stale";
    EXPECT_TRUE(target.unserialize(nullptr, 0));
    EXPECT_EQ(0, target.lookupKind);
    EXPECT_EQ(0, target.lookupParam1);
    EXPECT_EQ(0, target.lookupParam2);
    EXPECT_EQ("", target.toc);
}

TEST(MoxSearchInfoTest, Serialize_Twice_AppendsASecondCopy) {
    MoxSearchInfo message;
    message.lookupKind = 1;
    message.toc = "A";
    EXPECT_TRUE(message.serialize());
    EXPECT_TRUE(message.serialize());
    const std::vector<uint8> expected = {0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x01, 'A',
                                         0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x01, 'A'};
    EXPECT_EQ(expected, bytesOf(message));
}

TEST(MoxSearchInfoTest, Delete_ThroughTheBase_ReleasesTheMessage) {
    HbSerialization::HbSerializable* message = new MoxSearchInfo();
    static_cast<MoxSearchInfo*>(message)->toc.assign(1000, 'x');
    EXPECT_TRUE(message->serialize());
    EXPECT_EQ(1007u, message->getArchive().size());
    delete message;  // a leak shows under AddressSanitizer
}
