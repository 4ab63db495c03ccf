// The host platform's byte-order helpers: the phone link's envelope lengths,
// its frames' fields and the framework's archives are most significant byte
// first. Bytes are written and read one at a time, so the host's own order
// and alignment never matter.
#ifndef HB_HOST_HBBYTEORDER_H
#define HB_HOST_HBBYTEORDER_H

#include "HbFramework/HbTypes.h"

namespace HbByteOrder {

inline void putU32Be(uint8* out, uint32 value) {
    out[0] = static_cast<uint8>((value >> 24) & 0xFFu);
    out[1] = static_cast<uint8>((value >> 16) & 0xFFu);
    out[2] = static_cast<uint8>((value >> 8) & 0xFFu);
    out[3] = static_cast<uint8>(value & 0xFFu);
}

inline uint16 getU16Be(const uint8* in) {
    return static_cast<uint16>((static_cast<uint32>(in[0]) << 8) | static_cast<uint32>(in[1]));
}

inline uint32 getU32Be(const uint8* in) {
    return (static_cast<uint32>(in[0]) << 24) | (static_cast<uint32>(in[1]) << 16) |
           (static_cast<uint32>(in[2]) << 8) | static_cast<uint32>(in[3]);
}

}  // namespace HbByteOrder

#endif  // HB_HOST_HBBYTEORDER_H
