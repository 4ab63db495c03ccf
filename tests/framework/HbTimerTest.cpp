#include <gtest/gtest.h>

#include <vector>

#include "HbFramework/Foundation/HbTimer.h"
#include "HbFramework/HbLTimerMng.h"

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
    manager->UseManualClock();
    Owner owner;
    HbTimer<Owner> timer(&owner, &Owner::onExpiry, nullptr, 10000);
    timer.setSubInfo(manager->AddTimer(&timer, timer.getPeriod()));
    ASSERT_NE(nullptr, timer.getSubInfo());
    EXPECT_TRUE(manager->IsActive(timer.getSubInfo(), &timer));

    manager->AdvanceClock(9999);
    EXPECT_TRUE(owner.expired.empty());
    manager->AdvanceClock(1);
    ASSERT_EQ(1u, owner.expired.size());
    EXPECT_EQ(&timer, owner.expired[0]);
    EXPECT_FALSE(manager->IsActive(timer.getSubInfo(), &timer));
}
