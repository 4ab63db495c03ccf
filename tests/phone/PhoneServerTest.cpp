// The simulator on sockets, driven by a raw test client: a whole lookup over
// a Unix socket and over TCP, connections side by side, a client that hangs
// up at each step, clients that sleep, read nothing, flood or come over the
// limit, malformed frames in the log, loopback-only TCP unless allowed, the
// socket file's life, and stopping with a client connected. The client waits
// on reads (with a generous receive timeout against a hanging server), never
// on time.
#include "moxphone/PhoneServer.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <arpa/inet.h>

#include <chrono>
#include <cstring>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "PhoneTestSupport.h"
#include "TestDir.h"
#include "moxphone/ResponseDatabase.h"

using moxphone::Envelope;
using moxphone::PhoneOptions;
using moxphone::PhoneServer;
using namespace phonetest;

namespace {

// A module's end of the socket, as bare as it gets.
class RawClient {
public:
    static std::unique_ptr<RawClient> unixAt(const std::string& path) {
        const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address;
        std::memset(&address, 0, sizeof(address));
        address.sun_family = AF_UNIX;
        std::memcpy(address.sun_path, path.data(), path.size());
        EXPECT_EQ(0, ::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)))
            << std::strerror(errno);
        return std::unique_ptr<RawClient>(new RawClient(fd));
    }
    static std::unique_ptr<RawClient> tcpAt(uint16_t port) {
        const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address;
        std::memset(&address, 0, sizeof(address));
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(0, ::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)))
            << std::strerror(errno);
        return std::unique_ptr<RawClient>(new RawClient(fd));
    }
    ~RawClient() { close(); }

    void send(const Bytes& bytes) {
        EXPECT_EQ(static_cast<ssize_t>(bytes.size()),
                  ::send(mFd, bytes.data(), bytes.size(), MSG_NOSIGNAL));
    }
    void sendCommand(const Bytes& frame) { send(command(frame)); }
    // Reads until `count` whole messages have come (fewer at end of stream).
    std::vector<Message> read(size_t count) {
        std::vector<Message> messages;
        while (true) {
            Bytes rest;
            messages = splitEnvelopes(mBuffer, &rest);
            if (messages.size() >= count || !readMore()) {
                break;
            }
        }
        Bytes rest;
        std::vector<Message> all = splitEnvelopes(mBuffer, &rest);
        const size_t taken = std::min(count, all.size());
        size_t used = 0;
        for (size_t i = 0; i < taken; ++i) {
            used += 5 + all[i].payload.size();
        }
        mBuffer.erase(mBuffer.begin(), mBuffer.begin() + static_cast<std::ptrdiff_t>(used));
        all.resize(taken);
        return all;
    }
    std::vector<Bytes> readFrames(size_t count) {
        std::vector<Bytes> frames;
        for (const Message& message : read(count)) {
            frames.push_back(message.payload);
        }
        return frames;
    }
    // Reads until the server closes; true when it did (false on a timeout).
    bool readUntilEnd() {
        while (readMore()) {
        }
        return mEnded;
    }
    // Sends `bytes` again and again, never reading, until the socket takes
    // no more: then the server has stopped reading and waits to send. False
    // if that never happens.
    bool sendUntilFull(const Bytes& bytes) {
        for (int attempt = 0; attempt < 1000000; ++attempt) {
            const ssize_t sent =
                ::send(mFd, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
            if (sent < 0) {
                return errno == EAGAIN || errno == EWOULDBLOCK;
            }
        }
        return false;
    }
    // Sends `bytes` again and again, never reading, until the server has
    // closed the connection; false if that does not happen before the send
    // timeout.
    bool sendUntilGone(const Bytes& bytes) {
        const timeval timeout = {20, 0};
        ::setsockopt(mFd, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof(timeout));
        while (true) {
            const ssize_t sent = ::send(mFd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
            if (sent < 0) {
                return errno == EPIPE || errno == ECONNRESET;
            }
        }
    }
    // Bytes read but not taken as whole messages.
    const Bytes& buffered() const { return mBuffer; }
    void close() {
        if (mFd >= 0) {
            ::close(mFd);
            mFd = -1;
        }
    }

private:
    explicit RawClient(int fd) : mFd(fd) {
        const timeval timeout = {20, 0};
        ::setsockopt(mFd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof(timeout));
    }
    bool readMore() {
        uint8_t buffer[65536];
        const ssize_t got = ::recv(mFd, buffer, sizeof(buffer), 0);
        if (got <= 0) {
            mEnded = got == 0 || errno == ECONNRESET;
            return false;
        }
        mBuffer.insert(mBuffer.end(), buffer, buffer + got);
        return true;
    }

    int mFd;
    Bytes mBuffer;
    bool mEnded = false;
};

class PhoneServerTest : public ::testing::Test {
protected:
    PhoneServerTest() : dir("PhoneServerTest"), log(&logText) {}
    ~PhoneServerTest() override { stop(); }

    // A server on `endpoint`, running on its own thread.
    void start(const std::string& endpoint, const PhoneOptions& options,
               const PhoneServer::Limits& limits = PhoneServer::Limits()) {
        server.reset(new PhoneServer(options, log, limits));
        std::string error;
        ASSERT_TRUE(server->listen(endpoint, false, &error)) << error;
        thread = std::thread([this] { server->run(); });
    }
    void startUnix(const std::vector<std::string>& faults = {}) {
        start("unix:" + socketPath(), optionsWith(sampleCatalogue(), faults));
    }
    void stop() {
        if (server) {
            server->requestStop();
        }
        if (thread.joinable()) {
            thread.join();
        }
    }
    std::string socketPath() const { return dir.file("phone.sock"); }
    // The lines of the log that start with `prefix`; once the server has stopped.
    size_t logLinesStartingWith(const std::string& prefix) const {
        size_t count = 0;
        for (const std::string& line : linesOf(logText.str())) {
            count += line.compare(0, prefix.size(), prefix) == 0 ? 1 : 0;
        }
        return count;
    }
    // A server that sends chunks of 16 bytes, and a client that has sent it
    // lookups and requests for the database without reading any answer
    // until its socket took no more.
    std::unique_ptr<RawClient> clientThatReadsNothing() {
        PhoneOptions options = optionsWith(sampleCatalogue());
        options.chunkSize = 16;
        start("unix:" + socketPath(), options);
        std::unique_ptr<RawClient> raw = greeted();
        Bytes requests = command(lookupFrame(kDiscToc));
        const Bytes more = command(kGetCdMetaInfo);
        requests.insert(requests.end(), more.begin(), more.end());
        EXPECT_TRUE(raw->sendUntilFull(requests));
        return raw;
    }
    // A whole lookup of kDiscToc by `raw`, which has read the greeting: the
    // frames as they came, and the database they should hold.
    void expectWholeLookup(RawClient& raw) {
        raw.sendCommand(lookupFrame(kDiscToc));
        raw.sendCommand(kGetCdMetaInfo);
        const auto catalogue = sampleCatalogue();
        const Bytes db =
            moxphone::ResponseDatabase::build(*catalogue, *catalogue->findDisc(kDiscToc));
        EXPECT_EQ((std::vector<Bytes>{answer(0x8010), notice(static_cast<uint32_t>(db.size())),
                                      chunk(0, 1, static_cast<uint32_t>(db.size()), db)}),
                  raw.readFrames(3));
    }
    std::unique_ptr<RawClient> client() { return RawClient::unixAt(socketPath()); }
    // A client that has read the device info and status.
    std::unique_ptr<RawClient> greeted() {
        std::unique_ptr<RawClient> raw = client();
        EXPECT_EQ((std::vector<Message>{deviceInfo(1, "mox-phone"), deviceStatus(2)}),
                  raw->read(2));
        return raw;
    }
    static bool exists(const std::string& path) {
        struct stat st;
        return ::lstat(path.c_str(), &st) == 0;
    }
    std::string refusal(const std::string& endpoint, bool allowRemote) {
        PhoneServer other(optionsWith(smallCatalogue()), log);
        std::string error;
        return other.listen(endpoint, allowRemote, &error) ? "listening" : error;
    }

    TestDir dir;
    std::ostringstream logText;
    moxphone::PhoneLog log;
    std::unique_ptr<PhoneServer> server;
    std::thread thread;
    static inline const std::string kDiscToc = "000096004EB600A0BE00ECEA013916";
};

}  // namespace

TEST_F(PhoneServerTest, Unix_WholeLookup_EveryFrameByteForByte) {
    startUnix();
    std::unique_ptr<RawClient> raw = greeted();
    raw->sendCommand(kConnect);
    EXPECT_EQ(std::vector<Bytes>{answer(0x8001)}, raw->readFrames(1));
    raw->sendCommand(lookupFrame(kDiscToc));
    const auto catalogue = sampleCatalogue();
    const Bytes db = moxphone::ResponseDatabase::build(*catalogue, *catalogue->findDisc(kDiscToc));
    EXPECT_EQ((std::vector<Bytes>{answer(0x8010), notice(static_cast<uint32_t>(db.size()))}),
              raw->readFrames(2));
    raw->sendCommand(kGetCdMetaInfo);
    EXPECT_EQ((std::vector<Bytes>{chunk(0, 1, static_cast<uint32_t>(db.size()), db)}),
              raw->readFrames(1));
    raw->sendCommand(kDisconnect);
    raw->close();
    stop();
    EXPECT_EQ(1u, server->connections());
}

TEST_F(PhoneServerTest, Unix_RequestsSplitAcrossWrites_AnsweredAsWhole) {
    startUnix();
    std::unique_ptr<RawClient> raw = greeted();
    const Bytes stream = command(kConnect);
    raw->send(slice(stream, 0, 3));
    raw->send(slice(stream, 3, stream.size() - 3));
    EXPECT_EQ(std::vector<Bytes>{answer(0x8001)}, raw->readFrames(1));
}

TEST_F(PhoneServerTest, Unix_ConnectionsOneAfterAnother_EachGreetedAfresh) {
    startUnix();
    std::unique_ptr<RawClient> first = greeted();
    std::unique_ptr<RawClient> second = client();  // served beside the first
    first->sendCommand(kEcho);
    EXPECT_EQ(std::vector<Bytes>{answer(0xFFFF)}, first->readFrames(1));
    first->close();
    EXPECT_EQ((std::vector<Message>{deviceInfo(1, "mox-phone"), deviceStatus(2)}), second->read(2));
    second->sendCommand(kConnect);
    EXPECT_EQ(std::vector<Bytes>{answer(0x8001)}, second->readFrames(1));
    EXPECT_EQ(2u, server->connections());
}

TEST_F(PhoneServerTest, ClientHangsUpAtEachStep_NextClientIsServed) {
    startUnix();
    const std::vector<std::function<void(RawClient&)>> steps = {
        [](RawClient&) {},                    // before reading anything
        [](RawClient& raw) { raw.read(1); },  // after the device info
        [](RawClient& raw) {
            raw.read(2);
            raw.sendCommand(kConnect);
        },                        // answer unread
        [this](RawClient& raw) {  // lookup answers unread
            raw.read(2);
            raw.sendCommand(lookupFrame(kDiscToc));
        },
        [this](RawClient& raw) {  // the database requested and left unread
            raw.read(2);
            raw.sendCommand(lookupFrame(kDiscToc));
            raw.read(2);
            raw.sendCommand(kGetCdMetaInfo);
        },
        [](RawClient& raw) {  // half an envelope sent
            raw.read(2);
            const Bytes stream = command(kConnect);
            raw.send(slice(stream, 0, 4));
        },
    };
    for (size_t i = 0; i < steps.size(); ++i) {
        {
            std::unique_ptr<RawClient> leaving = client();
            steps[i](*leaving);
        }
        std::unique_ptr<RawClient> next = greeted();
        next->sendCommand(kConnect);
        EXPECT_EQ(std::vector<Bytes>{answer(0x8001)}, next->readFrames(1)) << "step " << i;
    }
    EXPECT_EQ(2 * steps.size(), server->connections());
}

TEST_F(PhoneServerTest, ClientHangsUpDuringSlowTransfer_PendingChunksDroppedNextClientServed) {
    PhoneOptions options = optionsWith(sampleCatalogue(), {"slow-chunks=20"});
    options.chunkSize = 100;
    start("unix:" + socketPath(), options);
    {
        std::unique_ptr<RawClient> leaving = greeted();
        leaving->sendCommand(lookupFrame(kDiscToc));
        leaving->read(2);
        leaving->sendCommand(kGetCdMetaInfo);
        EXPECT_EQ(1u, leaving->readFrames(1).size());
    }
    std::unique_ptr<RawClient> next = greeted();
    next->sendCommand(kEcho);
    EXPECT_EQ(std::vector<Bytes>{answer(0xFFFF)}, next->readFrames(1));
}

TEST_F(PhoneServerTest, BadEnvelopeFromTheClient_ServerHangsUpAndServesTheNext) {
    startUnix();
    {
        std::unique_ptr<RawClient> bad = greeted();
        bad->send({0x00, 0x00, 0x00, 0x00});
        EXPECT_TRUE(bad->readUntilEnd());
    }
    std::unique_ptr<RawClient> next = greeted();
    stop();
    EXPECT_NE(std::string::npos,
              logText.str().find("mox-phone: <- bad envelope from the module: envelope length 0; "
                                 "hanging up\nmox-phone: hanging up\n"));
}

TEST_F(PhoneServerTest, DropMidTransfer_ClientSeesHalfAnEnvelopeThenTheEnd) {
    startUnix({"drop-mid-transfer"});
    std::unique_ptr<RawClient> raw = greeted();
    raw->sendCommand(lookupFrame(kDiscToc));
    raw->read(2);
    raw->sendCommand(kGetCdMetaInfo);
    EXPECT_EQ(1u, raw->read(1).size());
    EXPECT_TRUE(raw->readUntilEnd());
    EXPECT_FALSE(raw->buffered().empty());
    EXPECT_TRUE(splitEnvelopes(raw->buffered()).empty());
}

TEST_F(PhoneServerTest, Log_ListeningConnectionsAndTheEnd) {
    startUnix();
    { std::unique_ptr<RawClient> raw = greeted(); }
    std::unique_ptr<RawClient> second = greeted();
    stop();
    const std::string text = logText.str();
    EXPECT_EQ(0u, text.find("mox-phone: listening on unix:" + socketPath() +
                            "\n"
                            "mox-phone: the module connected (connection 1)\n"
                            "mox-phone: -> device info: os android, name \"mox-phone\"\n"
                            "mox-phone: -> device status 2 (application open)\n"
                            "mox-phone: the module hung up\n"
                            "mox-phone: the connection is closed\n"
                            "mox-phone: the module connected (connection 2)\n"))
        << text;
    const std::string end =
        "mox-phone: stopping: the connection is dropped\n"
        "mox-phone: the connection is closed\n"
        "mox-phone: stopped\n";
    EXPECT_EQ(text.size() - end.size(), text.rfind(end)) << text;
}

// ---- Many clients ----

TEST_F(PhoneServerTest, SleepingClient_AnotherClientsLookupIsServedMeanwhile) {
    startUnix();
    std::unique_ptr<RawClient> sleeper = client();  // reads nothing, sends nothing
    std::unique_ptr<RawClient> other = greeted();
    expectWholeLookup(*other);
    std::unique_ptr<RawClient> third = greeted();
    expectWholeLookup(*third);
    EXPECT_EQ(3u, server->connections());
}

TEST_F(PhoneServerTest, ClientThatReadsNothing_AnotherClientsLookupIsServedMeanwhile) {
    std::unique_ptr<RawClient> stuck = clientThatReadsNothing();
    std::unique_ptr<RawClient> other = greeted();
    other->sendCommand(kEcho);
    EXPECT_EQ(std::vector<Bytes>{answer(0xFFFF)}, other->readFrames(1));
}

TEST_F(PhoneServerTest, ClientsOverTheLimit_ClosedAtOnceWithOneLogLineEach) {
    PhoneServer::Limits limits;
    limits.maxConnections = 2;
    start("unix:" + socketPath(), optionsWith(sampleCatalogue()), limits);
    std::unique_ptr<RawClient> first = greeted();
    std::unique_ptr<RawClient> second = greeted();
    for (int i = 0; i < 2; ++i) {
        std::unique_ptr<RawClient> over = client();
        EXPECT_TRUE(over->readUntilEnd());
        EXPECT_TRUE(over->buffered().empty());  // not even the device info
    }
    first->close();  // a place is free again
    std::unique_ptr<RawClient> next = greeted();
    expectWholeLookup(*next);
    stop();
    EXPECT_EQ(3u, server->connections());
    EXPECT_EQ(2u, server->refusals());
    EXPECT_EQ(2u, logLinesStartingWith("mox-phone: refused a client: 2 connections are open, the "
                                       "most this phone serves at once"))
        << logText.str();
}

TEST_F(PhoneServerTest, IdleClient_DroppedAfterTheIdleTimeWithOneLogLine) {
    PhoneServer::Limits limits;
    limits.connection.idleMs = 100;
    start("unix:" + socketPath(), optionsWith(sampleCatalogue()), limits);
    const auto connected = std::chrono::steady_clock::now();
    std::unique_ptr<RawClient> idle = greeted();
    EXPECT_TRUE(idle->readUntilEnd());
    EXPECT_GE(std::chrono::steady_clock::now() - connected, std::chrono::milliseconds(100));
    stop();
    EXPECT_EQ(1u, logLinesStartingWith("mox-phone: the module has been idle for 0.1 s (nothing "
                                       "received or sent); dropping the connection"))
        << logText.str();
}

TEST_F(PhoneServerTest, ClientThatFloodsAndReadsNothing_DroppedWhenItsQueueWouldOverflow) {
    PhoneServer::Limits limits;
    limits.connection.maxQueuedBytes = 64 * 1024;
    start("unix:" + socketPath(), optionsWith(sampleCatalogue()), limits);
    std::unique_ptr<RawClient> flood = greeted();
    Bytes echoes;
    for (int i = 0; i < 1000; ++i) {
        const Bytes one = command(kEcho);
        echoes.insert(echoes.end(), one.begin(), one.end());
    }
    // Its answers, 13 bytes for each 7 of requests, pile up on the server.
    EXPECT_TRUE(flood->sendUntilGone(echoes));
    stop();
    EXPECT_EQ(1u, logLinesStartingWith("mox-phone: the module reads too little: "))
        << logText.str().substr(0, 2000);
    EXPECT_EQ(1u, server->connections());
}

TEST_F(PhoneServerTest, MalformedFrames_EachLoggedInOneShortLine) {
    startUnix();
    std::unique_ptr<RawClient> raw = greeted();
    // 16 envelopes of the largest size, each a connect followed by junk.
    Bytes frame(Envelope::kMaxLength - 1, 0x5A);
    frame[0] = 0x00;
    frame[1] = 0x01;
    for (int i = 0; i < 16; ++i) {
        raw->sendCommand(frame);
        EXPECT_EQ(std::vector<Bytes>{answer(0x8001, 400)}, raw->readFrames(1));
    }
    stop();
    EXPECT_EQ(16u, logLinesStartingWith("mox-phone: malformed connect: the frame must be the 3 "
                                        "bytes 00 01 01, not 00 01 5A"));
    // Before, each line held the whole frame in hex: 48 MiB for these 16 MiB.
    EXPECT_LT(logText.str().size(), 16u * 1024);
}

// ---- TCP ----

TEST_F(PhoneServerTest, Tcp_PortZero_TheChosenPortIsReportedAndServed) {
    start("tcp:127.0.0.1:0", optionsWith(sampleCatalogue()));
    const std::string endpoint = server->endpoint();
    ASSERT_EQ(0u, endpoint.find("tcp:127.0.0.1:"));
    const uint16_t port = static_cast<uint16_t>(std::stoul(endpoint.substr(14)));
    EXPECT_NE(0, port);
    std::unique_ptr<RawClient> raw = RawClient::tcpAt(port);
    EXPECT_EQ((std::vector<Message>{deviceInfo(1, "mox-phone"), deviceStatus(2)}), raw->read(2));
    raw->sendCommand(lookupFrame(kUnknownToc));
    EXPECT_EQ((std::vector<Bytes>{answer(0x8010), notice(0, 404)}), raw->readFrames(2));
}

TEST_F(PhoneServerTest, Tcp_LoopbackNames_Accepted) {
    EXPECT_EQ("listening", refusal("tcp:localhost:0", false));
    EXPECT_EQ("listening", refusal("tcp:127.0.0.2:0", false));
}

TEST_F(PhoneServerTest, Tcp_OtherAddresses_RefusedUnlessAllowed) {
    EXPECT_EQ(
        "0.0.0.0 is not a loopback address; listening there needs allow-remote "
        "(--allow-remote)",
        refusal("tcp:0.0.0.0:0", false));
    EXPECT_EQ(
        "192.0.2.1 is not a loopback address; listening there needs allow-remote "
        "(--allow-remote)",
        refusal("tcp:192.0.2.1:0", false));
    EXPECT_EQ("listening", refusal("tcp:0.0.0.0:0", true));
}

TEST_F(PhoneServerTest, Tcp_PortInUse_Refused) {
    start("tcp:127.0.0.1:0", optionsWith(sampleCatalogue()));
    const std::string endpoint = server->endpoint();
    EXPECT_EQ("cannot listen on " + endpoint + ": Address already in use",
              refusal(endpoint, false));
}

// ---- The socket file ----

TEST_F(PhoneServerTest, Stop_RemovesTheSocketFile) {
    startUnix();
    EXPECT_TRUE(exists(socketPath()));
    stop();
    EXPECT_FALSE(exists(socketPath()));
}

TEST_F(PhoneServerTest, Destroyed_WithoutRunning_RemovesTheSocketFile) {
    {
        PhoneServer idle(optionsWith(smallCatalogue()), log);
        std::string error;
        ASSERT_TRUE(idle.listen("unix:" + socketPath(), false, &error)) << error;
        EXPECT_TRUE(exists(socketPath()));
    }
    EXPECT_FALSE(exists(socketPath()));
}

TEST_F(PhoneServerTest, StaleSocketFile_Replaced) {
    const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address;
    std::memset(&address, 0, sizeof(address));
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, socketPath().data(), socketPath().size());
    ASSERT_EQ(0, ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)));
    ::close(fd);  // the file stays, nobody answers on it
    ASSERT_TRUE(exists(socketPath()));
    startUnix();
    greeted();
}

TEST_F(PhoneServerTest, SocketInUse_Refused) {
    startUnix();
    EXPECT_EQ(socketPath() + " is in use by another server",
              refusal("unix:" + socketPath(), false));
    greeted();  // the first server still answers
}

TEST_F(PhoneServerTest, RegularFileInTheWay_RefusedAndLeftAlone) {
    TestDir::writeFile(socketPath(), text("keep me"));
    EXPECT_EQ(socketPath() + " exists and is not a socket", refusal("unix:" + socketPath(), false));
    EXPECT_EQ(text("keep me"), TestDir::readFile(socketPath()));
}

TEST_F(PhoneServerTest, SocketFileReplacedWhileRunning_TheReplacementIsNotRemoved) {
    startUnix();
    ASSERT_EQ(0, ::unlink(socketPath().c_str()));
    TestDir::writeFile(socketPath(), text("someone else's"));
    stop();
    EXPECT_EQ(text("someone else's"), TestDir::readFile(socketPath()));
}

TEST_F(PhoneServerTest, Listen_BadEndpointOrTwice_Refused) {
    EXPECT_EQ("'udp:1' is not an endpoint: use unix:PATH or tcp:HOST:PORT",
              refusal("udp:1", false));
    EXPECT_EQ("cannot listen on " + dir.file("no/such/dir.sock") + ": No such file or directory",
              refusal("unix:" + dir.file("no/such/dir.sock"), false));
    PhoneServer twice(optionsWith(smallCatalogue()), log);
    std::string error;
    ASSERT_TRUE(twice.listen("unix:" + socketPath(), false, &error)) << error;
    EXPECT_FALSE(twice.listen("tcp:127.0.0.1:0", false, &error));
    EXPECT_EQ("already listening on unix:" + socketPath(), error);
}

// ---- Stopping ----

TEST_F(PhoneServerTest, Stop_WithAClientConnected_RunReturnsAndTheClientSeesTheEnd) {
    startUnix({"silent-after-lookup"});
    std::unique_ptr<RawClient> raw = greeted();
    raw->sendCommand(lookupFrame(kDiscToc));
    stop();
    EXPECT_TRUE(raw->readUntilEnd());
    EXPECT_FALSE(exists(socketPath()));
}

TEST_F(PhoneServerTest, Stop_WhileASendWaitsForAModuleThatReadsNothing_NoSendTimeout) {
    std::unique_ptr<RawClient> raw = clientThatReadsNothing();
    stop();
    // Before, a blocked send ended only on the 10 s send timeout.
    EXPECT_EQ(std::string::npos, logText.str().find("has read nothing"));
    EXPECT_NE(std::string::npos, logText.str().find("stopping: the connection is dropped"));
    EXPECT_FALSE(exists(socketPath()));
}

// The stop signals stay blocked in the process afterwards: fresh processes.
TEST_F(PhoneServerTest, StopOnSignals_ASignalPendingBeforeRun_RunReturnsAtOnce_FreshProcess) {
    PhoneServer early(optionsWith(smallCatalogue()), log);
    std::string error;
    ASSERT_TRUE(early.stopOnSignals({SIGUSR1}, &error)) << error;
    ASSERT_TRUE(early.listen("unix:" + socketPath(), false, &error)) << error;
    ASSERT_EQ(0, ::kill(::getpid(), SIGUSR1));
    early.run();
    EXPECT_FALSE(exists(socketPath()));
    EXPECT_EQ(0u, early.connections());
}

TEST_F(PhoneServerTest,
       StopOnSignals_ASignalWithAClientConnected_RunReturnsAndTheClientSeesTheEnd_FreshProcess) {
    server.reset(new PhoneServer(optionsWith(sampleCatalogue()), log));
    std::string error;
    // Blocked here first, so that the server's thread inherits the mask.
    ASSERT_TRUE(server->stopOnSignals({SIGUSR1, SIGUSR2}, &error)) << error;
    ASSERT_TRUE(server->listen("unix:" + socketPath(), false, &error)) << error;
    thread = std::thread([this] { server->run(); });
    std::unique_ptr<RawClient> raw = greeted();
    ASSERT_EQ(0, ::kill(::getpid(), SIGUSR2));
    EXPECT_TRUE(raw->readUntilEnd());
    thread.join();
    EXPECT_NE(std::string::npos, logText.str().find("stopping: the connection is dropped"));
    EXPECT_FALSE(exists(socketPath()));
}

TEST_F(PhoneServerTest, StopOnSignals_NotASignal_Refused) {
    PhoneServer other(optionsWith(smallCatalogue()), log);
    std::string error;
    EXPECT_FALSE(other.stopOnSignals({0}, &error));
    EXPECT_EQ("signal 0 cannot stop the server", error);
    EXPECT_FALSE(other.stopOnSignals({-3}, &error));
    EXPECT_EQ("signal -3 cannot stop the server", error);
}

TEST_F(PhoneServerTest, StopOnSignals_Twice_Refused_FreshProcess) {
    PhoneServer other(optionsWith(smallCatalogue()), log);
    std::string error;
    ASSERT_TRUE(other.stopOnSignals({SIGUSR1}, &error)) << error;
    EXPECT_FALSE(other.stopOnSignals({SIGUSR2}, &error));
    EXPECT_EQ("the stop signals are already set", error);
}

TEST_F(PhoneServerTest, Stop_BeforeRun_RunReturnsAtOnce) {
    PhoneServer early(optionsWith(smallCatalogue()), log);
    std::string error;
    ASSERT_TRUE(early.listen("unix:" + socketPath(), false, &error)) << error;
    early.requestStop();
    early.run();
    EXPECT_FALSE(exists(socketPath()));
    EXPECT_EQ(0u, early.connections());
}
