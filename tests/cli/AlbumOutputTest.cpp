// printAlbumTable: the columns of the album table line up in terminal cells
// (measured with libutf8proc) for wide, full-width, combining, emoji and
// escaped texts, in the table alone and through `mox lookup`.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <list>
#include <sstream>
#include <string>
#include <vector>

#include "AlbumOutput.h"
#include "CliRun.h"
#include "TestDir.h"
#include "TextEscape.h"

namespace {

HbSMoxDef::TrackInfo track(const std::string& title, const std::string& performer,
                           const std::string& genre) {
    HbSMoxDef::TrackInfo out;
    out.TrackName = title;
    out.PerformerName = performer;
    out.GenreName = genre;
    out.GenreID = 7;
    return out;
}

std::string tableOf(const std::vector<HbSMoxDef::TrackInfo>& tracks) {
    HbSMoxDef::AlbumInfo album;
    album.AlbumId = "A-1";
    album.AlbumName = "Crafted";
    album.GenreName = "MIX";
    album.GenreID = 7;
    album.Confidence = 50;
    album.MediaNum = 1;
    album.MediaCount = 1;
    album.Tracks = tracks;
    std::ostringstream out;
    printAlbumTable({album}, out);
    return out.str();
}

// The lines of the track table: its header and its rows, which start with
// four spaces and a "#" or a track number.
std::vector<std::string> tableLines(const std::string& out) {
    std::vector<std::string> lines;
    std::istringstream in(out);
    std::string line;
    while (std::getline(in, line)) {
        if (line.size() > 4 && line.compare(0, 4, "    ") == 0 &&
            (line[4] == '#' || (line[4] >= '1' && line[4] <= '9'))) {
            lines.push_back(line);
        }
    }
    return lines;
}

// The terminal cell where the last column ("genre" in the header, the genre
// `genre` in a row) starts, on each line of the track table.
std::vector<size_t> genreColumns(const std::string& out, const std::string& genre) {
    std::vector<size_t> columns;
    for (const std::string& line : tableLines(out)) {
        const size_t at = line.rfind(line[4] == '#' ? std::string("genre") : genre + " (");
        columns.push_back(at == std::string::npos ? 0 : terminalCells(line.substr(0, at)));
    }
    return columns;
}

TEST(AlbumOutputTest, Table_WideCombiningEmojiAndEscapedTexts_LineUpInTerminalCells) {
    const std::string out =
        tableOf({track("Cafe\xCC\x81", "ＦＵＬＬ", "MIX"), track("🎸 夜", "ctl\x1b[2J", "MIX"),
                 track("c1\xC2\x9B", "bidi\xE2\x80\xAE", "MIX")});
    EXPECT_EQ(out,
              "1 album\n\n[1] Crafted  (id A-1)\n"
              "    confidence 50   medium 1 of 1   genre MIX (7)   language 0 (other)\n"
              "    #   title     performer   genre\n"
              "    1   Cafe\xCC\x81      ＦＵＬＬ    MIX (7)\n"
              "    2   🎸 夜     ctl\\x1b[2J  MIX (7)\n"
              "    3   c1\\u009b  bidi\\u202e  MIX (7)\n");
    EXPECT_EQ(genreColumns(out, "MIX"), std::vector<size_t>({30, 30, 30, 30}));
}

TEST(AlbumOutputTest, Table_LineSeparatorAndBidiIsolates_AreEscapedInEveryField) {
    HbSMoxDef::AlbumInfo album;
    album.AlbumId = "id\xE2\x80\xA8";
    album.AlbumName = "\xE2\x81\xA6name\xE2\x81\xA9";
    album.GenreName = "g\xC2\x85";
    album.Tracks = {track("t\xE2\x80\xA9", "p\x7f", "x\xE2\x80\xAD")};
    std::ostringstream out;
    printAlbumTable({album}, out);
    EXPECT_EQ(out.str(),
              "1 album\n\n[1] \\u2066name\\u2069  (id id\\u2028)\n"
              "    confidence 0   medium 0 of 0   genre g\\u0085 (0)   language 0 (other)\n"
              "    #   title    performer  genre\n"
              "    1   t\\u2029  p\\x7f      x\\u202d (7)\n");
}

class AlbumOutputLookupTest : public ::testing::Test {
protected:
    void SetUp() override { setenv("HB_TIMER_SCALE", "0.02", 1); }

    CliResult lookup(const std::vector<std::string>& args) {
        std::vector<std::string> all = {"lookup"};
        all.insert(all.end(), args.begin(), args.end());
        return runCli(MOX_CLI_PATH, all, dir);
    }

    TestDir dir{"AlbumOutputLookupTest"};
};

TEST_F(AlbumOutputLookupTest, JapaneseDiscOfTheSample_GenreColumnStartsAtTheSameCellOnEveryLine) {
    const CliResult result = lookup({"--toc", "000096003B2E0079AE00B82E"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out,
              "1 album\n\n[1] 夜明けの街  (id MOXS-0006)\n"
              "    confidence 78   medium 1 of 1   genre JPOP (14)   language 3 (Japanese)\n"
              "    #   title       performer  genre\n"
              "    1   始まりの歌  ひかり     JPOP (14)\n"
              "    2   青い空      ひかり     JPOP (14)\n"
              "    3   さよなら🌙  ひかり     JPOP (14)\n");
    EXPECT_EQ(genreColumns(result.out, "JPOP"), std::vector<size_t>({31, 31, 31, 31}));
}

TEST_F(AlbumOutputLookupTest, CraftedCatalogue_TitlesLineUpAndNothingActsOnTheTerminal) {
    const std::string catalog = dir.file("crafted.json");
    std::ofstream(catalog) << R"({"albums": [{"id": "CRAFT-1", "title": "Crafted \u202eevil",
  "genre": "MIX", "language": "en", "media": [{"tracks": [
  {"title": "Cafe\u0301", "performer": "\uff26\uff55\uff4c\uff4c", "genre": "MIX"},
  {"title": "\ud83c\udfb8 \ud83d\udc68\u200d\ud83d\udc69\u200d\ud83d\udc67", "performer": "ctl\u001b[2J", "genre": "MIX"},
  {"title": "c1\u009b31m", "performer": "line\u2028sep", "genre": "MIX"},
  {"title": "bidi\u202e\u2066x\u2069", "performer": "plain", "genre": "MIX"}]}]}],
 "discs": [{"toc": "000096001000002000003000004000",
  "candidates": [{"album": "CRAFT-1", "medium": 1, "confidence": 50}]}]})";
    const CliResult result =
        lookup({"--catalog", catalog, "--toc", "000096001000002000003000004000"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out,
              "1 album\n\n[1] Crafted \\u202eevil  (id CRAFT-1)\n"
              "    confidence 50   medium 1 of 1   genre MIX (0)   language 5 (other)\n"
              "    #   title                    performer      genre\n"
              "    1   Cafe\xCC\x81                     Ｆｕｌｌ       MIX (0)\n"
              "    2   🎸 👨‍👩‍👧                    ctl\\x1b[2J     MIX (0)\n"
              "    3   c1\\u009b31m              line\\u2028sep  MIX (0)\n"
              "    4   bidi\\u202e\\u2066x\\u2069  plain          MIX (0)\n");
    EXPECT_EQ(genreColumns(result.out, "MIX"), std::vector<size_t>({48, 48, 48, 48, 48}));
}

}  // namespace
