// UTF-8 encoding shared by the host framework's string conversions (internal).
#ifndef HB_HOST_HBUTF8_H
#define HB_HOST_HBUTF8_H

#include <string>

#include "HbFramework/HbTypes.h"

// Appends code point `cp` to `out` as UTF-8; a surrogate or a value beyond
// U+10FFFF is written as U+FFFD, so the result is always valid UTF-8.
inline void hbAppendUtf8(std::string& out, uint32 cp) {
    if (cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) {
        cp = 0xFFFD;
    }
    if (cp < 0x80) {
        out.push_back(static_cast<char>(cp));
    } else if (cp < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else if (cp < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    }
}

#endif  // HB_HOST_HBUTF8_H
