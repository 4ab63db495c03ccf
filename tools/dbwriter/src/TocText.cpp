// TOC text of the tools: six upper-case hex digits of LBA + 150 per entry.
#include "moxdb/TocText.h"

#include <cstdio>

namespace moxdb {

namespace {

// A CD's first track starts 150 frames (two seconds) after the disc's start.
constexpr uint32_t kLeadInFrames = 150;

void appendEntry(std::string& out, uint32_t lba) {
    char entry[16];
    const unsigned long long frames = static_cast<unsigned long long>(lba) + kLeadInFrames;
    std::snprintf(entry, sizeof(entry), "%06llX", frames);
    out += entry;
}

}  // namespace

std::string makeTocText(const std::vector<uint32_t>& trackLbas, uint32_t leadOutLba) {
    std::string text;
    for (uint32_t lba : trackLbas) {
        appendEntry(text, lba);
    }
    appendEntry(text, leadOutLba);
    return text;
}

std::string makeTocTextOfTracks(uint32_t tracks) {
    std::vector<uint32_t> lbas;
    for (uint32_t i = 0; i < tracks; ++i) {
        lbas.push_back(i * 15000u);
    }
    return makeTocText(lbas, tracks * 15000u + 9000u);
}

}  // namespace moxdb
