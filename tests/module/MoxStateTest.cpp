#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "HbFramework/Foundation/HbObserver.h"
#include "private/MoxState.h"

namespace {

// Records the notifications of MoxState: id 8 as the 32-bit value, ids 9 and 3
// as their byte, every one with its size.
class StateLog {
public:
    StateLog() : mObserver(this, &StateLog::onNotify) {
        MoxState::GetInstance()->AddObserver(&mObserver);
    }
    ~StateLog() { MoxState::GetInstance()->RemoveObserver(&mObserver); }

    uint32 onNotify(uint32 id, void* data, uint32 size) {
        std::lock_guard<std::mutex> lock(mMutex);
        mIds.push_back(id);
        mSizes.push_back(size);
        if (id == 8 && size == 4) {
            unsigned int value = 0;
            std::memcpy(&value, data, 4);
            mStates.push_back(value);
        } else if (size == 1) {
            mBytes.push_back(*static_cast<unsigned char*>(data));
        }
        return 1;
    }
    std::vector<uint32> ids() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mIds;
    }
    std::vector<uint32> sizes() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mSizes;
    }
    std::vector<unsigned int> states() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mStates;
    }
    std::vector<unsigned char> bytes() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mBytes;
    }

private:
    HbObserver<StateLog> mObserver;
    std::mutex mMutex;
    std::vector<uint32> mIds;
    std::vector<uint32> mSizes;
    std::vector<unsigned int> mStates;
    std::vector<unsigned char> mBytes;
};

// Tests of one process share the singleton: each starts from the initial values.
class MoxStateTest : public ::testing::Test {
protected:
    void SetUp() override {
        MoxState* state = MoxState::GetInstance();
        state->setResultState(MoxState::en_RESULT_IDLE);
        state->setIosConnect(false);
        state->setIsAppLinkState(false);
    }
};

}  // namespace

TEST(MoxStateInitialTest, ResultStateNames_HaveTheirValues) {
    EXPECT_EQ(0, MoxState::en_RESULT_COMPLETE);
    EXPECT_EQ(4, MoxState::en_RESULT_TIMEOUT);
    EXPECT_EQ(20, MoxState::en_RESULT_ERROR);
    EXPECT_EQ(100, MoxState::en_RESULT_IDLE);
    EXPECT_EQ(101, MoxState::en_RESULT_CONNECTING);
    EXPECT_EQ(102, MoxState::en_RESULT_CONNECTED);
    EXPECT_EQ(103, MoxState::en_RESULT_SEARCHING);
    EXPECT_EQ(104, MoxState::en_RESULT_CANCELLING);
}

// These two run first: they hold only while nothing has changed the state yet.
TEST(MoxStateInitialTest, GetResultState_AfterConstruction_ReturnsIdle) {
    EXPECT_EQ(100u, MoxState::GetInstance()->getResultState());
}

TEST(MoxStateInitialTest, GetIosConnect_AfterConstruction_ReturnsFalse) {
    EXPECT_FALSE(MoxState::GetInstance()->getIosConnect());
}

TEST(MoxStateInitialTest, GetInstance_CalledTwice_ReturnsTheSameObject) {
    MoxState* first = MoxState::GetInstance();
    EXPECT_NE(nullptr, first);
    EXPECT_EQ(first, MoxState::GetInstance());
}

TEST_F(MoxStateTest, DelInstance_DoesNothing_InstanceStaysUsable) {
    MoxState* state = MoxState::GetInstance();
    state->setResultState(MoxState::en_RESULT_CONNECTED);
    MoxState::DelInstance();
    EXPECT_EQ(state, MoxState::GetInstance());
    EXPECT_EQ(102u, state->getResultState());
}

TEST_F(MoxStateTest, SetResultState_NewValue_StoresItAndNotifiesId8WithFourBytes) {
    StateLog log;
    MoxState::GetInstance()->setResultState(MoxState::en_RESULT_SEARCHING);
    EXPECT_EQ(103u, MoxState::GetInstance()->getResultState());
    EXPECT_EQ(std::vector<uint32>({8}), log.ids());
    EXPECT_EQ(std::vector<uint32>({4}), log.sizes());
    EXPECT_EQ(std::vector<unsigned int>({103}), log.states());
}

TEST_F(MoxStateTest, SetResultState_CurrentValue_NotifiesNobody) {
    MoxState::GetInstance()->setResultState(MoxState::en_RESULT_CONNECTING);
    StateLog log;
    MoxState::GetInstance()->setResultState(MoxState::en_RESULT_CONNECTING);
    EXPECT_TRUE(log.ids().empty());
    EXPECT_EQ(101u, MoxState::GetInstance()->getResultState());
}

TEST_F(MoxStateTest, SetResultState_InitialValueIdle_NotifiesNobody) {
    StateLog log;
    MoxState::GetInstance()->setResultState(MoxState::en_RESULT_IDLE);
    EXPECT_TRUE(log.ids().empty());
}

TEST_F(MoxStateTest, SetResultState_PhoneFailureCode_IsKeptUnchanged) {
    StateLog log;
    MoxState::GetInstance()->setResultState(5);
    MoxState::GetInstance()->setResultState(0xFFFF);
    EXPECT_EQ(0xFFFFu, MoxState::GetInstance()->getResultState());
    EXPECT_EQ(std::vector<unsigned int>({5, 0xFFFF}), log.states());
}

TEST_F(MoxStateTest, SetResultState_Sequence_NotifiesEveryChangeInOrder) {
    StateLog log;
    MoxState* state = MoxState::GetInstance();
    state->setResultState(101);
    state->setResultState(102);
    state->setResultState(102);
    state->setResultState(103);
    state->setResultState(0);
    state->setResultState(0);
    EXPECT_EQ(std::vector<unsigned int>({101, 102, 103, 0}), log.states());
}

// The lock is not held while observers run: an observer may read and even
// store the state from inside its notification.
TEST_F(MoxStateTest, SetResultState_ObserverUsesTheState_LockIsReleasedBeforeNotifying) {
    struct Reentrant {
        std::vector<unsigned int> seen;
        uint32 onNotify(uint32 id, void*, uint32) {
            if (id != 8) {
                return 1;
            }
            unsigned int now = MoxState::GetInstance()->getResultState();
            seen.push_back(now);
            if (now == MoxState::en_RESULT_TIMEOUT) {
                MoxState::GetInstance()->setResultState(MoxState::en_RESULT_CANCELLING);
            }
            return 1;
        }
    } reentrant;
    HbObserver<Reentrant> observer(&reentrant, &Reentrant::onNotify);
    MoxState::GetInstance()->AddObserver(&observer);
    MoxState::GetInstance()->setResultState(MoxState::en_RESULT_TIMEOUT);
    MoxState::GetInstance()->RemoveObserver(&observer);
    EXPECT_EQ(std::vector<unsigned int>({4, 104}), reentrant.seen);
    EXPECT_EQ(104u, MoxState::GetInstance()->getResultState());
}

TEST_F(MoxStateTest, SetIosConnect_SameValue_NotifiesNobody) {
    MoxState* state = MoxState::GetInstance();
    StateLog log;
    state->setIosConnect(false);  // the value it already has
    EXPECT_TRUE(log.ids().empty());
    state->setIosConnect(true);
    state->setIosConnect(true);  // again: nothing more
    EXPECT_EQ(std::vector<uint32>({9}), log.ids());
    EXPECT_EQ(std::vector<unsigned char>({1}), log.bytes());
    EXPECT_TRUE(state->getIosConnect());
}

TEST_F(MoxStateTest, SetIosConnect_Change_NotifiesId9WithTheNewFlagAsOneByte) {
    StateLog log;
    MoxState::GetInstance()->setIosConnect(true);
    EXPECT_TRUE(MoxState::GetInstance()->getIosConnect());
    MoxState::GetInstance()->setIosConnect(false);
    EXPECT_FALSE(MoxState::GetInstance()->getIosConnect());
    EXPECT_EQ(std::vector<uint32>({9, 9}), log.ids());
    EXPECT_EQ(std::vector<uint32>({1, 1}), log.sizes());
    EXPECT_EQ(std::vector<unsigned char>({1, 0}), log.bytes());
}

TEST_F(MoxStateTest, SetIosConnect_DoesNotTouchTheResultState) {
    StateLog log;
    MoxState::GetInstance()->setIosConnect(true);
    EXPECT_EQ(100u, MoxState::GetInstance()->getResultState());
    EXPECT_TRUE(log.states().empty());
}

TEST_F(MoxStateTest, LinkStateBase_SetIsAppLinkState_NotifiesId3OnTheSameSubject) {
    StateLog log;
    MoxState* state = MoxState::GetInstance();
    OstLinkAppState* link = state;
    link->setIsAppLinkState(true);
    EXPECT_TRUE(state->getIsAppLinkState());
    EXPECT_EQ(std::vector<uint32>({3}), log.ids());
    EXPECT_EQ(std::vector<unsigned char>({1}), log.bytes());
}

TEST_F(MoxStateTest, LinkStateBase_AppStateLost_IsRaisedAsId0WithoutChangingTheResultState) {
    StateLog log;
    MoxState::GetInstance()->notifyObserverAppState(OstLinkAppState::en_APP_STATE_LOST);
    EXPECT_EQ(std::vector<uint32>({0}), log.ids());
    EXPECT_EQ(std::vector<unsigned char>({0}), log.bytes());
    EXPECT_EQ(100u, MoxState::GetInstance()->getResultState());
}

// Stores from two threads and reads from a third: every read is one of the
// stored values and every notification carries a stored value.
TEST_F(MoxStateTest, SetResultState_ConcurrentWritersAndReader_SeeOnlyWholeStoredValues) {
    StateLog log;
    MoxState* state = MoxState::GetInstance();
    std::atomic<bool> badRead{false};
    std::thread first([state] {
        for (int i = 0; i < 2000; ++i) {
            state->setResultState(i % 2 == 0 ? 101u : 0x01020304u);
        }
    });
    std::thread second([state] {
        for (int i = 0; i < 2000; ++i) {
            state->setResultState(i % 2 == 0 ? 103u : 0xA0B0C0D0u);
        }
    });
    std::thread reader([state, &badRead] {
        const std::set<unsigned int> allowed = {100, 101, 103, 0x01020304u, 0xA0B0C0D0u};
        for (int i = 0; i < 4000; ++i) {
            if (allowed.count(state->getResultState()) == 0) {
                badRead = true;
            }
        }
    });
    first.join();
    second.join();
    reader.join();
    EXPECT_FALSE(badRead.load());
    const std::set<unsigned int> stored = {101, 103, 0x01020304u, 0xA0B0C0D0u};
    std::vector<unsigned int> states = log.states();
    EXPECT_FALSE(states.empty());
    for (unsigned int value : states) {
        EXPECT_EQ(1u, stored.count(value)) << value;
    }
}
