#include "BareLookupClient.h"

#include "LinkWire.h"

namespace {

uint32_t u16At(const uint8_t* bytes) {
    return (static_cast<uint32_t>(bytes[0]) << 8) | bytes[1];
}

uint32_t u32At(const uint8_t* bytes) {
    return (u16At(bytes) << 16) | u16At(bytes + 2);
}

}  // namespace

bool BareLookupClient::connect() {
    return mSend(linkwire::kConnect.data(), linkwire::kConnect.size());
}

bool BareLookupClient::begin(const std::string& toc) {
    mExpectedIndex = 0;
    if (!mFile.clear()) {
        return false;
    }
    const BareAnswers::Bytes frame = linkwire::lookupFrame(toc);
    return mSend(frame.data(), frame.size());
}

BareLookupClient::Progress BareLookupClient::onFrame(const uint8_t* frame, size_t size) {
    if (size < 2) {
        return FAILED;
    }
    if (size >= 4 && u16At(frame + 2) != 0) {
        return FAILED;  // the phone's failure status
    }
    switch (u16At(frame)) {
        case linkwire::kConnectAnswerId:
            return COMPLETE;
        case linkwire::kNoticeId: {
            if (size < linkwire::kNoticeSize) {
                return FAILED;
            }
            const BareAnswers::Bytes& get = linkwire::kGetCdMetaInfo;
            return mSend(get.data(), get.size()) ? WAITING : FAILED;
        }
        case linkwire::kChunkId:
            return onChunk(frame, size);
        default:
            return WAITING;
    }
}

BareLookupClient::Progress BareLookupClient::onChunk(const uint8_t* frame, size_t size) {
    if (size < linkwire::kChunkPayloadOffset) {
        return FAILED;
    }
    const uint32_t index = u16At(frame + 4);
    const uint32_t count = u16At(frame + 6);
    const uint32_t length = u32At(frame + 8);
    if (index != mExpectedIndex || length != size - linkwire::kChunkPayloadOffset) {
        return FAILED;
    }
    if (!mFile.append(frame + linkwire::kChunkPayloadOffset, length)) {
        return FAILED;
    }
    ++mExpectedIndex;
    if (index + 1 == count) {
        return COMPLETE;
    }
    return index + 1 < count ? WAITING : FAILED;
}
