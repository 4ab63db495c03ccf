// The disc IDs that CD users know: MusicBrainz and FreeDB, both computed by
// libdiscid from the frame offsets of the audio tracks and the lead-out.
#ifndef MOX_TOOLS_DISCIDS_H
#define MOX_TOOLS_DISCIDS_H

#include <string>
#include <vector>

#include "HbFramework/HbTypes.h"

// `offsets` holds the frame offsets of tracks first, first + 1, ... (at most
// track 99). Fills `musicBrainzId` and `freedbId`; false with a one-line
// reason when libdiscid refuses the TOC.
bool computeDiscIds(uint32 first, const std::vector<uint32>& offsets, uint32 leadOut,
                    std::string* musicBrainzId, std::string* freedbId, std::string* why);

#endif  // MOX_TOOLS_DISCIDS_H
