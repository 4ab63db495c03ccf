// Text from an online service, made fit for a response database: bytes in
// UTF-8 or in Latin-1 (ISO 8859-1, what older CDDB servers send) become
// UTF-8, and a text longer than a response database holds is cut at a
// character's boundary.
#ifndef MOXPHONE_ONLINETEXT_H
#define MOXPHONE_ONLINETEXT_H

#include <string>

namespace moxphone {

class OnlineText {
public:
    // True when `bytes` are well-formed UTF-8 (no overlong forms, no
    // surrogates, nothing above U+10FFFF).
    static bool isUtf8(const std::string& bytes);
    // `bytes` as they are when they are UTF-8; otherwise read as Latin-1,
    // each byte one character.
    static std::string decode(const std::string& bytes);
    // `utf8` cut to the longest start of whole characters that a response
    // database holds (moxdb::kStringMaxUnits UTF-16 units).
    static std::string fit(const std::string& utf8);
};

}  // namespace moxphone

#endif  // MOXPHONE_ONLINETEXT_H
