// Every track of a disc as an image or a drive lists it, and the rule that
// picks the tracks whose offsets make the TOC.
#ifndef MOX_TOOLS_DISCLAYOUT_H
#define MOX_TOOLS_DISCLAYOUT_H

#include <string>
#include <vector>

#include "DiscToc.h"
#include "HbFramework/HbTypes.h"

// Frames between the start of a data track in a second session and the end of
// the audio before it (lead-out, lead-in and pregap of the new session); disc
// IDs take the audio's lead-out to lie that far before the data track.
const uint32 DATA_TRACK_GAP_FRAMES = 11400;

struct DiscTrack {
    uint32 number = 0;
    uint32 offset = 0;  // frame offset (LBA + 150)
    bool audio = true;
    bool firstSession = true;
};

struct DiscLayout {
    std::vector<DiscTrack> tracks;  // in disc order
    uint32 leadOut = 0;             // frame offset of the disc's lead-out
};

// Fills first, last, offsets, leadOut and the data-track fields of `toc` with
// the audio tracks of the first session: from the first audio track up to the
// first data track or later-session track. A data track after the audio moves
// the lead-out to that track's offset minus DATA_TRACK_GAP_FRAMES. False with
// a one-line reason when the disc has no audio track or the moved lead-out
// would not follow the last audio track. Also fills the tracks that libdiscid
// and cd-discid count (idFirst, idOffsets, allOffsets, discLeadOut).
bool selectAudioTracks(const DiscLayout& layout, DiscToc* toc, std::string* why);

#endif  // MOX_TOOLS_DISCLAYOUT_H
