// The framework's timer manager: one thread ("HbLTimerMng") that runs one-shot
// timers.
// - One arming per timer: AddTimer() of a timer that is already armed moves
//   that arming to `periodMs` from now; it never adds a second one.
// - A handle names a timer, not one arming of it: AddTimer() returns the same
//   handle for a timer every time, and never one that another timer had. For
//   such a handle, or for null, IsActive() means "the timer is armed" and
//   RemoveTimer() "disarm the timer". A handle of another timer matches
//   nothing. Handles are tokens, never dereferenced, so stale ones are safe.
// - Hence an owner that keeps the handle in a field written from several
//   threads (HbTimer) cannot be misled by the order in which those stores
//   land, a store of null included: whatever the field holds names the
//   timer's one arming. Two threads that each run "if armed, remove; add;
//   store the handle" at once leave the timer armed once, and a "if armed,
//   remove" that starts after every such restart has returned leaves it
//   disarmed, whatever the interleaving.
// - Expiry removes the arming, then calls timer->CallBack() on the manager
//   thread with no lock held, so the callback may re-arm or remove timers.
//   Armings due at the same time expire in the order they were made.
// - RemoveTimer() called on another thread while a callback of that timer runs
//   waits until the callback has returned, then disarms what the callback
//   may have re-armed.
// - IsActive() and RemoveTimer() never touch the timer object; AddTimer() and
//   the expiry do, so a timer must be disarmed before it is destroyed.
// - Time comes from a clock (HbLTimerClock): the steady clock, every period
//   scaled by the environment variable HB_TIMER_SCALE (a factor in
//   (0, 1000], e.g. 0.001), unless a test puts the manager on another one
//   (HbLTimerManualClock).
// - The manager thread sleeps in the kernel on one timerfd, set to the
//   earliest deadline; it is woken only by that timer: at the deadline, or
//   at once when it must look (Stop(), a manual clock that moved, a change
//   of clock). Arming, re-arming and disarming move the deadline without
//   waking it, so restarting a timer on every received chunk costs no thread
//   switch, and with nothing armed the thread is never woken. While the
//   kernel refuses the descriptor, the thread asks again at least every
//   second.
// Can be used from any thread.
#ifndef HB_FRAMEWORK_HBLTIMERMNG_H
#define HB_FRAMEWORK_HBLTIMERMNG_H

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <thread>

#include "HbFramework/HbLTimerBase.h"
#include "HbFramework/HbLTimerClock.h"
#include "HbFramework/HbLTimerSteadyClock.h"
#include "HbFramework/HbTypes.h"

class HbLTimerMng {
public:
    static HbLTimerMng* GetTimerMng();

    // Arms `timer` to expire once, `periodMs` from now; an armed timer is
    // re-armed. Returns the timer's handle, or null (and arms nothing) for a
    // null timer or once the manager is stopped.
    HbLTimerSubInfo* AddTimer(HbLTimerBase* timer, uint32 periodMs);
    // True while `timer` is armed, when `handle` is the timer's handle or null.
    bool IsActive(HbLTimerSubInfo* handle, HbLTimerBase* timer);
    // Disarms `timer` when `handle` is its handle or null; true when it was armed.
    bool RemoveTimer(HbLTimerSubInfo* handle, HbLTimerBase* timer);

    // Host only. Puts the manager on `clock` (not owned; it must outlive the
    // manager), or back on its steady clock for null. Armed timers keep
    // their remaining time.
    void SetClock(HbLTimerClock* clock);
    // Host only. The clock in force.
    HbLTimerClock* GetClock();
    // Host only, for a clock whose time does not pass by itself: runs `move`,
    // which moves `clock` forward, under the manager's lock, and returns once
    // every callback due by the clock's new time has run (callbacks still run
    // on the manager thread). Nothing, and `move` does not run, when the
    // manager is not on `clock` or when called from a timer callback.
    void MoveClock(HbLTimerClock* clock, const std::function<void()>& move);
    // Host only. Factor for every period on the steady clock (1.0 = real
    // time); a value outside (0, 1000] is ignored.
    void SetTimeScale(double scale);
    // Host only. The factor in force (HB_TIMER_SCALE, 1.0 when unset or invalid).
    double GetTimeScale();
    // Host only. Number of armed timers.
    size_t ActiveCount();
    // Host only. Stops the manager thread; later AddTimer calls arm nothing.
    void Stop();

private:
    HbLTimerMng();
    ~HbLTimerMng();

    struct Arming {
        std::uintptr_t token;  // the timer's token, so that matching never touches the timer
        uint64 dueMs;
        uint64 order;  // arming order; breaks ties between equal due times
    };

    typedef std::map<HbLTimerBase*, Arming> Armings;

    uint64 earliestDueLocked() const;
    bool programLocked();
    void wakeThreadLocked();
    void waitLocked(std::unique_lock<std::mutex>& lock);
    Armings::iterator findLocked(HbLTimerSubInfo* handle, HbLTimerBase* timer);
    HbLTimerSubInfo* armLocked(HbLTimerBase* timer, uint32 periodMs);
    void returnThroughClock(std::unique_lock<std::mutex>& lock, HbLTimerClock::EN_CALL call,
                            HbLTimerBase* timer);
    void run();
    bool runOneDue(std::unique_lock<std::mutex>& lock);

    std::mutex mMutex;                      // guards every member down to mProgrammedMs
    std::condition_variable mCallbackDone;  // RemoveTimer / MoveClock wait here
    Armings mArmings;                       // armed timers, at most one arming each
    std::uintptr_t mNextToken;              // next timer token; 0 is never handed out
    uint64 mNextOrder;                      // order of the next arming
    HbLTimerSteadyClock mSteadyClock;       // the production clock
    HbLTimerClock* mClock;                  // the clock in force
    bool mStopping;                         // Stop() was called
    HbLTimerBase* mRunningTimer;            // timer whose callback runs now, or null
    std::thread::id mThreadId;              // the manager thread
    int mTimerFd;          // the manager thread sleeps on it; -1 while the kernel refuses it
    bool mWakeSet;         // mTimerFd is set to wake the thread at once
    uint64 mProgrammedMs;  // monotonic deadline set in mTimerFd; 0 when disarmed
    std::thread mThread;   // started by the constructor, joined once by Stop()
};

#endif  // HB_FRAMEWORK_HBLTIMERMNG_H
