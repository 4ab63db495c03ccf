#include "BareLookupClient.h"

namespace {

// The lookup request: command ID, lookup kind, a zero byte, the two lookup
// parameters, then the request document and a terminating zero byte.
const char* const kDocumentHead =
    "<DbUpdateRequest>\n\t<DatabaseInfo>\n\t\t<DatabaseKind>73QRVB</DatabaseKind>\n"
    "\t</DatabaseInfo>\n\t<TOCRequest>\n\t\t<TOC>";
const char* const kDocumentTail = "</TOC>\n\t</TOCRequest>\n</DbUpdateRequest>";
const uint32_t kGetParameter = 1000;

uint32_t u16At(const uint8_t* bytes) {
    return (static_cast<uint32_t>(bytes[0]) << 8) | bytes[1];
}

uint32_t u32At(const uint8_t* bytes) {
    return (u16At(bytes) << 16) | u16At(bytes + 2);
}

}  // namespace

BareAnswers::Bytes BareLookupClient::connectFrame() {
    BareAnswers::Bytes frame;
    moxdb::appendU16Be(frame, BareAnswers::kConnect);
    frame.push_back(0x01);
    return frame;
}

BareAnswers::Bytes BareLookupClient::lookupFrame(const std::string& toc) {
    BareAnswers::Bytes frame;
    moxdb::appendU16Be(frame, BareAnswers::kLookup);
    frame.push_back(0);  // lookup kind
    frame.push_back(0);
    moxdb::appendU16Be(frame, 0);  // lookup parameters
    moxdb::appendU16Be(frame, 0);
    const std::string document = kDocumentHead + toc + kDocumentTail;
    frame.insert(frame.end(), document.begin(), document.end());
    frame.push_back(0);
    return frame;
}

BareAnswers::Bytes BareLookupClient::getFrame() {
    BareAnswers::Bytes frame;
    moxdb::appendU16Be(frame, BareAnswers::kGetCdMetaInfo);
    moxdb::appendU32Be(frame, kGetParameter);
    return frame;
}

bool BareLookupClient::connect() {
    const BareAnswers::Bytes frame = connectFrame();
    return mSend(frame.data(), frame.size());
}

bool BareLookupClient::begin(const std::string& toc) {
    mExpectedIndex = 0;
    if (!mFile.clear()) {
        return false;
    }
    const BareAnswers::Bytes frame = lookupFrame(toc);
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
        case BareAnswers::kConnectAnswer:
            return COMPLETE;
        case BareAnswers::kNotice: {
            if (size < BareAnswers::kNoticeSize) {
                return FAILED;
            }
            const BareAnswers::Bytes get = getFrame();
            return mSend(get.data(), get.size()) ? WAITING : FAILED;
        }
        case BareAnswers::kChunk:
            return onChunk(frame, size);
        default:
            return WAITING;
    }
}

BareLookupClient::Progress BareLookupClient::onChunk(const uint8_t* frame, size_t size) {
    if (size < BareAnswers::kChunkPayloadOffset) {
        return FAILED;
    }
    const uint32_t index = u16At(frame + 4);
    const uint32_t count = u16At(frame + 6);
    const uint32_t length = u32At(frame + 8);
    if (index != mExpectedIndex || length != size - BareAnswers::kChunkPayloadOffset) {
        return FAILED;
    }
    if (!mFile.append(frame + BareAnswers::kChunkPayloadOffset, length)) {
        return FAILED;
    }
    ++mExpectedIndex;
    if (index + 1 == count) {
        return COMPLETE;
    }
    return index + 1 < count ? WAITING : FAILED;
}
