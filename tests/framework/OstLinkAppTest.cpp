#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "DbgCapture.h"
#include "LinkTestUnit.h"
#include "LinkWire.h"
#include "OstLinkApp/OstLinkApp.h"
#include "OstLinkApp/OstLinkAppEnvelope.h"
#include "OstLinkApp/OstLinkAppHost.h"
#include "RawPhone.h"
#include "ScriptedPhone.h"
#include "TestDir.h"

namespace {

typedef std::vector<std::string> Texts;
typedef std::vector<uint8_t> Bytes;

const char kCommSource[] = "platform/host/src/OstLinkAppLinkAppComm.cpp";

const Texts kAppOpen = {"state 7 [02]", "state 0 [01]", "AppOpen 2", "connect", "handled 601 [02]"};
const Texts kDeviceGone = {"state 7 [00]", "state 0 [00]", "AppClose 0", "AppDisconnect 0",
                           "handled 601 [00]"};

using linkwire::envelope;

class OstLinkAppTest : public ::testing::Test {
protected:
    OstLinkAppTest() {
        pthread_setname_np(pthread_self(), "TestMain");
        OstLinkAppHost::setLoopbackPeer(&peer);
        OstLinkAppHost::setEndpoint("loopback");
        peer.setGreeting(linkwire::greeting("Pixel"));
    }
    ~OstLinkAppTest() override {
        unit.Terminate();
        OstLinkAppHost::setLoopbackPeer(nullptr);
        OstLinkAppHost::setEndpoint("");
    }

    Texts commErrors() const {
        Texts texts;
        for (const HbDbgRecord& record : capture.records()) {
            if (record.file == kCommSource) {
                texts.push_back(record.text);
            }
        }
        return texts;
    }

    // A whole link with a phone behind `server`: it reports an iPhone whose
    // app is open, gets the connect, answers it, and sees the link stopped.
    void runSocketLink(RawPhone& server) {
        OstLinkAppHost::setEndpoint(server.endpoint());
        unit.startLink();
        ASSERT_TRUE(server.accept());
        Bytes hello = envelope(1, {0x00, 'i', 'P', 'h', 'o', 'n', 'e'});
        const Bytes open = envelope(2, {0x02});
        hello.insert(hello.end(), open.begin(), open.end());
        ASSERT_TRUE(server.send(hello));
        Bytes connect;
        ASSERT_TRUE(server.readExactly(8, connect));
        EXPECT_EQ((Bytes{0, 0, 0, 4, 3, 0x00, 0x01, 0x01}), connect);
        ASSERT_TRUE(unit.log.waitFor("handled 601 [02]"));
        EXPECT_EQ(0, unit.state.getOsType());
        EXPECT_EQ("iPhone", unit.getDeviceName());
        ASSERT_TRUE(server.send(envelope(3, {0x80, 0x01, 0, 0, 0, 0, 0, 0})));
        ASSERT_TRUE(unit.log.waitFor("handled 602 [80 01 00 00 00 00 00 00]"));
        const Texts expected = {"handled 600 [00 69 50 68 6f 6e 65]",
                                "state 7 [02]",
                                "state 0 [01]",
                                "AppOpen 2",
                                "connect",
                                "handled 601 [02]",
                                "frame [80 01 00 00 00 00 00 00] @HbWorker",
                                "handled 602 [80 01 00 00 00 00 00 00]"};
        EXPECT_EQ(expected, unit.log.entries());
        const size_t posted = unit.posts.entries().size();
        unit.stopLink();
        Bytes rest;
        EXPECT_TRUE(server.waitForEof(&rest));
        EXPECT_EQ((Bytes{0, 0, 0, 3, 3, 0x00, 0x02}), rest);
        EXPECT_FALSE(unit.isTransportOpen());
        EXPECT_EQ(posted, unit.posts.entries().size());
        EXPECT_TRUE(capture.records().empty());
    }

    DbgCapture capture;
    ScriptedPhone peer;
    LinkTestUnit unit;
};

}  // namespace

TEST_F(OstLinkAppTest, GetMode_ReturnsTheModeGivenAtConstruction) {
    EXPECT_EQ(1, unit.getMode());
    OstLinkApp other(7);
    EXPECT_EQ(7, other.getMode());
}

TEST_F(OstLinkAppTest, NotifyObserverAppActivated_IsCountedAndDoesNothingElse) {
    EXPECT_EQ(0u, unit.getAppActivatedCount());
    unit.notifyObserverAppActivated();
    unit.notifyObserverAppActivated();
    EXPECT_EQ(2u, unit.getAppActivatedCount());
    EXPECT_TRUE(unit.posts.entries().empty());
    EXPECT_TRUE(unit.log.entries().empty());
    EXPECT_TRUE(peer.journal().empty());
    EXPECT_TRUE(capture.records().empty());
}

TEST_F(OstLinkAppTest, StartLink_Loopback_PhoneAppOpens_TheConnectReachesThePhone) {
    unit.startLink();
    ASSERT_TRUE(unit.log.waitFor("handled 601 [02]"));
    ASSERT_TRUE(peer.waitForJournal(2));
    Texts expected = {"handled 600 [01 50 69 78 65 6c]"};
    expected.insert(expected.end(), kAppOpen.begin(), kAppOpen.end());
    EXPECT_EQ(expected, unit.log.entries());
    EXPECT_EQ((Texts{"open", "command [00 01 01] @HbWorker"}), peer.journal());
    EXPECT_TRUE(unit.isTransportOpen());
}

TEST_F(OstLinkAppTest, StartLink_WhenOpen_OpensNothingMore) {
    peer.setGreeting({});
    unit.startLink();
    unit.startLink();
    EXPECT_EQ(Texts{"open"}, peer.journal());
}

TEST_F(OstLinkAppTest, StopLink_SendsTheDisconnectThenClosesAndPostsNothing) {
    unit.startLink();
    ASSERT_TRUE(peer.waitForJournal(2));
    // The worker logs the open notification once its handler, which sent the
    // connect, has returned.
    ASSERT_TRUE(unit.log.waitFor("handled 601 [02]"));
    const size_t posted = unit.posts.entries().size();
    unit.stopLink();
    EXPECT_EQ((Texts{"open", "command [00 01 01] @HbWorker", "command [00 02] @TestMain", "close"}),
              peer.journal());
    EXPECT_EQ("disconnect", unit.log.entries().back());
    EXPECT_FALSE(unit.isTransportOpen());
    EXPECT_EQ(posted, unit.posts.entries().size());
    EXPECT_TRUE(capture.records().empty());
}

TEST_F(OstLinkAppTest, StopLink_WithoutALink_StillDisconnectsTheProtocol) {
    unit.stopLink();
    EXPECT_EQ(Texts{"disconnect"}, unit.log.entries());
    EXPECT_EQ(Texts{"link not open, frame of 2 bytes dropped\n"}, commErrors());
    EXPECT_TRUE(unit.posts.entries().empty());
}

TEST_F(OstLinkAppTest, StartLink_AfterStopLink_OpensANewLink) {
    peer.setGreeting({});
    unit.startLink();
    unit.stopLink();
    unit.startLink();
    EXPECT_EQ((Texts{"open", "command [00 02] @TestMain", "close", "open"}), peer.journal());
    EXPECT_TRUE(unit.isTransportOpen());
}

TEST_F(OstLinkAppTest, StartLink_AfterTerminate_IsRefused) {
    unit.Terminate();
    unit.startLink();
    EXPECT_TRUE(peer.journal().empty());
    EXPECT_TRUE(unit.posts.entries().empty());
    EXPECT_EQ(Texts{"link terminated, open refused\n"}, commErrors());
}

TEST_F(OstLinkAppTest, StartLink_UnixPhone_RunsTheWholeLinkOverTheSocket) {
    TestDir dir("ostlinkapp-unix");
    RawPhone server;
    ASSERT_TRUE(server.listenUnix(dir.file("phone.sock")));
    runSocketLink(server);
}

TEST_F(OstLinkAppTest, StartLink_TcpPhoneOnLoopback_RunsTheWholeLinkOverTheSocket) {
    RawPhone server;
    ASSERT_TRUE(server.listenTcp());
    runSocketLink(server);
}

TEST_F(OstLinkAppTest, StartLink_TcpPortRefused_TheUserSeesTheDeviceGoneOnce) {
    const int blocker = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(address);
    ASSERT_EQ(0, ::bind(blocker, reinterpret_cast<sockaddr*>(&address), length));
    ASSERT_EQ(0, ::getsockname(blocker, reinterpret_cast<sockaddr*>(&address), &length));
    const std::string endpoint = "tcp:127.0.0.1:" + std::to_string(ntohs(address.sin_port));
    OstLinkAppHost::setEndpoint(endpoint);
    unit.startLink();
    ASSERT_TRUE(unit.log.waitFor("handled 601 [00]"));
    EXPECT_EQ(kDeviceGone, unit.log.entries());
    EXPECT_EQ(Texts{"601 [00] @OstLinkAppRx"}, unit.posts.entries());
    EXPECT_EQ(Texts{"cannot connect to " + endpoint + ": Connection refused\n"}, capture.texts());
    EXPECT_FALSE(unit.isTransportOpen());
    ::close(blocker);
}
