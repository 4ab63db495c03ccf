// Genre names of the online services to the module's 18 genre codes.
#include "moxphone/GenreMap.h"

namespace moxphone {

namespace {

struct Entry {
    const char* name;  // lower case
    const char* code;
};

// Keep docs/simulator.md ("Genres of the online sources") in step.
const Entry kTable[] = {
    {"rock", "ROCK"},
    {"alternative rock", "ROCK"},
    {"hard rock", "ROCK"},
    {"indie rock", "ROCK"},
    {"progressive rock", "ROCK"},
    {"punk rock", "ROCK"},
    {"punk", "ROCK"},
    {"metal", "ROCK"},
    {"heavy metal", "ROCK"},
    {"grunge", "ROCK"},
    {"j-rock", "ROCK"},
    {"country", "COUNT"},
    {"bluegrass", "COUNT"},
    {"jazz", "JAZZ"},
    {"bebop", "JAZZ"},
    {"swing", "JAZZ"},
    {"smooth jazz", "JAZZ"},
    {"vocal jazz", "JAZZ"},
    {"r&b", "R&B"},
    {"rhythm and blues", "R&B"},
    {"contemporary r&b", "R&B"},
    {"soul", "R&B"},
    {"funk", "R&B"},
    {"vocal", "VOCAL"},
    {"a cappella", "VOCAL"},
    {"world", "WORLD"},
    {"world music", "WORLD"},
    {"blues", "BLUES"},
    {"electronic", "ELEC"},
    {"electronica", "ELEC"},
    {"techno", "ELEC"},
    {"ambient", "ELEC"},
    {"synthpop", "ELEC"},
    {"synth-pop", "ELEC"},
    {"idm", "ELEC"},
    {"folk", "FOLK"},
    {"folk rock", "FOLK"},
    {"singer-songwriter", "FOLK"},
    {"classical", "CLASSICAL"},
    {"baroque", "CLASSICAL"},
    {"opera", "CLASSICAL"},
    {"orchestral", "CLASSICAL"},
    {"choral", "CLASSICAL"},
    {"chamber music", "CLASSICAL"},
    {"dance", "DANCE"},
    {"house", "DANCE"},
    {"trance", "DANCE"},
    {"disco", "DANCE"},
    {"dance-pop", "DANCE"},
    {"eurodance", "DANCE"},
    {"hip hop", "HIPHOP"},
    {"hip-hop", "HIPHOP"},
    {"rap", "HIPHOP"},
    {"j-pop", "JPOP"},
    {"jpop", "JPOP"},
    {"latin", "LATIN"},
    {"salsa", "LATIN"},
    {"bossa nova", "LATIN"},
    {"tango", "LATIN"},
    {"reggaeton", "LATIN"},
    {"pop", "POP"},
    {"pop rock", "POP"},
    {"indie pop", "POP"},
    {"k-pop", "POP"},
    {"reggae", "REGGAE"},
    {"ska", "REGGAE"},
    {"dub", "REGGAE"},
    {"dancehall", "REGGAE"},
    {"soundtrack", "SOUNDTRACK"},
    {"film score", "SOUNDTRACK"},
    {"video game music", "SOUNDTRACK"},
    {"misc", "OTHER"},
    {"newage", "OTHER"},
    {"data", "OTHER"},
};

// Lower case (ASCII letters only) without the spaces around it.
std::string normalised(const std::string& genre) {
    const size_t first = genre.find_first_not_of(" \t");
    if (first == std::string::npos) {
        return std::string();
    }
    const size_t last = genre.find_last_not_of(" \t");
    std::string text = genre.substr(first, last - first + 1);
    for (char& c : text) {
        if (c >= 'A' && c <= 'Z') {
            c = static_cast<char>(c - 'A' + 'a');
        }
    }
    return text;
}

const Entry* find(const std::string& genre) {
    const std::string name = normalised(genre);
    for (const Entry& entry : kTable) {
        if (name == entry.name) {
            return &entry;
        }
    }
    return nullptr;
}

}  // namespace

std::string GenreMap::codeOf(const std::string& genre) {
    const Entry* entry = find(genre);
    return entry == nullptr ? kOther : entry->code;
}

bool GenreMap::knows(const std::string& genre) {
    return find(genre) != nullptr;
}

}  // namespace moxphone
