// The answers of a CDDB server (the cddb.cgi protocol over HTTP, level 6),
// read as untrusted input:
//
//   cddb query:  "200 rock 7a0a5b09 Artist / Title"          one exact match
//                "210 Found exact matches, list follows ..."  then lines
//                "211 Found inexact matches, list follows ..." "categ discid
//                                                              title", then "."
//                "202 No match for disc ID 7a0a5b09."        not found
//   cddb read:   "210 rock 7a0a5b09 CD database entry follows ..." then the
//                xmcd entry, then "."
//
// Lines end with CR LF or LF. Text is UTF-8 or Latin-1 (OnlineText::decode).
#ifndef MOXPHONE_CDDBPROTOCOL_H
#define MOXPHONE_CDDBPROTOCOL_H

#include <cstddef>
#include <string>
#include <vector>

namespace moxphone {

class CddbProtocol {
public:
    // At most this many matches of a query are read.
    static constexpr size_t kMaxMatches = 20;

    struct Match {
        std::string category;  // "rock", "misc", ...
        std::string discId;    // as the server names it
        bool exact = false;    // from 200 or 210, not 211
    };

    enum class QueryResult { kMatches, kNotFound, kBroken };

    // The matches of a query answer; kBroken with a one-line reason for an
    // answer of another code or of the wrong form.
    static QueryResult parseQuery(const std::string& answer, std::vector<Match>* matches,
                                  std::string* why);
    // The xmcd entry of a read answer (between its status line and "."); false
    // with a one-line reason for any other answer.
    static bool parseRead(const std::string& answer, std::string* entry, std::string* why);
    // The lines of `text`, without their CR LF or LF.
    static std::vector<std::string> lines(const std::string& text);
    // A category or disc ID that may be put into a request: 1 to 32 letters,
    // digits, '-' or '_'.
    static bool isWord(const std::string& text);
};

}  // namespace moxphone

#endif  // MOXPHONE_CDDBPROTOCOL_H
