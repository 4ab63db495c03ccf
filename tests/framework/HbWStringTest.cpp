#include <gtest/gtest.h>

#include <cwchar>

#include "HbFramework/HbWString.h"

namespace {

const wchar_t kUntouched = L'#';

}  // namespace

TEST(HbWStringTest, Copy_FitsTheBuffer_CopiedWholeAndTerminated) {
    wchar_t dst[8];
    std::wmemset(dst, kUntouched, 8);
    EXPECT_EQ(dst, hb_wcscpy(dst, sizeof(dst), L"abc"));
    EXPECT_STREQ(L"abc", dst);
    EXPECT_EQ(kUntouched, dst[4]);  // nothing written past the terminator
}

TEST(HbWStringTest, Copy_LongerThanTheBuffer_CutAndTerminatedInsideIt) {
    wchar_t dst[6];
    std::wmemset(dst, kUntouched, 6);
    hb_wcscpy(dst, 4 * sizeof(wchar_t), L"abcdef");
    EXPECT_STREQ(L"abc", dst);
    EXPECT_EQ(L'\0', dst[3]);
    EXPECT_EQ(kUntouched, dst[4]);
    EXPECT_EQ(kUntouched, dst[5]);
}

TEST(HbWStringTest, Copy_ExactlyFillingTheBuffer_KeepsRoomForTheTerminator) {
    wchar_t dst[4];
    hb_wcscpy(dst, sizeof(dst), L"abcd");
    EXPECT_STREQ(L"abc", dst);
}

TEST(HbWStringTest, Copy_LimitIsBytesNotCharacters) {
    wchar_t dst[16];
    std::wmemset(dst, kUntouched, 16);
    hb_wcscpy(dst, 64, L"0123456789ABCDEFGHIJ");
    EXPECT_EQ(64u, 16 * sizeof(wchar_t));
    EXPECT_STREQ(L"0123456789ABCDE", dst);
}

TEST(HbWStringTest, Copy_LimitNotAMultipleOfTheCharacterSize_RoundsDown) {
    wchar_t dst[4];
    std::wmemset(dst, kUntouched, 4);
    hb_wcscpy(dst, 2 * sizeof(wchar_t) + 1, L"xyz");
    EXPECT_STREQ(L"x", dst);
    EXPECT_EQ(kUntouched, dst[2]);
}

TEST(HbWStringTest, Copy_LimitOfOneCharacter_WritesOnlyTheTerminator) {
    wchar_t dst[2] = {kUntouched, kUntouched};
    hb_wcscpy(dst, sizeof(wchar_t), L"xyz");
    EXPECT_EQ(L'\0', dst[0]);
    EXPECT_EQ(kUntouched, dst[1]);
}

TEST(HbWStringTest, Copy_LimitBelowOneCharacter_WritesNothing) {
    wchar_t dst[2] = {kUntouched, kUntouched};
    hb_wcscpy(dst, sizeof(wchar_t) - 1, L"xyz");
    EXPECT_EQ(kUntouched, dst[0]);
    hb_wcscpy(dst, 0, L"xyz");
    EXPECT_EQ(kUntouched, dst[0]);
}

TEST(HbWStringTest, Copy_NullSource_GivesEmptyString) {
    wchar_t dst[4] = {L'a', L'b', L'c', L'\0'};
    hb_wcscpy(dst, sizeof(dst), nullptr);
    EXPECT_STREQ(L"", dst);
}

TEST(HbWStringTest, Copy_NullDestination_ReturnsNull) {
    EXPECT_EQ(nullptr, hb_wcscpy(nullptr, 64, L"abc"));
}

TEST(HbWStringTest, Copy_EmptySource_GivesEmptyString) {
    wchar_t dst[4] = {L'a', L'b', L'c', L'\0'};
    hb_wcscpy(dst, sizeof(dst), L"");
    EXPECT_STREQ(L"", dst);
}
