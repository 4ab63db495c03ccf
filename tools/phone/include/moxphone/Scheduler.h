// Delayed work of a phone session (the slow-chunks fault): run a task once,
// some milliseconds from now, unless the session drops every pending task
// first. The session never sleeps; whoever owns it supplies the scheduler:
// PollScheduler for a poll loop, ThreadScheduler for a thread of its own, or
// a manual one in tests.
#ifndef MOXPHONE_SCHEDULER_H
#define MOXPHONE_SCHEDULER_H

#include <cstdint>
#include <functional>

namespace moxphone {

class Scheduler {
public:
    using Task = std::function<void()>;

    virtual ~Scheduler() {}
    // Runs `task` once, `delayMs` from now (tasks due at the same time run in
    // the order they were scheduled).
    virtual void schedule(uint32_t delayMs, Task task) = 0;
    // Drops every task that has not run yet.
    virtual void cancelAll() = 0;
};

}  // namespace moxphone

#endif  // MOXPHONE_SCHEDULER_H
