// The disc IDs that CD users know, as the CD tools compute them:
// - libdiscid (MusicBrainz, and its FreeDB ID, TOC string and submission
//   URL) from the tracks that it counts;
// - cd-discid, the FreeDB formula over every track of a drive's TOC, data
//   tracks too, and the disc's own lead-out.
#ifndef MOX_TOOLS_DISCIDS_H
#define MOX_TOOLS_DISCIDS_H

#include <string>
#include <vector>

#include "HbFramework/HbTypes.h"

// What libdiscid computes for one TOC.
struct LibdiscidValues {
    std::string musicBrainzId;  // 28 characters
    std::string freedbId;       // 8 lower-case hexadecimal digits
    std::string tocString;      // "first last lead-out offset..."
    std::string submissionUrl;  // MusicBrainz's page to attach the disc ID
};

// `offsets` holds the frame offsets of tracks first, first + 1, ... (at most
// track 99). Fills `musicBrainzId` and `freedbId`; false with a one-line
// reason when libdiscid refuses the TOC.
bool computeDiscIds(uint32 first, const std::vector<uint32>& offsets, uint32 leadOut,
                    std::string* musicBrainzId, std::string* freedbId, std::string* why);

// As computeDiscIds, with every value that libdiscid gives.
bool computeLibdiscidValues(uint32 first, const std::vector<uint32>& offsets, uint32 leadOut,
                            LibdiscidValues* values, std::string* why);

// The FreeDB disc ID by its published formula: the sum of the decimal digit
// sums of each track's start in whole seconds (modulo 255), the disc's
// length in whole seconds from the first track to the lead-out, and the
// number of tracks; 8 lower-case hexadecimal digits. It has no length limit.
std::string freedbFormula(const std::vector<uint32>& offsets, uint32 leadOut);

// The line that cd-discid prints: the FreeDB ID, the number of tracks, each
// track's frame offset and the lead-out in whole seconds, space-separated.
std::string cdDiscidLine(const std::vector<uint32>& offsets, uint32 leadOut);

#endif  // MOX_TOOLS_DISCIDS_H
