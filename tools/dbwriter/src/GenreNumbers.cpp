#include "moxdb/GenreNumbers.h"

#include <map>

namespace moxdb {

uint32_t GenreNumbers::numberOf(const std::string& code) {
    static const std::map<std::string, uint32_t> kNumbers = {
        {"ROCK", 1},       {"COUNT", 2},   {"JAZZ", 3},        {"R&B", 4},   {"VOCAL", 5},
        {"WORLD", 6},      {"BLUES", 7},   {"ELEC", 8},        {"FOLK", 9},  {"OTHER", 10},
        {"CLASSICAL", 11}, {"DANCE", 12},  {"HIPHOP", 13},     {"JPOP", 14}, {"LATIN", 15},
        {"POP", 16},       {"REGGAE", 17}, {"SOUNDTRACK", 18},
    };
    const auto found = kNumbers.find(code);
    return found == kNumbers.end() ? 0 : found->second;
}

uint8_t GenreNumbers::languageOf(const std::string& text) {
    return text == "ja" ? 3 : 5;
}

}  // namespace moxdb
