// The lookup as a small phone plays it, for ScriptedPhone: it answers the
// module's commands (connect, lookup, get CD meta info, cancel) and sends one
// response database in chunks. A hang-up can be scripted before the answer to
// any command, to drop the link at a chosen point of the lookup, and the phone
// can fall silent after any command.
//
//   PhoneScript script(database);
//   ScriptedPhone phone(script.play());
#ifndef MOX_TESTS_PHONESCRIPT_H
#define MOX_TESTS_PHONESCRIPT_H

#include <algorithm>
#include <mutex>
#include <utility>
#include <vector>

#include "LinkWire.h"
#include "ScriptedPhone.h"

namespace moxtest {

using namespace linkwire;

// What the phone says, independent of the transport. Thread-safe.
class PhoneScript {
public:
    // Steps after which the phone can hang up instead of answering.
    enum Step { NEVER = -1, AT_CONNECT = 0, AT_LOOKUP = 1, AT_META_INFO = 2, AT_CANCEL = 3 };

    explicit PhoneScript(Bytes database, size_t chunkSize = 4096)
        : mDatabase(std::move(database)), mChunkSize(chunkSize) {}

    void hangUpAt(Step step) {
        std::lock_guard<std::mutex> lock(mMutex);
        mHangUpAt = step;
    }
    // The phone stays silent after this step (its commands get no answer).
    void silentAfter(Step step) {
        std::lock_guard<std::mutex> lock(mMutex);
        mSilentAfter = step;
    }

    // The script for ScriptedPhone; this script must outlive the phone.
    ScriptedPhone::Script play() {
        return [this](const uint8_t* frame, size_t size, ScriptedPhone::Answer& answer) {
            bool hangUp = false;
            answer.frames(answerTo(Bytes(frame, frame + size), &hangUp));
            if (hangUp) {
                answer.hangUp();
            }
        };
    }

    // The frames that answer `frame`; `hangUp` tells whether to drop the link
    // instead.
    std::vector<Bytes> answerTo(const Bytes& frame, bool* hangUp) {
        std::lock_guard<std::mutex> lock(mMutex);
        const Step step = stepOf(frame);
        *hangUp = step != NEVER && step == mHangUpAt;
        if (*hangUp || (mSilentAfter != NEVER && step >= mSilentAfter)) {
            return {};
        }
        switch (step) {
            case AT_CONNECT:
                return {linkwire::answer(kConnectAnswerId)};
            case AT_LOOKUP:
                return {linkwire::answer(kLookupAnswerId),
                        notice(static_cast<uint32>(mDatabase.size()))};
            case AT_META_INFO:
                return chunks();
            case AT_CANCEL:
                return {linkwire::answer(kCancelAnswerId)};
            default:
                return {};
        }
    }

private:
    static Step stepOf(const Bytes& frame) {
        if (frame == kConnect) {
            return AT_CONNECT;
        }
        if (commandOf(frame.data(), frame.size()) == kLookupId) {
            return AT_LOOKUP;
        }
        if (frame == kGetCdMetaInfo) {
            return AT_META_INFO;
        }
        if (frame == kCancel) {
            return AT_CANCEL;
        }
        return NEVER;
    }

    std::vector<Bytes> chunks() const {
        std::vector<Bytes> out;
        const size_t count = std::max<size_t>(1, (mDatabase.size() + mChunkSize - 1) / mChunkSize);
        for (size_t i = 0; i < count; ++i) {
            const size_t begin = i * mChunkSize;
            const size_t end = std::min(mDatabase.size(), begin + mChunkSize);
            out.push_back(chunk(static_cast<uint16>(i), static_cast<uint16>(count),
                                Bytes(mDatabase.begin() + begin, mDatabase.begin() + end)));
        }
        return out;
    }

    const Bytes mDatabase;
    const size_t mChunkSize;
    mutable std::mutex mMutex;
    Step mHangUpAt = NEVER;
    Step mSilentAfter = NEVER;
};

}  // namespace moxtest

#endif  // MOX_TESTS_PHONESCRIPT_H
