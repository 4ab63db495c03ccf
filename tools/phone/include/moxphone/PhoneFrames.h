// The command frames of the phone protocol, as the phone builds its answers
// and reads the module's requests. Every integer is big-endian. An answer's
// command ID is the request's plus 0x8000; every frame the phone sends starts
// with the 8-byte header: command ID, status (0 normal, otherwise the phone's
// failure code), chunk index, chunk count.
//
//   answer 0x8001, 0x8010, 0x8FFF, 0xFFFF   the header alone, index and count 0
//   notice 0x8011                           the header, then the u32 database size
//   chunk  0x8012                           the header, the u32 payload length L, L bytes
#ifndef MOXPHONE_PHONEFRAMES_H
#define MOXPHONE_PHONEFRAMES_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "moxdb/DbBytes.h"

namespace moxphone {

using Bytes = moxdb::Bytes;

class PhoneFrames {
public:
    // Requests of the module.
    static constexpr uint16_t kConnect = 0x0001;
    static constexpr uint16_t kDisconnect = 0x0002;
    static constexpr uint16_t kLookup = 0x0010;
    static constexpr uint16_t kGetCdMetaInfo = 0x0012;
    static constexpr uint16_t kCancel = 0x0FFF;
    static constexpr uint16_t kEcho = 0x7FFF;
    // Answers of the phone.
    static constexpr uint16_t kAnswerBit = 0x8000;
    static constexpr uint16_t kConnectAnswer = 0x8001;
    static constexpr uint16_t kLookupAnswer = 0x8010;
    static constexpr uint16_t kNotice = 0x8011;
    static constexpr uint16_t kChunk = 0x8012;
    static constexpr uint16_t kCancelAnswer = 0x8FFF;
    static constexpr uint16_t kEchoAnswer = 0xFFFF;

    static constexpr size_t kHeaderSize = 8;
    static constexpr size_t kNoticeSize = 12;
    static constexpr size_t kChunkPayloadOffset = 12;

    // The 8-byte header (an answer without chunks).
    static Bytes answer(uint16_t command, uint16_t status, uint16_t index = 0, uint16_t count = 0);
    // The 12-byte notice.
    static Bytes notice(uint16_t status, uint32_t databaseSize);
    // A chunk whose length field says `declared` and which carries `size`
    // bytes from `payload`.
    static Bytes chunk(uint16_t status, uint16_t index, uint16_t count, uint32_t declared,
                       const uint8_t* payload, size_t size);
    // A failure answer to `request`: the answer's header with `status` (and,
    // for the notice and the chunk, a zero size word so the frame keeps its
    // usual shape).
    static Bytes failure(uint16_t request, uint16_t status);

    // The command ID of a frame (0 when it has fewer than 2 bytes).
    static uint16_t commandOf(const uint8_t* frame, size_t size);
    // One-line description of a frame the phone sends, for the log:
    // "0x8012 chunk 1/3 status 0 length 4096 (4108 bytes)".
    static std::string describeSent(const Bytes& frame);
    // "0x%04X".
    static std::string hex16(uint16_t value);
    // The bytes from `begin` in hex for the log ("00 12 00 00"): at most
    // `maxShown` of them, then " ... (N bytes)" with the whole size when
    // more follow, so that a line stays short whatever a module sends.
    static std::string hexBytes(const Bytes& bytes, size_t maxShown, size_t begin = 0);
};

}  // namespace moxphone

#endif  // MOXPHONE_PHONEFRAMES_H
