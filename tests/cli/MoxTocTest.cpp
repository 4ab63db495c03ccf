// `mox toc` end to end: the built CLI reads offsets, CUE sheets, images made
// here and (missing) drives; its readable and --json output is compared with
// the known disc, with libcdio's own reading of each image and with
// libdiscid's IDs, and every bad input with its exit status and message.
#include <gtest/gtest.h>

#include <cdio/cdio.h>
#include <sys/stat.h>

#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "CliRun.h"
#include "DiscImageFiles.h"
#include "MeasuredRun.h"
#include "ReferenceReads.h"
#include "TestDir.h"

using nlohmann::json;

namespace {

using Format = DiscImageFiles::AudioFormat;

class MoxTocTest : public ::testing::Test {
protected:
    MoxTocTest() : dir("MoxTocTest") {}

    CliResult run(std::vector<std::string> args) {
        args.insert(args.begin(), "toc");
        return runCli(MOX_CLI_PATH, args, dir);
    }

    // Runs with --json; exit 0, nothing on stderr, exactly one JSON object.
    json runJson(std::vector<std::string> args) {
        args.push_back("--json");
        const CliResult result = run(args);
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_EQ(result.err, "");
        EXPECT_FALSE(result.out.empty());
        EXPECT_EQ(result.out.find('\n'), result.out.size() - 1) << result.out;
        const json out = json::parse(result.out);
        EXPECT_TRUE(out.is_object());
        return out;
    }

    // Exit status 2, nothing on stdout and exactly `message` on stderr.
    void expectRefused(const std::vector<std::string>& args, const std::string& message) {
        const CliResult result = run(args);
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, "mox toc: " + message + "\n");
    }

    // As expectRefused, run with a guard: exit 2 with `message` (a read that
    // blocks is killed at 30 s and fails the test).
    void expectRefusedAtOnce(std::vector<std::string> args, const std::string& message) {
        args.insert(args.begin(), "toc");
        MeasuredRun run(MOX_CLI_PATH, args, dir);
        const MeasuredRun::Result result = run.finish(30);
        EXPECT_FALSE(result.killed) << "still running after 30 s";
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, "mox toc: " + message + "\n");
    }

    // The JSON of an all-audio image must hold what libcdio lists for it.
    static void expectLibcdioTracks(const json& out, const std::string& path, CdioImageKind kind) {
        const CdioTrackList reference = readWithLibcdio(path, kind);
        ASSERT_TRUE(reference.opened);
        EXPECT_EQ(out.at("first"), reference.first);
        EXPECT_EQ(out.at("last"), reference.first + reference.offsets.size() - 1);
        EXPECT_EQ(out.at("offsets").get<std::vector<uint32_t>>(), reference.offsets);
        EXPECT_EQ(out.at("leadout"), reference.leadOut);
        EXPECT_EQ(out.at("data_track"), false);
    }

    // The IDs must be libdiscid's for the JSON's own offsets and lead-out.
    static void expectLibdiscidIds(const json& out) {
        const DiscIdPair ids = idsFromLibdiscid(out.at("first").get<uint32_t>(),
                                                out.at("offsets").get<std::vector<uint32_t>>(),
                                                out.at("leadout").get<uint32_t>());
        EXPECT_EQ(out.at("musicbrainz"), ids.musicBrainz);
        EXPECT_EQ(out.at("freedb"), ids.freedb);
    }

    TestDir dir;
};

}  // namespace

TEST_F(MoxTocTest, Readable_WhenKnownOffsets_PrintsTocIdsAndTrackLengths) {
    const CliResult result = run({"--offsets", "150", "18150", "36150", "54150"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out,
              "TOC text:     0000960046E6008D3600D386\n"
              "Tracks:       3 (1-3)\n"
              "Lead-out:     54150\n"
              "MusicBrainz:  LyYHtwByCwAcdhuXmLHF.KGB224-\n"
              "FreeDB:       1802d003\n"
              "Track   Offset  Length\n"
              "    1      150    4:00\n"
              "    2    18150    4:00\n"
              "    3    36150    4:00\n");
}

TEST_F(MoxTocTest, Json_WhenKnownOffsets_PrintsExactlyTheObject) {
    const CliResult result = run({"--offsets", "150", "18150", "36150", "54150", "--json"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out,
              "{\"toc\":\"0000960046E6008D3600D386\",\"first\":1,\"last\":3,"
              "\"offsets\":[150,18150,36150],\"leadout\":54150,"
              "\"musicbrainz\":\"LyYHtwByCwAcdhuXmLHF.KGB224-\",\"freedb\":\"1802d003\","
              "\"data_track\":false}\n");
}

TEST_F(MoxTocTest, Json_WhenBinCueOfKnownDisc_GivesItsTocAndIds) {
    const std::vector<ImageTrack> tracks = {audio(17850), audio(18000, 150), audio(18000)};
    const std::string cue = DiscImageFiles::writeBinCue(dir.path(), "known", tracks);
    const json out = runJson({"--cue", cue});
    EXPECT_EQ(out.at("toc"), "0000960046E6008D3600D386");
    EXPECT_EQ(out.at("musicbrainz"), "LyYHtwByCwAcdhuXmLHF.KGB224-");
    EXPECT_EQ(out.at("freedb"), "1802d003");
    expectLibcdioTracks(out, cue, CdioImageKind::BIN_CUE);
}

TEST_F(MoxTocTest, Json_WhenBinCueEndsInDataTrack_LeavesItOut) {
    const std::vector<ImageTrack> tracks = {audio(18000), audio(9000, 150), audio(13000, 75),
                                            data(20000)};
    const std::string cue = DiscImageFiles::writeBinCue(dir.path(), "enhanced", tracks);
    const json out = runJson({"--cue", cue});
    const CdioTrackList reference = readWithLibcdio(cue, CdioImageKind::BIN_CUE);
    ASSERT_EQ(reference.offsets.size(), 4u);
    ASSERT_FALSE(reference.audio[3]);
    EXPECT_EQ(out.at("offsets").get<std::vector<uint32_t>>(),
              std::vector<uint32_t>(reference.offsets.begin(), reference.offsets.begin() + 3));
    EXPECT_EQ(out.at("leadout"), reference.offsets[3] - 11400);
    EXPECT_EQ(out.at("last"), 3);
    EXPECT_EQ(out.at("data_track"), true);
    EXPECT_EQ(out.at("toc"), "00009600477C006AEF00712F");
    expectLibdiscidIds(out);
}

TEST_F(MoxTocTest, Readable_WhenDataTrackLeftOut_SaysSo) {
    const std::vector<ImageTrack> tracks = {audio(18000), audio(9000, 150), audio(13000, 75),
                                            data(20000)};
    const std::string cue = DiscImageFiles::writeBinCue(dir.path(), "enhanced", tracks);
    const CliResult result = run({"--image", cue});
    EXPECT_EQ(result.status, 0) << result.err;
    const DiscIdPair ids = idsFromLibdiscid(1, {150, 18300, 27375}, 28975);
    EXPECT_EQ(result.out,
              "TOC text:     00009600477C006AEF00712F\n"
              "Tracks:       3 (1-3)\n"
              "Lead-out:     28975\n"
              "MusicBrainz:  " +
                  ids.musicBrainz +
                  "\n"
                  "FreeDB:       " +
                  ids.freedb +
                  "\n"
                  "Data track:   track 4 at 40375 left out; the lead-out lies 11400 frames "
                  "before it\n"
                  "Track   Offset  Length\n"
                  "    1      150    4:02\n"
                  "    2    18300    2:01\n"
                  "    3    27375    0:21\n");
}

TEST_F(MoxTocTest, Json_WhenOneTrackBinCue_GivesOneTrack) {
    const std::string cue = DiscImageFiles::writeBinCue(dir.path(), "one", {audio(22500)});
    const json out = runJson({"--cue", cue});
    EXPECT_EQ(out.at("toc"), "00009600587A");
    expectLibcdioTracks(out, cue, CdioImageKind::BIN_CUE);
    expectLibdiscidIds(out);
}

TEST_F(MoxTocTest, Json_When99TrackBinCue_GivesEveryTrack) {
    const std::string cue =
        DiscImageFiles::writeBinCue(dir.path(), "many", std::vector<ImageTrack>(99, audio(300)));
    const json out = runJson({"--cue", cue});
    EXPECT_EQ(out.at("last"), 99);
    EXPECT_EQ(out.at("toc").get<std::string>().size(), 600u);
    expectLibcdioTracks(out, cue, CdioImageKind::BIN_CUE);
    expectLibdiscidIds(out);
}

TEST_F(MoxTocTest, Json_WhenWavPerTrack_MatchesTheSameDiscAsBinCue) {
    const std::vector<ImageTrack> tracks = {audio(1500), audio(1000, 150), audio(800, 75)};
    const std::string wav = DiscImageFiles::writeAudioCue(dir.path(), "wav", tracks, Format::WAV);
    const std::string bin = DiscImageFiles::writeBinCue(dir.path(), "bin", tracks);
    const json out = runJson({"--cue", wav});
    EXPECT_EQ(out.at("toc"), "000096000708000B3B000E5B");
    expectLibcdioTracks(out, bin, CdioImageKind::BIN_CUE);
    expectLibdiscidIds(out);
}

TEST_F(MoxTocTest, Json_WhenFlacPerTrack_MatchesTheSameDiscAsBinCue) {
    const std::vector<ImageTrack> tracks = {audio(2000), audio(700, 150)};
    const std::string flac =
        DiscImageFiles::writeAudioCue(dir.path(), "flac", tracks, Format::FLAC);
    const std::string bin = DiscImageFiles::writeBinCue(dir.path(), "bin", tracks);
    const json out = runJson({"--cue", flac});
    expectLibcdioTracks(out, bin, CdioImageKind::BIN_CUE);
    expectLibdiscidIds(out);
}

TEST_F(MoxTocTest, Json_WhenCdrdaoToc_ReadsWhatLibcdioReads) {
    const std::vector<ImageTrack> tracks = {audio(1000), audio(800, 150), audio(1200)};
    const std::string toc = DiscImageFiles::writeCdrdaoToc(dir.path(), "cdrdao", tracks);
    const json out = runJson({"--image", toc});
    expectLibcdioTracks(out, toc, CdioImageKind::CDRDAO);
    expectLibdiscidIds(out);
}

TEST_F(MoxTocTest, Refuses_WhenCueSheetHasNoTracks) {
    const std::string cue = dir.file("empty.cue");
    DiscImageFiles::writeText(cue, "REM just a remark\nFILE \"a.wav\" WAVE\n");
    expectRefused({"--cue", cue}, cue + ": a CUE sheet without tracks");
}

TEST_F(MoxTocTest, Refuses_WhenCueSheetIsMalformed) {
    const std::string cue = dir.file("bad.cue");
    DiscImageFiles::writeText(cue,
                              "FILE \"a.wav\" WAVE\n  TRACK 01 AUDIO\n    INDEX 01 00:00:00\n"
                              "  BOGUS LINE\n");
    expectRefused({"--cue", cue}, cue + ": malformed CUE sheet (bad character 'B')");
}

TEST_F(MoxTocTest, Refuses_WhenCueSheetHas100Tracks) {
    const std::string cue = DiscImageFiles::writeAudioCue(
        dir.path(), "hundred", std::vector<ImageTrack>(100, audio(75)), Format::FLAC);
    expectRefused({"--cue", cue}, cue + ": 100 tracks: a CD holds at most 99");
}

// libcdio writes into freed memory on this sheet; it is refused before any
// library reads it, whichever option names it.
TEST_F(MoxTocTest, Refuses_WhenCueSheetTrackNumbersDoNotStartAt1) {
    const std::string cue = DiscImageFiles::writeMisnumberedBinCue(dir.path(), "a");
    const std::string reason =
        cue + ": TRACK 99 where track 1 should be (track numbers start at 1 and rise by 1)";
    expectRefusedAtOnce({"--cue", cue}, reason);
    expectRefusedAtOnce({"--image", cue}, reason);
    expectRefusedAtOnce({"--image", dir.file("a.bin")}, reason);
}

TEST_F(MoxTocTest, Refuses_WhenCueSheetTrackNumbersSkipOne) {
    const std::string cue =
        DiscImageFiles::writeBinCue(dir.path(), "skip", {audio(300), audio(300), audio(300)});
    std::string text;
    for (const unsigned char c : TestDir::readFile(cue)) {
        text += static_cast<char>(c);
    }
    const size_t second = text.find("TRACK 02");
    ASSERT_NE(second, std::string::npos) << text;
    text.replace(second, 8, "TRACK 03");
    DiscImageFiles::writeText(cue, text);
    expectRefusedAtOnce({"--cue", cue}, cue +
                                            ": TRACK 03 where track 2 should be (track numbers "
                                            "start at 1 and rise by 1)");
}

// A FIFO blocks whoever opens it until a writer comes: the sheet, the BIN it
// names, the sheet beside a BIN and every file a cdrdao TOC file names are
// checked first.
TEST_F(MoxTocTest, Refuses_WhenCueSheetNamesAFifo) {
    const std::string cue = DiscImageFiles::writeBinCue(dir.path(), "fifo", {audio(300)});
    std::remove(dir.file("fifo.bin").c_str());
    ASSERT_EQ(::mkfifo(dir.file("fifo.bin").c_str(), 0600), 0);
    expectRefusedAtOnce({"--cue", cue}, dir.file("fifo.bin") + ": not a regular file");
    expectRefusedAtOnce({"--image", cue}, dir.file("fifo.bin") + ": not a regular file");
    expectRefusedAtOnce({"--image", dir.file("fifo.bin")},
                        dir.file("fifo.bin") + ": not a regular file");
}

TEST_F(MoxTocTest, Refuses_WhenCueSheetIsAFifo) {
    ASSERT_EQ(::mkfifo(dir.file("sheet.cue").c_str(), 0600), 0);
    expectRefusedAtOnce({"--cue", dir.file("sheet.cue")},
                        dir.file("sheet.cue") + ": not a regular file");
    expectRefusedAtOnce({"--image", dir.file("sheet.cue")},
                        dir.file("sheet.cue") + ": not a regular file");
}

TEST_F(MoxTocTest, Refuses_WhenTheSheetBesideABinIsAFifo) {
    DiscImageFiles::writeSparse(dir.file("lone.bin"), 23520);
    ASSERT_EQ(::mkfifo(dir.file("lone.cue").c_str(), 0600), 0);
    expectRefusedAtOnce({"--image", dir.file("lone.bin")},
                        dir.file("lone.cue") + ": not a regular file");
}

TEST_F(MoxTocTest, Refuses_WhenCdrdaoTocNamesAFifo) {
    ASSERT_EQ(::mkfifo(dir.file("f.bin").c_str(), 0600), 0);
    const std::vector<std::string> lines = {"FILE \"f.bin\" 0", "AUDIOFILE \"f.bin\" 0",
                                            "DATAFILE \"f.bin\"", "  FILE f.bin", "FILE \"f.bin"};
    for (size_t i = 0; i < lines.size(); ++i) {
        const std::string toc = dir.file("fifo" + std::to_string(i) + ".toc");
        DiscImageFiles::writeText(toc, "CD_DA\nTRACK AUDIO\n" + lines[i] + "\n");
        expectRefusedAtOnce({"--image", toc}, dir.file("f.bin") + ": not a regular file");
    }
}

TEST_F(MoxTocTest, Refuses_WhenCdrdaoTocIsAFifo) {
    ASSERT_EQ(::mkfifo(dir.file("disc.toc").c_str(), 0600), 0);
    expectRefusedAtOnce({"--image", dir.file("disc.toc")},
                        dir.file("disc.toc") + ": not a regular file");
}

// libcue takes a quoted name across a line break; the reason that names the
// file stays on one line, the break written as \x0a.
TEST_F(MoxTocTest, Refuses_WhenANamedFileHoldsALineBreak_ReasonOnOneLine) {
    const std::string cue = dir.file("break.cue");
    DiscImageFiles::writeText(cue,
                              "FILE \"a.w\nav\" WAVE\n  TRACK 01 AUDIO\n    INDEX 01 00:00:00\n");
    expectRefusedAtOnce({"--cue", cue}, dir.file("a.w\\x0aav") + ": No such file or directory");
}

// libcdio divides by zero on a cdrdao track without a mode, or of mode
// MODE2, MODE2_FORM1 or MODE2_FORM2, whose file has no length given (found
// by TocSheetFuzzer); such files are refused before libcdio reads them.
TEST_F(MoxTocTest, Refuses_WhenCdrdaoTrackHasNoModeOrOneLibcdioCannotSize) {
    DiscImageFiles::writeSparse(dir.file("a.bin"), 23520);
    const std::string toc = dir.file("modes.toc");
    for (const std::string mode : {"", "MODE2", "MODE2_FORM1", "MODE2_FORM2"}) {
        DiscImageFiles::writeText(toc, "CD_DA\nTRACK " + mode + "\nFILE \"a.bin\" 0\n");
        expectRefusedAtOnce({"--image", toc},
                            toc + ": TRACK " + (mode.empty() ? "without a mode" : mode) +
                                ": not a track mode that is read (AUDIO, MODE1, MODE1_RAW, "
                                "MODE2_FORM_MIX, MODE2_RAW)");
    }
}

// libcue stops reading at a NUL byte and libcdio reads on (found by
// TocSheetFuzzer: "TRACK\0..." is a track without a mode to libcdio).
TEST_F(MoxTocTest, Refuses_WhenSheetHoldsANulByte) {
    DiscImageFiles::writeSparse(dir.file("a.bin"), 23520);
    const std::string toc = dir.file("nul.toc");
    const std::string tocText("CD_DA\nTRACK\0 AUDIO\nFILE \"a.bin\" 0\n", 31);
    TestDir::writeFile(toc, std::vector<unsigned char>(tocText.begin(), tocText.end()));
    expectRefusedAtOnce({"--image", toc}, toc + ": not a text file (NUL byte at offset 11)");
    const std::string cue = dir.file("nul.cue");
    const std::string cueText("FILE \"a.bin\" BINARY\nTRACK 01 AUDIO\nINDEX 01 00:00:00\n\0", 54);
    TestDir::writeFile(cue, std::vector<unsigned char>(cueText.begin(), cueText.end()));
    expectRefusedAtOnce({"--cue", cue}, cue + ": not a text file (NUL byte at offset 53)");
}

TEST_F(MoxTocTest, Refuses_WhenCueSheetMissing) {
    const std::string cue = dir.file("missing.cue");
    expectRefused({"--cue", cue}, cue + ": No such file or directory");
}

TEST_F(MoxTocTest, Refuses_WhenImageMissing) {
    const std::string image = dir.file("missing.nrg");
    expectRefused({"--image", image}, image + ": No such file or directory");
}

TEST_F(MoxTocTest, Refuses_WhenImageUnreadable) {
    const std::string image = dir.file("notes.txt");
    DiscImageFiles::writeText(image, "not a disc\n");
    expectRefused({"--image", image},
                  image + ": not an image that libcdio reads (BIN/CUE, cdrdao TOC, NRG)");
}

TEST_F(MoxTocTest, Refuses_WhenAudioFileMissing) {
    const std::string cue =
        DiscImageFiles::writeAudioCue(dir.path(), "gone", {audio(300), audio(300)}, Format::WAV);
    std::remove(dir.file("gone-2.wav").c_str());
    expectRefused({"--cue", cue}, dir.file("gone-2.wav") + ": No such file or directory");
}

TEST_F(MoxTocTest, Refuses_WhenAudioFileUnreadable) {
    const std::string cue =
        DiscImageFiles::writeAudioCue(dir.path(), "cut", {audio(300), audio(300)}, Format::FLAC);
    DiscImageFiles::writeText(dir.file("cut-1.flac"), "fLaC");
    const CliResult result = run({"--cue", cue});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.out, "");
    const std::string start =
        "mox toc: " + dir.file("cut-1.flac") + ": not an audio file that libsndfile reads (";
    EXPECT_EQ(result.err.rfind(start, 0), 0u) << result.err;
    EXPECT_EQ(result.err.find('\n'), result.err.size() - 1) << result.err;
    EXPECT_EQ(result.err.substr(result.err.size() - 2), ")\n");
}

TEST_F(MoxTocTest, Refuses_WhenOffsetsDoNotIncrease) {
    expectRefused({"--offsets", "150", "18150", "9000"},
                  "offsets do not increase: 18150 then 9000");
}

TEST_F(MoxTocTest, Refuses_WhenNoTrackBeforeLeadOut) {
    expectRefused({"--offsets", "150"},
                  "give the offsets of at least one track and of the lead-out");
}

TEST_F(MoxTocTest, Refuses_WhenMoreThan99Tracks) {
    std::vector<std::string> args = {"--offsets"};
    for (int i = 0; i <= 100; ++i) {
        args.push_back(std::to_string(150 + i * 300));
    }
    expectRefused(args, "100 tracks: a CD holds at most 99");
}

TEST_F(MoxTocTest, Refuses_WhenNoDriveOnTheMachine) {
    driver_id_t driver = DRIVER_DEVICE;
    char* drive = cdio_get_default_device_driver(&driver);
    if (drive != nullptr) {
        cdio_free(drive);
        GTEST_SKIP() << "this machine has a CD drive";
    }
    expectRefused({"--device"}, "no CD drive found");
    expectRefused({"--device", "--json"}, "no CD drive found");
}

TEST_F(MoxTocTest, Refuses_WhenNoDiscInTheDevice) {
    expectRefused({"--device", "/dev/null"},
                  "/dev/null: no disc in the drive (libcdio: error in ioctl CDROMREADTOCHDR: "
                  "Inappropriate ioctl for device)");
}

TEST_F(MoxTocTest, Refuses_WhenNoSourceOrTwoSourcesGiven) {
    const CliResult none = run({"--json"});
    EXPECT_EQ(none.status, 2);
    EXPECT_EQ(none.out, "");
    EXPECT_NE(none.err.find("Exactly 1 option from [--offsets,--cue,--image,--device]"),
              std::string::npos)
        << none.err;
    const CliResult two = run({"--offsets", "150", "300", "--device", "/dev/null"});
    EXPECT_EQ(two.status, 2);
    EXPECT_EQ(two.out, "");
}
