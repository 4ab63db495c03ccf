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
    // The tracks that libdiscid counts, as it does reading a drive: the
    // audio tracks above, and a data track 1 before them (a mixed-mode disc);
    // a data track after them is left out and moves the lead-out.
    uint32 idFirst = 0;
    std::vector<uint32> idOffsets;
    // The tracks that cd-discid counts: every track of the disc's TOC, data
    // tracks too, and the disc's own lead-out.
    std::vector<uint32> allOffsets;
    uint32 discLeadOut = 0;
    // libdiscid's values for idFirst, idOffsets and leadOut; empty when it
    // refuses them (a disc longer than it accepts), and then `idsNote` says
    // why.
    std::string musicBrainzId;  // 28 characters
    std::string freedbId;       // 8 lower-case hexadecimal digits
    std::string tocString;      // libdiscid's TOC string
    std::string submissionUrl;  // MusicBrainz's submission URL
    std::string idsNote;
    // cd-discid's FreeDB ID and line, by the formula, for allOffsets and
    // discLeadOut.
    std::string cdDiscidId;
    std::string cdDiscidLine;
};

#endif  // MOX_TOOLS_DISCTOC_H
