// Base of every timer that the timer manager (HbLTimerMng) can arm.
#ifndef HB_FRAMEWORK_HBLTIMERBASE_H
#define HB_FRAMEWORK_HBLTIMERBASE_H

// Handle of one arming of a timer. It is an opaque token, never dereferenced:
// a stale handle (the timer has expired or was removed) is always safe to pass
// back to the manager.
class HbLTimerSubInfo;

class HbLTimerBase {
public:
    virtual ~HbLTimerBase() {}
    // Called by the timer manager on its own thread when an arming expires,
    // with no lock held. `param` is reserved (0).
    virtual void CallBack(unsigned int& param) = 0;
};

#endif  // HB_FRAMEWORK_HBLTIMERBASE_H
