// Reads the phone link's envelopes (see OstLinkAppEnvelope) from a byte
// stream that arrives in pieces of any size.
//
//   OstLinkAppEnvelopeReader reader;
//   if (!reader.feed(bytes, count, handler)) { ... reader.getErrorText() ... }
//   if (!reader.finish()) { ... the stream ended inside an envelope ... }
//
// The handler gets every complete message (type, payload, payload size) in
// order, while feed() runs; the payload is valid only during the call.
// A protocol error stops the reader for good: feed() and finish() return
// false from then on and deliver nothing more. Errors:
// - a length of 0, or over OstLinkAppHost::MAX_ENVELOPE_LENGTH;
// - an unknown type byte;
// - a device status whose payload is not exactly 1 byte, a device info
//   without its OS type byte;
// - finish() inside an envelope (the stream was cut off).
// Each is found as soon as the bytes that show it have arrived. At most one
// envelope is buffered, so memory stays below the largest length plus the
// header whatever the stream holds.
//
// Thread rules: one reader belongs to one stream; the caller serialises its
// calls. The handler must not call the reader.
#ifndef OSTLINKAPP_OSTLINKAPPENVELOPEREADER_H
#define OSTLINKAPP_OSTLINKAPPENVELOPEREADER_H

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "HbFramework/HbTypes.h"
#include "OstLinkApp/OstLinkAppEnvelope.h"

class OstLinkAppEnvelopeReader {
public:
    enum EN_ERROR {
        en_ERROR_NONE = 0,
        en_ERROR_ZERO_LENGTH = 1,
        en_ERROR_TOO_LONG = 2,
        en_ERROR_UNKNOWN_TYPE = 3,
        en_ERROR_PAYLOAD_SIZE = 4,
        en_ERROR_CUT_OFF = 5,
    };

    typedef std::function<void(uint8 type, const uint8* payload, uint32 size)> Handler;

    OstLinkAppEnvelopeReader();

    // Reads `size` bytes of the stream. False on a protocol error (the
    // messages before it were delivered).
    bool feed(const uint8* data, size_t size, const Handler& handler);
    // The stream has ended. False when it ended inside an envelope (or after
    // an earlier error).
    bool finish();
    // Forgets everything, errors included: a fresh stream.
    void reset();

    EN_ERROR getError() const { return mError; }
    // Why the reader stopped, in words ("" while there is no error).
    const std::string& getErrorText() const { return mErrorText; }
    // Bytes of the envelope being read (length field included).
    size_t getBufferedSize() const { return mLengthFill + mBody.size(); }
    // Whether the reader is between envelopes.
    bool isIdle() const { return mLengthFill == 0; }

private:
    // Buffers kept beyond this between envelopes are released.
    static constexpr size_t KEEP_CAPACITY = 64u * 1024u;

    size_t takeLength(const uint8* data, size_t size);
    size_t takeBody(const uint8* data, size_t size, const Handler& handler);
    bool checkLength();
    bool checkType();
    void completeMessage(const Handler& handler);
    bool fail(EN_ERROR error, const std::string& text);

    uint8 mLengthBytes[OstLinkAppEnvelope::LENGTH_SIZE];  // length field read so far
    uint32 mLengthFill;                                   // bytes of it read, 0..4
    uint32 mLength;                                       // the length, once mLengthFill is 4
    std::vector<uint8> mBody;                             // type byte and payload read so far
    EN_ERROR mError;
    std::string mErrorText;
};

#endif  // OSTLINKAPP_OSTLINKAPPENVELOPEREADER_H
