#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ByteText.h"
#include "CallLog.h"
#include "DbgCapture.h"
#include "LinkTestServer.h"
#include "OstLinkApp/OstLinkAppEnvelope.h"
#include "OstLinkAppUnixTransport.h"
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
    LinkTestServer server;
    ASSERT_TRUE(server.listenUnix(dir.file("phone.sock")));
    CallLog posts;
    OstLinkAppUnixTransport transport(dir.file("phone.sock"), recorder(posts));
    EXPECT_EQ("unix:" + dir.file("phone.sock"), transport.getName());
    ASSERT_TRUE(transport.open());
    ASSERT_TRUE(server.accept());
    const std::vector<uint8> status = OstLinkAppEnvelope::encode(2, (const uint8*)"\x02", 1);
    ASSERT_TRUE(server.sendBytes(status));
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
    LinkTestServer server;
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
