// The phone's answer frames byte for byte, and their log lines.
#include "moxphone/PhoneFrames.h"

#include <gtest/gtest.h>

using moxphone::Bytes;
using moxphone::PhoneFrames;

TEST(PhoneFramesTest, Answer_EightByteBigEndianHeader) {
    EXPECT_EQ((Bytes{0x80, 0x01, 0x01, 0x94, 0x00, 0x02, 0x00, 0x03}),
              PhoneFrames::answer(0x8001, 404, 2, 3));
    EXPECT_EQ((Bytes{0x80, 0x10, 0, 0, 0, 0, 0, 0}), PhoneFrames::answer(0x8010, 0));
}

TEST(PhoneFramesTest, Notice_HeaderThenTheSize) {
    EXPECT_EQ((Bytes{0x80, 0x11, 0, 0, 0, 0, 0, 0, 0x01, 0x02, 0x03, 0x04}),
              PhoneFrames::notice(0, 0x01020304));
}

TEST(PhoneFramesTest, Chunk_HeaderDeclaredLengthPayload) {
    const Bytes payload = {'a', 'b', 'c'};
    EXPECT_EQ((Bytes{0x80, 0x12, 0, 0, 0, 1, 0, 2, 0, 0, 0, 4, 'a', 'b', 'c'}),
              PhoneFrames::chunk(0, 1, 2, 4, payload.data(), payload.size()));
    EXPECT_EQ((Bytes{0x80, 0x12, 0, 7, 0, 0, 0, 0, 0, 0, 0, 0}),
              PhoneFrames::chunk(7, 0, 0, 0, nullptr, 0));
}

TEST(PhoneFramesTest, Failure_KeepsTheAnswersShape) {
    EXPECT_EQ((Bytes{0x80, 0x01, 0x01, 0x90, 0, 0, 0, 0}), PhoneFrames::failure(0x0001, 400));
    EXPECT_EQ((Bytes{0x80, 0x11, 0x01, 0x90, 0, 0, 0, 0, 0, 0, 0, 0}),
              PhoneFrames::failure(0x0011, 400));
    EXPECT_EQ((Bytes{0x80, 0x12, 0x01, 0xF4, 0, 0, 0, 0, 0, 0, 0, 0}),
              PhoneFrames::failure(0x0012, 500));
    EXPECT_EQ((Bytes{0x92, 0x34, 0x01, 0x90, 0, 0, 0, 0}), PhoneFrames::failure(0x1234, 400));
}

TEST(PhoneFramesTest, CommandOf_FirstTwoBytes) {
    const Bytes frame = {0x0F, 0xFF};
    EXPECT_EQ(0x0FFF, PhoneFrames::commandOf(frame.data(), frame.size()));
    EXPECT_EQ(0, PhoneFrames::commandOf(frame.data(), 1));
    EXPECT_EQ(0, PhoneFrames::commandOf(nullptr, 2));
}

TEST(PhoneFramesTest, DescribeSent_EveryKind) {
    EXPECT_EQ("0x8001 connect answer status 0 (8 bytes)",
              PhoneFrames::describeSent(PhoneFrames::answer(0x8001, 0)));
    EXPECT_EQ("0x8010 lookup answer status 503 (8 bytes)",
              PhoneFrames::describeSent(PhoneFrames::answer(0x8010, 503)));
    EXPECT_EQ("0x8011 notice status 0 size 1234 (12 bytes)",
              PhoneFrames::describeSent(PhoneFrames::notice(0, 1234)));
    const Bytes payload(10, 1);
    EXPECT_EQ("0x8012 chunk 2/5 status 0 length 11 (22 bytes)",
              PhoneFrames::describeSent(PhoneFrames::chunk(0, 2, 5, 11, payload.data(), 10)));
    EXPECT_EQ("0x8FFF cancel answer status 0 (8 bytes)",
              PhoneFrames::describeSent(PhoneFrames::answer(0x8FFF, 0)));
    EXPECT_EQ("0xFFFF echo answer status 0 (8 bytes)",
              PhoneFrames::describeSent(PhoneFrames::answer(0xFFFF, 0)));
    EXPECT_EQ("0x9234 answer status 400 (8 bytes)",
              PhoneFrames::describeSent(PhoneFrames::failure(0x1234, 400)));
    Bytes shortNotice = PhoneFrames::notice(0, 5);
    shortNotice.pop_back();
    EXPECT_EQ("0x8011 notice status 0 (11 bytes)", PhoneFrames::describeSent(shortNotice));
}
