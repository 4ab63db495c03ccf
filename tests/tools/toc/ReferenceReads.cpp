#include "ReferenceReads.h"

#include <cdio/cdio.h>
#include <cdio/memory.h>
#include <discid/discid.h>
#include <unistd.h>

#include <cstdlib>

namespace {

// libcdio opens the files of a cdrdao TOC file relative to the working
// directory; the tests' TOC files name them relative to themselves.
CdIo_t* openCdrdaoFromItsDirectory(const std::string& path) {
    char* here = ::getcwd(nullptr, 0);
    const size_t slash = path.rfind('/');
    if (here == nullptr || slash == std::string::npos ||
        ::chdir(path.substr(0, slash).c_str()) != 0) {
        std::free(here);
        return cdio_open_cdrdao(path.c_str());
    }
    CdIo_t* cdio = cdio_open_cdrdao(path.c_str() + slash + 1);
    const int back = ::chdir(here);
    std::free(here);
    return back == 0 ? cdio : nullptr;
}

}  // namespace

CdioTrackList readWithLibcdio(const std::string& path, CdioImageKind kind) {
    CdioTrackList list;
    CdIo_t* cdio = kind == CdioImageKind::BIN_CUE ? cdio_open_cue(path.c_str())
                                                  : openCdrdaoFromItsDirectory(path);
    if (cdio == nullptr) {
        return list;
    }
    list.opened = true;
    list.first = cdio_get_first_track_num(cdio);
    const unsigned int count = cdio_get_num_tracks(cdio);
    for (unsigned int t = list.first; t < list.first + count; ++t) {
        const track_t track = static_cast<track_t>(t);
        list.offsets.push_back(static_cast<uint32_t>(cdio_get_track_lba(cdio, track)));
        list.audio.push_back(cdio_get_track_format(cdio, track) == TRACK_FORMAT_AUDIO);
    }
    list.leadOut = static_cast<uint32_t>(cdio_get_track_lba(cdio, CDIO_CDROM_LEADOUT_TRACK));
    cdio_destroy(cdio);
    return list;
}

DiscIdPair idsFromLibdiscid(uint32_t first, const std::vector<uint32_t>& offsets,
                            uint32_t leadOut) {
    DiscIdPair ids;
    int table[100] = {};
    table[0] = static_cast<int>(leadOut);
    for (size_t i = 0; i < offsets.size() && first + i < 100; ++i) {
        table[first + i] = static_cast<int>(offsets[i]);
    }
    DiscId* disc = discid_new();
    const int last = static_cast<int>(first + offsets.size()) - 1;
    if (discid_put(disc, static_cast<int>(first), last, table)) {
        ids.musicBrainz = discid_get_id(disc);
        ids.freedb = discid_get_freedb_id(disc);
    }
    discid_free(disc);
    return ids;
}
