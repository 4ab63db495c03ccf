// The envelope that carries the phone link's messages on a byte stream
// (host edition): a 32-bit big-endian length N, then N bytes: one type byte
// and its payload.
//
// | Type | Name          | Payload                                   |
// |------|---------------|-------------------------------------------|
// | 0x01 | DEVICE_INFO   | OS type byte (0 iOS, 1 Android), UTF-8 name |
// | 0x02 | DEVICE_STATUS | exactly one status byte                   |
// | 0x03 | COMMAND       | one command frame                         |
//
// N is at least 1 and at most OstLinkAppHost::MAX_ENVELOPE_LENGTH.
// OstLinkAppEnvelopeReader reads envelopes; this class writes them.
// Every member is a pure function; any thread.
#ifndef OSTLINKAPP_OSTLINKAPPENVELOPE_H
#define OSTLINKAPP_OSTLINKAPPENVELOPE_H

#include <cstddef>
#include <vector>

#include "HbFramework/HbTypes.h"
#include "OstLinkApp/OstLinkAppHost.h"

class OstLinkAppEnvelope {
public:
    enum EN_TYPE {
        en_TYPE_DEVICE_INFO = 0x01,
        en_TYPE_DEVICE_STATUS = 0x02,
        en_TYPE_COMMAND = 0x03,
    };

    // Bytes of the length field.
    static constexpr uint32 LENGTH_SIZE = 4;
    // Bytes before the payload: the length field and the type byte.
    static constexpr uint32 HEADER_SIZE = LENGTH_SIZE + 1;
    // Largest payload that fits in one envelope.
    static constexpr uint32 MAX_PAYLOAD_SIZE = OstLinkAppHost::MAX_ENVELOPE_LENGTH - 1;

    // Writes the length field and the type byte of an envelope whose payload
    // has `payloadSize` bytes into `out`. A payload too large for the length
    // field is written as the largest length (a reader refuses it).
    static void writeHeader(uint8 (&out)[HEADER_SIZE], uint8 type, size_t payloadSize);

    // The whole envelope of `payload` (`size` bytes; may be null when 0).
    static std::vector<uint8> encode(uint8 type, const uint8* payload, size_t size);

    // The 32-bit big-endian value at `bytes`.
    static uint32 readLength(const uint8* bytes);
};

#endif  // OSTLINKAPP_OSTLINKAPPENVELOPE_H
