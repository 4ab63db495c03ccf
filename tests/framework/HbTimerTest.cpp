#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "HbFramework/Foundation/HbTimer.h"
#include "HbFramework/HbLTimerManualClock.h"
#include "HbFramework/HbLTimerMng.h"
#include "TestEvent.h"
#include "TimerCallGate.h"

namespace {

class Owner {
public:
    uint32 onExpiry(HbLTimerBase* timer) {
        expired.push_back(timer);
        return 0;
    }
    uint32 onPeriod(HbLTimerBase* timer) {
        periodChanged.push_back(timer);
        return 0;
    }

    std::vector<HbLTimerBase*> expired;
    std::vector<HbLTimerBase*> periodChanged;
};

}  // namespace

TEST(HbTimerTest, Construction_KeepsPeriodAndHasNoHandle) {
    Owner owner;
    HbTimer<Owner> timer(&owner, &Owner::onExpiry, nullptr, 10000);
    EXPECT_EQ(10000u, timer.getPeriod());
    EXPECT_EQ(nullptr, timer.getSubInfo());
}

TEST(HbTimerTest, CallBack_CallsTheExpiryCallbackWithTheTimerItself) {
    Owner owner;
    HbTimer<Owner> timer(&owner, &Owner::onExpiry, nullptr, 10000);
    unsigned int param = 0;
    HbLTimerBase* base = &timer;
    base->CallBack(param);
    ASSERT_EQ(1u, owner.expired.size());
    EXPECT_EQ(base, owner.expired[0]);
}

TEST(HbTimerTest, CallBack_WithoutOwner_DoesNothing) {
    HbTimer<Owner> timer(nullptr, &Owner::onExpiry, nullptr, 10);
    unsigned int param = 0;
    timer.CallBack(param);  // must not crash
    EXPECT_EQ(10u, timer.getPeriod());
}

TEST(HbTimerTest, CallBack_WithoutExpiryCallback_DoesNothing) {
    Owner owner;
    HbTimer<Owner> timer(&owner, nullptr, nullptr, 10);
    unsigned int param = 0;
    timer.CallBack(param);
    EXPECT_TRUE(owner.expired.empty());
}

TEST(HbTimerTest, SetPeriod_WithPeriodCallback_StoresAndTellsTheOwner) {
    Owner owner;
    HbTimer<Owner> timer(&owner, &Owner::onExpiry, &Owner::onPeriod, 10000);
    timer.setPeriod(500);
    EXPECT_EQ(500u, timer.getPeriod());
    ASSERT_EQ(1u, owner.periodChanged.size());
    EXPECT_EQ(&timer, owner.periodChanged[0]);
    EXPECT_TRUE(owner.expired.empty());
}

TEST(HbTimerTest, SetPeriod_WithoutPeriodCallback_OnlyStores) {
    Owner owner;
    HbTimer<Owner> timer(&owner, &Owner::onExpiry, nullptr, 10000);
    timer.setPeriod(20);
    EXPECT_EQ(20u, timer.getPeriod());
    EXPECT_TRUE(owner.periodChanged.empty());
}

TEST(HbTimerTest, Armed_ExpiresThroughTheManager_CallsTheOwnerOnce) {
    HbLTimerMng* manager = HbLTimerMng::GetTimerMng();
    HbLTimerManualClock::GetInstance()->Use();
    Owner owner;
    HbTimer<Owner> timer(&owner, &Owner::onExpiry, nullptr, 10000);
    timer.setSubInfo(manager->AddTimer(&timer, timer.getPeriod()));
    ASSERT_NE(nullptr, timer.getSubInfo());
    EXPECT_TRUE(manager->IsActive(timer.getSubInfo(), &timer));

    HbLTimerManualClock::GetInstance()->Advance(9999);
    EXPECT_TRUE(owner.expired.empty());
    HbLTimerManualClock::GetInstance()->Advance(1);
    ASSERT_EQ(1u, owner.expired.size());
    EXPECT_EQ(&timer, owner.expired[0]);
    EXPECT_FALSE(manager->IsActive(timer.getSubInfo(), &timer));
}

// --- Two threads restarting and stopping one timer ------------------------------
//
// The owner below arms and stops its timer with exactly the steps of the
// module's command timer: restart = "if armed, remove and clear the handle"
// twice, then "add and store the handle"; stop = "if armed, remove and clear
// the handle". Each test holds threads between those steps (TimerCallGate) to
// force one interleaving, then checks that the timer is armed at most once and
// that a stop after the last restart leaves it disarmed.

namespace {

class CommandTimerOwner {
public:
    CommandTimerOwner() : timer(this, &CommandTimerOwner::onExpiry, nullptr, 10000) {}
    ~CommandTimerOwner() { HbLTimerMng::GetTimerMng()->RemoveTimer(nullptr, &timer); }

    void restart() {
        HbLTimerMng* manager = HbLTimerMng::GetTimerMng();
        if (manager->IsActive(timer.getSubInfo(), &timer)) {
            manager->RemoveTimer(timer.getSubInfo(), &timer);
            timer.setSubInfo(nullptr);
        }
        if (timer.getPeriod() == 0) {
            return;
        }
        if (manager->IsActive(timer.getSubInfo(), &timer)) {
            manager->RemoveTimer(timer.getSubInfo(), &timer);
            timer.setSubInfo(nullptr);
        }
        timer.setSubInfo(manager->AddTimer(&timer, timer.getPeriod()));
    }

    void stop() {
        HbLTimerMng* manager = HbLTimerMng::GetTimerMng();
        if (manager->IsActive(timer.getSubInfo(), &timer)) {
            manager->RemoveTimer(timer.getSubInfo(), &timer);
            timer.setSubInfo(nullptr);
        }
    }

    // Expiry, on the manager's thread: restarts the timer once when asked to,
    // as the module does when a lookup times out and it sends the cancel.
    uint32 onExpiry(HbLTimerBase*) {
        ++expiries;
        if (restartOnExpiry.exchange(false)) {
            restart();
        }
        return 0;
    }

    bool armed() { return HbLTimerMng::GetTimerMng()->IsActive(timer.getSubInfo(), &timer); }

    HbTimer<CommandTimerOwner> timer;
    std::atomic<int> expiries{0};
    std::atomic<bool> restartOnExpiry{false};
};

class HbTimerThreadTest : public ::testing::Test {
protected:
    void SetUp() override {
        manager = HbLTimerMng::GetTimerMng();
        HbLTimerManualClock::GetInstance()->Use();
    }
    void TearDown() override {
        HbLTimerManualClock::GetInstance()->SetRemoveWaitHook(nullptr);
        owner.stop();
        EXPECT_EQ(0u, manager->ActiveCount());
    }

    // Runs `body` on a new thread named `name`.
    static std::thread named(const std::string& name, std::function<void()> body) {
        return std::thread([name, body] {
            TimerCallGate::nameThisThread(name);
            body();
        });
    }

    // After the interleaving: one arming that fires once, then nothing.
    void expectArmedOnceThenQuiet(int expiriesBefore) {
        EXPECT_EQ(1u, manager->ActiveCount());
        EXPECT_TRUE(owner.armed());
        HbLTimerManualClock::GetInstance()->Advance(10000);
        EXPECT_EQ(expiriesBefore + 1, owner.expiries.load());
        EXPECT_EQ(0u, manager->ActiveCount());
        HbLTimerManualClock::GetInstance()->Advance(10000);
        EXPECT_EQ(expiriesBefore + 1, owner.expiries.load());
    }

    // A stop after the last restart: nothing armed, nothing fires.
    void expectStopDisarms() {
        owner.stop();
        EXPECT_EQ(0u, manager->ActiveCount());
        EXPECT_FALSE(owner.armed());
        const int expiries = owner.expiries.load();
        HbLTimerManualClock::GetInstance()->Advance(20000);
        EXPECT_EQ(expiries, owner.expiries.load());
    }

    HbLTimerMng* manager = nullptr;
    CommandTimerOwner owner;
};

}  // namespace

// Both threads find the timer disarmed, then both add it: one arming.
TEST_F(HbTimerThreadTest, Restart_OnTwoThreadsAtOnce_ArmsTheTimerOnce) {
    TimerCallGate gate(&owner.timer);
    gate.holdAt("first", HbLTimerClock::en_CALL_IS_ACTIVE, 2);
    gate.holdAt("second", HbLTimerClock::en_CALL_IS_ACTIVE, 2);
    std::thread first = named("first", [this] { owner.restart(); });
    gate.waitHeld("first");
    std::thread second = named("second", [this] { owner.restart(); });
    gate.waitHeld("second");
    gate.resume("first");
    first.join();
    gate.resume("second");
    second.join();

    const std::vector<std::string> steps = {"first IsActive",  "first IsActive", "second IsActive",
                                            "second IsActive", "first AddTimer", "second AddTimer"};
    EXPECT_EQ(steps, gate.steps());
    expectArmedOnceThenQuiet(0);
}

TEST_F(HbTimerThreadTest, Restart_OnTwoThreadsAtOnce_AStopAfterwardsDisarms) {
    TimerCallGate gate(&owner.timer);
    gate.holdAt("first", HbLTimerClock::en_CALL_IS_ACTIVE, 2);
    gate.holdAt("second", HbLTimerClock::en_CALL_IS_ACTIVE, 2);
    std::thread first = named("first", [this] { owner.restart(); });
    gate.waitHeld("first");
    std::thread second = named("second", [this] { owner.restart(); });
    gate.waitHeld("second");
    gate.resume("second");
    second.join();
    gate.resume("first");
    first.join();

    expectStopDisarms();
}

// A restart on a thread of the owner while the expiry restarts the timer on
// the manager's thread (the module's cancel after a timeout): one arming.
TEST_F(HbTimerThreadTest, Restart_WhileTheExpiryRestartsTheTimer_ArmsTheTimerOnce) {
    owner.restart();
    owner.restartOnExpiry = true;
    TimerCallGate gate(&owner.timer);
    gate.holdAt("HbLTimerMng", HbLTimerClock::en_CALL_IS_ACTIVE, 2);
    std::thread clock([this] { HbLTimerManualClock::GetInstance()->Advance(10000); });
    gate.waitHeld("HbLTimerMng");  // expired; the expiry found it disarmed
    std::thread worker = named("worker", [this] { owner.restart(); });
    worker.join();
    gate.resume("HbLTimerMng");
    clock.join();

    const std::vector<std::string> steps = {"HbLTimerMng IsActive", "HbLTimerMng IsActive",
                                            "worker IsActive",      "worker IsActive",
                                            "worker AddTimer",      "HbLTimerMng AddTimer"};
    EXPECT_EQ(steps, gate.steps());
    EXPECT_EQ(1, owner.expiries.load());
    expectArmedOnceThenQuiet(1);
}

// A thread has armed the timer but not yet stored the handle when that
// arming expires and the expiry arms the timer anew and stores its handle.
// The first thread's store lands last; a stop must still find the arming.
TEST_F(HbTimerThreadTest, HandleStore_LandingAfterTheExpirysNewerStore_StillLetsAStopDisarm) {
    owner.restartOnExpiry = true;
    TimerCallGate gate(&owner.timer);
    gate.holdAt("worker", HbLTimerClock::en_CALL_ADD_TIMER, 1);
    std::thread worker = named("worker", [this] { owner.restart(); });
    gate.waitHeld("worker");
    // The worker's arming expires; the expiry restarts.
    HbLTimerManualClock::GetInstance()->Advance(10000);
    ASSERT_EQ(1, owner.expiries.load());
    HbLTimerSubInfo* storedByExpiry = owner.timer.getSubInfo();
    gate.resume("worker");
    worker.join();

    const std::vector<std::string> steps = {"worker IsActive",      "worker IsActive",
                                            "worker AddTimer",      "HbLTimerMng IsActive",
                                            "HbLTimerMng IsActive", "HbLTimerMng AddTimer"};
    EXPECT_EQ(steps, gate.steps());
    EXPECT_NE(nullptr, storedByExpiry);
    EXPECT_EQ(storedByExpiry, owner.timer.getSubInfo());  // one handle for every arming
    EXPECT_EQ(1u, manager->ActiveCount());
    expectStopDisarms();
}

// A stop has disarmed the timer but not yet cleared the handle when another
// thread restarts it and stores its handle. The stop's null lands last; a
// later stop must still find the arming.
TEST_F(HbTimerThreadTest, NullStore_LandingAfterARestartsStore_StillLetsAStopDisarm) {
    owner.restart();
    TimerCallGate gate(&owner.timer);
    gate.holdAt("stopper", HbLTimerClock::en_CALL_REMOVE_TIMER, 1);
    std::thread stopper = named("stopper", [this] { owner.stop(); });
    gate.waitHeld("stopper");
    std::thread restarter = named("restarter", [this] { owner.restart(); });
    restarter.join();
    EXPECT_NE(nullptr, owner.timer.getSubInfo());
    gate.resume("stopper");
    stopper.join();

    const std::vector<std::string> steps = {"stopper IsActive", "stopper RemoveTimer",
                                            "restarter IsActive", "restarter IsActive",
                                            "restarter AddTimer"};
    EXPECT_EQ(steps, gate.steps());
    EXPECT_EQ(nullptr, owner.timer.getSubInfo());
    EXPECT_EQ(1u, manager->ActiveCount());  // the restart came last
    EXPECT_TRUE(owner.armed());
    expectStopDisarms();
}

// A stop that finds the timer armed while its expiry runs and re-arms it
// waits for the expiry, then disarms what the expiry armed.
TEST_F(HbTimerThreadTest, Stop_WhileTheExpiryRestartsTheTimer_WaitsAndLeavesItDisarmed) {
    owner.restart();
    owner.restartOnExpiry = true;
    TimerCallGate gate(&owner.timer);
    gate.holdAt("HbLTimerMng", HbLTimerClock::en_CALL_ADD_TIMER, 1);
    // Set when the stop waits inside RemoveTimer for the expiry, or when it has
    // returned without waiting (which fails the test below).
    TestEvent stopperWaitingOrDone;
    std::atomic<bool> stopperWaited{false};
    HbLTimerManualClock::GetInstance()->SetRemoveWaitHook([&stopperWaitingOrDone, &stopperWaited] {
        stopperWaited = true;
        stopperWaitingOrDone.set();
    });
    std::thread clock([this] { HbLTimerManualClock::GetInstance()->Advance(10000); });
    gate.waitHeld("HbLTimerMng");  // re-armed, handle not yet stored
    std::thread stopper = named("stopper", [this, &stopperWaitingOrDone] {
        owner.stop();
        stopperWaitingOrDone.set();
    });
    stopperWaitingOrDone.wait();
    gate.resume("HbLTimerMng");
    stopper.join();
    clock.join();

    EXPECT_TRUE(stopperWaited.load());
    const std::vector<std::string> steps = {"HbLTimerMng IsActive", "HbLTimerMng IsActive",
                                            "HbLTimerMng AddTimer", "stopper IsActive",
                                            "stopper RemoveTimer"};
    EXPECT_EQ(steps, gate.steps());
    EXPECT_EQ(nullptr, owner.timer.getSubInfo());
    EXPECT_EQ(0u, manager->ActiveCount());
    HbLTimerManualClock::GetInstance()->Advance(20000);
    EXPECT_EQ(1, owner.expiries.load());
}
