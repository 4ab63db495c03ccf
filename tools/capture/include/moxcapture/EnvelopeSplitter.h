// Cuts one direction of the phone link's byte stream into capture records,
// one envelope each, however the bytes arrive:
// - a whole envelope (length word, then that many bytes) is one record;
// - a length word of 0 is a record of its own 4 bytes;
// - a length word over the link's limit (1 MiB) is no envelope: it and
//   everything after it in that direction are recorded as they arrive;
// - at the end of the link, bytes of an envelope that never completed
//   (a peer cut off mid-way) are one last record.
// So the records hold exactly the bytes on the link, in order, and a broken
// stream shows where it broke. Memory stays below one envelope.
//
//   moxcapture::EnvelopeSplitter splitter;
//   splitter.feed(bytes, count, [&](const uint8_t* record, size_t size) { ... });
//   splitter.finish(sameHandler);
//
// Not thread-safe.
#ifndef MOXCAPTURE_ENVELOPESPLITTER_H
#define MOXCAPTURE_ENVELOPESPLITTER_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

namespace moxcapture {

class EnvelopeSplitter {
public:
    // Gets each record; the bytes are valid only during the call.
    using Emit = std::function<void(const uint8_t* record, size_t size)>;

    static constexpr size_t kLengthSize = 4;
    static constexpr uint32_t kMaxLength = 1024u * 1024u;

    EnvelopeSplitter();
    void feed(const uint8_t* data, size_t size, const Emit& emit);
    // The stream ended: what waits is emitted as one record.
    void finish(const Emit& emit);
    // True once the stream has shown a length over the limit.
    bool unframed() const { return mUnframed; }

private:
    // Bytes the record being gathered still needs; 0 while the length word
    // is incomplete.
    size_t missing() const;

    std::vector<uint8_t> mRecord;  // the envelope read so far
    bool mUnframed;
};

}  // namespace moxcapture

#endif  // MOXCAPTURE_ENVELOPESPLITTER_H
