// The exported-PDU header of a capture record; every number big-endian.
#include "moxcapture/CaptureFormat.h"

#include <cstring>
#include <string>

namespace moxcapture {

constexpr int CaptureFormat::kLinkType;
constexpr uint16_t CaptureFormat::kTagEnd;
constexpr uint16_t CaptureFormat::kTagDissectorName;
constexpr uint16_t CaptureFormat::kTagDirection;
constexpr size_t CaptureFormat::kHeaderSize;
constexpr uint32_t CaptureFormat::kSnapLength;
constexpr size_t CaptureFormat::kMaxEnvelopeBytes;

namespace {

// The name tag's value: the name and zero bytes up to a multiple of 4.
constexpr size_t kNameFieldSize = 8;
constexpr size_t kDirectionFieldSize = 4;

void putU16Be(uint8_t* out, uint16_t value) {
    out[0] = static_cast<uint8_t>(value >> 8);
    out[1] = static_cast<uint8_t>(value);
}

void putU32Be(uint8_t* out, uint32_t value) {
    out[0] = static_cast<uint8_t>(value >> 24);
    out[1] = static_cast<uint8_t>(value >> 16);
    out[2] = static_cast<uint8_t>(value >> 8);
    out[3] = static_cast<uint8_t>(value);
}

uint16_t getU16Be(const uint8_t* in) {
    return static_cast<uint16_t>((in[0] << 8) | in[1]);
}

uint32_t getU32Be(const uint8_t* in) {
    return (static_cast<uint32_t>(in[0]) << 24) | (static_cast<uint32_t>(in[1]) << 16) |
           (static_cast<uint32_t>(in[2]) << 8) | static_cast<uint32_t>(in[3]);
}

// The name of a tag value: up to the first zero byte.
std::string nameOf(const uint8_t* value, size_t size) {
    size_t length = 0;
    while (length < size && value[length] != 0) {
        ++length;
    }
    return std::string(reinterpret_cast<const char*>(value), length);
}

}  // namespace

void CaptureFormat::writeHeader(uint8_t (&out)[kHeaderSize], Direction direction) {
    std::memset(out, 0, sizeof(out));
    putU16Be(out, kTagDissectorName);
    putU16Be(out + 2, static_cast<uint16_t>(kNameFieldSize));
    std::memcpy(out + 4, kDissectorName, std::strlen(kDissectorName));
    putU16Be(out + 12, kTagDirection);
    putU16Be(out + 14, static_cast<uint16_t>(kDirectionFieldSize));
    putU32Be(out + 16, static_cast<uint32_t>(direction));
    putU16Be(out + 20, kTagEnd);
    putU16Be(out + 22, 0);
}

bool CaptureFormat::readHeader(const uint8_t* data, size_t size, Direction* direction,
                               size_t* headerSize) {
    bool named = false;
    bool directed = false;
    size_t at = 0;
    while (at + 4 <= size) {
        const uint16_t tag = getU16Be(data + at);
        const uint16_t length = getU16Be(data + at + 2);
        at += 4;
        if (tag == kTagEnd) {
            *headerSize = at;
            return named && directed;
        }
        if (length > size - at) {
            return false;
        }
        if (tag == kTagDissectorName) {
            named = nameOf(data + at, length) == kDissectorName;
        } else if (tag == kTagDirection && length == kDirectionFieldSize) {
            const uint32_t value = getU32Be(data + at);
            directed = value <= 1;
            *direction = value == 0 ? Direction::kToPhone : Direction::kFromPhone;
        }
        at += length;
    }
    return false;
}

}  // namespace moxcapture
