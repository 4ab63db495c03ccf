// What the libraries themselves read, for the TOC tests to compare with:
// libcdio's own API on an image, and libdiscid's IDs for a TOC.
#ifndef MOX_TESTS_REFERENCEREADS_H
#define MOX_TESTS_REFERENCEREADS_H

#include <cstdint>
#include <string>
#include <vector>

struct CdioTrackList {
    bool opened = false;
    uint32_t first = 0;
    std::vector<uint32_t> offsets;  // every track's cdio_get_track_lba (LBA + 150)
    std::vector<bool> audio;        // cdio_get_track_format == TRACK_FORMAT_AUDIO
    uint32_t leadOut = 0;
};

struct DiscIdPair {
    std::string musicBrainz;
    std::string freedb;
};

enum class CdioImageKind { BIN_CUE, CDRDAO };

// Opens `path` with cdio_open_cue or cdio_open_cdrdao (from the TOC file's own
// directory) and lists its tracks.
CdioTrackList readWithLibcdio(const std::string& path, CdioImageKind kind);

// discid_put on tracks first.. with `offsets` and `leadOut`; empty IDs when
// libdiscid refuses them.
DiscIdPair idsFromLibdiscid(uint32_t first, const std::vector<uint32_t>& offsets, uint32_t leadOut);

#endif  // MOX_TESTS_REFERENCEREADS_H
