// TOC text as the tools write it: one entry per track and one for the
// lead-out, each six upper-case hexadecimal digits of the frame offset
// (LBA + 150). The module compares the text byte for byte and derives the
// expected track count from its length (length / 6 - 1).
#ifndef MOXDB_TOCTEXT_H
#define MOXDB_TOCTEXT_H

#include <cstdint>
#include <string>
#include <vector>

namespace moxdb {

// Tracks at LBA 0, 18000, 36000 with the lead-out at 54000 give
// "0000960046E6008D3600D386". A frame offset above 0xFFFFFF (far beyond any
// CD) is written with all its digits, so such an entry is longer than six.
std::string makeTocText(const std::vector<uint32_t>& trackLbas, uint32_t leadOutLba);

// The TOC text of a disc of `tracks` tracks, 15000 frames apart from LBA 0,
// with the lead-out 9000 frames after the last: 6 * (tracks + 1) bytes.
std::string makeTocTextOfTracks(uint32_t tracks);

// The frame offsets of a TOC text written by the convention above: the
// tracks' first, then the lead-out's. False for any other text: a length
// that is not a multiple of six, fewer than one track or more than 99, a
// character that is not an upper-case hexadecimal digit, an offset below 150
// or offsets that do not increase strictly.
bool parseTocText(const std::string& text, std::vector<uint32_t>* frameOffsets);

}  // namespace moxdb

#endif  // MOXDB_TOCTEXT_H
