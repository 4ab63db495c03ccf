#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "DbgCapture.h"
#include "HbFramework/Foundation/HbSingleton.h"
#include "HbFramework/HbSingletonFinalizer.h"
#include "TestEvent.h"

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

// Constructed by the racing threads; its constructor counts and takes a
// little while so that the others pile up on the lock.
std::atomic<int> gRacedConstructed{0};

class Raced : public HbSingleton<Raced> {
    friend class HbSingleton<Raced>;

private:
    Raced() {
        ++gRacedConstructed;
        std::vector<int> work(10000, 1);
        for (int& value : work) {
            value += gRacedConstructed.load();
        }
    }
};

// Every test starts without instances and with zeroed counters: finalize()
// destroys what earlier tests created, so the next GetInstance() creates and
// registers anew. Nothing is left registered behind.
class HbSingletonTest : public ::testing::Test {
protected:
    void SetUp() override {
        HbSingletonFinalizer::finalize();
        gConstructed = 0;
        gDestroyed = 0;
        gRacedConstructed = 0;
    }
    void TearDown() override { HbSingletonFinalizer::finalize(); }
};

}  // namespace

TEST_F(HbSingletonTest, GetInstance_CalledTwice_ReturnsTheSameObject) {
    Counted* first = Counted::GetInstance();
    Counted* second = Counted::GetInstance();
    EXPECT_EQ(first, second);
    EXPECT_EQ(1, gConstructed.load());
    EXPECT_EQ(first, Counted::peek());
}

TEST_F(HbSingletonTest, GetInstance_FirstCall_RegistersDestroyOnceWithFinalizer) {
    const unsigned long before = HbSingletonFinalizer::DestroyFuncCalls();
    Counted::GetInstance();
    Counted::GetInstance();
    EXPECT_EQ(before + 1, HbSingletonFinalizer::DestroyFuncCalls());
}

TEST_F(HbSingletonTest, Destroy_OnNeverCreatedSingleton_OnlyLeavesPointerNull) {
    DbgCapture capture;
    const unsigned long before = HbSingletonFinalizer::DestroyFuncCalls();
    NeverCreated::destroy();
    EXPECT_EQ(nullptr, NeverCreated::peek());
    EXPECT_EQ(before, HbSingletonFinalizer::DestroyFuncCalls());
    EXPECT_TRUE(capture.records().empty());
}

TEST_F(HbSingletonTest, Destroy_AfterCreation_DeletesInstanceAndClearsPointer) {
    Counted::GetInstance();
    Counted::destroy();
    EXPECT_EQ(1, gDestroyed.load());
    EXPECT_EQ(nullptr, Counted::peek());
}

TEST_F(HbSingletonTest, Finalize_AfterCreation_DestroysTheInstance) {
    Counted::GetInstance();
    HbSingletonFinalizer::finalize();
    EXPECT_EQ(1, gDestroyed.load());
    EXPECT_EQ(nullptr, Counted::peek());
}

TEST_F(HbSingletonTest, GetInstance_EightThreadsAtOnce_ConstructOnceAndRegisterDestroyOnce) {
    const unsigned long before = HbSingletonFinalizer::DestroyFuncCalls();
    const int kThreads = 8;
    TestEvent go;
    std::vector<Raced*> seen(kThreads, nullptr);
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&go, &seen, i] {
            go.wait();
            seen[static_cast<size_t>(i)] = Raced::GetInstance();
        });
    }
    go.set();
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(1, gRacedConstructed.load());
    EXPECT_EQ(before + 1, HbSingletonFinalizer::DestroyFuncCalls());
    ASSERT_NE(nullptr, seen[0]);
    for (Raced* instance : seen) {
        EXPECT_EQ(seen[0], instance);
    }
}
