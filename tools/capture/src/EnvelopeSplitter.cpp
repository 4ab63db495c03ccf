// Envelope boundaries in a byte stream; the length word is big-endian.
#include "moxcapture/EnvelopeSplitter.h"

#include <algorithm>

namespace moxcapture {

constexpr size_t EnvelopeSplitter::kLengthSize;
constexpr uint32_t EnvelopeSplitter::kMaxLength;

namespace {

uint32_t lengthWord(const std::vector<uint8_t>& bytes) {
    return (static_cast<uint32_t>(bytes[0]) << 24) | (static_cast<uint32_t>(bytes[1]) << 16) |
           (static_cast<uint32_t>(bytes[2]) << 8) | static_cast<uint32_t>(bytes[3]);
}

}  // namespace

EnvelopeSplitter::EnvelopeSplitter() : mUnframed(false) {}

void EnvelopeSplitter::feed(const uint8_t* data, size_t size, const Emit& emit) {
    if (mUnframed) {
        if (size != 0) {
            emit(data, size);
        }
        return;
    }
    size_t at = 0;
    while (at < size) {
        if (mRecord.size() < kLengthSize) {
            const size_t take = std::min(kLengthSize - mRecord.size(), size - at);
            mRecord.insert(mRecord.end(), data + at, data + at + take);
            at += take;
            if (mRecord.size() < kLengthSize) {
                return;
            }
            if (lengthWord(mRecord) > kMaxLength) {
                mUnframed = true;
                mRecord.insert(mRecord.end(), data + at, data + size);
                emit(mRecord.data(), mRecord.size());
                mRecord.clear();
                return;
            }
        }
        const size_t take = std::min(missing(), size - at);
        mRecord.insert(mRecord.end(), data + at, data + at + take);
        at += take;
        if (missing() == 0) {
            emit(mRecord.data(), mRecord.size());
            mRecord.clear();
        }
    }
}

void EnvelopeSplitter::finish(const Emit& emit) {
    if (!mRecord.empty()) {
        emit(mRecord.data(), mRecord.size());
        mRecord.clear();
    }
}

size_t EnvelopeSplitter::missing() const {
    if (mRecord.size() < kLengthSize) {
        return 0;
    }
    return kLengthSize + lengthWord(mRecord) - mRecord.size();
}

}  // namespace moxcapture
