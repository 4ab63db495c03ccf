#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "ByteText.h"
#include "CallLog.h"
#include "DbgCapture.h"
#include "OstLinkApp/OstLinkAppEnvelope.h"
#include "OstLinkApp/OstLinkAppHost.h"
#include "OstLinkAppUnixTransport.h"
#include "RawPhone.h"
#include "TestDir.h"
#include "ThreadName.h"

namespace {

typedef std::vector<std::string> Texts;

const char kStreamSource[] = "platform/host/src/OstLinkAppStreamTransport.cpp";

OstLinkAppTransport::PostFunc recorder(CallLog& posts) {
    return [&posts](uint32 id, const void* data, uint32 size) {
        posts.add(std::to_string(id) + " " + byteText(data, size) + " @" + currentThreadName());
    };
}

Texts texts(const DbgCapture& capture) {
    Texts out;
    for (const HbDbgRecord& record : capture.records()) {
        EXPECT_EQ(kStreamSource, record.file);
        EXPECT_EQ(en_TAG_ERROR, record.tag);
        out.push_back(record.text);
    }
    return out;
}

}  // namespace

TEST(OstLinkAppUnixTransportTest, Open_ListeningPhone_ConnectsToItsPath) {
    TestDir dir("unix-transport");
    RawPhone server;
    ASSERT_TRUE(server.listenUnix(dir.file("phone.sock")));
    CallLog posts;
    OstLinkAppUnixTransport transport(dir.file("phone.sock"), recorder(posts));
    EXPECT_EQ("unix:" + dir.file("phone.sock"), transport.getName());
    ASSERT_TRUE(transport.open());
    ASSERT_TRUE(server.accept());
    const std::vector<uint8> status = OstLinkAppEnvelope::encode(2, (const uint8*)"\x02", 1);
    ASSERT_TRUE(server.send(status));
    ASSERT_TRUE(posts.waitForCount(1));
    EXPECT_EQ(Texts{"601 [02] @OstLinkAppRx"}, posts.entries());
}

TEST(OstLinkAppUnixTransportTest, Open_NoSuchSocket_LogsTheReasonReportsOnceAndDoesNotRetry) {
    DbgCapture capture;
    TestDir dir("unix-transport");
    const std::string path = dir.file("absent.sock");
    CallLog posts;
    OstLinkAppUnixTransport transport(path, recorder(posts));
    ASSERT_TRUE(transport.open());
    ASSERT_TRUE(posts.waitForCount(1));
    EXPECT_FALSE(transport.isOpen());
    EXPECT_FALSE(transport.close());  // joins the reader: it has ended for good
    EXPECT_EQ(Texts{"601 [00] @OstLinkAppRx"}, posts.entries());
    EXPECT_EQ(Texts{"cannot connect to unix:" + path + ": No such file or directory\n"},
              texts(capture));
    RawPhone server;
    ASSERT_TRUE(server.listenUnix(path));
    EXPECT_FALSE(server.hasPendingConnection());
}

TEST(OstLinkAppUnixTransportTest, Open_PathIsNotASocket_LogsConnectionRefused) {
    DbgCapture capture;
    TestDir dir("unix-transport");
    const std::string path = dir.file("plain-file");
    TestDir::writeFile(path, {1, 2, 3});
    CallLog posts;
    OstLinkAppUnixTransport transport(path, recorder(posts));
    ASSERT_TRUE(transport.open());
    ASSERT_TRUE(posts.waitForCount(1));
    EXPECT_FALSE(transport.close());
    EXPECT_EQ(Texts{"601 [00] @OstLinkAppRx"}, posts.entries());
    EXPECT_EQ(Texts{"cannot connect to unix:" + path + ": Connection refused\n"}, texts(capture));
}

TEST(OstLinkAppUnixTransportTest, Open_PathTooLongForASocketAddress_FailsWithoutPosting) {
    DbgCapture capture;
    const std::string path = "/tmp/" + std::string(103, 'x');
    CallLog posts;
    OstLinkAppUnixTransport transport(path, recorder(posts));
    EXPECT_FALSE(transport.open());
    EXPECT_FALSE(transport.isOpen());
    EXPECT_EQ(Texts{"cannot open unix:" + path + ": socket path must have 1 to 107 bytes\n"},
              texts(capture));
    EXPECT_TRUE(posts.entries().empty());
    EXPECT_FALSE(transport.close());
}

// --- A socket of another user -----------------------------------------------------------
// Run as root, the test starts a phone that runs as another uid (65534) and
// listens where the link connects: its peer credentials give it away.

namespace {

class OtherUserPhone {
public:
    // Listens on `path` as uid 65534; accepts one link and greets it with
    // device status 2, then holds it until destroyed.
    explicit OtherUserPhone(const std::string& path) {
        int ready[2];
        if (::pipe(ready) != 0 || ::pipe(mHold) != 0) {
            return;
        }
        mPid = ::fork();
        if (mPid == 0) {
            ::close(ready[0]);
            ::close(mHold[1]);
            serve(path, ready[1], mHold[0]);
        }
        ::close(ready[1]);
        ::close(mHold[0]);
        char byte = 0;
        mListening = ::read(ready[0], &byte, 1) == 1;
        ::close(ready[0]);
    }
    ~OtherUserPhone() {
        ::close(mHold[1]);
        int status = 0;
        if (mPid > 0) {
            ::waitpid(mPid, &status, 0);
        }
    }
    bool listening() const { return mListening; }

private:
    [[noreturn]] static void serve(const std::string& path, int ready, int hold) {
        if (::setresgid(65534, 65534, 65534) != 0 || ::setresuid(65534, 65534, 65534) != 0) {
            ::_exit(2);
        }
        RawPhone server;
        if (!server.listenUnix(path) || ::write(ready, "r", 1) != 1 || !server.accept()) {
            ::_exit(3);
        }
        server.send(OstLinkAppEnvelope::encode(2, (const uint8*)"\x02", 1));
        char byte = 0;
        (void)!::read(hold, &byte, 1);
        ::_exit(0);
    }

    pid_t mPid = -1;
    int mHold[2] = {-1, -1};
    bool mListening = false;
};

}  // namespace

class OstLinkAppUnixTransportOtherUserTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (::geteuid() != 0) {
            GTEST_SKIP() << "needs root, to run a phone as another user";
        }
        ASSERT_EQ(::chmod(dir.path().c_str(), 0777), 0);
        phone.reset(new OtherUserPhone(path));
        ASSERT_TRUE(phone->listening());
    }
    void TearDown() override { OstLinkAppHost::setAllowOtherUsers(false); }

    DbgCapture capture;
    TestDir dir{"unix-transport"};
    const std::string path = dir.file("phone.sock");
    std::unique_ptr<OtherUserPhone> phone;
    CallLog posts;
};

TEST_F(OstLinkAppUnixTransportOtherUserTest, Open_PhoneOfAnotherUser_RefusedWithTheReason) {
    OstLinkAppUnixTransport transport(path, recorder(posts));
    ASSERT_TRUE(transport.open());
    ASSERT_TRUE(posts.waitForCount(1));
    EXPECT_EQ(Texts{"601 [00] @OstLinkAppRx"}, posts.entries());
    EXPECT_EQ(Texts{"refused the phone at unix:" + path +
                    ": it runs as uid 65534, not as this user (uid 0)\n"},
              texts(capture));
    EXPECT_FALSE(transport.isOpen());
}

TEST_F(OstLinkAppUnixTransportOtherUserTest, Open_PhoneOfAnotherUserAllowedExplicitly_Links) {
    OstLinkAppHost::setAllowOtherUsers(true);
    OstLinkAppUnixTransport transport(path, recorder(posts));
    ASSERT_TRUE(transport.open());
    ASSERT_TRUE(posts.waitForCount(1));
    EXPECT_EQ(Texts{"601 [02] @OstLinkAppRx"}, posts.entries());
    EXPECT_TRUE(texts(capture).empty());
    transport.close();
}
