#include <gtest/gtest.h>

#include <pthread.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "CallLog.h"
#include "HbFramework/HbLTimerMng.h"
#include "TestEvent.h"

namespace {

// A timer whose expiry logs its name and then runs an optional action.
class NamedTimer : public HbLTimerBase {
public:
    NamedTimer(const std::string& name, CallLog* log) : mName(name), mLog(log) {}
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

class HbLTimerMngTest : public ::testing::Test {
protected:
    void SetUp() override {
        manager = HbLTimerMng::GetTimerMng();
        manager->UseManualClock();
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

    manager->AdvanceClock(9999);
    EXPECT_EQ(0, timer.fired.load());
    EXPECT_TRUE(manager->IsActive(handle, &timer));

    manager->AdvanceClock(1);
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

    manager->AdvanceClock(25);
    const std::vector<std::string> first = {"b", "d", "c"};
    EXPECT_EQ(first, log.entries());

    manager->AdvanceClock(5);
    const std::vector<std::string> all = {"b", "d", "c", "a"};
    EXPECT_EQ(all, log.entries());
}

TEST_F(HbLTimerMngTest, AdvanceClock_OneStepPastSeveralPeriods_FiresEachArmingOnce) {
    NamedTimer timer("t", &log);
    manager->AddTimer(&timer, 10);
    manager->AdvanceClock(1000);
    EXPECT_EQ(1, timer.fired.load());
    manager->AdvanceClock(1000);
    EXPECT_EQ(1, timer.fired.load());  // one-shot: nothing more without re-arming
}

TEST_F(HbLTimerMngTest, AdvanceClock_ZeroPeriod_FiresAtTheCurrentTime) {
    NamedTimer timer("t", &log);
    manager->AddTimer(&timer, 0);
    manager->AdvanceClock(0);
    EXPECT_EQ(1, timer.fired.load());
}

TEST_F(HbLTimerMngTest, RemoveTimer_ArmedTimer_ReturnsTrueAndItNeverFires) {
    NamedTimer timer("t", &log);
    HbLTimerSubInfo* handle = manager->AddTimer(&timer, 100);
    EXPECT_TRUE(manager->RemoveTimer(handle, &timer));
    EXPECT_FALSE(manager->IsActive(handle, &timer));
    manager->AdvanceClock(1000);
    EXPECT_EQ(0, timer.fired.load());
    EXPECT_FALSE(manager->RemoveTimer(handle, &timer));
}

TEST_F(HbLTimerMngTest, StaleHandle_AfterExpiry_IsInactiveAndRemoveReturnsFalse) {
    NamedTimer timer("t", &log);
    HbLTimerSubInfo* stale = manager->AddTimer(&timer, 10);
    manager->AdvanceClock(10);
    ASSERT_EQ(1, timer.fired.load());

    EXPECT_FALSE(manager->IsActive(stale, &timer));
    EXPECT_FALSE(manager->RemoveTimer(stale, &timer));

    // A new arming of the same timer gets a new handle; the stale one still
    // names nothing and cannot disarm it.
    HbLTimerSubInfo* fresh = manager->AddTimer(&timer, 10);
    EXPECT_NE(stale, fresh);
    EXPECT_FALSE(manager->IsActive(stale, &timer));
    EXPECT_FALSE(manager->RemoveTimer(stale, &timer));
    EXPECT_TRUE(manager->IsActive(fresh, &timer));
    manager->AdvanceClock(10);
    EXPECT_EQ(2, timer.fired.load());
}

TEST_F(HbLTimerMngTest, Handle_OfAnotherTimer_DoesNotMatch) {
    NamedTimer a("a", &log);
    NamedTimer b("b", &log);
    HbLTimerSubInfo* handle = manager->AddTimer(&a, 10);
    EXPECT_FALSE(manager->IsActive(handle, &b));
    EXPECT_FALSE(manager->RemoveTimer(handle, &b));
    EXPECT_TRUE(manager->IsActive(handle, &a));
}

TEST_F(HbLTimerMngTest, NullHandle_IsInactiveAndRemoveReturnsFalse) {
    NamedTimer timer("t", &log);
    EXPECT_FALSE(manager->IsActive(nullptr, &timer));
    EXPECT_FALSE(manager->RemoveTimer(nullptr, &timer));
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
    manager->AdvanceClock(10);
    EXPECT_EQ(1, timer.fired.load());
    ASSERT_NE(nullptr, rearmed.load());
    EXPECT_TRUE(manager->IsActive(rearmed.load(), &timer));

    manager->AdvanceClock(49);
    EXPECT_EQ(1, timer.fired.load());
    manager->AdvanceClock(1);
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
    manager->AdvanceClock(10);
    EXPECT_EQ(1, timer.fired.load());
    EXPECT_TRUE(removed.load());
    EXPECT_FALSE(activeAfterRemove.load());
    EXPECT_FALSE(manager->IsActive(first, &timer));
    EXPECT_FALSE(manager->IsActive(rearmed.load(), &timer));
    EXPECT_EQ(0u, manager->ActiveCount());

    manager->AdvanceClock(1000);
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
    manager->AdvanceClock(10);
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
    manager->AdvanceClock(20);
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
    manager->SetRemoveWaitHook([&removerWaiting] { removerWaiting.set(); });
    HbLTimerSubInfo* handle = manager->AddTimer(&timer, 10);

    std::thread advancer([this] { manager->AdvanceClock(10); });
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
    manager->SetRemoveWaitHook(nullptr);

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
    manager->AdvanceClock(1);
    EXPECT_EQ("HbLTimerMng", name);
    EXPECT_NE(std::this_thread::get_id(), callbackThread);
}

TEST_F(HbLTimerMngTest, ActiveCount_CountsArmedTimers) {
    NamedTimer a("a", &log);
    NamedTimer b("b", &log);
    manager->AddTimer(&a, 10);
    HbLTimerSubInfo* handle = manager->AddTimer(&b, 20);
    EXPECT_EQ(2u, manager->ActiveCount());
    manager->RemoveTimer(handle, &b);
    EXPECT_EQ(1u, manager->ActiveCount());
    manager->AdvanceClock(10);
    EXPECT_EQ(0u, manager->ActiveCount());
}

TEST_F(HbLTimerMngTest, Stop_ThenAddTimer_ArmsNothing) {
    NamedTimer timer("t", &log);
    manager->AddTimer(&timer, 10);
    manager->Stop();
    EXPECT_EQ(0u, manager->ActiveCount());
    EXPECT_EQ(nullptr, manager->AddTimer(&timer, 10));
    manager->AdvanceClock(100);  // returns at once once stopped
    EXPECT_EQ(0, timer.fired.load());
}

TEST(HbLTimerMngRealClockTest, AddTimer_ZeroPeriodOnTheRealClock_Fires) {
    HbLTimerMng* manager = HbLTimerMng::GetTimerMng();
    CallLog log;
    NamedTimer timer("t", &log);
    TestEvent fired;
    timer.action = [&fired] { fired.set(); };
    ASSERT_NE(nullptr, manager->AddTimer(&timer, 0));
    fired.wait();
    EXPECT_EQ(1, timer.fired.load());
}

TEST(HbLTimerMngRealClockTest, SetTimeScale_ShortensA10000msTimerOnTheRealClock) {
    HbLTimerMng* manager = HbLTimerMng::GetTimerMng();
    manager->SetTimeScale(0.0001);  // 10000 ms become 1 ms
    CallLog log;
    NamedTimer timer("t", &log);
    TestEvent fired;
    timer.action = [&fired] { fired.set(); };
    ASSERT_NE(nullptr, manager->AddTimer(&timer, 10000));
    fired.wait();
    EXPECT_EQ(1, timer.fired.load());
}

TEST(HbLTimerMngRealClockTest, UseManualClock_TimerArmedOnTheRealClock_KeepsAtMostItsPeriod) {
    HbLTimerMng* manager = HbLTimerMng::GetTimerMng();
    CallLog log;
    NamedTimer timer("t", &log);
    HbLTimerSubInfo* handle = manager->AddTimer(&timer, 100000);
    manager->UseManualClock();
    EXPECT_TRUE(manager->IsActive(handle, &timer));
    manager->AdvanceClock(100000);
    EXPECT_EQ(1, timer.fired.load());
    EXPECT_FALSE(manager->IsActive(handle, &timer));
}

TEST(HbLTimerMngRealClockTest, SetTimeScale_OutsideItsRange_IsIgnored) {
    HbLTimerMng* manager = HbLTimerMng::GetTimerMng();
    manager->SetTimeScale(0.5);
    manager->SetTimeScale(0.0);
    manager->SetTimeScale(-1.0);
    manager->SetTimeScale(1000.5);
    EXPECT_EQ(0.5, manager->GetTimeScale());
    manager->SetTimeScale(1000.0);
    EXPECT_EQ(1000.0, manager->GetTimeScale());
}

// The setting is read when the manager is created, so each case runs in a
// fresh child process.
TEST(HbLTimerMngDeathTest, TimeScale_FromTheEnvironment_ReadWhenTheManagerIsCreated) {
    // "fast" forks without re-executing the binary, which also works under qemu-arm;
    // each test case runs in a process of its own, so nothing ran before.
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
