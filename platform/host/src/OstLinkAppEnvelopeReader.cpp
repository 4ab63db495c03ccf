#include "OstLinkApp/OstLinkAppEnvelopeReader.h"

#include <algorithm>
#include <cstdio>

#include "OstLinkApp/OstLinkAppHost.h"

namespace {

std::string format(const char* pattern, unsigned long a, unsigned long b = 0) {
    char text[128];
    std::snprintf(text, sizeof(text), pattern, a, b);
    return text;
}

}  // namespace

OstLinkAppEnvelopeReader::OstLinkAppEnvelopeReader()
    : mLengthBytes(), mLengthFill(0), mLength(0), mBody(), mError(en_ERROR_NONE), mErrorText() {}

bool OstLinkAppEnvelopeReader::feed(const uint8* data, size_t size, const Handler& handler) {
    if (mError != en_ERROR_NONE) {
        return false;
    }
    size_t pos = 0;
    while (pos < size && mError == en_ERROR_NONE) {
        if (mLengthFill < OstLinkAppEnvelope::LENGTH_SIZE) {
            pos += takeLength(data + pos, size - pos);
        } else {
            pos += takeBody(data + pos, size - pos, handler);
        }
    }
    return mError == en_ERROR_NONE;
}

bool OstLinkAppEnvelopeReader::finish() {
    if (mError != en_ERROR_NONE) {
        return false;
    }
    if (mLengthFill == 0) {
        return true;
    }
    if (mLengthFill < OstLinkAppEnvelope::LENGTH_SIZE) {
        return fail(en_ERROR_CUT_OFF,
                    format("stream ended inside an envelope length (%lu of 4 bytes)", mLengthFill));
    }
    return fail(en_ERROR_CUT_OFF, format("stream ended inside an envelope (%lu of %lu bytes)",
                                         static_cast<unsigned long>(mBody.size()), mLength));
}

void OstLinkAppEnvelopeReader::reset() {
    mLengthFill = 0;
    mLength = 0;
    std::vector<uint8>().swap(mBody);
    mError = en_ERROR_NONE;
    mErrorText.clear();
}

size_t OstLinkAppEnvelopeReader::takeLength(const uint8* data, size_t size) {
    const size_t take =
        std::min<size_t>(size, OstLinkAppEnvelope::LENGTH_SIZE - static_cast<size_t>(mLengthFill));
    for (size_t i = 0; i < take; ++i) {
        mLengthBytes[mLengthFill++] = data[i];
    }
    if (mLengthFill == OstLinkAppEnvelope::LENGTH_SIZE) {
        mLength = OstLinkAppEnvelope::readLength(mLengthBytes);
        checkLength();
    }
    return take;
}

size_t OstLinkAppEnvelopeReader::takeBody(const uint8* data, size_t size, const Handler& handler) {
    const size_t take = std::min<size_t>(size, mLength - mBody.size());
    const bool typeArrives = mBody.empty();
    const size_t needed = mBody.size() + take;
    if (needed > mBody.capacity()) {
        // Grows as bytes arrive, never beyond the announced length.
        mBody.reserve(std::min<size_t>(mLength, std::max(needed, 2 * mBody.capacity())));
    }
    mBody.insert(mBody.end(), data, data + take);
    if (typeArrives && !checkType()) {
        return take;
    }
    if (mBody.size() == mLength) {
        completeMessage(handler);
    }
    return take;
}

bool OstLinkAppEnvelopeReader::checkLength() {
    if (mLength == 0) {
        return fail(en_ERROR_ZERO_LENGTH, "envelope length 0");
    }
    if (mLength > OstLinkAppHost::MAX_ENVELOPE_LENGTH) {
        return fail(en_ERROR_TOO_LONG,
                    format("envelope length %lu over the limit of %lu", mLength,
                           static_cast<unsigned long>(OstLinkAppHost::MAX_ENVELOPE_LENGTH)));
    }
    return true;
}

// The type byte and the length together fix whether the payload size is
// right, so the check needs nothing of the payload itself.
bool OstLinkAppEnvelopeReader::checkType() {
    const uint8 type = mBody[0];
    const uint32 payloadSize = mLength - 1;
    switch (type) {
        case OstLinkAppEnvelope::en_TYPE_DEVICE_INFO:
            if (payloadSize < 1) {
                return fail(en_ERROR_PAYLOAD_SIZE, "device info envelope without an OS type");
            }
            return true;
        case OstLinkAppEnvelope::en_TYPE_DEVICE_STATUS:
            if (payloadSize != 1) {
                return fail(en_ERROR_PAYLOAD_SIZE,
                            format("device status envelope with %lu payload bytes, expected 1",
                                   payloadSize));
            }
            return true;
        case OstLinkAppEnvelope::en_TYPE_COMMAND:
            return true;
        default:
            return fail(en_ERROR_UNKNOWN_TYPE, format("unknown envelope type 0x%02lx", type));
    }
}

void OstLinkAppEnvelopeReader::completeMessage(const Handler& handler) {
    const uint8 type = mBody[0];
    const uint8* payload = mBody.size() > 1 ? mBody.data() + 1 : nullptr;
    const uint32 payloadSize = static_cast<uint32>(mBody.size() - 1);
    mLengthFill = 0;
    if (handler) {
        handler(type, payload, payloadSize);
    }
    mBody.clear();
    if (mBody.capacity() > KEEP_CAPACITY) {
        std::vector<uint8>().swap(mBody);
    }
}

bool OstLinkAppEnvelopeReader::fail(EN_ERROR error, const std::string& text) {
    mError = error;
    mErrorText = text;
    std::vector<uint8>().swap(mBody);
    return false;
}
