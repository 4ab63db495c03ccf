// TOC text of the tools: six upper-case hex digits of LBA + 150 per entry.
#include "moxdb/TocText.h"

#include <cstdio>

namespace moxdb {

namespace {

// A CD's first track starts 150 frames (two seconds) after the disc's start.
constexpr uint32_t kLeadInFrames = 150;
constexpr size_t kEntryDigits = 6;
constexpr size_t kMaxTracks = 99;

void appendEntry(std::string& out, uint32_t lba) {
    char entry[16];
    const unsigned long long frames = static_cast<unsigned long long>(lba) + kLeadInFrames;
    std::snprintf(entry, sizeof(entry), "%06llX", frames);
    out += entry;
}

// The value of one upper-case hexadecimal digit, or -1.
int hexDigit(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

bool parseEntry(const std::string& text, size_t at, uint32_t* offset) {
    uint32_t value = 0;
    for (size_t i = at; i < at + kEntryDigits; ++i) {
        const int digit = hexDigit(text[i]);
        if (digit < 0) {
            return false;
        }
        value = value * 16u + static_cast<uint32_t>(digit);
    }
    *offset = value;
    return true;
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

bool parseTocText(const std::string& text, std::vector<uint32_t>* frameOffsets) {
    if (text.size() % kEntryDigits != 0) {
        return false;
    }
    const size_t entries = text.size() / kEntryDigits;
    if (entries < 2 || entries - 1 > kMaxTracks) {
        return false;
    }
    std::vector<uint32_t> offsets;
    for (size_t i = 0; i < entries; ++i) {
        uint32_t offset = 0;
        if (!parseEntry(text, i * kEntryDigits, &offset) || offset < kLeadInFrames) {
            return false;
        }
        if (!offsets.empty() && offset <= offsets.back()) {
            return false;
        }
        offsets.push_back(offset);
    }
    *frameOffsets = offsets;
    return true;
}

}  // namespace moxdb
