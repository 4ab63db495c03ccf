#include "TextEscape.h"

#include <utf8proc.h>

#include <algorithm>

namespace {

const char HEX[] = "0123456789abcdef";

// One character of a text: its code point (-1 for a byte that starts no
// valid UTF-8 sequence) and its length in bytes.
struct Character {
    utf8proc_int32_t codePoint;
    size_t bytes;
};

Character characterAt(const std::string& text, size_t at) {
    utf8proc_int32_t codePoint = -1;
    const utf8proc_ssize_t length =
        utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data() + at),
                         static_cast<utf8proc_ssize_t>(text.size() - at), &codePoint);
    if (length <= 0) {
        return Character{-1, 1};
    }
    return Character{codePoint, static_cast<size_t>(length)};
}

// C1 controls, line and paragraph separators, bidirectional embeddings,
// overrides and isolates: characters that act on a terminal or on the order
// of what follows them.
bool actsOnTheTerminal(utf8proc_int32_t codePoint) {
    return (codePoint >= 0x80 && codePoint <= 0x9f) || codePoint == 0x2028 || codePoint == 0x2029 ||
           (codePoint >= 0x202a && codePoint <= 0x202e) ||
           (codePoint >= 0x2066 && codePoint <= 0x2069);
}

void appendByteEscape(unsigned char byte, std::string& out) {
    out += "\\x";
    out += HEX[byte >> 4];
    out += HEX[byte & 0x0f];
}

void appendCodePointEscape(utf8proc_int32_t codePoint, std::string& out) {
    out += "\\u";
    for (int shift = 12; shift >= 0; shift -= 4) {
        out += HEX[(codePoint >> shift) & 0x0f];
    }
}

}  // namespace

std::string escapeControlCharacters(const std::string& text) {
    std::string out;
    size_t at = 0;
    while (at < text.size()) {
        const Character character = characterAt(text, at);
        const unsigned char byte = static_cast<unsigned char>(text[at]);
        if (byte == '\\') {
            out += "\\\\";
        } else if (character.codePoint < 0 || byte < 0x20 || byte == 0x7f) {
            appendByteEscape(byte, out);
        } else if (actsOnTheTerminal(character.codePoint)) {
            appendCodePointEscape(character.codePoint, out);
        } else {
            out.append(text, at, character.bytes);
        }
        at += character.bytes;
    }
    return out;
}

size_t terminalCells(const std::string& text) {
    size_t cells = 0;
    size_t clusterCells = 0;
    utf8proc_int32_t previous = -1;
    utf8proc_int32_t state = 0;
    size_t at = 0;
    while (at < text.size()) {
        const Character character = characterAt(text, at);
        at += character.bytes;
        if (character.codePoint < 0) {
            cells += clusterCells + 1;
            clusterCells = 0;
            previous = -1;
            state = 0;
            continue;
        }
        if (previous >= 0 &&
            utf8proc_grapheme_break_stateful(previous, character.codePoint, &state)) {
            cells += clusterCells;
            clusterCells = 0;
        }
        const int width = utf8proc_charwidth(character.codePoint);
        clusterCells = std::max(clusterCells, static_cast<size_t>(std::max(width, 0)));
        previous = character.codePoint;
    }
    return cells + clusterCells;
}

std::string padToCells(const std::string& text, size_t cells) {
    const size_t used = terminalCells(text);
    return used >= cells ? text : text + std::string(cells - used, ' ');
}
