// The envelope that carries every message of the phone link over a stream
// (a Unix or TCP socket, or the raw bytes of the in-process link): a 32-bit
// big-endian length N, then N bytes: one type byte and its payload. N is at
// least 1 and at most OstLinkAppHost::MAX_ENVELOPE_LENGTH (1 MiB).
#ifndef MOXPHONE_ENVELOPE_H
#define MOXPHONE_ENVELOPE_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "OstLinkApp/OstLinkAppHost.h"
#include "moxdb/DbBytes.h"

namespace moxphone {

using Bytes = moxdb::Bytes;

class Envelope {
public:
    // Message types.
    static constexpr uint8_t kDeviceInfo = 0x01;    // OS type byte, then the device name (UTF-8)
    static constexpr uint8_t kDeviceStatus = 0x02;  // one status byte
    static constexpr uint8_t kCommand = 0x03;       // one command frame

    // Device status values.
    static constexpr uint8_t kStatusNoDevice = 0;
    static constexpr uint8_t kStatusConnected = 1;
    static constexpr uint8_t kStatusAppOpen = 2;
    static constexpr uint8_t kStatusClosed = 3;

    // OS type values of the device info.
    static constexpr uint8_t kOsIos = 0;
    static constexpr uint8_t kOsAndroid = 1;

    static constexpr size_t kLengthSize = 4;
    static constexpr uint32_t kMaxLength = OstLinkAppHost::MAX_ENVELOPE_LENGTH;

    // Length word, type byte, payload. The caller keeps 1 + payload within kMaxLength.
    static Bytes encode(uint8_t type, const Bytes& payload);
    static Bytes deviceInfo(uint8_t osType, const std::string& name);
    static Bytes deviceStatus(uint8_t status);
    static Bytes command(const Bytes& frame);

    // True for the three types above.
    static bool isKnownType(uint8_t type);
};

}  // namespace moxphone

#endif  // MOXPHONE_ENVELOPE_H
