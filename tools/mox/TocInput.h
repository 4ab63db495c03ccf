// TOC text from what a user gives the tools. The module treats the text as
// opaque; the tools write it by one convention: six upper-case hexadecimal
// digits of the frame offset (LBA + 150) per track, then one for the lead-out.
#ifndef MOX_TOOLS_TOCINPUT_H
#define MOX_TOOLS_TOCINPUT_H

#include <string>
#include <vector>

#include "HbFramework/HbTypes.h"

// Largest number of tracks on a CD.
const size_t MAX_CD_TRACKS = 99;

// `offsets` holds the frame offsets of the tracks, then of the lead-out. They
// must increase strictly, start at 150 or later (LBA 0) and fit six
// hexadecimal digits, for 1 to 99 tracks. False with a one-line reason
// otherwise.
bool tocFromOffsets(const std::vector<uint32>& offsets, std::string* toc, std::string* why);

// Most characters of a TOC text: 99 tracks and the lead-out.
const size_t MAX_TOC_TEXT_CHARACTERS = 6 * (MAX_CD_TRACKS + 1);

// Reads a TOC text written by the tools' convention into the frame offsets of
// its tracks, then of its lead-out: upper-case hexadecimal digits only, six
// per entry, at least one track and the lead-out, at most 99 tracks, offsets
// from 150 (LBA 0) on that increase strictly. False with a one-line reason
// that names the first thing that breaks it (the text itself is not quoted:
// it may be long or hold control characters).
bool offsetsFromTocText(const std::string& text, std::vector<uint32>* offsets, std::string* why);

#endif  // MOX_TOOLS_TOCINPUT_H
