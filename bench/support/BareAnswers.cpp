#include "BareAnswers.h"

#include <algorithm>
#include <utility>

#include "LinkWire.h"

BareAnswers::BareAnswers(Bytes database, size_t chunkSize) : mDatabase(std::move(database)) {
    mConnect.push_back(linkwire::answer(linkwire::kConnectAnswerId));
    mLookup.push_back(linkwire::answer(linkwire::kLookupAnswerId));
    mLookup.push_back(linkwire::notice(static_cast<uint32_t>(mDatabase.size())));
    mCancel.push_back(linkwire::answer(linkwire::kCancelAnswerId));

    const size_t step = chunkSize == 0 ? 1 : chunkSize;
    const size_t count = std::max<size_t>(1, (mDatabase.size() + step - 1) / step);
    for (size_t i = 0; i < count; ++i) {
        const size_t begin = std::min(mDatabase.size(), i * step);
        const size_t end = std::min(mDatabase.size(), begin + step);
        mChunks.push_back(linkwire::chunk(static_cast<uint16_t>(i), static_cast<uint16_t>(count),
                                          linkwire::slice(mDatabase, begin, end - begin)));
    }
}

const std::vector<BareAnswers::Bytes>& BareAnswers::answerTo(const uint8_t* frame,
                                                             size_t size) const {
    switch (linkwire::commandOf(frame, size)) {
        case linkwire::kConnectId:
            return mConnect;
        case linkwire::kLookupId:
            return mLookup;
        case linkwire::kGetCdMetaInfoId:
            return mChunks;
        case linkwire::kCancelId:
            return mCancel;
        default:
            return mNothing;
    }
}

void BareAnswers::play(const uint8_t* frame, size_t size, ScriptedPhone::Answer& answer) const {
    answer.frames(answerTo(frame, size));
}
