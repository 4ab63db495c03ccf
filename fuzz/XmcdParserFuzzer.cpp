// Feeds arbitrary bytes to the phone simulator's readers of CDDB answers:
// as a query answer (CddbProtocol::parseQuery) and as a read answer whose
// xmcd entry becomes an album (CddbProtocol::parseRead, XmcdParser), after
// the Latin-1 or UTF-8 decoding of OnlineText.
//
// Nothing may crash or hang; the decoded text is UTF-8, matches are words
// fit for a request, and an album has one medium of at most 99 tracks.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "moxphone/CddbProtocol.h"
#include "moxphone/OnlineText.h"
#include "moxphone/XmcdParser.h"

namespace {

void check(bool condition) {
    if (!condition) {
        std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text =
        moxphone::OnlineText::decode(std::string(reinterpret_cast<const char*>(data), size));
    check(moxphone::OnlineText::isUtf8(text));
    std::vector<moxphone::CddbProtocol::Match> matches;
    std::string why;
    moxphone::CddbProtocol::parseQuery(text, &matches, &why);
    for (const moxphone::CddbProtocol::Match& match : matches) {
        check(moxphone::CddbProtocol::isWord(match.category));
        check(moxphone::CddbProtocol::isWord(match.discId));
    }
    std::string entry;
    if (!moxphone::CddbProtocol::parseRead(text, &entry, &why)) {
        entry = text;  // the entry alone, as if its status line had come
    }
    moxphone::CatalogueAlbum album;
    if (!moxphone::XmcdParser::parse(entry, "rock", "1802d003", &album, &why)) {
        return 0;
    }
    check(album.media.size() == 1);
    check(album.media[0].tracks.size() <= moxphone::XmcdParser::kMaxTracks);
    return 0;
}
