// The numbers that the module gives the genre codes of the response database
// (HbSMoxDef's GenreID), and the language code it gives a language text
// (AlbumLang), for the tools and benchmarks that assemble albums as it does
// (tests/tools/GenreNumbersTest.cpp checks them against the module).
#ifndef MOXDB_GENRENUMBERS_H
#define MOXDB_GENRENUMBERS_H

#include <cstdint>
#include <string>

namespace moxdb {

class GenreNumbers {
public:
    // 1 to 18 for the codes ROCK ... SOUNDTRACK (exact text); 0 for any other.
    static uint32_t numberOf(const std::string& code);
    // 3 for the language text "ja", 5 for every other.
    static uint8_t languageOf(const std::string& text);
};

}  // namespace moxdb

#endif  // MOXDB_GENRENUMBERS_H
