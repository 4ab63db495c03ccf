// Holds chosen threads inside the timer manager's calls on one timer, so a
// test can force one exact interleaving of two threads' timer steps without
// sleeping or timing luck.
//
// Threads are told apart by their names: the manager's own thread is
// "HbLTimerMng", and a test names its threads with nameThisThread(). While
// the gate lives it is the call hook of the manual clock, which the manager
// must run on (HbLTimerManualClock::SetCallHook): a call on the timer
// returns only when the gate lets it, after the call has taken effect. The gate also records every
// call on the timer, in the order the calls return, as "<thread> <call>" ("HbLTimerMng AddTimer").
//
//   TimerCallGate gate(&timer);
//   gate.holdAt("worker", HbLTimerClock::en_CALL_ADD_TIMER, 1);
//   ... start the thread "worker" ...
//   gate.waitHeld("worker");  // it has armed the timer, not yet stored the handle
//   ... let another thread run ...
//   gate.resume("worker");
//
// Can be used from any thread. A held thread is let go when the gate goes.
#ifndef MOX_TESTS_TIMERCALLGATE_H
#define MOX_TESTS_TIMERCALLGATE_H

#include <memory>
#include <string>
#include <vector>

#include "HbFramework/HbLTimerManualClock.h"

class TimerCallGate {
public:
    // Gates the calls on `timer`; null gates the calls on every timer (for a
    // timer that the test cannot reach, such as the module's command timer).
    explicit TimerCallGate(HbLTimerBase* timer);
    ~TimerCallGate();  // lets held threads go and removes the hook
    TimerCallGate(const TimerCallGate&) = delete;
    TimerCallGate& operator=(const TimerCallGate&) = delete;

    // The `nth` call (counted from 1) of `call` on the timer by the thread
    // named `thread` stops before it returns, until resume(thread).
    void holdAt(const std::string& thread, HbLTimerClock::EN_CALL call, int nth);
    // Returns once `thread` is held.
    void waitHeld(const std::string& thread);
    // Lets `thread` go on from where it is held.
    void resume(const std::string& thread);
    // Every call on the timer so far, in the order the calls returned.
    std::vector<std::string> steps() const;

    // Names the calling thread (at most 15 characters).
    static void nameThisThread(const std::string& name);

private:
    struct State;
    std::shared_ptr<State> mState;  // shared with the hook, which may outlive a call
};

#endif  // MOX_TESTS_TIMERCALLGATE_H
