// escapeControlCharacters: database strings made safe for a terminal.
#include <gtest/gtest.h>

#include <string>

#include "TextEscape.h"

namespace {

TEST(TextEscapeTest, EscapeControlCharacters_EveryControlByte_BecomesBackslashXTwoDigits) {
    EXPECT_EQ(escapeControlCharacters(std::string("\x00\x07\x0a\x1b\x1f\x7f", 6)),
              "\\x00\\x07\\x0a\\x1b\\x1f\\x7f");
}

TEST(TextEscapeTest, EscapeControlCharacters_Backslash_IsDoubled) {
    EXPECT_EQ(escapeControlCharacters("a\\b"), "a\\\\b");
}

TEST(TextEscapeTest, EscapeControlCharacters_PrintableAndUtf8_StayAsTheyAre) {
    const std::string text = " ~AZaz09 夜明けの街 🌙 \xC2\x80";
    EXPECT_EQ(escapeControlCharacters(text), text);
}

TEST(TextEscapeTest, EscapeControlCharacters_Empty_StaysEmpty) {
    EXPECT_EQ(escapeControlCharacters(""), "");
}

}  // namespace
