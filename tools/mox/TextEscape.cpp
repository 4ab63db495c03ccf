#include "TextEscape.h"

std::string escapeControlCharacters(const std::string& text) {
    static const char HEX[] = "0123456789abcdef";
    std::string out;
    for (char c : text) {
        const unsigned char byte = static_cast<unsigned char>(c);
        if (byte == '\\') {
            out += "\\\\";
        } else if (byte < 0x20 || byte == 0x7f) {
            out += "\\x";
            out += HEX[byte >> 4];
            out += HEX[byte & 0x0f];
        } else {
            out += c;
        }
    }
    return out;
}
