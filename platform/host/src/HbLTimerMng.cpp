#include "HbFramework/HbLTimerMng.h"

#include <poll.h>
#include <pthread.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <cstdint>

#include "HbFramework/HbSingletonFinalizer.h"

namespace {

// Longest sleep while the kernel refuses the manager its timer descriptor.
const uint64 kRetryMs = 1000u;

// Handles are plain numbers carried in a pointer-typed token; they are never
// dereferenced, so a stale handle can only fail to match.
HbLTimerSubInfo* toHandle(std::uintptr_t token) {
    return reinterpret_cast<HbLTimerSubInfo*>(token);
}

std::uintptr_t toToken(HbLTimerSubInfo* handle) {
    return reinterpret_cast<std::uintptr_t>(handle);
}

// A time of CLOCK_MONOTONIC in ms, as the absolute time of a timerfd; 0
// disarms it.
itimerspec absoluteDeadline(uint64 monotonicMs) {
    itimerspec setting{};
    setting.it_value.tv_sec = static_cast<time_t>(monotonicMs / 1000u);
    setting.it_value.tv_nsec = static_cast<long>((monotonicMs % 1000u) * 1000000u);
    return setting;
}

int createTimerFd() {
    return timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC);
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
      mSteadyClock(),
      mClock(&mSteadyClock),
      mStopping(false),
      mRunningTimer(nullptr),
      mTimerFd(createTimerFd()),
      mWakeSet(false),
      mProgrammedMs(0) {
    mThread = std::thread([this] { run(); });
    std::lock_guard<std::mutex> lock(mMutex);
    mThreadId = mThread.get_id();
}

HbLTimerMng::~HbLTimerMng() {
    Stop();
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

// After every change of the armings: the kernel timer is moved to the
// earliest deadline (or disarmed) without waking the manager thread. A
// wake-up that is set stays until the thread has woken (it looks at
// everything then). False when the kernel refused the deadline.
bool HbLTimerMng::programLocked() {
    if (mTimerFd < 0 || mWakeSet) {
        return mTimerFd >= 0;
    }
    const uint64 earliest = earliestDueLocked();
    const uint64 wanted = (mStopping || earliest == 0) ? 0 : mClock->MonotonicMs(earliest);
    if (wanted == mProgrammedMs) {
        return true;
    }
    const itimerspec setting = absoluteDeadline(wanted);
    if (timerfd_settime(mTimerFd, TFD_TIMER_ABSTIME, &setting, nullptr) != 0) {
        return false;
    }
    mProgrammedMs = wanted;
    return true;
}

// Sets the kernel timer to expire at once: a deadline long past.
void HbLTimerMng::wakeThreadLocked() {
    if (mTimerFd < 0 || mWakeSet) {
        return;
    }
    itimerspec setting{};
    setting.it_value.tv_nsec = 1;
    if (timerfd_settime(mTimerFd, TFD_TIMER_ABSTIME, &setting, nullptr) == 0) {
        mWakeSet = true;
        mProgrammedMs = 0;
    }
}

// Sleeps until the kernel timer expires, with the lock released. Without
// the descriptor (the kernel refused it), or with a deadline that the kernel
// refused, it sleeps at most kRetryMs and then asks again.
void HbLTimerMng::waitLocked(std::unique_lock<std::mutex>& lock) {
    if (mTimerFd < 0) {
        mTimerFd = createTimerFd();
    }
    int timeoutMs = -1;
    if (!programLocked()) {
        timeoutMs = static_cast<int>(kRetryMs);
        const uint64 earliest = earliestDueLocked();
        if (earliest != 0 && mClock->MonotonicMs(earliest) != 0) {
            const uint64 now = mClock->NowMs();
            const uint64 left = earliest > now ? earliest - now : 0;
            timeoutMs = static_cast<int>(left < kRetryMs ? left : kRetryMs);
        }
    }
    const int fd = mTimerFd;
    pollfd fds[1] = {{fd, POLLIN, 0}};
    lock.unlock();
    poll(fd >= 0 ? fds : nullptr, fd >= 0 ? 1 : 0, timeoutMs);
    lock.lock();
    // Read under the lock, so that a deadline set meanwhile by another thread
    // (which resets the expiry) is not mistaken for the one that fired. The
    // thread looks at everything now, so a wake-up asked for is done.
    uint64 count = 0;
    if (fd >= 0 && read(fd, &count, sizeof(count)) == static_cast<ssize_t>(sizeof(count))) {
        mProgrammedMs = 0;  // a one-shot kernel timer is disarmed once it fired
    }
    if (mWakeSet) {
        mWakeSet = false;
        mProgrammedMs = 0;  // the wake-up may still be set: program anew
        const itimerspec off{};
        if (fd >= 0) {
            timerfd_settime(fd, TFD_TIMER_ABSTIME, &off, nullptr);
        }
    }
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
    if (timer->mMngToken == 0) {
        timer->mMngToken = mNextToken++;
        if (mNextToken == 0) {
            mNextToken = 1;  // 0 is the null handle
        }
    }
    const uint64 nowMs = mClock->NowMs();
    const uint64 dueMs = nowMs + mClock->PeriodMs(periodMs);
    mArmings[timer] = Arming{timer->mMngToken, dueMs, mNextOrder++};
    // A clock without a kernel deadline (a manual one) wakes the thread for
    // an arming that is due at once, as does a deadline that the kernel refused.
    const bool dueWithoutDeadline = mClock->MonotonicMs(dueMs) == 0 && dueMs <= nowMs;
    if (!programLocked() || dueWithoutDeadline) {
        wakeThreadLocked();
    }
    return toHandle(timer->mMngToken);
}

// Tells the clock, with the lock released, that a call is about to return;
// the call has taken effect and its result is settled.
void HbLTimerMng::returnThroughClock(std::unique_lock<std::mutex>& lock,
                                     HbLTimerClock::EN_CALL call, HbLTimerBase* timer) {
    HbLTimerClock* clock = mClock;
    lock.unlock();
    clock->OnCallReturning(call, timer);
}

HbLTimerSubInfo* HbLTimerMng::AddTimer(HbLTimerBase* timer, uint32 periodMs) {
    if (timer == nullptr) {
        return nullptr;
    }
    std::unique_lock<std::mutex> lock(mMutex);
    HbLTimerSubInfo* handle = armLocked(timer, periodMs);
    returnThroughClock(lock, HbLTimerClock::en_CALL_ADD_TIMER, timer);
    return handle;
}

bool HbLTimerMng::IsActive(HbLTimerSubInfo* handle, HbLTimerBase* timer) {
    if (timer == nullptr) {
        return false;
    }
    std::unique_lock<std::mutex> lock(mMutex);
    const bool active = findLocked(handle, timer) != mArmings.end();
    returnThroughClock(lock, HbLTimerClock::en_CALL_IS_ACTIVE, timer);
    return active;
}

bool HbLTimerMng::RemoveTimer(HbLTimerSubInfo* handle, HbLTimerBase* timer) {
    if (timer == nullptr) {
        return false;
    }
    std::unique_lock<std::mutex> lock(mMutex);
    // A callback may remove its own timer; only other threads wait for it.
    if (std::this_thread::get_id() != mThreadId && mRunningTimer == timer) {
        mClock->OnRemoveWaiting();
        mCallbackDone.wait(lock, [this, timer] { return mRunningTimer != timer; });
    }
    auto found = findLocked(handle, timer);
    const bool removed = found != mArmings.end();
    if (removed) {
        mArmings.erase(found);
        programLocked();  // a refused deadline is retried by the thread
    }
    returnThroughClock(lock, HbLTimerClock::en_CALL_REMOVE_TIMER, timer);
    return removed;
}

void HbLTimerMng::SetClock(HbLTimerClock* clock) {
    HbLTimerClock* const next = clock != nullptr ? clock : &mSteadyClock;
    std::lock_guard<std::mutex> lock(mMutex);
    if (next == mClock) {
        return;
    }
    const uint64 before = mClock->NowMs();
    const uint64 after = next->NowMs();
    for (auto& entry : mArmings) {
        const uint64 remaining = entry.second.dueMs > before ? entry.second.dueMs - before : 0;
        entry.second.dueMs = after + remaining;
    }
    mClock = next;
    wakeThreadLocked();
}

HbLTimerClock* HbLTimerMng::GetClock() {
    std::lock_guard<std::mutex> lock(mMutex);
    return mClock;
}

void HbLTimerMng::MoveClock(HbLTimerClock* clock, const std::function<void()>& move) {
    std::unique_lock<std::mutex> lock(mMutex);
    if (clock != mClock || std::this_thread::get_id() == mThreadId) {
        return;
    }
    move();
    wakeThreadLocked();
    mCallbackDone.wait(lock, [this] {
        if (mStopping) {
            return true;
        }
        if (mRunningTimer != nullptr) {
            return false;
        }
        const uint64 now = mClock->NowMs();
        for (const auto& entry : mArmings) {
            if (entry.second.dueMs <= now) {
                return false;
            }
        }
        return true;
    });
}

void HbLTimerMng::SetTimeScale(double scale) {
    std::lock_guard<std::mutex> lock(mMutex);
    mSteadyClock.SetScale(scale);
}

double HbLTimerMng::GetTimeScale() {
    std::lock_guard<std::mutex> lock(mMutex);
    return mSteadyClock.GetScale();
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
    const uint64 now = mClock->NowMs();
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
        mCallbackDone.notify_all();  // MoveClock() may wait for this moment
        waitLocked(lock);
    }
    if (mTimerFd >= 0) {
        close(mTimerFd);
    }
    mTimerFd = -1;
    mProgrammedMs = 0;
}
