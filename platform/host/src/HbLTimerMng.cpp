#include "HbFramework/HbLTimerMng.h"

#include <pthread.h>

#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>

#include "HbFramework/HbSingletonFinalizer.h"

namespace {

const double kMaxScale = 1000.0;  // largest accepted time scale

// Handles are plain numbers carried in a pointer-typed token; they are never
// dereferenced, so a stale handle can only fail to match.
HbLTimerSubInfo* toHandle(uint32 token) {
    return reinterpret_cast<HbLTimerSubInfo*>(static_cast<std::uintptr_t>(token));
}

uint32 toToken(HbLTimerSubInfo* handle) {
    return static_cast<uint32>(reinterpret_cast<std::uintptr_t>(handle));
}

uint64 steadyMs() {
    using namespace std::chrono;
    return static_cast<uint64>(
        duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
}

double scaleFromEnvironment() {
    const char* text = std::getenv("HB_TIMER_SCALE");
    if (text == nullptr) {
        return 1.0;
    }
    char* end = nullptr;
    double value = std::strtod(text, &end);
    if (end == text || !(value > 0.0) || value > kMaxScale) {
        return 1.0;
    }
    return value;
}

}  // namespace

HbLTimerMng* HbLTimerMng::GetTimerMng() {
    // Created once and never deleted: timers may be touched until the very end
    // of the process; finalize() stops the thread.
    static HbLTimerMng* manager = [] {
        HbLTimerMng* created = new HbLTimerMng();
        HbSingletonFinalizer::addThreadStopper([created] { created->Stop(); });
        return created;
    }();
    return manager;
}

HbLTimerMng::HbLTimerMng()
    : mNextToken(1),
      mManual(false),
      mManualNowMs(0),
      mScale(scaleFromEnvironment()),
      mStopping(false),
      mRunningTimer(nullptr),
      mRunningCount(0) {
    mThread = std::thread([this] { run(); });
    std::lock_guard<std::mutex> lock(mMutex);
    mThreadId = mThread.get_id();
}

HbLTimerMng::~HbLTimerMng() {
    Stop();
}

uint64 HbLTimerMng::nowMsLocked() const {
    return mManual ? mManualNowMs : steadyMs();
}

HbLTimerSubInfo* HbLTimerMng::AddTimer(HbLTimerBase* timer, uint32 periodMs) {
    if (timer == nullptr) {
        return nullptr;
    }
    std::lock_guard<std::mutex> lock(mMutex);
    if (mStopping) {
        return nullptr;
    }
    uint64 delay = periodMs;
    if (!mManual && mScale != 1.0) {
        delay = static_cast<uint64>(std::ceil(static_cast<double>(periodMs) * mScale));
    }
    uint32 token = mNextToken++;
    if (mNextToken == 0) {
        mNextToken = 1;  // 0 is the null handle
    }
    mArmings[token] = Arming{timer, nowMsLocked() + delay};
    mWake.notify_all();
    return toHandle(token);
}

bool HbLTimerMng::IsActive(HbLTimerSubInfo* handle, HbLTimerBase* timer) {
    std::lock_guard<std::mutex> lock(mMutex);
    auto it = mArmings.find(toToken(handle));
    return it != mArmings.end() && it->second.timer == timer;
}

bool HbLTimerMng::RemoveTimer(HbLTimerSubInfo* handle, HbLTimerBase* timer) {
    std::unique_lock<std::mutex> lock(mMutex);
    // A callback may remove its own timer; only other threads wait for it.
    if (std::this_thread::get_id() != mThreadId && mRunningTimer == timer) {
        if (mRemoveWaitHook) {
            mRemoveWaitHook();
        }
        mCallbackDone.wait(lock, [this, timer] { return mRunningTimer != timer; });
    }
    auto it = mArmings.find(toToken(handle));
    if (it == mArmings.end() || it->second.timer != timer) {
        return false;
    }
    mArmings.erase(it);
    mWake.notify_all();
    return true;
}

void HbLTimerMng::UseManualClock() {
    std::lock_guard<std::mutex> lock(mMutex);
    if (mManual) {
        return;
    }
    uint64 now = steadyMs();
    for (auto& entry : mArmings) {
        uint64 remaining = entry.second.dueMs > now ? entry.second.dueMs - now : 0;
        entry.second.dueMs = remaining;
    }
    mManual = true;
    mManualNowMs = 0;
    mWake.notify_all();
}

void HbLTimerMng::AdvanceClock(uint32 ms) {
    std::unique_lock<std::mutex> lock(mMutex);
    if (!mManual || std::this_thread::get_id() == mThreadId) {
        return;
    }
    mManualNowMs += ms;
    mWake.notify_all();
    mCallbackDone.wait(lock, [this] {
        if (mStopping) {
            return true;
        }
        if (mRunningTimer != nullptr) {
            return false;
        }
        for (const auto& entry : mArmings) {
            if (entry.second.dueMs <= mManualNowMs) {
                return false;
            }
        }
        return true;
    });
}

void HbLTimerMng::SetRemoveWaitHook(std::function<void()> hook) {
    std::lock_guard<std::mutex> lock(mMutex);
    mRemoveWaitHook = std::move(hook);
}

void HbLTimerMng::SetTimeScale(double scale) {
    // Bounded like the environment setting, so a scaled period always fits.
    if (!(scale > 0.0) || scale > kMaxScale) {
        return;
    }
    std::lock_guard<std::mutex> lock(mMutex);
    mScale = scale;
}

double HbLTimerMng::GetTimeScale() {
    std::lock_guard<std::mutex> lock(mMutex);
    return mScale;
}

size_t HbLTimerMng::ActiveCount() {
    std::lock_guard<std::mutex> lock(mMutex);
    return mArmings.size();
}

void HbLTimerMng::Stop() {
    {
        std::lock_guard<std::mutex> lock(mMutex);
        if (mStopping) {
            return;
        }
        mStopping = true;
        mArmings.clear();
        mWake.notify_all();
        mCallbackDone.notify_all();
    }
    if (mThread.joinable() && std::this_thread::get_id() != mThread.get_id()) {
        mThread.join();
    }
}

// Runs the earliest arming that is due, if any, with the lock released during
// its callback. Returns whether one ran.
bool HbLTimerMng::runOneDue(std::unique_lock<std::mutex>& lock) {
    const uint64 now = nowMsLocked();
    auto due = mArmings.end();
    for (auto it = mArmings.begin(); it != mArmings.end(); ++it) {
        if (it->second.dueMs <= now &&
            (due == mArmings.end() || it->second.dueMs < due->second.dueMs)) {
            due = it;
        }
    }
    if (due == mArmings.end()) {
        return false;
    }
    HbLTimerBase* timer = due->second.timer;
    mArmings.erase(due);
    mRunningTimer = timer;
    lock.unlock();
    unsigned int param = 0;
    timer->CallBack(param);
    lock.lock();
    mRunningTimer = nullptr;
    ++mRunningCount;
    mCallbackDone.notify_all();
    return true;
}

void HbLTimerMng::run() {
    pthread_setname_np(pthread_self(), "HbLTimerMng");
    std::unique_lock<std::mutex> lock(mMutex);
    while (!mStopping) {
        if (runOneDue(lock)) {
            continue;
        }
        if (mArmings.empty() || mManual) {
            mCallbackDone.notify_all();
            mWake.wait(lock);
            continue;
        }
        uint64 earliest = std::numeric_limits<uint64>::max();
        for (const auto& entry : mArmings) {
            earliest = entry.second.dueMs < earliest ? entry.second.dueMs : earliest;
        }
        uint64 now = nowMsLocked();
        mWake.wait_for(lock, std::chrono::milliseconds(earliest > now ? earliest - now : 0));
    }
}
