// The deadline and cancel flag of an online lookup: waits end at their time,
// at once on cancel, and never past the deadline.
#include "moxphone/LookupControl.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

namespace {

using moxphone::LookupControl;
using Clock = LookupControl::Clock;
using std::chrono::milliseconds;

TEST(LookupControlTest, WaitUntilAPassedTime_ReturnsTrueAtOnce) {
    LookupControl control(Clock::now() + std::chrono::minutes(1));
    EXPECT_TRUE(control.waitUntil(Clock::now() - milliseconds(1)));
    EXPECT_FALSE(control.over());
}

TEST(LookupControlTest, WaitUntilPastTheDeadline_ReturnsFalseWithoutWaiting) {
    const auto deadline = Clock::now() + std::chrono::minutes(1);
    LookupControl control(deadline);
    const auto start = Clock::now();
    EXPECT_FALSE(control.waitUntil(deadline + milliseconds(1)));
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(5));
}

TEST(LookupControlTest, Cancel_EndsAWaitOfAnotherThreadAtOnce) {
    LookupControl control(Clock::now() + std::chrono::minutes(10));
    bool waited = true;
    std::thread waiter([&] { waited = control.waitUntil(Clock::now() + std::chrono::minutes(5)); });
    control.cancel();
    waiter.join();
    EXPECT_FALSE(waited);
    EXPECT_TRUE(control.cancelled());
    EXPECT_TRUE(control.over());
    EXPECT_FALSE(control.waitUntil(Clock::now()));
}

TEST(LookupControlTest, RemainingMs_CountsDownToZero) {
    LookupControl later(Clock::now() + std::chrono::seconds(60));
    EXPECT_GT(later.remainingMs(), 59000);
    EXPECT_LE(later.remainingMs(), 60000);
    LookupControl passed(Clock::now() - milliseconds(5));
    EXPECT_EQ(passed.remainingMs(), 0);
    EXPECT_TRUE(passed.over());
    EXPECT_FALSE(passed.cancelled());
}

}  // namespace
