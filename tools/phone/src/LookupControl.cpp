// Deadline and cancel flag of an online lookup.
#include "moxphone/LookupControl.h"

namespace moxphone {

bool LookupControl::cancelled() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mCancelled;
}

bool LookupControl::over() const {
    return cancelled() || Clock::now() >= mDeadline;
}

void LookupControl::cancel() {
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mCancelled = true;
    }
    mWake.notify_all();
}

bool LookupControl::waitUntil(Clock::time_point when) {
    if (when > mDeadline) {
        return false;
    }
    std::unique_lock<std::mutex> lock(mMutex);
    mWake.wait_until(lock, when, [this] { return mCancelled; });
    return !mCancelled;
}

long LookupControl::remainingMs() const {
    const Clock::time_point now = Clock::now();
    if (now >= mDeadline) {
        return 0;
    }
    return static_cast<long>(std::chrono::ceil<std::chrono::milliseconds>(mDeadline - now).count());
}

}  // namespace moxphone
