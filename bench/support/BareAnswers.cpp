#include "BareAnswers.h"

#include <algorithm>
#include <utility>

#include "OstLinkApp/OstLinkAppEnvelope.h"

BareAnswers::BareAnswers(Bytes database, size_t chunkSize) : mDatabase(std::move(database)) {
    mConnect.frames.push_back(header(kConnectAnswer, 0, 0));
    mLookup.frames.push_back(header(kLookupAnswer, 0, 0));
    Bytes notice = header(kNotice, 0, 0);
    moxdb::appendU32Be(notice, static_cast<uint32_t>(mDatabase.size()));
    mLookup.frames.push_back(notice);
    mCancel.frames.push_back(header(static_cast<uint16_t>(kCancel | kAnswerBit), 0, 0));

    const size_t step = chunkSize == 0 ? 1 : chunkSize;
    const size_t count = std::max<size_t>(1, (mDatabase.size() + step - 1) / step);
    for (size_t i = 0; i < count; ++i) {
        const size_t begin = std::min(mDatabase.size(), i * step);
        const size_t end = std::min(mDatabase.size(), begin + step);
        Bytes chunk = header(kChunk, static_cast<uint16_t>(i), static_cast<uint16_t>(count));
        moxdb::appendU32Be(chunk, static_cast<uint32_t>(end - begin));
        chunk.insert(chunk.end(), mDatabase.begin() + static_cast<std::ptrdiff_t>(begin),
                     mDatabase.begin() + static_cast<std::ptrdiff_t>(end));
        mChunks.frames.push_back(std::move(chunk));
    }
    for (Group* group : {&mConnect, &mLookup, &mChunks, &mCancel}) {
        encode(*group);
    }
}

const std::vector<BareAnswers::Bytes>& BareAnswers::answerTo(const uint8_t* frame,
                                                             size_t size) const {
    return groupOf(frame, size).frames;
}

const BareAnswers::Bytes& BareAnswers::streamAnswerTo(const uint8_t* frame, size_t size) const {
    return groupOf(frame, size).stream;
}

uint16_t BareAnswers::commandOf(const uint8_t* frame, size_t size) {
    if (frame == nullptr || size < 2) {
        return 0;
    }
    return static_cast<uint16_t>((frame[0] << 8) | frame[1]);
}

const BareAnswers::Group& BareAnswers::groupOf(const uint8_t* frame, size_t size) const {
    switch (commandOf(frame, size)) {
        case kConnect:
            return mConnect;
        case kLookup:
            return mLookup;
        case kGetCdMetaInfo:
            return mChunks;
        case kCancel:
            return mCancel;
        default:
            return mNothing;
    }
}

BareAnswers::Bytes BareAnswers::header(uint16_t command, uint16_t index, uint16_t count) {
    Bytes frame;
    moxdb::appendU16Be(frame, command);
    moxdb::appendU16Be(frame, 0);  // status: normal
    moxdb::appendU16Be(frame, index);
    moxdb::appendU16Be(frame, count);
    return frame;
}

void BareAnswers::encode(Group& group) {
    for (const Bytes& frame : group.frames) {
        const std::vector<uint8> envelope = OstLinkAppEnvelope::encode(
            OstLinkAppEnvelope::en_TYPE_COMMAND, frame.data(), frame.size());
        group.stream.insert(group.stream.end(), envelope.begin(), envelope.end());
    }
}
