// The framework's timer manager: one thread ("HbLTimerMng") that runs one-shot
// timers.
// - AddTimer() arms `timer` once for `periodMs` and returns a handle.
// - IsActive() and RemoveTimer() accept stale handles safely.
// - Expiry calls timer->CallBack() on the manager thread with no lock held, so
//   the callback may re-arm or remove timers.
// - RemoveTimer() called on another thread while a callback of that timer runs
//   waits until the callback has returned.
// - Host only: a manual clock for tests (UseManualClock, AdvanceClock) and a
//   time scale for integration runs (environment HB_TIMER_SCALE, a positive
//   factor applied to every period of the real clock, e.g. 0.001).
// Can be used from any thread.
#ifndef HB_FRAMEWORK_HBLTIMERMNG_H
#define HB_FRAMEWORK_HBLTIMERMNG_H

#include <condition_variable>
#include <map>
#include <mutex>
#include <thread>

#include "HbFramework/HbLTimerBase.h"
#include "HbFramework/HbTypes.h"

class HbLTimerMng {
public:
    static HbLTimerMng* GetTimerMng();

    // Returns null (and arms nothing) for a null timer or once the manager is stopped.
    HbLTimerSubInfo* AddTimer(HbLTimerBase* timer, uint32 periodMs);
    // True while the arming named by `handle` belongs to `timer` and has not
    // expired or been removed.
    bool IsActive(HbLTimerSubInfo* handle, HbLTimerBase* timer);
    // Disarms; true when the arming was active.
    bool RemoveTimer(HbLTimerSubInfo* handle, HbLTimerBase* timer);

    // Host only. Switches to a manual clock that starts at 0 ms and moves only
    // with AdvanceClock(). Armed timers keep their remaining time.
    void UseManualClock();
    // Host only. Moves the manual clock forward and returns once every callback
    // due by the new time has run (callbacks still run on the manager thread).
    // Must not be called from a timer callback.
    void AdvanceClock(uint32 ms);
    // Host only. Factor for every period on the real clock (1.0 = real time).
    void SetTimeScale(double scale);
    // Host only. Number of armed timers.
    size_t ActiveCount();
    // Host only. Stops the manager thread; later AddTimer calls arm nothing.
    void Stop();

private:
    HbLTimerMng();
    ~HbLTimerMng();

    struct Arming {
        HbLTimerBase* timer;
        uint64 dueMs;
    };

    uint64 nowMsLocked() const;
    void run();
    bool runOneDue(std::unique_lock<std::mutex>& lock);

    std::mutex mMutex;                     // guards every member below
    std::condition_variable mWake;         // manager thread waits here
    std::condition_variable mCallbackDone; // RemoveTimer / AdvanceClock wait here
    std::map<uint32, Arming> mArmings;     // token -> arming
    uint32 mNextToken;
    bool mManual;
    uint64 mManualNowMs;
    double mScale;
    bool mStopping;
    HbLTimerBase* mRunningTimer;  // timer whose callback runs now, or null
    uint64 mRunningCount;         // callbacks started so far
    std::thread mThread;
    std::thread::id mThreadId;
};

#endif  // HB_FRAMEWORK_HBLTIMERMNG_H
