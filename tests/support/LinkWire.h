// The phone link as the tests and benchmarks write it and read it back: the
// command IDs, the module's requests, the phone's frames, the lookup request's
// XML and the stream envelope. Everything is written out byte by byte here,
// independently of the link's own writer and reader, so that a test compares
// the link with a second reading of the same wire format. The envelope types,
// device status and OS type bytes are the host platform's own constants.
//
// Every integer on the wire is big-endian. Every function is pure; any thread.
#ifndef MOX_TESTS_SUPPORT_LINKWIRE_H
#define MOX_TESTS_SUPPORT_LINKWIRE_H

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "OstLinkApp/OstLinkAppEnvelope.h"
#include "OstLinkApp/OstLinkAppState.h"
#include "moxdb/DbBytes.h"

namespace linkwire {

using Bytes = moxdb::Bytes;

// ---- Command IDs ----

// Requests of the head unit.
constexpr uint16_t kConnectId = 0x0001;
constexpr uint16_t kDisconnectId = 0x0002;
constexpr uint16_t kLookupId = 0x0010;
constexpr uint16_t kGetCdMetaInfoId = 0x0012;
constexpr uint16_t kCancelId = 0x0FFF;
constexpr uint16_t kEchoId = 0x7FFF;
// The phone answers a request with its ID and this bit set.
constexpr uint16_t kAnswerBit = 0x8000;
constexpr uint16_t kConnectAnswerId = 0x8001;
constexpr uint16_t kLookupAnswerId = 0x8010;
constexpr uint16_t kNoticeId = 0x8011;  // the result is ready: the database size
constexpr uint16_t kChunkId = 0x8012;   // one chunk of the response database
constexpr uint16_t kCancelAnswerId = 0x8FFF;
constexpr uint16_t kEchoAnswerId = 0xFFFF;

// ---- Frame layout ----

// Command ID, status, chunk index, chunk count: 16 bits each.
constexpr size_t kHeaderSize = 8;
// The notice: the header, then the 32-bit database size.
constexpr size_t kNoticeSize = 12;
// A chunk: the header, the 32-bit payload length L, then L bytes.
constexpr size_t kChunkPayloadOffset = 12;

// ---- The module's requests ----

inline const Bytes kConnect = {0x00, 0x01, 0x01};
inline const Bytes kDisconnect = {0x00, 0x02};
inline const Bytes kGetCdMetaInfo = {0x00, 0x12, 0x00, 0x00, 0x03, 0xE8};
inline const Bytes kCancel = {0x0F, 0xFF};
inline const Bytes kEcho = {0x7F, 0xFF};

// The XML around the TOC text of a lookup request.
inline const std::string kXmlHead =
    "<DbUpdateRequest>\n"
    "\t<DatabaseInfo>\n"
    "\t\t<DatabaseKind>73QRVB</DatabaseKind>\n"
    "\t</DatabaseInfo>\n"
    "\t<TOCRequest>\n"
    "\t\t<TOC>";
inline const std::string kXmlTail =
    "</TOC>\n"
    "\t</TOCRequest>\n"
    "</DbUpdateRequest>";

// Three tracks at LBA 0, 18000 and 36000, the lead-out at 54000.
inline const std::string kToc = "0000960046E6008D3600D386";

// The lookup request as the module builds it: command ID, kind, a zero
// byte, the two parameters, the XML with `toc`, a terminating zero.
inline Bytes lookupFrame(const std::string& toc, uint8_t kind = 0, uint16_t param1 = 0,
                         uint16_t param2 = 0) {
    Bytes frame;
    moxdb::appendU16Be(frame, kLookupId);
    frame.push_back(kind);
    frame.push_back(0x00);
    moxdb::appendU16Be(frame, param1);
    moxdb::appendU16Be(frame, param2);
    const std::string xml = kXmlHead + toc + kXmlTail;
    frame.insert(frame.end(), xml.begin(), xml.end());
    frame.push_back(0x00);
    return frame;
}

// ---- Frames of the phone ----

// An 8-byte frame header; alone, an answer without chunks.
inline Bytes answer(uint16_t command, uint16_t status = 0, uint16_t index = 0, uint16_t count = 0) {
    Bytes frame;
    for (uint16_t field : {command, status, index, count}) {
        moxdb::appendU16Be(frame, field);
    }
    return frame;
}

// The notice 0x8011: the header, then the database size.
inline Bytes notice(uint32_t databaseSize, uint16_t status = 0) {
    Bytes frame = answer(kNoticeId, status);
    moxdb::appendU32Be(frame, databaseSize);
    return frame;
}

// A database chunk 0x8012 whose length field says `declared`.
inline Bytes chunk(uint16_t index, uint16_t count, uint32_t declared, const Bytes& payload,
                   uint16_t status = 0) {
    Bytes frame = answer(kChunkId, status, index, count);
    moxdb::appendU32Be(frame, declared);
    frame.insert(frame.end(), payload.begin(), payload.end());
    return frame;
}

// A database chunk whose length field is right.
inline Bytes chunk(uint16_t index, uint16_t count, const Bytes& payload) {
    return chunk(index, count, static_cast<uint32_t>(payload.size()), payload);
}

// ---- Envelopes ----

// One message of the stream: a type byte and its payload.
struct Message {
    uint8_t type = 0;
    Bytes payload;
    bool operator==(const Message& other) const {
        return type == other.type && payload == other.payload;
    }
};

using EnvelopeHeader = std::array<uint8_t, OstLinkAppEnvelope::HEADER_SIZE>;

// What comes before a payload of `payloadSize` bytes: the 32-bit length (type
// byte and payload), then the type.
inline EnvelopeHeader envelopeHeader(uint8_t type, size_t payloadSize) {
    const uint32_t length = static_cast<uint32_t>(payloadSize + 1);
    return {static_cast<uint8_t>(length >> 24), static_cast<uint8_t>((length >> 16) & 0xFF),
            static_cast<uint8_t>((length >> 8) & 0xFF), static_cast<uint8_t>(length & 0xFF), type};
}

// Appends an envelope to `out`: its header, then the payload. (The bytes
// are copied into room made first: g++ 12 at -O2 for ARM takes an insert of
// the few header bytes into an empty vector for an overflow.)
inline void appendEnvelope(Bytes& out, uint8_t type, const Bytes& payload) {
    const EnvelopeHeader header = envelopeHeader(type, payload.size());
    const size_t at = out.size();
    out.resize(at + header.size() + payload.size());
    std::copy(header.begin(), header.end(), out.begin() + static_cast<std::ptrdiff_t>(at));
    std::copy(payload.begin(), payload.end(),
              out.begin() + static_cast<std::ptrdiff_t>(at + header.size()));
}

inline Bytes envelope(uint8_t type, const Bytes& payload) {
    Bytes out;
    appendEnvelope(out, type, payload);
    return out;
}

inline Bytes envelope(const Message& message) {
    return envelope(message.type, message.payload);
}

// A COMMAND envelope holding `frame`.
inline Bytes command(const Bytes& frame) {
    return envelope(OstLinkAppEnvelope::en_TYPE_COMMAND, frame);
}

inline Message deviceInfo(uint8_t os, const std::string& name) {
    Message message;
    message.type = OstLinkAppEnvelope::en_TYPE_DEVICE_INFO;
    message.payload.push_back(os);
    message.payload.insert(message.payload.end(), name.begin(), name.end());
    return message;
}

inline Message deviceStatus(uint8_t status) {
    Message message;
    message.type = OstLinkAppEnvelope::en_TYPE_DEVICE_STATUS;
    message.payload.push_back(status);
    return message;
}

inline Message commandMessage(const Bytes& frame) {
    Message message;
    message.type = OstLinkAppEnvelope::en_TYPE_COMMAND;
    message.payload = frame;
    return message;
}

// What a phone says when the link comes up: an Android phone called `name`
// whose application is open.
inline std::vector<Message> greeting(const std::string& name) {
    return {deviceInfo(OstLinkAppState::en_OS_TYPE_ANDROID, name),
            deviceStatus(OstLinkAppState::en_DEVICE_STATUS_APP_OPEN)};
}

// ---- Reading back ----

inline Bytes slice(const Bytes& bytes, size_t begin, size_t size) {
    return Bytes(bytes.begin() + static_cast<std::ptrdiff_t>(begin),
                 bytes.begin() + static_cast<std::ptrdiff_t>(begin + size));
}

// Splits a stream into envelopes. Bytes that do not form a whole envelope at
// the end are returned in `rest`.
inline std::vector<Message> splitEnvelopes(const Bytes& stream, Bytes* rest = nullptr) {
    std::vector<Message> messages;
    size_t at = 0;
    while (stream.size() - at >= OstLinkAppEnvelope::LENGTH_SIZE) {
        const uint32_t length = moxdb::getU32Be(stream, at);
        if (length == 0 || stream.size() - at - OstLinkAppEnvelope::LENGTH_SIZE < length) {
            break;
        }
        Message message;
        message.type = stream[at + OstLinkAppEnvelope::LENGTH_SIZE];
        message.payload = slice(stream, at + OstLinkAppEnvelope::HEADER_SIZE, length - 1);
        messages.push_back(message);
        at += OstLinkAppEnvelope::LENGTH_SIZE + length;
    }
    if (rest != nullptr) {
        *rest = slice(stream, at, stream.size() - at);
    }
    return messages;
}

// The command frames of a stream, in order; whatever else it holds is left out.
inline std::vector<Bytes> commandFrames(const Bytes& stream) {
    std::vector<Bytes> frames;
    for (const Message& message : splitEnvelopes(stream)) {
        if (message.type == OstLinkAppEnvelope::en_TYPE_COMMAND) {
            frames.push_back(message.payload);
        }
    }
    return frames;
}

// The command ID of a frame; 0 when it has fewer than 2 bytes.
inline uint16_t commandOf(const uint8_t* frame, size_t size) {
    return size < 2 ? 0 : static_cast<uint16_t>((frame[0] << 8) | frame[1]);
}

inline Bytes text(const std::string& s) {
    return Bytes(s.begin(), s.end());
}

// "00 01 01": the bytes in lower-case hexadecimal, separated by spaces.
inline std::string hex(const Bytes& bytes) {
    std::string out;
    char digits[4];
    for (size_t i = 0; i < bytes.size(); ++i) {
        std::snprintf(digits, sizeof(digits), i == 0 ? "%02x" : " %02x", bytes[i]);
        out += digits;
    }
    return out;
}

}  // namespace linkwire

#endif  // MOX_TESTS_SUPPORT_LINKWIRE_H
