// Genre names of the online services to the module's genre codes: every row
// of the table documented in docs/simulator.md is the code's, and names the
// table does not know give OTHER.
#include "moxphone/GenreMap.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

using moxphone::GenreMap;

struct Row {
    std::string code;
    std::vector<std::string> names;
};

std::string trimmed(const std::string& text) {
    const size_t first = text.find_first_not_of(' ');
    const size_t last = text.find_last_not_of(' ');
    return first == std::string::npos ? std::string() : text.substr(first, last - first + 1);
}

// The rows "| CODE | name, name, ... |" of the section "Genres of the online
// sources" of docs/simulator.md.
std::vector<Row> documentedRows() {
    std::ifstream in(std::string(MOX_TEST_SOURCE_DIR) + "/docs/simulator.md");
    std::vector<Row> rows;
    std::string line;
    bool inSection = false;
    while (std::getline(in, line)) {
        if (line.rfind("### ", 0) == 0) {
            inSection = line == "### Genres of the online sources";
            continue;
        }
        if (!inSection || line.rfind("| ", 0) != 0 || line.rfind("| code |", 0) == 0) {
            continue;
        }
        const size_t bar = line.find('|', 1);
        Row row;
        row.code = trimmed(line.substr(1, bar - 1));
        std::istringstream names(line.substr(bar + 1, line.rfind('|') - bar - 1));
        std::string name;
        while (std::getline(names, name, ',')) {
            row.names.push_back(trimmed(name));
        }
        rows.push_back(row);
    }
    return rows;
}

const char* const kCodes[] = {"ROCK",  "COUNT", "JAZZ", "R&B",       "VOCAL",      "WORLD",
                              "BLUES", "ELEC",  "FOLK", "CLASSICAL", "DANCE",      "HIPHOP",
                              "JPOP",  "LATIN", "POP",  "REGGAE",    "SOUNDTRACK", "OTHER"};

TEST(GenreMapTest, DocumentedTable_HasOneRowPerGenreCodeInOrder) {
    const std::vector<Row> rows = documentedRows();
    ASSERT_EQ(rows.size(), 18u);
    for (size_t i = 0; i < rows.size(); ++i) {
        EXPECT_EQ(rows[i].code, kCodes[i]);
    }
}

TEST(GenreMapTest, EveryDocumentedName_GivesTheCodeOfItsRow) {
    size_t names = 0;
    for (const Row& row : documentedRows()) {
        for (std::string name : row.names) {
            if (row.code == "OTHER" && name.rfind("and ", 0) == 0) {
                name = name.substr(4);
            }
            if (name == "every other name") {
                continue;
            }
            ++names;
            EXPECT_TRUE(GenreMap::knows(name)) << row.code << ": " << name;
            EXPECT_EQ(GenreMap::codeOf(name), row.code) << name;
        }
    }
    EXPECT_EQ(names, 74u);
}

TEST(GenreMapTest, CaseAndSurroundingSpaces_DoNotMatter) {
    EXPECT_EQ(GenreMap::codeOf("  Alternative ROCK\t"), "ROCK");
    EXPECT_EQ(GenreMap::codeOf("J-Pop"), "JPOP");
    EXPECT_EQ(GenreMap::codeOf("R&B"), "R&B");
    EXPECT_TRUE(GenreMap::knows(" NewAge "));
}

TEST(GenreMapTest, UnknownNameOrNone_GivesOtherAndIsNotKnown) {
    for (const std::string name :
         {"", "   ", "krautrock", "rock and roll", "alternative  rock", "rock\n", "ROCK\xC3\xA9"}) {
        EXPECT_EQ(GenreMap::codeOf(name), "OTHER") << name;
        EXPECT_FALSE(GenreMap::knows(name)) << name;
    }
}

}  // namespace
