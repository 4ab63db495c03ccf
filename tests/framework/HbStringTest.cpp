#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "HbFramework/HbString.h"

namespace {

// Copies `units` (a terminating zero is appended) and returns the UTF-8 text.
std::string convert(std::vector<unsigned short> units) {
    units.push_back(0);
    HbString text;
    EXPECT_TRUE(text.Copy(units.data(), HbString::en_CODE_PAGE_UTF16));
    return text.ToCHAR(HbString::en_CODE_PAGE_UTF8);
}

}  // namespace

TEST(HbStringTest, CodePages_Are32And36) {
    EXPECT_EQ(32, HbString::en_CODE_PAGE_UTF8);
    EXPECT_EQ(36, HbString::en_CODE_PAGE_UTF16);
}

TEST(HbStringTest, ToCHAR_Ascii_IsUnchanged) {
    EXPECT_EQ("Abc 123", convert({'A', 'b', 'c', ' ', '1', '2', '3'}));
}

TEST(HbStringTest, ToCHAR_TwoAndThreeByteCharacters_EncodedAsUtf8) {
    EXPECT_EQ("\xC3\xA9", convert({0x00E9}));
    EXPECT_EQ("\xE2\x82\xAC", convert({0x20AC}));
    EXPECT_EQ("\xEF\xBF\xBF", convert({0xFFFF}));
    EXPECT_EQ("\xDF\xBF", convert({0x07FF}));
}

TEST(HbStringTest, ToCHAR_SurrogatePair_CombinesIntoOneCodePoint) {
    EXPECT_EQ("\xF0\x9F\x98\x80", convert({0xD83D, 0xDE00}));              // U+1F600
    EXPECT_EQ("a\xF0\x90\x80\x80z", convert({'a', 0xD800, 0xDC00, 'z'}));  // U+10000
    EXPECT_EQ("\xF4\x8F\xBF\xBF", convert({0xDBFF, 0xDFFF}));              // U+10FFFF
}

TEST(HbStringTest, ToCHAR_HighSurrogateAlone_BecomesReplacementCharacter) {
    EXPECT_EQ(
        "\xEF\xBF\xBD"
        "A",
        convert({0xD800, 'A'}));
}

TEST(HbStringTest, ToCHAR_LowSurrogateAlone_BecomesReplacementCharacter) {
    EXPECT_EQ(
        "\xEF\xBF\xBD"
        "A",
        convert({0xDC00, 'A'}));
    EXPECT_EQ("A\xEF\xBF\xBD", convert({'A', 0xDFFF}));
}

TEST(HbStringTest, ToCHAR_HighSurrogateAtTheEnd_BecomesReplacementCharacter) {
    EXPECT_EQ("A\xEF\xBF\xBD", convert({'A', 0xD83D}));
}

TEST(HbStringTest, ToCHAR_TwoHighsThenALow_FirstReplacedSecondPaired) {
    EXPECT_EQ("\xEF\xBF\xBD\xF0\x90\x80\x80", convert({0xD800, 0xD800, 0xDC00}));
}

TEST(HbStringTest, ToCHAR_LowThenHigh_BothReplaced) {
    EXPECT_EQ("\xEF\xBF\xBD\xEF\xBF\xBD", convert({0xDC00, 0xD800}));
}

TEST(HbStringTest, Copy_EmbeddedZero_StopsAtTheFirstZeroUnit) {
    const unsigned short units[] = {'A', 'B', 0, 'C', 'D', 0};
    HbString text;
    EXPECT_TRUE(text.Copy(units, HbString::en_CODE_PAGE_UTF16));
    EXPECT_EQ(std::string("AB"), text.ToCHAR(HbString::en_CODE_PAGE_UTF8));
}

TEST(HbStringTest, Copy_Empty_GivesEmptyText) {
    const unsigned short units[] = {0};
    HbString text;
    EXPECT_TRUE(text.Copy(units, HbString::en_CODE_PAGE_UTF16));
    EXPECT_STREQ("", text.ToCHAR(HbString::en_CODE_PAGE_UTF8));
}

TEST(HbStringTest, Copy_NullText_ReturnsFalseAndHoldsEmptyText) {
    const unsigned short units[] = {'x', 0};
    HbString text;
    ASSERT_TRUE(text.Copy(units, HbString::en_CODE_PAGE_UTF16));
    EXPECT_FALSE(text.Copy(nullptr, HbString::en_CODE_PAGE_UTF16));
    EXPECT_STREQ("", text.ToCHAR(HbString::en_CODE_PAGE_UTF8));
}

TEST(HbStringTest, Copy_OtherCodePage_ReturnsFalseAndHoldsEmptyText) {
    const unsigned short units[] = {'x', 0};
    HbString text;
    EXPECT_FALSE(text.Copy(units, HbString::en_CODE_PAGE_UTF8));
    EXPECT_STREQ("", text.ToCHAR(HbString::en_CODE_PAGE_UTF8));
}

TEST(HbStringTest, ToCHAR_OtherCodePage_ReturnsEmptyAndLeavesTheUtf8TextAlone) {
    const unsigned short units[] = {'h', 'i', 0};
    HbString text;
    ASSERT_TRUE(text.Copy(units, HbString::en_CODE_PAGE_UTF16));
    const char* utf8 = text.ToCHAR(HbString::en_CODE_PAGE_UTF8);
    EXPECT_STREQ("", text.ToCHAR(HbString::en_CODE_PAGE_UTF16));
    EXPECT_STREQ("hi", utf8);
}

TEST(HbStringTest, ToCHAR_CalledAgain_ReturnsTheSameUnchangedText) {
    const unsigned short units[] = {0x00E9, 't', 0x00E9, 0};
    HbString text;
    ASSERT_TRUE(text.Copy(units, HbString::en_CODE_PAGE_UTF16));
    const char* first = text.ToCHAR(HbString::en_CODE_PAGE_UTF8);
    const char* second = text.ToCHAR(HbString::en_CODE_PAGE_UTF8);
    EXPECT_EQ(first, second);
    EXPECT_STREQ("\xC3\xA9t\xC3\xA9", first);
}

TEST(HbStringTest, Copy_Again_ReplacesTheText) {
    const unsigned short first[] = {'o', 'l', 'd', 0};
    const unsigned short second[] = {'n', 'e', 'w', '!', 0};
    HbString text;
    ASSERT_TRUE(text.Copy(first, HbString::en_CODE_PAGE_UTF16));
    ASSERT_TRUE(text.Copy(second, HbString::en_CODE_PAGE_UTF16));
    EXPECT_STREQ("new!", text.ToCHAR(HbString::en_CODE_PAGE_UTF8));
}

TEST(HbStringTest, ToCHAR_BeforeAnyCopy_IsEmpty) {
    HbString text;
    EXPECT_STREQ("", text.ToCHAR(HbString::en_CODE_PAGE_UTF8));
}
