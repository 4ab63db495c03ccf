// escapeControlCharacters and terminalCells: database strings made safe for a
// terminal and measured in its cells.
#include <gtest/gtest.h>

#include <string>

#include "TextEscape.h"

namespace {

TEST(TextEscapeTest, EscapeControlCharacters_EveryC0ByteAndDel_BecomesBackslashXTwoDigits) {
    EXPECT_EQ(escapeControlCharacters(std::string("\x00\x07\x0a\x1b\x1f\x7f", 6)),
              "\\x00\\x07\\x0a\\x1b\\x1f\\x7f");
}

TEST(TextEscapeTest, EscapeControlCharacters_C1Controls_BecomeBackslashUFourDigits) {
    EXPECT_EQ(escapeControlCharacters("a\xC2\x80"
                                      "b\xC2\x85"
                                      "c\xC2\x9B"
                                      "d\xC2\x9F"),
              "a\\u0080b\\u0085c\\u009bd\\u009f");
}

TEST(TextEscapeTest, EscapeControlCharacters_LineAndParagraphSeparators_AreEscaped) {
    EXPECT_EQ(escapeControlCharacters("a\xE2\x80\xA8"
                                      "b\xE2\x80\xA9"),
              "a\\u2028b\\u2029");
}

TEST(TextEscapeTest, EscapeControlCharacters_BidiEmbeddingsOverridesAndIsolates_AreEscaped) {
    EXPECT_EQ(
        escapeControlCharacters("\xE2\x80\xAA\xE2\x80\xAB\xE2\x80\xAC\xE2\x80\xAD\xE2\x80\xAE"),
        "\\u202a\\u202b\\u202c\\u202d\\u202e");
    EXPECT_EQ(escapeControlCharacters("\xE2\x81\xA6\xE2\x81\xA7\xE2\x81\xA8\xE2\x81\xA9"),
              "\\u2066\\u2067\\u2068\\u2069");
}

TEST(TextEscapeTest, EscapeControlCharacters_BytesOutsideUtf8_BecomeBackslashXTwoDigits) {
    EXPECT_EQ(escapeControlCharacters("a\x9B"
                                      "b\xC2"
                                      "c\xFF"),
              "a\\x9bb\\xc2c\\xff");
}

TEST(TextEscapeTest, EscapeControlCharacters_Backslash_IsDoubled) {
    EXPECT_EQ(escapeControlCharacters("a\\b"), "a\\\\b");
}

TEST(TextEscapeTest, EscapeControlCharacters_PrintableAndUtf8_StayAsTheyAre) {
    const std::string text = " ~AZaz09 夜明けの街 🌙 Cafe\xCC\x81 \xE2\x80\x8B \xE2\x80\x8F";
    EXPECT_EQ(escapeControlCharacters(text), text);
}

TEST(TextEscapeTest, EscapeControlCharacters_Empty_StaysEmpty) {
    EXPECT_EQ(escapeControlCharacters(""), "");
}

TEST(TextEscapeTest, TerminalCells_Ascii_OneCellEach) {
    EXPECT_EQ(terminalCells("title"), 5u);
}

TEST(TextEscapeTest, TerminalCells_WideAndFullWidth_TwoCellsEach) {
    EXPECT_EQ(terminalCells("夜明けの街"), 10u);
    EXPECT_EQ(terminalCells("ＡＢＣ"), 6u);
}

TEST(TextEscapeTest, TerminalCells_CombiningMark_TakesNoCell) {
    EXPECT_EQ(terminalCells("Cafe\xCC\x81"), 4u);
}

TEST(TextEscapeTest, TerminalCells_Emoji_TwoCellsAlsoAsAZwjSequence) {
    EXPECT_EQ(terminalCells("🌙"), 2u);
    // Family: man, ZWJ, woman, ZWJ, girl is one grapheme cluster.
    EXPECT_EQ(
        terminalCells("\xF0\x9F\x91\xA8\xE2\x80\x8D\xF0\x9F\x91\xA9\xE2\x80\x8D\xF0\x9F\x91\xA7"),
        2u);
}

TEST(TextEscapeTest, TerminalCells_ByteOutsideUtf8_OneCell) {
    EXPECT_EQ(terminalCells("a\xFF"), 2u);
}

TEST(TextEscapeTest, PadToCells_WideText_PaddedByCells) {
    EXPECT_EQ(padToCells("夜明け", 8), "夜明け  ");
    EXPECT_EQ(padToCells("Cafe\xCC\x81", 6), "Cafe\xCC\x81  ");
    EXPECT_EQ(padToCells("longer", 3), "longer");
}

}  // namespace
