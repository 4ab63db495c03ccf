// A scheduler for a poll loop: the loop asks how long it may wait, polls,
// then runs what is due. Everything happens on the loop's thread; nothing
// here is thread-safe.
//
//   int timeout = scheduler.timeoutMs();   // -1: nothing pending
//   ::poll(fds, n, timeout);
//   scheduler.runDue();
#ifndef MOXPHONE_POLLSCHEDULER_H
#define MOXPHONE_POLLSCHEDULER_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <utility>

#include "moxphone/Scheduler.h"

namespace moxphone {

class PollScheduler : public Scheduler {
public:
    using Clock = std::chrono::steady_clock;
    using Now = std::function<Clock::time_point()>;

    // `now` gives the time (tests pass a clock of their own).
    explicit PollScheduler(Now now = Clock::now);

    void schedule(uint32_t delayMs, Task task) override;
    void cancelAll() override;

    // Milliseconds until the next task is due, rounded up (0 when one is due
    // now), or -1 when nothing is pending.
    int timeoutMs() const;
    // Runs every task due by now, earliest first. A task may schedule or
    // cancel; tasks it schedules for later wait for a later call.
    void runDue();
    size_t pending() const { return mTasks.size(); }

private:
    using Key = std::pair<Clock::time_point, uint64_t>;  // due time, then order of scheduling

    Now mNow;
    std::map<Key, Task> mTasks;
    uint64_t mNextOrder;
};

}  // namespace moxphone

#endif  // MOXPHONE_POLLSCHEDULER_H
