#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "ByteText.h"
#include "CallLog.h"
#include "DbgCapture.h"
#include "OstLinkApp/OstLinkAppEnvelope.h"
#include "OstLinkAppLoopbackTransport.h"
#include "ScriptedPhone.h"
#include "ThreadName.h"

namespace {

typedef std::vector<std::string> Texts;

const char kSource[] = "platform/host/src/OstLinkAppLoopbackTransport.cpp";

// Records every post as "id [bytes] @thread".
OstLinkAppTransport::PostFunc recorder(CallLog& posts) {
    return [&posts](uint32 id, const void* data, uint32 size) {
        posts.add(std::to_string(id) + " " + byteText(data, size) + " @" + currentThreadName());
    };
}

Texts errorTexts(const DbgCapture& capture) {
    Texts texts;
    for (const HbDbgRecord& record : capture.records()) {
        EXPECT_EQ(kSource, record.file);
        EXPECT_EQ(en_TAG_ERROR, record.tag);
        texts.push_back(record.text);
    }
    return texts;
}

class OstLinkAppLoopbackTransportTest : public ::testing::Test {
protected:
    OstLinkAppLoopbackTransportTest() : transport(&peer, recorder(posts)) {
        pthread_setname_np(pthread_self(), "TestMain");
    }

    DbgCapture capture;
    CallLog posts;
    ScriptedPhone peer;
    OstLinkAppLoopbackTransport transport;
};

}  // namespace

TEST_F(OstLinkAppLoopbackTransportTest, Open_WithPeer_CallsOnOpenWithThisLinkAndIsOpen) {
    EXPECT_TRUE(transport.open());
    EXPECT_EQ(Texts{"open"}, peer.journal());
    EXPECT_EQ(static_cast<OstLinkAppPeerLink*>(&transport), peer.link());
    EXPECT_TRUE(transport.isOpen());
    EXPECT_EQ("loopback", transport.getName());
    EXPECT_TRUE(posts.entries().empty());
}

TEST(OstLinkAppLoopbackTransportOpenTest, Open_WithoutPeer_LogsAndFailsWithoutPosting) {
    DbgCapture capture;
    CallLog posts;
    OstLinkAppLoopbackTransport transport(nullptr, recorder(posts));
    EXPECT_FALSE(transport.open());
    EXPECT_FALSE(transport.isOpen());
    EXPECT_EQ(Texts{"cannot open loopback: no loopback peer installed\n"}, errorTexts(capture));
    EXPECT_TRUE(posts.entries().empty());
}

TEST_F(OstLinkAppLoopbackTransportTest, Pushes_PostEachMessageOnThePushingThread) {
    ASSERT_TRUE(transport.open());
    const uint8 frame[] = {0x80, 0x01, 0, 0, 0, 0, 0, 0};
    EXPECT_TRUE(transport.pushDeviceInfo(1, "Pix"));
    EXPECT_TRUE(transport.pushDeviceStatus(2));
    EXPECT_TRUE(transport.pushCommand(frame, sizeof(frame)));
    const Texts expected = {"600 [01 50 69 78] @TestMain", "601 [02] @TestMain",
                            "602 [80 01 00 00 00 00 00 00] @TestMain"};
    EXPECT_EQ(expected, posts.entries());
    EXPECT_TRUE(capture.records().empty());
}

TEST_F(OstLinkAppLoopbackTransportTest, PushBytes_EnvelopeSplitOverPushes_PostsOnceComplete) {
    ASSERT_TRUE(transport.open());
    const std::vector<uint8> bytes = {0, 0, 0, 2, 2, 1, 0, 0, 0, 2, 2, 3};
    EXPECT_TRUE(transport.pushBytes(bytes.data(), 3));
    EXPECT_TRUE(posts.entries().empty());
    EXPECT_TRUE(transport.pushBytes(bytes.data() + 3, 5));
    EXPECT_EQ(Texts{"601 [01] @TestMain"}, posts.entries());
    EXPECT_TRUE(transport.pushBytes(bytes.data() + 8, 4));
    EXPECT_EQ((Texts{"601 [01] @TestMain", "601 [03] @TestMain"}), posts.entries());
}

TEST_F(OstLinkAppLoopbackTransportTest, PushBytes_BadEnvelope_LogsClosesAndReportsTheLinkLost) {
    ASSERT_TRUE(transport.open());
    const std::vector<uint8> bytes = {0, 0, 0, 2, 2, 1, 0, 0, 0, 1, 9};
    EXPECT_TRUE(transport.pushBytes(bytes.data(), bytes.size()));
    EXPECT_EQ((Texts{"601 [01] @TestMain", "601 [00] @TestMain"}), posts.entries());
    EXPECT_EQ(Texts{"protocol error on loopback: unknown envelope type 0x09, closing the link\n"},
              errorTexts(capture));
    EXPECT_EQ((Texts{"open", "close"}), peer.journal());
    EXPECT_FALSE(transport.isOpen());
    EXPECT_FALSE(transport.pushDeviceStatus(2));
    EXPECT_EQ(2u, posts.entries().size());
}

TEST_F(OstLinkAppLoopbackTransportTest, PushBytes_EachEnvelopeError_IsLoggedWithItsReason) {
    struct Case {
        std::vector<uint8> bytes;
        std::string reason;
    };
    const std::vector<Case> cases = {
        {{0, 0, 0, 0}, "envelope length 0"},
        {{0, 0x10, 0, 1}, "envelope length 1048577 over the limit of 1048576"},
        {{0, 0, 0, 1, 0x7F}, "unknown envelope type 0x7f"},
        {{0, 0, 0, 3, 2, 1, 1}, "device status envelope with 2 payload bytes, expected 1"},
        {{0, 0, 0, 1, 1}, "device info envelope without an OS type"},
    };
    for (const Case& c : cases) {
        DbgCapture local;
        CallLog localPosts;
        ScriptedPhone localPeer;
        OstLinkAppLoopbackTransport link(&localPeer, recorder(localPosts));
        ASSERT_TRUE(link.open());
        link.pushBytes(c.bytes.data(), c.bytes.size());
        EXPECT_EQ(Texts{"protocol error on loopback: " + c.reason + ", closing the link\n"},
                  errorTexts(local));
        EXPECT_EQ(Texts{"601 [00] @TestMain"}, localPosts.entries());
        EXPECT_EQ((Texts{"open", "close"}), localPeer.journal());
    }
}

TEST_F(OstLinkAppLoopbackTransportTest, PushCommand_FrameOverTheLimit_EndsTheLinkAsOnAStream) {
    ASSERT_TRUE(transport.open());
    const std::vector<uint8> frame(OstLinkAppEnvelope::MAX_PAYLOAD_SIZE + 1, 0x11);
    EXPECT_TRUE(transport.pushCommand(frame.data(), static_cast<uint32>(frame.size())));
    EXPECT_EQ(Texts{"protocol error on loopback: envelope length 1048577 over the limit of "
                    "1048576, closing the link\n"},
              errorTexts(capture));
    EXPECT_EQ(Texts{"601 [00] @TestMain"}, posts.entries());
}

TEST_F(OstLinkAppLoopbackTransportTest, PushCommand_FrameAtTheLimit_IsPostedWhole) {
    std::atomic<uint32> postedSize{0};
    OstLinkAppLoopbackTransport big(
        &peer, [&postedSize](uint32, const void*, uint32 size) { postedSize = size; });
    ASSERT_TRUE(big.open());
    const std::vector<uint8> frame(OstLinkAppEnvelope::MAX_PAYLOAD_SIZE, 0x11);
    EXPECT_TRUE(big.pushCommand(frame.data(), static_cast<uint32>(frame.size())));
    EXPECT_EQ(OstLinkAppEnvelope::MAX_PAYLOAD_SIZE, postedSize.load());
}

TEST_F(OstLinkAppLoopbackTransportTest, HangUp_BetweenEnvelopes_LogsAndReportsTheLinkClosed) {
    ASSERT_TRUE(transport.open());
    transport.hangUp();
    EXPECT_EQ(Texts{"link closed by the phone on loopback\n"}, errorTexts(capture));
    EXPECT_EQ(Texts{"601 [00] @TestMain"}, posts.entries());
    EXPECT_EQ((Texts{"open", "close"}), peer.journal());
    EXPECT_FALSE(transport.isOpen());
    transport.hangUp();
    EXPECT_EQ(1u, posts.entries().size());
}

TEST_F(OstLinkAppLoopbackTransportTest, HangUp_InsideAnEnvelope_IsAProtocolErrorCutOff) {
    ASSERT_TRUE(transport.open());
    const std::vector<uint8> bytes = {0, 0, 0, 3, 3, 0x80};
    EXPECT_TRUE(transport.pushBytes(bytes.data(), bytes.size()));
    transport.hangUp();
    EXPECT_EQ(Texts{"protocol error on loopback: stream ended inside an envelope (2 of 3 bytes), "
                    "closing the link\n"},
              errorTexts(capture));
    EXPECT_EQ(Texts{"601 [00] @TestMain"}, posts.entries());
}

TEST_F(OstLinkAppLoopbackTransportTest, PushDeviceStatusNoDevice_PostsItOnceAndEndsTheLink) {
    ASSERT_TRUE(transport.open());
    const std::vector<uint8> bytes = {0, 0, 0, 2, 2, 0, 0, 0, 0, 2, 2, 1};
    EXPECT_TRUE(transport.pushBytes(bytes.data(), bytes.size()));
    EXPECT_EQ(Texts{"601 [00] @TestMain"}, posts.entries());
    EXPECT_EQ(Texts{"the phone reported no device on loopback, closing the link\n"},
              errorTexts(capture));
    EXPECT_EQ((Texts{"open", "close"}), peer.journal());
    EXPECT_FALSE(transport.isOpen());
    EXPECT_FALSE(transport.close());
}

TEST_F(OstLinkAppLoopbackTransportTest, Close_OpenLink_TellsThePeerOncePostsNothingAndRefuses) {
    ASSERT_TRUE(transport.open());
    EXPECT_TRUE(transport.close());
    EXPECT_FALSE(transport.close());
    EXPECT_EQ((Texts{"open", "close"}), peer.journal());
    EXPECT_TRUE(posts.entries().empty());
    EXPECT_FALSE(transport.pushDeviceStatus(2));
    EXPECT_FALSE(transport.pushBytes(nullptr, 0));
    EXPECT_TRUE(posts.entries().empty());
    EXPECT_TRUE(capture.records().empty());
}

TEST_F(OstLinkAppLoopbackTransportTest, Close_AfterTheLinkEndedByItself_ReturnsFalse) {
    ASSERT_TRUE(transport.open());
    transport.hangUp();
    EXPECT_FALSE(transport.close());
    EXPECT_EQ((Texts{"open", "close"}), peer.journal());
}

TEST_F(OstLinkAppLoopbackTransportTest, Send_CallsOnCommandOnTheSendingThread) {
    ASSERT_TRUE(transport.open());
    const uint8 frame[] = {0x00, 0x01, 0x01};
    std::thread sender([this, &frame] {
        pthread_setname_np(pthread_self(), "Sender");
        EXPECT_TRUE(transport.send(frame, sizeof(frame)));
    });
    sender.join();
    EXPECT_EQ((Texts{"open", "command [00 01 01] @Sender"}), peer.journal());
}

TEST_F(OstLinkAppLoopbackTransportTest, Send_AfterClose_LogsAndDrops) {
    ASSERT_TRUE(transport.open());
    transport.close();
    const uint8 frame[] = {0x00, 0x02};
    EXPECT_FALSE(transport.send(frame, sizeof(frame)));
    EXPECT_EQ(Texts{"link not open, frame of 2 bytes dropped\n"}, errorTexts(capture));
    EXPECT_EQ((Texts{"open", "close"}), peer.journal());
}

TEST_F(OstLinkAppLoopbackTransportTest, Send_BeforeOpen_LogsAndDrops) {
    const uint8 frame[] = {0x00, 0x02};
    EXPECT_FALSE(transport.send(frame, sizeof(frame)));
    EXPECT_EQ(Texts{"link not open, frame of 2 bytes dropped\n"}, errorTexts(capture));
}

TEST_F(OstLinkAppLoopbackTransportTest, Send_FrameOverTheLimit_LogsAndDrops) {
    ASSERT_TRUE(transport.open());
    const std::vector<uint8> frame(OstLinkAppEnvelope::MAX_PAYLOAD_SIZE + 1, 0);
    EXPECT_FALSE(transport.send(frame.data(), static_cast<uint32>(frame.size())));
    EXPECT_EQ(Texts{"frame of 1048576 bytes over the envelope limit, dropped\n"},
              errorTexts(capture));
    EXPECT_EQ(Texts{"open"}, peer.journal());
}

TEST_F(OstLinkAppLoopbackTransportTest, PeerPushesInsideOnOpen_AreDelivered) {
    peer.setGreeting({linkwire::deviceInfo(0, "i"), linkwire::deviceStatus(2)});
    ASSERT_TRUE(transport.open());
    EXPECT_EQ(0, peer.refusedGreetings());
    EXPECT_EQ((Texts{"600 [00 69] @TestMain", "601 [02] @TestMain"}), posts.entries());
}

TEST_F(OstLinkAppLoopbackTransportTest, PeerPushesAndHangsUpInsideOnCommand_WithoutDeadlock) {
    peer.setScript([](const uint8_t*, size_t, ScriptedPhone::Answer& answer) {
        EXPECT_TRUE(answer.frame({0x80, 0x01, 0, 0, 0, 0, 0, 0}));
        answer.hangUp();
    });
    ASSERT_TRUE(transport.open());
    const uint8 frame[] = {0x00, 0x01, 0x01};
    EXPECT_TRUE(transport.send(frame, sizeof(frame)));
    EXPECT_EQ((Texts{"602 [80 01 00 00 00 00 00 00] @TestMain", "601 [00] @TestMain"}),
              posts.entries());
    EXPECT_EQ((Texts{"open", "command [00 01 01] @TestMain", "close"}), peer.journal());
    EXPECT_FALSE(transport.send(frame, sizeof(frame)));
}

// The peer is called with no lock held: inside onCommand() it may wait for
// another thread of its own that pushes and hangs up. That thread does not
// wait for the peer; onClose() follows once onCommand() has returned.
TEST_F(OstLinkAppLoopbackTransportTest,
       PeerWaitsInsideOnCommandForItsThreadThatHangsUp_NoDeadlock) {
    peer.setScript([](const uint8_t*, size_t, ScriptedPhone::Answer& answer) {
        std::thread phoneThread([&answer] {
            pthread_setname_np(pthread_self(), "Phone");
            EXPECT_TRUE(answer.frame({0x80, 0x01, 0, 0, 0, 0, 0, 0}));
            answer.hangUp();
        });
        phoneThread.join();
    });
    ASSERT_TRUE(transport.open());
    const uint8 frame[] = {0x00, 0x01, 0x01};
    EXPECT_TRUE(transport.send(frame, sizeof(frame)));
    EXPECT_EQ((Texts{"602 [80 01 00 00 00 00 00 00] @Phone", "601 [00] @Phone"}), posts.entries());
    EXPECT_EQ((Texts{"open", "command [00 01 01] @TestMain", "close"}), peer.journal());
    EXPECT_FALSE(transport.close());
}

// Whatever the interleaving, a push that returned true has posted before
// close() returned, and nothing is posted after.
TEST_F(OstLinkAppLoopbackTransportTest, PushesRacingWithClose_PostBeforeCloseReturnsOrAreRefused) {
    ASSERT_TRUE(transport.open());
    std::atomic<int> accepted{0};
    std::thread pusher([this, &accepted] {
        for (int i = 0; i < 20000; ++i) {
            if (!transport.pushDeviceStatus(1)) {
                break;
            }
            ++accepted;
        }
    });
    ASSERT_TRUE(posts.waitForCount(1));
    transport.close();
    const size_t postedAtClose = posts.entries().size();
    pusher.join();
    EXPECT_EQ(postedAtClose, posts.entries().size());
    EXPECT_EQ(static_cast<size_t>(accepted.load()), postedAtClose);
}
