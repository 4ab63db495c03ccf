// ReplaySession: the phone side of a capture played against a module, its
// timing following the module's requests, and every difference logged.
#include "moxphone/ReplaySession.h"

#include <gtest/gtest.h>

#include <chrono>
#include <sstream>
#include <string>
#include <vector>

#include "PhoneTestSupport.h"
#include "moxphone/PhoneLog.h"

namespace {

using moxcapture::CaptureReader;
using moxcapture::Direction;
using moxphone::ReplaySession;
using namespace phonetest;

const Bytes kGreeting = envelope(0x01, {0x01, 'p'});
const Bytes kStatus = envelope(0x02, {0x02});
const Bytes kConnectRequest = command(kConnect);
const Bytes kConnectAnswer = command(answer(0x8001));
const Bytes kDisconnectRequest = command(kDisconnect);

class ReplaySessionTest : public ::testing::Test {
protected:
    // Adds a record `ms` after the capture's start.
    void record(int ms, Direction direction, const Bytes& bytes) {
        CaptureReader::Record added;
        added.time = std::chrono::system_clock::time_point(std::chrono::milliseconds(ms));
        added.direction = direction;
        added.bytes = bytes;
        capture.records.push_back(added);
    }
    // Greeting and status at 0 ms, connect at 10, its answer at 30, disconnect at 50.
    void recordALink() {
        record(0, Direction::kFromPhone, kGreeting);
        record(0, Direction::kFromPhone, kStatus);
        record(10, Direction::kToPhone, kConnectRequest);
        record(30, Direction::kFromPhone, kConnectAnswer);
        record(50, Direction::kToPhone, kDisconnectRequest);
    }
    void receive(const Bytes& bytes) { replay().receiveBytes(bytes.data(), bytes.size()); }
    ReplaySession& replay(double timeScale = 1.0) {
        if (!session) {
            session.reset(new ReplaySession(capture, timeScale, transport, scheduler, log));
        }
        return *session;
    }
    std::vector<std::string> lines() const { return linesOf(out.str()); }

    CaptureReader::Capture capture;
    RecordingTransport transport;
    ManualScheduler scheduler;
    std::ostringstream out;
    moxphone::PhoneLog log{&out};
    std::unique_ptr<ReplaySession> session;
};

TEST_F(ReplaySessionTest, Open_SendsTheGreetingAtOnceAndWaitsForTheFirstRequest) {
    recordALink();
    replay().open();
    EXPECT_EQ(transport.sends, (std::vector<Bytes>{kGreeting, kStatus}));
    EXPECT_EQ(scheduler.pending(), 0u);
    EXPECT_EQ(lines(), std::vector<std::string>{
                           "mox-phone: replay: 3 phone envelopes, 2 requests to check"});
}

TEST_F(ReplaySessionTest, AnswerGoesOutTheScaledGapAfterItsRequest) {
    recordALink();
    replay(0.5).open();
    receive(kConnectRequest);
    EXPECT_EQ(scheduler.delays, std::vector<uint32_t>{10});
    scheduler.advance(9);
    EXPECT_EQ(transport.sends.size(), 2u);
    scheduler.advance(1);
    EXPECT_EQ(transport.sends, (std::vector<Bytes>{kGreeting, kStatus, kConnectAnswer}));
}

TEST_F(ReplaySessionTest, RequestsAsRecorded_EndWithNoDifference) {
    recordALink();
    replay().open();
    const Bytes both = [] {
        Bytes all = kConnectRequest;
        all.insert(all.end(), kDisconnectRequest.begin(), kDisconnectRequest.end());
        return all;
    }();
    // Split anyhow: the first 3 bytes, then the rest.
    receive(slice(both, 0, 3));
    receive(slice(both, 3, both.size() - 3));
    scheduler.advance(20);
    replay().close();
    EXPECT_EQ(replay().differences(), 0u);
    EXPECT_EQ(lines().back(),
              "mox-phone: replay: the module ended the link; 2 requests received, 2 recorded, 0 "
              "differences");
    EXPECT_EQ(transport.hangUps, 0);
}

TEST_F(ReplaySessionTest, RequestThatDiffers_IsLoggedWithItsOffsetAndBytes) {
    recordALink();
    replay().open();
    receive(command({0x00, 0x01, 0x02}));
    ASSERT_EQ(lines().size(), 2u);
    EXPECT_EQ(lines()[1],
              "mox-phone: replay: request 1 (0x0001) differs at byte 7: expected 01 (8 bytes), "
              "got 02 (8 bytes)");
    EXPECT_EQ(replay().differences(), 1u);
    // The answer follows all the same.
    scheduler.advance(20);
    EXPECT_EQ(transport.sends.back(), kConnectAnswer);
}

TEST_F(ReplaySessionTest, LongerRequest_ShowsWhereTheExtraBytesStart) {
    recordALink();
    replay().open();
    receive(command({0x00, 0x01, 0x01, 0xAA}));
    EXPECT_EQ(lines()[1],
              "mox-phone: replay: request 1 (0x0001) differs at byte 3: expected 04 03 00 01 01 "
              "(8 bytes), got 05 03 00 01 01 AA (9 bytes)");
}

TEST_F(ReplaySessionTest, RequestCutByTheEndOfTheLink_SaysWhereItEnds) {
    recordALink();
    replay().open();
    receive(slice(kConnectRequest, 0, 6));
    replay().close();
    EXPECT_EQ(lines()[1],
              "mox-phone: replay: request 1 (0x0001) differs at byte 6: expected 01 01 (8 "
              "bytes), got the end (6 bytes)");
}

TEST_F(ReplaySessionTest, RequestBeyondTheCapture_IsADifference) {
    recordALink();
    replay().open();
    receive(kConnectRequest);
    receive(kDisconnectRequest);
    receive(command(kEcho));
    EXPECT_EQ(lines().back(),
              "mox-phone: replay: request 3 (0x7FFF) is not in the capture: got 00 00 00 03 03 "
              "7F FF");
}

TEST_F(ReplaySessionTest, ModuleEndingEarly_NamesTheRequestsThatNeverCame) {
    recordALink();
    replay().open();
    receive(kConnectRequest);
    replay().close();
    const std::vector<std::string> expected = {
        "mox-phone: replay: 3 phone envelopes, 2 requests to check",
        "mox-phone: replay: request 2 (0x0002) never came",
        "mox-phone: replay: the module ended the link; 1 requests received, 2 recorded, 1 "
        "difference"};
    EXPECT_EQ(lines(), expected);
    EXPECT_EQ(scheduler.pending(), 0u);
    EXPECT_FALSE(replay().isOpen());
}

TEST_F(ReplaySessionTest, CaptureEndingInsideThePhonesEnvelope_HangsUpAfterSendingIt) {
    record(0, Direction::kFromPhone, kGreeting);
    record(5, Direction::kToPhone, kConnectRequest);
    record(6, Direction::kFromPhone, slice(kConnectAnswer, 0, 6));
    replay().open();
    receive(kConnectRequest);
    scheduler.advance(1);
    EXPECT_EQ(transport.sends.back(), slice(kConnectAnswer, 0, 6));
    EXPECT_EQ(transport.hangUps, 1);
    EXPECT_FALSE(replay().isOpen());
    EXPECT_EQ(lines().back(),
              "mox-phone: replay: the capture ends inside the phone's envelope: hanging up; 1 "
              "requests received, 1 recorded, 0 differences");
}

// A failure code on the connect: the module closes the link without a word,
// so the capture ends with the phone's whole answer. The replay sends it and
// leaves the ending to the module.
TEST_F(ReplaySessionTest, CaptureEndingWithThePhonesWholeEnvelope_WaitsForTheModuleToEnd) {
    record(0, Direction::kFromPhone, kGreeting);
    record(5, Direction::kToPhone, kConnectRequest);
    record(6, Direction::kFromPhone, kConnectAnswer);
    replay().open();
    receive(kConnectRequest);
    scheduler.advance(1);
    EXPECT_EQ(transport.sends.back(), kConnectAnswer);
    EXPECT_EQ(transport.hangUps, 0);
    EXPECT_TRUE(replay().isOpen());
    replay().close();
    EXPECT_EQ(lines().back(),
              "mox-phone: replay: the module ended the link; 1 requests received, 1 recorded, 0 "
              "differences");
}

TEST_F(ReplaySessionTest, TransportWithoutRoom_HoldsTheNextEnvelopeUntilResume) {
    recordALink();
    transport.room = false;
    replay().open();
    EXPECT_TRUE(transport.sends.empty());
    transport.room = true;
    replay().resume();
    EXPECT_EQ(transport.sends, (std::vector<Bytes>{kGreeting, kStatus}));
}

TEST_F(ReplaySessionTest, Problem_NamesACutRecordAndACaptureWithoutThePhone) {
    record(0, Direction::kToPhone, kConnectRequest);
    EXPECT_EQ(ReplaySession::problem(capture), "the capture holds nothing the phone sent");
    record(1, Direction::kFromPhone, kGreeting);
    EXPECT_EQ(ReplaySession::problem(capture), "");
    capture.records[1].truncated = true;
    EXPECT_EQ(ReplaySession::problem(capture),
              "record 2 of the capture keeps only the first bytes of its envelope");
}

}  // namespace
