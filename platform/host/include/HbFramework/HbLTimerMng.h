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
// - RemoveTimer() called on another thread while a callback of that timer runs
//   waits until the callback has returned, then disarms what the callback
//   may have re-armed.
// - IsActive() and RemoveTimer() never touch the timer object; AddTimer() and
//   the expiry do, so a timer must be disarmed before it is destroyed.
// - The manager thread sleeps in the kernel until the earliest deadline (a
//   timerfd) or until it is told to stop; arming, re-arming and disarming
//   move that deadline without waking it, so restarting a timer on every
//   received chunk costs no thread switch, and with nothing armed the thread
//   is never woken. Where the kernel gives no such descriptors, the thread
//   is woken on every change instead.
// - Host only: a manual clock for tests (UseManualClock, AdvanceClock,
//   UseRealClock) and a time scale for integration runs (environment
//   HB_TIMER_SCALE, a factor in (0, 1000] applied to every period of the real
//   clock, e.g. 0.001).
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
#include "HbFramework/HbTypes.h"

class HbLTimerMng {
public:
    // Host only, for tests: the calls after which the call hook runs.
    enum EN_CALL {
        en_CALL_IS_ACTIVE,
        en_CALL_REMOVE_TIMER,
        en_CALL_ADD_TIMER,
    };
    typedef std::function<void(EN_CALL call, HbLTimerBase* timer)> CallHook;

    static HbLTimerMng* GetTimerMng();

    // Arms `timer` to expire once, `periodMs` from now; an armed timer is
    // re-armed. Returns the timer's handle, or null (and arms nothing) for a
    // null timer or once the manager is stopped.
    HbLTimerSubInfo* AddTimer(HbLTimerBase* timer, uint32 periodMs);
    // True while `timer` is armed, when `handle` is the timer's handle or null.
    bool IsActive(HbLTimerSubInfo* handle, HbLTimerBase* timer);
    // Disarms `timer` when `handle` is its handle or null; true when it was armed.
    bool RemoveTimer(HbLTimerSubInfo* handle, HbLTimerBase* timer);

    // Host only. Switches to a manual clock that starts at 0 ms and moves only
    // with AdvanceClock(). Armed timers keep their remaining time.
    void UseManualClock();
    // Host only. Moves the manual clock forward and returns once every callback
    // due by the new time has run (callbacks still run on the manager thread).
    // Must not be called from a timer callback.
    void AdvanceClock(uint32 ms);
    // Host only. Switches back from the manual clock to the real one. Armed
    // timers keep their remaining time.
    void UseRealClock();
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
    // Host only, for tests: `hook` runs on the calling thread each time
    // IsActive(), RemoveTimer() or AddTimer() of a non-null timer is about to
    // return, after the call has taken effect and with no lock held. A test
    // can hold a thread there, exactly between two steps of the timer's owner
    // (after AddTimer() but before the handle is stored, say), to force one
    // interleaving of two threads. It may block; it must not call IsActive(),
    // RemoveTimer() or AddTimer().
    void SetCallHook(CallHook hook);

private:
    HbLTimerMng();
    ~HbLTimerMng();

    struct Arming {
        std::uintptr_t token;  // the timer's token, so that matching never touches the timer
        uint64 dueMs;
        uint64 order;  // arming order; breaks ties between equal due times
    };

    typedef std::map<HbLTimerBase*, Arming> Armings;

    uint64 nowMsLocked() const;
    uint64 earliestDueLocked() const;
    void rescheduleLocked();
    bool programLocked();
    void wakeThreadLocked();
    void waitLocked(std::unique_lock<std::mutex>& lock);
    void closeDescriptorsLocked();
    Armings::iterator findLocked(HbLTimerSubInfo* handle, HbLTimerBase* timer);
    HbLTimerSubInfo* armLocked(HbLTimerBase* timer, uint32 periodMs);
    void returnThroughHook(std::unique_lock<std::mutex>& lock, EN_CALL call, HbLTimerBase* timer);
    void run();
    bool runOneDue(std::unique_lock<std::mutex>& lock);

    std::mutex mMutex;                      // guards every member down to mProgrammedDueMs
    std::condition_variable mWake;          // without descriptors: the manager thread waits here
    std::condition_variable mCallbackDone;  // RemoveTimer / AdvanceClock wait here
    Armings mArmings;                       // armed timers, at most one arming each
    std::uintptr_t mNextToken;              // next timer token; 0 is never handed out
    uint64 mNextOrder;                      // order of the next arming
    bool mManual;                           // the manual clock is in use
    uint64 mManualNowMs;                    // time of the manual clock
    double mScale;                          // factor on real-clock periods
    bool mStopping;                         // Stop() was called
    HbLTimerBase* mRunningTimer;            // timer whose callback runs now, or null
    uint64 mRunningCount;                   // callbacks finished so far
    std::thread::id mThreadId;              // the manager thread
    std::function<void()> mRemoveWaitHook;
    CallHook mCallHook;
    int mTimerFd;             // timerfd at the earliest deadline, or -1
    int mWakeFd;              // eventfd that wakes the manager thread, or -1
    uint64 mProgrammedDueMs;  // deadline set in mTimerFd; 0 when disarmed
    std::thread mThread;      // started by the constructor, joined once by Stop()
};

#endif  // HB_FRAMEWORK_HBLTIMERMNG_H
