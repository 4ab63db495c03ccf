// The unit: construction, its dispatch table, the requests it posts, its
// reactions to the protocol's and the state's notifications, the
// notifications it raises and the synchronous reads.
#include <gtest/gtest.h>

#include <cstring>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "DbgCapture.h"
#include "HbFramework/Foundation/HbDispatcher.h"
#include "HbFramework/HbFileSysHost.h"
#include "HbFramework/HbLTimerManualClock.h"
#include "HbFramework/HbLTimerMng.h"
#include "ModuleReset.h"
#include "NotificationLog.h"
#include "TestDir.h"
#include "moxdb/CatalogueBuilder.h"
#include "moxdb/TocText.h"
#include "private/Mox.h"
#include "private/MoxDapDatabase.h"
#include "private/MoxProtocol.h"
#include "private/MoxSearchInfo.h"
#include "private/MoxState.h"

namespace {

const char* const kUnitSource = "private/Mox";

// A search request that tells the test whether the unit deleted it.
class TrackedSearchInfo : public MoxSearchInfo {
public:
    explicit TrackedSearchInfo(bool* deleted) : mDeleted(deleted) {}
    ~TrackedSearchInfo() override { *mDeleted = true; }

private:
    bool* mDeleted;
};

class MoxTest : public ::testing::Test {
protected:
    void SetUp() override {
        // No command timer may run out on its own during a test.
        HbLTimerManualClock::GetInstance()->Use();
        mox = Mox::GetInstance();
        mox->AddObserver(unitLog.observer());
        MoxProtocol::GetInstance()->AddObserver(frames.observer());
    }

    void TearDown() override {
        MoxProtocol::GetInstance()->RemoveObserver(frames.observer());
        mox->RemoveObserver(unitLog.observer());
        moxtest::resetModule();
    }

    // Every message posted before this call has been handled when it returns:
    // the worker handles messages one at a time, in order.
    void drainWorker() {
        const std::string marker = "not found. msg id[599]\n";
        capture.clear();
        mox->comSendMsgSelf(599, nullptr, 0);
        ASSERT_TRUE(capture.waitForText(marker));
    }

    static void expectRecord(const HbDbgRecord& record, const char* function, int line,
                             const std::string& text) {
        EXPECT_EQ(record.file, kUnitSource);
        EXPECT_EQ(record.function, function);
        EXPECT_EQ(record.line, line);
        EXPECT_EQ(record.tag, en_TAG_ERROR);
        EXPECT_EQ(record.text, text);
    }

    DbgCapture capture;
    NotificationLog unitLog;
    NotificationLog frames;
    Mox* mox = nullptr;
};

// --- Construction and destruction ------------------------------------------------

TEST_F(MoxTest, Construction_CachesTheThreeSingletons) {
    EXPECT_EQ(mox->getMoxDapDatabase(), MoxDapDatabase::GetInstance());
    EXPECT_EQ(mox->getMoxProtocol(), MoxProtocol::GetInstance());
    EXPECT_EQ(mox->getMoxState(), MoxState::GetInstance());
}

TEST_F(MoxTest, Construction_SetsRangesAndRegistersWithItsWorkersBox) {
    EXPECT_EQ(mox->getMsgCount(), 8u);
    EXPECT_EQ(mox->getMsgBase(), 600u);
    EXPECT_EQ(mox->getEvtCount(), 1u);
    EXPECT_EQ(mox->getEvtBase(), 1000u);
    EXPECT_EQ(mox->getTrail(), 0u);
    ASSERT_NE(mox->getWorker(), nullptr);
    EXPECT_EQ(mox->getMsgBox(), mox->getWorker()->GetMsgBox());
    EXPECT_GE(mox->getMsgBoxId(), 0);
    EXPECT_EQ(mox->getWorker()->GetMsgBox()->Capacity(), 4000u);
    ASSERT_NE(mox->getDispatcher(), nullptr);
    EXPECT_EQ(std::wstring(mox->getDispatcher()->GetFunctionName()), L"Mox");
    EXPECT_EQ(mox->getMode(), 1);
}

TEST_F(MoxTest, Construction_RegistersOneObserverWithTheProtocolAndTheState) {
    // The protocol holds the unit's observer and the test's frame observer;
    // the state holds the protocol's observer and the unit's.
    EXPECT_EQ(MoxProtocol::GetInstance()->ObserverCount(), 2u);
    EXPECT_EQ(MoxState::GetInstance()->ObserverCount(), 2u);
}

TEST_F(MoxTest, Construction_LogsNothing) {
    EXPECT_TRUE(capture.records().empty());
}

TEST(MoxLifetimeTest, Destroy_RemovesItsObserversAndWithdrawsFromTheBox) {
    Mox* mox = Mox::GetInstance();
    HbMsgBox* box = mox->getMsgBox();
    ASSERT_NE(box, nullptr);
    HbWorker* worker = mox->getWorker();
    EXPECT_EQ(MoxProtocol::GetInstance()->ObserverCount(), 1u);
    EXPECT_EQ(MoxState::GetInstance()->ObserverCount(), 2u);
    HbSingleton<Mox>::destroy();
    EXPECT_EQ(MoxProtocol::GetInstance()->ObserverCount(), 0u);
    EXPECT_EQ(MoxState::GetInstance()->ObserverCount(), 1u);  // the protocol's own
    // The worker is left running for the framework to stop; its box no longer
    // knows the unit.
    EXPECT_EQ(box->Post(0, 605, en_MSG_ID_MESSAGE, nullptr, 0), en_ERROR_NOT_REGISTERED);
    // What the framework would do at the end, so that the next test starts afresh.
    worker->Stop();
    delete worker;
    moxtest::resetModule();
}

TEST_F(MoxTest, DelInstance_DoesNothing) {
    Mox::DelInstance();
    EXPECT_EQ(Mox::GetInstance(), mox);
}

// --- Dispatch table ------------------------------------------------------------------

TEST_F(MoxTest, SetMsgDispatchTbl_NamesTheDispatcherAndMapsSixHundredToSixHundredSeven) {
    HbDispatcher<Mox> table(8, 0, mox);
    mox->SetMsgDispatchTbl(&table);
    EXPECT_EQ(std::wstring(table.GetFunctionName()), L"Mox");
    std::vector<uint32> ids;
    for (const auto& entry : table.msgMap) {
        ids.push_back(entry.first);
    }
    EXPECT_EQ(ids, (std::vector<uint32>{600, 601, 602, 603, 604, 605, 606, 607}));
    EXPECT_TRUE(capture.records().empty());
}

TEST_F(MoxTest, SetMsgDispatchTbl_OnAFullDispatcher_LogsEachEntryWithItsOwnLine) {
    HbDispatcher<Mox> table(0, 0, mox);
    mox->SetMsgDispatchTbl(&table);
    EXPECT_TRUE(table.msgMap.empty());
    const std::vector<HbDbgRecord> records = capture.records();
    ASSERT_EQ(records.size(), 8u);
    for (size_t i = 0; i < records.size(); ++i) {
        expectRecord(records[i], "SetMsgDispatchTbl", 169 + static_cast<int>(i),
                     "[[HbUnitFrame]] [MAP_MESSAGE] Failed...\r\n");
    }
}

TEST_F(MoxTest, SetMsgDispatchTbl_WithRoomForFive_KeepsTheFirstFiveAndLogsTheRest) {
    HbDispatcher<Mox> table(5, 0, mox);
    mox->SetMsgDispatchTbl(&table);
    EXPECT_EQ(table.msgMap.size(), 5u);
    EXPECT_EQ(table.msgMap.count(604), 1u);
    EXPECT_EQ(table.msgMap.count(605), 0u);
    const std::vector<HbDbgRecord> records = capture.records();
    ASSERT_EQ(records.size(), 3u);
    expectRecord(records[0], "SetMsgDispatchTbl", 174,
                 "[[HbUnitFrame]] [MAP_MESSAGE] Failed...\r\n");
    expectRecord(records[2], "SetMsgDispatchTbl", 176,
                 "[[HbUnitFrame]] [MAP_MESSAGE] Failed...\r\n");
}

TEST_F(MoxTest, Dispatch_OfAnIdOutsideTheTable_IsReportedByTheDispatcher) {
    EXPECT_EQ(mox->getDispatcher()->Dispatch(608, nullptr, 0), 0u);
    ASSERT_EQ(capture.texts(), (std::vector<std::string>{"not found. msg id[608]\n"}));
}

// --- Requests and their handlers -------------------------------------------------------

TEST_F(MoxTest, MessageHandlers_RunOnTheThreadNamedHbWorker) {
    mox->comSendMsgSelf(599, nullptr, 0);
    ASSERT_TRUE(capture.waitForText("not found. msg id[599]\n"));
    EXPECT_EQ(capture.threads(), (std::vector<std::string>{"HbWorker"}));
}

TEST_F(MoxTest, Search_WhileNotLinked_LogsOnTheWorkerAndSendsNothing) {
    HbSMoxDef::SearchInfo info{1, 2, 3, "000096"};
    mox->moxSearch(info);
    ASSERT_TRUE(capture.waitForText("not yet link connect.\n"));
    const std::vector<HbDbgRecord> records = capture.records();
    ASSERT_EQ(records.size(), 1u);
    expectRecord(records[0], "moxMsgSearch", 287, "not yet link connect.\n");
    EXPECT_EQ(capture.threads()[0], "HbWorker");
    drainWorker();
    EXPECT_TRUE(frames.all().empty());
    EXPECT_TRUE(unitLog.all().empty());
    EXPECT_EQ(mox->moxGetSearchStatus(), 100);
}

TEST_F(MoxTest, MsgSearch_WhileNotLinked_AbandonsTheRequestWithoutDeletingIt) {
    bool deleted = false;
    MoxSearchInfo* request = new TrackedSearchInfo(&deleted);
    mox->comSendMsgSelf(607, &request, sizeof(request));
    ASSERT_TRUE(capture.waitForText("not yet link connect.\n"));
    drainWorker();
    EXPECT_FALSE(deleted);
    delete request;  // the unit left it behind; the test cleans up
    EXPECT_TRUE(deleted);
}

TEST_F(MoxTest, MsgSearch_WhileLinked_SendsTheLookupAndDeletesTheRequest) {
    MoxState::GetInstance()->setIsAppLinkState(true);
    bool deleted = false;
    TrackedSearchInfo* tracked = new TrackedSearchInfo(&deleted);
    tracked->lookupKind = 0x12;
    tracked->lookupParam1 = 0x0304;
    tracked->lookupParam2 = 0x0506;
    tracked->toc = "0000960046E6008D3600D386";
    MoxSearchInfo* request = tracked;
    mox->comSendMsgSelf(607, &request, sizeof(request));
    ASSERT_TRUE(frames.waitFor([](const std::vector<Notification>& n) { return !n.empty(); }));
    drainWorker();
    EXPECT_TRUE(deleted);
    const std::vector<Notification> sent = frames.all();
    ASSERT_EQ(sent.size(), 1u);
    const std::vector<unsigned char>& frame = sent[0].data;
    ASSERT_EQ(frame.size(), 9u + 150u + 24u);
    EXPECT_EQ(std::vector<unsigned char>(frame.begin(), frame.begin() + 8),
              (std::vector<unsigned char>{0x00, 0x10, 0x12, 0x00, 0x03, 0x04, 0x05, 0x06}));
    const std::string document(frame.begin() + 8, frame.end() - 1);
    EXPECT_NE(document.find("<TOC>0000960046E6008D3600D386</TOC>"), std::string::npos);
    EXPECT_EQ(mox->moxGetSearchStatus(), 103);
    EXPECT_EQ(sent[0].thread, "HbWorker");
}

TEST_F(MoxTest, Search_CopiesTheRequest_SoTheCallerMayChangeItAtOnce) {
    MoxState::GetInstance()->setIsAppLinkState(true);
    HbSMoxDef::SearchInfo info{7, 0x0102, 0x0304, "ABC"};
    mox->moxSearch(info);
    info.toc = "changed";
    info.lookupKind = 9;
    ASSERT_TRUE(frames.waitFor([](const std::vector<Notification>& n) { return !n.empty(); }));
    const std::vector<unsigned char> frame = frames.all()[0].data;
    EXPECT_EQ(frame[2], 7);
    const std::string document(frame.begin() + 8, frame.end() - 1);
    EXPECT_NE(document.find("<TOC>ABC</TOC>"), std::string::npos);
}

TEST_F(MoxTest, ComSendMsgSelf_WhenTheBoxRefuses_LogsTheErrorNumber) {
    mox->UnregistMsgBox();
    mox->moxStartLink();
    const std::vector<HbDbgRecord> records = capture.records();
    ASSERT_EQ(records.size(), 1u);
    expectRecord(records[0], "comSendMsgSelf", 155, "SendMsgSelf return error=4.\n");
}

TEST_F(MoxTest, Requests_WhenTheBoxRefuses_EachLogsOnce) {
    mox->UnregistMsgBox();
    mox->moxRequestDeviceConnect();
    mox->moxRequestDeviceDisconnect();
    mox->moxStopLink();
    EXPECT_EQ(capture.textsOf("comSendMsgSelf"),
              (std::vector<std::string>(3, "SendMsgSelf return error=4.\n")));
}

// --- Protocol notifications --------------------------------------------------------------

TEST_F(MoxTest, ProtocolNotification5_LogsTheUnknownIdAndNothingElse) {
    unsigned char frame[2] = {0x7F, 0xFF};
    EXPECT_EQ(mox->rcvMoxProtocolNotify(5, frame, sizeof(frame)), 1u);
    const std::vector<HbDbgRecord> records = capture.records();
    ASSERT_EQ(records.size(), 1u);
    expectRecord(records[0], "rcvMoxProtocolNotify", 354, "receive unknown id=5\n");
    EXPECT_TRUE(unitLog.all().empty());
}

// --- State notifications -------------------------------------------------------------------

TEST_F(MoxTest, StateNotification0WithNonZeroByte_LeavesFlagsButAcknowledgesTheApp) {
    MoxState* state = MoxState::GetInstance();
    state->setIsAppLinkState(true);
    state->setIosConnect(true);
    unitLog.clear();
    const uint32 before = mox->getAppActivatedCount();
    uint8 running = 1;
    EXPECT_EQ(mox->rcvMoxStateNotify(0, &running, 1), 1u);
    EXPECT_TRUE(state->getIsAppLinkState());
    EXPECT_TRUE(state->getIosConnect());
    EXPECT_EQ(mox->getAppActivatedCount(), before + 1);
    EXPECT_TRUE(unitLog.all().empty());
}

TEST_F(MoxTest, StateNotification0WithZero_ClearsLinkAndIosFlagsAndAcknowledgesTheApp) {
    MoxState* state = MoxState::GetInstance();
    state->setIsAppLinkState(true);
    state->setIosConnect(true);
    unitLog.clear();
    const uint32 before = mox->getAppActivatedCount();
    uint8 lost = 0;
    EXPECT_EQ(mox->rcvMoxStateNotify(0, &lost, 1), 1u);
    EXPECT_FALSE(state->getIsAppLinkState());
    EXPECT_FALSE(state->getIosConnect());
    EXPECT_EQ(mox->getAppActivatedCount(), before + 1);
    // Clearing the link flag made the state raise 3, which became link state 0.
    const std::vector<Notification> raised = unitLog.all();
    ASSERT_EQ(raised.size(), 1u);
    EXPECT_EQ(raised[0].id, 1u);
    EXPECT_EQ(raised[0].data.size(), 4u);
    EXPECT_EQ(raised[0].asInt32(), 0);
}

TEST_F(MoxTest, StateNotification3_RaisesLinkStateAsInt32) {
    MoxState::GetInstance()->setIsAppLinkState(true);
    const std::vector<Notification> raised = unitLog.all();
    ASSERT_EQ(raised.size(), 1u);
    EXPECT_EQ(raised[0].id, 1u);
    ASSERT_EQ(raised[0].data.size(), 4u);
    EXPECT_EQ(raised[0].asInt32(), 1);
}

TEST_F(MoxTest, StateNotification7_ForwardsTheDeviceStatusByteAsNotification3) {
    MoxState::GetInstance()->notifyObserverDeviceStatus(2);
    const std::vector<Notification> raised = unitLog.all();
    ASSERT_EQ(raised.size(), 1u);
    EXPECT_EQ(raised[0].id, 3u);
    EXPECT_EQ(raised[0].data, (std::vector<unsigned char>{2}));
}

TEST_F(MoxTest, StateNotification8_RaisesTheResultStateAsInt32) {
    MoxState::GetInstance()->setResultState(103);
    MoxState::GetInstance()->setResultState(0);
    EXPECT_EQ(unitLog.valuesOf(2), (std::vector<int32>{103, 0}));
    for (const Notification& n : unitLog.all()) {
        EXPECT_EQ(n.data.size(), 4u);
    }
}

TEST_F(MoxTest, StateNotification9_IsIgnored) {
    MoxState::GetInstance()->setIosConnect(true);
    EXPECT_TRUE(unitLog.all().empty());
    EXPECT_TRUE(capture.records().empty());
}

TEST_F(MoxTest, StateNotificationsWithoutAReaction_RaiseAndLogNothing) {
    const uint32 before = mox->getAppActivatedCount();
    uint8 byte = 1;
    for (uint32 id : {1u, 2u, 4u, 5u, 6u, 9u, 10u, 1000u}) {
        EXPECT_EQ(mox->rcvMoxStateNotify(id, &byte, 1), 1u);
    }
    EXPECT_TRUE(unitLog.all().empty());
    EXPECT_TRUE(capture.records().empty());
    EXPECT_EQ(mox->getAppActivatedCount(), before);
}

// --- Link hooks ----------------------------------------------------------------------------

TEST_F(MoxTest, LinkHooks_AreDeliberatelyEmpty) {
    OstLinkAppLinkAppComm::DeviceStatus status{2};
    mox->LinkAppCommIFImplAppConnect(&status);
    mox->LinkAppCommIFImplAppDisconnect(&status);
    mox->LinkAppCommIFImplAppOpen(&status);
    mox->LinkAppCommIFImplAppClose(&status);
    EXPECT_TRUE(unitLog.all().empty());
    EXPECT_TRUE(frames.all().empty());
    EXPECT_TRUE(capture.records().empty());
    EXPECT_EQ(mox->moxGetSearchStatus(), 100);
}

TEST_F(MoxTest, ComNotifyObserver_RaisesOnTheUnitsSubjectUnchanged) {
    uint8 data[3] = {9, 8, 7};
    mox->comNotifyObserver(42, data, sizeof(data));
    const std::vector<Notification> raised = unitLog.all();
    ASSERT_EQ(raised.size(), 1u);
    EXPECT_EQ(raised[0].id, 42u);
    EXPECT_EQ(raised[0].data, (std::vector<unsigned char>{9, 8, 7}));
}

// --- Synchronous reads -----------------------------------------------------------------------

TEST_F(MoxTest, GetSearchStatus_BeforeAnySearch_IsTheInitialIdleState) {
    EXPECT_EQ(mox->moxGetSearchStatus(), 100);
}

TEST_F(MoxTest, GetSearchStatus_FollowsTheState) {
    MoxState::GetInstance()->setResultState(404);
    EXPECT_EQ(mox->moxGetSearchStatus(), 404);
}

TEST_F(MoxTest, GetSearchResult_WithNullList_LogsAndReturnsFalse) {
    MoxState::GetInstance()->setResultState(0);
    EXPECT_FALSE(mox->moxGetSearchResult("000096", nullptr));
    const std::vector<HbDbgRecord> records = capture.records();
    ASSERT_EQ(records.size(), 1u);
    expectRecord(records[0], "moxGetSearchResult", 310, "param error(null).\n");
}

TEST_F(MoxTest, GetSearchResult_BeforeTheResultIsComplete_LogsAndLeavesTheListAlone) {
    std::list<HbSMoxDef::AlbumInfo> albums(1);
    albums.front().AlbumName = "kept";
    EXPECT_FALSE(mox->moxGetSearchResult("000096", &albums));
    ASSERT_EQ(albums.size(), 1u);
    EXPECT_EQ(albums.front().AlbumName, "kept");
    const std::vector<HbDbgRecord> records = capture.records();
    ASSERT_EQ(records.size(), 1u);
    expectRecord(records[0], "moxGetSearchResult", 316, "not yet get result.\n");
}

TEST_F(MoxTest, GetSearchResult_WhenComplete_ReturnsWhatTheAlbumSearchReturns) {
    moxdb::CatalogueBuilder cat;
    const uint32_t rock = cat.addGenre("ROCK");
    const uint32_t artist = cat.addArtist("The Band");
    const uint32_t t1 = cat.addTrack({"Intro", artist, rock, 1});
    const uint32_t t2 = cat.addTrack({"Outro", artist, rock, 1});
    const uint32_t album = cat.addAlbum({"ALB-1", "First", "ROCK", "en", 90, 1, {t1, t2}});
    const std::string toc = moxdb::makeTocText({0, 18000}, 36000);
    cat.addToc(toc, album, 1);
    std::string error;
    ASSERT_TRUE(MoxProtocol::GetInstance()->clearSearchResultFile());
    ASSERT_TRUE(cat.writeFile(HbFileSysHost::getResultFilePath(), &error)) << error;
    MoxState::GetInstance()->setResultState(0);

    std::list<HbSMoxDef::AlbumInfo> viaUnit;
    std::list<HbSMoxDef::AlbumInfo> direct;
    ASSERT_TRUE(mox->moxGetSearchResult(toc, &viaUnit));
    ASSERT_TRUE(MoxDapDatabase::GetInstance()->getSearchResult(toc, &direct));
    ASSERT_EQ(viaUnit.size(), 1u);
    EXPECT_EQ(viaUnit.front().AlbumName, "First");
    EXPECT_EQ(viaUnit.front().Tracks.size(), 2u);
    ASSERT_EQ(direct.size(), 1u);
    EXPECT_EQ(MoxDapDatabase::GetInstance()->getStrAlbum(viaUnit.front()),
              MoxDapDatabase::GetInstance()->getStrAlbum(direct.front()));
}

}  // namespace
