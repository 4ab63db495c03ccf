// UTF-8 checks, Latin-1 decoding and the length bound of database texts.
#include "moxphone/OnlineText.h"

#include <cstdint>

#include "moxdb/DbRecords.h"

namespace moxphone {

namespace {

// Bytes of the UTF-8 character that starts at `at` (1 to 4), or 0 when no
// well-formed character starts there. `units` gets its UTF-16 units.
size_t characterAt(const std::string& text, size_t at, size_t* units) {
    const unsigned char lead = static_cast<unsigned char>(text[at]);
    *units = 1;
    if (lead < 0x80) {
        return 1;
    }
    size_t length = 0;
    uint32_t value = 0;
    uint32_t smallest = 0;
    if ((lead & 0xE0) == 0xC0) {
        length = 2;
        value = lead & 0x1Fu;
        smallest = 0x80;
    } else if ((lead & 0xF0) == 0xE0) {
        length = 3;
        value = lead & 0x0Fu;
        smallest = 0x800;
    } else if ((lead & 0xF8) == 0xF0) {
        length = 4;
        value = lead & 0x07u;
        smallest = 0x10000;
    } else {
        return 0;
    }
    if (text.size() - at < length) {
        return 0;
    }
    for (size_t i = 1; i < length; ++i) {
        const unsigned char next = static_cast<unsigned char>(text[at + i]);
        if ((next & 0xC0) != 0x80) {
            return 0;
        }
        value = (value << 6) | (next & 0x3Fu);
    }
    const bool surrogate = value >= 0xD800 && value <= 0xDFFF;
    if (value < smallest || value > 0x10FFFF || surrogate) {
        return 0;
    }
    *units = value >= 0x10000 ? 2 : 1;
    return length;
}

}  // namespace

bool OnlineText::isUtf8(const std::string& bytes) {
    size_t at = 0;
    while (at < bytes.size()) {
        size_t units = 0;
        const size_t length = characterAt(bytes, at, &units);
        if (length == 0) {
            return false;
        }
        at += length;
    }
    return true;
}

std::string OnlineText::decode(const std::string& bytes) {
    if (isUtf8(bytes)) {
        return bytes;
    }
    std::string text;
    text.reserve(bytes.size() * 2);
    for (const char c : bytes) {
        const unsigned char byte = static_cast<unsigned char>(c);
        if (byte < 0x80) {
            text += c;
            continue;
        }
        text += static_cast<char>(0xC0 | (byte >> 6));
        text += static_cast<char>(0x80 | (byte & 0x3F));
    }
    return text;
}

std::string OnlineText::fit(const std::string& utf8) {
    size_t at = 0;
    size_t total = 0;
    while (at < utf8.size()) {
        size_t units = 0;
        const size_t length = characterAt(utf8, at, &units);
        if (length == 0 || total + units > moxdb::kStringMaxUnits) {
            break;
        }
        total += units;
        at += length;
    }
    return utf8.substr(0, at);
}

}  // namespace moxphone
