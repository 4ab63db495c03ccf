// A disc's TOC from whatever the user has: frame offsets typed in, a CUE
// sheet, an image file or the CD in a drive. Every subcommand that takes a
// disc reads it through readDiscToc().
#ifndef MOX_TOOLS_TOCSOURCE_H
#define MOX_TOOLS_TOCSOURCE_H

#include <string>
#include <vector>

#include "DiscToc.h"
#include "HbFramework/HbTypes.h"

enum class TocOrigin {
    OFFSETS,  // `offsets`: frame offsets of the tracks, then of the lead-out
    CUE,      // `path`: a CUE sheet (BIN/CUE, or one WAV or FLAC file per track)
    IMAGE,    // `path`: a BIN/CUE image, a cdrdao TOC file or an NRG image
    DEVICE    // `path`: a CD drive; empty for the default drive
};

struct TocRequest {
    TocOrigin origin = TocOrigin::OFFSETS;
    std::vector<uint32> offsets;
    std::string path;
};

// Reads the TOC that `request` names into `out`: the audio tracks of the first
// session, the TOC text and the disc IDs. False with a one-line reason (naming
// the file or drive at fault) for anything that does not give 1 to 99 audio
// tracks with increasing offsets.
bool readDiscToc(const TocRequest& request, DiscToc* out, std::string* why);

#endif  // MOX_TOOLS_TOCSOURCE_H
