// `mox toc` end to end: the built CLI reads offsets, CUE sheets, images made
// here and (missing) drives; its readable and --json output is compared with
// the known disc, with libcdio's own reading of each image and with
// libdiscid's IDs, and every bad input with its exit status and message.
#include <gtest/gtest.h>

#include <cdio/cdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "CliRun.h"
#include "DiscImageFiles.h"
#include "JsonSchemaCheck.h"
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
        EXPECT_EQ(JsonSchemaCheck::problems("mox-toc", result.out), "");
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
              "Track   Offset  MSF       LSN     Length\n"
              "    1      150  00:02:00  000000  04:00:00\n"
              "    2    18150  04:02:00  018000  04:00:00\n"
              "    3    36150  08:02:00  036000  04:00:00\n"
              "  out    54150  12:02:00  054000\n");
}

TEST_F(MoxTocTest, Json_WhenKnownOffsets_PrintsExactlyTheObject) {
    const CliResult result = run({"--offsets", "150", "18150", "36150", "54150", "--json"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out,
              "{\"toc\":\"0000960046E6008D3600D386\",\"first\":1,\"last\":3,"
              "\"offsets\":[150,18150,36150],\"leadout\":54150,\"leadout_msf\":\"12:02:00\","
              "\"musicbrainz\":\"LyYHtwByCwAcdhuXmLHF.KGB224-\",\"freedb\":\"1802d003\","
              "\"cd_discid\":\"1802d003\",\"cd_discid_line\":\"1802d003 3 150 18150 36150 722\","
              "\"musicbrainz_toc\":\"1 3 54150 150 18150 36150\","
              "\"submission_url\":\"http://musicbrainz.org/cdtoc/attach?id=LyYHtwByCwAcdhuXmLHF."
              "KGB224-&tracks=3&toc=1+3+54150+150+18150+36150\",\"ids_note\":null,"
              "\"data_track\":false,\"tracks\":["
              "{\"number\":1,\"offset\":150,\"lsn\":0,\"msf\":\"00:02:00\","
              "\"length_frames\":18000,\"length_msf\":\"04:00:00\"},"
              "{\"number\":2,\"offset\":18150,\"lsn\":18000,\"msf\":\"04:02:00\","
              "\"length_frames\":18000,\"length_msf\":\"04:00:00\"},"
              "{\"number\":3,\"offset\":36150,\"lsn\":36000,\"msf\":\"08:02:00\","
              "\"length_frames\":18000,\"length_msf\":\"04:00:00\"}]}\n");
    EXPECT_EQ(JsonSchemaCheck::problems("mox-toc", result.out), "");
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

TEST_F(MoxTocTest, Readable_WhenDataTrackLeftOut_SaysSoAndPrintsBothFreedbIds) {
    const std::vector<ImageTrack> tracks = {audio(18000), audio(9000, 150), audio(13000, 75),
                                            data(20000)};
    const std::string cue = DiscImageFiles::writeBinCue(dir.path(), "enhanced", tracks);
    const CliResult result = run({"--image", cue});
    EXPECT_EQ(result.status, 0) << result.err;
    // libdiscid: the audio tracks, the lead-out 11400 frames before the data.
    const DiscIdPair ids = idsFromLibdiscid(1, {150, 18300, 27375}, 28975);
    EXPECT_EQ(ids.freedb, "1a018003");
    // cd-discid, the FreeDB formula over all four tracks and the image's end
    // (60375): digit sums 2 + 10 + 14 + 16 = 0x2a, 805 - 2 = 0x323 s, 4.
    EXPECT_EQ(result.out,
              "TOC text:     00009600477C006AEF00712F\n"
              "Tracks:       3 (1-3)\n"
              "Lead-out:     28975\n"
              "MusicBrainz:  " +
                  ids.musicBrainz +
                  "\n"
                  "FreeDB:       1a018003 (libdiscid: the tracks it counts)\n"
                  "cd-discid:    2a032304 (every track of the TOC, the disc's lead-out)\n"
                  "Data track:   track 4 at 40375 left out; the lead-out lies 11400 frames "
                  "before it\n"
                  "Track   Offset  MSF       LSN     Length\n"
                  "    1      150  00:02:00  000000  04:02:00\n"
                  "    2    18300  04:04:00  018150  02:01:00\n"
                  "    3    27375  06:05:00  027225  00:21:25\n"
                  "  out    28975  06:26:25  028825\n");
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

TEST_F(MoxTocTest, Refuses_WhenCueTimeOutOfRange_NamingTheLine) {
    const std::string cue = dir.file("seconds.cue");
    DiscImageFiles::writeText(cue,
                              "FILE \"a.wav\" WAVE\n  TRACK 01 AUDIO\n    INDEX 01 00:99:00\n");
    expectRefused({"--cue", cue}, cue + ":3: INDEX 01 00:99:00: seconds above 59");
}

TEST_F(MoxTocTest, Refuses_WhenCueTrackHasNoIndex_NamingItsLine) {
    const std::string cue = dir.file("noindex.cue");
    DiscImageFiles::writeText(cue, "FILE \"a.wav\" WAVE\n  TRACK 01 AUDIO\n");
    expectRefused({"--cue", cue}, cue + ":2: TRACK 01 has no INDEX 01");
}

// A WAV header that libsndfile refuses: its reason stays on one line.
TEST_F(MoxTocTest, Refuses_WhenFileIsNotAudio_WithOneLine) {
    const std::string wav = dir.file("broken.wav");
    const std::string header("RIFF\x10\0\0\0WAVEfmt \x02\0\0\0", 20);
    DiscImageFiles::writeText(wav, header);
    const std::string cue = dir.file("broken.cue");
    DiscImageFiles::writeText(
        cue, "FILE \"broken.wav\" WAVE\n  TRACK 01 AUDIO\n    INDEX 01 00:00:00\n");
    const CliResult result = run({"--cue", cue});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.err.find('\n'), result.err.size() - 1) << result.err;
    EXPECT_EQ(
        result.err.rfind("mox toc: " + wav + ": not an audio file that libsndfile reads (", 0), 0u)
        << result.err;
}

// The size is checked before any byte is read: a sparse 300 MB sheet is
// refused at once.
TEST_F(MoxTocTest, Refuses_WhenCueSheetIs300Megabytes_AtOnce) {
    const std::string cue = dir.file("huge.cue");
    DiscImageFiles::writeText(cue, "");
    ASSERT_EQ(::truncate(cue.c_str(), 300L * 1024 * 1024), 0);
    expectRefusedAtOnce({"--cue", cue}, cue + ": larger than 1048576 bytes, too large for a sheet");
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
    EXPECT_NE(none.err.find("Exactly 1 option from [--offsets,--cue,--image,--device,--toc]"),
              std::string::npos)
        << none.err;
    const CliResult two = run({"--offsets", "150", "300", "--device", "/dev/null"});
    EXPECT_EQ(two.status, 2);
    EXPECT_EQ(two.out, "");
}

// --- The disc IDs of the CD tools, on the layouts that tell them apart ------------------------

// An enhanced CD: audio at 150 and 13650, data at 28650, lead-out 48650.
TEST_F(MoxTocTest, EnhancedCd_LibdiscidAndCdDiscidIdsBothPrintedAndNamed) {
    const std::string cue = DiscImageFiles::writeBinCue(dir.path(), "enhanced",
                                                        {audio(13500), audio(15000), data(20000)});
    const CdioTrackList reference = readWithLibcdio(cue, CdioImageKind::BIN_CUE);
    ASSERT_EQ(reference.offsets, std::vector<uint32_t>({150, 13650, 28650}));
    ASSERT_EQ(reference.leadOut, 48650u);
    const json out = runJson({"--cue", cue});
    // libdiscid, as it reads a drive: the audio tracks, the lead-out 11400
    // frames before the data track (28650 - 11400 = 17250).
    const DiscIdPair libdiscid = idsFromLibdiscid(1, {150, 13650}, 17250);
    EXPECT_EQ(libdiscid.freedb, "0d00e402");
    EXPECT_EQ(out.at("musicbrainz"), libdiscid.musicBrainz);
    EXPECT_EQ(out.at("freedb"), "0d00e402");
    EXPECT_EQ(out.at("musicbrainz_toc"), "1 2 17250 150 13650");
    // cd-discid: the FreeDB formula over all three tracks and the real
    // lead-out: digit sums 2 + 11 + 13 = 0x1a, 648 - 2 = 0x286 s, 3 tracks.
    EXPECT_EQ(out.at("cd_discid"), "1a028603");
    EXPECT_EQ(out.at("cd_discid_line"), "1a028603 3 150 13650 28650 648");
    EXPECT_EQ(out.at("left_out"),
              json({{"number", 3}, {"offset", 28650}, {"counted_by_libdiscid", false}}));
    const CliResult cddb = run({"--cue", cue, "--format", "cddb"});
    EXPECT_EQ(cddb.status, 0);
    EXPECT_EQ(cddb.out, "1a028603 3 150 13650 28650 648\n");
}

// A mixed-mode disc: data track 1 at 150, audio at 13650 and 28650.
TEST_F(MoxTocTest, MixedModeDisc_LibdiscidCountsTheDataTrackLikeCdDiscid) {
    const std::string cue =
        DiscImageFiles::writeBinCue(dir.path(), "mixed", {data(13500), audio(15000), audio(20000)});
    const json out = runJson({"--cue", cue});
    EXPECT_EQ(out.at("toc"), "003552006FEA00BE0A");
    EXPECT_EQ(out.at("first"), 2);
    // libdiscid: tracks 1 to 3, the data track too, and the disc's lead-out.
    const DiscIdPair libdiscid = idsFromLibdiscid(1, {150, 13650, 28650}, 48650);
    EXPECT_EQ(out.at("musicbrainz"), libdiscid.musicBrainz);
    EXPECT_EQ(out.at("freedb"), libdiscid.freedb);
    EXPECT_EQ(out.at("musicbrainz_toc"), "1 3 48650 150 13650 28650");
    // cd-discid's formula over the same tracks gives the same ID.
    EXPECT_EQ(out.at("freedb"), "1a028603");
    EXPECT_EQ(out.at("cd_discid"), "1a028603");
    EXPECT_EQ(out.at("left_out"),
              json({{"number", 1}, {"offset", 150}, {"counted_by_libdiscid", true}}));
    const CliResult readable = run({"--cue", cue});
    EXPECT_NE(readable.out.find("\nFreeDB:       1a028603\n"), std::string::npos) << readable.out;
    EXPECT_NE(readable.out.find("\nData track:   track 1 at 150 left out of the TOC text; "
                                "libdiscid counts it\n"),
              std::string::npos)
        << readable.out;
}

// libdiscid refuses a disc past 90 minutes; the TOC text and cd-discid's ID
// are still printed.
TEST_F(MoxTocTest, NinetyNineMinuteDisc_PrintsWhatCanBeComputedWithANote) {
    const CliResult result = run({"--offsets", "150", "445000"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(idsFromLibdiscid(1, {150}, 445000).musicBrainz, "");
    // cd-discid: digit sum 2, 5933 - 2 = 0x172b s, 1 track.
    EXPECT_EQ(result.out,
              "TOC text:     00009606CA48\n"
              "Tracks:       1 (1-1)\n"
              "Lead-out:     445000\n"
              "MusicBrainz:  not computed: libdiscid refuses the TOC: Disc too long\n"
              "FreeDB:       not computed by libdiscid\n"
              "cd-discid:    02172b01\n"
              "Track   Offset  MSF       LSN     Length\n"
              "    1      150  00:02:00  000000  98:51:25\n"
              "  out   445000  98:53:25  444850\n");
    const json out = runJson({"--offsets", "150", "445000"});
    EXPECT_EQ(out.at("musicbrainz"), nullptr);
    EXPECT_EQ(out.at("ids_note"), "libdiscid refuses the TOC: Disc too long");
    const CliResult musicbrainz = run({"--offsets", "150", "445000", "--format", "musicbrainz"});
    EXPECT_EQ(musicbrainz.status, 1);
    EXPECT_EQ(musicbrainz.out, "");
    EXPECT_EQ(musicbrainz.err, "mox toc: libdiscid refuses the TOC: Disc too long\n");
}

TEST_F(MoxTocTest, NinetyNineMinuteImage_ReadAsLibcdioReadsIt) {
    const std::string cue = DiscImageFiles::writeBinCue(dir.path(), "long", {audio(444850)});
    const json out = runJson({"--cue", cue});
    expectLibcdioTracks(out, cue, CdioImageKind::BIN_CUE);
    EXPECT_EQ(out.at("cd_discid"), "02172b01");
    EXPECT_EQ(out.at("musicbrainz"), nullptr);
}

TEST_F(MoxTocTest, FormatMusicbrainz_PrintsLibdiscidsTocStringAndSubmissionUrl) {
    const CliResult result = run({"--toc", "0000960046E6008D3600D386", "--format", "musicbrainz"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(
        result.out,
        "1 3 54150 150 18150 36150\n"
        "http://musicbrainz.org/cdtoc/attach?id=LyYHtwByCwAcdhuXmLHF.KGB224-&tracks=3&toc=1+3+"
        "54150+150+18150+36150\n");
}

TEST_F(MoxTocTest, TocTextInput_GivesTheSameAsItsOffsets) {
    const CliResult text = run({"--toc", "0000960046E6008D3600D386"});
    const CliResult offsets = run({"--offsets", "150", "18150", "36150", "54150"});
    EXPECT_EQ(text.status, 0);
    EXPECT_EQ(text.out, offsets.out);
    const CliResult bad = run({"--toc", "0000960046e6008D3600D386"});
    EXPECT_EQ(bad.status, 2);
    EXPECT_EQ(bad.out, "");
    EXPECT_EQ(bad.err,
              "mox toc: --toc: the TOC text's character 11 ('e') is not an upper-case hexadecimal "
              "digit (0-9, A-F)\nRun with --help for more information.\n");
}

// cd-info's view of each track: MSF of the frame offset and LSN, as libcdio
// converts them.
TEST_F(MoxTocTest, MsfAndLsn_AsLibcdioConvertsThem) {
    const std::string cue = DiscImageFiles::writeBinCue(
        dir.path(), "known", {audio(17850), audio(18000, 150), audio(18037, 11)});
    const json out = runJson({"--cue", cue});
    const CdioTrackList reference = readWithLibcdio(cue, CdioImageKind::BIN_CUE);
    ASSERT_EQ(out.at("tracks").size(), reference.offsets.size());
    for (size_t i = 0; i < reference.offsets.size(); ++i) {
        const json& track = out.at("tracks")[i];
        char* msf = cdio_lba_to_msf_str(static_cast<lba_t>(reference.offsets[i]));
        EXPECT_EQ(track.at("msf"), std::string(msf));
        cdio_free(msf);
        EXPECT_EQ(track.at("lsn"), cdio_lba_to_lsn(static_cast<lba_t>(reference.offsets[i])));
    }
}
