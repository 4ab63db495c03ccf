// Feeds arbitrary text to the phone simulator's reader of MusicBrainz
// answers (MusicBrainzParser), as the answer to the lookup of one disc of
// three tracks.
//
// Nothing may crash or hang; every album found names a medium it has, and
// its texts fit a response database.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "moxdb/DbBytes.h"
#include "moxdb/DbRecords.h"
#include "moxphone/MusicBrainzParser.h"

namespace {

moxphone::DiscQuery disc() {
    moxphone::DiscQuery query;
    query.toc = "0000960046E6008D3600D386";
    query.tracks = {150, 18150, 36150};
    query.leadOut = 54150;
    query.musicBrainzId = "LyYHtwByCwAcdhuXmLHF.KGB224-";
    query.freedbId = "1802d003";
    return query;
}

void check(bool condition) {
    if (!condition) {
        std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    std::vector<moxphone::FoundAlbum> albums;
    std::string why;
    if (!moxphone::MusicBrainzParser::parse(text, disc(), &albums, &why)) {
        check(!why.empty() && why.find('\n') == std::string::npos);
        return 0;
    }
    for (const moxphone::FoundAlbum& found : albums) {
        check(found.medium >= 1 && found.medium <= found.album.media.size());
        check(moxdb::utf8ToUtf16(found.album.title).size() <= moxdb::kStringMaxUnits);
    }
    return 0;
}
