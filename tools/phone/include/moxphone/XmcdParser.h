// One xmcd entry (the body of a CDDB read), read as untrusted input, as a
// one-medium album:
//
//   DTITLE=Artist / Title          the artist before the first " / ", the
//                                  title after it (both the whole text
//                                  without one); repeated keys continue it
//   DGENRE=Alternative Rock        the genre, when GenreMap knows it; else
//                                  the CDDB category's
//   TTITLE0=First track            track 1; repeated TTITLE0 lines continue
//   TTITLE0= title                 it ("First track title")
//
// On a disc of various artists (DTITLE's artist "Various" or "Various
// Artists"), a track title "Artist / Title" names the track's performer.
// Escapes \n, \t and \\ become a space, a space and a backslash. EXTD, EXTT,
// DYEAR, PLAYORDER and comments are ignored. The album identifier is
// "<category>/<discid>"; the language is "". Tracks missing between two
// TTITLEn lines get an empty title. The text must already be UTF-8
// (OnlineText::decode).
#ifndef MOXPHONE_XMCDPARSER_H
#define MOXPHONE_XMCDPARSER_H

#include <cstddef>
#include <string>

#include "moxphone/CatalogueRecords.h"

namespace moxphone {

class XmcdParser {
public:
    // TTITLEn with n from 0 to kMaxTracks - 1 are read.
    static constexpr size_t kMaxTracks = 99;

    // The album of `entry`. False, with a one-line reason, without DTITLE or
    // without any TTITLEn.
    static bool parse(const std::string& entry, const std::string& category,
                      const std::string& discId, CatalogueAlbum* album, std::string* why);
};

}  // namespace moxphone

#endif  // MOXPHONE_XMCDPARSER_H
