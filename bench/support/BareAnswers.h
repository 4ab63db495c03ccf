// What the bare phone of the benchmarks says, built once: the frames that
// answer each request of a lookup, for one response database cut into
// chunks. Both sides of every measurement use it: the module's lookups and
// the bare client's (the floor) get the very same frames.
//
//   connect 0x0001          -> 0x8001
//   lookup  0x0010          -> 0x8010, then the notice 0x8011 (database size)
//   get     0x0012          -> 0x8012 chunks 0 .. count-1
//   cancel  0x0FFF          -> 0x8FFF
//   anything else           -> nothing
//
// Every integer in a frame is big-endian. Immutable after construction; any
// thread.
#ifndef MOX_BENCH_BAREANSWERS_H
#define MOX_BENCH_BAREANSWERS_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "moxdb/DbBytes.h"

class BareAnswers {
public:
    using Bytes = moxdb::Bytes;

    // Requests of the head unit and answers of the phone, by command ID.
    static constexpr uint16_t kConnect = 0x0001;
    static constexpr uint16_t kLookup = 0x0010;
    static constexpr uint16_t kGetCdMetaInfo = 0x0012;
    static constexpr uint16_t kCancel = 0x0FFF;
    static constexpr uint16_t kAnswerBit = 0x8000;
    static constexpr uint16_t kConnectAnswer = 0x8001;
    static constexpr uint16_t kLookupAnswer = 0x8010;
    static constexpr uint16_t kNotice = 0x8011;
    static constexpr uint16_t kChunk = 0x8012;
    // A chunk: the 8-byte header, the 32-bit payload length, the payload.
    static constexpr size_t kChunkPayloadOffset = 12;
    static constexpr size_t kNoticeSize = 12;

    // `database` is sent in chunks of `chunkSize` bytes (the last one may be
    // shorter; an empty database is one empty chunk).
    BareAnswers(Bytes database, size_t chunkSize);

    // The frames that answer the request `frame` (empty: no answer).
    const std::vector<Bytes>& answerTo(const uint8_t* frame, size_t size) const;
    // The same answers as the bytes of a stream: one COMMAND envelope each
    // (32-bit big-endian length, type byte 0x03, the frame), back to back.
    const Bytes& streamAnswerTo(const uint8_t* frame, size_t size) const;
    const Bytes& database() const { return mDatabase; }
    size_t chunkCount() const { return mChunks.frames.size(); }

    // The command ID of a frame; 0 when it has fewer than 2 bytes.
    static uint16_t commandOf(const uint8_t* frame, size_t size);

private:
    struct Group {
        std::vector<Bytes> frames;
        Bytes stream;
    };

    const Group& groupOf(const uint8_t* frame, size_t size) const;
    static Bytes header(uint16_t command, uint16_t index, uint16_t count);
    static void encode(Group& group);

    const Bytes mDatabase;
    Group mConnect;
    Group mLookup;
    Group mChunks;
    Group mCancel;
    Group mNothing;
};

#endif  // MOX_BENCH_BAREANSWERS_H
