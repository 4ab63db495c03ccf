// What the phone of the benchmarks says, built once: the frames that answer
// each request of a lookup, for one response database cut into chunks; the
// script of a ScriptedPhone. Both sides of every measurement use it: the
// module's lookups and the bare client's (the floor) get the very same
// frames.
//
//   connect 0x0001          -> 0x8001
//   lookup  0x0010          -> 0x8010, then the notice 0x8011 (database size)
//   get     0x0012          -> 0x8012 chunks 0 .. count-1
//   cancel  0x0FFF          -> 0x8FFF
//   anything else           -> nothing
//
// The frames are LinkWire's. Immutable after construction; any thread.
#ifndef MOX_BENCH_BAREANSWERS_H
#define MOX_BENCH_BAREANSWERS_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "ScriptedPhone.h"
#include "moxdb/DbBytes.h"

class BareAnswers {
public:
    using Bytes = moxdb::Bytes;

    // `database` is sent in chunks of `chunkSize` bytes (the last one may be
    // shorter; an empty database is one empty chunk).
    BareAnswers(Bytes database, size_t chunkSize);

    // The frames that answer the request `frame` (empty: no answer).
    const std::vector<Bytes>& answerTo(const uint8_t* frame, size_t size) const;
    // Gives `answer` the frames that answer `frame`: a ScriptedPhone's script.
    void play(const uint8_t* frame, size_t size, ScriptedPhone::Answer& answer) const;
    const Bytes& database() const { return mDatabase; }
    size_t chunkCount() const { return mChunks.size(); }

private:
    const Bytes mDatabase;
    std::vector<Bytes> mConnect;
    std::vector<Bytes> mLookup;
    std::vector<Bytes> mChunks;
    std::vector<Bytes> mCancel;
    std::vector<Bytes> mNothing;
};

#endif  // MOX_BENCH_BAREANSWERS_H
