// Deadlines of a poll loop, on a clock the test moves.
#include "moxphone/PollScheduler.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using moxphone::PollScheduler;

namespace {

class PollSchedulerTest : public ::testing::Test {
protected:
    PollSchedulerTest() : scheduler([this] { return now; }) {}

    PollScheduler::Clock::time_point now{};
    PollScheduler scheduler;
    std::vector<std::string> ran;
};

}  // namespace

TEST_F(PollSchedulerTest, TimeoutMs_NothingPending_MinusOne) {
    EXPECT_EQ(-1, scheduler.timeoutMs());
}

TEST_F(PollSchedulerTest, TimeoutMs_CountsDownToZero) {
    scheduler.schedule(250, [] {});
    EXPECT_EQ(250, scheduler.timeoutMs());
    now += std::chrono::microseconds(100500);
    EXPECT_EQ(150, scheduler.timeoutMs());  // 149.5 ms rounded up
    now += std::chrono::milliseconds(200);
    EXPECT_EQ(0, scheduler.timeoutMs());
}

TEST_F(PollSchedulerTest, RunDue_OnlyDueTasksInTimeThenSchedulingOrder) {
    scheduler.schedule(20, [this] { ran.push_back("late"); });
    scheduler.schedule(10, [this] { ran.push_back("first"); });
    scheduler.schedule(10, [this] { ran.push_back("second"); });
    scheduler.runDue();
    EXPECT_TRUE(ran.empty());
    now += std::chrono::milliseconds(10);
    scheduler.runDue();
    EXPECT_EQ((std::vector<std::string>{"first", "second"}), ran);
    EXPECT_EQ(1u, scheduler.pending());
    now += std::chrono::milliseconds(10);
    scheduler.runDue();
    EXPECT_EQ((std::vector<std::string>{"first", "second", "late"}), ran);
    EXPECT_EQ(0u, scheduler.pending());
}

TEST_F(PollSchedulerTest, RunDue_TaskSchedulesAnother_ItWaitsForItsTime) {
    scheduler.schedule(0, [this] {
        ran.push_back("a");
        scheduler.schedule(5, [this] { ran.push_back("b"); });
    });
    scheduler.runDue();
    EXPECT_EQ(std::vector<std::string>{"a"}, ran);
    EXPECT_EQ(5, scheduler.timeoutMs());
    now += std::chrono::milliseconds(5);
    scheduler.runDue();
    EXPECT_EQ((std::vector<std::string>{"a", "b"}), ran);
}

TEST_F(PollSchedulerTest, RunDue_TaskCancelsTheRest_TheyDoNotRun) {
    scheduler.schedule(0, [this] {
        ran.push_back("a");
        scheduler.cancelAll();
    });
    scheduler.schedule(0, [this] { ran.push_back("b"); });
    scheduler.runDue();
    EXPECT_EQ(std::vector<std::string>{"a"}, ran);
    EXPECT_EQ(-1, scheduler.timeoutMs());
}

TEST_F(PollSchedulerTest, CancelAll_DropsEverything) {
    scheduler.schedule(0, [this] { ran.push_back("x"); });
    scheduler.cancelAll();
    now += std::chrono::seconds(1);
    scheduler.runDue();
    EXPECT_TRUE(ran.empty());
}
