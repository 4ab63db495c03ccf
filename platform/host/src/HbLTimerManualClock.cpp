#include "HbFramework/HbLTimerManualClock.h"

#include <utility>

#include "HbFramework/HbLTimerMng.h"

HbLTimerManualClock* HbLTimerManualClock::GetInstance() {
    // Never deleted: the timer manager may run on it until the process ends.
    static HbLTimerManualClock* clock = new HbLTimerManualClock();
    return clock;
}

HbLTimerManualClock::HbLTimerManualClock() : mNowMs(0) {}

void HbLTimerManualClock::Use() {
    HbLTimerMng* manager = HbLTimerMng::GetTimerMng();
    if (manager->GetClock() == this) {
        return;
    }
    mNowMs.store(0);
    manager->SetClock(this);
}

void HbLTimerManualClock::UseRealClock() {
    HbLTimerMng* manager = HbLTimerMng::GetTimerMng();
    if (manager->GetClock() == this) {
        manager->SetClock(nullptr);
    }
}

void HbLTimerManualClock::Advance(uint32 ms) {
    HbLTimerMng::GetTimerMng()->MoveClock(this, [this, ms] { mNowMs.fetch_add(ms); });
}

void HbLTimerManualClock::SetRemoveWaitHook(std::function<void()> hook) {
    std::lock_guard<std::mutex> lock(mHookMutex);
    mRemoveWaitHook = std::move(hook);
}

void HbLTimerManualClock::SetCallHook(CallHook hook) {
    std::lock_guard<std::mutex> lock(mHookMutex);
    mCallHook = std::move(hook);
}

uint64 HbLTimerManualClock::NowMs() {
    return mNowMs.load();
}

uint64 HbLTimerManualClock::PeriodMs(uint32 periodMs) {
    return periodMs;
}

uint64 HbLTimerManualClock::MonotonicMs(uint64 dueMs) {
    (void)dueMs;
    return 0;
}

void HbLTimerManualClock::OnCallReturning(EN_CALL call, HbLTimerBase* timer) {
    CallHook hook;
    {
        std::lock_guard<std::mutex> lock(mHookMutex);
        hook = mCallHook;
    }
    if (hook) {
        hook(call, timer);
    }
}

void HbLTimerManualClock::OnRemoveWaiting() {
    std::function<void()> hook;
    {
        std::lock_guard<std::mutex> lock(mHookMutex);
        hook = mRemoveWaitHook;
    }
    if (hook) {
        hook();
    }
}
