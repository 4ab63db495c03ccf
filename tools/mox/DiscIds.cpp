#include "DiscIds.h"

#include <discid/discid.h>

#include <cstdio>

namespace {

const uint32 MAX_TRACK_NUMBER = 99;
const uint32 FRAMES_PER_SECOND = 75;

uint32 digitSum(uint32 number) {
    uint32 sum = 0;
    for (; number > 0; number /= 10) {
        sum += number % 10;
    }
    return sum;
}

}  // namespace

bool computeLibdiscidValues(uint32 first, const std::vector<uint32>& offsets, uint32 leadOut,
                            LibdiscidValues* values, std::string* why) {
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
        values->musicBrainzId = discid_get_id(disc);
        values->freedbId = discid_get_freedb_id(disc);
        values->tocString = discid_get_toc_string(disc);
        values->submissionUrl = discid_get_submission_url(disc);
    } else {
        *why = std::string("libdiscid refuses the TOC: ") + discid_get_error_msg(disc);
    }
    discid_free(disc);
    return put;
}

bool computeDiscIds(uint32 first, const std::vector<uint32>& offsets, uint32 leadOut,
                    std::string* musicBrainzId, std::string* freedbId, std::string* why) {
    LibdiscidValues values;
    if (!computeLibdiscidValues(first, offsets, leadOut, &values, why)) {
        return false;
    }
    *musicBrainzId = values.musicBrainzId;
    *freedbId = values.freedbId;
    return true;
}

std::string freedbFormula(const std::vector<uint32>& offsets, uint32 leadOut) {
    uint32 sum = 0;
    for (uint32 offset : offsets) {
        sum += digitSum(offset / FRAMES_PER_SECOND);
    }
    const uint32 start = offsets.empty() ? 0 : offsets.front() / FRAMES_PER_SECOND;
    const uint32 length = leadOut / FRAMES_PER_SECOND - start;
    const uint32 id = ((sum % 255) << 24) | ((length & 0xFFFF) << 8) |
                      (static_cast<uint32>(offsets.size()) & 0xFF);
    char text[9];
    std::snprintf(text, sizeof(text), "%08x", id);
    return text;
}

std::string cdDiscidLine(const std::vector<uint32>& offsets, uint32 leadOut) {
    std::string line = freedbFormula(offsets, leadOut) + " " + std::to_string(offsets.size());
    for (uint32 offset : offsets) {
        line += " " + std::to_string(offset);
    }
    return line + " " + std::to_string(leadOut / FRAMES_PER_SECOND);
}
