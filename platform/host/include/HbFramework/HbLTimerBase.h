// Base of every timer that the timer manager (HbLTimerMng) can arm.
#ifndef HB_FRAMEWORK_HBLTIMERBASE_H
#define HB_FRAMEWORK_HBLTIMERBASE_H

#include <cstdint>

// Handle of a timer with the manager. It is an opaque token, never
// dereferenced: it names one timer (not one arming of it), and a stale handle
// (the timer has expired, was removed or is gone) is always safe to pass back
// to the manager.
class HbLTimerSubInfo;

class HbLTimerBase {
public:
    HbLTimerBase() : mMngToken(0) {}
    virtual ~HbLTimerBase() {}
    // A timer is an identity with the manager: copies would share its handle.
    HbLTimerBase(const HbLTimerBase&) = delete;
    HbLTimerBase& operator=(const HbLTimerBase&) = delete;

    // Called by the timer manager on its own thread when an arming expires,
    // with no lock held. `param` is reserved (0).
    virtual void CallBack(unsigned int& param) = 0;

private:
    friend class HbLTimerMng;

    // The manager's token for this timer: 0 until it is first armed, then
    // fixed for the timer's life and never given to another timer. Read and
    // written only by the manager, under its lock.
    std::uintptr_t mMngToken;
};

#endif  // HB_FRAMEWORK_HBLTIMERBASE_H
