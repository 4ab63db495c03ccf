// The genre code of the response database (one of the 18 the module knows)
// for a genre as online services name it: a MusicBrainz genre ("alternative
// rock", "j-pop"), a CDDB category ("newage") or an xmcd DGENRE text. Case
// and the spaces around it do not matter; a genre the table does not name
// gives "OTHER". The table is documented in docs/simulator.md.
#ifndef MOXPHONE_GENREMAP_H
#define MOXPHONE_GENREMAP_H

#include <string>

namespace moxphone {

class GenreMap {
public:
    static constexpr const char* kOther = "OTHER";

    // The code of `genre`, or kOther.
    static std::string codeOf(const std::string& genre);
    // True when the table names `genre` (its code may still be kOther).
    static bool knows(const std::string& genre);
};

}  // namespace moxphone

#endif  // MOXPHONE_GENREMAP_H
