// What the tools know of a disc once its TOC is read: the audio tracks of its
// first session, its lead-out, the TOC text and the disc IDs people look it up by.
#ifndef MOX_TOOLS_DISCTOC_H
#define MOX_TOOLS_DISCTOC_H

#include <string>
#include <vector>

#include "HbFramework/HbTypes.h"

struct DiscToc {
    // TOC text: six upper-case hexadecimal digits of each frame offset, the
    // audio tracks first, then the lead-out.
    std::string toc;
    uint32 first = 0;  // number of the first audio track (1 on almost every disc)
    uint32 last = 0;   // number of the last audio track
    // Frame offsets (LBA + 150) of the audio tracks first..last.
    std::vector<uint32> offsets;
    // Frame offset of the lead-out; with a data track after the audio, that
    // track's offset minus 11400.
    uint32 leadOut = 0;
    // A data track was left out; its number and frame offset (0 without one).
    bool dataTrack = false;
    uint32 dataTrackNumber = 0;
    uint32 dataTrackOffset = 0;
    std::string musicBrainzId;  // 28 characters
    std::string freedbId;       // 8 lower-case hexadecimal digits
};

#endif  // MOX_TOOLS_DISCTOC_H
