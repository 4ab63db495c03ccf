// tocFromOffsets: the TOC text of the tools from frame offsets, and the
// one-line reasons for offsets that describe no CD.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "TocInput.h"

namespace {

std::string textOf(const std::vector<uint32>& offsets) {
    std::string toc;
    std::string why;
    EXPECT_TRUE(tocFromOffsets(offsets, &toc, &why)) << why;
    EXPECT_EQ(why, "");
    return toc;
}

std::string reasonFor(const std::vector<uint32>& offsets) {
    std::string toc = "untouched";
    std::string why;
    EXPECT_FALSE(tocFromOffsets(offsets, &toc, &why));
    EXPECT_EQ(toc, "untouched");
    return why;
}

std::vector<uint32> evenTracks(uint32 count) {
    std::vector<uint32> offsets;
    for (uint32 i = 0; i <= count; ++i) {
        offsets.push_back(150 + i * 1000);
    }
    return offsets;
}

}  // namespace

TEST(TocInputTest, TocFromOffsets_WhenThreeTracks_WritesSixHexDigitsPerEntry) {
    EXPECT_EQ(textOf({150, 18150, 36150, 54150}), "0000960046E6008D3600D386");
}

TEST(TocInputTest, TocFromOffsets_WhenOneTrack_WritesTrackAndLeadOut) {
    EXPECT_EQ(textOf({150, 18150}), "0000960046E6");
}

TEST(TocInputTest, TocFromOffsets_When99Tracks_Writes100Entries) {
    EXPECT_EQ(textOf(evenTracks(99)).size(), 600u);
}

TEST(TocInputTest, TocFromOffsets_WhenLastOffsetIsSixHexDigits_Accepts) {
    EXPECT_EQ(textOf({150, 0xFFFFFF}), "000096FFFFFF");
}

TEST(TocInputTest, TocFromOffsets_When100Tracks_Refuses) {
    EXPECT_EQ(reasonFor(evenTracks(100)), "100 tracks: a CD holds at most 99");
}

TEST(TocInputTest, TocFromOffsets_WhenOnlyLeadOut_Refuses) {
    EXPECT_EQ(reasonFor({150}), "give the offsets of at least one track and of the lead-out");
    EXPECT_EQ(reasonFor({}), "give the offsets of at least one track and of the lead-out");
}

TEST(TocInputTest, TocFromOffsets_WhenOffsetsRepeat_Refuses) {
    EXPECT_EQ(reasonFor({150, 18150, 18150, 30000}), "offsets do not increase: 18150 then 18150");
}

TEST(TocInputTest, TocFromOffsets_WhenOffsetsFall_Refuses) {
    EXPECT_EQ(reasonFor({150, 18150, 9000}), "offsets do not increase: 18150 then 9000");
}

TEST(TocInputTest, TocFromOffsets_WhenBeforeLba0_Refuses) {
    EXPECT_EQ(reasonFor({149, 18150}), "offset 149 lies outside 150..16777215");
}

TEST(TocInputTest, TocFromOffsets_WhenPastSixHexDigits_Refuses) {
    EXPECT_EQ(reasonFor({150, 0x1000000}), "offset 16777216 lies outside 150..16777215");
}

// offsetsFromTocText: the tools' TOC text read back, and the reasons for a
// text that breaks their rules.
namespace {

std::string textReasonFor(const std::string& text) {
    std::vector<uint32> offsets = {1};
    std::string why;
    EXPECT_FALSE(offsetsFromTocText(text, &offsets, &why));
    EXPECT_EQ(offsets, std::vector<uint32>({1}));
    return why;
}

}  // namespace

TEST(TocInputTest, OffsetsFromTocText_ToolsText_GivesTheOffsetsThenTheLeadOut) {
    std::vector<uint32> offsets;
    std::string why;
    EXPECT_TRUE(offsetsFromTocText("000096003B2E0079AE00B82E", &offsets, &why)) << why;
    EXPECT_EQ(offsets, std::vector<uint32>({150, 15150, 31150, 47150}));
    EXPECT_TRUE(offsetsFromTocText(textOf(evenTracks(99)), &offsets, &why)) << why;
    EXPECT_EQ(offsets, evenTracks(99));
}

TEST(TocInputTest, OffsetsFromTocText_LowerCaseHex_RefusedNamingTheCharacter) {
    EXPECT_EQ(textReasonFor("00009600012c"),
              "the TOC text's character 12 ('c') is not an upper-case hexadecimal digit (0-9, "
              "A-F)");
}

TEST(TocInputTest, OffsetsFromTocText_LeadingSpace_Refused) {
    EXPECT_EQ(textReasonFor(" 000096000100"),
              "the TOC text's character 1 (' ') is not an upper-case hexadecimal digit (0-9, A-F)");
}

TEST(TocInputTest, OffsetsFromTocText_ControlCharacter_ShownEscaped) {
    EXPECT_EQ(textReasonFor("000096\x1b[2J00"),
              "the TOC text's character 7 ('\\x1b') is not an upper-case hexadecimal digit (0-9, "
              "A-F)");
}

TEST(TocInputTest, OffsetsFromTocText_Empty_Refused) {
    EXPECT_EQ(textReasonFor(""), "the TOC text is empty");
}

TEST(TocInputTest, OffsetsFromTocText_120000Characters_RefusedByItsLength) {
    EXPECT_EQ(textReasonFor(std::string(120000, '0')),
              "the TOC text has 120000 characters; at most 600 (99 tracks and the lead-out)");
}

TEST(TocInputTest, OffsetsFromTocText_PartOfAnEntry_Refused) {
    EXPECT_EQ(textReasonFor("0000960001"), "the TOC text has 10 characters, not six per entry");
}

TEST(TocInputTest, OffsetsFromTocText_LeadOutAlone_Refused) {
    EXPECT_EQ(textReasonFor("000096"),
              "the TOC text has one entry; it needs at least one track and the lead-out");
}

TEST(TocInputTest, OffsetsFromTocText_FallingOffsets_Refused) {
    EXPECT_EQ(textReasonFor("0000960001F40000C8"),
              "the TOC text's offsets do not increase: 500 then 200");
}

TEST(TocInputTest, OffsetsFromTocText_BeforeLba0_Refused) {
    EXPECT_EQ(textReasonFor("000010000100"), "the TOC text's offset 16 lies outside 150..16777215");
}
