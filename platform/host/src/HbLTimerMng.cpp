#include "HbFramework/HbLTimerMng.h"

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

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
HbLTimerSubInfo* toHandle(std::uintptr_t token) {
    return reinterpret_cast<HbLTimerSubInfo*>(token);
}

std::uintptr_t toToken(HbLTimerSubInfo* handle) {
    return reinterpret_cast<std::uintptr_t>(handle);
}

uint64 steadyMs() {
    using namespace std::chrono;
    return static_cast<uint64>(
        duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
}

// A deadline of the steady clock (CLOCK_MONOTONIC) in ms, as the absolute
// time of a timerfd; 0 disarms it.
itimerspec absoluteDeadline(uint64 dueMs) {
    itimerspec setting{};
    setting.it_value.tv_sec = static_cast<time_t>(dueMs / 1000u);
    setting.it_value.tv_nsec = static_cast<long>((dueMs % 1000u) * 1000000u);
    return setting;
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
      mNextOrder(0),
      mManual(false),
      mManualNowMs(0),
      mScale(scaleFromEnvironment()),
      mStopping(false),
      mRunningTimer(nullptr),
      mRunningCount(0),
      mTimerFd(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC)),
      mWakeFd(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)),
      mProgrammedDueMs(0) {
    if (mTimerFd < 0 || mWakeFd < 0) {
        closeDescriptorsLocked();  // no thread yet: the lock is not needed
    }
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

// The due time of the earliest arming; 0 when nothing is armed.
uint64 HbLTimerMng::earliestDueLocked() const {
    uint64 earliest = 0;
    for (const auto& entry : mArmings) {
        if (earliest == 0 || entry.second.dueMs < earliest) {
            earliest = entry.second.dueMs;
        }
    }
    return earliest;
}

// After every change of the armings or of the clock: the kernel timer is moved
// to the earliest deadline (or disarmed) without waking the manager thread.
// The manual clock has no kernel deadline; its thread is woken to look, as it
// is when the kernel timer refused the deadline.
void HbLTimerMng::rescheduleLocked() {
    if (mTimerFd < 0) {
        mWake.notify_all();
        return;
    }
    if (!programLocked() || mManual) {
        wakeThreadLocked();
    }
}

// Sets the kernel timer to the earliest deadline of the real clock, or
// disarms it; false when the kernel refused.
bool HbLTimerMng::programLocked() {
    const uint64 wanted = (mManual || mStopping) ? 0 : earliestDueLocked();
    if (wanted == mProgrammedDueMs) {
        return true;
    }
    const itimerspec setting = absoluteDeadline(wanted);
    if (timerfd_settime(mTimerFd, TFD_TIMER_ABSTIME, &setting, nullptr) != 0) {
        return false;
    }
    mProgrammedDueMs = wanted;
    return true;
}

void HbLTimerMng::wakeThreadLocked() {
    if (mWakeFd < 0) {
        mWake.notify_all();
        return;
    }
    const uint64 one = 1;
    // Fails only when the counter is full, and then the thread is awake anyway.
    ssize_t written = write(mWakeFd, &one, sizeof(one));
    (void)written;
}

// Sleeps until the earliest deadline or a wake-up, with the lock released.
void HbLTimerMng::waitLocked(std::unique_lock<std::mutex>& lock) {
    const uint64 earliest = earliestDueLocked();
    if (mTimerFd < 0) {
        if (earliest == 0 || mManual) {
            mWake.wait(lock);
            return;
        }
        const uint64 now = nowMsLocked();
        mWake.wait_for(lock, std::chrono::milliseconds(earliest > now ? earliest - now : 0));
        return;
    }
    // A deadline the kernel timer does not hold (it refused it) is waited for
    // with a timeout, retried at least every second.
    int timeoutMs = -1;
    if (!programLocked() && !mManual && earliest != 0) {
        const uint64 now = nowMsLocked();
        const uint64 left = earliest > now ? earliest - now : 0;
        timeoutMs = static_cast<int>(left < 1000u ? left : 1000u);
    }
    pollfd fds[2] = {{mTimerFd, POLLIN, 0}, {mWakeFd, POLLIN, 0}};
    lock.unlock();
    poll(fds, 2, timeoutMs);
    lock.lock();
    // Read under the lock, so that a deadline set meanwhile by another thread
    // (which resets the expiry) is not mistaken for the one that fired.
    uint64 count = 0;
    if (read(mTimerFd, &count, sizeof(count)) == static_cast<ssize_t>(sizeof(count))) {
        mProgrammedDueMs = 0;  // a one-shot kernel timer is disarmed once it fired
    }
    ssize_t drained = read(mWakeFd, &count, sizeof(count));
    (void)drained;
}

void HbLTimerMng::closeDescriptorsLocked() {
    if (mTimerFd >= 0) {
        close(mTimerFd);
    }
    if (mWakeFd >= 0) {
        close(mWakeFd);
    }
    mTimerFd = -1;
    mWakeFd = -1;
    mProgrammedDueMs = 0;
}

// The arming of `timer` when `handle` names it (the timer's own token or
// null); end() when the timer is not armed or the handle is another timer's.
HbLTimerMng::Armings::iterator HbLTimerMng::findLocked(HbLTimerSubInfo* handle,
                                                       HbLTimerBase* timer) {
    auto it = mArmings.find(timer);
    if (it == mArmings.end() || handle == nullptr || toToken(handle) == it->second.token) {
        return it;
    }
    return mArmings.end();
}

// Arms `timer` once, replacing an arming it has; gives the timer its token on
// its first arming.
HbLTimerSubInfo* HbLTimerMng::armLocked(HbLTimerBase* timer, uint32 periodMs) {
    if (mStopping) {
        return nullptr;
    }
    uint64 delay = periodMs;
    if (!mManual && mScale != 1.0) {
        delay = static_cast<uint64>(std::ceil(static_cast<double>(periodMs) * mScale));
    }
    if (timer->mMngToken == 0) {
        timer->mMngToken = mNextToken++;
        if (mNextToken == 0) {
            mNextToken = 1;  // 0 is the null handle
        }
    }
    mArmings[timer] = Arming{timer->mMngToken, nowMsLocked() + delay, mNextOrder++};
    rescheduleLocked();
    return toHandle(timer->mMngToken);
}

// Runs the call hook, if any, with the lock released; the call has taken
// effect and its result is settled.
void HbLTimerMng::returnThroughHook(std::unique_lock<std::mutex>& lock, EN_CALL call,
                                    HbLTimerBase* timer) {
    if (!mCallHook) {
        return;
    }
    CallHook hook = mCallHook;
    lock.unlock();
    hook(call, timer);
}

HbLTimerSubInfo* HbLTimerMng::AddTimer(HbLTimerBase* timer, uint32 periodMs) {
    if (timer == nullptr) {
        return nullptr;
    }
    std::unique_lock<std::mutex> lock(mMutex);
    HbLTimerSubInfo* handle = armLocked(timer, periodMs);
    returnThroughHook(lock, en_CALL_ADD_TIMER, timer);
    return handle;
}

bool HbLTimerMng::IsActive(HbLTimerSubInfo* handle, HbLTimerBase* timer) {
    if (timer == nullptr) {
        return false;
    }
    std::unique_lock<std::mutex> lock(mMutex);
    const bool active = findLocked(handle, timer) != mArmings.end();
    returnThroughHook(lock, en_CALL_IS_ACTIVE, timer);
    return active;
}

bool HbLTimerMng::RemoveTimer(HbLTimerSubInfo* handle, HbLTimerBase* timer) {
    if (timer == nullptr) {
        return false;
    }
    std::unique_lock<std::mutex> lock(mMutex);
    // A callback may remove its own timer; only other threads wait for it.
    if (std::this_thread::get_id() != mThreadId && mRunningTimer == timer) {
        if (mRemoveWaitHook) {
            mRemoveWaitHook();
        }
        mCallbackDone.wait(lock, [this, timer] { return mRunningTimer != timer; });
    }
    auto found = findLocked(handle, timer);
    const bool removed = found != mArmings.end();
    if (removed) {
        mArmings.erase(found);
        rescheduleLocked();
    }
    returnThroughHook(lock, en_CALL_REMOVE_TIMER, timer);
    return removed;
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
    rescheduleLocked();
}

void HbLTimerMng::AdvanceClock(uint32 ms) {
    std::unique_lock<std::mutex> lock(mMutex);
    if (!mManual || std::this_thread::get_id() == mThreadId) {
        return;
    }
    mManualNowMs += ms;
    wakeThreadLocked();
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

void HbLTimerMng::UseRealClock() {
    std::lock_guard<std::mutex> lock(mMutex);
    if (!mManual) {
        return;
    }
    uint64 now = steadyMs();
    for (auto& entry : mArmings) {
        uint64 remaining =
            entry.second.dueMs > mManualNowMs ? entry.second.dueMs - mManualNowMs : 0;
        entry.second.dueMs = now + remaining;
    }
    mManual = false;
    rescheduleLocked();
}

void HbLTimerMng::SetRemoveWaitHook(std::function<void()> hook) {
    std::lock_guard<std::mutex> lock(mMutex);
    mRemoveWaitHook = std::move(hook);
}

void HbLTimerMng::SetCallHook(CallHook hook) {
    std::lock_guard<std::mutex> lock(mMutex);
    mCallHook = std::move(hook);
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
        wakeThreadLocked();
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
        if (it->second.dueMs > now) {
            continue;
        }
        if (due == mArmings.end() || it->second.dueMs < due->second.dueMs ||
            (it->second.dueMs == due->second.dueMs && it->second.order < due->second.order)) {
            due = it;
        }
    }
    if (due == mArmings.end()) {
        return false;
    }
    HbLTimerBase* timer = due->first;
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
        }
        waitLocked(lock);
    }
    closeDescriptorsLocked();
}
