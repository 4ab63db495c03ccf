// The module's byte-order helpers: the phone's command frames carry their
// 16- and 32-bit fields most significant byte first. Bytes are written and
// read one at a time, so the host's own order and alignment never matter.
#ifndef MOX_PRIVATE_MOXBYTEORDER_H
#define MOX_PRIVATE_MOXBYTEORDER_H

#include "HbFramework/HbTypes.h"

namespace MoxByteOrder {

inline void putU16Be(unsigned char* out, uint16 value) {
    out[0] = static_cast<unsigned char>((value >> 8) & 0xFFu);
    out[1] = static_cast<unsigned char>(value & 0xFFu);
}

inline void putU32Be(unsigned char* out, uint32 value) {
    out[0] = static_cast<unsigned char>((value >> 24) & 0xFFu);
    out[1] = static_cast<unsigned char>((value >> 16) & 0xFFu);
    out[2] = static_cast<unsigned char>((value >> 8) & 0xFFu);
    out[3] = static_cast<unsigned char>(value & 0xFFu);
}

inline uint16 getU16Be(const unsigned char* in) {
    return static_cast<uint16>((static_cast<uint32>(in[0]) << 8) | static_cast<uint32>(in[1]));
}

inline uint32 getU32Be(const unsigned char* in) {
    return (static_cast<uint32>(in[0]) << 24) | (static_cast<uint32>(in[1]) << 16) |
           (static_cast<uint32>(in[2]) << 8) | static_cast<uint32>(in[3]);
}

}  // namespace MoxByteOrder

#endif  // MOX_PRIVATE_MOXBYTEORDER_H
