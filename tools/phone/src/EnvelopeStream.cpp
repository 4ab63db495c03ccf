// Bounded envelope reader.
#include "moxphone/EnvelopeStream.h"

#include <cstdio>

namespace moxphone {

EnvelopeStream::EnvelopeStream() : mStart(0), mBroken(false) {}

void EnvelopeStream::append(const uint8_t* data, size_t size) {
    if (mBroken || data == nullptr || size == 0) {
        return;
    }
    compact();
    mBuffer.insert(mBuffer.end(), data, data + size);
}

EnvelopeStream::Status EnvelopeStream::next(Message* out) {
    if (mBroken) {
        return Status::kBroken;
    }
    if (buffered() < Envelope::kLengthSize) {
        return Status::kNeedMore;
    }
    const uint32_t length = moxdb::getU32Be(mBuffer, mStart);
    if (length == 0) {
        return breakWith("envelope length 0");
    }
    if (length > Envelope::kMaxLength) {
        return breakWith("envelope length " + std::to_string(length) + " above the limit of " +
                         std::to_string(Envelope::kMaxLength));
    }
    if (buffered() < Envelope::kLengthSize + 1) {
        return Status::kNeedMore;
    }
    const uint8_t type = mBuffer[mStart + Envelope::kLengthSize];
    if (!Envelope::isKnownType(type)) {
        char text[48];
        std::snprintf(text, sizeof(text), "unknown envelope type 0x%02x",
                      static_cast<unsigned int>(type));
        return breakWith(text);
    }
    if (buffered() < Envelope::kLengthSize + length) {
        return Status::kNeedMore;
    }
    const size_t payloadAt = mStart + Envelope::kLengthSize + 1;
    out->type = type;
    out->payload.assign(mBuffer.begin() + static_cast<std::ptrdiff_t>(payloadAt),
                        mBuffer.begin() + static_cast<std::ptrdiff_t>(payloadAt + length - 1));
    mStart += Envelope::kLengthSize + length;
    return Status::kMessage;
}

EnvelopeStream::Status EnvelopeStream::breakWith(const std::string& reason) {
    mBroken = true;
    mError = reason;
    mBuffer.clear();
    mBuffer.shrink_to_fit();
    mStart = 0;
    return Status::kBroken;
}

void EnvelopeStream::compact() {
    if (mStart == 0) {
        return;
    }
    mBuffer.erase(mBuffer.begin(), mBuffer.begin() + static_cast<std::ptrdiff_t>(mStart));
    mStart = 0;
}

}  // namespace moxphone
