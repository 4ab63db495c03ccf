#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "DbgCapture.h"
#include "HbFramework/Foundation/HbSingleton.h"

namespace {

std::atomic<int> gConstructed{0};
std::atomic<int> gDestroyed{0};

class Counted : public HbSingleton<Counted> {
    friend class HbSingleton<Counted>;

public:
    static Counted* peek() { return pInstance_.load(); }
    ~Counted() override { ++gDestroyed; }

private:
    Counted() { ++gConstructed; }
};

class NeverCreated : public HbSingleton<NeverCreated> {
    friend class HbSingleton<NeverCreated>;

public:
    static NeverCreated* peek() { return pInstance_.load(); }
};

}  // namespace

TEST(HbSingletonTest, GetInstance_CalledTwice_ReturnsTheSameObject) {
    Counted* first = Counted::GetInstance();
    Counted* second = Counted::GetInstance();
    EXPECT_EQ(first, second);
    EXPECT_EQ(1, gConstructed.load());
}

TEST(HbSingletonTest, Destroy_OnNeverCreatedSingleton_OnlyLeavesPointerNull) {
    NeverCreated::destroy();
    EXPECT_EQ(nullptr, NeverCreated::peek());
}

TEST(HbSingletonTest, Destroy_AfterCreation_DeletesInstanceAndClearsPointer) {
    Counted::GetInstance();
    Counted::destroy();
    EXPECT_EQ(1, gDestroyed.load());
    EXPECT_EQ(nullptr, Counted::peek());
}
