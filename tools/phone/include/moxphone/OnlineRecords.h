// What the online sources of the simulator work with: the disc as the
// request gives it (TOC text, frame offsets, disc IDs) and the candidate
// albums a service answers for it, in the catalogue's own terms, so that
// every source's answer is built into a response database the same way.
#ifndef MOXPHONE_ONLINERECORDS_H
#define MOXPHONE_ONLINERECORDS_H

#include <cstdint>
#include <string>
#include <vector>

#include "moxphone/CatalogueRecords.h"

namespace moxphone {

// The looked-up disc.
struct DiscQuery {
    std::string toc;               // TOC text of the request
    std::vector<uint32_t> tracks;  // frame offsets (LBA + 150) of tracks 1, 2, ...
    uint32_t leadOut = 0;          // frame offset of the lead-out
    std::string musicBrainzId;     // 28 characters
    std::string freedbId;          // 8 lower-case hexadecimal digits
};

// One candidate album of the disc: the album with every medium, which of its
// media the disc is, and how sure the service is.
struct FoundAlbum {
    CatalogueAlbum album;
    uint16_t medium = 1;
    int32_t confidence = 0;
};

}  // namespace moxphone

#endif  // MOXPHONE_ONLINERECORDS_H
