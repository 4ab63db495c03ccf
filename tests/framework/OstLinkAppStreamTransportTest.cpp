// The stream transport's behaviour, through its Unix edition and a phone on
// a real socket inside the test.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "ByteText.h"
#include "CallLog.h"
#include "DbgCapture.h"
#include "LinkWire.h"
#include "OstLinkApp/OstLinkAppEnvelope.h"
#include "OstLinkApp/OstLinkAppHost.h"
#include "OstLinkAppUnixTransport.h"
#include "RawPhone.h"
#include "TestDir.h"
#include "ThreadName.h"

namespace {

typedef std::vector<std::string> Texts;
typedef std::vector<uint8_t> Bytes;

const char kSource[] = "platform/host/src/OstLinkAppStreamTransport.cpp";

OstLinkAppTransport::PostFunc recorder(CallLog& posts) {
    return [&posts](uint32 id, const void* data, uint32 size) {
        posts.add(std::to_string(id) + " " + byteText(data, size) + " @" + currentThreadName());
    };
}

using linkwire::envelope;

class OstLinkAppStreamTransportTest : public ::testing::Test {
protected:
    OstLinkAppStreamTransportTest()
        : dir("stream-transport"),
          path(dir.file("phone.sock")),
          name("unix:" + path),
          transport(path, recorder(posts)) {}

    void SetUp() override { ASSERT_TRUE(server.listenUnix(path)); }

    // Opens the link and lets the phone report a connected device, so the
    // link has connected when this returns.
    void connectLink() {
        ASSERT_TRUE(transport.open());
        ASSERT_TRUE(server.accept());
        ASSERT_TRUE(server.send(envelope(2, {0x01})));
        ASSERT_TRUE(posts.waitForCount(1));
        ASSERT_EQ(Texts{"601 [01] @OstLinkAppRx"}, posts.entries());
    }

    Texts errorTexts() const {
        Texts texts;
        for (const HbDbgRecord& record : capture.records()) {
            EXPECT_EQ(kSource, record.file);
            EXPECT_EQ(en_TAG_ERROR, record.tag);
            texts.push_back(record.text);
        }
        return texts;
    }

    // The phone sends `bytes`; the link must end with `log` and report it.
    void expectLinkEnds(const Bytes& bytes, const std::string& log) {
        connectLink();
        ASSERT_TRUE(server.send(bytes));
        ASSERT_TRUE(posts.waitForCount(2));
        EXPECT_EQ((Texts{"601 [01] @OstLinkAppRx", "601 [00] @OstLinkAppRx"}), posts.entries());
        EXPECT_EQ(Texts{log}, errorTexts());
        EXPECT_FALSE(transport.isOpen());
        EXPECT_TRUE(server.waitForEof());
        EXPECT_FALSE(transport.close());
        EXPECT_EQ(2u, posts.entries().size());
    }

    DbgCapture capture;
    TestDir dir;
    std::string path;
    std::string name;
    RawPhone server;
    CallLog posts;
    OstLinkAppUnixTransport transport;
};

}  // namespace

TEST_F(OstLinkAppStreamTransportTest, PhoneSends_EachMessageIsPostedOnTheReaderThread) {
    ASSERT_TRUE(transport.open());
    EXPECT_TRUE(transport.isOpen());
    ASSERT_TRUE(server.accept());
    Bytes stream = envelope(1, {0x01, 'P', 'i', 'x'});
    const Bytes status = envelope(2, {0x02});
    const Bytes command = envelope(3, {0x80, 0x01, 0, 0, 0, 0, 0, 0});
    stream.insert(stream.end(), status.begin(), status.end());
    stream.insert(stream.end(), command.begin(), command.end());
    ASSERT_TRUE(server.send(stream));
    ASSERT_TRUE(posts.waitForCount(3));
    const Texts expected = {"600 [01 50 69 78] @OstLinkAppRx", "601 [02] @OstLinkAppRx",
                            "602 [80 01 00 00 00 00 00 00] @OstLinkAppRx"};
    EXPECT_EQ(expected, posts.entries());
    EXPECT_TRUE(capture.records().empty());
}

TEST_F(OstLinkAppStreamTransportTest, PhoneSendsByteByByte_MessagesArriveWhole) {
    connectLink();
    const Bytes command = envelope(3, {0x80, 0x10, 0, 0, 0, 0, 0, 0});
    for (uint8_t byte : command) {
        ASSERT_TRUE(server.send({byte}));
    }
    ASSERT_TRUE(posts.waitForCount(2));
    EXPECT_EQ("602 [80 10 00 00 00 00 00 00] @OstLinkAppRx", posts.entries()[1]);
}

TEST_F(OstLinkAppStreamTransportTest, Send_WritesTheCommandEnvelopeByteForByte) {
    connectLink();
    const uint8 frame[] = {0x00, 0x10, 0x01, 0x00, 0x00, 0x02, 0x00, 0x03, 'x'};
    EXPECT_TRUE(transport.send(frame, sizeof(frame)));
    Bytes received;
    ASSERT_TRUE(server.readExactly(14, received));
    const Bytes expected = {0x00, 0x00, 0x00, 0x0A, 0x03, 0x00, 0x10,
                            0x01, 0x00, 0x00, 0x02, 0x00, 0x03, 'x'};
    EXPECT_EQ(expected, received);
}

TEST_F(OstLinkAppStreamTransportTest, Send_FromSeveralThreads_EnvelopesNeverInterleave) {
    connectLink();
    const int kThreads = 4;
    const int kFrames = 200;
    std::vector<std::thread> senders;
    size_t total = 0;
    for (int t = 0; t < kThreads; ++t) {
        for (int i = 0; i < kFrames; ++i) {
            total += 5 + 2 + static_cast<size_t>(i % 50) * 100;
        }
    }
    for (int t = 0; t < kThreads; ++t) {
        senders.emplace_back([this, t] {
            for (int i = 0; i < kFrames; ++i) {
                Bytes frame(2 + static_cast<size_t>(i % 50) * 100, static_cast<uint8_t>(i));
                frame[0] = static_cast<uint8_t>(t);
                frame[1] = static_cast<uint8_t>(i);
                EXPECT_TRUE(transport.send(frame.data(), static_cast<uint32>(frame.size())));
            }
        });
    }
    Bytes received;
    const bool complete = server.readExactly(total, received);
    for (std::thread& sender : senders) {
        sender.join();
    }
    ASSERT_TRUE(complete);
    std::map<int, int> next;
    size_t pos = 0;
    while (pos < received.size()) {
        const uint32 length = OstLinkAppEnvelope::readLength(received.data() + pos);
        ASSERT_EQ(0x03, received[pos + 4]);
        const uint8_t* frame = received.data() + pos + 5;
        const int t = frame[0];
        const int i = next[t]++;
        ASSERT_EQ(static_cast<uint8_t>(i), frame[1]);
        ASSERT_EQ(1u + 2u + static_cast<uint32>(i % 50) * 100u, length);
        for (uint32 k = 2; k < length - 1; ++k) {
            ASSERT_EQ(static_cast<uint8_t>(i), frame[k]);
        }
        pos += 4 + length;
    }
    for (int t = 0; t < kThreads; ++t) {
        EXPECT_EQ(kFrames, next[t]);
    }
}

TEST_F(OstLinkAppStreamTransportTest, PhoneHangsUp_LogsAndReportsTheLinkClosedOnce) {
    connectLink();
    server.hangUp();
    ASSERT_TRUE(posts.waitForCount(2));
    EXPECT_EQ((Texts{"601 [01] @OstLinkAppRx", "601 [00] @OstLinkAppRx"}), posts.entries());
    EXPECT_EQ(Texts{"link closed by the phone on " + name + "\n"}, errorTexts());
    EXPECT_FALSE(transport.isOpen());
    EXPECT_FALSE(transport.close());
    EXPECT_EQ(2u, posts.entries().size());
}

TEST_F(OstLinkAppStreamTransportTest, PhoneHangsUpInsideAnEnvelope_IsAProtocolErrorCutOff) {
    connectLink();
    ASSERT_TRUE(server.send({0, 0, 0, 3, 3, 0x80}));
    server.hangUp();
    ASSERT_TRUE(posts.waitForCount(2));
    EXPECT_EQ((Texts{"601 [01] @OstLinkAppRx", "601 [00] @OstLinkAppRx"}), posts.entries());
    EXPECT_EQ(Texts{"protocol error on " + name +
                    ": stream ended inside an envelope (2 of 3 bytes), closing the link\n"},
              errorTexts());
}

TEST_F(OstLinkAppStreamTransportTest, LengthZero_ClosesTheConnectionAndReportsIt) {
    expectLinkEnds({0, 0, 0, 0},
                   "protocol error on " + name + ": envelope length 0, closing the link\n");
}

TEST_F(OstLinkAppStreamTransportTest, LengthOverTheLimit_ClosesTheConnectionAndReportsIt) {
    expectLinkEnds(
        {0x7F, 0xFF, 0xFF, 0xFF},
        "protocol error on " + name +
            ": envelope length 2147483647 over the limit of 1048576, closing the link\n");
}

TEST_F(OstLinkAppStreamTransportTest, UnknownType_ClosesTheConnectionAndReportsIt) {
    expectLinkEnds({0, 0, 0, 2, 0x42, 0}, "protocol error on " + name +
                                              ": unknown envelope type 0x42, closing the link\n");
}

TEST_F(OstLinkAppStreamTransportTest, DeviceStatusOfTwoBytes_ClosesTheConnectionAndReportsIt) {
    expectLinkEnds(envelope(2, {2, 2}),
                   "protocol error on " + name +
                       ": device status envelope with 2 payload bytes, expected 1, closing the "
                       "link\n");
}

TEST_F(OstLinkAppStreamTransportTest, DeviceInfoWithoutOsType_ClosesTheConnectionAndReportsIt) {
    expectLinkEnds(envelope(1, {}), "protocol error on " + name +
                                        ": device info envelope without an OS type, closing the "
                                        "link\n");
}

TEST_F(OstLinkAppStreamTransportTest, PhoneReportsNoDevice_PostsItOnceAndEndsTheLink) {
    Bytes bytes = envelope(2, {0x00});
    const Bytes after = envelope(2, {0x02});
    bytes.insert(bytes.end(), after.begin(), after.end());
    expectLinkEnds(bytes, "the phone reported no device on " + name + ", closing the link\n");
}

TEST_F(OstLinkAppStreamTransportTest, Close_OpenLink_PostsNothingAndThePhoneSeesTheEnd) {
    connectLink();
    EXPECT_TRUE(transport.close());
    EXPECT_FALSE(transport.isOpen());
    EXPECT_TRUE(server.waitForEof());
    EXPECT_FALSE(transport.close());
    EXPECT_EQ(1u, posts.entries().size());
    EXPECT_TRUE(capture.records().empty());
}

TEST_F(OstLinkAppStreamTransportTest, Close_AfterASend_ThePhoneGetsTheFrameThenTheEnd) {
    connectLink();
    const uint8 frame[] = {0x00, 0x02};
    EXPECT_TRUE(transport.send(frame, sizeof(frame)));
    EXPECT_TRUE(transport.close());
    Bytes rest;
    EXPECT_TRUE(server.waitForEof(&rest));
    EXPECT_EQ((Bytes{0, 0, 0, 3, 3, 0x00, 0x02}), rest);
}

TEST_F(OstLinkAppStreamTransportTest, Close_RightAfterOpen_PostsNothing) {
    ASSERT_TRUE(transport.open());
    EXPECT_TRUE(transport.close());
    EXPECT_TRUE(posts.entries().empty());
    EXPECT_TRUE(capture.records().empty());
}

TEST_F(OstLinkAppStreamTransportTest, Close_WhilePhoneSendsFast_NothingIsPostedAfterItReturns) {
    connectLink();
    std::thread phone([this] {
        const Bytes status = envelope(2, {0x01});
        Bytes burst;
        for (int i = 0; i < 1000; ++i) {
            burst.insert(burst.end(), status.begin(), status.end());
        }
        while (server.send(burst)) {
        }
    });
    ASSERT_TRUE(posts.waitForCount(50));
    EXPECT_TRUE(transport.close());
    const size_t postedAtClose = posts.entries().size();
    phone.join();  // its sends fail once the link has closed its end
    EXPECT_EQ(postedAtClose, posts.entries().size());
    EXPECT_TRUE(capture.records().empty());
}

TEST_F(OstLinkAppStreamTransportTest, Send_AfterClose_LogsAndDrops) {
    connectLink();
    transport.close();
    const uint8 frame[] = {0x00, 0x02};
    EXPECT_FALSE(transport.send(frame, sizeof(frame)));
    EXPECT_EQ(Texts{"link not open, frame of 2 bytes dropped\n"}, errorTexts());
}

TEST_F(OstLinkAppStreamTransportTest, Send_AfterThePhoneHungUp_LogsAndDrops) {
    connectLink();
    server.hangUp();
    ASSERT_TRUE(posts.waitForCount(2));
    capture.clear();
    const uint8 frame[] = {0x00, 0x02};
    EXPECT_FALSE(transport.send(frame, sizeof(frame)));
    EXPECT_EQ(Texts{"link not open, frame of 2 bytes dropped\n"}, errorTexts());
}

TEST_F(OstLinkAppStreamTransportTest, Send_FrameOverTheLimit_LogsAndDrops) {
    connectLink();
    const Bytes frame(OstLinkAppEnvelope::MAX_PAYLOAD_SIZE + 1, 0);
    EXPECT_FALSE(transport.send(frame.data(), static_cast<uint32>(frame.size())));
    EXPECT_EQ(Texts{"frame of 1048576 bytes over the envelope limit, dropped\n"}, errorTexts());
}

TEST_F(OstLinkAppStreamTransportTest, Send_FrameAtTheLimit_ArrivesWhole) {
    connectLink();
    const Bytes frame(OstLinkAppEnvelope::MAX_PAYLOAD_SIZE, 0x77);
    std::thread sender([this, &frame] {
        EXPECT_TRUE(transport.send(frame.data(), static_cast<uint32>(frame.size())));
    });
    Bytes received;
    const bool complete = server.readExactly(frame.size() + 5, received);
    sender.join();
    ASSERT_TRUE(complete);
    EXPECT_EQ((Bytes{0x00, 0x10, 0x00, 0x00, 0x03}), Bytes(received.begin(), received.begin() + 5));
    EXPECT_EQ(frame, Bytes(received.begin() + 5, received.end()));
}

// --- A phone that does not greet, or does not read -------------------------------------

TEST_F(OstLinkAppStreamTransportTest, PhoneSilentAfterConnecting_LinkEndsAfterTheGreetingTime) {
    OstLinkAppHost::setLinkTimes(100, 0);
    const auto started = std::chrono::steady_clock::now();
    ASSERT_TRUE(transport.open());
    ASSERT_TRUE(server.accept());
    ASSERT_TRUE(posts.waitForCount(1));
    const auto waited = std::chrono::steady_clock::now() - started;
    OstLinkAppHost::setLinkTimes(0, 0);
    EXPECT_EQ(Texts{"601 [00] @OstLinkAppRx"}, posts.entries());
    EXPECT_EQ(Texts{"the phone at " + name +
                    " did not send its device info and status within 100 ms, closing the link\n"},
              errorTexts());
    EXPECT_GE(waited, std::chrono::milliseconds(100));
    EXPECT_TRUE(server.waitForEof());
}

TEST_F(OstLinkAppStreamTransportTest, PhoneGreetsInTime_LinkStaysUpPastTheGreetingTime) {
    OstLinkAppHost::setLinkTimes(100, 0);
    ASSERT_TRUE(transport.open());
    ASSERT_TRUE(server.accept());
    ASSERT_TRUE(server.send(envelope(1, {0x01, 'P'})));
    ASSERT_TRUE(server.send(envelope(2, {0x02})));
    ASSERT_TRUE(posts.waitForCount(2));
    // A frame sent well after the greeting time still arrives.
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    const uint8 frame[] = {0x00, 0x01, 0x01};
    EXPECT_TRUE(transport.send(frame, sizeof(frame)));
    Bytes received;
    EXPECT_TRUE(server.readExactly(8, received));
    OstLinkAppHost::setLinkTimes(0, 0);
    EXPECT_TRUE(transport.isOpen());
    EXPECT_TRUE(errorTexts().empty());
}

// Sends return at once whatever the phone does; what the socket does not
// take waits in the queue, and a queue that does not move ends the link.
TEST_F(OstLinkAppStreamTransportTest, PhoneNeverReads_SendsReturnAtOnceLinkEndsAfterTheStallTime) {
    OstLinkAppHost::setLinkTimes(0, 200);
    connectLink();
    const Bytes frame(256 * 1024, 0x42);
    for (int i = 0; i < 8; ++i) {
        transport.send(frame.data(), static_cast<uint32>(frame.size()));
    }
    ASSERT_TRUE(posts.waitForCount(2));
    OstLinkAppHost::setLinkTimes(0, 0);
    EXPECT_EQ((Texts{"601 [01] @OstLinkAppRx", "601 [00] @OstLinkAppRx"}), posts.entries());
    const Texts logged = errorTexts();
    ASSERT_FALSE(logged.empty());
    const std::string lost = "link lost on " + name + ": the phone read nothing for 200 ms, ";
    EXPECT_EQ(lost, logged.back().substr(0, lost.size())) << logged.back();
    EXPECT_FALSE(transport.isOpen());
}

TEST_F(OstLinkAppStreamTransportTest, QueueOverflow_SendRefusedAndTheLinkEnds) {
    OstLinkAppHost::setLinkTimes(0, 60000);
    connectLink();
    const Bytes frame(OstLinkAppEnvelope::MAX_PAYLOAD_SIZE, 0x42);
    int accepted = 0;
    while (accepted < 16 && transport.send(frame.data(), static_cast<uint32>(frame.size()))) {
        ++accepted;
    }
    ASSERT_TRUE(posts.waitForCount(2));
    OstLinkAppHost::setLinkTimes(0, 0);
    // Four of the largest envelopes fit in the queue, plus what the socket took.
    EXPECT_GE(accepted, 4);
    EXPECT_LT(accepted, 16);
    const Texts logged = errorTexts();
    ASSERT_EQ(2u, logged.size());
    EXPECT_EQ("send queue of " + name + " full, frame of 1048575 bytes dropped\n", logged[0]);
    const std::string lost = "link lost on " + name + ": the phone reads nothing, ";
    EXPECT_EQ(lost, logged[1].substr(0, lost.size())) << logged[1];
    EXPECT_FALSE(transport.send(frame.data(), 3));
}
