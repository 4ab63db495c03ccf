// The framework's timer manager: one thread ("HbLTimerMng") that runs one-shot
// timers.
// - AddTimer() arms `timer` once for `periodMs` and returns a handle.
// - IsActive() and RemoveTimer() accept stale handles safely.
// - Expiry calls timer->CallBack() on the manager thread with no lock held, so
//   the callback may re-arm or remove timers.
// - RemoveTimer() called on another thread while a callback of that timer runs
//   waits until the callback has returned.
// - Host only: a manual clock for tests (UseManualClock, AdvanceClock) and a
//   time scale for integration runs (environment HB_TIMER_SCALE, a factor in
//   (0, 1000] applied to every period of the real clock, e.g. 0.001).
// Can be used from any thread.
#ifndef HB_FRAMEWORK_HBLTIMERMNG_H
#define HB_FRAMEWORK_HBLTIMERMNG_H

#include <condition_variable>
#include <functional>
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
    // Host only. Factor for every period on the real clock (1.0 = real time);
    // a value outside (0, 1000] is ignored.
    void SetTimeScale(double scale);
    // Host only. The factor in force (HB_TIMER_SCALE, 1.0 when unset or invalid).
    double GetTimeScale();
    // Host only. Number of armed timers.
    size_t ActiveCount();
    // Host only. Stops the manager thread; later AddTimer calls arm nothing.
    void Stop();
    // Host only, for tests: `hook` runs each time RemoveTimer() starts waiting
    // for a running callback, with the manager's lock held (it must not call
    // the manager).
    void SetRemoveWaitHook(std::function<void()> hook);

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

    std::mutex mMutex;                      // guards every member down to mRemoveWaitHook
    std::condition_variable mWake;          // the manager thread waits here for work or time
    std::condition_variable mCallbackDone;  // RemoveTimer / AdvanceClock wait here
    std::map<uint32, Arming> mArmings;      // token -> arming, armed and not yet expired
    uint32 mNextToken;                      // next handle token; 0 is never handed out
    bool mManual;                           // the manual clock is in use
    uint64 mManualNowMs;                    // time of the manual clock
    double mScale;                          // factor on real-clock periods
    bool mStopping;                         // Stop() was called
    HbLTimerBase* mRunningTimer;            // timer whose callback runs now, or null
    uint64 mRunningCount;                   // callbacks finished so far
    std::thread::id mThreadId;              // the manager thread
    std::function<void()> mRemoveWaitHook;
    std::thread mThread;  // started by the constructor, joined once by Stop()
};

#endif  // HB_FRAMEWORK_HBLTIMERMNG_H
