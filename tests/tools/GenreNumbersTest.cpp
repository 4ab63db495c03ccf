// moxdb::GenreNumbers against the module's own mapping
// (MoxDapDatabase::getRudGenreID and getJalsLanguage).
#include "moxdb/GenreNumbers.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "private/MoxDapDatabase.h"

namespace {

TEST(GenreNumbersTest, EveryCodeAndOthers_NumberedAsTheModuleNumbersThem) {
    const std::vector<std::string> codes = {
        "ROCK",   "COUNT",      "JAZZ",      "R&B",   "VOCAL",  "WORLD",   "BLUES", "ELEC",
        "FOLK",   "OTHER",      "CLASSICAL", "DANCE", "HIPHOP", "JPOP",    "LATIN", "POP",
        "REGGAE", "SOUNDTRACK", "",          "rock",  "ROCK ",  "COUNTRY", "J-POP"};
    MoxDapDatabase* module = MoxDapDatabase::GetInstance();
    for (std::string code : codes) {
        EXPECT_EQ(moxdb::GenreNumbers::numberOf(code), module->getRudGenreID(code)) << code;
    }
    EXPECT_EQ(moxdb::GenreNumbers::numberOf("SOUNDTRACK"), 18u);
}

TEST(GenreNumbersTest, LanguageTexts_CodedAsTheModuleCodesThem) {
    MoxDapDatabase* module = MoxDapDatabase::GetInstance();
    for (std::string text : {"ja", "en", "", "JA", "ja "}) {
        EXPECT_EQ(moxdb::GenreNumbers::languageOf(text), module->getJalsLanguage(text)) << text;
    }
    EXPECT_EQ(moxdb::GenreNumbers::languageOf("ja"), 3);
}

}  // namespace
