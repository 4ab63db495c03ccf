// A scheduler with a thread of its own, for a session whose owner has no
// loop (the in-process phone). Every task runs on that thread with the
// owner's `guard` locked, the lock under which the owner also calls the
// session; a task dropped by cancelAll() never runs, even if its time had
// come while the thread waited for the guard. After each task that ran, the
// owner's `afterTask`, if any, runs on that thread with the guard released
// (the owner sends there what the task has queued). The thread starts with
// the first task.
//
// schedule() and cancelAll() must be called with `guard` held (the session
// calls them from inside its own operations); the destructor must not be,
// since it waits for the thread, which may be waiting for the guard.
#ifndef MOXPHONE_THREADSCHEDULER_H
#define MOXPHONE_THREADSCHEDULER_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <thread>
#include <utility>

#include "moxphone/Scheduler.h"

namespace moxphone {

class ThreadScheduler : public Scheduler {
public:
    // The name of the scheduler's thread.
    static constexpr const char* kThreadName = "MoxPhoneTimer";

    explicit ThreadScheduler(std::mutex& guard, Task afterTask = Task());
    ~ThreadScheduler() override;
    ThreadScheduler(const ThreadScheduler&) = delete;
    ThreadScheduler& operator=(const ThreadScheduler&) = delete;

    void schedule(uint32_t delayMs, Task task) override;
    void cancelAll() override;

private:
    using Clock = std::chrono::steady_clock;
    using Key = std::pair<Clock::time_point, uint64_t>;  // due time, then order of scheduling
    struct Entry {
        uint64_t generation;  // tasks of an older generation were cancelled
        Task task;
    };

    void run();

    std::mutex& mGuard;
    const Task mAfterTask;
    std::mutex mMutex;              // guards mTasks, mNextOrder and the start of mThread
    std::condition_variable mWake;  // the thread waits here for tasks or their time
    std::map<Key, Entry> mTasks;
    uint64_t mNextOrder;
    std::atomic<bool> mStopping;        // set once, by the destructor
    std::atomic<uint64_t> mGeneration;  // written with mGuard held, read under mGuard
    std::thread mThread;
};

}  // namespace moxphone

#endif  // MOXPHONE_THREADSCHEDULER_H
