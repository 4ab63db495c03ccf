// HbDbgDltSink: the debug output sent to a DLT daemon (HB_DBG_OUTPUT=dlt).
// The mapping of a record (context ID and description, level, message) is
// pinned directly; the whole path is pinned by a private dlt-daemon (its own
// configuration, port and FIFO directory), a program that logs through
// HB_DBG_OUTPUT=dlt, and dlt-receive reading the messages back. Those tests
// are skipped, with the reason, where dlt-daemon or dlt-receive is not
// installed.
#include "HbDbgDltSink.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "ChildProgram.h"
#include "TestDir.h"

namespace {

const std::string kDaemon = "/usr/bin/dlt-daemon";
const std::string kReceive = "/usr/bin/dlt-receive";
const std::string kProbe = MOX_DLT_PROBE_PATH;
// Far more than a message takes to go through the daemon: a lost message
// fails the test instead of stopping it until its time limit.
constexpr std::chrono::milliseconds kMessageLimit{10000};

HbDbgRecord record(const std::string& file, const std::string& function, int line, int tag,
                   const std::string& text) {
    return HbDbgRecord{file, function, line, tag, text};
}

// A TCP port of ::1 that nothing listens on right now. (The daemon of
// Debian's libdlt 2.18 reads its bind address as IPv6 only.)
int unusedPort() {
    const int fd = ::socket(AF_INET6, SOCK_STREAM, 0);
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    address.sin6_addr = in6addr_loopback;
    socklen_t size = sizeof(address);
    ::bind(fd, reinterpret_cast<sockaddr*>(&address), size);
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size);
    ::close(fd);
    return ntohs(address.sin6_port);
}

TEST(HbDbgDltSinkTest, ContextId_IsTheBaseNamesFirstTwoCharactersAndAHash) {
    EXPECT_EQ(HbDbgDltSink::contextIdOf("src/HbSDK/MOX/MoxProtocol.cpp"), "MOBF");
    EXPECT_EQ(HbDbgDltSink::contextIdOf("platform/host/src/OstLinkAppLoopbackTransport.cpp"),
              "OSDH");
    EXPECT_EQ(HbDbgDltSink::contextIdOf("tests/dlt/ProbeAlpha.cpp"), "PRVN");
    // The same name always gives the same ID; another salt the next choice.
    EXPECT_EQ(HbDbgDltSink::contextIdOf("tests/dlt/ProbeAlpha.cpp"), "PRVN");
    EXPECT_NE(HbDbgDltSink::contextIdOf("tests/dlt/ProbeAlpha.cpp", 1), "PRVN");
    // Another directory, another ID.
    EXPECT_NE(HbDbgDltSink::contextIdOf("other/ProbeAlpha.cpp"), "PRVN");
    // A name without two letters or digits is filled with the hash.
    EXPECT_EQ(HbDbgDltSink::contextIdOf("_.c").size(), 4u);
    EXPECT_EQ(HbDbgDltSink::contextDescriptionOf("src/a.cpp"), "source src/a.cpp");
}

TEST(HbDbgDltSinkTest, Level_FollowsTheRecordsTag) {
    EXPECT_EQ(HbDbgDltSink::levelOf(en_TAG_ERROR), DLT_LOG_ERROR);
    EXPECT_EQ(HbDbgDltSink::levelOf(en_TAG_INFO), DLT_LOG_INFO);
}

TEST(HbDbgDltSinkTest, Message_KeepsFileLineAndFunctionWithoutTheLineFeed) {
    EXPECT_EQ(HbDbgDltSink::messageOf(record("src/a.cpp", "run", 12, en_TAG_ERROR, "went wrong\n")),
              "src/a.cpp:12 run: went wrong");
    EXPECT_EQ(HbDbgDltSink::messageOf(record("", "", 0, 0, "plain")), "plain");
}

// What dlt-receive -a prints of a message from its application ID on:
// " MOX- PRTB log info V 1 [text]".
std::string received(const std::string& context, const char* level, const std::string& text) {
    std::string padded = context;
    padded.resize(4, '-');
    return " MOX- " + padded + " log " + level + " V 1 [" + text + "]";
}

std::string tail(const std::string& line) {
    const size_t at = line.find(" MOX- ");
    return at == std::string::npos ? line : line.substr(at);
}

// A private dlt-daemon (its own configuration, port and FIFO directory) and
// a dlt-receive connected to it, both writing to stderr line by line.
//
//
// Debian's dlt-daemon 2.18.8 answers each context registration by writing
// the context's level to the program. When the program has ended by then
// (a short one, such as the probe or a failing lookup), that write fails and
// the daemon leaves the rest of what it read (the program's messages) in its
// buffer until any program sends it something new. So after each program
// that logs, a "nudge" probe that stays alive sends one record: the held
// messages come first, in their order, then the nudge's, which the tests
// skip.
class HbDbgDltSinkDaemonTest : public ::testing::Test {
protected:
    void SetUp() override {
#if defined(__SANITIZE_THREAD__)
        GTEST_SKIP() << "Debian's libdlt is not built with ThreadSanitizer, which reports its "
                        "locking as a double lock; the host and asan runs cover this test";
#endif
        if (access(kDaemon.c_str(), X_OK) != 0 || access(kReceive.c_str(), X_OK) != 0) {
            GTEST_SKIP() << "dlt-daemon or dlt-receive is not installed (Debian packages "
                            "dlt-daemon, dlt-tools)";
        }
        const std::string port = std::to_string(unusedPort());
        {
            std::ofstream config(dir.file("dlt.conf"));
            config << "SendContextRegistration = 1\nECUId = ECU1\nSharedMemorySize = 100000\n"
                      "LoggingMode = 0\nLoggingLevel = 6\nLoggingFilename = "
                   << dir.file("dlt.log")
                   << "\nRingbufferMinSize = 500000\nRingbufferMaxSize = 10000000\n"
                      "RingbufferStepSize = 500000\nBindAddress = ::1\nUDPConnectionSetup = 0\n"
                      "ControlSocketPath = "
                   << dir.file("dlt-ctrl.sock") << "\nPersistanceStoragePath = " << dir.path()
                   << "\n";
        }
        daemon.reset(new ChildProgram(
            "/bin/sh", {"-c", "exec stdbuf -oL " + kDaemon + " -c " + dir.file("dlt.conf") +
                                  " -t " + dir.path() + " -p " + port + " 1>&2"}));
        ASSERT_NE(daemon->waitForLineContaining("Listening on ip ::1 and port: " + port), "")
            << daemon->err();
        // The last step of its start: it serves its sockets from now on.
        ASSERT_NE(daemon->waitForLineContaining("dlt_daemon_applications_load"), "")
            << daemon->err();
        receiver.reset(new ChildProgram(
            "/bin/sh", {"-c", "exec stdbuf -oL " + kReceive + " -a -p " + port + " ::1 1>&2"}));
        ASSERT_NE(receiver->waitForLineContaining("New client connection"), "")
            << receiver->err() << daemon->err();
        // Until the daemon has sent what it buffered to its first client, it
        // may drop messages.
        ASSERT_NE(daemon->waitForLineContaining("Switched to send direct state"), "")
            << daemon->err();
    }

    // Starts the nudge probe (see above); it runs until the test ends.
    void nudge() {
        nudges.emplace_back(new ChildProgram(kProbe, {"nudge"},
                                             {"HB_DBG_OUTPUT=dlt", "DLT_PIPE_DIR=" + dir.path()}));
    }

    // Runs `program` with `args`, its debug output going to the daemon.
    void runLogging(const std::string& program, const std::vector<std::string>& args, int status) {
        ChildProgram logging(program, args, {"HB_DBG_OUTPUT=dlt", "DLT_PIPE_DIR=" + dir.path()});
        EXPECT_EQ(logging.wait(), status) << logging.err();
        logged = logging.err();
        nudge();
    }

    // The next message of the application "MOX", from its ID on; "" (and
    // what the daemon and the receiver wrote) when none comes in time.
    std::string nextMessage() {
        std::string line;
        do {  // the nudge's message is not the test's
            line = receiver->waitForLineContaining(" MOX- ", kMessageLimit);
        } while (line.find(" [nudge]") != std::string::npos);
        if (line.empty()) {
            daemon->waitForLineContaining("\n", std::chrono::milliseconds(200));
            ADD_FAILURE() << "no message from MOX; the receiver wrote:\n"
                          << receiver->err() << "the daemon wrote:\n"
                          << daemon->err();
        }
        return tail(line);
    }

    TestDir dir{"HbDbgDltSinkDaemonTest"};
    std::unique_ptr<ChildProgram> daemon;
    std::unique_ptr<ChildProgram> receiver;
    std::vector<std::unique_ptr<ChildProgram>> nudges;
    std::string logged;  // the stderr of runLogging()'s program
};

TEST_F(HbDbgDltSinkDaemonTest, RecordsArriveWithTheirContextLevelAndSource) {
    runLogging(kProbe, {}, 0);
    EXPECT_EQ(logged, "");
    EXPECT_EQ(nextMessage(),
              received("PRVN", "info", "tests/dlt/ProbeAlpha.cpp:7 main: first record 1"));
    EXPECT_EQ(nextMessage(), received(HbDbgDltSink::contextIdOf("tests/dlt/ProbeBeta.cpp"), "error",
                                      "tests/dlt/ProbeBeta.cpp:12 run: second record"));
    EXPECT_EQ(nextMessage(), received("MOX", "info", "plain record three"));
}

#ifdef MOX_CLI_PATH
// Every debug record of a lookup that fails (each one an error record)
// arrives, in the context of its source: the records are those that the
// same lookup writes to a file with HB_DBG_OUTPUT=FILE.
TEST_F(HbDbgDltSinkDaemonTest, EveryRecordOfALookupArrives) {
    const std::vector<std::string> lookup = {"lookup", "--toc", "0000960046E6008D3600D386",
                                             "--fault", "wrong-chunk-index"};
    {
        ChildProgram toFile(MOX_CLI_PATH, lookup,
                            {"HB_DBG_OUTPUT=" + dir.file("records.txt"), "HB_TIMER_SCALE=0.02"});
        ASSERT_EQ(toFile.wait(), 1) << toFile.err();
    }
    std::vector<std::string> records;
    std::ifstream in(dir.file("records.txt"));
    for (std::string line; std::getline(in, line);) {
        records.push_back(line);
    }
    ASSERT_FALSE(records.empty());
    ChildProgram toDlt(MOX_CLI_PATH, lookup,
                       {"HB_DBG_OUTPUT=dlt", "DLT_PIPE_DIR=" + dir.path(), "HB_TIMER_SCALE=0.02"});
    EXPECT_EQ(toDlt.wait(), 1) << toDlt.err();
    nudge();
    for (const std::string& record : records) {
        const std::string file = record.substr(0, record.find(':'));
        EXPECT_EQ(nextMessage(), received(HbDbgDltSink::contextIdOf(file), "error", record));
    }
}
#endif

}  // namespace
