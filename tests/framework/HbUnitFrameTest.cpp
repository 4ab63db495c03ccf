#include <gtest/gtest.h>

#include <atomic>
#include <cwchar>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "DbgCapture.h"
#include "HbFramework/Foundation/HbUnitFrame.h"
#include "TestEvent.h"

namespace {

const char kSource[] = "tests/framework/HbUnitFrameTest";
const char kFrameSource[] = "HbFramework/Foundation/HbUnitFrame";

std::string banner(int line) {
    return "#########\n#########\nASSERT Failed! - HbFramework/Foundation/HbUnitFrame(" +
           std::to_string(line) + ")\n#########\n#########\n";
}

// A unit with messages 600.. and event 1000; each handler call is journalled
// and may run a test action on the worker thread.
class TestUnit : public HbUnitFrame {
public:
    // Called by the frame each time it builds a dispatcher with messages.
    void SetMsgDispatchTbl(HbDispatcher<TestUnit>* table) {
        ++tableBuilds;
        for (uint32 i = 0; i < handlersToMap; ++i) {
            table->MapMessage(600 + i, &TestUnit::onMessage, kSource, __LINE__);
        }
        if (table->evtCapacity > 0) {
            table->MapEvent(1000, &TestUnit::onEvent, kSource, __LINE__);
        }
    }

    void setMsgRange(uint32 count, uint32 base) { SetMsgRange(this, count, base); }
    void setEvtRange(uint32 count, uint32 base) { SetEvtRange(this, count, base); }
    int32 regist(HbWorker* worker, const wchar_t* name) { return RegstMsgBox(worker, name); }
    void setTrail(uint32 value) { trail = value; }
    uint32 getFrameState() const { return frameState; }
    HbDispatcher<TestUnit>* table() const {
        return static_cast<HbDispatcher<TestUnit>*>(dispatcher);
    }

    std::vector<std::string> journal() const {
        std::lock_guard<std::mutex> lock(mMutex);
        return mJournal;
    }

    int tableBuilds = 0;
    uint32 handlersToMap = 8;
    std::function<void(uint32)> action;  // runs on the worker thread after journalling

private:
    uint32 onMessage(uint32 id, void* data, uint32 size) {
        std::string text = "msg " + std::to_string(id) + " [";
        for (uint32 i = 0; i < size; ++i) {
            text += std::to_string(static_cast<uint8*>(data)[i]) + ",";
        }
        record(text + "]", id);
        return 1;
    }
    uint32 onEvent(uint32 id) {
        record("evt " + std::to_string(id), id);
        return 1;
    }
    void record(const std::string& text, uint32 id) {
        {
            std::lock_guard<std::mutex> lock(mMutex);
            mJournal.push_back(text);
        }
        if (action) {
            action(id);
        }
    }

    mutable std::mutex mMutex;  // guards mJournal
    std::vector<std::string> mJournal;
};

// A worker whose box is missing, as when the platform could not create it.
class BoxlessWorker : public HbWorker {
public:
    BoxlessWorker() : HbWorker(0, 1, 0) {}
    HbMsgBox* GetMsgBox() const override { return nullptr; }
};

// A complete unit: messages 600..607, event 1000, registered as "Mox".
void buildLikeTheModule(TestUnit& unit, HbWorker& worker) {
    unit.setMsgRange(8, 600);
    unit.setEvtRange(1, 1000);
    ASSERT_EQ(en_ERROR_NONE, unit.regist(&worker, L"Mox"));
}

void expectRegistrationFailure(const DbgCapture& capture, const std::string& message, int line) {
    const std::vector<HbDbgRecord> records = capture.records();
    ASSERT_EQ(3u, records.size());
    EXPECT_EQ(kFrameSource, records[0].file);
    EXPECT_EQ("RegstMsgBox", records[0].function);
    EXPECT_EQ(line, records[0].line);
    EXPECT_EQ(1, records[0].tag);
    EXPECT_EQ(message, records[0].text);

    EXPECT_EQ("", records[1].file);
    EXPECT_EQ("", records[1].function);
    EXPECT_EQ(0, records[1].line);
    EXPECT_EQ(banner(line + 1), records[1].text);

    EXPECT_EQ("dumpDirectly", records[2].function);
    EXPECT_EQ(0u, records[2].text.rfind("call stack:\n", 0));
}

}  // namespace

TEST(HbUnitFrameTest, Construction_SetsTheInitialFields) {
    TestUnit unit;
    EXPECT_EQ(0u, unit.getTrail());
    EXPECT_EQ(-1, unit.getMsgBoxId());
    EXPECT_EQ(nullptr, unit.getMsgBox());
    EXPECT_EQ(nullptr, unit.getDispatcher());
    EXPECT_EQ(0u, unit.getMsgCount());
    EXPECT_EQ(0u, unit.getMsgBase());
    EXPECT_EQ(0u, unit.getEvtCount());
    EXPECT_EQ(0u, unit.getEvtBase());
    EXPECT_EQ(137u, unit.getFrameState());
}

TEST(HbUnitFrameTest, SetMsgRange_BuildsTheTableOnceWithTheMessageCapacity) {
    TestUnit unit;
    unit.setMsgRange(8, 600);
    EXPECT_EQ(1, unit.tableBuilds);
    EXPECT_EQ(8u, unit.getMsgCount());
    EXPECT_EQ(600u, unit.getMsgBase());
    ASSERT_NE(nullptr, unit.table());
    EXPECT_EQ(8u, unit.table()->msgCapacity);
    EXPECT_EQ(0u, unit.table()->evtCapacity);
    EXPECT_EQ(8u, unit.table()->msgMap.size());
    EXPECT_EQ(&unit, unit.table()->owner);
}

TEST(HbUnitFrameTest, SetMsgRange_CountZero_InstallsAnEmptyDispatcherWithoutBuildingTheTable) {
    TestUnit unit;
    unit.setMsgRange(0, 600);
    EXPECT_EQ(0, unit.tableBuilds);
    ASSERT_NE(nullptr, unit.table());
    EXPECT_TRUE(unit.table()->msgMap.empty());
}

TEST(HbUnitFrameTest, SetMsgRangeThenSetEvtRange_BuildsTheTableTwiceAndKeepsTheSecond) {
    TestUnit unit;
    unit.setMsgRange(8, 600);
    unit.setEvtRange(1, 1000);
    EXPECT_EQ(2, unit.tableBuilds);
    EXPECT_EQ(1u, unit.getEvtCount());
    EXPECT_EQ(1000u, unit.getEvtBase());
    ASSERT_NE(nullptr, unit.table());
    EXPECT_EQ(8u, unit.table()->msgCapacity);
    EXPECT_EQ(1u, unit.table()->evtCapacity);
    EXPECT_EQ(8u, unit.table()->msgMap.size());
    EXPECT_EQ(1u, unit.table()->evtMap.size());
}

TEST(HbUnitFrameTest, SetEvtRange_WithoutMessages_DoesNotBuildTheTable) {
    TestUnit unit;
    unit.setEvtRange(1, 1000);
    EXPECT_EQ(0, unit.tableBuilds);
    ASSERT_NE(nullptr, unit.table());
    EXPECT_EQ(0u, unit.table()->msgCapacity);
    EXPECT_EQ(1u, unit.table()->evtCapacity);
}

TEST(HbUnitFrameTest, SetMsgRange_NineHandlersIntoEight_LogsMapMessageOnceAndKeepsEight) {
    TestUnit unit;
    unit.handlersToMap = 9;
    DbgCapture capture;
    unit.setMsgRange(8, 600);
    EXPECT_EQ(8u, unit.table()->msgMap.size());
    EXPECT_EQ(0u, unit.table()->msgMap.count(608));
    const std::vector<HbDbgRecord> records = capture.records();
    ASSERT_EQ(1u, records.size());
    EXPECT_EQ("SetMsgDispatchTbl", records[0].function);
    EXPECT_EQ(kSource, records[0].file);
    EXPECT_EQ(1, records[0].tag);
    EXPECT_EQ("[[HbUnitFrame]] [MAP_MESSAGE] Failed...\r\n", records[0].text);
}

TEST(HbUnitFrameTest, RegstMsgBox_NullBox_Returns1WithMessageBannerAndStack) {
    TestUnit unit;
    unit.setMsgRange(8, 600);
    BoxlessWorker worker;
    DbgCapture capture;
    EXPECT_EQ(1, unit.regist(&worker, L"Mox"));
    expectRegistrationFailure(capture, "[[HbUnitFrame]] [RegstMsgBox] en_ERROR_PARAM\r\n", 307);
    EXPECT_EQ(-1, unit.getMsgBoxId());
    EXPECT_EQ(nullptr, unit.getMsgBox());
}

TEST(HbUnitFrameTest, RegstMsgBox_NullWorker_Returns1) {
    TestUnit unit;
    unit.setMsgRange(8, 600);
    DbgCapture capture;
    EXPECT_EQ(en_ERROR_PARAM, unit.regist(nullptr, L"Mox"));
    expectRegistrationFailure(capture, "[[HbUnitFrame]] [RegstMsgBox] en_ERROR_PARAM\r\n", 307);
}

TEST(HbUnitFrameTest, RegstMsgBox_NonMatchingTrail_Returns3WithMessageBannerAndStack) {
    TestUnit unit;
    unit.setMsgRange(8, 600);
    unit.setTrail(7);
    HbWorker worker(0, 10, 0);
    DbgCapture capture;
    EXPECT_EQ(3, unit.regist(&worker, L"Mox"));
    expectRegistrationFailure(capture,
                              "[[HbUnitFrame]] [RegstMsgBox] en_ERROR_NONMATCHING_TRAIL\r\n", 303);
    EXPECT_EQ(-1, unit.getMsgBoxId());
    EXPECT_EQ(nullptr, unit.getMsgBox());
}

TEST(HbUnitFrameTest, RegstMsgBox_NoDispatcher_Returns2WithMessageBannerAndStack) {
    TestUnit unit;
    HbWorker worker(0, 10, 0);
    DbgCapture capture;
    EXPECT_EQ(2, unit.regist(&worker, L"Mox"));
    expectRegistrationFailure(capture, "[[HbUnitFrame]] [RegstMsgBox] en_ERROR_NO_DISPATCHER\r\n",
                              298);
    EXPECT_EQ(-1, unit.getMsgBoxId());
    EXPECT_EQ(nullptr, unit.getMsgBox());
}

TEST(HbUnitFrameTest, RegstMsgBox_TrailCheckedBeforeTheDispatcher) {
    TestUnit unit;
    unit.setTrail(1);
    HbWorker worker(0, 10, 0);
    DbgCapture capture;
    EXPECT_EQ(3, unit.regist(&worker, L"Mox"));
}

TEST(HbUnitFrameTest, RegstMsgBox_BoxRefusesTheUnit_ReturnsMinus1WithMessageBannerAndStack) {
    HbWorker worker(0, 10, 0);
    std::vector<std::unique_ptr<TestUnit>> others;
    for (uint32 i = 0; i < HbMsgBox::MAX_UNITS; ++i) {
        others.emplace_back(new TestUnit());
        others.back()->setMsgRange(8, 600);
        ASSERT_EQ(en_ERROR_NONE, others.back()->regist(&worker, L""));
    }
    TestUnit unit;
    unit.setMsgRange(8, 600);
    unit.setEvtRange(1, 1000);
    DbgCapture capture;
    EXPECT_EQ(-1, unit.regist(&worker, L"Mox"));
    expectRegistrationFailure(capture, "[[HbUnitFrame]] [RegstMsgBox] en_ERROR_REGIST\r\n", 293);
    EXPECT_EQ(-1, unit.getMsgBoxId());
    EXPECT_EQ(nullptr, unit.getMsgBox());
    EXPECT_STREQ(L"", unit.table()->GetFunctionName());
}

TEST(HbUnitFrameTest, RegstMsgBox_WithEvents_StoresIdAndBoxAndNamesTheDispatcher) {
    TestUnit unit;
    HbWorker worker(0, 10, 0);
    DbgCapture capture;
    unit.setMsgRange(8, 600);
    unit.setEvtRange(1, 1000);
    EXPECT_EQ(0, unit.regist(&worker, L"Mox"));
    EXPECT_EQ(0, unit.getMsgBoxId());
    EXPECT_EQ(worker.GetMsgBox(), unit.getMsgBox());
    EXPECT_STREQ(L"Mox", unit.getDispatcher()->GetFunctionName());
    EXPECT_TRUE(capture.records().empty());
}

TEST(HbUnitFrameTest, RegstMsgBox_WithoutEvents_LeavesTheFunctionNameEmpty) {
    TestUnit unit;
    HbWorker worker(0, 10, 0);
    unit.setMsgRange(8, 600);
    EXPECT_EQ(0, unit.regist(&worker, L"Mox"));
    EXPECT_EQ(0, unit.getMsgBoxId());
    EXPECT_EQ(worker.GetMsgBox(), unit.getMsgBox());
    EXPECT_STREQ(L"", unit.getDispatcher()->GetFunctionName());
}

TEST(HbUnitFrameTest, RegstMsgBox_SecondUnitOnTheSameBox_GetsTheNextId) {
    TestUnit first;
    TestUnit second;
    HbWorker worker(0, 10, 0);
    first.setMsgRange(8, 600);
    second.setMsgRange(8, 600);
    EXPECT_EQ(0, first.regist(&worker, L"A"));
    EXPECT_EQ(0, second.regist(&worker, L"B"));
    EXPECT_EQ(0, first.getMsgBoxId());
    EXPECT_EQ(1, second.getMsgBoxId());
}

TEST(HbUnitFrameTest, SendMsgSelf_NotRegistered_ReturnsNoMsgBox) {
    TestUnit unit;
    unit.setMsgRange(8, 600);
    const uint8 byte = 1;
    EXPECT_EQ(en_ERROR_NO_MSGBOX, unit.SendMsgSelf(600, en_MSG_ID_MESSAGE, &byte, 1));
}

TEST(HbUnitFrameTest, SendMsgSelf_CopiesTheBytesAtPostingTime) {
    TestUnit unit;
    HbWorker worker(0, 10, 0);
    buildLikeTheModule(unit, worker);
    uint8 buffer[3] = {1, 2, 3};
    ASSERT_EQ(en_ERROR_NONE, unit.SendMsgSelf(602, en_MSG_ID_MESSAGE, buffer, 3));
    buffer[0] = 9;  // changed after posting: the message keeps the old bytes
    TestEvent handled;
    unit.action = [&handled](uint32) { handled.set(); };
    ASSERT_TRUE(worker.Start("HbWorker"));
    handled.wait();
    worker.Stop();
    const std::vector<std::string> expected = {"msg 602 [1,2,3,]"};
    EXPECT_EQ(expected, unit.journal());
}

TEST(HbUnitFrameTest, SendMsgSelf_EventKind_ReachesTheEventHandler) {
    TestUnit unit;
    HbWorker worker(0, 10, 0);
    buildLikeTheModule(unit, worker);
    TestEvent handled;
    unit.action = [&handled](uint32) { handled.set(); };
    ASSERT_EQ(en_ERROR_NONE, unit.SendMsgSelf(1000, en_MSG_ID_EVENT, nullptr, 0));
    ASSERT_TRUE(worker.Start("HbWorker"));
    handled.wait();
    worker.Stop();
    const std::vector<std::string> expected = {"evt 1000"};
    EXPECT_EQ(expected, unit.journal());
}

TEST(HbUnitFrameTest, SendMsgSelf_CapacityPlusOneBeforeTheWorkerStarts_LastReturnsBoxFull) {
    const uint32 kCapacity = 4;
    TestUnit unit;
    HbWorker worker(0, kCapacity, 0);
    buildLikeTheModule(unit, worker);
    for (uint8 i = 0; i < kCapacity; ++i) {
        EXPECT_EQ(en_ERROR_NONE, unit.SendMsgSelf(600 + i, en_MSG_ID_MESSAGE, &i, 1));
    }
    const uint8 extra = 99;
    EXPECT_EQ(en_ERROR_MSGBOX_FULL, unit.SendMsgSelf(607, en_MSG_ID_MESSAGE, &extra, 1));

    TestEvent allHandled;
    unit.action = [&allHandled](uint32 id) {
        if (id == 603) {
            allHandled.set();
        }
    };
    ASSERT_TRUE(worker.Start("HbWorker"));
    allHandled.wait();
    worker.Stop();
    const std::vector<std::string> expected = {"msg 600 [0,]", "msg 601 [1,]", "msg 602 [2,]",
                                               "msg 603 [3,]"};
    EXPECT_EQ(expected, unit.journal());
}

TEST(HbUnitFrameTest, SendMsgSelf_UnknownId_WorkerLogsNotFoundAndGoesOn) {
    TestUnit unit;
    HbWorker worker(0, 10, 0);
    buildLikeTheModule(unit, worker);
    DbgCapture capture;
    TestEvent handled;
    unit.action = [&handled](uint32) { handled.set(); };
    unit.SendMsgSelf(650, en_MSG_ID_MESSAGE, nullptr, 0);
    unit.SendMsgSelf(601, en_MSG_ID_MESSAGE, nullptr, 0);
    ASSERT_TRUE(worker.Start("HbWorker"));
    handled.wait();
    worker.Stop();
    const std::vector<HbDbgRecord> records = capture.records();
    ASSERT_EQ(1u, records.size());
    EXPECT_EQ("HbFramework/Foundation/HbDispatcher", records[0].file);
    EXPECT_EQ(140, records[0].line);
    EXPECT_EQ("not found. msg id[650]\n", records[0].text);
    const std::vector<std::string> expected = {"msg 601 []"};
    EXPECT_EQ(expected, unit.journal());
}

TEST(HbUnitFrameTest, Messages_HandledInArrivalOrderOneAtATime) {
    TestUnit unit;
    HbWorker worker(0, 4000, 0);
    buildLikeTheModule(unit, worker);
    std::atomic<int> inside{0};
    std::atomic<int> mostInside{0};
    TestEvent lastHandled;
    unit.action = [&](uint32 id) {
        int now = ++inside;
        if (now > mostInside.load()) {
            mostInside.store(now);
        }
        if (id == 1000) {
            lastHandled.set();
        }
        --inside;
    };
    ASSERT_TRUE(worker.Start("HbWorker"));
    // Posted from two threads; each thread's own posts keep their order, and
    // the whole run follows the order in which the box accepted them.
    std::vector<std::string> expectedA;
    std::vector<std::string> expectedB;
    std::thread postA([&] {
        for (uint8 i = 0; i < 50; ++i) {
            unit.SendMsgSelf(600, en_MSG_ID_MESSAGE, &i, 1);
            expectedA.push_back("msg 600 [" + std::to_string(i) + ",]");
        }
    });
    std::thread postB([&] {
        for (uint8 i = 0; i < 50; ++i) {
            unit.SendMsgSelf(601, en_MSG_ID_MESSAGE, &i, 1);
            expectedB.push_back("msg 601 [" + std::to_string(i) + ",]");
        }
    });
    postA.join();
    postB.join();
    unit.SendMsgSelf(1000, en_MSG_ID_EVENT, nullptr, 0);
    lastHandled.wait();
    worker.Stop();

    std::vector<std::string> seenA;
    std::vector<std::string> seenB;
    const std::vector<std::string> journal = unit.journal();
    ASSERT_EQ(101u, journal.size());
    EXPECT_EQ("evt 1000", journal.back());
    for (const std::string& entry : journal) {
        if (entry.rfind("msg 600", 0) == 0) {
            seenA.push_back(entry);
        } else if (entry.rfind("msg 601", 0) == 0) {
            seenB.push_back(entry);
        }
    }
    EXPECT_EQ(expectedA, seenA);
    EXPECT_EQ(expectedB, seenB);
    EXPECT_EQ(1, mostInside.load());
}

TEST(HbUnitFrameTest, UnregistMsgBox_NotRegistered_ReturnsNotRegistered) {
    TestUnit unit;
    EXPECT_EQ(en_ERROR_NOT_REGISTERED, unit.UnregistMsgBox());
}

TEST(HbUnitFrameTest, UnregistMsgBox_ClearsTheRegistrationAndDropsQueuedMessages) {
    TestUnit unit;
    TestUnit witness;
    HbWorker worker(0, 10, 0);
    buildLikeTheModule(unit, worker);
    buildLikeTheModule(witness, worker);
    unit.SendMsgSelf(600, en_MSG_ID_MESSAGE, nullptr, 0);
    witness.SendMsgSelf(601, en_MSG_ID_MESSAGE, nullptr, 0);
    EXPECT_EQ(en_ERROR_NONE, unit.UnregistMsgBox());
    EXPECT_EQ(-1, unit.getMsgBoxId());
    EXPECT_EQ(nullptr, unit.getMsgBox());
    EXPECT_EQ(en_ERROR_NO_MSGBOX, unit.SendMsgSelf(600, en_MSG_ID_MESSAGE, nullptr, 0));
    EXPECT_EQ(en_ERROR_NOT_REGISTERED, unit.UnregistMsgBox());

    TestEvent witnessed;
    witness.action = [&witnessed](uint32) { witnessed.set(); };
    ASSERT_TRUE(worker.Start("HbWorker"));
    witnessed.wait();
    worker.Stop();
    EXPECT_TRUE(unit.journal().empty());
}

TEST(HbUnitFrameTest, UnregistMsgBox_FromAnotherThreadWhileAHandlerRuns_WaitsForTheHandler) {
    TestUnit unit;
    HbWorker worker(0, 10, 0);
    buildLikeTheModule(unit, worker);
    TestEvent handlerEntered;
    TestEvent releaseHandler;
    TestEvent unregisterWaiting;
    std::atomic<bool> handlerFinished{false};
    std::atomic<bool> unregisterReturned{false};
    std::atomic<bool> unregisterReturnedDuringHandler{true};
    unit.action = [&](uint32) {
        handlerEntered.set();
        releaseHandler.wait();
        unregisterReturnedDuringHandler.store(unregisterReturned.load());
        handlerFinished.store(true);
    };
    worker.GetMsgBox()->SetUnregistWaitHook([&unregisterWaiting] { unregisterWaiting.set(); });
    ASSERT_TRUE(worker.Start("HbWorker"));
    unit.SendMsgSelf(600, en_MSG_ID_MESSAGE, nullptr, 0);
    handlerEntered.wait();

    std::atomic<int> result{-1};
    std::atomic<bool> handlerFinishedSeenByUnregister{false};
    std::thread unregister([&] {
        result.store(unit.UnregistMsgBox());
        handlerFinishedSeenByUnregister.store(handlerFinished.load());
        unregisterReturned.store(true);
    });
    unregisterWaiting.wait();  // the other thread is blocked inside UnregistMsgBox now
    releaseHandler.set();
    unregister.join();
    worker.Stop();

    EXPECT_EQ(en_ERROR_NONE, result.load());
    EXPECT_FALSE(unregisterReturnedDuringHandler.load());
    EXPECT_TRUE(handlerFinishedSeenByUnregister.load());
}

TEST(HbUnitFrameTest, UnregistMsgBox_FromInsideItsOwnHandler_ReturnsWithoutWaiting) {
    TestUnit unit;
    HbWorker worker(0, 10, 0);
    buildLikeTheModule(unit, worker);
    std::atomic<int> result{-1};
    std::atomic<int> postAfter{-1};
    TestEvent done;
    unit.action = [&](uint32) {
        result.store(unit.UnregistMsgBox());
        postAfter.store(unit.SendMsgSelf(601, en_MSG_ID_MESSAGE, nullptr, 0));
        done.set();
    };
    unit.SendMsgSelf(600, en_MSG_ID_MESSAGE, nullptr, 0);
    ASSERT_TRUE(worker.Start("HbWorker"));
    done.wait();
    worker.Stop();
    EXPECT_EQ(en_ERROR_NONE, result.load());
    EXPECT_EQ(en_ERROR_NO_MSGBOX, postAfter.load());
    EXPECT_EQ(1u, unit.journal().size());
}

TEST(HbUnitFrameTest, Handler_RunsOnTheThreadNamedHbWorker) {
    TestUnit unit;
    HbWorker worker(0, 4000, 0);
    buildLikeTheModule(unit, worker);
    std::string name;
    TestEvent handled;
    unit.action = [&](uint32) {
        char buffer[16] = {};
        pthread_getname_np(pthread_self(), buffer, sizeof(buffer));
        name = buffer;
        handled.set();
    };
    ASSERT_TRUE(worker.Start("HbWorker"));
    unit.SendMsgSelf(607, en_MSG_ID_MESSAGE, nullptr, 0);
    handled.wait();
    worker.Stop();
    EXPECT_EQ("HbWorker", name);
}
