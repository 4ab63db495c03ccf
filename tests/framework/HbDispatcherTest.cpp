#include <gtest/gtest.h>

#include <cwchar>
#include <string>
#include <vector>

#include "DbgCapture.h"
#include "HbFramework/Foundation/HbDispatcher.h"

namespace {

const char kSource[] = "tests/framework/HbDispatcherTest";

// Records every handler call so the tests can check what was routed where.
class Unit {
public:
    uint32 onFirst(uint32 id, void* data, uint32 size) {
        calls.push_back("first " + std::to_string(id) + " " + std::to_string(size));
        lastData = data;
        return 11;
    }
    uint32 onSecond(uint32 id, void* data, uint32 size) {
        (void)data;
        calls.push_back("second " + std::to_string(id) + " " + std::to_string(size));
        return 22;
    }
    uint32 onEvent(uint32 id) {
        calls.push_back("event " + std::to_string(id));
        return 33;
    }

    std::vector<std::string> calls;
    void* lastData = nullptr;
};

// A unit whose handler is a member of its second base, as the unit's link
// handlers are members of its link base.
class Counted {
public:
    virtual ~Counted() {}
    int count = 0;
};
class LinkPart {
public:
    virtual ~LinkPart() {}
    uint32 onLink(uint32 id, void* data, uint32 size) {
        (void)data;
        seen = id + size;
        return 7;
    }
    uint32 seen = 0;
};
class DerivedUnit : public Counted, public LinkPart {};

}  // namespace

TEST(HbDispatcherTest, Dispatch_ToAHandlerOfASecondBase_CallsItOnThatBasePart) {
    DerivedUnit unit;
    HbDispatcher<DerivedUnit> dispatcher(1, 0, &unit);
    dispatcher.MapMessage(600, &LinkPart::onLink, kSource, __LINE__);
    EXPECT_EQ(7u, dispatcher.Dispatch(600, nullptr, 2));
    EXPECT_EQ(602u, unit.seen);
    EXPECT_EQ(0, unit.count);
}

TEST(HbDispatcherTest, Construction_StoresCapacitiesOwnerAndZeroName) {
    Unit unit;
    HbDispatcher<Unit> dispatcher(8, 1, &unit);
    EXPECT_EQ(8u, dispatcher.msgCapacity);
    EXPECT_EQ(1u, dispatcher.evtCapacity);
    EXPECT_EQ(&unit, dispatcher.owner);
    EXPECT_TRUE(dispatcher.msgMap.empty());
    EXPECT_TRUE(dispatcher.evtMap.empty());
    for (wchar_t c : dispatcher.functionName) {
        EXPECT_EQ(L'\0', c);
    }
    EXPECT_EQ(dispatcher.functionName, dispatcher.GetFunctionName());
}

TEST(HbDispatcherTest, Dispatch_RegisteredMessage_CallsItsHandlerAndReturnsItsResult) {
    Unit unit;
    HbDispatcher<Unit> dispatcher(8, 0, &unit);
    dispatcher.MapMessage(600, &Unit::onFirst, kSource, __LINE__);
    dispatcher.MapMessage(601, &Unit::onSecond, kSource, __LINE__);
    int payload = 5;
    HbIDispatcher* routed = &dispatcher;
    EXPECT_EQ(22u, routed->Dispatch(601, &payload, 4));
    EXPECT_EQ(11u, routed->Dispatch(600, &payload, 4));
    const std::vector<std::string> expected = {"second 601 4", "first 600 4"};
    EXPECT_EQ(expected, unit.calls);
    EXPECT_EQ(&payload, unit.lastData);
}

TEST(HbDispatcherTest, Dispatch_RegisteredEvent_CallsItsHandlerAndReturnsItsResult) {
    Unit unit;
    HbDispatcher<Unit> dispatcher(8, 1, &unit);
    dispatcher.MapMessage(1000, &Unit::onFirst, kSource, __LINE__);
    dispatcher.MapEvent(1000, &Unit::onEvent, kSource, __LINE__);
    HbIDispatcher* routed = &dispatcher;
    EXPECT_EQ(33u, routed->Dispatch(1000));
    const std::vector<std::string> expected = {"event 1000"};
    EXPECT_EQ(expected, unit.calls);
}

TEST(HbDispatcherTest, Dispatch_UnknownMessage_Returns0AndLogsNotFound) {
    Unit unit;
    HbDispatcher<Unit> dispatcher(8, 1, &unit);
    dispatcher.MapMessage(600, &Unit::onFirst, kSource, __LINE__);
    dispatcher.MapEvent(612, &Unit::onEvent, kSource, __LINE__);
    DbgCapture capture;
    EXPECT_EQ(0u, dispatcher.Dispatch(612, nullptr, 0));
    EXPECT_TRUE(unit.calls.empty());
    const std::vector<HbDbgRecord> records = capture.records();
    ASSERT_EQ(1u, records.size());
    EXPECT_EQ("HbFramework/Foundation/HbDispatcher", records[0].file);
    EXPECT_EQ("Dispatch", records[0].function);
    EXPECT_EQ(140, records[0].line);
    EXPECT_EQ(1, records[0].tag);
    EXPECT_EQ("not found. msg id[612]\n", records[0].text);
}

TEST(HbDispatcherTest, Dispatch_UnknownMessageAboveIntRange_LogsItsIdAsSignedDecimal) {
    Unit unit;
    HbDispatcher<Unit> dispatcher(8, 0, &unit);
    DbgCapture capture;
    EXPECT_EQ(0u, dispatcher.Dispatch(0xFFFFFFFFu, nullptr, 0));
    ASSERT_EQ(1u, capture.records().size());
    EXPECT_EQ("not found. msg id[-1]\n", capture.records()[0].text);
}

TEST(HbDispatcherTest, Dispatch_UnknownEvent_Returns0AndLogsNotFound) {
    Unit unit;
    HbDispatcher<Unit> dispatcher(8, 1, &unit);
    dispatcher.MapMessage(1000, &Unit::onFirst, kSource, __LINE__);
    DbgCapture capture;
    EXPECT_EQ(0u, dispatcher.Dispatch(1000));
    EXPECT_TRUE(unit.calls.empty());
    const std::vector<HbDbgRecord> records = capture.records();
    ASSERT_EQ(1u, records.size());
    EXPECT_EQ("HbFramework/Foundation/HbDispatcher", records[0].file);
    EXPECT_EQ("Dispatch", records[0].function);
    EXPECT_EQ(158, records[0].line);
    EXPECT_EQ(1, records[0].tag);
    EXPECT_EQ("not found. evt id[1000]\n", records[0].text);
}

TEST(HbDispatcherTest, MapMessage_NinthIntoCapacity8_LogsMapMessageFailureAndMapStaysAt8) {
    Unit unit;
    HbDispatcher<Unit> dispatcher(8, 0, &unit);
    DbgCapture capture;
    for (uint32 id = 600; id < 608; ++id) {
        EXPECT_TRUE(dispatcher.MapMessage(id, &Unit::onFirst, kSource, 200));
    }
    EXPECT_TRUE(capture.records().empty());
    const int line = __LINE__ + 1;
    EXPECT_FALSE(dispatcher.MapMessage(608, &Unit::onSecond, kSource, line));

    EXPECT_EQ(8u, dispatcher.msgMap.size());
    EXPECT_EQ(0u, dispatcher.msgMap.count(608));
    const std::vector<HbDbgRecord> records = capture.records();
    ASSERT_EQ(1u, records.size());
    EXPECT_EQ(kSource, records[0].file);
    EXPECT_EQ("SetMsgDispatchTbl", records[0].function);
    EXPECT_EQ(line, records[0].line);
    EXPECT_EQ(1, records[0].tag);
    EXPECT_EQ("[[HbUnitFrame]] [MAP_MESSAGE] Failed...\r\n", records[0].text);
    EXPECT_EQ(0u, dispatcher.Dispatch(608, nullptr, 0));
}

TEST(HbDispatcherTest, MapMessage_SameIdTwice_KeepsTheFirstHandler) {
    Unit unit;
    HbDispatcher<Unit> dispatcher(8, 0, &unit);
    EXPECT_TRUE(dispatcher.MapMessage(600, &Unit::onFirst, kSource, __LINE__));
    EXPECT_TRUE(dispatcher.MapMessage(600, &Unit::onSecond, kSource, __LINE__));
    EXPECT_EQ(1u, dispatcher.msgMap.size());
    EXPECT_EQ(11u, dispatcher.Dispatch(600, nullptr, 0));
}

TEST(HbDispatcherTest, MapEvent_BeyondCapacity_LogsMapEventFailureAndSkips) {
    Unit unit;
    HbDispatcher<Unit> dispatcher(0, 1, &unit);
    DbgCapture capture;
    EXPECT_TRUE(dispatcher.MapEvent(1000, &Unit::onEvent, kSource, 10));
    EXPECT_FALSE(dispatcher.MapEvent(1001, &Unit::onEvent, kSource, 11));
    EXPECT_EQ(1u, dispatcher.evtMap.size());
    const std::vector<HbDbgRecord> records = capture.records();
    ASSERT_EQ(1u, records.size());
    EXPECT_EQ("SetMsgDispatchTbl", records[0].function);
    EXPECT_EQ(11, records[0].line);
    EXPECT_EQ("[[HbUnitFrame]] [MAP_EVENT] Failed...\r\n", records[0].text);
}

TEST(HbDispatcherTest, MapMessage_CapacityZero_RefusesTheFirstHandler) {
    Unit unit;
    HbDispatcher<Unit> dispatcher(0, 0, &unit);
    DbgCapture capture;
    EXPECT_FALSE(dispatcher.MapMessage(600, &Unit::onFirst, kSource, 1));
    EXPECT_TRUE(dispatcher.msgMap.empty());
    ASSERT_EQ(1u, capture.records().size());
    EXPECT_EQ("[[HbUnitFrame]] [MAP_MESSAGE] Failed...\r\n", capture.records()[0].text);
}

TEST(HbDispatcherTest, SetFunctionName_ShortName_CopiedWhole) {
    Unit unit;
    HbDispatcher<Unit> dispatcher(8, 1, &unit);
    dispatcher.SetFunctionName(L"Mox");
    EXPECT_STREQ(L"Mox", dispatcher.GetFunctionName());
    EXPECT_EQ(dispatcher.functionName, dispatcher.GetFunctionName());
}

TEST(HbDispatcherTest, SetFunctionName_LongerThan15_CutTo15AndTerminated) {
    Unit unit;
    HbDispatcher<Unit> dispatcher(8, 1, &unit);
    dispatcher.SetFunctionName(L"ABCDEFGHIJKLMNOPQRSTUVWXYZ");
    EXPECT_STREQ(L"ABCDEFGHIJKLMNO", dispatcher.GetFunctionName());
    EXPECT_EQ(L'\0', dispatcher.functionName[15]);
}

TEST(HbDispatcherTest, SetFunctionName_Exactly15_KeptWhole) {
    Unit unit;
    HbDispatcher<Unit> dispatcher(8, 1, &unit);
    dispatcher.SetFunctionName(L"ABCDEFGHIJKLMNO");
    EXPECT_STREQ(L"ABCDEFGHIJKLMNO", dispatcher.GetFunctionName());
}

TEST(HbDispatcherTest, SetFunctionName_Again_ReplacesTheEarlierName) {
    Unit unit;
    HbDispatcher<Unit> dispatcher(8, 1, &unit);
    dispatcher.SetFunctionName(L"LongUnitName");
    dispatcher.SetFunctionName(L"Mox");
    EXPECT_STREQ(L"Mox", dispatcher.GetFunctionName());
}
