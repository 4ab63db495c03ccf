// Little- and big-endian placement, UTF-8 to UTF-16 and damage helpers.
#include "moxdb/DbBytes.h"

namespace moxdb {

namespace {

constexpr char16_t kReplacement = 0xFFFD;

bool fits(const Bytes& bytes, size_t offset, size_t width) {
    return offset <= bytes.size() && width <= bytes.size() - offset;
}

bool isContinuation(uint8_t byte) {
    return (byte & 0xC0) == 0x80;
}

// Length of the sequence that `lead` starts, and the bits it carries; 0 for a
// byte that cannot start a sequence.
size_t sequenceLength(uint8_t lead, uint32_t* bits) {
    if (lead < 0x80) {
        *bits = lead;
        return 1;
    }
    if ((lead & 0xE0) == 0xC0) {
        *bits = lead & 0x1F;
        return 2;
    }
    if ((lead & 0xF0) == 0xE0) {
        *bits = lead & 0x0F;
        return 3;
    }
    if ((lead & 0xF8) == 0xF0) {
        *bits = lead & 0x07;
        return 4;
    }
    return 0;
}

// Smallest code point that needs a sequence of `length` bytes (overlong check).
uint32_t minimumFor(size_t length) {
    static const uint32_t kMinimum[] = {0, 0, 0x80, 0x800, 0x10000};
    return kMinimum[length];
}

bool isScalarValue(uint32_t codePoint) {
    return codePoint <= 0x10FFFF && (codePoint < 0xD800 || codePoint > 0xDFFF);
}

void appendCodePoint(std::u16string& out, uint32_t codePoint) {
    if (codePoint < 0x10000) {
        out.push_back(static_cast<char16_t>(codePoint));
        return;
    }
    const uint32_t offset = codePoint - 0x10000;
    out.push_back(static_cast<char16_t>(0xD800 + (offset >> 10)));
    out.push_back(static_cast<char16_t>(0xDC00 + (offset & 0x3FF)));
}

// Decodes the sequence at `pos`; returns the bytes consumed (at least 1) and
// stores the code point, or U+FFFD for a malformed sequence (1 byte consumed).
size_t decodeOne(const std::string& utf8, size_t pos, uint32_t* codePoint) {
    const uint8_t lead = static_cast<uint8_t>(utf8[pos]);
    uint32_t bits = 0;
    const size_t length = sequenceLength(lead, &bits);
    *codePoint = kReplacement;
    if (length == 0 || length > utf8.size() - pos) {
        return 1;
    }
    for (size_t i = 1; i < length; ++i) {
        const uint8_t next = static_cast<uint8_t>(utf8[pos + i]);
        if (!isContinuation(next)) {
            return 1;
        }
        bits = (bits << 6) | (next & 0x3F);
    }
    if (bits < minimumFor(length) || !isScalarValue(bits)) {
        return 1;
    }
    *codePoint = bits;
    return length;
}

}  // namespace

void appendU16Le(Bytes& out, uint16_t value) {
    out.push_back(static_cast<uint8_t>(value & 0xFF));
    out.push_back(static_cast<uint8_t>(value >> 8));
}

void appendU32Le(Bytes& out, uint32_t value) {
    for (int shift = 0; shift < 32; shift += 8) {
        out.push_back(static_cast<uint8_t>((value >> shift) & 0xFF));
    }
}

bool putU16Le(Bytes& out, size_t offset, uint16_t value) {
    if (!fits(out, offset, 2)) {
        return false;
    }
    out[offset] = static_cast<uint8_t>(value & 0xFF);
    out[offset + 1] = static_cast<uint8_t>(value >> 8);
    return true;
}

bool putU32Le(Bytes& out, size_t offset, uint32_t value) {
    if (!fits(out, offset, 4)) {
        return false;
    }
    for (size_t i = 0; i < 4; ++i) {
        out[offset + i] = static_cast<uint8_t>((value >> (8 * i)) & 0xFF);
    }
    return true;
}

uint16_t getU16Le(const Bytes& in, size_t offset) {
    if (!fits(in, offset, 2)) {
        return 0;
    }
    return static_cast<uint16_t>(in[offset] | (in[offset + 1] << 8));
}

uint32_t getU32Le(const Bytes& in, size_t offset) {
    if (!fits(in, offset, 4)) {
        return 0;
    }
    uint32_t value = 0;
    for (size_t i = 0; i < 4; ++i) {
        value |= static_cast<uint32_t>(in[offset + i]) << (8 * i);
    }
    return value;
}

void appendU16Be(Bytes& out, uint16_t value) {
    out.push_back(static_cast<uint8_t>(value >> 8));
    out.push_back(static_cast<uint8_t>(value & 0xFF));
}

void appendU32Be(Bytes& out, uint32_t value) {
    for (int shift = 24; shift >= 0; shift -= 8) {
        out.push_back(static_cast<uint8_t>((value >> shift) & 0xFF));
    }
}

bool putU16Be(Bytes& out, size_t offset, uint16_t value) {
    if (!fits(out, offset, 2)) {
        return false;
    }
    out[offset] = static_cast<uint8_t>(value >> 8);
    out[offset + 1] = static_cast<uint8_t>(value & 0xFF);
    return true;
}

bool putU32Be(Bytes& out, size_t offset, uint32_t value) {
    if (!fits(out, offset, 4)) {
        return false;
    }
    for (size_t i = 0; i < 4; ++i) {
        out[offset + i] = static_cast<uint8_t>((value >> (24 - 8 * i)) & 0xFF);
    }
    return true;
}

uint16_t getU16Be(const Bytes& in, size_t offset) {
    if (!fits(in, offset, 2)) {
        return 0;
    }
    return static_cast<uint16_t>((in[offset] << 8) | in[offset + 1]);
}

uint32_t getU32Be(const Bytes& in, size_t offset) {
    if (!fits(in, offset, 4)) {
        return 0;
    }
    uint32_t value = 0;
    for (size_t i = 0; i < 4; ++i) {
        value = (value << 8) | in[offset + i];
    }
    return value;
}

std::u16string utf8ToUtf16(const std::string& utf8) {
    std::u16string out;
    size_t pos = 0;
    while (pos < utf8.size()) {
        uint32_t codePoint = 0;
        pos += decodeOne(utf8, pos, &codePoint);
        appendCodePoint(out, codePoint);
    }
    return out;
}

bool cutTo(Bytes& image, size_t length) {
    if (length > image.size()) {
        return false;
    }
    image.resize(length);
    return true;
}

bool setByte(Bytes& image, size_t offset, uint8_t value) {
    if (offset >= image.size()) {
        return false;
    }
    image[offset] = value;
    return true;
}

bool flipByte(Bytes& image, size_t offset, uint8_t mask) {
    if (offset >= image.size()) {
        return false;
    }
    image[offset] = static_cast<uint8_t>(image[offset] ^ mask);
    return true;
}

}  // namespace moxdb
