// The timer manager's production clock: the steady clock, every period
// multiplied by the time scale and rounded up.
#include "HbFramework/HbLTimerSteadyClock.h"

#include <gtest/gtest.h>

#include <chrono>

TEST(HbLTimerSteadyClockTest, PeriodMs_ScaleOne_IsThePeriod) {
    HbLTimerSteadyClock clock;
    clock.SetScale(1.0);
    EXPECT_EQ(10000u, clock.PeriodMs(10000));
    EXPECT_EQ(0u, clock.PeriodMs(0));
}

TEST(HbLTimerSteadyClockTest, PeriodMs_Scaled_RoundsUp) {
    HbLTimerSteadyClock clock;
    clock.SetScale(0.001);
    EXPECT_EQ(10u, clock.PeriodMs(10000));
    EXPECT_EQ(1u, clock.PeriodMs(1));
    EXPECT_EQ(0u, clock.PeriodMs(0));
    clock.SetScale(1000.0);
    EXPECT_EQ(4294967295000u, clock.PeriodMs(4294967295u));
}

TEST(HbLTimerSteadyClockTest, SetScale_OutsideItsRange_IsIgnored) {
    HbLTimerSteadyClock clock;
    clock.SetScale(0.5);
    clock.SetScale(0.0);
    clock.SetScale(-1.0);
    clock.SetScale(1000.5);
    EXPECT_EQ(0.5, clock.GetScale());
}

TEST(HbLTimerSteadyClockTest, NowMs_IsTheSteadyClockAndItsOwnMonotonicTime) {
    HbLTimerSteadyClock clock;
    using namespace std::chrono;
    const uint64 before = static_cast<uint64>(
        duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
    const uint64 now = clock.NowMs();
    EXPECT_LE(before, now);
    EXPECT_EQ(now + 5u, clock.MonotonicMs(now + 5u));
}
