// The timer manager's test clock (host only): its time starts at 0 ms and
// moves only with Advance(), so a 10 000 ms period is tested in
// microseconds. It also lets a test hold threads at the manager's steps:
//
//   HbLTimerManualClock* clock = HbLTimerManualClock::GetInstance();
//   clock->Use();            // the manager runs on it from now on
//   ... arm a 10 000 ms timer ...
//   clock->Advance(10000);   // returns once the timer's callback has run
//   clock->UseRealClock();   // back to HbLTimerSteadyClock
//
// Use() and UseRealClock() keep the remaining time of armed timers. Hooks
// set here run only while the manager is on this clock. Can be used from
// any thread.
#ifndef HB_FRAMEWORK_HBLTIMERMANUALCLOCK_H
#define HB_FRAMEWORK_HBLTIMERMANUALCLOCK_H

#include <atomic>
#include <functional>
#include <mutex>

#include "HbFramework/HbLTimerClock.h"

class HbLTimerManualClock : public HbLTimerClock {
public:
    typedef std::function<void(EN_CALL call, HbLTimerBase* timer)> CallHook;

    // The one manual clock of the process.
    static HbLTimerManualClock* GetInstance();

    // Puts the timer manager on this clock at 0 ms; nothing when it is on it
    // already.
    void Use();
    // Puts the timer manager back on its steady clock; nothing when it is not
    // on this clock.
    void UseRealClock();
    // Moves the time forward and returns once every callback due by the new
    // time has run (callbacks still run on the manager thread). Nothing when
    // the manager is not on this clock. Must not be called from a timer
    // callback.
    void Advance(uint32 ms);

    // `hook` runs each time RemoveTimer() starts waiting for a running
    // callback, with the manager's lock held (it must not call the manager).
    void SetRemoveWaitHook(std::function<void()> hook);
    // `hook` runs on the calling thread each time IsActive(), RemoveTimer() or
    // AddTimer() of a non-null timer is about to return, after the call has
    // taken effect and with no lock held. A test can hold a thread there,
    // exactly between two steps of the timer's owner (after AddTimer() but
    // before the handle is stored, say), to force one interleaving of two
    // threads. It may block; it must not call IsActive(), RemoveTimer() or
    // AddTimer().
    void SetCallHook(CallHook hook);

    uint64 NowMs() override;
    // The period itself: the time scale applies to the real clock only.
    uint64 PeriodMs(uint32 periodMs) override;
    // 0: this clock's time passes only with Advance().
    uint64 MonotonicMs(uint64 dueMs) override;
    void OnCallReturning(EN_CALL call, HbLTimerBase* timer) override;
    void OnRemoveWaiting() override;

private:
    HbLTimerManualClock();

    std::atomic<uint64> mNowMs;
    std::mutex mHookMutex;  // guards the hooks
    CallHook mCallHook;
    std::function<void()> mRemoveWaitHook;
};

#endif  // HB_FRAMEWORK_HBLTIMERMANUALCLOCK_H
