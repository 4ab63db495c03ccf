// Reads envelopes (see Envelope.h) from a byte stream that arrives in pieces
// of any size. Memory stays bounded: a length of 0 or above the maximum, or
// an unknown type, breaks the stream as soon as its first bytes are seen,
// without waiting for a payload that may never come, and a broken stream
// keeps nothing. Callers append what they read, then take messages with
// next() until it says kNeedMore; the buffer then never holds more than one
// message plus the last piece read.
//
//   EnvelopeStream stream;
//   stream.append(buffer, n);
//   EnvelopeStream::Message message;
//   while (stream.next(&message) == EnvelopeStream::Status::kMessage) { ... }
//   if (stream.broken()) { log(stream.error()); hang up; }
//
// Not thread-safe; one reader per stream.
#ifndef MOXPHONE_ENVELOPESTREAM_H
#define MOXPHONE_ENVELOPESTREAM_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "moxphone/Envelope.h"

namespace moxphone {

class EnvelopeStream {
public:
    struct Message {
        uint8_t type = 0;
        Bytes payload;
    };
    enum class Status { kNeedMore, kMessage, kBroken };

    EnvelopeStream();

    // Appends bytes read from the stream; ignored once the stream is broken.
    void append(const uint8_t* data, size_t size);
    // The next complete message (kMessage), or kNeedMore, or kBroken (for
    // good: every later call says kBroken too).
    Status next(Message* out);

    bool broken() const { return mBroken; }
    // Why the stream broke: "envelope length 0", "envelope length 1048577
    // above the limit of 1048576", "unknown envelope type 0x7f".
    const std::string& error() const { return mError; }
    // Bytes received and not yet taken as a message.
    size_t buffered() const { return mBuffer.size() - mStart; }

private:
    Status breakWith(const std::string& reason);
    void compact();

    Bytes mBuffer;
    size_t mStart;  // first byte of mBuffer not yet taken
    bool mBroken;
    std::string mError;
};

}  // namespace moxphone

#endif  // MOXPHONE_ENVELOPESTREAM_H
