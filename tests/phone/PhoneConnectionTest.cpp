// One connection of the phone server, on a socket pair and a manual clock:
// the greeting goes out at once, an idle module is dropped at the idle time
// exactly and not before, a module that reads nothing is dropped after the
// send timeout, one whose answers pile up is dropped when its queue would
// overflow, a transfer waits for room instead of filling the queue, and a
// hang-up of the phone lets the queued bytes out first. Nothing here waits:
// the test plays the module's end of the pair without blocking and moves
// the clock by hand.
#include "moxphone/PhoneConnection.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "PhoneTestSupport.h"
#include "moxphone/ResponseDatabase.h"

using moxphone::PhoneConnection;
using moxphone::PhoneOptions;
using namespace phonetest;

namespace {

class PhoneConnectionTest : public ::testing::Test {
protected:
    using Limits = PhoneConnection::Limits;

    PhoneConnectionTest() : log(&logText) {}
    ~PhoneConnectionTest() override {
        connection.reset();
        if (module >= 0) {
            ::close(module);
        }
    }

    // A connection with `options` and `limits` on one end of a socket pair,
    // opened; the test holds the other end. With `smallBuffer`, the
    // connection's socket takes only a few KiB, so that its queue fills soon.
    void start(const PhoneOptions& options, const Limits& limits = Limits(),
               bool smallBuffer = false) {
        int fds[2];
        ASSERT_EQ(0, ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds));
        if (smallBuffer) {
            const int size = 1;  // the kernel's smallest
            ASSERT_EQ(0, ::setsockopt(fds[0], SOL_SOCKET, SO_SNDBUF, &size, sizeof(size)));
        }
        module = fds[1];
        ASSERT_EQ(0, ::fcntl(module, F_SETFL, O_NONBLOCK));
        connection.reset(new PhoneConnection(fds[0], options, limits, log, [this] { return now; }));
        connection->open();
    }
    void startSample(const std::vector<std::string>& faults = {}, uint32_t chunkSize = 4096,
                     const Limits& limits = Limits(), bool smallBuffer = false) {
        PhoneOptions options = optionsWith(sampleCatalogue(), faults);
        options.chunkSize = chunkSize;
        start(options, limits, smallBuffer);
    }

    // One round of a poll loop that does not wait.
    void turn() {
        if (connection->finished()) {
            return;
        }
        pollfd entry = {connection->fd(), connection->events(), 0};
        ASSERT_GE(::poll(&entry, 1, 0), 0);
        if (entry.revents != 0) {
            connection->handle(entry.revents);
        }
        connection->runDue();
    }
    void advance(int ms) {
        now += std::chrono::milliseconds(ms);
        connection->runDue();
    }

    // The module's end: what it sends, and what it reads without waiting
    // (at most `most` bytes).
    void moduleSends(const Bytes& bytes) {
        ASSERT_EQ(static_cast<ssize_t>(bytes.size()),
                  ::send(module, bytes.data(), bytes.size(), MSG_NOSIGNAL));
    }
    size_t moduleReads(size_t most = SIZE_MAX) {
        size_t total = 0;
        uint8_t piece[4096];
        while (total < most) {
            const ssize_t got = ::recv(module, piece, std::min(sizeof(piece), most - total), 0);
            if (got <= 0) {
                moduleSawTheEnd = moduleSawTheEnd || got == 0 || errno == ECONNRESET;
                break;
            }
            received.insert(received.end(), piece, piece + got);
            total += static_cast<size_t>(got);
        }
        return total;
    }
    std::vector<Bytes> receivedFrames() const { return commandFrames(received); }
    std::vector<std::string> logLines() const { return linesOf(logText.str()); }
    bool logged(const std::string& line) const {
        const std::vector<std::string> lines = logLines();
        return std::find(lines.begin(), lines.end(), "mox-phone: " + line) != lines.end();
    }

    PhoneConnection::Clock::time_point now{};
    std::ostringstream logText;
    moxphone::PhoneLog log;
    std::unique_ptr<PhoneConnection> connection;
    int module = -1;
    Bytes received;
    bool moduleSawTheEnd = false;

    // Disc 2 of the sample: the first disc of the two-disc album, 4 tracks.
    static inline const std::string kDiscToc = "000096004EB600A0BE00ECEA013916";
};

}  // namespace

// ---- The limits ----

TEST(PhoneConnectionLimitsTest, Defaults_ThirtySecondsIdleTenToSendTwoMebibytesQueued) {
    const PhoneConnection::Limits limits;
    EXPECT_EQ(30000u, limits.idleMs);
    EXPECT_EQ(10000u, limits.sendTimeoutMs);
    EXPECT_EQ(2u * 1024 * 1024, limits.maxQueuedBytes);
    EXPECT_EQ(64u * 1024, limits.pauseBytes);
}

TEST(PhoneConnectionLimitsTest, ScaledBy_TheIdleTimeOnlyAndNotBelowOneSecond) {
    using Limits = PhoneConnection::Limits;
    EXPECT_EQ(3000u, Limits::scaledBy(0.1).idleMs);
    EXPECT_EQ(60000u, Limits::scaledBy(2.0).idleMs);
    EXPECT_EQ(1000u, Limits::scaledBy(0.02).idleMs);
    EXPECT_EQ(1000u, Limits::scaledBy(0.00001).idleMs);
    EXPECT_EQ(10000u, Limits::scaledBy(0.1).sendTimeoutMs);
    EXPECT_EQ(Limits().maxQueuedBytes, Limits::scaledBy(0.1).maxQueuedBytes);
}

// ---- Opening and the end ----

TEST_F(PhoneConnectionTest, Open_TheGreetingGoesOutAtOnce) {
    startSample();
    moduleReads();
    EXPECT_EQ((std::vector<Message>{deviceInfo(1, "mox-phone"), deviceStatus(2)}),
              splitEnvelopes(received));
    EXPECT_EQ(POLLIN, connection->events());
    EXPECT_EQ(0u, connection->queuedBytes());
}

TEST_F(PhoneConnectionTest, ModuleHangsUp_FinishedWithTheReason) {
    startSample();
    moduleReads();
    ::close(module);
    module = -1;
    turn();
    EXPECT_TRUE(connection->finished());
    EXPECT_EQ(-1, connection->fd());
    EXPECT_EQ(-1, connection->timeoutMs());
    const std::vector<std::string> lines = logLines();
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ("mox-phone: the module hung up", lines[lines.size() - 2]);
    EXPECT_EQ("mox-phone: the connection is closed", lines.back());
}

TEST_F(PhoneConnectionTest, Drop_LogsTheReasonClosesTheSessionAndTheSocket) {
    startSample();
    moduleReads();
    logText.str("");
    connection->drop("stopping: the connection is dropped");
    EXPECT_TRUE(connection->finished());
    EXPECT_EQ((std::vector<std::string>{"mox-phone: stopping: the connection is dropped",
                                        "mox-phone: the connection is closed"}),
              logLines());
    moduleReads();
    EXPECT_TRUE(moduleSawTheEnd);
}

// ---- An idle module ----

TEST_F(PhoneConnectionTest, Idle_NothingForThirtySeconds_DroppedThenAndNotBefore) {
    startSample();
    moduleReads();
    EXPECT_EQ(30000, connection->timeoutMs());
    advance(29999);
    EXPECT_FALSE(connection->finished());
    EXPECT_EQ(1, connection->timeoutMs());
    logText.str("");
    advance(1);
    EXPECT_TRUE(connection->finished());
    EXPECT_EQ(
        (std::vector<std::string>{
            "mox-phone: the module has been idle for 30 s (nothing received or sent); dropping "
            "the connection",
            "mox-phone: the connection is closed"}),
        logLines());
    moduleReads();
    EXPECT_TRUE(moduleSawTheEnd);
}

TEST_F(PhoneConnectionTest, Idle_ARequestStartsTheCountAgain) {
    startSample();
    advance(20000);
    moduleSends(command(kEcho));
    turn();
    advance(29999);
    EXPECT_FALSE(connection->finished());
    moduleReads();
    EXPECT_EQ(std::vector<Bytes>{answer(0xFFFF)}, receivedFrames());
    advance(1);
    EXPECT_TRUE(connection->finished());
}

TEST_F(PhoneConnectionTest, Idle_ScaledLimit_TheLogSaysTheTimeInForce) {
    startSample({}, 4096, Limits::scaledBy(0.05));
    advance(1500);
    EXPECT_TRUE(connection->finished());
    EXPECT_TRUE(logged(
        "the module has been idle for 1.5 s (nothing received or sent); dropping the connection"))
        << logText.str();
}

TEST_F(PhoneConnectionTest, Idle_SlowTransferToAModuleThatReads_NotIdle) {
    // Twenty seconds between chunks, the module sends nothing after its
    // request: each chunk taken by the socket is traffic.
    startSample({"slow-chunks=20000"}, 300);
    moduleSends(command(lookupFrame(kDiscToc)));
    turn();
    moduleSends(command(kGetCdMetaInfo));
    turn();
    for (int i = 0; i < 3; ++i) {
        advance(20000);
        moduleReads();
        ASSERT_FALSE(connection->finished()) << "chunk " << i;
    }
    EXPECT_EQ(2u + 3u, receivedFrames().size());
}

// ---- A module that reads nothing ----

TEST_F(PhoneConnectionTest, ReadsNothing_AnswersWaitTenSeconds_DroppedWithTheReason) {
    startSample({}, 16, Limits(), true);
    moduleSends(command(lookupFrame(kDiscToc)));
    turn();
    moduleSends(command(kGetCdMetaInfo));
    turn();
    ASSERT_GT(connection->queuedBytes(), 0u);
    EXPECT_EQ(POLLIN | POLLOUT, connection->events());
    EXPECT_EQ(10000, connection->timeoutMs());
    advance(9999);
    EXPECT_FALSE(connection->finished());
    logText.str("");
    advance(1);
    EXPECT_TRUE(connection->finished());
    EXPECT_EQ((std::vector<std::string>{
                  "mox-phone: the module has read nothing for 10 s; dropping the connection",
                  "mox-phone: the connection is closed"}),
              logLines());
}

TEST_F(PhoneConnectionTest, ReadsNothingAndSendsRequests_DroppedWhenItsQueueWouldOverflow) {
    Limits limits;
    limits.maxQueuedBytes = 16 * 1024;
    startSample({}, 4096, limits, true);
    Bytes echoes;
    for (int i = 0; i < 500; ++i) {
        const Bytes one = command(kEcho);
        echoes.insert(echoes.end(), one.begin(), one.end());
    }
    size_t peak = 0;
    for (int round = 0; round < 100 && !connection->finished(); ++round) {
        moduleSends(echoes);
        turn();
        peak = std::max(peak, connection->queuedBytes());
    }
    ASSERT_TRUE(connection->finished());
    EXPECT_LE(peak, limits.maxQueuedBytes);
    const std::vector<std::string> lines = logLines();
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(0u, lines[lines.size() - 2].find("mox-phone: the module reads too little: "))
        << lines[lines.size() - 2];
    EXPECT_NE(std::string::npos,
              lines[lines.size() - 2].find(
                  " bytes would wait for it, more than 16384; dropping the connection"));
    EXPECT_EQ("mox-phone: the module's end is gone", lines.back());
}

// ---- A transfer to a module that reads slowly ----

TEST_F(PhoneConnectionTest, SlowReader_TransferWaitsForRoom_QueueStaysBoundedAndAllArrives) {
    constexpr size_t kChunk = 4;
    constexpr size_t kEnvelope = 5 + 12 + kChunk;
    Limits limits;
    limits.pauseBytes = 512;
    startSample({}, kChunk, limits, true);
    moduleSends(command(lookupFrame(kDiscToc)));
    turn();
    moduleSends(command(kGetCdMetaInfo));
    size_t peak = 0;
    for (int round = 0; round < 100000 && !connection->finished(); ++round) {
        turn();
        peak = std::max(peak, connection->queuedBytes());
        if (moduleReads(512) == 0 && connection->queuedBytes() == 0) {
            break;
        }
    }
    const auto catalogue = sampleCatalogue();
    const Bytes db = moxphone::ResponseDatabase::build(*catalogue, *catalogue->findDisc(kDiscToc));
    const size_t count = (db.size() + kChunk - 1) / kChunk;
    ASSERT_GT(count * kEnvelope, 4 * limits.pauseBytes);  // the transfer had to wait
    const std::vector<Bytes> frames = receivedFrames();
    ASSERT_EQ(2 + count, frames.size());
    for (size_t i = 0; i < count; ++i) {
        const size_t length = std::min(kChunk, db.size() - i * kChunk);
        EXPECT_EQ(chunk(static_cast<uint16_t>(i), static_cast<uint16_t>(count),
                        static_cast<uint32_t>(length), slice(db, i * kChunk, length)),
                  frames[2 + i]);
    }
    // At most one chunk's envelope beyond the mark.
    EXPECT_LE(peak, limits.pauseBytes + kEnvelope);
    EXPECT_GE(peak, limits.pauseBytes);
    EXPECT_FALSE(connection->finished());
}

// ---- The phone hangs up ----

TEST_F(PhoneConnectionTest, DropMidTransfer_QueuedChunksGoOutFirstThenTheEnd) {
    startSample({"drop-mid-transfer"}, 16, Limits(), true);
    moduleSends(command(lookupFrame(kDiscToc)));
    turn();
    moduleSends(command(kGetCdMetaInfo));
    turn();
    ASSERT_FALSE(connection->finished());  // the queue still holds chunks
    EXPECT_EQ(POLLOUT, connection->events());
    for (int round = 0; round < 100000 && !moduleSawTheEnd; ++round) {
        moduleReads();
        turn();
    }
    EXPECT_TRUE(connection->finished());
    EXPECT_TRUE(moduleSawTheEnd);
    Bytes rest;
    const std::vector<Message> messages = splitEnvelopes(received, &rest);
    const auto catalogue = sampleCatalogue();
    const Bytes db = moxphone::ResponseDatabase::build(*catalogue, *catalogue->findDisc(kDiscToc));
    const size_t count = (db.size() + 15) / 16;
    EXPECT_EQ(2 + 2 + count / 2, messages.size());  // greeting, answers, chunks before the middle
    EXPECT_EQ((16 + 12 + 5) / 2, rest.size());      // half of the middle one
}
