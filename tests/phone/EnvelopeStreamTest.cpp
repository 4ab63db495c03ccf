// The bounded envelope reader: messages split anyhow, several in one piece,
// and every kind of bad envelope refused from its first bytes on.
#include "moxphone/EnvelopeStream.h"

#include <gtest/gtest.h>

#include <vector>

#include "LinkWire.h"

using moxphone::Bytes;
using moxphone::EnvelopeStream;
using Status = EnvelopeStream::Status;

namespace {

using linkwire::envelope;

void append(EnvelopeStream& stream, const Bytes& bytes) {
    stream.append(bytes.data(), bytes.size());
}

}  // namespace

TEST(EnvelopeStreamTest, Next_Empty_NeedsMore) {
    EnvelopeStream stream;
    EnvelopeStream::Message message;
    EXPECT_EQ(Status::kNeedMore, stream.next(&message));
    EXPECT_FALSE(stream.broken());
}

TEST(EnvelopeStreamTest, Next_OneByteAtATime_MessageOnlyWhenComplete) {
    EnvelopeStream stream;
    EnvelopeStream::Message message;
    const Bytes bytes = envelope(0x03, {0x00, 0x01, 0x01});
    for (size_t i = 0; i + 1 < bytes.size(); ++i) {
        stream.append(&bytes[i], 1);
        EXPECT_EQ(Status::kNeedMore, stream.next(&message)) << i;
    }
    stream.append(&bytes.back(), 1);
    ASSERT_EQ(Status::kMessage, stream.next(&message));
    EXPECT_EQ(0x03, message.type);
    EXPECT_EQ((Bytes{0x00, 0x01, 0x01}), message.payload);
    EXPECT_EQ(0u, stream.buffered());
    EXPECT_EQ(Status::kNeedMore, stream.next(&message));
}

TEST(EnvelopeStreamTest, Next_ThreeMessagesInOnePiece_InOrder) {
    EnvelopeStream stream;
    Bytes bytes = envelope(0x01, {0x01, 'x'});
    const Bytes second = envelope(0x02, {0x02});
    const Bytes third = envelope(0x03, {});
    bytes.insert(bytes.end(), second.begin(), second.end());
    bytes.insert(bytes.end(), third.begin(), third.end());
    bytes.push_back(0x00);  // the start of a fourth
    append(stream, bytes);
    EnvelopeStream::Message message;
    ASSERT_EQ(Status::kMessage, stream.next(&message));
    EXPECT_EQ(0x01, message.type);
    ASSERT_EQ(Status::kMessage, stream.next(&message));
    EXPECT_EQ((Bytes{0x02}), message.payload);
    ASSERT_EQ(Status::kMessage, stream.next(&message));
    EXPECT_EQ(0x03, message.type);
    EXPECT_TRUE(message.payload.empty());
    EXPECT_EQ(Status::kNeedMore, stream.next(&message));
    EXPECT_EQ(1u, stream.buffered());
}

TEST(EnvelopeStreamTest, Next_LengthZero_Broken) {
    EnvelopeStream stream;
    append(stream, {0, 0, 0, 0});
    EnvelopeStream::Message message;
    EXPECT_EQ(Status::kBroken, stream.next(&message));
    EXPECT_EQ("envelope length 0", stream.error());
}

TEST(EnvelopeStreamTest, Next_LengthAboveOneMebibyte_BrokenOnTheLengthAlone) {
    EnvelopeStream stream;
    append(stream, {0x00, 0x10, 0x00, 0x01});
    EnvelopeStream::Message message;
    EXPECT_EQ(Status::kBroken, stream.next(&message));
    EXPECT_EQ("envelope length 1048577 above the limit of 1048576", stream.error());
}

TEST(EnvelopeStreamTest, Next_LengthOfExactlyOneMebibyte_Accepted) {
    EnvelopeStream stream;
    const Bytes bytes = envelope(0x03, Bytes(1048575, 0x5A));
    append(stream, bytes);
    EnvelopeStream::Message message;
    ASSERT_EQ(Status::kMessage, stream.next(&message));
    EXPECT_EQ(1048575u, message.payload.size());
}

TEST(EnvelopeStreamTest, Next_UnknownType_BrokenBeforeThePayload) {
    EnvelopeStream stream;
    append(stream, {0x00, 0x00, 0x10, 0x00, 0x7F});
    EnvelopeStream::Message message;
    EXPECT_EQ(Status::kBroken, stream.next(&message));
    EXPECT_EQ("unknown envelope type 0x7f", stream.error());
}

TEST(EnvelopeStreamTest, Next_TypeZero_Broken) {
    EnvelopeStream stream;
    append(stream, envelope(0x00, {1}));
    EnvelopeStream::Message message;
    EXPECT_EQ(Status::kBroken, stream.next(&message));
    EXPECT_EQ("unknown envelope type 0x00", stream.error());
}

TEST(EnvelopeStreamTest, Broken_StaysBrokenKeepsNothingAndIgnoresMore) {
    EnvelopeStream stream;
    append(stream, {0, 0, 0, 0, 1, 2, 3});
    EnvelopeStream::Message message;
    ASSERT_EQ(Status::kBroken, stream.next(&message));
    EXPECT_TRUE(stream.broken());
    EXPECT_EQ(0u, stream.buffered());
    append(stream, envelope(0x03, {1}));
    EXPECT_EQ(0u, stream.buffered());
    EXPECT_EQ(Status::kBroken, stream.next(&message));
}

TEST(EnvelopeStreamTest, Append_AfterTakingMessages_OnlyTheRestIsKept) {
    EnvelopeStream stream;
    EnvelopeStream::Message message;
    for (int i = 0; i < 1000; ++i) {
        append(stream, envelope(0x03, Bytes(100, static_cast<uint8_t>(i))));
        ASSERT_EQ(Status::kMessage, stream.next(&message));
        EXPECT_EQ(static_cast<uint8_t>(i), message.payload.at(99));
    }
    EXPECT_EQ(0u, stream.buffered());
}
