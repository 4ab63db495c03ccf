// Behaviour of MoxProtocol, one operation or received command at a time: the
// exact frames handed over for sending, the result states an observer of
// MoxState sees, the logged messages and the stored result file.
#include <gtest/gtest.h>

#include <sys/resource.h>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "DbgCapture.h"
#include "HbFramework/Foundation/HbObserver.h"
#include "HbFramework/HbFileSysHost.h"
#include "HbFramework/HbLTimerManualClock.h"
#include "HbFramework/HbLTimerMng.h"
#include "MoxProtocolHarness.h"
#include "TestDir.h"
#include "private/MoxLimits.h"
#include "private/MoxProtocol.h"
#include "private/MoxState.h"

namespace {

using namespace moxtest;

class MoxProtocolTest : public ProtocolFixture {};

}  // namespace

// --- Construction and destruction --------------------------------------------

TEST(MoxProtocolLifetimeTest, Construct_RegistersOnMoxStateAndArmsNothing) {
    HbLTimerManualClock::GetInstance()->Use();
    MoxProtocol* protocol = MoxProtocol::GetInstance();
    EXPECT_EQ(protocol, MoxProtocol::GetInstance());
    EXPECT_EQ(MoxState::GetInstance(), protocol->getMoxState());
    EXPECT_EQ(1u, MoxState::GetInstance()->ObserverCount());
    EXPECT_EQ(0u, protocol->ObserverCount());
    EXPECT_EQ(0u, HbLTimerMng::GetTimerMng()->ActiveCount());
    EXPECT_EQ(100u, MoxState::GetInstance()->getResultState());
    EXPECT_EQ(10000u, MoxProtocol::CMD_TIMER_PERIOD);
}

TEST(MoxProtocolLifetimeTest, DelInstance_DoesNothing) {
    MoxProtocol* protocol = MoxProtocol::GetInstance();
    MoxProtocol::DelInstance();
    EXPECT_EQ(protocol, MoxProtocol::GetInstance());
    EXPECT_EQ(1u, MoxState::GetInstance()->ObserverCount());
}

TEST(MoxProtocolLifetimeTest, Destroy_WithTimerArmed_RemovesStateObserverAndDisarmsTimer) {
    HbLTimerManualClock::GetInstance()->Use();
    MoxProtocol::GetInstance()->sendCmdConnect();
    ASSERT_EQ(1u, HbLTimerMng::GetTimerMng()->ActiveCount());
    HbSingleton<MoxProtocol>::destroy();
    EXPECT_EQ(0u, MoxState::GetInstance()->ObserverCount());
    EXPECT_EQ(0u, HbLTimerMng::GetTimerMng()->ActiveCount());
    // The expiry that was due never comes: the state stays where connect put it.
    HbLTimerManualClock::GetInstance()->Advance(10000);
    EXPECT_EQ(101u, MoxState::GetInstance()->getResultState());
}

// --- Commands to the phone -------------------------------------------------------

TEST_F(MoxProtocolTest, SendCmdConnect_Android_SendsThreeBytesAfterStateAndTimer) {
    protocol->sendCmdConnect();
    EXPECT_EQ(std::vector<Bytes>({kConnect}), recorder->frames());
    EXPECT_EQ(std::vector<uint32>({0}), recorder->frameIds());
    EXPECT_EQ(Texts({"state 101", "frame 00 01 01"}), recorder->events());
    EXPECT_EQ(std::vector<size_t>({1}), recorder->armedAtFrame());
    EXPECT_EQ(1u, armed());
}

TEST_F(MoxProtocolTest, SendCmdConnect_IosLinkAlreadyConnected_SendsNothingAndOnlyRaisesLinkFlag) {
    state->setOsType(OstLinkAppState::en_OS_TYPE_IOS);
    state->setIosConnect(true);
    state->setResultState(MoxState::en_RESULT_CONNECTED);
    recorder->clear();
    protocol->sendCmdConnect();
    EXPECT_TRUE(recorder->frames().empty());
    EXPECT_EQ(Texts({"link 1"}), recorder->events());
    EXPECT_EQ(102u, state->getResultState());
    EXPECT_TRUE(state->getIsAppLinkState());
    EXPECT_EQ(0u, armed());
}

TEST_F(MoxProtocolTest, SendCmdConnect_IosLinkNotYetConnected_SendsTheConnect) {
    state->setOsType(OstLinkAppState::en_OS_TYPE_IOS);
    protocol->sendCmdConnect();
    EXPECT_EQ(Texts({"state 101", "frame 00 01 01"}), recorder->events());
}

TEST_F(MoxProtocolTest, SendCmdConnect_AndroidWithIosFlagSet_SendsTheConnect) {
    state->setIosConnect(true);
    recorder->clear();
    protocol->sendCmdConnect();
    EXPECT_EQ(Texts({"state 101", "frame 00 01 01"}), recorder->events());
}

TEST_F(MoxProtocolTest, SendCmdDisconnect_SendsTwoBytesThenClearsTheLinkFlag) {
    protocol->sendCmdConnect();
    feed(answer(0x8001));
    protocol->sendCmdConnect();  // timer armed again, state 101
    ASSERT_EQ(1u, armed());
    recorder->clear();
    protocol->sendCmdDisconnect();
    EXPECT_EQ(Texts({"state 100", "frame 00 02", "link 0"}), recorder->events());
    EXPECT_EQ(std::vector<size_t>({0}), recorder->armedAtFrame());
    EXPECT_EQ(0u, armed());
    EXPECT_FALSE(state->getIsAppLinkState());
}

TEST_F(MoxProtocolTest, SendCmdDisconnect_WhileIdle_SendsTheFrameWithoutStateChange) {
    protocol->sendCmdDisconnect();
    EXPECT_EQ(Texts({"frame 00 02"}), recorder->events());
}

TEST_F(MoxProtocolTest, SendCmdGetCdMetaInfo_SendsSixBytesWithParameter1000) {
    protocol->sendCmdGetCdMetaInfo();
    EXPECT_EQ(std::vector<Bytes>({kGetCdMetaInfo}), recorder->frames());
    EXPECT_EQ(Texts({"state 103", "frame 00 12 00 00 03 e8"}), recorder->events());
    EXPECT_EQ(std::vector<size_t>({1}), recorder->armedAtFrame());
}

TEST_F(MoxProtocolTest, SendCmdCancel_SendsTwoBytesCancellingWithTimerArmed) {
    protocol->sendCmdCancel();
    EXPECT_EQ(std::vector<Bytes>({kCancel}), recorder->frames());
    EXPECT_EQ(Texts({"state 104", "frame 0f ff"}), recorder->events());
    EXPECT_EQ(std::vector<size_t>({1}), recorder->armedAtFrame());
}

TEST_F(MoxProtocolTest, SendCmdEchoRequest_SendsExactly7FFFAndChangesNoState) {
    protocol->sendCmdEchoRequest();
    EXPECT_EQ(std::vector<Bytes>({kEcho}), recorder->frames());
    EXPECT_EQ(std::vector<uint32>({0}), recorder->frameIds());
    EXPECT_TRUE(recorder->states().empty());
    EXPECT_EQ(100u, state->getResultState());
    EXPECT_EQ(0u, armed());
}

TEST_F(MoxProtocolTest, SendCmdEchoRequest_WhileTimerArmed_LeavesTheTimerRunning) {
    protocol->sendCmdConnect();
    advance(6000);
    recorder->clear();
    protocol->sendCmdEchoRequest();
    EXPECT_EQ(Texts({"frame 7f ff"}), recorder->events());
    advance(4000);  // the connect's original deadline
    EXPECT_EQ(Texts({"frame 7f ff", "state 20"}), recorder->events());
}

TEST_F(MoxProtocolTest, SendCmdNotifyRunningState_DoesNothing) {
    protocol->sendCmdNotifyRunningState(1);
    protocol->sendCmdNotifyRunningState(0);
    EXPECT_TRUE(recorder->events().empty());
    EXPECT_TRUE(dbg.texts().empty());
}

TEST_F(MoxProtocolTest, IsLogvCmd_AnyFrame_ReturnsFalse) {
    Bytes frame = answer(0x8001);
    EXPECT_FALSE(protocol->isLogvCmd(frame.data(), static_cast<unsigned int>(frame.size())));
    EXPECT_FALSE(protocol->isLogvCmd(nullptr, 0));
    EXPECT_TRUE(recorder->events().empty());
}

TEST_F(MoxProtocolTest, LinkLayerInterface_CallsThroughTheBase_ReachTheProtocol) {
    OstLinkAppProtocol* link = protocol;
    link->sendCmdConnect();
    Bytes frame = answer(0x8001);
    link->analysisProtocolCmd(frame.data(), static_cast<unsigned int>(frame.size()));
    link->sendCmdDisconnect();
    EXPECT_EQ(Texts({"state 101", "frame 00 01 01", "state 102", "link 1", "ios 1", "state 100",
                     "frame 00 02", "link 0"}),
              recorder->events());
}

// --- TOC lookup request --------------------------------------------------------------

TEST_F(MoxProtocolTest, SendCmdEventCdTocLookup_EmptyToc_Sends159ByteFrame) {
    HbSMoxDef::SearchInfo info;
    info.lookupKind = 0;
    info.lookupParam1 = 0;
    info.lookupParam2 = 0;
    info.toc = "";
    protocol->sendCmdEventCdTocLookup(info);
    ASSERT_EQ(1u, recorder->frames().size());
    const Bytes frame = recorder->frames()[0];
    EXPECT_EQ(159u, frame.size());
    EXPECT_EQ(110u, kXmlHead.size());
    EXPECT_EQ(40u, kXmlTail.size());
    Bytes expected = {0x00, 0x10, 0, 0, 0, 0, 0, 0};
    const std::string joined = kXmlHead + kXmlTail;
    expected.insert(expected.end(), joined.begin(), joined.end());
    expected.push_back(0x00);
    EXPECT_EQ(expected, frame);
}

TEST_F(MoxProtocolTest, SendCmdEventCdTocLookup_ThreeTrackToc_SendsTheWholeDocumentExactly) {
    startLookup();
    const std::string document =
        "<DbUpdateRequest>\n\t<DatabaseInfo>\n\t\t<DatabaseKind>73QRVB</DatabaseKind>\n\t"
        "</DatabaseInfo>\n\t<TOCRequest>\n\t\t<TOC>0000960046E6008D3600D386</TOC>\n\t"
        "</TOCRequest>\n</DbUpdateRequest>";
    Bytes expected = {0x00, 0x10, 0x01, 0x00, 0x00, 0x02, 0x00, 0x03};
    expected.insert(expected.end(), document.begin(), document.end());
    expected.push_back(0x00);
    ASSERT_EQ(1u, recorder->frames().size());
    EXPECT_EQ(expected, recorder->frames()[0]);
    EXPECT_EQ(8u + 150u + 24u + 1u, recorder->frames()[0].size());
    EXPECT_EQ(lookupFrame(kToc, 0x01, 0x0002, 0x0003), recorder->frames()[0]);
}

TEST_F(MoxProtocolTest, SendCmdEventCdTocLookup_TocWithLessThanAndAmpersand_IsSentUnchanged) {
    const std::string toc = "A<B&C>&amp;\"'";
    startLookup(toc);
    ASSERT_EQ(1u, recorder->frames().size());
    const Bytes frame = recorder->frames()[0];
    EXPECT_EQ(lookupFrame(toc, 0x01, 0x0002, 0x0003), frame);
    const std::string sent(frame.begin() + 8, frame.end() - 1);
    EXPECT_NE(std::string::npos, sent.find("<TOC>A<B&C>&amp;\"'</TOC>"));
}

TEST_F(MoxProtocolTest, SendCmdEventCdTocLookup_AnyToc_EndsWithOneCountedZeroByte) {
    for (const std::string& toc : {std::string(), std::string("X"), kToc, std::string(1000, 'F')}) {
        SCOPED_TRACE(toc.size());
        recorder->clear();
        startLookup(toc);
        ASSERT_EQ(1u, recorder->frames().size());
        const Bytes frame = recorder->frames()[0];
        EXPECT_EQ(toc.size() + 159u, frame.size());
        EXPECT_EQ(0x00, frame.back());
        EXPECT_EQ('>', frame[frame.size() - 2]);
    }
}

TEST_F(MoxProtocolTest, SendCmdEventCdTocLookup_LookupParameters_GiveBytesTwoToSeven) {
    HbSMoxDef::SearchInfo info;
    info.lookupKind = 0x12;
    info.lookupParam1 = 0x0304;
    info.lookupParam2 = 0x0506;
    info.toc = kToc;
    protocol->sendCmdEventCdTocLookup(info);
    ASSERT_EQ(1u, recorder->frames().size());
    const Bytes frame = recorder->frames()[0];
    EXPECT_EQ(Bytes({0x00, 0x10, 0x12, 0x00, 0x03, 0x04, 0x05, 0x06}),
              Bytes(frame.begin(), frame.begin() + 8));
    EXPECT_EQ(0x12, info.lookupKind);  // the request itself is not changed
    EXPECT_EQ(kToc, info.toc);
}

TEST_F(MoxProtocolTest,
       SendCmdEventCdTocLookup_Normally_EmptiesFileThenSearchingThenTimerThenFrame) {
    TestDir::writeFile(HbFileSysHost::getResultFilePath(), text("old answer"));
    std::vector<bool> emptyAtFrame;
    recorder->onFrameHook = [&emptyAtFrame](const Bytes&) {
        emptyAtFrame.push_back(resultFileExists() && resultFile().empty());
    };
    startLookup();
    EXPECT_EQ(std::vector<bool>({true}), emptyAtFrame);
    EXPECT_EQ(States({103}), recorder->states());
    EXPECT_EQ(std::vector<size_t>({1}), recorder->armedAtFrame());
    EXPECT_TRUE(dbg.texts().empty());
}

TEST_F(MoxProtocolTest, SendCmdEventCdTocLookup_MissingDirectory_IsCreated) {
    TestDir::removeTree(resultDir());
    startLookup();
    EXPECT_TRUE(resultFileExists());
    EXPECT_TRUE(resultFile().empty());
    EXPECT_EQ(1u, recorder->frames().size());
}

TEST_F(MoxProtocolTest, SendCmdEventCdTocLookup_ResultPathIsADirectory_LogsErrorSendsNothing) {
    plantDirectoryInPlaceOfResultFile();
    startLookup();
    EXPECT_EQ(Texts({"search result file open error.\n", "clear file error\n"}), dbg.texts());
    EXPECT_EQ(Texts({"search result file open error.\n"}), dbg.textsOf("clearSearchResultFile"));
    EXPECT_EQ(Texts({"clear file error\n"}), dbg.textsOf("sendCmdEventCdTocLookup"));
    EXPECT_EQ(Texts({"state 20"}), recorder->events());
    EXPECT_EQ(0u, armed());
}

TEST_F(MoxProtocolTest, SendCmdEventCdTocLookup_DirectoryCannotBeCreated_LogsErrorSendsNothing) {
    plantFileInPlaceOfResultDir();
    startLookup();
    EXPECT_EQ(Texts({"create directory error.\n", "clear file error\n"}), dbg.texts());
    EXPECT_EQ(Texts({"state 20"}), recorder->events());
    EXPECT_EQ(0u, armed());
}

TEST_F(MoxProtocolTest, SendCmdEventCdTocLookup_CannotClearWhileTimerArmed_LeavesTheTimerAlone) {
    protocol->sendCmdConnect();
    plantDirectoryInPlaceOfResultFile();
    recorder->clear();
    startLookup();
    EXPECT_EQ(Texts({"state 20"}), recorder->events());
    EXPECT_EQ(1u, armed());  // the connect's wait still runs; its expiry changes nothing in 20
    advance(10000);
    EXPECT_EQ(Texts({"state 20"}), recorder->events());
}

TEST_F(MoxProtocolTest,
       SendCmdEventCdTocLookup_SecondRequestDuringFirst_EmptiesFileAndCountsFromZero) {
    startTransfer();
    feed(chunk(0, 3, text("first-")));
    feed(chunk(1, 3, text("second-")));
    ASSERT_EQ(text("first-second-"), resultFile());
    std::vector<size_t> sizeAtFrame;
    recorder->onFrameHook = [&sizeAtFrame](const Bytes&) {
        sizeAtFrame.push_back(resultFile().size());
    };
    startLookup();
    EXPECT_EQ(std::vector<size_t>({0}), sizeAtFrame);
    recorder->onFrameHook = nullptr;
    feed(answer(0x8010));
    feed(notice(4));
    feed(chunk(0, 1, text("new!")));  // index 0 is the one expected again
    EXPECT_TRUE(dbg.texts().empty());
    EXPECT_EQ(text("new!"), resultFile());
    EXPECT_EQ(0u, state->getResultState());
}

TEST_F(MoxProtocolTest, SendCmdEventCdTocLookup_FromAnyState_SetsSearching) {
    state->setResultState(5);
    recorder->clear();
    startLookup();
    EXPECT_EQ(States({103}), recorder->states());
}

// --- Received frames ------------------------------------------------------------------

TEST_F(MoxProtocolTest, Analysis_ConnectAnswer_StopsTimerConnectedLinkUpIosFlagSet) {
    protocol->sendCmdConnect();
    recorder->clear();
    feed(answer(0x8001));
    EXPECT_EQ(Texts({"state 102", "link 1", "ios 1"}), recorder->events());
    EXPECT_EQ(0u, armed());
    EXPECT_TRUE(state->getIsAppLinkState());
    EXPECT_TRUE(state->getIosConnect());
}

TEST_F(MoxProtocolTest, Analysis_LookupAccepted_RestartsAFreshWait) {
    startLookup();
    advance(5000);
    recorder->clear();
    feed(answer(0x8010));
    EXPECT_TRUE(recorder->events().empty());  // already 103: nobody is told
    advance(9999);
    EXPECT_TRUE(recorder->events().empty());
    advance(1);
    EXPECT_EQ(Texts({"state 4", "state 104", "frame 0f ff"}), recorder->events());
}

TEST_F(MoxProtocolTest, Analysis_LookupAcceptedWhileSearching_NotifiesNobody) {
    startLookup();
    recorder->clear();
    feed(answer(0x8010));
    EXPECT_TRUE(recorder->events().empty());
    EXPECT_EQ(103u, state->getResultState());
    EXPECT_EQ(1u, armed());
}

TEST_F(MoxProtocolTest, Analysis_LookupAcceptedWhileIdle_SetsSearchingAndArmsTimer) {
    feed(answer(0x8010));
    EXPECT_EQ(Texts({"state 103"}), recorder->events());
    EXPECT_EQ(1u, armed());
}

TEST_F(MoxProtocolTest, Analysis_NotifyCdTocLookup_SendsGetCdMetaInfo) {
    startLookup();
    feed(answer(0x8010));
    recorder->clear();
    feed(notice(12345));
    EXPECT_EQ(Texts({"frame 00 12 00 00 03 e8"}), recorder->events());
    EXPECT_EQ(std::vector<size_t>({1}), recorder->armedAtFrame());
    EXPECT_TRUE(dbg.texts().empty());
}

TEST_F(MoxProtocolTest, Analysis_NotifyCdTocLookupLongerThan12_IsAccepted) {
    startLookup();
    recorder->clear();
    Bytes frame = notice(1);
    frame.push_back(0xAB);
    feed(frame);
    EXPECT_EQ(std::vector<Bytes>({kGetCdMetaInfo}), recorder->frames());
}

TEST_F(MoxProtocolTest, Analysis_NotifyCdTocLookupOf11Bytes_SizeErrorThenCancel) {
    startLookup();
    recorder->clear();
    Bytes frame = notice(100);
    frame.pop_back();
    feed(frame);
    EXPECT_EQ(Texts({"size error\n"}), dbg.texts());
    EXPECT_EQ(Texts({"size error\n"}), dbg.textsOf("rcvCmdNotifyCdTocLookup"));
    EXPECT_EQ(Texts({"state 20", "state 104", "frame 0f ff"}), recorder->events());
}

TEST_F(MoxProtocolTest, Analysis_NotifyCdTocLookupHeaderOnly_SizeErrorThenCancel) {
    startLookup();
    recorder->clear();
    feed(answer(0x8011));
    EXPECT_EQ(Texts({"size error\n"}), dbg.texts());
    EXPECT_EQ(Texts({"state 20", "state 104", "frame 0f ff"}), recorder->events());
}

TEST_F(MoxProtocolTest, Analysis_CancelAnswer_IdleAndTimerStopped) {
    protocol->sendCmdCancel();
    recorder->clear();
    feed(answer(0x8FFF));
    EXPECT_EQ(Texts({"state 100"}), recorder->events());
    EXPECT_EQ(0u, armed());
}

TEST_F(MoxProtocolTest, Analysis_EchoAnswer_ProducesNoMessageAndNoChange) {
    protocol->sendCmdConnect();
    recorder->clear();
    feed(answer(0xFFFF));
    EXPECT_TRUE(dbg.texts().empty());
    EXPECT_TRUE(recorder->events().empty());
    EXPECT_EQ(101u, state->getResultState());
    EXPECT_EQ(1u, armed());
}

TEST_F(MoxProtocolTest, Analysis_UnknownCommand1234_LogsFourLowerCaseHexDigits) {
    feed(answer(0x1234));
    EXPECT_EQ(Texts({"receive unknown cmdID=0x1234\n"}), dbg.texts());
    EXPECT_TRUE(recorder->events().empty());
}

TEST_F(MoxProtocolTest, Analysis_UnknownCommandABCD_LogsLowerCase) {
    feed(answer(0xABCD));
    EXPECT_EQ(Texts({"receive unknown cmdID=0xabcd\n"}), dbg.texts());
}

TEST_F(MoxProtocolTest, Analysis_UnknownCommand_IsLoggedWithSourceFunctionAndErrorTag) {
    feed(answer(0x0001));
    const std::vector<HbDbgRecord> records = dbg.records();
    ASSERT_EQ(1u, records.size());
    EXPECT_EQ("private/MoxProtocol.cpp", records[0].file);
    EXPECT_EQ("analysisProtocolCmd", records[0].function);
    EXPECT_EQ(1, records[0].tag);
    EXPECT_GT(records[0].line, 0);
    EXPECT_EQ("receive unknown cmdID=0x0001\n", records[0].text);
}

TEST_F(MoxProtocolTest, Analysis_UnknownCommandWhileSearching_ChangesNeitherStateNorTimer) {
    startLookup();
    advance(4000);
    recorder->clear();
    feed(answer(0x0012));
    EXPECT_EQ(Texts({"receive unknown cmdID=0x0012\n"}), dbg.texts());
    EXPECT_TRUE(recorder->events().empty());
    advance(6000);  // the lookup's own deadline is unchanged
    EXPECT_EQ(Texts({"state 4", "state 104", "frame 0f ff"}), recorder->events());
}

TEST_F(MoxProtocolTest, Analysis_FrameOfOneByte_IsCommandZero) {
    feed({0x80});
    EXPECT_EQ(Texts({"receive unknown cmdID=0x0000\n"}), dbg.texts());
    EXPECT_TRUE(recorder->events().empty());
}

TEST_F(MoxProtocolTest, Analysis_EmptyAndNullFrame_AreCommandZero) {
    feed({});
    protocol->analysisProtocolCmd(nullptr, 0);
    protocol->analysisProtocolCmd(nullptr, 8);
    EXPECT_EQ(Texts({"receive unknown cmdID=0x0000\n", "receive unknown cmdID=0x0000\n",
                     "receive unknown cmdID=0x0000\n"}),
              dbg.texts());
}

TEST_F(MoxProtocolTest, Analysis_ConnectAnswerOfTwoBytes_IsAccepted) {
    feed({0x80, 0x01});
    EXPECT_EQ(Texts({"state 102", "link 1", "ios 1"}), recorder->events());
}

TEST_F(MoxProtocolTest, Analysis_Status103_EndsCancellingWithCancelFrame) {
    feed(answer(0x8010, 103));
    EXPECT_EQ(Texts({"state 103", "state 104", "frame 0f ff"}), recorder->events());
    EXPECT_EQ(104u, state->getResultState());
    EXPECT_EQ(1u, armed());
    EXPECT_TRUE(dbg.texts().empty());
}

TEST_F(MoxProtocolTest, Analysis_Status5_LeavesState5AndSendsNothing) {
    startLookup();
    recorder->clear();
    feed(answer(0x8010, 5));
    EXPECT_EQ(Texts({"state 5"}), recorder->events());
    EXPECT_EQ(5u, state->getResultState());
    EXPECT_TRUE(dbg.texts().empty());
    // The armed wait is left running; its expiry changes nothing in state 5.
    EXPECT_EQ(1u, armed());
    advance(10000);
    EXPECT_EQ(Texts({"state 5"}), recorder->events());
}

TEST_F(MoxProtocolTest, Analysis_FailureStatus_IgnoresTheCommand) {
    startTransfer();
    Bytes frame = chunk(0, 1, text("payload"));
    frame[3] = 7;  // status 7
    feed(frame);
    EXPECT_EQ(Texts({"state 7"}), recorder->events());
    EXPECT_TRUE(resultFile().empty());
    feed(answer(0x1234, 9));  // an unknown command with a status is not reported as unknown
    EXPECT_TRUE(dbg.texts().empty());
    EXPECT_EQ(9u, state->getResultState());
}

TEST_F(MoxProtocolTest, Analysis_FailureStatusEqualToCurrentState_NotifiesNothingNew) {
    startLookup();
    recorder->clear();
    feed(answer(0x8012, 103));  // 103 is already the state: only the cancel is seen
    EXPECT_EQ(Texts({"state 104", "frame 0f ff"}), recorder->events());
}

// --- Database chunks ----------------------------------------------------------------

TEST_F(MoxProtocolTest, Chunk_SingleChunk_StoredCompleteTimerStopped) {
    startTransfer();
    feed(chunk(0, 1, text("whole database")));
    EXPECT_EQ(text("whole database"), resultFile());
    EXPECT_EQ(Texts({"state 0"}), recorder->events());
    EXPECT_EQ(0u, armed());
    EXPECT_TRUE(dbg.texts().empty());
    advance(10000);
    EXPECT_EQ(0u, state->getResultState());
}

TEST_F(MoxProtocolTest, Chunk_ThreeChunks_SearchingAfterTwoThenCompleteWithPayloadsJoined) {
    startTransfer();
    const Bytes first = {0x01, 0x02, 0x03};
    const Bytes second = {0x00, 0xFF};
    const Bytes third = {0x7F, 0x80, 0x81, 0x82};
    feed(chunk(0, 3, first));
    EXPECT_EQ(103u, state->getResultState());
    EXPECT_EQ(1u, armed());
    feed(chunk(1, 3, second));
    EXPECT_EQ(103u, state->getResultState());
    EXPECT_EQ(1u, armed());
    feed(chunk(2, 3, third));
    EXPECT_EQ(Texts({"state 0"}), recorder->events());
    EXPECT_EQ(Bytes({0x01, 0x02, 0x03, 0x00, 0xFF, 0x7F, 0x80, 0x81, 0x82}), resultFile());
    EXPECT_EQ(0u, armed());
}

TEST_F(MoxProtocolTest, Chunk_EachAcceptedChunk_GivesAFreshWait) {
    startTransfer();
    advance(9000);
    feed(chunk(0, 2, text("a")));
    advance(9999);
    EXPECT_EQ(103u, state->getResultState());
    advance(1);
    EXPECT_EQ(Texts({"state 4", "state 104", "frame 0f ff"}), recorder->events());
}

// What the module trusts its phone with, kept as the contract has it: a
// chunk whose index is the expected one is taken in any state. (Before any
// lookup means in a fresh process: the expected index outlives a lookup.)
TEST_F(MoxProtocolTest, Chunk_BeforeAnyLookupInAFreshProcess_TheExpectedIndexCompletesAnAnswer) {
    feed(chunk(0, 1, text("unasked")));
    EXPECT_EQ(text("unasked"), resultFile());
    EXPECT_EQ(Texts({"state 0"}), recorder->events());
    EXPECT_TRUE(dbg.texts().empty());
}

TEST_F(MoxProtocolTest, Chunk_LateAfterAnErrorWithTheExpectedIndex_CompletesTheAnswer) {
    startTransfer();
    feed(chunk(1, 2, text("early")));
    EXPECT_EQ(Texts({"state 20", "state 104", "frame 0f ff"}), recorder->events());
    recorder->clear();
    feed(chunk(0, 1, text("late")));
    EXPECT_EQ(text("late"), resultFile());
    EXPECT_EQ(Texts({"state 0"}), recorder->events());
    EXPECT_EQ(0u, armed());
}

// Each chunk gives a fresh wait: a phone that sends the most chunks a frame
// can count (65,535), each just before the wait runs out, keeps the lookup
// in 103 for 65,535 periods, and the answer still completes.
TEST_F(MoxProtocolTest, Chunk_65535ChunksEachJustInTime_KeepTheLookupSearchingThenComplete) {
    startTransfer();
    const uint16 count = 65535;
    const Bytes empty;
    for (uint32 index = 0; index + 1 < count; ++index) {
        advance(9999);
        feed(chunk(static_cast<uint16>(index), count, empty));
        ASSERT_EQ(103u, state->getResultState()) << "after chunk " << index;
    }
    advance(9999);
    feed(chunk(static_cast<uint16>(count - 1), count, text("end")));
    EXPECT_EQ(0u, state->getResultState());
    EXPECT_EQ(text("end"), resultFile());
    EXPECT_TRUE(dbg.texts().empty());
}

TEST_F(MoxProtocolTest, Chunk_Index1WhenExpecting0_IndexErrorAndFileStaysEmpty) {
    startTransfer();
    feed(chunk(1, 3, text("second")));
    EXPECT_EQ(Texts({"index error.\n"}), dbg.texts());
    EXPECT_EQ(Texts({"index error.\n"}), dbg.textsOf("rcvCmdReturnCdMetaInfo"));
    EXPECT_EQ(Texts({"state 20", "state 104", "frame 0f ff"}), recorder->events());
    EXPECT_TRUE(resultFileExists());
    EXPECT_TRUE(resultFile().empty());
}

TEST_F(MoxProtocolTest, Chunk_GapAfterFirstChunk_IndexErrorFileKeepsTheFirst) {
    startTransfer();
    feed(chunk(0, 3, text("first")));
    recorder->clear();
    feed(chunk(2, 3, text("third")));
    EXPECT_EQ(Texts({"index error.\n"}), dbg.texts());
    EXPECT_EQ(Texts({"state 20", "state 104", "frame 0f ff"}), recorder->events());
    EXPECT_EQ(text("first"), resultFile());
}

TEST_F(MoxProtocolTest, Chunk_RepeatedChunk_IndexErrorFileUnchanged) {
    startTransfer();
    feed(chunk(0, 3, text("first")));
    recorder->clear();
    feed(chunk(0, 3, text("first")));
    EXPECT_EQ(Texts({"index error.\n"}), dbg.texts());
    EXPECT_EQ(text("first"), resultFile());
}

TEST_F(MoxProtocolTest, Chunk_CountZero_IsAppendedThenRejectedWithIndexError) {
    startTransfer();
    feed(chunk(0, 0, text("stored anyway")));
    EXPECT_EQ(Texts({"index error.\n"}), dbg.texts());
    EXPECT_EQ(Texts({"state 20", "state 104", "frame 0f ff"}), recorder->events());
    EXPECT_EQ(text("stored anyway"), resultFile());
}

TEST_F(MoxProtocolTest, Chunk_IndexBeyondCount_IsAppendedAndCountedThenRejected) {
    startTransfer();
    feed(chunk(0, 1, text("a")));
    ASSERT_EQ(0u, state->getResultState());
    recorder->clear();
    // The first chunk was counted, so index 1 is the expected one; the count
    // of 1 makes it one too many.
    feed(chunk(1, 1, text("b")));
    EXPECT_EQ(Texts({"index error.\n"}), dbg.texts());
    EXPECT_EQ(Texts({"state 20", "state 104", "frame 0f ff"}), recorder->events());
    EXPECT_EQ(text("ab"), resultFile());
}

TEST_F(MoxProtocolTest, Chunk_TwelveBytesWithLengthZero_AppendsNothingAndCountsAsAChunk) {
    startTransfer();
    const Bytes empty = chunk(0, 2, {});
    ASSERT_EQ(12u, empty.size());
    feed(empty);
    EXPECT_TRUE(dbg.texts().empty());
    EXPECT_TRUE(resultFile().empty());
    EXPECT_EQ(103u, state->getResultState());
    feed(chunk(1, 2, text("tail")));  // index 1 is now the expected one
    EXPECT_TRUE(dbg.texts().empty());
    EXPECT_EQ(text("tail"), resultFile());
    EXPECT_EQ(Texts({"state 0"}), recorder->events());
}

TEST_F(MoxProtocolTest, Chunk_OnlyEmptyChunk_CompletesWithAnEmptyFile) {
    startTransfer();
    feed(chunk(0, 1, {}));
    EXPECT_EQ(Texts({"state 0"}), recorder->events());
    EXPECT_TRUE(resultFileExists());
    EXPECT_TRUE(resultFile().empty());
}

TEST_F(MoxProtocolTest, Chunk_NewRequestAfterCompletedOne_TruncatesFileBeforeSending) {
    startTransfer();
    feed(chunk(0, 1, text("completed answer")));
    ASSERT_EQ(0u, state->getResultState());
    std::vector<size_t> sizeAtFrame;
    recorder->onFrameHook = [&sizeAtFrame](const Bytes&) {
        sizeAtFrame.push_back(resultFile().size());
    };
    recorder->clear();
    startLookup();
    EXPECT_EQ(std::vector<size_t>({0}), sizeAtFrame);
    EXPECT_EQ(Texts({"state 103", "frame " + hex(lookupFrame(kToc, 1, 2, 3))}), recorder->events());
}

TEST_F(MoxProtocolTest, Chunk_ElevenBytes_SizeErrorThenCancelFileUnchanged) {
    startTransfer();
    feed(chunk(0, 2, text("kept")));
    recorder->clear();
    Bytes frame = chunk(1, 2, {});
    frame.pop_back();
    feed(frame);
    EXPECT_EQ(Texts({"size error\n"}), dbg.texts());
    EXPECT_EQ(Texts({"size error\n"}), dbg.textsOf("rcvCmdReturnCdMetaInfo"));
    EXPECT_EQ(Texts({"state 20", "state 104", "frame 0f ff"}), recorder->events());
    EXPECT_EQ(text("kept"), resultFile());
}

TEST_F(MoxProtocolTest, Chunk_HeaderOnly_SizeError) {
    startTransfer();
    feed(answer(0x8012, 0, 0, 1));
    EXPECT_EQ(Texts({"size error\n"}), dbg.texts());
    EXPECT_EQ(Texts({"state 20", "state 104", "frame 0f ff"}), recorder->events());
}

TEST_F(MoxProtocolTest, RcvCmdReturnCdMetaInfo_NullFrame_SizeError) {
    startTransfer();
    protocol->rcvCmdReturnCdMetaInfo(nullptr, 20);
    EXPECT_EQ(Texts({"size error\n"}), dbg.texts());
    EXPECT_EQ(Texts({"state 20", "state 104", "frame 0f ff"}), recorder->events());
}

// The length check is one-sided as far as the phone's format goes: a declared
// length below the carried bytes is an error, equal is the normal case.
TEST_F(MoxProtocolTest, Chunk_DeclaredLengthBelowCarriedBytes_SizeErrorFileUnchanged) {
    startTransfer();
    feed(chunk(0, 1, 3, text("four")));
    EXPECT_EQ(Texts({"size error\n"}), dbg.texts());
    EXPECT_EQ(Texts({"state 20", "state 104", "frame 0f ff"}), recorder->events());
    EXPECT_TRUE(resultFile().empty());
}

TEST_F(MoxProtocolTest, Chunk_DeclaredLengthEqualToCarriedBytes_IsStored) {
    startTransfer();
    feed(chunk(0, 1, 4, text("four")));
    EXPECT_TRUE(dbg.texts().empty());
    EXPECT_EQ(text("four"), resultFile());
}

// A chunk that declares more bytes than it carries has lost data on the way:
// nothing of it is stored (no read past the frame) and the lookup is given up
// like for any size error.
TEST_F(MoxProtocolTest, Chunk_DeclaredLengthAboveCarriedBytes_SizeErrorNothingAppended) {
    startTransfer();
    feed(chunk(0, 3, text("first")));
    recorder->clear();
    feed(chunk(1, 3, 5, text("sec")));
    EXPECT_EQ(Texts({"size error\n"}), dbg.texts());
    EXPECT_EQ(Texts({"state 20", "state 104", "frame 0f ff"}), recorder->events());
    EXPECT_EQ(text("first"), resultFile());
}

TEST_F(MoxProtocolTest, Chunk_HugeDeclaredLength_SizeErrorNothingRead) {
    startTransfer();
    feed(chunk(0, 1, 0xFFFFFFFFu, text("x")));
    EXPECT_EQ(Texts({"size error\n"}), dbg.texts());
    EXPECT_TRUE(resultFile().empty());
}

TEST_F(MoxProtocolTest, Chunk_ResultPathIsADirectory_OpenErrorThenErrorAndCancel) {
    startTransfer();
    plantDirectoryInPlaceOfResultFile();
    feed(chunk(0, 1, text("lost")));
    EXPECT_EQ(Texts({"search result file open error.\n"}), dbg.texts());
    EXPECT_EQ(Texts({"search result file open error.\n"}), dbg.textsOf("writeSearchResultFile"));
    EXPECT_EQ(Texts({"state 20", "state 104", "frame 0f ff"}), recorder->events());
}

TEST_F(MoxProtocolTest, Chunk_DirectoryCannotBeCreated_CreateErrorThenErrorAndCancel) {
    startTransfer();
    plantFileInPlaceOfResultDir();
    feed(chunk(0, 1, text("lost")));
    EXPECT_EQ(Texts({"create directory error.\n"}), dbg.texts());
    EXPECT_EQ(Texts({"state 20", "state 104", "frame 0f ff"}), recorder->events());
}

TEST_F(MoxProtocolTest, Chunk_FailedWrite_DoesNotCountTheChunk) {
    startTransfer();
    plantDirectoryInPlaceOfResultFile();
    feed(chunk(0, 2, text("lost")));
    resetResultPlace();
    dbg.clear();
    // The cancel is under way; a late chunk 1 is still refused by its index.
    feed(chunk(1, 2, text("late")));
    EXPECT_EQ(Texts({"index error.\n"}), dbg.texts());
}

// A phone must not fill the head unit's storage: the chunk that would grow the
// file past the limit is refused whole and ends the answer like a bad chunk.
TEST_F(MoxProtocolTest, Chunk_PastFileSizeLimit_SizeLimitErrorThenCancelFileHoldsTheLimit) {
    const uint32 limit = MoxLimits::RESULT_FILE_MAX;
    startTransfer();
    feed(chunk(0, 3, Bytes(limit - 10, 0x11)));
    feed(chunk(1, 3, Bytes(10, 0x22)));  // up to the limit exactly: stored
    ASSERT_TRUE(dbg.texts().empty());
    ASSERT_EQ(103u, state->getResultState());
    recorder->clear();
    feed(chunk(2, 3, Bytes(1, 0x33)));
    const std::string message =
        "search result file size limit (" + std::to_string(limit) + ") reached.\n";
    EXPECT_EQ(Texts({message}), dbg.texts());
    EXPECT_EQ(Texts({message}), dbg.textsOf("writeSearchResultFile"));
    EXPECT_EQ(Texts({"state 20", "state 104", "frame 0f ff"}), recorder->events());
    Bytes expected(limit - 10, 0x11);
    expected.insert(expected.end(), 10, 0x22);
    EXPECT_EQ(expected, resultFile());
}

TEST_F(MoxProtocolTest, Chunk_LargerThanFileSizeLimit_NothingStoredAndNotCounted) {
    startTransfer();
    feed(chunk(0, 2, Bytes(MoxLimits::RESULT_FILE_MAX + 1u, 0x44)));
    EXPECT_EQ(Texts({"search result file size limit (" +
                     std::to_string(MoxLimits::RESULT_FILE_MAX) + ") reached.\n"}),
              dbg.texts());
    EXPECT_EQ(Texts({"state 20", "state 104", "frame 0f ff"}), recorder->events());
    EXPECT_TRUE(resultFileExists());
    EXPECT_TRUE(resultFile().empty());
    dbg.clear();
    feed(chunk(1, 2, text("late")));  // the refused chunk was not counted
    EXPECT_EQ(Texts({"index error.\n"}), dbg.texts());
    EXPECT_TRUE(resultFile().empty());
}

// The largest answer the limit allows arrives like any other.
TEST_F(MoxProtocolTest, Chunk_AnswerOfExactlyTheFileSizeLimit_IsComplete) {
    startTransfer();
    feed(chunk(0, 1, Bytes(MoxLimits::RESULT_FILE_MAX, 0x55)));
    EXPECT_TRUE(dbg.texts().empty());
    EXPECT_EQ(Texts({"state 0"}), recorder->events());
    EXPECT_EQ(MoxLimits::RESULT_FILE_MAX, resultFile().size());
}

// --- Result file ----------------------------------------------------------------------

TEST_F(MoxProtocolTest, WriteSearchResultFile_PastFileSizeLimit_WritesNothingReturnsFalse) {
    Bytes data(MoxLimits::RESULT_FILE_MAX, 0x66);
    ASSERT_TRUE(protocol->writeSearchResultFile(data.data(), MoxLimits::RESULT_FILE_MAX - 1u));
    EXPECT_FALSE(protocol->writeSearchResultFile(data.data(), 2));
    EXPECT_EQ(Texts({"search result file size limit (" +
                     std::to_string(MoxLimits::RESULT_FILE_MAX) + ") reached.\n"}),
              dbg.texts());
    EXPECT_TRUE(protocol->writeSearchResultFile(data.data(), 1));  // the last byte still fits
    EXPECT_EQ(data, resultFile());
}

TEST_F(MoxProtocolTest, WriteSearchResultFile_TwoWrites_AppendInOrder) {
    Bytes first = text("abc");
    Bytes second = {0x00, 0x0A, 0x0D, 0x1A};  // kept as they are: the file is binary
    EXPECT_TRUE(protocol->writeSearchResultFile(first.data(), 3));
    EXPECT_TRUE(protocol->writeSearchResultFile(second.data(), 4));
    EXPECT_EQ(Bytes({'a', 'b', 'c', 0x00, 0x0A, 0x0D, 0x1A}), resultFile());
}

TEST_F(MoxProtocolTest, WriteSearchResultFile_MissingDirectory_CreatesEveryMissingParent) {
    TestDir::removeTree(resultDir());
    const std::string parent = resultDir().substr(0, resultDir().rfind('/'));
    TestDir::removeTree(parent);
    Bytes data = text("x");
    EXPECT_TRUE(protocol->writeSearchResultFile(data.data(), 1));
    EXPECT_EQ(text("x"), resultFile());
}

TEST_F(MoxProtocolTest, WriteSearchResultFile_ZeroLength_CreatesTheFileAndSucceeds) {
    unsigned char byte = 0;
    EXPECT_TRUE(protocol->writeSearchResultFile(&byte, 0));
    EXPECT_TRUE(resultFileExists());
    EXPECT_TRUE(resultFile().empty());
}

TEST_F(MoxProtocolTest, WriteSearchResultFile_DirectoryCannotBeCreated_ReturnsFalse) {
    plantFileInPlaceOfResultDir();
    Bytes data = text("x");
    EXPECT_FALSE(protocol->writeSearchResultFile(data.data(), 1));
    EXPECT_EQ(Texts({"create directory error.\n"}), dbg.texts());
    EXPECT_EQ(Texts({"create directory error.\n"}), dbg.textsOf("ensureResultDirectory"));
}

TEST_F(MoxProtocolTest, WriteSearchResultFile_ResultPathIsADirectory_OpenErrorReturnsFalse) {
    plantDirectoryInPlaceOfResultFile();
    Bytes data = text("x");
    EXPECT_FALSE(protocol->writeSearchResultFile(data.data(), 1));
    EXPECT_EQ(Texts({"search result file open error.\n"}), dbg.texts());
}

// A write larger than the stream's buffer goes straight to the file and
// stops at the size limit: fewer bytes are written, the file is still closed.
TEST_F(MoxProtocolTest, WriteSearchResultFile_ShortWrite_WriteErrorReturnsFalse) {
    Bytes data(100000, 0x5A);
    bool written = true;
    {
        FileSizeLimit limit(1000);
        written =
            protocol->writeSearchResultFile(data.data(), static_cast<unsigned int>(data.size()));
    }
    EXPECT_FALSE(written);
    EXPECT_EQ(Texts({"search result file write error.\n"}), dbg.texts());
    EXPECT_EQ(Bytes(1000, 0x5A), resultFile());
}

// A small write is only buffered; it reaches the file when the stream is
// closed, and that is where the size limit makes it fail.
TEST_F(MoxProtocolTest, WriteSearchResultFile_FlushFailsOnClose_CloseErrorReturnsFalse) {
    Bytes data(2000, 0x33);
    bool written = true;
    {
        FileSizeLimit limit(1000);
        written =
            protocol->writeSearchResultFile(data.data(), static_cast<unsigned int>(data.size()));
    }
    EXPECT_FALSE(written);
    EXPECT_EQ(Texts({"search result file close error.\n"}), dbg.texts());
}

TEST_F(MoxProtocolTest, ClearSearchResultFile_ExistingContent_TruncatesToZero) {
    TestDir::writeFile(HbFileSysHost::getResultFilePath(), text("previous answer"));
    EXPECT_TRUE(protocol->clearSearchResultFile());
    EXPECT_TRUE(resultFileExists());
    EXPECT_TRUE(resultFile().empty());
    EXPECT_TRUE(dbg.texts().empty());
}

TEST_F(MoxProtocolTest, ClearSearchResultFile_NoFile_CreatesAnEmptyOne) {
    EXPECT_FALSE(resultFileExists());
    EXPECT_TRUE(protocol->clearSearchResultFile());
    EXPECT_TRUE(resultFileExists());
    EXPECT_TRUE(resultFile().empty());
}

TEST_F(MoxProtocolTest, ClearSearchResultFile_DirectoryCannotBeCreated_ReturnsFalse) {
    plantFileInPlaceOfResultDir();
    EXPECT_FALSE(protocol->clearSearchResultFile());
    EXPECT_EQ(Texts({"create directory error.\n"}), dbg.texts());
}

TEST_F(MoxProtocolTest, ClearSearchResultFile_ResultPathIsADirectory_OpenErrorReturnsFalse) {
    plantDirectoryInPlaceOfResultFile();
    EXPECT_FALSE(protocol->clearSearchResultFile());
    EXPECT_EQ(Texts({"search result file open error.\n"}), dbg.texts());
}

// --- Link loss --------------------------------------------------------------------------

TEST_F(MoxProtocolTest, LinkLoss_WhileIdle_NotifiesNothingNew) {
    state->notifyObserverAppState(OstLinkAppState::en_APP_STATE_LOST);
    EXPECT_EQ(Texts({"app 0"}), recorder->events());
    EXPECT_EQ(100u, state->getResultState());
}

TEST_F(MoxProtocolTest, LinkLoss_WhileConnected_Notifies20Then100) {
    protocol->sendCmdConnect();
    feed(answer(0x8001));
    recorder->clear();
    state->notifyObserverAppState(OstLinkAppState::en_APP_STATE_LOST);
    EXPECT_EQ(States({20, 100}), recorder->states());
}

TEST_F(MoxProtocolTest, LinkLoss_WhileComplete_SetsIdleWithOneNotification) {
    startTransfer();
    feed(chunk(0, 1, text("db")));
    recorder->clear();
    state->notifyObserverAppState(OstLinkAppState::en_APP_STATE_LOST);
    EXPECT_EQ(States({100}), recorder->states());
}

TEST_F(MoxProtocolTest, LinkLoss_WhileSearching_Notifies20Then100AndStopsTimer) {
    startLookup();
    recorder->clear();
    state->notifyObserverAppState(OstLinkAppState::en_APP_STATE_LOST);
    // The protocol registered first, so it reacts before the recorder sees the loss.
    EXPECT_EQ(Texts({"state 20", "state 100", "app 0"}), recorder->events());
    EXPECT_EQ(0u, armed());
    advance(10000);
    EXPECT_EQ(100u, state->getResultState());
}

TEST_F(MoxProtocolTest, LinkLoss_AppRunningOrOtherNotification_ChangesNothing) {
    startLookup();
    recorder->clear();
    state->notifyObserverAppState(OstLinkAppState::en_APP_STATE_RUNNING);
    state->notifyObserverDeviceStatus(0);
    EXPECT_EQ(Texts({"app 1", "other 0"}), recorder->events());
    EXPECT_EQ(103u, state->getResultState());
    EXPECT_EQ(1u, armed());
}

TEST_F(MoxProtocolTest, RcvMoxStateNotify_AnyCall_ReturnsOne) {
    unsigned char lost = 0;
    unsigned char running = 1;
    EXPECT_EQ(1u, protocol->rcvMoxStateNotify(7, &lost, 1));
    EXPECT_EQ(1u, protocol->rcvMoxStateNotify(0, &running, 1));
    EXPECT_EQ(1u, protocol->rcvMoxStateNotify(0, nullptr, 0));
    EXPECT_TRUE(recorder->events().empty());
    EXPECT_EQ(1u, protocol->rcvMoxStateNotify(0, &lost, 1));
}

// --- Command timer ------------------------------------------------------------------------

TEST_F(MoxProtocolTest, Timer_Period_IsTenThousandMilliseconds) {
    protocol->sendCmdConnect();
    recorder->clear();
    advance(9999);
    EXPECT_TRUE(recorder->events().empty());
    advance(1);
    EXPECT_EQ(Texts({"state 20"}), recorder->events());
}

TEST_F(MoxProtocolTest, Timer_ExpiryWhileIdle_ChangesNothing) {
    protocol->sendCmdConnect();
    state->setResultState(MoxState::en_RESULT_IDLE);
    recorder->clear();
    advance(10000);
    EXPECT_TRUE(recorder->events().empty());
    EXPECT_EQ(0u, armed());
}

TEST_F(MoxProtocolTest, Timer_ExpiryWhileComplete_ChangesNothing) {
    protocol->sendCmdConnect();
    state->setResultState(MoxState::en_RESULT_COMPLETE);
    recorder->clear();
    advance(10000);
    EXPECT_TRUE(recorder->events().empty());
    EXPECT_EQ(0u, state->getResultState());
}

TEST_F(MoxProtocolTest, Timer_ExpiryWhileSearching_Notifies4Then104AndSendsCancel) {
    startLookup();
    recorder->clear();
    advance(10000);
    EXPECT_EQ(Texts({"state 4", "state 104", "frame 0f ff"}), recorder->events());
    EXPECT_EQ(1u, armed());
}

TEST_F(MoxProtocolTest, Timer_ExpiryWhileCancelling_SetsIdle) {
    protocol->sendCmdCancel();
    recorder->clear();
    advance(10000);
    EXPECT_EQ(Texts({"state 100"}), recorder->events());
    EXPECT_EQ(0u, armed());
}

TEST_F(MoxProtocolTest, Timer_ExpiryWhileConnecting_SetsError) {
    protocol->sendCmdConnect();
    recorder->clear();
    advance(10000);
    EXPECT_EQ(Texts({"state 20"}), recorder->events());
    EXPECT_EQ(0u, armed());
}

TEST_F(MoxProtocolTest, TimeoutMoxCmdTimer_CalledInEachOtherState_ChangesNothingAndReturnsZero) {
    for (unsigned int value : {0u, 4u, 5u, 20u, 100u, 102u, 0xFFFFu}) {
        SCOPED_TRACE(value);
        state->setResultState(value);
        recorder->clear();
        EXPECT_EQ(0u, protocol->timeoutMoxCmdTimer(nullptr));
        EXPECT_TRUE(recorder->events().empty());
    }
}

TEST_F(MoxProtocolTest, MoxCmdTimerRestart_Twice_KeepsOneArmingWithTheLaterDeadline) {
    protocol->sendCmdConnect();
    advance(5000);
    protocol->moxCmdTimerRestart();
    EXPECT_EQ(1u, armed());
    recorder->clear();
    advance(9999);
    EXPECT_TRUE(recorder->events().empty());
    advance(1);
    EXPECT_EQ(Texts({"state 20"}), recorder->events());
}

TEST_F(MoxProtocolTest, MoxCmdTimerStopIfNeeded_NotArmed_DoesNothing) {
    protocol->moxCmdTimerStopIfNeeded();
    protocol->moxCmdTimerStopIfNeeded();
    EXPECT_EQ(0u, armed());
    protocol->moxCmdTimerRestart();
    EXPECT_EQ(1u, armed());
    protocol->moxCmdTimerStopIfNeeded();
    EXPECT_EQ(0u, armed());
}
