// `mox search` end to end: the built CLI runs on databases made here with the
// writer library, valid and broken, and its --json, --records and table output
// and exit status are compared with what the search must give.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "CliRun.h"
#include "MoxDbWriter.h"
#include "TestDir.h"
#include "private/MoxLimits.h"
#include "private/MoxResultFile.h"

extern char** environ;

using nlohmann::json;

namespace {

using RunResult = CliResult;

class MoxSearchTest : public ::testing::Test {
protected:
    // The module's debug output goes to stderr in every run.
    MoxSearchTest() : dir("MoxSearchTest") { ::setenv("HB_DBG_OUTPUT", "stderr", 1); }

    // Runs the mox binary with `args`.
    RunResult run(const std::vector<std::string>& args) { return runCli(MOX_CLI_PATH, args, dir); }

    // Writes `cat` to a file of the scratch directory and returns its path.
    std::string write(const moxdb::CatalogueBuilder& cat) {
        const std::string path = dir.file("answer.dap3");
        std::string error;
        EXPECT_TRUE(cat.writeFile(path, &error)) << error;
        return path;
    }

    std::string write(const moxdb::Bytes& bytes) {
        const std::string path = dir.file("answer.dap3");
        TestDir::writeFile(path, std::vector<unsigned char>(bytes.begin(), bytes.end()));
        return path;
    }

    // Runs with --json and parses stdout as exactly one JSON value.
    json runJson(const std::string& file, const std::string& toc, int expectedStatus) {
        const RunResult result = run({"search", file, "--toc", toc, "--json"});
        EXPECT_EQ(result.status, expectedStatus) << result.err;
        EXPECT_EQ(result.err, "");
        EXPECT_FALSE(result.out.empty());
        EXPECT_EQ(result.out.back(), '\n');
        return json::parse(result.out);  // throws (fails the test) on anything but one value
    }

    // Adds an album of `tracks` tracks on medium 1 (titles "<idText>-1", ...)
    // by one artist, genre ROCK, language "en".
    static uint32_t addAlbum(moxdb::CatalogueBuilder& cat, const std::string& idText,
                             int32_t confidence, int tracks) {
        const uint32_t genre = cat.addGenre("ROCK");
        const uint32_t artist = cat.addArtist("Artist of " + idText);
        moxdb::AlbumFields draft;
        draft.idText = idText;
        draft.title = "Title of " + idText;
        draft.genreCode = "ROCK";
        draft.language = "en";
        draft.confidence = confidence;
        for (int t = 0; t < tracks; ++t) {
            draft.trackIds.push_back(
                cat.addTrack({idText + "-" + std::to_string(t + 1), artist, genre, 1}));
        }
        return cat.addAlbum(draft);
    }

    // The result directory without its trailing slash.
    static std::string resultDir() {
        std::string path = MoxResultFile::DIRECTORY;
        while (path.size() > 1 && path.back() == '/') {
            path.pop_back();
        }
        return path;
    }

    // Puts `bytes` in the result file, so a test can tell whether a run
    // touched it.
    static void plantResultFile(const std::vector<unsigned char>& bytes) {
        std::filesystem::create_directories(resultDir());
        TestDir::writeFile(MoxResultFile::FULL_PATH, bytes);
    }

    static std::vector<std::string> idsOf(const json& albums) {
        std::vector<std::string> out;
        for (const json& album : albums) {
            out.push_back(album.at("AlbumId").get<std::string>());
        }
        return out;
    }

    void TearDown() override {
        // Undo whatever a test put in place of the result directory.
        std::error_code ignored;
        if (!std::filesystem::is_directory(resultDir(), ignored)) {
            std::filesystem::remove(resultDir(), ignored);
        }
        std::filesystem::create_directories(resultDir(), ignored);
    }

    TestDir dir;
};

json track(const std::string& name, const std::string& performer, const std::string& genre,
           unsigned int genreId) {
    return json{{"TrackName", name},
                {"PerformerName", performer},
                {"GenreName", genre},
                {"GenreID", genreId},
                {"TrackNum", 0}};
}

TEST_F(MoxSearchTest, Json_SampleSecondDisc_PrintsTheAlbumExactly) {
    const std::string file = write(moxdb::CatalogueBuilder::makeSample());
    const json out = runJson(file, moxdb::makeTocText({0, 25000, 47000}, 70000), 0);
    const json expected = {
        {"ok", true},
        {"albums",
         json::array({{{"AlbumId", "SAMPLE-0002"},
                       {"AlbumName", "Blue Hours (Live)"},
                       {"GenreName", "JAZZ"},
                       {"GenreID", 3},
                       {"Confidence", 85},
                       {"AlbumLang", 5},
                       {"MediaNum", 2},
                       {"MediaCount", 2},
                       {"Database", 1},
                       {"Tracks", json::array({track("Second Set", "Mira Quartet", "JAZZ", 3),
                                               track("Late Train", "Mira Quartet", "JAZZ", 3),
                                               track("Encore", "Mira Quartet", "JAZZ", 3)})}}})},
        {"log", json::array()}};
    EXPECT_EQ(out, expected);
}

TEST_F(MoxSearchTest, Json_JapaneseAlbum_TextsAndNumbersTyped) {
    const std::string file = write(moxdb::CatalogueBuilder::makeSample());
    const json out = runJson(file, moxdb::makeTocText({0, 15000, 31000}, 47000), 0);
    ASSERT_EQ(out.at("albums").size(), 1u);
    const json& album = out.at("albums")[0];
    EXPECT_EQ(album.size(), 10u);
    EXPECT_EQ(album.at("AlbumName"), "夜明けの街");
    EXPECT_EQ(album.at("AlbumLang"), 3);
    EXPECT_EQ(album.at("GenreID"), 16);
    EXPECT_TRUE(album.at("AlbumLang").is_number_integer());
    EXPECT_TRUE(album.at("Database").is_number_integer());
    EXPECT_EQ(album.at("Tracks")[2], track("さよなら🌙", "ひかり", "POP", 16));
    EXPECT_EQ(album.at("Tracks")[2].size(), 5u);
}

TEST_F(MoxSearchTest, Json_ConfidenceOrder_BestFirstEqualsInDatabaseOrderSigned) {
    moxdb::CatalogueBuilder cat;
    const std::string toc = moxdb::makeTocTextOfTracks(1);
    cat.addToc(toc, addAlbum(cat, "MINUS1", -1, 1), 1);
    cat.addToc(toc, addAlbum(cat, "ZERO-A", 0, 1), 1);
    cat.addToc(toc, addAlbum(cat, "ZERO-B", 0, 1), 1);
    cat.addToc(toc, addAlbum(cat, "TWO-TRACKS", 50, 2), 1);  // filtered out
    const json out = runJson(write(cat), toc, 0);
    EXPECT_EQ(out.at("ok"), true);
    EXPECT_EQ(idsOf(out.at("albums")), (std::vector<std::string>{"ZERO-A", "ZERO-B", "MINUS1"}));
    const json& last = out.at("albums")[2].at("Confidence");
    EXPECT_TRUE(last.is_number_integer());
    EXPECT_EQ(last.get<int>(), -1);
    EXPECT_EQ(out.at("log"), json::array());
}

TEST_F(MoxSearchTest, Json_UnknownVersion_OkFalseWithBothMessages) {
    moxdb::CatalogueBuilder cat;
    const std::string toc = moxdb::makeTocTextOfTracks(1);
    cat.addToc(toc, addAlbum(cat, "A", 1, 1), 1);
    cat.image().setVersion(0x0F000000);
    const json out = runJson(write(cat), toc, 1);
    const json expected = {{"ok", false},
                           {"albums", json::array()},
                           {"log", {"unknown version.", "judgeDapDbVer error."}}};
    EXPECT_EQ(out, expected);
}

TEST_F(MoxSearchTest, Json_CutSectionTable_ReportsEachLevel) {
    moxdb::CatalogueBuilder cat;
    const std::string toc = moxdb::makeTocTextOfTracks(1);
    cat.addToc(toc, addAlbum(cat, "A", 1, 1), 1);
    moxdb::Bytes bytes = cat.build();
    ASSERT_TRUE(moxdb::cutTo(bytes, 100));
    const json out = runJson(write(bytes), toc, 1);
    EXPECT_EQ(out.at("ok"), false);
    EXPECT_EQ(out.at("albums"), json::array());
    EXPECT_EQ(out.at("log"), json({"eof error.", "read error.", "getDbToc error."}));
}

TEST_F(MoxSearchTest, Json_ThirdAlbumFails_AlbumsAsTheSearchLeftThem) {
    moxdb::CatalogueBuilder cat;
    const std::string toc = moxdb::makeTocTextOfTracks(3);
    cat.addToc(toc, addAlbum(cat, "FIRST", 10, 3), 1);
    cat.addToc(toc, addAlbum(cat, "SECOND", 90, 2), 1);
    cat.addToc(toc, addAlbum(cat, "THIRD", 50, 3), 2);  // nothing on medium 2
    const json out = runJson(write(cat), toc, 1);
    EXPECT_EQ(out.at("ok"), false);
    EXPECT_EQ(idsOf(out.at("albums")), (std::vector<std::string>{"FIRST", "SECOND"}));
    EXPECT_EQ(out.at("albums")[1].at("Tracks").size(), 2u);
    EXPECT_EQ(out.at("log"), json({"npAlbum->Tracks.size() == 0.", "getAlbumInfo error i=2."}));
}

TEST_F(MoxSearchTest, Json_ArtistMissingForSixthEntry_LogsN5) {
    moxdb::CatalogueBuilder cat;
    const uint32_t rock = cat.addGenre("ROCK");
    const uint32_t artist = cat.addArtist("A");
    moxdb::AlbumFields draft;
    draft.idText = "ALB";
    draft.title = "X";
    draft.genreCode = "ROCK";
    draft.language = "en";
    for (int i = 0; i < 5; ++i) {
        draft.trackIds.push_back(cat.addTrack({"T" + std::to_string(i), artist, rock, 1}));
    }
    draft.trackIds.push_back(cat.addTrack({"T5", 4242, rock, 1}));
    const std::string toc = moxdb::makeTocTextOfTracks(6);
    cat.addToc(toc, cat.addAlbum(draft), 1);
    const json out = runJson(write(cat), toc, 1);
    EXPECT_EQ(out.at("albums"), json::array());
    EXPECT_EQ(out.at("log"),
              json({"getQuillArtistInfo return false. n=5", "getAlbumInfo error i=0."}));
}

TEST_F(MoxSearchTest, Json_EmptyToc_SucceedsWithNoAlbum) {
    moxdb::CatalogueBuilder cat;
    cat.addToc("", addAlbum(cat, "A", 1, 1), 1);
    const json out = runJson(write(cat), "", 0);
    EXPECT_EQ(out, json({{"ok", true}, {"albums", json::array()}, {"log", json::array()}}));
}

TEST_F(MoxSearchTest, Json_LoneSurrogateInTitle_StillValidJson) {
    moxdb::CatalogueBuilder cat;
    const std::string toc = moxdb::makeTocTextOfTracks(1);
    const uint32_t albumId = addAlbum(cat, "A", 1, 1);
    cat.image().album(0).Title = cat.image().addStringUnits(std::u16string{u'A', 0xD800, u'B'});
    cat.addToc(toc, albumId, 1);
    const json out = runJson(write(cat), toc, 0);
    ASSERT_EQ(out.at("albums").size(), 1u);
    EXPECT_EQ(out.at("albums")[0].at("AlbumName"),
              "A\xEF\xBF\xBD"
              "B");
}

TEST_F(MoxSearchTest, Json_CopiesFileToTheResultLocation) {
    moxdb::CatalogueBuilder cat = moxdb::CatalogueBuilder::makeSample();
    const std::string file = write(cat);
    runJson(file, "no such toc", 0);
    EXPECT_EQ(TestDir::readFile(MoxResultFile::FULL_PATH), TestDir::readFile(file));
}

TEST_F(MoxSearchTest, Records_SampleFirstAlbum_ExactTextForm) {
    const std::string file = write(moxdb::CatalogueBuilder::makeSample());
    const RunResult result =
        run({"search", file, "--toc", "0000960046E6008D3600D386", "--records"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    const std::string expected =
        "AlbumId=SAMPLE-0001, AlbumName=Northern Roads, GenreName=ROCK, GenreID=0x00000001, "
        "Confidence=0x0000005c, AlbumLang=0x\x05, MediaNum=0x00000001, MediaCount=0x00000001, "
        "Tracks.size=3, Tracks={"
        "Track[0]GenreID=0x00000001, Track[0]GenreName=ROCK, "
        "Track[0]PerformerName=The Harbor Lights, Track[0]TrackName=Open Highway, "
        "Track[0]TrackNum=0x00000000"
        "Track[1]GenreID=0x00000001, Track[1]GenreName=ROCK, "
        "Track[1]PerformerName=The Harbor Lights, Track[1]TrackName=Cold Harbor, "
        "Track[1]TrackNum=0x00000000"
        "Track[2]GenreID=0x00000001, Track[2]GenreName=ROCK, "
        "Track[2]PerformerName=The Harbor Lights, Track[2]TrackName=Last Exit, "
        "Track[2]TrackNum=0x00000000"
        "} ,Database=0x\x01, AlbumId=0xSAMPLE-0001\n";
    EXPECT_EQ(result.out, expected);
}

TEST_F(MoxSearchTest, Records_ElevenTracks_HexCountAndIndexOneLinePerAlbum) {
    moxdb::CatalogueBuilder cat;
    const std::string toc = moxdb::makeTocTextOfTracks(11);
    cat.addToc(toc, addAlbum(cat, "LOW", 5, 11), 1);
    cat.addToc(toc, addAlbum(cat, "HIGH", 6, 11), 1);
    const RunResult result = run({"search", write(cat), "--toc", toc, "--records"});
    EXPECT_EQ(result.status, 0);
    const size_t firstEnd = result.out.find('\n');
    ASSERT_NE(firstEnd, std::string::npos);
    const std::string first = result.out.substr(0, firstEnd);
    const std::string second = result.out.substr(firstEnd + 1);
    EXPECT_EQ(first.rfind("AlbumId=HIGH, ", 0), 0u) << first;
    EXPECT_EQ(second.rfind("AlbumId=LOW, ", 0), 0u) << second;
    EXPECT_EQ(second.back(), '\n');
    EXPECT_EQ(std::count(result.out.begin(), result.out.end(), '\n'), 2);
    EXPECT_NE(first.find(", Tracks.size=b, Tracks={Track[0]"), std::string::npos) << first;
    EXPECT_NE(first.find("Track[a]TrackName=HIGH-11, Track[a]TrackNum=0x00000000} ,Database="),
              std::string::npos)
        << first;
}

TEST_F(MoxSearchTest, Records_AfterFailure_PrintsTheAlbumsLeftAndExitsOne) {
    moxdb::CatalogueBuilder cat;
    const std::string toc = moxdb::makeTocTextOfTracks(1);
    cat.addToc(toc, addAlbum(cat, "FIRST", 10, 1), 1);
    cat.addToc(toc, 0xABCDEF, 1);  // no such album
    const RunResult result = run({"search", write(cat), "--toc", toc, "--records"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out.rfind("AlbumId=FIRST, AlbumName=Title of FIRST, ", 0), 0u) << result.out;
    EXPECT_EQ(std::count(result.out.begin(), result.out.end(), '\n'), 1);
    EXPECT_NE(result.err.find("getAlbumInfo error i=1."), std::string::npos) << result.err;
}

TEST_F(MoxSearchTest, Table_Found_ListsAlbumAndTracks) {
    const std::string file = write(moxdb::CatalogueBuilder::makeSample());
    const RunResult result = run({"search", file, "--toc", "0000960046E6008D3600D386"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out.rfind("1 album\n", 0), 0u) << result.out;
    for (const char* piece :
         {"Northern Roads", "SAMPLE-0001", "confidence 92", "medium 1 of 1", "genre ROCK (1)",
          "language 5", "Open Highway", "Cold Harbor", "Last Exit", "The Harbor Lights"}) {
        EXPECT_NE(result.out.find(piece), std::string::npos) << piece << "\n" << result.out;
    }
}

TEST_F(MoxSearchTest, Table_Failure_DebugMessagesStayOffStdout) {
    moxdb::CatalogueBuilder cat;
    const std::string toc = moxdb::makeTocTextOfTracks(1);
    cat.addToc(toc, addAlbum(cat, "A", 1, 1), 1);
    cat.image().setVersion(0x02000000);
    const RunResult result = run({"search", write(cat), "--toc", toc});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "0 albums\n");
    EXPECT_NE(result.err.find("unknown version."), std::string::npos) << result.err;
    EXPECT_NE(result.err.find("judgeDapDbVer error."), std::string::npos) << result.err;
}

TEST_F(MoxSearchTest, MissingFile_ExitsTwoWithOneLineReason) {
    const RunResult result = run({"search", dir.file("absent.dap3"), "--toc", "X", "--json"});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err.rfind("mox search: ", 0), 0u) << result.err;
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
}

TEST_F(MoxSearchTest, DirectoryAsFile_ExitsTwo) {
    const RunResult result = run({"search", dir.path(), "--toc", "X"});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "mox search: " + dir.path() + ": not a regular file\n");
}

TEST_F(MoxSearchTest, BadUsage_ExitsTwo) {
    const std::string file = write(moxdb::CatalogueBuilder::makeSample());
    EXPECT_EQ(run({"search", file}).status, 2);          // no --toc
    EXPECT_EQ(run({"search", "--toc", "X"}).status, 2);  // no FILE
    EXPECT_EQ(run({"search", file, "--toc", "X", "--json", "--records"}).status, 2);
    EXPECT_EQ(run({"search", file, "--toc", "X", "--bogus"}).status, 2);
}

// ---------------------------------------------------------------------------
// Control characters, result-file limit, messages, lock

// A title with ESC, BEL, LF and a backslash must not reach the terminal as
// control codes: the table writes them as \xNN and "\\".
TEST_F(MoxSearchTest, Table_ControlCharactersInStrings_AreEscaped) {
    moxdb::CatalogueBuilder cat;
    const std::string toc = moxdb::makeTocTextOfTracks(1);
    const uint32_t rock = cat.addGenre("ROCK");
    const uint32_t artist = cat.addArtist("Bell\a");
    moxdb::AlbumFields draft;
    draft.idText = "ID\x1b";
    draft.title = "Red \x1b[31mAlert\nNext\\line";
    draft.genreCode = "ROCK";
    draft.language = "en";
    draft.trackIds.push_back(cat.addTrack({"Tab\there\x7f", artist, rock, 1}));
    cat.addToc(toc, cat.addAlbum(draft), 1);
    const RunResult result = run({"search", write(cat), "--toc", toc});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    const std::string expected =
        "1 album\n"
        "\n"
        "[1] Red \\x1b[31mAlert\\x0aNext\\\\line  (id ID\\x1b)\n"
        "    confidence 0   medium 1 of 1   genre ROCK (1)   language 5 (other)\n"
        "    #   title            performer  genre\n"
        "    1   Tab\\x09here\\x7f  Bell\\x07   ROCK (1)\n";
    EXPECT_EQ(result.out, expected);
}

// --records is the module's own text form and stays byte for byte.
TEST_F(MoxSearchTest, Records_ControlCharactersInStrings_StayRaw) {
    moxdb::CatalogueBuilder cat;
    const std::string toc = moxdb::makeTocTextOfTracks(1);
    const uint32_t albumId = addAlbum(cat, "RAW", 1, 1);
    cat.image().album(0).Title = cat.text("A\x1b[31mB\aC");
    cat.addToc(toc, albumId, 1);
    const RunResult result = run({"search", write(cat), "--toc", toc, "--records"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out.rfind("AlbumId=RAW, AlbumName=A\x1b[31mB\aC, ", 0), 0u) << result.out;
}

TEST_F(MoxSearchTest, Help_SaysRecordsStringsAreRaw) {
    const RunResult result = run({"search", "--help"});
    EXPECT_EQ(result.status, 0);
    EXPECT_NE(result.out.find("its strings are raw, byte for byte"), std::string::npos)
        << result.out;
}

// The phone cannot deliver more than the module's result-file limit, so a
// larger input is refused before anything is stored.
TEST_F(MoxSearchTest, InputLargerThanResultFileLimit_RefusedWithSizesResultFileUntouched) {
    plantResultFile({'o', 'l', 'd'});
    const std::string file = dir.file("huge.dap3");
    TestDir::writeFile(file, std::vector<unsigned char>(MoxLimits::RESULT_FILE_MAX + 1u, 0));
    const RunResult result = run({"search", file, "--toc", "X", "--json"});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "mox search: " + file + ": 1048577 bytes, larger than the module " +
                              "accepts from the phone (1048576 bytes)\n");
    EXPECT_EQ(TestDir::readFile(MoxResultFile::FULL_PATH),
              (std::vector<unsigned char>{'o', 'l', 'd'}));
}

// An input of exactly the limit is copied whole, piece by piece.
TEST_F(MoxSearchTest, InputOfExactlyTheLimit_CopiedWholeAndSearched) {
    moxdb::CatalogueBuilder cat = moxdb::CatalogueBuilder::makeSample();
    moxdb::Bytes bytes = cat.build();
    ASSERT_LT(bytes.size(), MoxLimits::RESULT_FILE_MAX);
    for (size_t i = bytes.size(); i < MoxLimits::RESULT_FILE_MAX; ++i) {
        bytes.push_back(static_cast<uint8_t>(i * 7));  // junk after the database
    }
    const std::string file = write(bytes);
    const json out = runJson(file, "0000960046E6008D3600D386", 0);
    EXPECT_EQ(idsOf(out.at("albums")), (std::vector<std::string>{"SAMPLE-0001"}));
    EXPECT_EQ(TestDir::readFile(MoxResultFile::FULL_PATH), TestDir::readFile(file));
}

TEST_F(MoxSearchTest, ResultDirectoryCannotBeCreated_SaysTheSystemsReason) {
    TestDir::removeTree(resultDir());
    TestDir::writeFile(resultDir(), {'x'});
    const RunResult result =
        run({"search", write(moxdb::CatalogueBuilder::makeSample()), "--toc", "X"});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err,
              "mox search: cannot create " + MoxResultFile::DIRECTORY + ": Not a directory\n");
}

// A file-size limit set by a shell (SIGXFSZ ignored) makes the copy fail.
TEST_F(MoxSearchTest, ResultFileWriteFails_SaysTheSystemsReason) {
    const std::string file = write(moxdb::CatalogueBuilder::makeSample());
    const RunResult result = runCli("/bin/sh",
                                    {"-c", "trap '' XFSZ; ulimit -f 1; exec \"$0\" \"$@\"",
                                     MOX_CLI_PATH, "search", file, "--toc", "X", "--json"},
                                    dir);
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err,
              "mox search: " + MoxResultFile::FULL_PATH + ": write failed: File too large\n");
}

TEST_F(MoxSearchTest, TocFollowedByAnOption_IsBadUsageNotATocText) {
    plantResultFile({'o', 'l', 'd'});
    const std::string file = write(moxdb::CatalogueBuilder::makeSample());
    const RunResult result = run({"search", file, "--toc", "--json"});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err.rfind("--toc: --json is not a TOC text (it starts with '-'); give the "
                               "text right after --toc\n",
                               0),
              0u)
        << result.err;
    EXPECT_EQ(TestDir::readFile(MoxResultFile::FULL_PATH),
              (std::vector<unsigned char>{'o', 'l', 'd'}));
}

// Not a search matter, but the search tests run the program: an unknown
// subcommand is named in the message.
TEST_F(MoxSearchTest, UnknownSubcommand_NamesTheWord) {
    const RunResult result = run({"serch", "x.dap3", "--toc", "X"});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err,
              "mox: unknown subcommand 'serch' (known: dump, search, toc, lookup)\n"
              "Run with --help for more information.\n");
}

// A second run waits while another holds the result directory, says so once
// on stderr, and touches the result file only once the other is done.
TEST_F(MoxSearchTest, SecondRunWhileDirectoryLocked_WaitsSaysSoOnceThenSearches) {
    const std::string file = write(moxdb::CatalogueBuilder::makeSample());
    plantResultFile({'o', 'l', 'd'});
    const int held = ::open(resultDir().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_GE(held, 0);
    ASSERT_EQ(::flock(held, LOCK_EX), 0);

    int errPipe[2];
    ASSERT_EQ(::pipe2(errPipe, O_CLOEXEC), 0);
    const std::string outPath = dir.file("stdout");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0644);
    posix_spawn_file_actions_adddup2(&actions, errPipe[1], 2);
    std::vector<std::string> args = {
        MOX_CLI_PATH, "search", file, "--toc", "0000960046E6008D3600D386", "--json"};
    std::vector<char*> argv;
    for (std::string& arg : args) {
        argv.push_back(&arg[0]);
    }
    argv.push_back(nullptr);
    pid_t pid = 0;
    ASSERT_EQ(posix_spawn(&pid, MOX_CLI_PATH, &actions, nullptr, argv.data(), environ), 0);
    posix_spawn_file_actions_destroy(&actions);
    ::close(errPipe[1]);

    // Blocks until the run has said that it waits.
    std::string err;
    char byte = 0;
    while (err.find('\n') == std::string::npos && ::read(errPipe[0], &byte, 1) == 1) {
        err += byte;
    }
    const std::string notice =
        "mox search: waiting for another run that uses " + MoxResultFile::DIRECTORY + "\n";
    EXPECT_EQ(err, notice);
    int wstatus = 0;
    EXPECT_EQ(::waitpid(pid, &wstatus, WNOHANG), 0);  // still waiting
    EXPECT_EQ(TestDir::readFile(MoxResultFile::FULL_PATH),
              (std::vector<unsigned char>{'o', 'l', 'd'}));

    ::flock(held, LOCK_UN);
    ::close(held);
    while (::read(errPipe[0], &byte, 1) == 1) {
        err += byte;
    }
    ::close(errPipe[0]);
    ASSERT_EQ(::waitpid(pid, &wstatus, 0), pid);
    ASSERT_TRUE(WIFEXITED(wstatus));
    EXPECT_EQ(WEXITSTATUS(wstatus), 0);
    EXPECT_EQ(err, notice);  // said once
    const json out = json::parse(TestDir::readFile(outPath));
    EXPECT_EQ(out.at("ok"), true);
    EXPECT_EQ(idsOf(out.at("albums")), (std::vector<std::string>{"SAMPLE-0001"}));
    EXPECT_EQ(TestDir::readFile(MoxResultFile::FULL_PATH), TestDir::readFile(file));
}

}  // namespace
