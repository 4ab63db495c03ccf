// The facade: one instance, forwarding of every request to the unit and of
// every notification of the unit to the application's observers.
#include <gtest/gtest.h>

#include <list>
#include <string>
#include <thread>
#include <vector>

#include "DbgCapture.h"
#include "FacadeTest.h"
#include "HbFramework/HbLTimerMng.h"
#include "HbSMox.h"
#include "NotificationLog.h"
#include "private/Mox.h"
#include "private/MoxState.h"

namespace {

class HbSMoxTest : public FacadeTest {
protected:
    void SetUp() override {
        FacadeTest::SetUp();
        createFacade();
    }

    DbgCapture capture;
};

TEST_F(HbSMoxTest, Construction_CreatesTheUnitAndObservesIt) {
    EXPECT_EQ(facade->getMox(), Mox::GetInstance());
    EXPECT_EQ(facade->getMox()->ObserverCount(), 1u);
}

TEST_F(HbSMoxTest, DelInstanceThenGetInstance_ReturnsTheSameObject) {
    HbSMox::DelInstance();
    EXPECT_EQ(HbSMox::GetInstance(), facade);
}

TEST_F(HbSMoxTest, GetInstance_FromTwoThreads_CreatesOneFacade) {
    HbSMox* other = nullptr;
    std::thread thread([&other] { other = HbSMox::GetInstance(); });
    thread.join();
    EXPECT_EQ(other, facade);
}

TEST(HbSMoxLifetimeTest, Destroy_RemovesItsObserverFromTheUnit) {
    HbSMox::GetInstance();
    Mox* mox = Mox::GetInstance();
    EXPECT_EQ(mox->ObserverCount(), 1u);
    HbSingleton<HbSMox>::destroy();
    EXPECT_EQ(mox->ObserverCount(), 0u);
}

TEST_F(HbSMoxTest, GetSearchResult_WithNullList_ReturnsFalseAndTheUnitLogs) {
    MoxState::GetInstance()->setResultState(0);
    EXPECT_FALSE(facade->getSearchResult("000096", nullptr));
    const std::vector<HbDbgRecord> records = capture.records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].file, "private/Mox");
    EXPECT_EQ(records[0].function, "moxGetSearchResult");
    EXPECT_EQ(records[0].line, 310);
    EXPECT_EQ(records[0].text, "param error(null).\n");
}

TEST_F(HbSMoxTest, GetSearchResult_WhileNotComplete_ReturnsFalseAndLeavesTheListAlone) {
    std::list<HbSMoxDef::AlbumInfo> albums;
    EXPECT_FALSE(facade->getSearchResult("000096", &albums));
    EXPECT_TRUE(albums.empty());
    const std::vector<HbDbgRecord> records = capture.records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].line, 316);
    EXPECT_EQ(records[0].text, "not yet get result.\n");
}

TEST_F(HbSMoxTest, Search_WhileNotLinked_DoesNothingVisibleAndTheUnitLogsOnItsWorker) {
    HbSMoxDef::SearchInfo info{0, 0, 0, "000096"};
    facade->search(info);
    ASSERT_TRUE(capture.waitForText("not yet link connect.\n"));
    EXPECT_EQ(capture.threads(), (std::vector<std::string>{"HbWorker"}));
    EXPECT_EQ(capture.records()[0].function, "moxMsgSearch");
    EXPECT_EQ(capture.records()[0].line, 287);
    EXPECT_TRUE(appLog.all().empty());
    EXPECT_EQ(facade->getSearchStatus(), 100);
}

TEST_F(HbSMoxTest, GetSearchStatus_IsTheModuleStatesResultState) {
    EXPECT_EQ(facade->getSearchStatus(), 100);
    MoxState::GetInstance()->setResultState(20);
    EXPECT_EQ(facade->getSearchStatus(), 20);
}

TEST_F(HbSMoxTest, UnitNotifications_ReachTheApplicationUnchangedOnTheRaisingThread) {
    MoxState::GetInstance()->setResultState(103);
    MoxState::GetInstance()->setIsAppLinkState(true);
    MoxState::GetInstance()->notifyObserverDeviceStatus(3);
    uint8 extra[2] = {1, 2};
    facade->getMox()->comNotifyObserver(77, extra, sizeof(extra));
    const std::vector<Notification> got = appLog.all();
    ASSERT_EQ(got.size(), 4u);
    EXPECT_EQ(got[0].id, 2u);
    EXPECT_EQ(got[0].asInt32(), 103);
    EXPECT_EQ(got[1].id, 1u);
    EXPECT_EQ(got[1].asInt32(), 1);
    EXPECT_EQ(got[2].id, 3u);
    EXPECT_EQ(got[2].data, (std::vector<unsigned char>{3}));
    EXPECT_EQ(got[3].id, 77u);
    EXPECT_EQ(got[3].data, (std::vector<unsigned char>{1, 2}));
}

TEST_F(HbSMoxTest, RcvMoxNotify_PassesTheNotificationOn) {
    int32 value = 4;
    EXPECT_EQ(facade->rcvMoxNotify(2, &value, sizeof(value)), 1u);
    EXPECT_EQ(appLog.valuesOf(2), (std::vector<int32>{4}));
}

TEST_F(HbSMoxTest, PostingOperations_WhenTheUnitsBoxRefuses_EachReachesTheUnit) {
    // Withdrawn from its box, the unit logs every request it is asked to
    // post: proof that each operation goes to the unit's posting request.
    facade->getMox()->UnregistMsgBox();
    facade->startLink();
    facade->stopLink();
    facade->requestDeviceConnect();
    facade->requestDeviceDisconnect();
    EXPECT_EQ(capture.textsOf("comSendMsgSelf"),
              (std::vector<std::string>(4, "SendMsgSelf return error=4.\n")));
}

}  // namespace
