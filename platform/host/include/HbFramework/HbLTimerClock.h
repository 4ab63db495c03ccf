// The time that the timer manager (HbLTimerMng) runs on (host only).
//
// The manager asks its clock for the present time, for the time that a
// timer's period lasts, and for the moment of the system's monotonic clock
// at which its thread must wake for a deadline. Production runs on
// HbLTimerSteadyClock (the steady clock, periods scaled by HB_TIMER_SCALE);
// tests run on HbLTimerManualClock, whose time moves only when told to and
// which also lets a test hold threads at the manager's steps.
//
// The manager calls every member with its lock held, except
// OnCallReturning(), so a clock must not call the manager from them.
#ifndef HB_FRAMEWORK_HBLTIMERCLOCK_H
#define HB_FRAMEWORK_HBLTIMERCLOCK_H

#include "HbFramework/HbLTimerBase.h"
#include "HbFramework/HbTypes.h"

class HbLTimerClock {
public:
    // The manager's calls that a clock hears about as they return.
    enum EN_CALL {
        en_CALL_IS_ACTIVE,
        en_CALL_REMOVE_TIMER,
        en_CALL_ADD_TIMER,
    };

    virtual ~HbLTimerClock() {}

    // The present time in ms, from an origin of the clock's choice; it never
    // goes back.
    virtual uint64 NowMs() = 0;
    // How many ms of this clock a period of `periodMs` lasts.
    virtual uint64 PeriodMs(uint32 periodMs) = 0;
    // The time of the system's monotonic clock (CLOCK_MONOTONIC, in ms) at
    // which this clock reaches `dueMs`; 0 when this clock's time does not
    // pass by itself (it then tells the manager when it moves:
    // HbLTimerMng::MoveClock).
    virtual uint64 MonotonicMs(uint64 dueMs) = 0;

    // The manager's IsActive(), RemoveTimer() or AddTimer() of a non-null
    // timer is about to return, on the calling thread, with no lock held.
    // Nothing by default.
    virtual void OnCallReturning(EN_CALL call, HbLTimerBase* timer) {
        (void)call;
        (void)timer;
    }
    // The manager's RemoveTimer() starts waiting for a running callback of
    // its timer, with the manager's lock held. Nothing by default.
    virtual void OnRemoveWaiting() {}
};

#endif  // HB_FRAMEWORK_HBLTIMERCLOCK_H
