// The timer manager's test clock: its time moves only with Advance(), from
// 0 ms when the manager is put on it, and the time scale does not touch it.
#include "HbFramework/HbLTimerManualClock.h"

#include <gtest/gtest.h>

#include "HbFramework/HbLTimerMng.h"

namespace {

class HbLTimerManualClockTest : public ::testing::Test {
protected:
    void SetUp() override { clock->UseRealClock(); }
    void TearDown() override { clock->UseRealClock(); }

    HbLTimerManualClock* clock = HbLTimerManualClock::GetInstance();
    HbLTimerMng* manager = HbLTimerMng::GetTimerMng();
};

}  // namespace

TEST_F(HbLTimerManualClockTest, Use_PutsTheManagerOnItAtZero) {
    clock->Use();
    EXPECT_EQ(clock, manager->GetClock());
    EXPECT_EQ(0u, clock->NowMs());
    clock->Advance(25);
    EXPECT_EQ(25u, clock->NowMs());
}

TEST_F(HbLTimerManualClockTest, Use_WhenInUseAlready_KeepsItsTime) {
    clock->Use();
    clock->Advance(25);
    clock->Use();
    EXPECT_EQ(25u, clock->NowMs());
}

TEST_F(HbLTimerManualClockTest, Advance_NotInUse_DoesNotMove) {
    clock->Use();
    clock->Advance(25);
    clock->UseRealClock();
    clock->Advance(10);
    EXPECT_EQ(25u, clock->NowMs());
    EXPECT_NE(clock, manager->GetClock());
}

TEST_F(HbLTimerManualClockTest, PeriodMs_NotScaled) {
    const double saved = manager->GetTimeScale();
    manager->SetTimeScale(0.001);
    EXPECT_EQ(10000u, clock->PeriodMs(10000));
    EXPECT_EQ(0u, clock->MonotonicMs(10000));
    manager->SetTimeScale(saved);
}
