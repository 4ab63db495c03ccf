#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "CallLog.h"
#include "HbFramework/HbMsgBox.h"
#include "TestEvent.h"

namespace {

// Everything dispatched, in the order the worker ran it.
using Journal = CallLog;

// A dispatcher that journals each call and tracks how many run at once.
class RecordingDispatcher : public HbIDispatcher {
public:
    RecordingDispatcher(const std::string& name, Journal* journal, std::atomic<int>* inside,
                        std::atomic<int>* mostInside)
        : mName(name), mJournal(journal), mInside(inside), mMostInside(mostInside) {}

    uint32 Dispatch(uint32 id, void* data, uint32 size) override {
        enter();
        std::string bytes;
        for (uint32 i = 0; i < size; ++i) {
            bytes += std::to_string(static_cast<uint8*>(data)[i]) + ",";
        }
        mJournal->add(mName + " msg " + std::to_string(id) + " [" + bytes + "]");
        if (afterMessage) {
            afterMessage(id);
        }
        leave();
        return 1;
    }
    uint32 Dispatch(uint32 id) override {
        enter();
        mJournal->add(mName + " evt " + std::to_string(id));
        if (afterMessage) {
            afterMessage(id);
        }
        leave();
        return 1;
    }
    void SetFunctionName(const wchar_t*) override {}
    const wchar_t* GetFunctionName() override { return L""; }

    std::function<void(uint32)> afterMessage;  // runs on the worker thread

private:
    void enter() {
        int now = ++*mInside;
        if (now > mMostInside->load()) {
            mMostInside->store(now);
        }
    }
    void leave() { --*mInside; }

    std::string mName;
    Journal* mJournal;
    std::atomic<int>* mInside;
    std::atomic<int>* mMostInside;
};

class HbMsgBoxTest : public ::testing::Test {
protected:
    RecordingDispatcher* make(const std::string& name) {
        owned.emplace_back(new RecordingDispatcher(name, &journal, &inside, &mostInside));
        return owned.back().get();
    }
    // Runs `box` on a worker thread until the test closes it.
    void startWorker(HbMsgBox& box) {
        worker = std::thread([&box] { box.Run(); });
    }
    // Closes `box` and joins its worker; the box must outlive its Run().
    void stopWorker(HbMsgBox& box) {
        box.Close();
        if (worker.joinable()) {
            worker.join();
        }
    }

    Journal journal;
    std::atomic<int> inside{0};
    std::atomic<int> mostInside{0};
    std::vector<std::unique_ptr<RecordingDispatcher>> owned;
    std::thread worker;
};

}  // namespace

TEST_F(HbMsgBoxTest, AcceptTrail_OnlyTheHostTrailZero) {
    HbMsgBox box(4);
    EXPECT_EQ(0u, HbMsgBox::HOST_TRAIL);
    EXPECT_TRUE(box.AcceptTrail(0));
    EXPECT_FALSE(box.AcceptTrail(1));
    EXPECT_FALSE(box.AcceptTrail(0xFFFFFFFFu));
}

TEST_F(HbMsgBoxTest, Regist_NullDispatcher_ReturnsMinus1) {
    HbMsgBox box(4);
    EXPECT_EQ(-1, box.Regist(nullptr));
}

TEST_F(HbMsgBoxTest, Regist_BeyondMaxUnits_ReturnsMinus1) {
    HbMsgBox box(4);
    for (uint32 i = 0; i < HbMsgBox::MAX_UNITS; ++i) {
        EXPECT_EQ(static_cast<int32>(i), box.Regist(make("u")));
    }
    EXPECT_EQ(-1, box.Regist(make("one too many")));
}

TEST_F(HbMsgBoxTest, Unregist_UnknownId_ReturnsFalse) {
    HbMsgBox box(4);
    EXPECT_FALSE(box.Unregist(0));
    int32 id = box.Regist(make("u"));
    EXPECT_TRUE(box.Unregist(id));
    EXPECT_FALSE(box.Unregist(id));
}

TEST_F(HbMsgBoxTest, Post_ErrorCases_ReturnTheirNumbers) {
    HbMsgBox box(4);
    int32 id = box.Regist(make("u"));
    const uint8 byte = 1;
    EXPECT_EQ(en_ERROR_NOT_REGISTERED, box.Post(id + 1, 600, en_MSG_ID_MESSAGE, &byte, 1));
    EXPECT_EQ(en_ERROR_PARAM, box.Post(id, 600, en_MSG_ID_MESSAGE, nullptr, 1));
    EXPECT_EQ(en_ERROR_NONE, box.Post(id, 600, en_MSG_ID_MESSAGE, nullptr, 0));
    box.Close();
    EXPECT_EQ(en_ERROR_STOPPED, box.Post(id, 600, en_MSG_ID_MESSAGE, &byte, 1));
}

TEST_F(HbMsgBoxTest, Post_CapacityPlusOneBeforeTheWorkerRuns_LastIsRefusedAsFull) {
    const uint32 kCapacity = 3;
    HbMsgBox box(kCapacity);
    EXPECT_EQ(kCapacity, box.Capacity());
    int32 id = box.Regist(make("u"));
    for (uint8 i = 0; i < kCapacity; ++i) {
        EXPECT_EQ(en_ERROR_NONE, box.Post(id, 600 + i, en_MSG_ID_MESSAGE, &i, 1));
    }
    const uint8 extra = 9;
    EXPECT_EQ(en_ERROR_MSGBOX_FULL, box.Post(id, 610, en_MSG_ID_MESSAGE, &extra, 1));
    EXPECT_EQ(kCapacity, box.Count());
}

TEST_F(HbMsgBoxTest, Run_MessagesFromTwoUnits_HandledInArrivalOrderOneAtATime) {
    HbMsgBox box(100);
    RecordingDispatcher* a = make("A");
    RecordingDispatcher* b = make("B");
    int32 idA = box.Regist(a);
    int32 idB = box.Regist(b);
    std::vector<std::string> expected;
    for (uint8 i = 0; i < 10; ++i) {
        ASSERT_EQ(en_ERROR_NONE, box.Post(idA, 600 + i, en_MSG_ID_MESSAGE, &i, 1));
        expected.push_back("A msg " + std::to_string(600 + i) + " [" + std::to_string(i) + ",]");
        ASSERT_EQ(en_ERROR_NONE, box.Post(idB, 1000 + i, en_MSG_ID_EVENT, nullptr, 0));
        expected.push_back("B evt " + std::to_string(1000 + i));
    }
    TestEvent lastHandled;
    b->afterMessage = [&lastHandled](uint32 id) {
        if (id == 1009) {
            lastHandled.set();
        }
    };
    startWorker(box);
    lastHandled.wait();
    stopWorker(box);
    EXPECT_EQ(expected, journal.entries());
    EXPECT_EQ(1, mostInside.load());
}

TEST_F(HbMsgBoxTest, Run_MessagePostedFromAHandler_RunsAfterThoseAlreadyQueued) {
    HbMsgBox box(10);
    RecordingDispatcher* unit = make("U");
    int32 id = box.Regist(unit);
    TestEvent done;
    unit->afterMessage = [&box, id, &done](uint32 msgId) {
        if (msgId == 600) {
            box.Post(id, 602, en_MSG_ID_MESSAGE, nullptr, 0);
        }
        if (msgId == 602) {
            done.set();
        }
    };
    box.Post(id, 600, en_MSG_ID_MESSAGE, nullptr, 0);
    box.Post(id, 601, en_MSG_ID_MESSAGE, nullptr, 0);
    startWorker(box);
    done.wait();
    stopWorker(box);
    const std::vector<std::string> expected = {"U msg 600 []", "U msg 601 []", "U msg 602 []"};
    EXPECT_EQ(expected, journal.entries());
}

TEST_F(HbMsgBoxTest, Unregist_DropsTheUnitsQueuedMessagesOnly) {
    HbMsgBox box(10);
    RecordingDispatcher* gone = make("gone");
    RecordingDispatcher* kept = make("kept");
    int32 goneId = box.Regist(gone);
    int32 keptId = box.Regist(kept);
    box.Post(goneId, 600, en_MSG_ID_MESSAGE, nullptr, 0);
    box.Post(keptId, 601, en_MSG_ID_MESSAGE, nullptr, 0);
    box.Post(goneId, 602, en_MSG_ID_MESSAGE, nullptr, 0);
    EXPECT_TRUE(box.Unregist(goneId));
    EXPECT_EQ(1u, box.Count());
    TestEvent done;
    kept->afterMessage = [&done](uint32) { done.set(); };
    startWorker(box);
    done.wait();
    stopWorker(box);
    const std::vector<std::string> expected = {"kept msg 601 []"};
    EXPECT_EQ(expected, journal.entries());
}

TEST_F(HbMsgBoxTest, Close_WithQueuedMessages_DropsThemAndRunReturns) {
    HbMsgBox box(10);
    int32 id = box.Regist(make("U"));
    box.Post(id, 600, en_MSG_ID_MESSAGE, nullptr, 0);
    box.Close();
    EXPECT_EQ(0u, box.Count());
    box.Run();  // returns at once: the box is closed
    EXPECT_TRUE(journal.entries().empty());
}
