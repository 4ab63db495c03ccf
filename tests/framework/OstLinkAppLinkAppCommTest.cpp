#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "DbgCapture.h"
#include "HbFramework/HbSingletonFinalizer.h"
#include "LinkTestUnit.h"
#include "OstLinkApp/OstLinkAppEnvelope.h"
#include "OstLinkApp/OstLinkAppHost.h"
#include "OstLinkApp/OstLinkAppLinkAppComm.h"
#include "RawPhone.h"
#include "ScriptedPhone.h"
#include "TestDir.h"
#include "TestEvent.h"

namespace {

typedef std::vector<std::string> Texts;

const char kCommSource[] = "platform/host/src/OstLinkAppLinkAppComm.cpp";

// What the user sees for each device status, in order, on its worker.
const Texts kAppOpen = {"state 7 [02]", "state 0 [01]", "AppOpen 2", "connect", "handled 601 [02]"};
const Texts kAppClosed = {"state 7 [03]", "state 0 [00]", "AppClose 3", "handled 601 [03]"};
const Texts kDeviceGone = {"state 7 [00]", "state 0 [00]", "AppClose 0", "AppDisconnect 0",
                           "handled 601 [00]"};
const Texts kConnected = {"state 7 [01]", "AppConnect 1", "handled 601 [01]"};

Texts concat(std::initializer_list<Texts> parts) {
    Texts all;
    for (const Texts& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

class OstLinkAppLinkAppCommTest : public ::testing::Test {
protected:
    OstLinkAppLinkAppCommTest() {
        pthread_setname_np(pthread_self(), "TestMain");
        OstLinkAppHost::setLoopbackPeer(&peer);
        OstLinkAppHost::setEndpoint("loopback");
    }
    ~OstLinkAppLinkAppCommTest() override {
        unit.Terminate();
        OstLinkAppHost::setLoopbackPeer(nullptr);
        OstLinkAppHost::setEndpoint("");
    }

    // Texts logged by the channel itself, checking source and tag.
    Texts commErrors() const {
        Texts texts;
        for (const HbDbgRecord& record : capture.records()) {
            if (record.file == kCommSource) {
                EXPECT_EQ(en_TAG_ERROR, record.tag);
                texts.push_back(record.text);
            }
        }
        return texts;
    }
    Texts allTexts() const { return capture.texts(); }

    // Opens the loopback link; the phone reports Android "Pixel", app open.
    void openLinkWithAppOpen() {
        peer.setGreeting(linkwire::greeting("Pixel"));
        unit.requestDeviceConnect();
        ASSERT_TRUE(unit.log.waitFor("handled 601 [02]"));
        ASSERT_TRUE(peer.waitForJournal(2));
    }

    DbgCapture capture;
    ScriptedPhone peer;
    LinkTestUnit unit;
};

}  // namespace

TEST_F(OstLinkAppLinkAppCommTest, DeviceStatusAppOpen_NotifiesOpensTheAppThenConnects) {
    unit.post(601, {2});
    ASSERT_TRUE(unit.log.waitFor("handled 601 [02]"));
    EXPECT_EQ(kAppOpen, unit.log.entries());
    // No link is open here, so the protocol's connect frame is dropped.
    EXPECT_EQ(Texts{"link not open, frame of 3 bytes dropped\n"}, commErrors());
}

TEST_F(OstLinkAppLinkAppCommTest, DeviceStatusClosed_NotifiesAndClosesTheApp) {
    unit.post(601, {3});
    ASSERT_TRUE(unit.log.waitFor("handled 601 [03]"));
    EXPECT_EQ(kAppClosed, unit.log.entries());
    EXPECT_TRUE(allTexts().empty());
}

TEST_F(OstLinkAppLinkAppCommTest, DeviceStatusNoDevice_NotifiesClosesAndDisconnects) {
    unit.post(601, {0});
    ASSERT_TRUE(unit.log.waitFor("handled 601 [00]"));
    EXPECT_EQ(kDeviceGone, unit.log.entries());
    EXPECT_TRUE(allTexts().empty());
}

TEST_F(OstLinkAppLinkAppCommTest, DeviceStatusConnected_NotifiesAndConnects) {
    unit.post(601, {1});
    ASSERT_TRUE(unit.log.waitFor("handled 601 [01]"));
    EXPECT_EQ(kConnected, unit.log.entries());
    EXPECT_TRUE(allTexts().empty());
}

TEST_F(OstLinkAppLinkAppCommTest, DeviceStatusUnknown_IsLoggedAndIgnored) {
    unit.post(601, {4});
    ASSERT_TRUE(unit.log.waitFor("handled 601 [04]"));
    EXPECT_EQ(Texts{"handled 601 [04]"}, unit.log.entries());
    EXPECT_EQ(Texts{"unknown device status 4, ignored\n"}, commErrors());
}

TEST_F(OstLinkAppLinkAppCommTest, DeviceStatusOfWrongSize_IsLoggedAndIgnored) {
    unit.post(601, {2, 2});
    unit.post(601, {});
    ASSERT_TRUE(unit.log.waitFor("handled 601 []"));
    EXPECT_EQ((Texts{"handled 601 [02 02]", "handled 601 []"}), unit.log.entries());
    EXPECT_EQ((Texts{"device status of 2 bytes, ignored\n", "device status of 0 bytes, ignored\n"}),
              commErrors());
}

TEST_F(OstLinkAppLinkAppCommTest, DeviceInfo_StoresTheOsTypeAndTheName) {
    EXPECT_EQ("", unit.getDeviceName());
    unit.post(600, {0, 'i', 'P', 'h', 'o', 'n', 'e'});
    ASSERT_TRUE(unit.log.waitFor("handled 600 [00 69 50 68 6f 6e 65]"));
    EXPECT_EQ(0, unit.state.getOsType());
    EXPECT_EQ("iPhone", unit.getDeviceName());
    EXPECT_EQ(Texts{"handled 600 [00 69 50 68 6f 6e 65]"}, unit.log.entries());
}

TEST_F(OstLinkAppLinkAppCommTest, DeviceInfoWithoutName_StoresTheOsTypeAndAnEmptyName) {
    unit.post(600, {0});
    ASSERT_TRUE(unit.log.waitFor("handled 600 [00]"));
    EXPECT_EQ(0, unit.state.getOsType());
    EXPECT_EQ("", unit.getDeviceName());
}

TEST_F(OstLinkAppLinkAppCommTest, DeviceInfoEmpty_IsLoggedAndIgnored) {
    unit.post(600, {});
    ASSERT_TRUE(unit.log.waitFor("handled 600 []"));
    EXPECT_EQ(1, unit.state.getOsType());
    EXPECT_EQ(Texts{"device info without an OS type, ignored\n"}, commErrors());
}

TEST_F(OstLinkAppLinkAppCommTest, CmdData_ReachesTheProtocolOnTheWorkerThread) {
    unit.post(602, {0x80, 0x01, 0, 0, 0, 0, 0, 0});
    unit.post(602, {});
    ASSERT_TRUE(unit.log.waitFor("handled 602 []"));
    const Texts expected = {"frame [80 01 00 00 00 00 00 00] @HbWorker",
                            "handled 602 [80 01 00 00 00 00 00 00]", "frame [] @HbWorker",
                            "handled 602 []"};
    EXPECT_EQ(expected, unit.log.entries());
}

TEST_F(OstLinkAppLinkAppCommTest, RequestDeviceConnect_PhoneOpensTheApp_ConnectFrameReachesIt) {
    openLinkWithAppOpen();
    EXPECT_TRUE(unit.isTransportOpen());
    EXPECT_EQ(concat({{"handled 600 [01 50 69 78 65 6c]"}, kAppOpen}), unit.log.entries());
    EXPECT_EQ((Texts{"open", "command [00 01 01] @HbWorker"}), peer.journal());
    EXPECT_EQ(1, unit.state.getOsType());
    EXPECT_EQ("Pixel", unit.getDeviceName());
    EXPECT_TRUE(allTexts().empty());
}

TEST_F(OstLinkAppLinkAppCommTest, PhoneFrames_ReachTheProtocolOnTheWorkerInOrder) {
    openLinkWithAppOpen();
    std::thread phone([this] {
        const uint8 connected[] = {0x80, 0x01, 0, 0, 0, 0, 0, 0};
        const uint8 notice[] = {0x80, 0x11, 0, 0, 0, 0, 0, 0, 0, 0, 0x10, 0};
        EXPECT_TRUE(peer.link()->pushCommand(connected, sizeof(connected)));
        EXPECT_TRUE(peer.link()->pushCommand(notice, sizeof(notice)));
    });
    phone.join();
    ASSERT_TRUE(unit.log.waitFor("handled 602 [80 11 00 00 00 00 00 00 00 00 10 00]"));
    const Texts entries = unit.log.entries();
    const Texts tail(entries.end() - 4, entries.end());
    const Texts expected = {"frame [80 01 00 00 00 00 00 00] @HbWorker",
                            "handled 602 [80 01 00 00 00 00 00 00]",
                            "frame [80 11 00 00 00 00 00 00 00 00 10 00] @HbWorker",
                            "handled 602 [80 11 00 00 00 00 00 00 00 00 10 00]"};
    EXPECT_EQ(expected, tail);
}

TEST_F(OstLinkAppLinkAppCommTest, RequestDeviceConnect_WhenOpen_OpensNothingMore) {
    unit.requestDeviceConnect();
    unit.requestDeviceConnect();
    EXPECT_EQ(Texts{"open"}, peer.journal());
    EXPECT_TRUE(unit.isTransportOpen());
}

TEST_F(OstLinkAppLinkAppCommTest, SendCommand_ReachesThePeerByteForByteOnTheSendingThread) {
    unit.requestDeviceConnect();
    std::thread sender([this] {
        pthread_setname_np(pthread_self(), "Sender");
        uint8 frame[] = {0x00, 0x12, 0x00, 0x00, 0x03, 0xE8};
        unit.LinkAppCommIFSendCommand(frame, sizeof(frame));
    });
    sender.join();
    EXPECT_EQ((Texts{"open", "command [00 12 00 00 03 e8] @Sender"}), peer.journal());
}

TEST_F(OstLinkAppLinkAppCommTest, SendCommand_WithoutALink_IsLoggedAndDropped) {
    uint8 frame[] = {0x0F, 0xFF};
    unit.LinkAppCommIFSendCommand(frame, sizeof(frame));
    EXPECT_EQ(Texts{"link not open, frame of 2 bytes dropped\n"}, commErrors());
    EXPECT_TRUE(peer.journal().empty());
}

TEST_F(OstLinkAppLinkAppCommTest, SendCommand_NullFrame_IsLoggedAndDropped) {
    unit.requestDeviceConnect();
    unit.LinkAppCommIFSendCommand(nullptr, 4);
    EXPECT_EQ(Texts{"null frame of 4 bytes, dropped\n"}, commErrors());
    EXPECT_EQ(Texts{"open"}, peer.journal());
}

TEST_F(OstLinkAppLinkAppCommTest, RequestDeviceDisconnect_OpenLink_ClosesThenPostsDeviceGone) {
    openLinkWithAppOpen();
    unit.requestDeviceDisconnect();
    EXPECT_EQ("601 [00] @TestMain", unit.posts.entries().back());
    EXPECT_EQ((Texts{"open", "command [00 01 01] @HbWorker", "close"}), peer.journal());
    EXPECT_FALSE(unit.isTransportOpen());
    ASSERT_TRUE(unit.log.waitFor("handled 601 [00]"));
    const Texts entries = unit.log.entries();
    EXPECT_EQ(kDeviceGone, Texts(entries.end() - 5, entries.end()));
    EXPECT_TRUE(allTexts().empty());
}

TEST_F(OstLinkAppLinkAppCommTest, RequestDeviceDisconnect_WithoutALink_PostsNothing) {
    unit.requestDeviceDisconnect();
    EXPECT_TRUE(unit.posts.entries().empty());
    unit.requestDeviceConnect();
    unit.requestDeviceDisconnect();
    unit.requestDeviceDisconnect();
    EXPECT_EQ(Texts{"601 [00] @TestMain"}, unit.posts.entries());
}

TEST_F(OstLinkAppLinkAppCommTest, PhoneHangsUp_LogsAndTheUserSeesTheDeviceGone) {
    openLinkWithAppOpen();
    peer.link()->hangUp();
    ASSERT_TRUE(unit.log.waitFor("handled 601 [00]"));
    const Texts entries = unit.log.entries();
    EXPECT_EQ(kDeviceGone, Texts(entries.end() - 5, entries.end()));
    EXPECT_EQ(Texts{"link closed by the phone on loopback\n"}, allTexts());
    EXPECT_FALSE(unit.isTransportOpen());
}

TEST_F(OstLinkAppLinkAppCommTest, PhoneSendsABadEnvelope_LogsAndTheUserSeesTheDeviceGone) {
    openLinkWithAppOpen();
    const uint8 bad[] = {0, 0, 0, 0};
    peer.link()->pushBytes(bad, sizeof(bad));
    ASSERT_TRUE(unit.log.waitFor("handled 601 [00]"));
    const Texts entries = unit.log.entries();
    EXPECT_EQ(kDeviceGone, Texts(entries.end() - 5, entries.end()));
    EXPECT_EQ(Texts{"protocol error on loopback: envelope length 0, closing the link\n"},
              allTexts());
    EXPECT_EQ("close", peer.journal().back());
}

TEST_F(OstLinkAppLinkAppCommTest, LinkEnded_RequestDeviceConnect_OpensANewLink) {
    openLinkWithAppOpen();
    peer.link()->hangUp();
    ASSERT_TRUE(unit.log.waitFor("handled 601 [00]"));
    peer.setGreeting({});
    unit.requestDeviceConnect();
    EXPECT_TRUE(unit.isTransportOpen());
    EXPECT_EQ((Texts{"open", "command [00 01 01] @HbWorker", "close", "open"}), peer.journal());
}

TEST_F(OstLinkAppLinkAppCommTest, Open_NoLoopbackPeer_LogsAndTheUserSeesTheDeviceGone) {
    OstLinkAppHost::setLoopbackPeer(nullptr);
    unit.requestDeviceConnect();
    EXPECT_EQ(Texts{"601 [00] @TestMain"}, unit.posts.entries());
    ASSERT_TRUE(unit.log.waitFor("handled 601 [00]"));
    EXPECT_EQ(kDeviceGone, unit.log.entries());
    EXPECT_EQ(Texts{"cannot open loopback: no loopback peer installed\n"}, allTexts());
    EXPECT_FALSE(unit.isTransportOpen());
}

TEST_F(OstLinkAppLinkAppCommTest, Open_BadEndpointText_LogsAndTheUserSeesTheDeviceGone) {
    OstLinkAppHost::setEndpoint("usb:0");
    unit.requestDeviceConnect();
    EXPECT_EQ(Texts{"601 [00] @TestMain"}, unit.posts.entries());
    ASSERT_TRUE(unit.log.waitFor("handled 601 [00]"));
    EXPECT_EQ(kDeviceGone, unit.log.entries());
    EXPECT_EQ(Texts{"cannot open the link: bad endpoint 'usb:0': expected loopback, unix:PATH or "
                    "tcp:HOST:PORT\n"},
              commErrors());
}

TEST_F(OstLinkAppLinkAppCommTest, Open_RemoteTcpHost_IsRefusedWithoutConnecting) {
    OstLinkAppHost::setEndpoint("tcp:192.0.2.7:7000");
    unit.requestDeviceConnect();
    EXPECT_EQ(Texts{"601 [00] @TestMain"}, unit.posts.entries());
    ASSERT_TRUE(unit.log.waitFor("handled 601 [00]"));
    EXPECT_EQ(kDeviceGone, unit.log.entries());
    EXPECT_EQ(Texts{"cannot open the link: remote endpoint 'tcp:192.0.2.7:7000' refused: "
                    "192.0.2.7 is not a loopback address (allow remote hosts with "
                    "OstLinkAppHost::setAllowRemote(true))\n"},
              commErrors());
    EXPECT_FALSE(unit.isTransportOpen());
}

TEST_F(OstLinkAppLinkAppCommTest, Open_MissingUnixSocket_ReportedOnceFromTheReaderWithNoRetry) {
    TestDir dir("comm-missing");
    const std::string path = dir.file("absent.sock");
    OstLinkAppHost::setEndpoint("unix:" + path);
    unit.requestDeviceConnect();
    ASSERT_TRUE(unit.log.waitFor("handled 601 [00]"));
    EXPECT_EQ(kDeviceGone, unit.log.entries());
    EXPECT_EQ(Texts{"601 [00] @OstLinkAppRx"}, unit.posts.entries());
    EXPECT_EQ(Texts{"cannot connect to unix:" + path + ": No such file or directory\n"},
              allTexts());
    EXPECT_FALSE(unit.isTransportOpen());
    RawPhone server;
    ASSERT_TRUE(server.listenUnix(path));
    EXPECT_FALSE(server.hasPendingConnection());
}

TEST_F(OstLinkAppLinkAppCommTest, Terminate_ClosesTheLinkPostsNothingAndRefusesLaterOpens) {
    openLinkWithAppOpen();
    const size_t postsBefore = unit.posts.entries().size();
    unit.Terminate();
    EXPECT_EQ("close", peer.journal().back());
    EXPECT_FALSE(unit.isTransportOpen());
    unit.Terminate();
    unit.requestDeviceConnect();
    EXPECT_EQ(postsBefore, unit.posts.entries().size());
    EXPECT_EQ(Texts{"link terminated, open refused\n"}, commErrors());
    EXPECT_EQ(3u, peer.journal().size());
}

TEST_F(OstLinkAppLinkAppCommTest, Terminate_WhilePhonePushesFromAnotherThread_NothingAfterIt) {
    unit.requestDeviceConnect();
    OstLinkAppPeerLink* link = peer.link();
    std::atomic<int> accepted{0};
    std::thread phone([link, &accepted] {
        for (int i = 0; i < 3000; ++i) {
            if (!link->pushDeviceStatus(1)) {
                break;
            }
            ++accepted;
        }
    });
    ASSERT_TRUE(unit.posts.waitForCount(1));
    unit.Terminate();
    const size_t postedAtTerminate = unit.posts.entries().size();
    phone.join();
    EXPECT_EQ(postedAtTerminate, unit.posts.entries().size());
    EXPECT_EQ(static_cast<size_t>(accepted.load()), postedAtTerminate);
}

TEST_F(OstLinkAppLinkAppCommTest, Terminate_UnixLinkWithPhoneSendingFast_JoinsAndPostsNothingMore) {
    TestDir dir("comm-terminate");
    RawPhone server;
    ASSERT_TRUE(server.listenUnix(dir.file("phone.sock")));
    OstLinkAppHost::setEndpoint(server.endpoint());
    unit.requestDeviceConnect();
    ASSERT_TRUE(server.accept());
    std::thread phone([&server] {
        std::vector<uint8_t> burst;
        const uint8 connected = 1;
        const std::vector<uint8_t> status = OstLinkAppEnvelope::encode(2, &connected, 1);
        for (int i = 0; i < 500; ++i) {
            burst.insert(burst.end(), status.begin(), status.end());
        }
        while (server.send(burst)) {
        }
    });
    ASSERT_TRUE(unit.posts.waitForCount(20));
    unit.Terminate();
    const size_t postedAtTerminate = unit.posts.entries().size();
    phone.join();
    EXPECT_EQ(postedAtTerminate, unit.posts.entries().size());
    EXPECT_FALSE(unit.isTransportOpen());
}

// The worker is held in its first handler while the phone pushes more than
// the box holds: the box keeps 4000, every further post is refused and
// logged by the user's comSendMsgSelf, and nothing else grows.
TEST_F(OstLinkAppLinkAppCommTest, PhoneFasterThanTheWorker_TheBoxBoundsTheBacklog) {
    // Shared with the worker's callback, which may still be returning from
    // its last call when the test body ends.
    struct Gate {
        TestEvent entered;
        TestEvent release;
        std::atomic<bool> first{true};
    };
    std::shared_ptr<Gate> gate = std::make_shared<Gate>();
    TestEvent& entered = gate->entered;
    TestEvent& release = gate->release;
    unit.onHandled = [gate](uint32) {
        if (gate->first.exchange(false)) {
            gate->entered.set();
            gate->release.wait();
        }
    };
    unit.requestDeviceConnect();
    OstLinkAppPeerLink* link = peer.link();
    ASSERT_TRUE(link->pushDeviceStatus(3));
    entered.wait();
    for (int i = 0; i < 4010; ++i) {
        ASSERT_TRUE(link->pushDeviceStatus(3));
    }
    EXPECT_EQ(4000u, unit.worker()->GetMsgBox()->Count());
    EXPECT_EQ(10, unit.postFailures.load());
    const Texts texts = allTexts();
    ASSERT_EQ(10u, texts.size());
    for (const std::string& text : texts) {
        EXPECT_EQ("SendMsgSelf return error=5.\n", text);
    }
    release.set();
    ASSERT_TRUE(unit.log.waitForCount(4001 * kAppClosed.size()));
    EXPECT_EQ(4001 * kAppClosed.size(), unit.log.entries().size());
}

namespace {

ScriptedPhone* gFinalizePeer = nullptr;
Texts gPeerAtDestroy;
LinkTestUnit* gExitUnit = nullptr;

void recordPeerAtDestroy() {
    gPeerAtDestroy = gFinalizePeer->journal();
}

void destroyExitUnit() {
    std::fprintf(stderr, "transport open at destroy: %d\n", gExitUnit->isTransportOpen() ? 1 : 0);
    delete gExitUnit;
    gExitUnit = nullptr;
}

}  // namespace

TEST_F(OstLinkAppLinkAppCommTest, Finalize_TerminatesEveryChannelBeforeTheSingletonsGo) {
    ScriptedPhone secondPeer;
    unit.requestDeviceConnect();
    OstLinkAppHost::setLoopbackPeer(&secondPeer);
    LinkTestUnit second;
    second.requestDeviceConnect();
    gFinalizePeer = &peer;
    HbSingletonFinalizer::addDestroyFunc(&recordPeerAtDestroy);
    HbSingletonFinalizer::finalize();
    EXPECT_EQ((Texts{"open", "close"}), gPeerAtDestroy);
    EXPECT_EQ((Texts{"open", "close"}), secondPeer.journal());
    EXPECT_FALSE(unit.isTransportOpen());
    EXPECT_FALSE(second.isTransportOpen());
    unit.requestDeviceConnect();
    EXPECT_EQ(Texts{"link terminated, open refused\n"}, commErrors());
}

TEST(OstLinkAppLinkAppCommDeathTest, ProcessExit_WithoutFinalize_EndsTheLinkFirstAndExitsCleanly) {
    GTEST_FLAG_SET(death_test_style, "fast");
    EXPECT_EXIT(
        {
            TestDir dir("comm-exit");
            RawPhone server;
            if (!server.listenUnix(dir.file("phone.sock"))) {
                std::exit(3);
            }
            OstLinkAppHost::setEndpoint(server.endpoint());
            gExitUnit = new LinkTestUnit();
            HbSingletonFinalizer::addDestroyFunc(&destroyExitUnit);
            gExitUnit->requestDeviceConnect();
            if (!server.accept() || !gExitUnit->isTransportOpen()) {
                std::exit(4);
            }
            std::exit(0);
        },
        ::testing::ExitedWithCode(0), "transport open at destroy: 0");
}
