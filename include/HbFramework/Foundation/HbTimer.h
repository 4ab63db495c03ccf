// A one-shot timer whose expiry calls a member function of its owner T.
//
//   HbTimer<Foo>* timer = new HbTimer<Foo>(this, &Foo::onExpiry, nullptr, 10000);
//   timer->setSubInfo(HbLTimerMng::GetTimerMng()->AddTimer(timer, timer->getPeriod()));
//
// The owner arms and disarms it through HbLTimerMng and keeps the returned
// handle in the timer (null until armed; the owner clears it after disarming).
// The handle is read and written from the owner's threads and from the
// manager's thread (inside the callback), so it is atomic: a load sees one
// whole stored value. When two threads store at once, either store may land
// last. The host manager (HbLTimerMng.h) makes every such order harmless: the
// handle it returns names the timer, not one arming, and is the same on every
// arming; it takes null as naming the timer too; and it arms a timer at most
// once. So whatever the field holds, IsActive(getSubInfo(), timer) tells
// whether the timer is armed and RemoveTimer(getSubInfo(), timer) disarms it.
#ifndef HB_FOUNDATION_HBTIMER_H
#define HB_FOUNDATION_HBTIMER_H

#include <atomic>

#include "HbFramework/HbLTimerBase.h"
#include "HbFramework/HbTypes.h"

template <class T>
class HbTimer : public HbLTimerBase {
public:
    typedef uint32 (T::*ExpiryCallback)(HbLTimerBase* timer);
    typedef uint32 (T::*PeriodCallback)(HbLTimerBase* timer);

    HbTimer(T* owner, ExpiryCallback expiry, PeriodCallback periodChanged, uint32 periodMs)
        : mOwner(owner),
          mExpiry(expiry),
          mPeriodChanged(periodChanged),
          mPeriod(periodMs),
          mSubInfo(nullptr) {}
    ~HbTimer() override {}

    // Called by the timer manager on expiry: calls the expiry callback with this timer.
    void CallBack(unsigned int& param) override {
        (void)param;
        if (mOwner != nullptr && mExpiry != nullptr) {
            (mOwner->*mExpiry)(this);
        }
    }

    uint32 getPeriod() const { return mPeriod.load(); }
    // Stores a new period (used from the next arming) and tells the owner.
    void setPeriod(uint32 periodMs) {
        mPeriod.store(periodMs);
        if (mOwner != nullptr && mPeriodChanged != nullptr) {
            (mOwner->*mPeriodChanged)(this);
        }
    }

    HbLTimerSubInfo* getSubInfo() const { return mSubInfo.load(); }
    void setSubInfo(HbLTimerSubInfo* subInfo) { mSubInfo.store(subInfo); }

private:
    T* mOwner;                               // not owned; fixed at construction
    ExpiryCallback mExpiry;                  // fixed at construction
    PeriodCallback mPeriodChanged;           // fixed at construction; may be null
    std::atomic<uint32> mPeriod;             // any thread
    std::atomic<HbLTimerSubInfo*> mSubInfo;  // any thread; null or this timer's handle
};

#endif  // HB_FOUNDATION_HBTIMER_H
