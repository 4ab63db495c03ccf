// The mox-phone executable: --help, --version and --list-faults, every refusal
// at start with exit status 2 (a catalogue that does not load, with the JSON path and
// the reason), a failure to listen with 1, a lookup over TCP with its
// options, HB_TIMER_SCALE on the delays and on the idle time, a bounded log
// of malformed frames, clients of another user refused unless allowed, and
// SIGTERM and SIGINT ending it with status 0 and the socket file removed.
// The tests wait on the program's output, its socket file's creation, their
// sockets and its exit, never on time.
#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <arpa/inet.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "ChildProgram.h"
#include "PhoneTestSupport.h"
#include "TestDir.h"
#include "moxphone/ResponseDatabase.h"

using namespace phonetest;

namespace {

// A running mox-phone with its stdout and stderr on pipes.
class Program : public ChildProgram {
public:
    explicit Program(const std::vector<std::string>& args,
                     const std::vector<std::string>& environment = {})
        : ChildProgram(MOX_PHONE_PATH, args, environment) {}
};

struct Finished {
    int status;
    std::string out;
    std::string err;
};

Finished run(const std::vector<std::string>& args) {
    Program program(args);
    const int status = program.wait();
    return {status, program.out(), program.err()};
}

int connectUnix(const std::string& path) {
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address;
    std::memset(&address, 0, sizeof(address));
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.data(), path.size());
    EXPECT_EQ(0, ::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)));
    return fd;
}

// `fd`, whose reads now give up after 20 s (a hung phone fails the test).
int withReadTimeout(int fd) {
    const timeval timeout = {20, 0};
    ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof(timeout));
    return fd;
}

int connectTcp(uint16_t port) {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address;
    std::memset(&address, 0, sizeof(address));
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(0, ::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)));
    return withReadTimeout(fd);
}

// Reads from `fd` until `count` whole messages have come.
std::vector<Message> readMessages(int fd, size_t count, Bytes& buffer) {
    while (splitEnvelopes(buffer).size() < count) {
        uint8_t piece[65536];
        const ssize_t got = ::recv(fd, piece, sizeof(piece), 0);
        if (got <= 0) {
            break;
        }
        buffer.insert(buffer.end(), piece, piece + got);
    }
    Bytes rest;
    std::vector<Message> messages = splitEnvelopes(buffer, &rest);
    buffer = rest;
    return messages;
}

// A connection to the phone at `path` that has read the device info and
// status; reads time out after 20 s.
int greetedUnix(const std::string& path, Bytes& buffer) {
    const int fd = withReadTimeout(connectUnix(path));
    EXPECT_EQ(2u, readMessages(fd, 2, buffer).size());
    return fd;
}

void sendFrame(int fd, const Bytes& frame) {
    const Bytes bytes = command(frame);
    EXPECT_EQ(static_cast<ssize_t>(bytes.size()), ::send(fd, bytes.data(), bytes.size(), 0));
}

bool exists(const std::string& path) {
    struct stat st;
    return ::lstat(path.c_str(), &st) == 0;
}

// How a client running as another user fared at a Unix socket.
enum class Visit { kGreeted, kClosedAtOnce, kCannotConnect, kOther };

std::ostream& operator<<(std::ostream& out, Visit visit) {
    const char* names[] = {"greeted", "closed at once", "cannot connect", "other"};
    return out << names[static_cast<int>(visit)];
}

// Connects to the socket at `path` from a child process that has become
// `uid` (group `uid` too, no other groups) and reads until the device info
// and status have come or the connection ends. Needs root.
Visit visitAs(uid_t uid, const std::string& path) {
    const size_t greeting = envelope(0x01, deviceInfo(1, "mox-phone").payload).size() +
                            envelope(0x02, deviceStatus(2).payload).size();
    sockaddr_un address;
    std::memset(&address, 0, sizeof(address));
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.data(), path.size());
    const pid_t child = ::fork();
    if (child == 0) {
        // System calls only: the child of a test program.
        if (::setgroups(0, nullptr) != 0 || ::setresgid(uid, uid, uid) != 0 ||
            ::setresuid(uid, uid, uid) != 0) {
            ::_exit(static_cast<int>(Visit::kOther));
        }
        const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
            ::_exit(static_cast<int>(Visit::kCannotConnect));
        }
        const timeval timeout = {20, 0};
        ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof(timeout));
        uint8_t buffer[256];
        size_t got = 0;
        ssize_t last = 0;
        while (got < greeting && (last = ::recv(fd, buffer + got, sizeof(buffer) - got, 0)) > 0) {
            got += static_cast<size_t>(last);
        }
        ::_exit(static_cast<int>(got >= greeting         ? Visit::kGreeted
                                 : got == 0 && last == 0 ? Visit::kClosedAtOnce
                                                         : Visit::kOther));
    }
    int status = 0;
    EXPECT_EQ(child, ::waitpid(child, &status, 0));
    return WIFEXITED(status) ? static_cast<Visit>(WEXITSTATUS(status)) : Visit::kOther;
}

class MoxPhoneTest : public ::testing::Test {
protected:
    MoxPhoneTest() : dir("MoxPhoneTest") {}
    std::string socketPath() const { return dir.file("phone.sock"); }

    TestDir dir;
};

}  // namespace

// ---- Usage ----

TEST_F(MoxPhoneTest, Help_UsageOnStdoutExitZero) {
    const Finished help = run({"--help"});
    EXPECT_EQ(0, help.status);
    for (const char* option : {"--listen", "--catalog", "--chunk-size", "--not-found-status",
                               "--os", "--fault", "--quiet", "--allow-remote", "--allow-uid",
                               "--allow-other-users", "--list-faults", "--version"}) {
        EXPECT_NE(std::string::npos, help.out.find(option)) << option;
    }
    EXPECT_EQ("", help.err);
}

TEST_F(MoxPhoneTest, Version_PrintsNameAndProjectVersionExitZero) {
    const Finished version = run({"--version"});
    EXPECT_EQ(0, version.status);
    EXPECT_EQ(std::string("mox-phone ") + MOX_PROJECT_VERSION + "\n", version.out);
    EXPECT_EQ("", version.err);
}

TEST_F(MoxPhoneTest, ListFaults_EveryFaultWithItsResultStates) {
    const Finished list = run({"--list-faults"});
    EXPECT_EQ(0, list.status);
    EXPECT_EQ(moxphone::Faults::listText(), list.out);
    EXPECT_NE(std::string::npos, list.out.find("drop-mid-transfer\n"));
}

TEST_F(MoxPhoneTest, BadUsage_Exit2WithOneLineReason) {
    const std::string listen = "unix:" + dir.file("x.sock");
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{}, "mox-phone: --listen is required (unix:PATH or tcp:127.0.0.1:PORT)\n"},
        {{"--listen", listen, "--os", "symbian"},
         "mox-phone: --os must be android or ios, not 'symbian'\n"},
        {{"--listen", listen, "--fault", "silence"},
         "mox-phone: unknown fault 'silence' (mox-phone --list-faults lists them)\n"},
        {{"--listen", listen, "--fault", "short-notice", "--fault", "garbage-type"},
         "mox-phone: faults 'short-notice' and 'garbage-type' both change the notice\n"},
        {{"--listen", listen, "--chunk-size", "0"},
         "mox-phone: the chunk size must be from 1 to 1048563, not 0\n"},
        {{"--listen", listen, "--not-found-status", "0"},
         "mox-phone: --not-found-status must be from 1 to 65535\n"},
        {{"--listen", listen, "--not-found-status", "65536"},
         "mox-phone: --not-found-status must be from 1 to 65535\n"},
        {{"--listen", "tcp:0.0.0.0:0"},
         "mox-phone: 0.0.0.0 is not a loopback address; listening there needs allow-remote "
         "(--allow-remote)\n"},
        {{"--listen", "pipe:x"},
         "mox-phone: 'pipe:x' is not an endpoint: use unix:PATH or tcp:HOST:PORT\n"},
        {{"--listen", listen, "--allow-uid", "nobody"},
         "mox-phone: --allow-uid takes a numeric user ID, not 'nobody'\n"},
        {{"--listen", listen, "--allow-uid", "4294967295"},
         "mox-phone: --allow-uid takes a numeric user ID, not '4294967295'\n"},
        {{"--listen", "tcp:127.0.0.1:0", "--allow-uid", "1000"},
         "mox-phone: --allow-uid and --allow-other-users are for unix: endpoints (on TCP every "
         "local user can connect)\n"},
        {{"--listen", "tcp:127.0.0.1:0", "--allow-other-users"},
         "mox-phone: --allow-uid and --allow-other-users are for unix: endpoints (on TCP every "
         "local user can connect)\n"},
    };
    for (const auto& entry : cases) {
        const Finished refused = run(entry.first);
        EXPECT_EQ(2, refused.status) << entry.second;
        EXPECT_EQ(entry.second, refused.err);
    }
    EXPECT_EQ(2, run({"--listen", listen, "--unknown-option"}).status);
    EXPECT_FALSE(exists(dir.file("x.sock")));
}

TEST_F(MoxPhoneTest, BadCatalogue_Exit2WithTheJsonPathAndTheReason) {
    const std::string path = dir.file("bad.json");
    TestDir::writeFile(path,
                       text(R"({"albums": [], "discs": [{"toc": "abc", "candidates": []}]})"));
    const Finished refused = run({"--listen", "unix:" + socketPath(), "--catalog", path});
    EXPECT_EQ(2, refused.status);
    EXPECT_EQ("mox-phone: cannot load the catalogue " + path +
                  ": $.discs[0].toc: must be six upper-case hexadecimal digits per track and six "
                  "for the lead-out, at least one track\n",
              refused.err);
    EXPECT_FALSE(exists(socketPath()));
}

TEST_F(MoxPhoneTest, MissingCatalogue_Exit2) {
    const std::string path = dir.file("none.json");
    const Finished refused = run({"--listen", "unix:" + socketPath(), "--catalog", path});
    EXPECT_EQ(2, refused.status);
    EXPECT_EQ("mox-phone: cannot load the catalogue " + path + ": cannot open " + path +
                  ": No such file or directory\n",
              refused.err);
}

TEST_F(MoxPhoneTest, CannotListen_Exit1) {
    const std::string path = dir.file("missing/phone.sock");
    const Finished failed = run({"--listen", "unix:" + path});
    EXPECT_EQ(1, failed.status);
    EXPECT_EQ("mox-phone: cannot listen on " + path + ": No such file or directory\n", failed.err);
}

// ---- Running ----

TEST_F(MoxPhoneTest, Sigterm_WhileListening_ExitZeroAndSocketFileRemoved) {
    Program phone({"--listen", "unix:" + socketPath()});
    EXPECT_EQ("mox-phone: listening on unix:" + socketPath(),
              phone.waitForLine("mox-phone: listening on "));
    EXPECT_TRUE(exists(socketPath()));
    phone.signal(SIGTERM);
    EXPECT_EQ(0, phone.wait());
    EXPECT_FALSE(exists(socketPath()));
    EXPECT_NE(std::string::npos, phone.err().find("mox-phone: stopped\n"));
    EXPECT_NE(std::string::npos,
              phone.err().find("mox-phone: catalogue " + moxphone::Catalogue::bundledPath() +
                               ": 8 discs\n"));
}

TEST_F(MoxPhoneTest, Sigint_WithAModuleConnected_ExitZeroAndTheModuleSeesTheEnd) {
    Program phone({"--listen", "unix:" + socketPath()});
    phone.waitForLine("mox-phone: listening on ");
    const int fd = connectUnix(socketPath());
    Bytes buffer;
    EXPECT_EQ(2u, readMessages(fd, 2, buffer).size());
    phone.waitForLine("mox-phone: -> device status 2");
    phone.signal(SIGINT);
    EXPECT_EQ(0, phone.wait());
    EXPECT_TRUE(readMessages(fd, 1, buffer).empty());  // end of stream
    ::close(fd);
    EXPECT_FALSE(exists(socketPath()));
}

TEST_F(MoxPhoneTest, Quiet_NothingLoggedAndSigtermStillEndsIt) {
    const int watch = ::inotify_init1(IN_CLOEXEC);
    ASSERT_GE(watch, 0);
    ASSERT_GE(::inotify_add_watch(watch, dir.path().c_str(), IN_CREATE), 0);
    Program phone({"--listen", "unix:" + socketPath(), "--quiet"});
    // The socket file appears inside listen(), after the handlers are set.
    bool created = false;
    while (!created) {
        alignas(inotify_event) char buffer[4096];
        const ssize_t got = ::read(watch, buffer, sizeof(buffer));
        ASSERT_GT(got, 0);
        for (char* at = buffer; at < buffer + got;) {
            const inotify_event* event = reinterpret_cast<const inotify_event*>(at);
            created = created || (event->len > 0 && std::string(event->name) == "phone.sock");
            at += sizeof(inotify_event) + event->len;
        }
    }
    ::close(watch);
    phone.signal(SIGTERM);
    EXPECT_EQ(0, phone.wait());
    EXPECT_EQ("", phone.err());
    EXPECT_FALSE(exists(socketPath()));
}

TEST_F(MoxPhoneTest, TcpLookup_OptionsShapeTheAnswers) {
    Program phone({"--listen", "tcp:127.0.0.1:0", "--os", "ios", "--chunk-size", "300",
                   "--not-found-status", "410", "--fault", "status-echo=7"});
    const std::string line = phone.waitForLine("mox-phone: listening on ");
    const std::string prefix = "mox-phone: listening on tcp:127.0.0.1:";
    ASSERT_EQ(0u, line.find(prefix)) << line;
    const int fd = connectTcp(static_cast<uint16_t>(std::stoul(line.substr(prefix.size()))));
    Bytes buffer;
    EXPECT_EQ((std::vector<Message>{deviceInfo(0, "mox-phone"), deviceStatus(2)}),
              readMessages(fd, 2, buffer));
    const auto catalogue = sampleCatalogue();
    const moxphone::CatalogueDisc& disc = catalogue->discs().at(3);
    const Bytes db = moxphone::ResponseDatabase::build(*catalogue, disc);
    sendFrame(fd, lookupFrame(disc.toc));
    sendFrame(fd, kGetCdMetaInfo);
    const size_t count = (db.size() + 299) / 300;
    const std::vector<Message> answers = readMessages(fd, 2 + count, buffer);
    ASSERT_EQ(2 + count, answers.size());
    EXPECT_EQ(commandMessage(notice(static_cast<uint32_t>(db.size()))), answers[1]);
    EXPECT_EQ(commandMessage(chunk(0, static_cast<uint16_t>(count), 300, slice(db, 0, 300))),
              answers[2]);
    sendFrame(fd, lookupFrame(kUnknownToc));
    sendFrame(fd, kEcho);
    EXPECT_EQ((std::vector<Message>{commandMessage(answer(0x8010)), commandMessage(notice(0, 410)),
                                    commandMessage(answer(0xFFFF, 7))}),
              readMessages(fd, 3, buffer));
    ::close(fd);
    phone.signal(SIGTERM);
    EXPECT_EQ(0, phone.wait());
    EXPECT_NE(std::string::npos, phone.err().find("mox-phone: fault in force: status-echo=7\n"));
}

TEST_F(MoxPhoneTest, TimerScale_AppliesToTheChunkDelays) {
    // Ten minutes between chunks, scaled down to six milliseconds.
    Program phone({"--listen", "unix:" + socketPath(), "--fault", "slow-chunks=600000"},
                  {"HB_TIMER_SCALE=0.00001"});
    phone.waitForLine("mox-phone: listening on ");
    Bytes buffer;
    const int fd = greetedUnix(socketPath(), buffer);
    sendFrame(fd, lookupFrame(sampleCatalogue()->discs().at(0).toc));
    sendFrame(fd, kGetCdMetaInfo);
    const std::vector<Message> answers = readMessages(fd, 3, buffer);
    ASSERT_EQ(3u, answers.size());
    EXPECT_EQ(0x80, answers[2].payload.at(0));
    EXPECT_EQ(0x12, answers[2].payload.at(1));
    ::close(fd);
    phone.signal(SIGTERM);
    EXPECT_EQ(0, phone.wait());
}

TEST_F(MoxPhoneTest, IdleModule_DroppedAfterTheScaledIdleTimeWithOneLogLine) {
    // 30 s scaled by 0.05: 1.5 s.
    Program phone({"--listen", "unix:" + socketPath()}, {"HB_TIMER_SCALE=0.05"});
    phone.waitForLine("mox-phone: listening on ");
    const auto connected = std::chrono::steady_clock::now();
    Bytes buffer;
    const int fd = greetedUnix(socketPath(), buffer);
    EXPECT_TRUE(readMessages(fd, 1, buffer).empty());  // the end, from the phone
    EXPECT_GE(std::chrono::steady_clock::now() - connected, std::chrono::milliseconds(1500));
    ::close(fd);
    EXPECT_EQ(
        "mox-phone: the module has been idle for 1.5 s (nothing received or sent); dropping the "
        "connection",
        phone.waitForLine("mox-phone: the module has been idle"));
    phone.signal(SIGTERM);
    EXPECT_EQ(0, phone.wait());
}

TEST_F(MoxPhoneTest, MalformedFrames_44MiB_LogStaysSmall) {
    Program phone({"--listen", "unix:" + socketPath()});
    phone.waitForLine("mox-phone: listening on ");
    Bytes buffer;
    const int fd = greetedUnix(socketPath(), buffer);
    Bytes frame(1024 * 1024 - 1, 0xEE);  // an envelope of the largest size
    frame[0] = 0x00;
    frame[1] = 0x01;
    for (int i = 0; i < 44; ++i) {
        sendFrame(fd, frame);
        EXPECT_EQ(std::vector<Message>{commandMessage(answer(0x8001, 400))},
                  readMessages(fd, 1, buffer));
    }
    ::close(fd);
    phone.signal(SIGTERM);
    EXPECT_EQ(0, phone.wait());
    // Before, 138 MB: each frame's every byte in hex.
    EXPECT_LT(phone.err().size(), 44u * 512 + 4096);
    EXPECT_NE(std::string::npos,
              phone.err().find(" ... (1048575 bytes); answered with status 400\n"));
}

// ---- Clients of other users ----

class MoxPhoneUserTest : public MoxPhoneTest {
protected:
    static constexpr uid_t kOther = 65534;

    void SetUp() override {
        if (::geteuid() != 0) {
            GTEST_SKIP() << "needs root, to play another user";
        }
        // A folder that every user may enter, unlike the build tree perhaps.
        char name[] = "/tmp/mox-phone-users-XXXXXX";
        ASSERT_NE(nullptr, ::mkdtemp(name));
        folder = name;
        ASSERT_EQ(0, ::chmod(folder.c_str(), 0755));
    }
    void TearDown() override {
        if (!folder.empty()) {
            ::unlink(path().c_str());
            ::rmdir(folder.c_str());
        }
    }
    std::string path() const { return folder + "/phone.sock"; }
    // Starts mox-phone with `extra` options; its socket is writable by all,
    // so that only the phone's own check stands in another user's way.
    std::unique_ptr<Program> started(const std::vector<std::string>& extra) {
        std::vector<std::string> args = {"--listen", "unix:" + path()};
        args.insert(args.end(), extra.begin(), extra.end());
        std::unique_ptr<Program> phone(new Program(args));
        EXPECT_EQ("mox-phone: listening on unix:" + path(),
                  phone->waitForLine("mox-phone: listening on "));
        EXPECT_EQ(0, ::chmod(path().c_str(), 0666));
        return phone;
    }

    std::string folder;
};

TEST_F(MoxPhoneUserTest, ClientOfAnotherUser_RefusedWithOneLogLineOwnUserStillServed) {
    std::unique_ptr<Program> phone = started({});
    EXPECT_EQ(Visit::kClosedAtOnce, visitAs(kOther, path()));
    EXPECT_EQ("mox-phone: refused a client of uid 65534: not this user's",
              phone->waitForLine("mox-phone: refused "));
    EXPECT_EQ(Visit::kGreeted, visitAs(::geteuid(), path()));
    phone->signal(SIGTERM);
    EXPECT_EQ(0, phone->wait());
    EXPECT_EQ(std::string::npos, phone->err().find("(connection 2)"));
}

TEST_F(MoxPhoneUserTest, AllowUid_ThatUserServedOthersStillRefused) {
    std::unique_ptr<Program> phone = started({"--allow-uid", "65534", "--allow-uid", "4242"});
    EXPECT_EQ(Visit::kGreeted, visitAs(kOther, path()));
    EXPECT_EQ(Visit::kGreeted, visitAs(4242, path()));
    EXPECT_EQ(Visit::kClosedAtOnce, visitAs(65533, path()));
    EXPECT_EQ("mox-phone: refused a client of uid 65533: not this user's",
              phone->waitForLine("mox-phone: refused "));
    phone->signal(SIGTERM);
    EXPECT_EQ(0, phone->wait());
}

TEST_F(MoxPhoneUserTest, AllowOtherUsers_EveryUserServed) {
    std::unique_ptr<Program> phone = started({"--allow-other-users"});
    EXPECT_EQ(Visit::kGreeted, visitAs(kOther, path()));
    EXPECT_EQ(Visit::kGreeted, visitAs(65533, path()));
    phone->signal(SIGTERM);
    EXPECT_EQ(0, phone->wait());
    EXPECT_EQ(std::string::npos, phone->err().find("refused"));
}
