#include "LookupWatch.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "HbFramework/HbLTimerMng.h"

namespace {

using RS = ResultState;

// kErrorGrace on the module's time scale (HB_TIMER_SCALE, as the timer
// manager read it), rounded up to whole milliseconds as the manager rounds
// every period it arms; kMinErrorGrace at the least.
std::chrono::milliseconds scaledErrorGrace() {
    const double scale = HbLTimerMng::GetTimerMng()->GetTimeScale();
    const double ms = static_cast<double>(LookupWatch::kErrorGrace.count()) * scale;
    return std::max(LookupWatch::kMinErrorGrace,
                    std::chrono::milliseconds(static_cast<int64_t>(std::ceil(ms))));
}

}  // namespace

LookupWatch::LookupWatch(bool progress)
    : mProgress(progress),
      mErrorGrace(scaledErrorGrace()),
      mStarted(Clock::now()),
      mLastChange(mStarted) {}

std::chrono::milliseconds LookupWatch::errorGrace() const {
    return mErrorGrace;
}

uint32 LookupWatch::onMox(uint32 id, void* data, uint32 size) {
    std::lock_guard<std::mutex> lock(mMutex);
    if ((id == 1 || id == 2) && size == sizeof(int32)) {
        int32 value = 0;
        std::memcpy(&value, data, sizeof(value));
        if (id == 1) {
            mLinkLost = mLinkLost || (mLinked && value == 0 && !mStopping);
            mLinked = value != 0;
        } else if (!mSettled) {
            addStateLocked(value);
        }
    } else if (id == 3 && size == 1) {
        const uint8 status = *static_cast<const uint8*>(data);
        mDeviceGone = status == 0 || status == 3;
        mDeviceSeen = mDeviceSeen || status == 1 || status == 2;
    }
    mChanged.notify_all();
    return 1;
}

void LookupWatch::setInterruptFlag(const std::atomic<int>* flag) {
    std::lock_guard<std::mutex> lock(mMutex);
    mInterrupt = flag;
}

int LookupWatch::interruptedBy() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mInterruptedBy;
}

bool LookupWatch::waitForLink(Clock::time_point deadline, LookupFailure* why) {
    std::unique_lock<std::mutex> lock(mMutex);
    for (;;) {
        if (mLinked) {
            return true;
        }
        if (mLinkLost || mDeviceGone) {
            if (mLastState == RS::kIdle) {
                *why = mLinkLost || mDeviceSeen
                           ? LookupFailure(LookupFailure::kLinkLost, "link lost")
                           : LookupFailure(LookupFailure::kNoPhone,
                                           "no phone: the phone could not be reached");
                return false;
            }
        } else if (mLastState == RS::kError) {
            *why = LookupFailure(LookupFailure::kTimedOut,
                                 "timed out: the phone did not answer the connect");
            return false;
        } else if (RS::isPhoneStatus(mLastState)) {
            *why = LookupFailure::phoneStatus(mLastState, " on the connect");
            return false;
        } else if (mLastState == RS::kIdle && mStateCount > 1) {
            *why = LookupFailure(LookupFailure::kLinkLost, "the connect ended without a link");
            return false;
        }
        if (!waitTick(lock, deadline)) {
            *why = mInterruptedBy != 0 ? LookupFailure::cancelled(mInterruptedBy)
                                       : LookupFailure(LookupFailure::kTimedOut,
                                                       "timed out waiting for the phone link");
            return false;
        }
    }
}

void LookupWatch::drawProgress() const {
    std::lock_guard<std::mutex> lock(mMutex);
    drawProgressLocked();
}

void LookupWatch::markSearching() {
    std::lock_guard<std::mutex> lock(mMutex);
    mSearching = true;
    mSearchFrom = mStateCount;
}

void LookupWatch::markStopping() {
    std::lock_guard<std::mutex> lock(mMutex);
    mStopping = true;
}

int32 LookupWatch::waitForEnd(Clock::time_point deadline) {
    std::unique_lock<std::mutex> lock(mMutex);
    for (;;) {
        if (settledLocked()) {
            mSettled = true;
            return mLastState;
        }
        if (!waitTick(lock, deadline)) {
            mSettled = true;
            return -1;
        }
    }
}

void LookupWatch::waitForUnlink(Clock::time_point deadline) {
    std::unique_lock<std::mutex> lock(mMutex);
    while (mLinked && waitTick(lock, deadline, false)) {
    }
}

std::vector<int32> LookupWatch::states() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mStates;
}

uint64_t LookupWatch::statesLeftOut() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mStateCount > mStates.size() ? mStateCount - mStates.size() : 0;
}

int32 LookupWatch::lastState() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mLastState;
}

bool LookupWatch::linked() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mLinked;
}

LookupFailure LookupWatch::failure(int32 state) const {
    std::lock_guard<std::mutex> lock(mMutex);
    if (state < 0 && mInterruptedBy != 0) {
        return LookupFailure::cancelled(mInterruptedBy);
    }
    if (state < 0) {
        return LookupFailure(LookupFailure::kTimedOut,
                             "timed out waiting for the lookup to end (result state " +
                                 std::to_string(mLastState) + ")");
    }
    // A timeout or an error comes first when there is one: a failure code
    // ends the wait, so any that follows them answers the module's cancel.
    if (mSearchFirstEnd == RS::kTimeout) {
        return LookupFailure(LookupFailure::kTimedOut,
                             "timed out: the phone did not answer in time");
    }
    if (mSearchFirstEnd == 0 && mSearchFailureCode != 0) {
        return LookupFailure::phoneStatus(mSearchFailureCode, "");
    }
    if (mLinkLost || mDeviceGone) {
        return LookupFailure(LookupFailure::kLinkLost, "link lost");
    }
    if (mSearchFirstEnd == RS::kError) {
        return LookupFailure(LookupFailure::kRefused, "the phone's answer was refused");
    }
    return LookupFailure(LookupFailure::kCancelled, "the module cancelled the search");
}

void LookupWatch::addStateLocked(int32 value) {
    if (mStates.size() < kStatesKept) {
        mStates.push_back(value);
    }
    ++mStateCount;
    mLastState = value;
    mLastChange = Clock::now();
    if (!mSearching) {
        return;
    }
    if (mSearchFailureCode == 0 && RS::isPhoneStatus(value)) {
        mSearchFailureCode = value;
    }
    if (mSearchFirstEnd == 0 && RS::isModuleFailure(value)) {
        mSearchFirstEnd = value;
    }
}

bool LookupWatch::settledLocked() const {
    if (!mSearching) {
        return false;
    }
    if (mLinkLost && mLastState == RS::kIdle) {
        return true;  // the module gave up, or dropped the search for want of a link
    }
    if (mStateCount <= mSearchFrom) {
        return false;
    }
    if (mLastState == RS::kComplete || mLastState == RS::kIdle || RS::isPhoneStatus(mLastState)) {
        return true;
    }
    return mLastState == RS::kError && Clock::now() - mLastChange >= mErrorGrace;
}

bool LookupWatch::waitTick(std::unique_lock<std::mutex>& lock, Clock::time_point deadline,
                           bool interruptible) {
    drawProgressLocked();
    if (interruptible && mInterrupt != nullptr && mInterrupt->load() != 0) {
        mInterruptedBy = mInterrupt->load();
        return false;
    }
    const Clock::time_point now = Clock::now();
    if (now >= deadline) {
        return false;
    }
    const Clock::time_point next = now + std::chrono::milliseconds(100);
    mChanged.wait_until(lock, next < deadline ? next : deadline);
    return true;
}

void LookupWatch::drawProgressLocked() const {
    if (!mProgress) {
        return;
    }
    const double elapsed = std::chrono::duration<double>(Clock::now() - mStarted).count();
    std::string name = mLinked ? "connected" : "connecting";
    if (mSearching && mStateCount > mSearchFrom) {
        name = RS::name(mLastState);
    } else if (mSearching) {
        name = "searching";
    }
    if (mLinkLost) {
        name = "link lost";
    }
    std::fprintf(stderr, "\r\033[K%s  %.1f s", name.c_str(), elapsed);
    std::fflush(stderr);
}
