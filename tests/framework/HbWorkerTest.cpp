#include <gtest/gtest.h>

#include <pthread.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "HbFramework/HbSingletonFinalizer.h"
#include "HbFramework/HbWorker.h"
#include "TestEvent.h"

namespace {

// Runs `onMessage` for each message on the worker thread.
class CallbackDispatcher : public HbIDispatcher {
public:
    uint32 Dispatch(uint32 id, void* data, uint32 size) override {
        (void)data;
        (void)size;
        if (onMessage) {
            onMessage(id);
        }
        return 1;
    }
    uint32 Dispatch(uint32 id) override { return Dispatch(id, nullptr, 0); }
    void SetFunctionName(const wchar_t*) override {}
    const wchar_t* GetFunctionName() override { return L""; }

    std::function<void(uint32)> onMessage;
};

std::string currentThreadName() {
    char buffer[16] = {};
    pthread_getname_np(pthread_self(), buffer, sizeof(buffer));
    return buffer;
}

}  // namespace

TEST(HbWorkerTest, Construction_BoxHasTheCapacityAndIsAvailableBeforeStart) {
    HbWorker worker(0, 4000, 0);
    ASSERT_NE(nullptr, worker.GetMsgBox());
    EXPECT_EQ(4000u, worker.GetMsgBox()->Capacity());
}

TEST(HbWorkerTest, Handler_RunsOnAThreadNamedHbWorker) {
    CallbackDispatcher dispatcher;
    HbWorker worker(0, 4000, 0);
    int32 id = worker.GetMsgBox()->Regist(&dispatcher);
    std::string name;
    std::thread::id handlerThread;
    TestEvent handled;
    dispatcher.onMessage = [&](uint32) {
        name = currentThreadName();
        handlerThread = std::this_thread::get_id();
        handled.set();
    };
    ASSERT_TRUE(worker.Start("HbWorker"));
    worker.GetMsgBox()->Post(id, 600, en_MSG_ID_MESSAGE, nullptr, 0);
    handled.wait();
    EXPECT_EQ("HbWorker", name);
    EXPECT_NE(std::this_thread::get_id(), handlerThread);
    worker.Stop();
}

TEST(HbWorkerTest, Start_NameLongerThan15Bytes_IsCutTo15) {
    CallbackDispatcher dispatcher;
    HbWorker worker(0, 10, 0);
    int32 id = worker.GetMsgBox()->Regist(&dispatcher);
    std::string name;
    TestEvent handled;
    dispatcher.onMessage = [&](uint32) {
        name = currentThreadName();
        handled.set();
    };
    ASSERT_TRUE(worker.Start("ABCDEFGHIJKLMNOPQRST"));
    worker.GetMsgBox()->Post(id, 600, en_MSG_ID_MESSAGE, nullptr, 0);
    handled.wait();
    EXPECT_EQ("ABCDEFGHIJKLMNO", name);
    worker.Stop();
}

TEST(HbWorkerTest, Start_Twice_SecondReturnsFalse) {
    HbWorker worker(0, 10, 0);
    EXPECT_TRUE(worker.Start("HbWorker"));
    EXPECT_FALSE(worker.Start("HbWorker"));
    worker.Stop();
}

TEST(HbWorkerTest, Start_WithExplicitStackSize_RunsHandlers) {
    CallbackDispatcher dispatcher;
    HbWorker worker(5, 10, 256 * 1024);
    int32 id = worker.GetMsgBox()->Regist(&dispatcher);
    TestEvent handled;
    dispatcher.onMessage = [&handled](uint32) { handled.set(); };
    ASSERT_TRUE(worker.Start("HbWorker"));
    worker.GetMsgBox()->Post(id, 600, en_MSG_ID_MESSAGE, nullptr, 0);
    handled.wait();
    worker.Stop();
    EXPECT_TRUE(handled.isSet());
}

TEST(HbWorkerTest, MessagesPostedBeforeStart_RunOnceStarted) {
    CallbackDispatcher dispatcher;
    HbWorker worker(0, 10, 0);
    int32 id = worker.GetMsgBox()->Regist(&dispatcher);
    std::vector<uint32> seen;
    TestEvent last;
    dispatcher.onMessage = [&](uint32 msgId) {
        seen.push_back(msgId);
        if (msgId == 602) {
            last.set();
        }
    };
    worker.GetMsgBox()->Post(id, 600, en_MSG_ID_MESSAGE, nullptr, 0);
    worker.GetMsgBox()->Post(id, 601, en_MSG_ID_MESSAGE, nullptr, 0);
    worker.GetMsgBox()->Post(id, 602, en_MSG_ID_MESSAGE, nullptr, 0);
    ASSERT_TRUE(worker.Start("HbWorker"));
    last.wait();
    worker.Stop();
    const std::vector<uint32> expected = {600, 601, 602};
    EXPECT_EQ(expected, seen);
}

TEST(HbWorkerTest, Stop_Twice_AndAfterwardsPostsAreRefused) {
    CallbackDispatcher dispatcher;
    HbWorker worker(0, 10, 0);
    int32 id = worker.GetMsgBox()->Regist(&dispatcher);
    ASSERT_TRUE(worker.Start("HbWorker"));
    worker.Stop();
    worker.Stop();
    EXPECT_EQ(en_ERROR_STOPPED, worker.GetMsgBox()->Post(id, 600, en_MSG_ID_MESSAGE, nullptr, 0));
}

TEST(HbWorkerTest, Stop_NeverStarted_ClosesTheBoxWithoutJoining) {
    CallbackDispatcher dispatcher;
    HbWorker worker(0, 10, 0);
    int32 id = worker.GetMsgBox()->Regist(&dispatcher);
    worker.Stop();
    EXPECT_EQ(en_ERROR_STOPPED, worker.GetMsgBox()->Post(id, 600, en_MSG_ID_MESSAGE, nullptr, 0));
}

TEST(HbWorkerTest, Finalize_StopsAStartedWorker) {
    CallbackDispatcher dispatcher;
    HbWorker worker(0, 10, 0);
    int32 id = worker.GetMsgBox()->Regist(&dispatcher);
    ASSERT_TRUE(worker.Start("HbWorker"));
    HbSingletonFinalizer::finalize();
    EXPECT_EQ(en_ERROR_STOPPED, worker.GetMsgBox()->Post(id, 600, en_MSG_ID_MESSAGE, nullptr, 0));
}
