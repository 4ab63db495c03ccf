// CueSheetReader: CUE sheets parsed with libcue, tracks placed on the disc
// from the lengths of the WAV, FLAC and raw files they name.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "CueSheetReader.h"
#include "DiscImageFiles.h"
#include "TestDir.h"

namespace {

using Format = DiscImageFiles::AudioFormat;

class CueSheetReaderTest : public ::testing::Test {
protected:
    CueSheetReaderTest() : dir("CueSheetReaderTest") {}

    std::string sheet(const std::string& name, const std::string& text) {
        const std::string path = dir.file(name);
        DiscImageFiles::writeText(path, text);
        return path;
    }

    // Offsets of the layout's tracks, then its lead-out.
    static std::vector<uint32_t> offsetsOf(const DiscLayout& layout) {
        std::vector<uint32_t> offsets;
        for (const DiscTrack& track : layout.tracks) {
            offsets.push_back(track.offset);
        }
        offsets.push_back(layout.leadOut);
        return offsets;
    }

    std::string parseFailure(const std::string& path) {
        CueSheetReader reader;
        std::string why;
        EXPECT_FALSE(reader.parse(path, &why));
        EXPECT_TRUE(reader.tracks().empty());
        return why;
    }

    std::string layoutFailure(const std::string& path) {
        CueSheetReader reader;
        std::string why;
        EXPECT_TRUE(reader.parse(path, &why)) << why;
        DiscLayout layout;
        EXPECT_FALSE(reader.readLayout(&layout, &why));
        return why;
    }

    TestDir dir;
};

}  // namespace

TEST_F(CueSheetReaderTest, Parse_WhenSheetHasPregaps_TakesIndex01OfEachTrack) {
    const std::string path = sheet("disc.cue",
                                   "FILE \"disc.bin\" BINARY\n"
                                   "  TRACK 01 AUDIO\n"
                                   "    INDEX 01 00:00:00\n"
                                   "  TRACK 02 AUDIO\n"
                                   "    INDEX 00 03:58:00\n"
                                   "    INDEX 01 04:00:00\n"
                                   "  TRACK 03 MODE1/2048\n"
                                   "    INDEX 01 08:00:00\n");
    CueSheetReader reader;
    std::string why;
    ASSERT_TRUE(reader.parse(path, &why)) << why;
    ASSERT_EQ(reader.tracks().size(), 3u);
    EXPECT_EQ(reader.tracks()[0].index1, 0u);
    EXPECT_EQ(reader.tracks()[1].index1, 18000u);
    EXPECT_EQ(reader.tracks()[2].index1, 36000u);
    EXPECT_TRUE(reader.tracks()[1].audio);
    EXPECT_FALSE(reader.tracks()[2].audio);
    EXPECT_EQ(reader.tracks()[1].blockBytes, 2352u);
    EXPECT_EQ(reader.tracks()[2].blockBytes, 2048u);
    EXPECT_EQ(reader.tracks()[2].number, 3u);
    EXPECT_EQ(reader.files(), (std::vector<std::string>{dir.file("disc.bin")}));
}

TEST_F(CueSheetReaderTest, Parse_WhenSheetStartsWithByteOrderMark_ReadsIt) {
    const std::string path =
        sheet("bom.cue",
              "\xEF\xBB\xBF"
              "FILE \"a.wav\" WAVE\n  TRACK 01 AUDIO\n    INDEX 01 00:00:00\n");
    CueSheetReader reader;
    std::string why;
    ASSERT_TRUE(reader.parse(path, &why)) << why;
    EXPECT_EQ(reader.files(), (std::vector<std::string>{dir.file("a.wav")}));
}

TEST_F(CueSheetReaderTest, Parse_WhenNoTrackLine_NamesTheSheetWithoutTracks) {
    const std::string path = sheet("empty.cue", "FILE \"a.wav\" WAVE\n");
    EXPECT_EQ(parseFailure(path), path + ": a CUE sheet without tracks");
}

TEST_F(CueSheetReaderTest, Parse_WhenSheetIsEmpty_NamesTheSheetWithoutTracks) {
    const std::string path = sheet("nothing.cue", "");
    EXPECT_EQ(parseFailure(path), path + ": a CUE sheet without tracks");
}

TEST_F(CueSheetReaderTest, Parse_WhenMoreThan99Tracks_Refuses) {
    std::string text = "FILE \"a.wav\" WAVE\n";
    for (int i = 1; i <= 100; ++i) {
        text += "  TRACK " + std::to_string(i) +
                " AUDIO\n    INDEX 01 00:" + std::to_string(10 + i % 50) + ":00\n";
    }
    const std::string path = sheet("hundred.cue", text);
    EXPECT_EQ(parseFailure(path), path + ": 100 tracks: a CD holds at most 99");
}

TEST_F(CueSheetReaderTest, Parse_WhenUnknownCommand_CallsTheSheetMalformed) {
    const std::string path = sheet("bad.cue",
                                   "FILE \"a.wav\" WAVE\n  TRACK 01 AUDIO\n    INDEX 01 00:00:00\n"
                                   "  BOGUS LINE\n");
    EXPECT_EQ(parseFailure(path), path + ": malformed CUE sheet (bad character 'B')");
}

TEST_F(CueSheetReaderTest, Parse_WhenTrackBeforeAnyFile_CallsTheSheetMalformed) {
    const std::string path = sheet("nofile.cue", "  TRACK 01 AUDIO\n    INDEX 01 00:00:00\n");
    const std::string why = parseFailure(path);
    EXPECT_EQ(why.rfind(path + ": malformed CUE sheet", 0), 0u) << why;
}

TEST_F(CueSheetReaderTest, Parse_WhenTrackHasNoIndex01_NamesTheTracksLine) {
    const std::string path =
        sheet("noindex.cue", "FILE \"a.wav\" WAVE\n  TRACK 01 AUDIO\n    INDEX 00 00:00:00\n");
    EXPECT_EQ(parseFailure(path), path + ":2: TRACK 01 has no INDEX 01");
}

TEST_F(CueSheetReaderTest, Parse_WhenSheetMissing_NamesTheFile) {
    const std::string path = dir.file("missing.cue");
    EXPECT_EQ(parseFailure(path), path + ": No such file or directory");
}

TEST_F(CueSheetReaderTest, Parse_WhenSheetIsADirectory_NamesTheFile) {
    EXPECT_EQ(parseFailure(dir.path()), dir.path() + ": not a regular file");
}

TEST_F(CueSheetReaderTest, ReadLayout_WhenWavPerTrack_PlacesTracksFromFileLengths) {
    const std::vector<ImageTrack> tracks = {audio(1200), audio(900, 150), audio(450, 75)};
    const std::string path = DiscImageFiles::writeAudioCue(dir.path(), "wav", tracks, Format::WAV);
    CueSheetReader reader;
    std::string why;
    ASSERT_TRUE(reader.parse(path, &why)) << why;
    DiscLayout layout;
    ASSERT_TRUE(reader.readLayout(&layout, &why)) << why;
    EXPECT_EQ(offsetsOf(layout), (std::vector<uint32_t>{150, 1500, 2475, 2925}));
    EXPECT_EQ(offsetsOf(layout), DiscImageFiles::offsetsOf(tracks));
    EXPECT_EQ(layout.tracks[2].number, 3u);
    EXPECT_TRUE(layout.tracks[2].audio);
}

TEST_F(CueSheetReaderTest, ReadLayout_WhenFlacPerTrack_PlacesTracksFromFileLengths) {
    const std::vector<ImageTrack> tracks = {audio(700, 0), audio(333, 150)};
    const std::string path =
        DiscImageFiles::writeAudioCue(dir.path(), "flac", tracks, Format::FLAC);
    CueSheetReader reader;
    std::string why;
    ASSERT_TRUE(reader.parse(path, &why)) << why;
    DiscLayout layout;
    ASSERT_TRUE(reader.readLayout(&layout, &why)) << why;
    EXPECT_EQ(offsetsOf(layout), (std::vector<uint32_t>{150, 1000, 1333}));
}

TEST_F(CueSheetReaderTest, ReadLayout_WhenFileEndsInPartSector_CountsTheWholeSector) {
    DiscImageFiles::writeAudio(dir.file("a.wav"), Format::WAV, 100, 44100, 1);
    const std::string path =
        sheet("part.cue", "FILE \"a.wav\" WAVE\n  TRACK 01 AUDIO\n    INDEX 01 00:00:00\n");
    CueSheetReader reader;
    std::string why;
    ASSERT_TRUE(reader.parse(path, &why)) << why;
    DiscLayout layout;
    ASSERT_TRUE(reader.readLayout(&layout, &why)) << why;
    EXPECT_EQ(offsetsOf(layout), (std::vector<uint32_t>{150, 251}));
}

TEST_F(CueSheetReaderTest, ReadLayout_WhenOneWavHoldsTheDisc_PlacesTracksInIt) {
    DiscImageFiles::writeAudio(dir.file("whole.wav"), Format::WAV, 3000);
    const std::string path = sheet("whole.cue",
                                   "FILE \"whole.wav\" WAVE\n"
                                   "  TRACK 01 AUDIO\n    INDEX 01 00:00:00\n"
                                   "  TRACK 02 AUDIO\n    INDEX 00 00:10:00\n"
                                   "    INDEX 01 00:12:00\n");
    CueSheetReader reader;
    std::string why;
    ASSERT_TRUE(reader.parse(path, &why)) << why;
    DiscLayout layout;
    ASSERT_TRUE(reader.readLayout(&layout, &why)) << why;
    EXPECT_EQ(offsetsOf(layout), (std::vector<uint32_t>{150, 1050, 3150}));
}

TEST_F(CueSheetReaderTest, ReadLayout_WhenRawFileHoldsDataTrack_SizesItsSectorsByMode) {
    // 1000 audio sectors of 2352 bytes, then 500 data sectors of 2048 bytes.
    DiscImageFiles::writeSparse(dir.file("mixed.img"), 1000 * 2352 + 500 * 2048);
    const std::string path = sheet("mixed.cue",
                                   "FILE \"mixed.img\" BINARY\n"
                                   "  TRACK 01 AUDIO\n    INDEX 01 00:00:00\n"
                                   "  TRACK 02 MODE1/2048\n    INDEX 01 00:13:25\n");
    CueSheetReader reader;
    std::string why;
    ASSERT_TRUE(reader.parse(path, &why)) << why;
    DiscLayout layout;
    ASSERT_TRUE(reader.readLayout(&layout, &why)) << why;
    EXPECT_EQ(offsetsOf(layout), (std::vector<uint32_t>{150, 1150, 1650}));
    EXPECT_FALSE(layout.tracks[1].audio);
}

TEST_F(CueSheetReaderTest, ReadLayout_WhenAudioFileMissing_NamesIt) {
    const std::string path =
        DiscImageFiles::writeAudioCue(dir.path(), "gone", {audio(300), audio(300)}, Format::FLAC);
    ::remove(dir.file("gone-2.flac").c_str());
    EXPECT_EQ(layoutFailure(path), dir.file("gone-2.flac") + ": No such file or directory");
}

TEST_F(CueSheetReaderTest, ReadLayout_WhenAudioFileUnreadable_NamesIt) {
    DiscImageFiles::writeText(dir.file("broken.flac"), "fLaC but not really");
    const std::string path =
        sheet("broken.cue", "FILE \"broken.flac\" WAVE\n  TRACK 01 AUDIO\n    INDEX 01 00:00:00\n");
    const std::string why = layoutFailure(path);
    EXPECT_EQ(why.rfind(dir.file("broken.flac") + ": not an audio file that libsndfile reads (", 0),
              0u)
        << why;
}

TEST_F(CueSheetReaderTest, ReadLayout_WhenAudioIsNot44100Hz_Refuses) {
    DiscImageFiles::writeAudio(dir.file("dat.wav"), Format::WAV, 100, 48000);
    const std::string path =
        sheet("dat.cue", "FILE \"dat.wav\" WAVE\n  TRACK 01 AUDIO\n    INDEX 01 00:00:00\n");
    EXPECT_EQ(layoutFailure(path), dir.file("dat.wav") + ": 48000 Hz audio; a CD holds 44100 Hz");
}

TEST_F(CueSheetReaderTest, ReadLayout_WhenIndexLiesPastItsFile_Refuses) {
    DiscImageFiles::writeAudio(dir.file("short.wav"), Format::WAV, 100);
    const std::string path = sheet("short.cue",
                                   "FILE \"short.wav\" WAVE\n"
                                   "  TRACK 01 AUDIO\n    INDEX 01 00:00:00\n"
                                   "  TRACK 02 AUDIO\n    INDEX 01 00:02:00\n");
    EXPECT_EQ(layoutFailure(path),
              path + ": track 2 starts past the end of " + dir.file("short.wav"));
}

TEST_F(CueSheetReaderTest, ReadLayout_WhenDataTrackFollowsAudioFiles_MarksIt) {
    const std::vector<ImageTrack> tracks = {audio(300), data(200)};
    DiscImageFiles::writeAudio(dir.file("t1.wav"), Format::WAV, 300);
    DiscImageFiles::writeSparse(dir.file("t2.bin"), 200 * 2352);
    const std::string path = sheet("enhanced.cue",
                                   "FILE \"t1.wav\" WAVE\n  TRACK 01 AUDIO\n    INDEX 01 00:00:00\n"
                                   "FILE \"t2.bin\" BINARY\n  TRACK 02 MODE1/2352\n"
                                   "    INDEX 01 00:00:00\n");
    CueSheetReader reader;
    std::string why;
    ASSERT_TRUE(reader.parse(path, &why)) << why;
    DiscLayout layout;
    ASSERT_TRUE(reader.readLayout(&layout, &why)) << why;
    EXPECT_EQ(offsetsOf(layout), DiscImageFiles::offsetsOf(tracks));
    EXPECT_TRUE(layout.tracks[0].audio);
    EXPECT_FALSE(layout.tracks[1].audio);
}
