// Feeds an arbitrary byte stream to the phone link's envelope reader in
// pieces of varying size, as a socket would deliver it.
//
// Input layout:
//   byte 0   how the stream is cut: the pieces are 1 to 2^(byte 0 % 12) bytes,
//            sizes drawn from a generator seeded with the byte
//   the rest the stream
//
// The same stream is also read at once by a plain parser written here from
// the wire format. The two must agree on every message and on the outcome
// (the stream ends cleanly, or the same kind of protocol error); every
// message must keep the rules of its type; and the reader may never hold
// more than one envelope.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "OstLinkApp/OstLinkAppEnvelope.h"
#include "OstLinkApp/OstLinkAppEnvelopeReader.h"
#include "OstLinkApp/OstLinkAppHost.h"
#include "moxdb/DbBytes.h"

namespace {

struct Message {
    uint8_t type;
    std::vector<uint8_t> payload;
    bool operator==(const Message& other) const {
        return type == other.type && payload == other.payload;
    }
};

struct Outcome {
    std::vector<Message> messages;
    OstLinkAppEnvelopeReader::EN_ERROR error = OstLinkAppEnvelopeReader::en_ERROR_NONE;
};

void check(bool condition) {
    if (!condition) {
        std::abort();
    }
}

// The wire format read in one go.
Outcome parseAtOnce(const uint8_t* data, size_t size) {
    Outcome out;
    size_t pos = 0;
    while (pos < size) {
        if (size - pos < 4) {
            out.error = OstLinkAppEnvelopeReader::en_ERROR_CUT_OFF;
            return out;
        }
        const uint32_t length = moxdb::getU32Be(moxdb::Bytes(data + pos, data + pos + 4), 0);
        pos += 4;
        if (length == 0) {
            out.error = OstLinkAppEnvelopeReader::en_ERROR_ZERO_LENGTH;
            return out;
        }
        if (length > OstLinkAppHost::MAX_ENVELOPE_LENGTH) {
            out.error = OstLinkAppEnvelopeReader::en_ERROR_TOO_LONG;
            return out;
        }
        if (pos == size) {
            out.error = OstLinkAppEnvelopeReader::en_ERROR_CUT_OFF;
            return out;
        }
        const uint8_t type = data[pos];
        if (type < 1 || type > 3) {
            out.error = OstLinkAppEnvelopeReader::en_ERROR_UNKNOWN_TYPE;
            return out;
        }
        if ((type == 1 && length < 2) || (type == 2 && length != 2)) {
            out.error = OstLinkAppEnvelopeReader::en_ERROR_PAYLOAD_SIZE;
            return out;
        }
        if (size - pos < length) {
            out.error = OstLinkAppEnvelopeReader::en_ERROR_CUT_OFF;
            return out;
        }
        out.messages.push_back(
            Message{type, std::vector<uint8_t>(data + pos + 1, data + pos + length)});
        pos += length;
    }
    return out;
}

void checkTypeRules(uint8_t type, uint32_t size) {
    check(type >= 1 && type <= 3);
    check(type != OstLinkAppEnvelope::en_TYPE_DEVICE_INFO || size >= 1);
    check(type != OstLinkAppEnvelope::en_TYPE_DEVICE_STATUS || size == 1);
    check(size <= OstLinkAppEnvelope::MAX_PAYLOAD_SIZE);
}

// The reader, fed piece by piece.
Outcome readInPieces(uint8_t cut, const uint8_t* data, size_t size) {
    Outcome out;
    OstLinkAppEnvelopeReader reader;
    const OstLinkAppEnvelopeReader::Handler handler = [&out](uint8_t type, const uint8_t* payload,
                                                             uint32_t payloadSize) {
        checkTypeRules(type, payloadSize);
        check(payloadSize == 0 || payload != nullptr);
        out.messages.push_back(Message{type, std::vector<uint8_t>(payload, payload + payloadSize)});
    };
    const size_t maxPiece = static_cast<size_t>(1) << (cut % 12);
    uint32_t state = 2654435761u * (static_cast<uint32_t>(cut) + 1u);
    size_t pos = 0;
    bool ok = true;
    while (ok && pos < size) {
        state ^= state << 13;
        state ^= state >> 17;
        state ^= state << 5;
        const size_t piece = std::min<size_t>(1 + state % maxPiece, size - pos);
        ok = reader.feed(data + pos, piece, handler);
        check(reader.getBufferedSize() <= 4 + OstLinkAppHost::MAX_ENVELOPE_LENGTH);
        pos += piece;
    }
    if (ok) {
        ok = reader.finish();
    }
    out.error = reader.getError();
    check(ok == (out.error == OstLinkAppEnvelopeReader::en_ERROR_NONE));
    check(ok || !reader.getErrorText().empty());
    if (!ok) {
        // A stopped reader stays stopped and delivers nothing more.
        const uint8_t more[] = {0, 0, 0, 2, 2, 1};
        check(!reader.feed(more, sizeof(more),
                           [](uint8_t, const uint8_t*, uint32_t) { check(false); }));
        check(reader.getError() == out.error);
    }
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    const Outcome expected = parseAtOnce(data + 1, size - 1);
    const Outcome actual = readInPieces(data[0], data + 1, size - 1);
    check(expected.error == actual.error);
    check(expected.messages == actual.messages);
    return 0;
}
