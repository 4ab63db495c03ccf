// `mox search` end to end: the built CLI runs on databases made here with the
// writer library, valid and broken, and its --json, --records and table output
// and exit status are compared with what the search must give.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "AlbumIds.h"
#include "CatalogueAlbum.h"
#include "CliRun.h"
#include "HbFramework/HbFileSysHost.h"
#include "JsonSchemaCheck.h"
#include "MoxDbWriter.h"
#include "TestDir.h"
#include "private/MoxLimits.h"

using moxtest::addAlbum;
using moxtest::albumIds;
using nlohmann::json;

namespace {

using RunResult = CliResult;

class MoxSearchTest : public ::testing::Test {
protected:
    // The module's debug output goes to stderr in every run. MOX_RESULT_DIR
    // names this test's result directory, which holds a "live" answer that
    // no search may touch.
    MoxSearchTest() : dir("MoxSearchTest") {
        ::setenv("HB_DBG_OUTPUT", "stderr", 1);
        ::setenv("MOX_RESULT_DIR", HbFileSysHost::getResultDirectory().c_str(), 1);
    }
    ~MoxSearchTest() override { ::unsetenv("MOX_RESULT_DIR"); }

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

    // Writes a database whose one album "RAW" is found by `toc` and has the
    // title "A<ESC>[31mB<BEL>C".
    std::string writeControlTitle(const std::string& toc) {
        moxdb::CatalogueBuilder cat;
        const uint32_t albumId = addAlbum(cat, "RAW", 1, 1);
        cat.image().album(0).Title = cat.text("A\x1b[31mB\aC");
        cat.addToc(toc, albumId, 1);
        return write(cat);
    }

    // Runs with --json and parses stdout as exactly one JSON value.
    json runJson(const std::string& file, const std::string& toc, int expectedStatus) {
        const RunResult result = run({"search", file, "--toc", toc, "--json"});
        EXPECT_EQ(result.status, expectedStatus) << result.err;
        EXPECT_EQ(result.err, "");
        EXPECT_FALSE(result.out.empty());
        EXPECT_EQ(result.out.back(), '\n');
        EXPECT_EQ(JsonSchemaCheck::problems("mox-search", result.out), "") << result.out;
        return json::parse(result.out);  // throws (fails the test) on anything but one value
    }

    // The result directory without its trailing slash.
    static std::string resultDir() {
        std::string path = HbFileSysHost::getResultDirectory();
        while (path.size() > 1 && path.back() == '/') {
            path.pop_back();
        }
        return path;
    }

    // Puts `bytes` in the result file, so a test can tell whether a run
    // touched it.
    static void plantResultFile(const std::vector<unsigned char>& bytes) {
        std::filesystem::create_directories(resultDir());
        TestDir::writeFile(HbFileSysHost::getResultFilePath(), bytes);
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
    EXPECT_EQ(albumIds(out.at("albums")), (std::vector<std::string>{"ZERO-A", "ZERO-B", "MINUS1"}));
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
    EXPECT_EQ(albumIds(out.at("albums")), (std::vector<std::string>{"FIRST", "SECOND"}));
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

// The search reads FILE and never writes it, nor the result file of the
// directory that MOX_RESULT_DIR names, even when FILE is that very file.
TEST_F(MoxSearchTest, Json_LiveResultFileItself_SearchedAndLeftUnchanged) {
    const moxdb::Bytes live = moxdb::CatalogueBuilder::makeSample().build();
    plantResultFile(std::vector<unsigned char>(live.begin(), live.end()));
    const json out = runJson(HbFileSysHost::getResultFilePath(), "0000960046E6008D3600D386", 0);
    EXPECT_EQ(albumIds(out.at("albums")), (std::vector<std::string>{"SAMPLE-0001"}));
    EXPECT_EQ(TestDir::readFile(HbFileSysHost::getResultFilePath()),
              std::vector<unsigned char>(live.begin(), live.end()));
}

TEST_F(MoxSearchTest, Json_LinkToTheLiveResultFile_SearchedAndBothLeftUnchanged) {
    const moxdb::Bytes live = moxdb::CatalogueBuilder::makeSample().build();
    plantResultFile(std::vector<unsigned char>(live.begin(), live.end()));
    const std::string link = dir.file("link.dap3");
    ASSERT_EQ(::symlink(HbFileSysHost::getResultFilePath().c_str(), link.c_str()), 0);
    const json out = runJson(link, "0000960046E6008D3600D386", 0);
    EXPECT_EQ(albumIds(out.at("albums")), (std::vector<std::string>{"SAMPLE-0001"}));
    EXPECT_EQ(TestDir::readFile(HbFileSysHost::getResultFilePath()),
              std::vector<unsigned char>(live.begin(), live.end()));
    EXPECT_TRUE(std::filesystem::is_symlink(link));
}

// A pipe is read to its end (bounded as a file is) and searched.
TEST_F(MoxSearchTest, Json_Fifo_ReadToTheEndAndSearched) {
    const std::string fifo = dir.file("answer.fifo");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    const moxdb::Bytes bytes = moxdb::CatalogueBuilder::makeSample().build();
    const std::string source = write(bytes);
    const RunResult result = runCli(
        "/bin/sh",
        {"-c",
         "cat \"$1\" > \"$2\" & exec \"$0\" search \"$2\" --toc 0000960046E6008D3600D386 --json",
         MOX_CLI_PATH, source, fifo},
        dir);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.err, "");
    const json out = json::parse(result.out);
    EXPECT_EQ(albumIds(out.at("albums")), (std::vector<std::string>{"SAMPLE-0001"}));
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
    const std::string toc = moxdb::makeTocTextOfTracks(1);
    const RunResult result = run({"search", writeControlTitle(toc), "--toc", toc, "--records"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out.rfind("AlbumId=RAW, AlbumName=A\x1b[31mB\aC, ", 0), 0u) << result.out;
}

// A terminal gets the text form with its raw bytes escaped: AlbumLang and
// Database are bytes 0x05 and 0x01, the title holds ESC and BEL.
TEST_F(MoxSearchTest, Records_OnATerminal_RawBytesAreEscaped) {
    const std::string toc = moxdb::makeTocTextOfTracks(1);
    const RunResult result = runCliOnTerminal(
        MOX_CLI_PATH, {"search", writeControlTitle(toc), "--toc", toc, "--records"}, dir);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out.rfind("AlbumId=RAW, AlbumName=A\\x1b[31mB\\x07C, ", 0), 0u) << result.out;
    EXPECT_NE(result.out.find(", AlbumLang=0x\\x05, "), std::string::npos) << result.out;
    EXPECT_NE(result.out.find(" ,Database=0x\\x01, AlbumId=0xRAW\n"), std::string::npos)
        << result.out;
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
    EXPECT_EQ(TestDir::readFile(HbFileSysHost::getResultFilePath()),
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
    EXPECT_EQ(albumIds(out.at("albums")), (std::vector<std::string>{"SAMPLE-0001"}));
}

// The search never uses the directory that MOX_RESULT_DIR names: a file in
// its place changes nothing.
TEST_F(MoxSearchTest, ResultDirectoryIsAFile_SearchUsesItsOwnAndSucceeds) {
    std::filesystem::create_directories(resultDir());
    TestDir::removeTree(resultDir());
    TestDir::writeFile(resultDir(), {'x'});
    const json out =
        runJson(write(moxdb::CatalogueBuilder::makeSample()), "0000960046E6008D3600D386", 0);
    EXPECT_EQ(albumIds(out.at("albums")), (std::vector<std::string>{"SAMPLE-0001"}));
    EXPECT_EQ(TestDir::readFile(resultDir()), (std::vector<unsigned char>{'x'}));
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
    // The copy goes to the run's private result directory, whose name is
    // made at run time.
    const std::string suffix = "/dbupdateresponse.dap3: write failed: File too large\n";
    EXPECT_EQ(result.err.rfind("mox search: /", 0), 0u) << result.err;
    ASSERT_GT(result.err.size(), suffix.size());
    EXPECT_EQ(result.err.substr(result.err.size() - suffix.size()), suffix);
}

TEST_F(MoxSearchTest, TocFollowedByAnOption_IsBadUsageNotATocText) {
    plantResultFile({'o', 'l', 'd'});
    const std::string file = write(moxdb::CatalogueBuilder::makeSample());
    const RunResult result = run({"search", file, "--toc", "--json"});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err,
              "mox search: --toc: --json is not a TOC text (it starts with '-'); give the text "
              "right after --toc\nRun with --help for more information.\n");
    EXPECT_EQ(TestDir::readFile(HbFileSysHost::getResultFilePath()),
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

// A search takes no lock: another run that holds the directory named by
// MOX_RESULT_DIR does not delay it, and its result file stays as it is.
TEST_F(MoxSearchTest, ResultDirectoryLockedByAnotherRun_SearchesAtOnceWithoutANotice) {
    const std::string file = write(moxdb::CatalogueBuilder::makeSample());
    plantResultFile({'o', 'l', 'd'});
    const int held = ::open(resultDir().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_GE(held, 0);
    ASSERT_EQ(::flock(held, LOCK_EX), 0);
    const json out = runJson(file, "0000960046E6008D3600D386", 0);
    ::close(held);
    EXPECT_EQ(albumIds(out.at("albums")), (std::vector<std::string>{"SAMPLE-0001"}));
    EXPECT_EQ(TestDir::readFile(HbFileSysHost::getResultFilePath()),
              (std::vector<unsigned char>{'o', 'l', 'd'}));
}

}  // namespace
