// SheetText: the checks on a CUE sheet's or cdrdao TOC file's text that run
// before libcue or libcdio reads it, taken every way those libraries may
// read the text.
#include "SheetText.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "DiscImageFiles.h"
#include "TestDir.h"

namespace {

using Names = std::vector<std::string>;

class SheetTextTest : public ::testing::Test {
protected:
    std::string tracksFailure(const std::string& text) {
        std::string why;
        EXPECT_FALSE(SheetText::checkTrackNumbers("s.cue", text, &why));
        return why;
    }

    std::string namesFailure(const std::string& text) {
        std::string why;
        EXPECT_FALSE(SheetText::checkFileNames(dir.file("s.toc"), text, &why));
        return why;
    }

    bool namesPass(const std::string& text) {
        std::string why;
        const bool passed = SheetText::checkFileNames(dir.file("s.toc"), text, &why);
        EXPECT_EQ(why, "");
        return passed;
    }

    TestDir dir{"SheetTextTest"};
};

TEST_F(SheetTextTest, CheckTrackNumbers_WhenOneTwoThree_Passes) {
    std::string why;
    EXPECT_TRUE(SheetText::checkTrackNumbers(
        "s.cue",
        "FILE \"a.bin\" BINARY\n  TRACK 01 AUDIO\n  TRACK 2 AUDIO\r\n\tTRACK 003 AUDIO\n"
        "REM TRACK 99\n  TITLE \"TRACK 7\"\n",
        &why))
        << why;
    EXPECT_EQ(why, "");
}

TEST_F(SheetTextTest, CheckTrackNumbers_WhenFirstIs99_NamesIt) {
    EXPECT_EQ(tracksFailure("FILE \"a.bin\" BINARY\n  TRACK 99 AUDIO\n  TRACK 02 AUDIO\n"),
              "s.cue: TRACK 99 where track 1 should be (track numbers start at 1 and rise by 1)");
}

TEST_F(SheetTextTest, CheckTrackNumbers_WhenANumberIsSkipped_NamesIt) {
    EXPECT_EQ(tracksFailure("TRACK 01 AUDIO\nTRACK 03 AUDIO\n"),
              "s.cue: TRACK 03 where track 2 should be (track numbers start at 1 and rise by 1)");
}

TEST_F(SheetTextTest, CheckTrackNumbers_WhenANumberRepeats_NamesIt) {
    EXPECT_EQ(tracksFailure("TRACK 01 AUDIO\nTRACK 01 AUDIO\n"),
              "s.cue: TRACK 01 where track 2 should be (track numbers start at 1 and rise by 1)");
}

TEST_F(SheetTextTest, CheckTrackNumbers_WhenTrackZero_NamesIt) {
    EXPECT_EQ(tracksFailure("TRACK 00 AUDIO\n"),
              "s.cue: TRACK 00 where track 1 should be (track numbers start at 1 and rise by 1)");
}

TEST_F(SheetTextTest, CheckTrackNumbers_WhenNoNumberOrNotDecimal_NamesIt) {
    EXPECT_EQ(tracksFailure("TRACK\n"),
              "s.cue: TRACK without a number where track 1 should be (track numbers start at 1 "
              "and rise by 1)");
    EXPECT_EQ(tracksFailure("TRACK 1x AUDIO\n"),
              "s.cue: TRACK 1x where track 1 should be (track numbers start at 1 and rise by 1)");
    EXPECT_EQ(tracksFailure("TRACK -1 AUDIO\n"),
              "s.cue: TRACK -1 where track 1 should be (track numbers start at 1 and rise by 1)");
    EXPECT_EQ(tracksFailure("TRACK 4294967297\n"),
              "s.cue: TRACK 4294967297 where track 1 should be (track numbers start at 1 and rise "
              "by 1)");
    EXPECT_EQ(tracksFailure("TRACK 01234567890123456789\n"),
              "s.cue: TRACK 0123456789012345... where track 1 should be (track numbers start at "
              "1 and rise by 1)");
}

// libcdio ends lines at a line feed and libcue also at a carriage return; a
// TRACK after either, in any case, counts.
TEST_F(SheetTextTest, CheckTrackNumbers_TakesEveryLineStartAndAnyCase) {
    EXPECT_EQ(tracksFailure("TRACK 01 AUDIO\rtrack 05 AUDIO\n"),
              "s.cue: track 05 where track 2 should be (track numbers start at 1 and rise by 1)");
    EXPECT_EQ(tracksFailure("TRACK 01 AUDIO\n\v\fTrack 05 AUDIO\n"),
              "s.cue: Track 05 where track 2 should be (track numbers start at 1 and rise by 1)");
}

TEST_F(SheetTextTest, CheckTrackNumbers_ShowsControlCharactersAsQuestionMarks) {
    EXPECT_EQ(tracksFailure("TRACK 9\x01\x7f AUDIO\n"),
              "s.cue: TRACK 9?? where track 1 should be (track numbers start at 1 and rise by 1)");
}

TEST_F(SheetTextTest, FileNames_TakesEachFormAParserMayRead) {
    EXPECT_EQ(SheetText::fileNames("FILE \"a b.bin\" BINARY\n"),
              (Names{"\"a b.bin\" BINARY", "a b.bin", "a b.bin\" BINARY", "\"a", "a", "b.bin\"",
                     "b.bin", "BINARY"}));
    EXPECT_EQ(SheetText::fileNames("\tfile c.wav 0\r"), (Names{"c.wav 0", "c.wav", "0"}));
    EXPECT_EQ(SheetText::fileNames("AUDIOFILE \"d.raw\nDATAFILE e.img\nREM FILE f.bin\n"),
              (Names{"\"d.raw", "d.raw", "e.img"}));
    EXPECT_EQ(SheetText::fileLines("FILE a\nREM FILE b\n file c\rDATAFILE d\nAUDIOFILE\n"), 4u);
}

TEST_F(SheetTextTest, CheckFileNames_WhenNamedFileIsAFifo_NamesIt) {
    ASSERT_EQ(::mkfifo(dir.file("f.bin").c_str(), 0600), 0);
    EXPECT_EQ(namesFailure("CD_DA\nTRACK AUDIO\nFILE \"f.bin\" 0\n"),
              dir.file("f.bin") + ": not a regular file");
    EXPECT_EQ(namesFailure("AUDIOFILE f.bin 0\n"), dir.file("f.bin") + ": not a regular file");
    EXPECT_EQ(namesFailure("DATAFILE \"f.bin\n"), dir.file("f.bin") + ": not a regular file");
    EXPECT_EQ(namesFailure("FILE \"" + dir.file("f.bin") + "\" 0\n"),
              dir.file("f.bin") + ": not a regular file");
}

TEST_F(SheetTextTest, CheckFileNames_WhenNamedFileLinksToAFifoOrIsADirectory_NamesIt) {
    ASSERT_EQ(::mkfifo(dir.file("f.bin").c_str(), 0600), 0);
    ASSERT_EQ(::symlink("f.bin", dir.file("link.bin").c_str()), 0);
    ASSERT_EQ(::mkdir(dir.file("d.bin").c_str(), 0700), 0);
    EXPECT_EQ(namesFailure("FILE \"link.bin\" 0\n"), dir.file("link.bin") + ": not a regular file");
    EXPECT_EQ(namesFailure("FILE \"d.bin\" 0\n"), dir.file("d.bin") + ": not a regular file");
}

TEST_F(SheetTextTest, CheckFileNames_WhenNamedFilesAreRegularOrMissing_Passes) {
    DiscImageFiles::writeText(dir.file("a.bin"), "");
    EXPECT_TRUE(namesPass("FILE \"a.bin\" BINARY\nFILE \"missing.bin\" BINARY\n"));
    EXPECT_TRUE(namesPass("REM no files at all\n"));
}

TEST_F(SheetTextTest, CheckTrackModes_WhenModesLibcdioSizes_Passes) {
    std::string why;
    EXPECT_TRUE(SheetText::checkTrackModes(
        "s.toc",
        "CD_ROM_XA\nTRACK AUDIO\nTRACK MODE1\r\n\tTRACK MODE1_RAW\nTRACK MODE2_FORM_MIX COPY\n"
        "TRACK MODE2_RAW\nREM TRACK MODE2\n",
        &why))
        << why;
    EXPECT_EQ(why, "");
}

TEST_F(SheetTextTest, CheckTrackModes_WhenNoModeOrOneLibcdioCannotSize_NamesIt) {
    const std::string known =
        ": not a track mode that is read (AUDIO, MODE1, MODE1_RAW, "
        "MODE2_FORM_MIX, MODE2_RAW)";
    std::string why;
    EXPECT_FALSE(SheetText::checkTrackModes("s.toc", "TRACK AUDIO\nTRACK\n", &why));
    EXPECT_EQ(why, "s.toc: TRACK without a mode" + known);
    EXPECT_FALSE(SheetText::checkTrackModes("s.toc", "track MODE2_FORM1\n", &why));
    EXPECT_EQ(why, "s.toc: track MODE2_FORM1" + known);
    EXPECT_FALSE(SheetText::checkTrackModes("s.toc", "TRACK audio\n", &why));
    EXPECT_EQ(why, "s.toc: TRACK audio" + known);
}

TEST_F(SheetTextTest, Read_WhenSheetIsAFifo_RefusesWithoutOpeningIt) {
    ASSERT_EQ(::mkfifo(dir.file("s.cue").c_str(), 0600), 0);
    std::string text;
    std::string why;
    EXPECT_FALSE(SheetText::read(dir.file("s.cue"), &text, &why));
    EXPECT_EQ(why, dir.file("s.cue") + ": not a regular file");
}

TEST_F(SheetTextTest, Read_WhenSheetIsLargerThan1MiB_Refuses) {
    DiscImageFiles::writeText(dir.file("big.cue"), std::string(SheetText::kMaxBytes + 1, ' '));
    DiscImageFiles::writeText(dir.file("full.cue"), std::string(SheetText::kMaxBytes, ' '));
    std::string text;
    std::string why;
    EXPECT_FALSE(SheetText::read(dir.file("big.cue"), &text, &why));
    EXPECT_EQ(why, dir.file("big.cue") + ": larger than 1048576 bytes, too large for a sheet");
    EXPECT_TRUE(SheetText::read(dir.file("full.cue"), &text, &why)) << why;
    EXPECT_EQ(text.size(), SheetText::kMaxBytes);
}

}  // namespace

// checkTimes: CUE times within range and an INDEX 01 for every track, the
// first problem named with its line.
namespace {

std::string timesFailure(const std::string& text) {
    std::string why;
    EXPECT_FALSE(SheetText::checkTimes("s.cue", text, &why));
    return why;
}

}  // namespace

TEST(SheetTextTimesTest, CheckTimes_WhenInRange_Passes) {
    std::string why;
    EXPECT_TRUE(SheetText::checkTimes(
        "s.cue",
        "FILE \"a.wav\" WAVE\n  TRACK 01 AUDIO\n    INDEX 01 00:00:00\n  TRACK 02 AUDIO\n"
        "    PREGAP 00:02:00\n    INDEX 00 03:59:74\n    INDEX 01 99:59:74\n",
        &why));
    EXPECT_EQ(why, "");
}

TEST(SheetTextTimesTest, CheckTimes_WhenSecondsAbove59_NamesTheLine) {
    EXPECT_EQ(timesFailure("FILE \"a.wav\" WAVE\n  TRACK 01 AUDIO\n    INDEX 01 00:99:00\n"),
              "s.cue:3: INDEX 01 00:99:00: seconds above 59");
}

TEST(SheetTextTimesTest, CheckTimes_WhenFramesAbove74_NamesTheLine) {
    EXPECT_EQ(timesFailure("FILE \"a.wav\" WAVE\r\n  TRACK 01 AUDIO\r\n  PREGAP 00:00:75\r\n"),
              "s.cue:3: PREGAP 00:00:75: frames above 74");
}

TEST(SheetTextTimesTest, CheckTimes_WhenNotATime_NamesTheLine) {
    EXPECT_EQ(timesFailure("FILE \"a.wav\" WAVE\n  TRACK 01 AUDIO\n    INDEX 01 1:2\n"),
              "s.cue:3: INDEX 01 1:2: not a time mm:ss:ff");
}

TEST(SheetTextTimesTest, CheckTimes_WhenATrackHasNoIndex01_NamesItsLine) {
    EXPECT_EQ(timesFailure("FILE \"a.wav\" WAVE\n  TRACK 01 AUDIO\n"),
              "s.cue:2: TRACK 01 has no INDEX 01");
    EXPECT_EQ(timesFailure("FILE \"a.wav\" WAVE\n  TRACK 01 AUDIO\n    INDEX 00 00:00:00\n"
                           "  TRACK 02 AUDIO\n    INDEX 01 00:10:00\n"),
              "s.cue:2: TRACK 01 has no INDEX 01");
}
