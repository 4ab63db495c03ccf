// The module's text form of an album, one line, as `mox search --records`
// prints it (tests/cli/StoredSearchTest.cpp compares it with the module's).
//
// Strings stop at their first zero byte. The first "0x" field switches the
// line to hexadecimal with fill '0' for good, so the track count and the
// track indexes after it are hexadecimal too (the index of the first track is
// written before any switch of its own list); AlbumLang and Database are
// written as raw characters after their "0x".
#ifndef MOX_TOOLS_ALBUMTEXT_H
#define MOX_TOOLS_ALBUMTEXT_H

#include <string>
#include <vector>

#include "HbSMoxDef.h"

class AlbumText {
public:
    static std::string of(const HbSMoxDef::AlbumInfo& album);

private:
    // The tracks' part, "Track[i]GenreID=0x... , ..." with no separator
    // between two tracks.
    static std::string tracksOf(const std::vector<HbSMoxDef::TrackInfo>& tracks);
};

#endif  // MOX_TOOLS_ALBUMTEXT_H
