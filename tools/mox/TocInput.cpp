#include "TocInput.h"

#include "moxdb/TocText.h"

namespace {

const uint32 FIRST_FRAME_OFFSET = 150;      // frame offset of LBA 0
const uint32 LAST_FRAME_OFFSET = 0xFFFFFF;  // six hexadecimal digits

}  // namespace

bool tocFromOffsets(const std::vector<uint32>& offsets, std::string* toc, std::string* why) {
    if (offsets.size() < 2) {
        *why = "give the offsets of at least one track and of the lead-out";
        return false;
    }
    if (offsets.size() - 1 > MAX_CD_TRACKS) {
        *why = std::to_string(offsets.size() - 1) + " tracks: a CD holds at most 99";
        return false;
    }
    std::vector<uint32_t> lbas;
    for (size_t i = 0; i < offsets.size(); ++i) {
        if (offsets[i] < FIRST_FRAME_OFFSET || offsets[i] > LAST_FRAME_OFFSET) {
            *why = "offset " + std::to_string(offsets[i]) + " lies outside 150.." +
                   std::to_string(LAST_FRAME_OFFSET);
            return false;
        }
        if (i > 0 && offsets[i] <= offsets[i - 1]) {
            *why = "offsets do not increase: " + std::to_string(offsets[i - 1]) + " then " +
                   std::to_string(offsets[i]);
            return false;
        }
        lbas.push_back(offsets[i] - FIRST_FRAME_OFFSET);
    }
    const uint32_t leadOut = lbas.back();
    lbas.pop_back();
    *toc = moxdb::makeTocText(lbas, leadOut);
    return true;
}
