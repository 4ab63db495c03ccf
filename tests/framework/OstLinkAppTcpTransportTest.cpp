#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "ByteText.h"
#include "CallLog.h"
#include "DbgCapture.h"
#include "OstLinkApp/OstLinkAppEnvelope.h"
#include "OstLinkAppTcpTransport.h"
#include "RawPhone.h"
#include "ThreadName.h"

namespace {

typedef std::vector<std::string> Texts;
typedef std::vector<uint8_t> Bytes;

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
        out.push_back(record.text);
    }
    return out;
}

// A TCP port on 127.0.0.1 that is bound but not listening: connections to it
// are refused, and no other program can take it while this lives.
class RefusingPort {
public:
    RefusingPort() : mSocket(::socket(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof(address);
        if (::bind(mSocket, reinterpret_cast<sockaddr*>(&address), length) == 0 &&
            ::getsockname(mSocket, reinterpret_cast<sockaddr*>(&address), &length) == 0) {
            mPort = ntohs(address.sin_port);
        }
    }
    ~RefusingPort() { ::close(mSocket); }
    uint16_t port() const { return mPort; }

private:
    int mSocket;
    uint16_t mPort = 0;
};

// Exchanges one message each way over a connected transport.
void exchange(RawPhone& server, OstLinkAppTcpTransport& transport, CallLog& posts) {
    ASSERT_TRUE(transport.open());
    ASSERT_TRUE(server.accept());
    ASSERT_TRUE(server.send(OstLinkAppEnvelope::encode(1, (const uint8*)"\x01Pix", 4)));
    ASSERT_TRUE(posts.waitForCount(1));
    EXPECT_EQ(Texts{"600 [01 50 69 78] @OstLinkAppRx"}, posts.entries());
    const uint8 frame[] = {0x00, 0x01, 0x01};
    EXPECT_TRUE(transport.send(frame, sizeof(frame)));
    Bytes received;
    ASSERT_TRUE(server.readExactly(8, received));
    EXPECT_EQ((Bytes{0, 0, 0, 4, 3, 0x00, 0x01, 0x01}), received);
}

}  // namespace

TEST(OstLinkAppTcpTransportTest, Open_PhoneOnIpv4Loopback_ExchangesEnvelopesBothWays) {
    RawPhone server;
    ASSERT_TRUE(server.listenTcp());
    CallLog posts;
    OstLinkAppTcpTransport transport(server.endpoint(), AF_INET, "127.0.0.1", server.port(),
                                     recorder(posts));
    EXPECT_EQ(server.endpoint(), transport.getName());
    exchange(server, transport, posts);
    EXPECT_TRUE(transport.close());
    EXPECT_TRUE(server.waitForEof());
}

TEST(OstLinkAppTcpTransportTest, Open_PhoneOnIpv6Loopback_ExchangesEnvelopesBothWays) {
    RawPhone server;
    if (!server.listenTcp(true)) {
        GTEST_SKIP() << "no IPv6 loopback on this machine";
    }
    CallLog posts;
    OstLinkAppTcpTransport transport(server.endpoint(), AF_INET6, "::1", server.port(),
                                     recorder(posts));
    exchange(server, transport, posts);
}

TEST(OstLinkAppTcpTransportTest, Open_RefusedPort_LogsTheReasonAndReportsTheLinkLostOnce) {
    DbgCapture capture;
    RefusingPort refusing;
    ASSERT_NE(0, refusing.port());
    const std::string name = "tcp:127.0.0.1:" + std::to_string(refusing.port());
    CallLog posts;
    OstLinkAppTcpTransport transport(name, AF_INET, "127.0.0.1", refusing.port(), recorder(posts));
    ASSERT_TRUE(transport.open());
    ASSERT_TRUE(posts.waitForCount(1));
    EXPECT_FALSE(transport.close());
    EXPECT_EQ(Texts{"601 [00] @OstLinkAppRx"}, posts.entries());
    EXPECT_EQ(Texts{"cannot connect to " + name + ": Connection refused\n"}, texts(capture));
}

TEST(OstLinkAppTcpTransportTest, Open_AddressThatIsNotNumeric_FailsWithoutPosting) {
    DbgCapture capture;
    CallLog posts;
    OstLinkAppTcpTransport transport("tcp:x:1", AF_INET, "phone", 1, recorder(posts));
    EXPECT_FALSE(transport.open());
    EXPECT_EQ(Texts{"cannot open tcp:x:1: 'phone' is not a numeric address\n"}, texts(capture));
    EXPECT_TRUE(posts.entries().empty());
}
