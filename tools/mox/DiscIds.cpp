#include "DiscIds.h"

#include <discid/discid.h>

namespace {

const uint32 MAX_TRACK_NUMBER = 99;

}  // namespace

bool computeDiscIds(uint32 first, const std::vector<uint32>& offsets, uint32 leadOut,
                    std::string* musicBrainzId, std::string* freedbId, std::string* why) {
    if (offsets.empty() || first < 1 || first + offsets.size() - 1 > MAX_TRACK_NUMBER) {
        *why = "disc IDs need tracks numbered 1 to 99";
        return false;
    }
    const uint32 last = first + static_cast<uint32>(offsets.size()) - 1;
    // libdiscid's table: the lead-out first, then each track at its number.
    int table[MAX_TRACK_NUMBER + 1] = {};
    table[0] = static_cast<int>(leadOut);
    for (size_t i = 0; i < offsets.size(); ++i) {
        table[first + i] = static_cast<int>(offsets[i]);
    }
    DiscId* disc = discid_new();
    if (disc == nullptr) {
        *why = "libdiscid: out of memory";
        return false;
    }
    const bool put = discid_put(disc, static_cast<int>(first), static_cast<int>(last), table) != 0;
    if (put) {
        *musicBrainzId = discid_get_id(disc);
        *freedbId = discid_get_freedb_id(disc);
    } else {
        *why = std::string("libdiscid refuses the TOC: ") + discid_get_error_msg(disc);
    }
    discid_free(disc);
    return put;
}
