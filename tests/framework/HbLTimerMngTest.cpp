#include <gtest/gtest.h>

#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "CallLog.h"
#include "HbFramework/HbLTimerManualClock.h"
#include "HbFramework/HbLTimerMng.h"
#include "ProcessStats.h"
#include "TestEvent.h"
#include "TimerCallGate.h"

namespace {

// A timer whose expiry logs its name and then runs an optional action. A test
// must leave it disarmed; one still armed when it goes fails the test and is
// disarmed, so that no later test of the same process meets it.
class NamedTimer : public HbLTimerBase {
public:
    NamedTimer(const std::string& name, CallLog* log) : mName(name), mLog(log) {}
    ~NamedTimer() override {
        if (HbLTimerMng::GetTimerMng()->RemoveTimer(nullptr, this)) {
            ADD_FAILURE() << "timer " << mName << " was left armed";
        }
    }
    void CallBack(unsigned int& param) override {
        (void)param;
        ++fired;
        mLog->add(mName);
        if (action) {
            action();
        }
    }

    std::atomic<int> fired{0};
    std::function<void()> action;  // runs on the manager thread

private:
    std::string mName;
    CallLog* mLog;
};

// The context switches of the manager thread once it sleeps: read only when
// the kernel reports it asleep, so that a wake-up before the call has
// already been counted when it went back to sleep.
ProcessStats::Switches managerThreadAsleep() {
    for (int attempt = 0; attempt < 5000; ++attempt) {
        const std::map<int, ProcessStats::Switches> threads =
            ProcessStats::threadsNamed("HbLTimerMng");
        if (threads.size() == 1 && threads.begin()->second.state == 'S') {
            return threads.begin()->second;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ADD_FAILURE() << "the manager thread did not go to sleep within 5 s";
    return ProcessStats::Switches();
}

class HbLTimerMngTest : public ::testing::Test {
protected:
    void SetUp() override {
        manager = HbLTimerMng::GetTimerMng();
        HbLTimerManualClock::GetInstance()->Use();
    }
    void TearDown() override {
        HbLTimerManualClock::GetInstance()->SetRemoveWaitHook(nullptr);
        HbLTimerManualClock::GetInstance()->SetCallHook(nullptr);
        EXPECT_EQ(0u, manager->ActiveCount());
    }

    HbLTimerMng* manager = nullptr;
    CallLog log;
};

}  // namespace

TEST_F(HbLTimerMngTest, AddTimer_NullTimer_ReturnsNullAndArmsNothing) {
    EXPECT_EQ(nullptr, manager->AddTimer(nullptr, 10));
    EXPECT_EQ(0u, manager->ActiveCount());
}

TEST_F(HbLTimerMngTest, AdvanceClock_10000msTimer_FiresOnlyWhenItsTimeHasCome) {
    NamedTimer timer("t", &log);
    HbLTimerSubInfo* handle = manager->AddTimer(&timer, 10000);
    ASSERT_NE(nullptr, handle);
    EXPECT_TRUE(manager->IsActive(handle, &timer));

    HbLTimerManualClock::GetInstance()->Advance(9999);
    EXPECT_EQ(0, timer.fired.load());
    EXPECT_TRUE(manager->IsActive(handle, &timer));

    HbLTimerManualClock::GetInstance()->Advance(1);
    EXPECT_EQ(1, timer.fired.load());
    EXPECT_FALSE(manager->IsActive(handle, &timer));
    EXPECT_EQ(0u, manager->ActiveCount());
}

TEST_F(HbLTimerMngTest, AdvanceClock_SeveralDue_FiresThemInDueOrder) {
    NamedTimer a("a", &log);
    NamedTimer b("b", &log);
    NamedTimer c("c", &log);
    NamedTimer d("d", &log);
    manager->AddTimer(&a, 30);
    manager->AddTimer(&b, 10);
    manager->AddTimer(&c, 20);
    manager->AddTimer(&d, 10);  // same due time as b, armed later

    HbLTimerManualClock::GetInstance()->Advance(25);
    const std::vector<std::string> first = {"b", "d", "c"};
    EXPECT_EQ(first, log.entries());

    HbLTimerManualClock::GetInstance()->Advance(5);
    const std::vector<std::string> all = {"b", "d", "c", "a"};
    EXPECT_EQ(all, log.entries());
}

TEST_F(HbLTimerMngTest, AdvanceClock_OneStepPastSeveralPeriods_FiresEachArmingOnce) {
    NamedTimer timer("t", &log);
    manager->AddTimer(&timer, 10);
    HbLTimerManualClock::GetInstance()->Advance(1000);
    EXPECT_EQ(1, timer.fired.load());
    HbLTimerManualClock::GetInstance()->Advance(1000);
    EXPECT_EQ(1, timer.fired.load());  // one-shot: nothing more without re-arming
}

TEST_F(HbLTimerMngTest, AdvanceClock_ZeroPeriod_FiresAtTheCurrentTime) {
    NamedTimer timer("t", &log);
    manager->AddTimer(&timer, 0);
    HbLTimerManualClock::GetInstance()->Advance(0);
    EXPECT_EQ(1, timer.fired.load());
}

TEST_F(HbLTimerMngTest, RemoveTimer_ArmedTimer_ReturnsTrueAndItNeverFires) {
    NamedTimer timer("t", &log);
    HbLTimerSubInfo* handle = manager->AddTimer(&timer, 100);
    EXPECT_TRUE(manager->RemoveTimer(handle, &timer));
    EXPECT_FALSE(manager->IsActive(handle, &timer));
    HbLTimerManualClock::GetInstance()->Advance(1000);
    EXPECT_EQ(0, timer.fired.load());
    EXPECT_FALSE(manager->RemoveTimer(handle, &timer));
}

TEST_F(HbLTimerMngTest, StaleHandle_AfterExpiry_IsInactiveAndRemoveReturnsFalse) {
    NamedTimer timer("t", &log);
    HbLTimerSubInfo* stale = manager->AddTimer(&timer, 10);
    HbLTimerManualClock::GetInstance()->Advance(10);
    ASSERT_EQ(1, timer.fired.load());

    EXPECT_FALSE(manager->IsActive(stale, &timer));
    EXPECT_FALSE(manager->RemoveTimer(stale, &timer));
}

// A handle names its timer, not one arming: whichever arming a thread's
// handle came from, it names the arming the timer has now. So a handle stored
// late by one thread cannot hide a newer arming from a later stop.
TEST_F(HbLTimerMngTest, Handle_FromAnEarlierArming_NamesTheTimersArmingNow) {
    NamedTimer timer("t", &log);
    HbLTimerSubInfo* earlier = manager->AddTimer(&timer, 10);
    HbLTimerManualClock::GetInstance()->Advance(10);
    ASSERT_EQ(1, timer.fired.load());

    HbLTimerSubInfo* fresh = manager->AddTimer(&timer, 10);
    EXPECT_EQ(earlier, fresh);
    EXPECT_TRUE(manager->IsActive(earlier, &timer));
    EXPECT_TRUE(manager->RemoveTimer(earlier, &timer));
    EXPECT_FALSE(manager->IsActive(fresh, &timer));
    HbLTimerManualClock::GetInstance()->Advance(10);
    EXPECT_EQ(1, timer.fired.load());
}

TEST_F(HbLTimerMngTest, Handle_OfAnotherTimer_DoesNotMatch) {
    NamedTimer a("a", &log);
    NamedTimer b("b", &log);
    HbLTimerSubInfo* handle = manager->AddTimer(&a, 10);
    EXPECT_FALSE(manager->IsActive(handle, &b));
    EXPECT_FALSE(manager->RemoveTimer(handle, &b));
    EXPECT_TRUE(manager->IsActive(handle, &a));
    EXPECT_TRUE(manager->RemoveTimer(handle, &a));  // leaves nothing armed behind
}

TEST_F(HbLTimerMngTest, Handle_OfAnotherArmedTimer_NeitherMatchesNorDisarmsIt) {
    NamedTimer a("a", &log);
    NamedTimer b("b", &log);
    HbLTimerSubInfo* handleA = manager->AddTimer(&a, 10);
    HbLTimerSubInfo* handleB = manager->AddTimer(&b, 10);
    EXPECT_NE(handleA, handleB);
    EXPECT_FALSE(manager->IsActive(handleA, &b));
    EXPECT_FALSE(manager->RemoveTimer(handleA, &b));
    EXPECT_FALSE(manager->RemoveTimer(handleB, &a));
    EXPECT_EQ(2u, manager->ActiveCount());
    HbLTimerManualClock::GetInstance()->Advance(10);
    const std::vector<std::string> expected = {"a", "b"};
    EXPECT_EQ(expected, log.entries());
}

TEST_F(HbLTimerMngTest, Handle_OfADestroyedTimer_NamesNoLaterTimer) {
    std::unique_ptr<NamedTimer> gone(new NamedTimer("gone", &log));
    HbLTimerSubInfo* stale = manager->AddTimer(gone.get(), 10);
    ASSERT_TRUE(manager->RemoveTimer(stale, gone.get()));
    gone.reset();
    // Timers made afterwards (the allocator may well reuse the address) never
    // answer to the handle of the one that is gone.
    for (int i = 0; i < 8; ++i) {
        std::unique_ptr<NamedTimer> later(new NamedTimer("later", &log));
        HbLTimerSubInfo* own = manager->AddTimer(later.get(), 10);
        EXPECT_NE(stale, own);
        EXPECT_FALSE(manager->IsActive(stale, later.get()));
        EXPECT_FALSE(manager->RemoveTimer(stale, later.get()));
        EXPECT_TRUE(manager->RemoveTimer(own, later.get()));
    }
}

TEST_F(HbLTimerMngTest, NullHandle_OfUnarmedTimer_IsInactiveAndRemoveReturnsFalse) {
    NamedTimer timer("t", &log);
    EXPECT_FALSE(manager->IsActive(nullptr, &timer));
    EXPECT_FALSE(manager->RemoveTimer(nullptr, &timer));
}

// An owner clears its handle to null after disarming; that store may land
// after another thread armed the timer again. Null still names the arming.
TEST_F(HbLTimerMngTest, NullHandle_OfArmedTimer_NamesItsArming) {
    NamedTimer timer("t", &log);
    manager->AddTimer(&timer, 10);
    EXPECT_TRUE(manager->IsActive(nullptr, &timer));
    EXPECT_TRUE(manager->RemoveTimer(nullptr, &timer));
    EXPECT_FALSE(manager->IsActive(nullptr, &timer));
    EXPECT_EQ(0u, manager->ActiveCount());
    HbLTimerManualClock::GetInstance()->Advance(10);
    EXPECT_EQ(0, timer.fired.load());
}

TEST_F(HbLTimerMngTest, NullTimer_IsInactiveAndRemoveReturnsFalse) {
    NamedTimer timer("t", &log);
    HbLTimerSubInfo* handle = manager->AddTimer(&timer, 10);
    EXPECT_FALSE(manager->IsActive(handle, nullptr));
    EXPECT_FALSE(manager->RemoveTimer(handle, nullptr));
    EXPECT_FALSE(manager->IsActive(nullptr, nullptr));
    EXPECT_TRUE(manager->RemoveTimer(handle, &timer));
}

TEST_F(HbLTimerMngTest, AddTimer_OfAnArmedTimer_MovesItsOneArmingAndKeepsTheHandle) {
    NamedTimer timer("t", &log);
    HbLTimerSubInfo* first = manager->AddTimer(&timer, 100);
    HbLTimerManualClock::GetInstance()->Advance(60);
    HbLTimerSubInfo* second = manager->AddTimer(&timer, 100);
    EXPECT_EQ(first, second);
    EXPECT_EQ(1u, manager->ActiveCount());

    // 159 ms: the first arming would have fired at 100.
    HbLTimerManualClock::GetInstance()->Advance(99);
    EXPECT_EQ(0, timer.fired.load());
    HbLTimerManualClock::GetInstance()->Advance(1);
    EXPECT_EQ(1, timer.fired.load());
    HbLTimerManualClock::GetInstance()->Advance(1000);
    EXPECT_EQ(1, timer.fired.load());
    EXPECT_EQ(0u, manager->ActiveCount());
}

TEST_F(HbLTimerMngTest, AddTimer_ReArmedToTheSameDueTime_FiresAfterTimersArmedBefore) {
    NamedTimer a("a", &log);
    NamedTimer b("b", &log);
    manager->AddTimer(&a, 10);
    manager->AddTimer(&b, 10);
    manager->AddTimer(&a, 10);  // same due time as b, armed last now
    HbLTimerManualClock::GetInstance()->Advance(10);
    const std::vector<std::string> expected = {"b", "a"};
    EXPECT_EQ(expected, log.entries());
}

TEST_F(HbLTimerMngTest, AddTimer_FromTwoThreadsAtOnce_ArmsTheTimerOnce) {
    NamedTimer timer("t", &log);
    TimerCallGate gate(&timer);
    gate.holdAt("first", HbLTimerClock::en_CALL_ADD_TIMER, 1);
    std::atomic<HbLTimerSubInfo*> firstHandle{nullptr};
    std::thread first([this, &timer, &firstHandle] {
        TimerCallGate::nameThisThread("first");
        firstHandle.store(manager->AddTimer(&timer, 10));
    });
    gate.waitHeld("first");  // armed, AddTimer not yet returned
    std::thread second([this, &timer] {
        TimerCallGate::nameThisThread("second");
        manager->AddTimer(&timer, 20);
    });
    second.join();
    gate.resume("first");
    first.join();

    EXPECT_EQ(1u, manager->ActiveCount());
    EXPECT_TRUE(manager->IsActive(firstHandle.load(), &timer));
    HbLTimerManualClock::GetInstance()->Advance(10);  // the later arming (20 ms) replaced the first
    EXPECT_EQ(0, timer.fired.load());
    HbLTimerManualClock::GetInstance()->Advance(10);
    EXPECT_EQ(1, timer.fired.load());
    HbLTimerManualClock::GetInstance()->Advance(1000);
    EXPECT_EQ(1, timer.fired.load());
}

TEST_F(HbLTimerMngTest, SetCallHook_RunsAfterEachCallHasTakenEffectWithNoLockHeld) {
    NamedTimer timer("t", &log);
    NamedTimer other("other", &log);
    std::vector<std::string> seen;  // written on this thread only
    HbLTimerManualClock::GetInstance()->SetCallHook(
        [this, &seen](HbLTimerClock::EN_CALL call, HbLTimerBase* called) {
            // ActiveCount() takes the manager's lock: it would deadlock if the
            // hook ran with the lock held.
            const char* name = call == HbLTimerClock::en_CALL_ADD_TIMER      ? "add"
                               : call == HbLTimerClock::en_CALL_REMOVE_TIMER ? "remove"
                                                                             : "active";
            const char* whose = called == nullptr ? "null" : "timer";
            seen.push_back(std::string(name) + " " + whose + " " +
                           std::to_string(manager->ActiveCount()));
        });
    HbLTimerSubInfo* handle = manager->AddTimer(&timer, 10);
    manager->IsActive(handle, &timer);
    manager->RemoveTimer(handle, &timer);
    manager->AddTimer(nullptr, 10);  // no timer: no hook
    HbLTimerManualClock::GetInstance()->SetCallHook(nullptr);
    manager->AddTimer(&other, 10);  // hook removed
    manager->RemoveTimer(nullptr, &other);

    const std::vector<std::string> expected = {"add timer 1", "active timer 1", "remove timer 0"};
    EXPECT_EQ(expected, seen);
}

TEST_F(HbLTimerMngTest, Callback_ReArmsItsOwnTimer_FiresAgainOnTheNextAdvance) {
    NamedTimer timer("t", &log);
    std::atomic<HbLTimerSubInfo*> rearmed{nullptr};
    timer.action = [this, &timer, &rearmed] {
        if (timer.fired.load() == 1) {
            rearmed.store(manager->AddTimer(&timer, 50));
        }
    };
    manager->AddTimer(&timer, 10);
    HbLTimerManualClock::GetInstance()->Advance(10);
    EXPECT_EQ(1, timer.fired.load());
    ASSERT_NE(nullptr, rearmed.load());
    EXPECT_TRUE(manager->IsActive(rearmed.load(), &timer));

    HbLTimerManualClock::GetInstance()->Advance(49);
    EXPECT_EQ(1, timer.fired.load());
    HbLTimerManualClock::GetInstance()->Advance(1);
    EXPECT_EQ(2, timer.fired.load());
    EXPECT_FALSE(manager->IsActive(rearmed.load(), &timer));
}

TEST_F(HbLTimerMngTest, Callback_ReArmsAndRemovesItsOwnTimer_NeverFiresAgain) {
    NamedTimer timer("t", &log);
    std::atomic<HbLTimerSubInfo*> rearmed{nullptr};
    std::atomic<bool> removed{false};
    std::atomic<bool> activeAfterRemove{true};
    timer.action = [this, &timer, &rearmed, &removed, &activeAfterRemove] {
        HbLTimerSubInfo* handle = manager->AddTimer(&timer, 10);
        rearmed.store(handle);
        removed.store(manager->RemoveTimer(handle, &timer));
        activeAfterRemove.store(manager->IsActive(handle, &timer));
    };
    HbLTimerSubInfo* first = manager->AddTimer(&timer, 10);
    HbLTimerManualClock::GetInstance()->Advance(10);
    EXPECT_EQ(1, timer.fired.load());
    EXPECT_TRUE(removed.load());
    EXPECT_FALSE(activeAfterRemove.load());
    EXPECT_FALSE(manager->IsActive(first, &timer));
    EXPECT_FALSE(manager->IsActive(rearmed.load(), &timer));
    EXPECT_EQ(0u, manager->ActiveCount());

    HbLTimerManualClock::GetInstance()->Advance(1000);
    EXPECT_EQ(1, timer.fired.load());
}

TEST_F(HbLTimerMngTest, Callback_RemovesItsOwnExpiredHandle_ReturnsFalseWithoutBlocking) {
    NamedTimer timer("t", &log);
    std::atomic<HbLTimerSubInfo*> handle{nullptr};
    std::atomic<int> removeResult{-1};
    std::atomic<int> activeResult{-1};
    timer.action = [this, &timer, &handle, &removeResult, &activeResult] {
        activeResult.store(manager->IsActive(handle.load(), &timer) ? 1 : 0);
        removeResult.store(manager->RemoveTimer(handle.load(), &timer) ? 1 : 0);
    };
    handle.store(manager->AddTimer(&timer, 10));
    HbLTimerManualClock::GetInstance()->Advance(10);
    EXPECT_EQ(1, timer.fired.load());
    EXPECT_EQ(0, activeResult.load());
    EXPECT_EQ(0, removeResult.load());
}

TEST_F(HbLTimerMngTest, Callback_RemovesAnotherArmedTimer_ThatTimerDoesNotFire) {
    NamedTimer first("first", &log);
    NamedTimer second("second", &log);
    std::atomic<HbLTimerSubInfo*> secondHandle{nullptr};
    first.action = [this, &second, &secondHandle] {
        manager->RemoveTimer(secondHandle.load(), &second);
    };
    manager->AddTimer(&first, 10);
    secondHandle.store(manager->AddTimer(&second, 20));
    HbLTimerManualClock::GetInstance()->Advance(20);
    const std::vector<std::string> expected = {"first"};
    EXPECT_EQ(expected, log.entries());
}

TEST_F(HbLTimerMngTest, RemoveTimer_FromAnotherThreadWhileItsCallbackRuns_WaitsForTheCallback) {
    NamedTimer timer("t", &log);
    TestEvent callbackEntered;
    TestEvent releaseCallback;
    TestEvent removerWaiting;
    std::atomic<bool> callbackFinished{false};
    std::atomic<bool> removeReturned{false};
    std::atomic<bool> removeReturnedBeforeCallbackEnd{true};
    timer.action = [&] {
        callbackEntered.set();
        releaseCallback.wait();
        removeReturnedBeforeCallbackEnd.store(removeReturned.load());
        callbackFinished.store(true);
    };
    HbLTimerManualClock::GetInstance()->SetRemoveWaitHook(
        [&removerWaiting] { removerWaiting.set(); });
    HbLTimerSubInfo* handle = manager->AddTimer(&timer, 10);

    std::thread advancer([this] { HbLTimerManualClock::GetInstance()->Advance(10); });
    callbackEntered.wait();

    std::atomic<bool> callbackFinishedSeenByRemover{false};
    std::atomic<int> removeResult{-1};
    std::thread remover([&] {
        removeResult.store(manager->RemoveTimer(handle, &timer) ? 1 : 0);
        callbackFinishedSeenByRemover.store(callbackFinished.load());
        removeReturned.store(true);
    });
    removerWaiting.wait();  // the remover is blocked inside RemoveTimer now
    releaseCallback.set();
    remover.join();
    advancer.join();
    HbLTimerManualClock::GetInstance()->SetRemoveWaitHook(nullptr);

    EXPECT_FALSE(removeReturnedBeforeCallbackEnd.load());
    EXPECT_TRUE(callbackFinishedSeenByRemover.load());
    EXPECT_EQ(0, removeResult.load());  // the arming had expired: nothing to disarm
    EXPECT_EQ(1, timer.fired.load());
}

TEST_F(HbLTimerMngTest, Callback_RunsOnTheManagerThreadNamedHbLTimerMng) {
    NamedTimer timer("t", &log);
    std::string name;
    std::thread::id callbackThread;
    timer.action = [&name, &callbackThread] {
        char buffer[16] = {};
        pthread_getname_np(pthread_self(), buffer, sizeof(buffer));
        name = buffer;
        callbackThread = std::this_thread::get_id();
    };
    manager->AddTimer(&timer, 1);
    HbLTimerManualClock::GetInstance()->Advance(1);
    EXPECT_EQ("HbLTimerMng", name);
    EXPECT_NE(std::this_thread::get_id(), callbackThread);
}

// On the manual clock the thread is woken to look at every change, and goes
// back to sleep: it never spins between two advances.
TEST_F(HbLTimerMngTest, ManualClock_BetweenAdvances_TheManagerThreadSleeps) {
    NamedTimer timer("t", &log);
    manager->AddTimer(&timer, 10000);
    HbLTimerManualClock::GetInstance()->Advance(10);
    EXPECT_EQ('S', managerThreadAsleep().state);
    EXPECT_TRUE(manager->RemoveTimer(nullptr, &timer));
    EXPECT_EQ('S', managerThreadAsleep().state);
}

TEST_F(HbLTimerMngTest, ActiveCount_CountsArmedTimers) {
    NamedTimer a("a", &log);
    NamedTimer b("b", &log);
    manager->AddTimer(&a, 10);
    HbLTimerSubInfo* handle = manager->AddTimer(&b, 20);
    EXPECT_EQ(2u, manager->ActiveCount());
    manager->RemoveTimer(handle, &b);
    EXPECT_EQ(1u, manager->ActiveCount());
    HbLTimerManualClock::GetInstance()->Advance(10);
    EXPECT_EQ(0u, manager->ActiveCount());
}

// The manager is one for the whole process: each real-clock test starts on
// the real clock and leaves the time scale as it found it.
class HbLTimerMngRealClockTest : public ::testing::Test {
protected:
    void SetUp() override {
        manager = HbLTimerMng::GetTimerMng();
        HbLTimerManualClock::GetInstance()->UseRealClock();
        savedScale = manager->GetTimeScale();
    }
    void TearDown() override {
        manager->SetTimeScale(savedScale);
        EXPECT_EQ(0u, manager->ActiveCount());
    }

    HbLTimerMng* manager = nullptr;
    double savedScale = 1.0;
    CallLog log;
};

TEST_F(HbLTimerMngRealClockTest, AddTimer_ZeroPeriodOnTheRealClock_Fires) {
    NamedTimer timer("t", &log);
    TestEvent fired;
    timer.action = [&fired] { fired.set(); };
    ASSERT_NE(nullptr, manager->AddTimer(&timer, 0));
    fired.wait();
    EXPECT_EQ(1, timer.fired.load());
}

TEST_F(HbLTimerMngRealClockTest, SetTimeScale_ShortensA10000msTimerOnTheRealClock) {
    manager->SetTimeScale(0.0001);  // 10000 ms become 1 ms
    NamedTimer timer("t", &log);
    TestEvent fired;
    timer.action = [&fired] { fired.set(); };
    ASSERT_NE(nullptr, manager->AddTimer(&timer, 10000));
    fired.wait();
    EXPECT_EQ(1, timer.fired.load());
}

TEST_F(HbLTimerMngRealClockTest, UseManualClock_TimerArmedOnTheRealClock_KeepsAtMostItsPeriod) {
    NamedTimer timer("t", &log);
    HbLTimerSubInfo* handle = manager->AddTimer(&timer, 100000);
    HbLTimerManualClock::GetInstance()->Use();
    EXPECT_TRUE(manager->IsActive(handle, &timer));
    HbLTimerManualClock::GetInstance()->Advance(100000);
    EXPECT_EQ(1, timer.fired.load());
    EXPECT_FALSE(manager->IsActive(handle, &timer));
}

TEST_F(HbLTimerMngRealClockTest, UseRealClock_TimerArmedOnTheManualClock_FiresOnTheRealClock) {
    HbLTimerManualClock::GetInstance()->Use();
    NamedTimer timer("t", &log);
    TestEvent fired;
    timer.action = [&fired] { fired.set(); };
    manager->AddTimer(&timer, 20);
    HbLTimerManualClock::GetInstance()->Advance(10);
    EXPECT_EQ(0, timer.fired.load());
    HbLTimerManualClock::GetInstance()
        ->UseRealClock();  // the remaining 10 ms now pass on their own
    fired.wait();
    EXPECT_EQ(1, timer.fired.load());
}

// A lookup restarts the command timer on every received chunk and stops it
// at the end: none of that may cost a switch to the manager thread.
TEST_F(HbLTimerMngRealClockTest, ReArmingAndDisarming_DoNotWakeTheManagerThread) {
    NamedTimer timer("t", &log);
    NamedTimer later("later", &log);
    ASSERT_NE(nullptr, manager->AddTimer(&later, 200000));
    const ProcessStats::Switches before = managerThreadAsleep();
    for (uint32 i = 0; i < 1000; ++i) {
        manager->RemoveTimer(nullptr, &timer);
        // Each arming becomes the earliest deadline, later than the one before.
        ASSERT_NE(nullptr, manager->AddTimer(&timer, 100000 + i));
    }
    EXPECT_TRUE(manager->RemoveTimer(nullptr, &timer));
    EXPECT_TRUE(manager->RemoveTimer(nullptr, &later));
    const ProcessStats::Switches after = managerThreadAsleep();
    EXPECT_EQ(before.voluntary, after.voluntary);
    EXPECT_EQ(before.involuntary, after.involuntary);
    EXPECT_EQ(0, timer.fired.load() + later.fired.load());
}

// An arming earlier than the deadline the thread sleeps for still fires on
// time: the kernel timer is moved, not the thread woken.
TEST_F(HbLTimerMngRealClockTest, AddTimer_EarlierThanTheArmedDeadline_FiresFirst) {
    NamedTimer late("late", &log);
    NamedTimer early("early", &log);
    TestEvent fired;
    early.action = [&fired] { fired.set(); };
    ASSERT_NE(nullptr, manager->AddTimer(&late, 100000));
    managerThreadAsleep();
    ASSERT_NE(nullptr, manager->AddTimer(&early, 5));
    fired.wait();
    EXPECT_EQ(0, late.fired.load());
    EXPECT_TRUE(manager->RemoveTimer(nullptr, &late));
}

TEST_F(HbLTimerMngRealClockTest, SetTimeScale_OutsideItsRange_IsIgnored) {
    manager->SetTimeScale(0.5);
    manager->SetTimeScale(0.0);
    manager->SetTimeScale(-1.0);
    manager->SetTimeScale(1000.5);
    EXPECT_EQ(0.5, manager->GetTimeScale());
    manager->SetTimeScale(1000.0);
    EXPECT_EQ(1000.0, manager->GetTimeScale());
}

// Each case of the death-test suite runs in a child process forked from a
// process that has not created the timer manager yet: ctest runs every case
// in a process of its own, and a binary run whole runs the death-test suites
// before all other tests. "fast" forks without re-executing the binary, which
// also works under qemu-arm.

// The setting is read when the manager is created.
TEST(HbLTimerMngDeathTest, TimeScale_FromTheEnvironment_ReadWhenTheManagerIsCreated) {
    GTEST_FLAG_SET(death_test_style, "fast");
    EXPECT_EXIT(
        {
            ::setenv("HB_TIMER_SCALE", "0.001", 1);
            std::exit(HbLTimerMng::GetTimerMng()->GetTimeScale() == 0.001 ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
    EXPECT_EXIT(
        {
            ::setenv("HB_TIMER_SCALE", "fast", 1);
            std::exit(HbLTimerMng::GetTimerMng()->GetTimeScale() == 1.0 ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
    EXPECT_EXIT(
        {
            ::setenv("HB_TIMER_SCALE", "5000", 1);
            std::exit(HbLTimerMng::GetTimerMng()->GetTimeScale() == 1.0 ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
    EXPECT_EXIT(
        {
            ::unsetenv("HB_TIMER_SCALE");
            std::exit(HbLTimerMng::GetTimerMng()->GetTimeScale() == 1.0 ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
}

// Stop() ends the manager of the process for good.
TEST(HbLTimerMngDeathTest, Stop_ThenAddTimer_ArmsNothing) {
    GTEST_FLAG_SET(death_test_style, "fast");
    EXPECT_EXIT(
        {
            HbLTimerMng* manager = HbLTimerMng::GetTimerMng();
            HbLTimerManualClock::GetInstance()->Use();
            CallLog log;
            NamedTimer timer("t", &log);
            manager->AddTimer(&timer, 10);
            manager->Stop();
            const size_t armedAfterStop = manager->ActiveCount();
            HbLTimerSubInfo* handle = manager->AddTimer(&timer, 10);
            HbLTimerManualClock::GetInstance()->Advance(100);  // returns at once once stopped
            const int fired = timer.fired.load();
            std::fprintf(stderr, "armed %zu, handle %s, fired %d\n", armedAfterStop,
                         handle == nullptr ? "null" : "set", fired);
            std::exit(armedAfterStop == 0 && handle == nullptr && fired == 0 ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "armed 0, handle null, fired 0\n");
}

// Where the kernel refuses the manager its timer descriptor (the process
// has no descriptor left when the manager is created), its thread asks again
// at least every second, and timers still fire, in order. A sanitizer's
// runtime needs descriptors of its own while the manager's thread starts, so
// the case runs only without one.
TEST(HbLTimerMngDeathTest, WithoutDescriptors_TimersStillFire) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer's runtime needs free descriptors while the manager starts";
#endif
    GTEST_FLAG_SET(death_test_style, "fast");
    EXPECT_EXIT(
        {
            const int lowestFree = ::dup(0);
            ::close(lowestFree);
            rlimit saved{};
            ::getrlimit(RLIMIT_NOFILE, &saved);
            rlimit scarce = saved;
            scarce.rlim_cur = static_cast<rlim_t>(lowestFree);
            ::setrlimit(RLIMIT_NOFILE, &scarce);
            HbLTimerMng* manager = HbLTimerMng::GetTimerMng();
            ::setrlimit(RLIMIT_NOFILE, &saved);
            CallLog log;
            NamedTimer first("first", &log);
            NamedTimer second("second", &log);
            TestEvent fired;
            second.action = [&fired] { fired.set(); };
            manager->AddTimer(&first, 0);
            manager->AddTimer(&second, 100000);
            manager->RemoveTimer(nullptr, &second);
            manager->AddTimer(&second, 20);
            fired.wait();
            std::string order;
            for (const std::string& name : log.entries()) {
                order += " " + name;
            }
            std::fprintf(stderr, "fired%s\n", order.c_str());
            std::exit(0);
        },
        ::testing::ExitedWithCode(0), "fired first second\n");
}

// With descriptors to spare, the manager keeps its one timer descriptor for good.
TEST(HbLTimerMngDeathTest, Created_HoldsOneTimerDescriptor) {
    GTEST_FLAG_SET(death_test_style, "fast");
    EXPECT_EXIT(
        {
            const size_t descriptorsBefore = ProcessStats::openDescriptors();
            HbLTimerMng::GetTimerMng();
            const size_t added = ProcessStats::openDescriptors() - descriptorsBefore;
            std::fprintf(stderr, "descriptors added %zu\n", added);
            std::exit(0);
        },
        ::testing::ExitedWithCode(0), "descriptors added 1\n");
}
