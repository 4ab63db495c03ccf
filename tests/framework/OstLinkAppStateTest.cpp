#include <gtest/gtest.h>

#include <cstring>
#include <mutex>
#include <utility>
#include <vector>

#include "HbFramework/Foundation/HbObserver.h"
#include "OstLinkApp/OstLinkAppState.h"

namespace {

// Records every notification of a state object as (id, bytes).
class NotificationLog {
public:
    explicit NotificationLog(OstLinkAppState* state)
        : mState(state), mObserver(this, &NotificationLog::onNotify) {
        mState->AddObserver(&mObserver);
    }
    ~NotificationLog() { mState->RemoveObserver(&mObserver); }

    uint32 onNotify(uint32 id, void* data, uint32 size) {
        const unsigned char* bytes = static_cast<const unsigned char*>(data);
        std::lock_guard<std::mutex> lock(mMutex);
        mEntries.emplace_back(id, std::vector<unsigned char>(bytes, bytes + size));
        return 1;
    }
    std::vector<std::pair<uint32, std::vector<unsigned char>>> entries() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mEntries;
    }

private:
    OstLinkAppState* mState;
    HbObserver<NotificationLog> mObserver;
    std::mutex mMutex;
    std::vector<std::pair<uint32, std::vector<unsigned char>>> mEntries;
};

using Entry = std::pair<uint32, std::vector<unsigned char>>;

}  // namespace

TEST(OstLinkAppStateTest, GetOsType_BeforeThePhoneReportsIt_ReturnsAndroid) {
    OstLinkAppState state;
    EXPECT_EQ(1, state.getOsType());
    EXPECT_EQ(OstLinkAppState::en_OS_TYPE_ANDROID, state.getOsType());
}

TEST(OstLinkAppStateTest, SetOsType_Ios_GetOsTypeReturnsZeroAndNothingIsNotified) {
    OstLinkAppState state;
    NotificationLog log(&state);
    state.setOsType(OstLinkAppState::en_OS_TYPE_IOS);
    EXPECT_EQ(0, state.getOsType());
    EXPECT_TRUE(log.entries().empty());
}

TEST(OstLinkAppStateTest, GetIsAppLinkState_Initially_ReturnsFalse) {
    OstLinkAppState state;
    EXPECT_FALSE(state.getIsAppLinkState());
}

TEST(OstLinkAppStateTest, SetIsAppLinkState_Change_NotifiesId3WithTheNewFlagAsOneByte) {
    OstLinkAppState state;
    NotificationLog log(&state);
    state.setIsAppLinkState(true);
    EXPECT_TRUE(state.getIsAppLinkState());
    state.setIsAppLinkState(false);
    EXPECT_FALSE(state.getIsAppLinkState());
    std::vector<Entry> expected = {{3, {1}}, {3, {0}}};
    EXPECT_EQ(expected, log.entries());
}

TEST(OstLinkAppStateTest, SetIsAppLinkState_SameValue_NotifiesNothing) {
    OstLinkAppState state;
    NotificationLog log(&state);
    state.setIsAppLinkState(false);
    state.setIsAppLinkState(true);
    state.setIsAppLinkState(true);
    std::vector<Entry> expected = {{3, {1}}};
    EXPECT_EQ(expected, log.entries());
}

TEST(OstLinkAppStateTest, NotifyObserverAppState_LostAndRunning_RaiseId0WithTheByte) {
    OstLinkAppState state;
    NotificationLog log(&state);
    state.notifyObserverAppState(OstLinkAppState::en_APP_STATE_RUNNING);
    state.notifyObserverAppState(OstLinkAppState::en_APP_STATE_LOST);
    state.notifyObserverAppState(OstLinkAppState::en_APP_STATE_LOST);
    // Every report is passed on, repeated ones too: the link layer decides.
    std::vector<Entry> expected = {{0, {1}}, {0, {0}}, {0, {0}}};
    EXPECT_EQ(expected, log.entries());
    EXPECT_FALSE(state.getIsAppLinkState());
}

TEST(OstLinkAppStateTest, NotifyObserverDeviceStatus_EachStatus_RaisesId7WithTheStatusByte) {
    OstLinkAppState state;
    NotificationLog log(&state);
    state.notifyObserverDeviceStatus(OstLinkAppState::en_DEVICE_STATUS_NONE);
    state.notifyObserverDeviceStatus(OstLinkAppState::en_DEVICE_STATUS_CONNECTED);
    state.notifyObserverDeviceStatus(OstLinkAppState::en_DEVICE_STATUS_APP_OPEN);
    state.notifyObserverDeviceStatus(OstLinkAppState::en_DEVICE_STATUS_CLOSED);
    std::vector<Entry> expected = {{7, {0}}, {7, {1}}, {7, {2}}, {7, {3}}};
    EXPECT_EQ(expected, log.entries());
}

TEST(OstLinkAppStateTest, NotificationIds_HaveTheLinkLayersNumbers) {
    EXPECT_EQ(0, OstLinkAppState::en_NTF_APP_STATE);
    EXPECT_EQ(3, OstLinkAppState::en_NTF_LINK_STATE);
    EXPECT_EQ(7, OstLinkAppState::en_NTF_DEVICE_STATUS);
}

TEST(OstLinkAppStateTest, ObserverOfLinkFlag_ReadsTheNewValueWhileNotified) {
    OstLinkAppState state;
    bool seen = false;
    struct Reader {
        OstLinkAppState* state;
        bool* seen;
        uint32 onNotify(uint32 id, void*, uint32) {
            if (id == 3) {
                *seen = state->getIsAppLinkState();
            }
            return 1;
        }
    } reader{&state, &seen};
    HbObserver<Reader> observer(&reader, &Reader::onNotify);
    state.AddObserver(&observer);
    state.setIsAppLinkState(true);
    state.RemoveObserver(&observer);
    EXPECT_TRUE(seen);
}
