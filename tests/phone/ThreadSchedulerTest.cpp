// Delayed tasks on their own thread, under the owner's lock: order, and
// cancellation that holds even for a task whose time has come. The tests
// wait on events, never on time.
#include "moxphone/ThreadScheduler.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

using moxphone::ThreadScheduler;

namespace {

// Records what ran; wait() returns once `count` entries are there.
class Runs {
public:
    void add(const std::string& name) {
        std::lock_guard<std::mutex> lock(mMutex);
        mNames.push_back(name);
        mChanged.notify_all();
    }
    std::vector<std::string> wait(size_t count) {
        std::unique_lock<std::mutex> lock(mMutex);
        mChanged.wait(lock, [&] { return mNames.size() >= count; });
        return mNames;
    }
    std::vector<std::string> names() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mNames;
    }

private:
    std::mutex mMutex;
    std::condition_variable mChanged;
    std::vector<std::string> mNames;
};

}  // namespace

TEST(ThreadSchedulerTest, Schedule_EarlierDueRunsFirst) {
    std::mutex guard;
    Runs runs;
    ThreadScheduler scheduler(guard);
    {
        std::lock_guard<std::mutex> lock(guard);
        scheduler.schedule(60000, [&] { runs.add("late"); });
        scheduler.schedule(0, [&] { runs.add("now"); });
    }
    EXPECT_EQ(std::vector<std::string>{"now"}, runs.wait(1));
}

TEST(ThreadSchedulerTest, Schedule_SameDueTime_SchedulingOrder) {
    std::mutex guard;
    Runs runs;
    ThreadScheduler scheduler(guard);
    {
        std::lock_guard<std::mutex> lock(guard);
        for (const char* name : {"a", "b", "c"}) {
            scheduler.schedule(0, [&runs, name] { runs.add(name); });
        }
    }
    EXPECT_EQ((std::vector<std::string>{"a", "b", "c"}), runs.wait(3));
}

// Started from the module's worker, the thread would otherwise carry the
// worker's name.
TEST(ThreadSchedulerTest, Task_RunsOnAThreadNamedMoxPhoneTimer) {
    std::mutex guard;
    Runs runs;
    ThreadScheduler scheduler(guard);
    char ownName[16] = {0};
    pthread_getname_np(pthread_self(), ownName, sizeof(ownName));
    pthread_setname_np(pthread_self(), "HbWorker");
    {
        std::lock_guard<std::mutex> lock(guard);
        scheduler.schedule(0, [&runs] {
            char name[16] = {0};
            pthread_getname_np(pthread_self(), name, sizeof(name));
            runs.add(name);
        });
    }
    pthread_setname_np(pthread_self(), ownName);
    EXPECT_EQ(std::vector<std::string>{"MoxPhoneTimer"}, runs.wait(1));
}

TEST(ThreadSchedulerTest, Task_RunsWithTheGuardHeld) {
    std::mutex guard;
    Runs runs;
    ThreadScheduler scheduler(guard);
    {
        std::lock_guard<std::mutex> lock(guard);
        scheduler.schedule(0, [&] {
            // Another thread cannot take the guard while the task runs.
            bool taken = false;
            std::thread other([&] {
                taken = guard.try_lock();
                if (taken) {
                    guard.unlock();
                }
            });
            other.join();
            runs.add(taken ? "not held" : "held");
        });
    }
    EXPECT_EQ(std::vector<std::string>{"held"}, runs.wait(1));
}

TEST(ThreadSchedulerTest, AfterTask_RunsAfterEachTaskThatRanWithTheGuardReleased) {
    std::mutex guard;
    Runs runs;
    ThreadScheduler scheduler(guard, [&] {
        const bool free = guard.try_lock();
        if (free) {
            guard.unlock();
        }
        runs.add(free ? "after, released" : "after, held");
    });
    {
        std::lock_guard<std::mutex> lock(guard);
        scheduler.schedule(0, [&] { runs.add("a"); });
        scheduler.schedule(0, [&] { runs.add("b"); });
    }
    EXPECT_EQ((std::vector<std::string>{"a", "after, released", "b", "after, released"}),
              runs.wait(4));
}

TEST(ThreadSchedulerTest, CancelAll_TaskAlreadyDueButWaitingForTheGuard_DoesNotRun) {
    std::mutex guard;
    Runs runs;
    ThreadScheduler scheduler(guard);
    {
        std::lock_guard<std::mutex> lock(guard);
        scheduler.schedule(0, [&] { runs.add("cancelled"); });
        // The thread may have taken the task and now waits for the guard.
        scheduler.cancelAll();
        scheduler.schedule(0, [&] { runs.add("after"); });
    }
    EXPECT_EQ(std::vector<std::string>{"after"}, runs.wait(1));
}

TEST(ThreadSchedulerTest, Destructor_PendingTasksNeverRun) {
    std::mutex guard;
    Runs runs;
    {
        ThreadScheduler scheduler(guard);
        std::lock_guard<std::mutex> lock(guard);
        scheduler.schedule(60000, [&] { runs.add("never"); });
    }
    EXPECT_TRUE(runs.names().empty());
}
