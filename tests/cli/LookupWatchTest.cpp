// LookupWatch, the waits of `mox lookup`, fed the module's notifications in
// the orders that the module's threads can raise them: a lost link must end
// every wait at once, also when the search was dropped and no state followed.
#include "LookupWatch.h"

#include <gtest/gtest.h>

#include <signal.h>

#include <atomic>
#include <chrono>
#include <string>
#include <vector>

#include "HbFramework/HbLTimerMng.h"

namespace {

using Clock = LookupWatch::Clock;
using States = std::vector<int32>;

// "kind: message", as scripts and people read a failure.
std::string described(const LookupFailure& failure) {
    return std::string(failure.kindName()) + ": " + failure.message();
}

class LookupWatchTest : public ::testing::Test {
protected:
    void link(int32 value) { notify(1, value); }
    void state(int32 value) { notify(2, value); }
    void device(uint8 status) { watch.onMox(3, &status, 1); }

    // The phone opens its application and answers the connect.
    void linkUp() {
        device(2);
        state(101);
        link(1);
        state(102);
    }

    // What the module raises when the phone goes while it is busy: the device
    // status, then its give-up (an error, then idle) and the link flag down.
    void phoneGoes() {
        device(3);
        state(20);
        state(100);
        link(0);
    }

    // Milliseconds that waitForEnd() took, with a deadline 10 s away.
    double msToEnd(int32* end) {
        const Clock::time_point start = Clock::now();
        *end = watch.waitForEnd(start + std::chrono::seconds(10));
        return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
    }

    LookupWatch watch{false};

private:
    void notify(uint32 id, int32 value) { watch.onMox(id, &value, sizeof(value)); }
};

TEST_F(LookupWatchTest, LinkLostBeforeTheSearch_SearchDropped_EndsAtOnceWithLinkLost) {
    linkUp();
    LookupFailure why;
    ASSERT_TRUE(watch.waitForLink(Clock::now() + std::chrono::seconds(10), &why));
    phoneGoes();  // before the lookup could ask: the module drops the search
    watch.markSearching();
    int32 end = -1;
    msToEnd(&end);
    EXPECT_EQ(end, 100);
    EXPECT_EQ(described(watch.failure(end)), "link_lost: link lost");
    EXPECT_EQ(watch.states(), (States{101, 102, 20, 100}));
}

TEST_F(LookupWatchTest, LinkFlagDownBeforeTheGiveUp_EndsOnceTheModuleIsIdle) {
    linkUp();
    watch.markSearching();
    device(3);
    link(0);
    state(20);
    state(100);
    int32 end = -1;
    msToEnd(&end);
    EXPECT_EQ(end, 100);
    EXPECT_EQ(described(watch.failure(end)), "link_lost: link lost");
}

TEST_F(LookupWatchTest, LinkLostDuringTheSearch_EndsAtOnceWithLinkLost) {
    linkUp();
    watch.markSearching();
    state(103);
    phoneGoes();
    int32 end = -1;
    msToEnd(&end);
    EXPECT_EQ(end, 100);
    EXPECT_EQ(described(watch.failure(end)), "link_lost: link lost");
    EXPECT_EQ(watch.states(), (States{101, 102, 103, 20, 100}));
}

TEST_F(LookupWatchTest, PhoneStatusDuringTheSearch_IsTheFailure) {
    linkUp();
    watch.markSearching();
    state(103);
    state(404);
    int32 end = -1;
    msToEnd(&end);
    EXPECT_EQ(end, 404);
    EXPECT_EQ(described(watch.failure(end)),
              "not_found: the phone does not know this disc (phone status 404)");
}

TEST_F(LookupWatchTest, PhoneGoesBeforeTheLink_EndsWithLinkLostOnceTheModuleIsIdle) {
    device(2);
    state(101);
    device(3);
    LookupFailure why;
    // The module has not given up its connect yet: no end before it has.
    EXPECT_FALSE(watch.waitForLink(Clock::now(), &why));
    EXPECT_EQ(described(why), "timed_out: timed out waiting for the phone link");
    state(20);
    EXPECT_FALSE(watch.waitForLink(Clock::now(), &why));
    EXPECT_EQ(described(why), "timed_out: timed out waiting for the phone link");
    state(100);
    const Clock::time_point start = Clock::now();
    EXPECT_FALSE(watch.waitForLink(start + std::chrono::seconds(10), &why));
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(1));
    EXPECT_EQ(described(why), "link_lost: link lost");
    EXPECT_EQ(watch.lastState(), 100);
}

TEST_F(LookupWatchTest, NoPhoneToReach_EndsAtOnceSayingSo) {
    device(0);
    LookupFailure why;
    const Clock::time_point start = Clock::now();
    EXPECT_FALSE(watch.waitForLink(start + std::chrono::seconds(10), &why));
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(1));
    EXPECT_EQ(described(why), "no_phone: no phone: the phone could not be reached");
}

TEST_F(LookupWatchTest, SilentPhoneOnTheConnect_EndsWithTheError) {
    device(2);
    state(101);
    state(20);
    LookupFailure why;
    EXPECT_FALSE(watch.waitForLink(Clock::now() + std::chrono::seconds(10), &why));
    EXPECT_EQ(described(why), "timed_out: timed out: the phone did not answer the connect");
}

TEST_F(LookupWatchTest, LinkDownAfterStopLink_IsNotALoss) {
    linkUp();
    watch.markSearching();
    state(103);
    state(0);
    int32 end = -1;
    msToEnd(&end);
    EXPECT_EQ(end, 0);
    watch.markStopping();
    state(100);
    link(0);
    EXPECT_FALSE(watch.linked());
    EXPECT_EQ(described(watch.failure(100)), "cancelled: the module cancelled the search");
    EXPECT_EQ(watch.states(), (States{101, 102, 103, 0}));
}

// A phone that moves the state without end: the first 1000 states are kept,
// the rest counted; the last one is always known.
TEST_F(LookupWatchTest, EndlessStateChanges_KeepTheFirst1000AndCountTheRest) {
    linkUp();
    watch.markSearching();
    for (int i = 0; i < 50000; ++i) {
        state(i % 2 == 0 ? 103 : 102);
    }
    state(404);
    const States states = watch.states();
    ASSERT_EQ(states.size(), LookupWatch::kStatesKept);
    EXPECT_EQ(states.front(), 101);
    EXPECT_EQ(states.back(), 102);
    EXPECT_EQ(watch.statesLeftOut(), 2u + 50000u + 1u - 1000u);
    EXPECT_EQ(watch.lastState(), 404);
    int32 end = -1;
    msToEnd(&end);
    EXPECT_EQ(end, 404);
    EXPECT_EQ(described(watch.failure(end)),
              "not_found: the phone does not know this disc (phone status 404)");
}

TEST_F(LookupWatchTest, InterruptBeforeTheLink_EndsTheWaitCancelledBySignal) {
    std::atomic<int> interrupt{SIGINT};
    watch.setInterruptFlag(&interrupt);
    device(2);
    state(101);
    LookupFailure why;
    EXPECT_FALSE(watch.waitForLink(Clock::now() + std::chrono::hours(1), &why));
    EXPECT_EQ(described(why), "cancelled: cancelled by SIGINT");
    EXPECT_EQ(why.exitStatus(), 130);
    EXPECT_EQ(watch.interruptedBy(), SIGINT);
}

TEST_F(LookupWatchTest, InterruptDuringTheSearch_EndsTheWaitCancelledBySignal) {
    std::atomic<int> interrupt{0};
    watch.setInterruptFlag(&interrupt);
    linkUp();
    watch.markSearching();
    state(103);
    interrupt = SIGTERM;
    const int32 end = watch.waitForEnd(Clock::now() + std::chrono::hours(1));
    EXPECT_EQ(end, -1);
    EXPECT_EQ(described(watch.failure(end)), "cancelled: cancelled by SIGTERM");
    EXPECT_EQ(watch.failure(end).exitStatus(), 143);
    EXPECT_EQ(watch.lastState(), 103);
}

TEST_F(LookupWatchTest, Interrupt_DoesNotCutTheWaitForTheLinkToGoDown) {
    std::atomic<int> interrupt{SIGINT};
    watch.setInterruptFlag(&interrupt);
    linkUp();
    watch.markStopping();
    link(0);
    watch.waitForUnlink(Clock::now() + std::chrono::hours(1));
    EXPECT_FALSE(watch.linked());
    EXPECT_EQ(watch.interruptedBy(), 0);
}

TEST_F(LookupWatchTest, ErrorAfterTheSearch_IsARefusal) {
    linkUp();
    watch.markSearching();
    state(103);
    state(20);
    state(104);
    state(100);
    int32 end = 0;
    msToEnd(&end);
    EXPECT_EQ(end, 100);
    EXPECT_EQ(described(watch.failure(end)), "refused: the phone's answer was refused");
}

TEST_F(LookupWatchTest, OtherFailureCode_IsAPhoneFailure) {
    linkUp();
    watch.markSearching();
    state(103);
    state(503);
    int32 end = 0;
    msToEnd(&end);
    EXPECT_EQ(described(watch.failure(end)), "phone_failed: the phone failed (phone status 503)");
}

// The grace after an error follows the module's time scale, as the timer
// manager holds it (HB_TIMER_SCALE or SetTimeScale), rounded up to whole
// milliseconds like the manager's periods, and never goes below 200 ms: the
// cancel that may follow the error comes from the module's thread, with no
// timer between, which a short scale does not hurry.
TEST(LookupWatchScaleTest, ErrorGrace_FollowsTheTimerManagersScaleDownTo200Ms) {
    HbLTimerMng* const timers = HbLTimerMng::GetTimerMng();
    const double before = timers->GetTimeScale();
    timers->SetTimeScale(1.0);
    EXPECT_EQ(LookupWatch(false).errorGrace(), std::chrono::milliseconds(500));
    timers->SetTimeScale(0.5);
    EXPECT_EQ(LookupWatch(false).errorGrace(), std::chrono::milliseconds(250));
    timers->SetTimeScale(0.4001);
    EXPECT_EQ(LookupWatch(false).errorGrace(), std::chrono::milliseconds(201));
    timers->SetTimeScale(0.01);
    EXPECT_EQ(LookupWatch(false).errorGrace(), std::chrono::milliseconds(200));
    timers->SetTimeScale(0.001);
    EXPECT_EQ(LookupWatch(false).errorGrace(), std::chrono::milliseconds(200));
    timers->SetTimeScale(2.0);
    EXPECT_EQ(LookupWatch(false).errorGrace(), std::chrono::milliseconds(1000));
    timers->SetTimeScale(before);
}

// Under a short scale an error that no cancel follows ends the wait once the
// grace has passed: the wait is bounded by a deadline of an hour, so
// only the grace can end it.
TEST(LookupWatchScaleTest, ErrorWithoutCancel_EndsAfterTheGrace) {
    HbLTimerMng* const timers = HbLTimerMng::GetTimerMng();
    const double before = timers->GetTimeScale();
    timers->SetTimeScale(0.01);
    LookupWatch watch(false);
    timers->SetTimeScale(before);
    int32 value = 101;
    watch.onMox(2, &value, sizeof(value));
    watch.markSearching();
    value = 20;
    watch.onMox(2, &value, sizeof(value));
    EXPECT_EQ(watch.waitForEnd(Clock::now() + std::chrono::hours(1)), 20);
    EXPECT_EQ(described(watch.failure(20)), "refused: the phone's answer was refused");
}

}  // namespace
