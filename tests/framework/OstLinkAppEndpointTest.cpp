#include <gtest/gtest.h>

#include <netinet/in.h>
#include <sys/socket.h>

#include <string>

#include "OstLinkAppEndpoint.h"

namespace {

// Parses `text`; returns the error ("" on success).
std::string parseError(const std::string& text, bool allowRemote, OstLinkAppEndpoint* out) {
    OstLinkAppEndpoint endpoint;
    std::string error;
    const bool ok = OstLinkAppEndpoint::parse(text, allowRemote, endpoint, error);
    if (out != nullptr) {
        *out = endpoint;
    }
    return ok ? std::string() : error;
}

const char kRemoteHint[] = " is not a loopback address";

}  // namespace

TEST(OstLinkAppEndpointTest, Parse_Loopback_IsTheLoopbackKind) {
    OstLinkAppEndpoint endpoint;
    EXPECT_EQ("", parseError("loopback", false, &endpoint));
    EXPECT_EQ(OstLinkAppEndpoint::en_KIND_LOOPBACK, endpoint.getKind());
    EXPECT_EQ("loopback", endpoint.getText());
}

TEST(OstLinkAppEndpointTest, Parse_UnixPath_KeepsThePath) {
    OstLinkAppEndpoint endpoint;
    EXPECT_EQ("", parseError("unix:/run/phone.sock", false, &endpoint));
    EXPECT_EQ(OstLinkAppEndpoint::en_KIND_UNIX, endpoint.getKind());
    EXPECT_EQ("/run/phone.sock", endpoint.getPath());
    EXPECT_EQ("unix:/run/phone.sock", endpoint.getText());
}

TEST(OstLinkAppEndpointTest, Parse_UnixWithoutPath_FailsWithReason) {
    EXPECT_EQ("bad endpoint 'unix:': empty socket path", parseError("unix:", false, nullptr));
}

TEST(OstLinkAppEndpointTest, Parse_UnixPathLongerThanASocketAddressHolds_Fails) {
    const std::string path(108, 'p');
    EXPECT_EQ("bad endpoint 'unix:" + path + "': socket path longer than 107 bytes",
              parseError("unix:" + path, false, nullptr));
    EXPECT_EQ("", parseError("unix:" + std::string(107, 'p'), false, nullptr));
}

TEST(OstLinkAppEndpointTest, Parse_TcpIpv4Loopback_GivesAddressFamilyAndPort) {
    OstLinkAppEndpoint endpoint;
    EXPECT_EQ("", parseError("tcp:127.0.0.1:7000", false, &endpoint));
    EXPECT_EQ(OstLinkAppEndpoint::en_KIND_TCP, endpoint.getKind());
    EXPECT_EQ("127.0.0.1", endpoint.getHost());
    EXPECT_EQ(AF_INET, endpoint.getFamily());
    EXPECT_EQ(7000, endpoint.getPort());
}

TEST(OstLinkAppEndpointTest, Parse_TcpAnywhereIn127Slash8_IsLoopback) {
    EXPECT_EQ("", parseError("tcp:127.45.6.7:1", false, nullptr));
}

TEST(OstLinkAppEndpointTest, Parse_TcpLocalhost_ReadsAs127001) {
    OstLinkAppEndpoint endpoint;
    EXPECT_EQ("", parseError("tcp:localhost:65535", false, &endpoint));
    EXPECT_EQ("127.0.0.1", endpoint.getHost());
    EXPECT_EQ(65535, endpoint.getPort());
}

TEST(OstLinkAppEndpointTest, Parse_TcpIpv6Loopback_BracketedOrNot) {
    OstLinkAppEndpoint endpoint;
    EXPECT_EQ("", parseError("tcp:[::1]:7000", false, &endpoint));
    EXPECT_EQ("::1", endpoint.getHost());
    EXPECT_EQ(AF_INET6, endpoint.getFamily());
    EXPECT_EQ("", parseError("tcp:::1:7000", false, &endpoint));
    EXPECT_EQ("::1", endpoint.getHost());
}

TEST(OstLinkAppEndpointTest, Parse_TcpIpv4MappedLoopback_IsLoopback) {
    EXPECT_EQ("", parseError("tcp:[::ffff:127.0.0.1]:7000", false, nullptr));
}

TEST(OstLinkAppEndpointTest, Parse_TcpRemoteIpv4_IsRefusedUnlessAllowed) {
    EXPECT_EQ("remote endpoint 'tcp:192.0.2.7:7000' refused: 192.0.2.7" + std::string(kRemoteHint),
              parseError("tcp:192.0.2.7:7000", false, nullptr));
    OstLinkAppEndpoint endpoint;
    EXPECT_EQ("", parseError("tcp:192.0.2.7:7000", true, &endpoint));
    EXPECT_EQ("192.0.2.7", endpoint.getHost());
}

TEST(OstLinkAppEndpointTest, Parse_TcpRemoteIpv6AndAnyAddress_AreRefused) {
    EXPECT_EQ(
        "remote endpoint 'tcp:[2001:db8::1]:7000' refused: 2001:db8::1" + std::string(kRemoteHint),
        parseError("tcp:[2001:db8::1]:7000", false, nullptr));
    EXPECT_EQ("remote endpoint 'tcp:0.0.0.0:7000' refused: 0.0.0.0" + std::string(kRemoteHint),
              parseError("tcp:0.0.0.0:7000", false, nullptr));
    EXPECT_EQ("remote endpoint 'tcp:[::ffff:10.0.0.1]:7000' refused: ::ffff:10.0.0.1" +
                  std::string(kRemoteHint),
              parseError("tcp:[::ffff:10.0.0.1]:7000", false, nullptr));
}

TEST(OstLinkAppEndpointTest, Parse_TcpHostName_IsRefusedWithoutLookingItUp) {
    EXPECT_EQ(
        "bad endpoint 'tcp:phone.example:7000': host must be localhost or a numeric IP "
        "address",
        parseError("tcp:phone.example:7000", true, nullptr));
}

TEST(OstLinkAppEndpointTest, Parse_TcpBadPorts_FailWithReason) {
    const std::string reason = "port must be a number from 1 to 65535";
    EXPECT_EQ("bad endpoint 'tcp:127.0.0.1:0': " + reason,
              parseError("tcp:127.0.0.1:0", false, nullptr));
    EXPECT_EQ("bad endpoint 'tcp:127.0.0.1:65536': " + reason,
              parseError("tcp:127.0.0.1:65536", false, nullptr));
    EXPECT_EQ("bad endpoint 'tcp:127.0.0.1:': " + reason,
              parseError("tcp:127.0.0.1:", false, nullptr));
    EXPECT_EQ("bad endpoint 'tcp:127.0.0.1:7a': " + reason,
              parseError("tcp:127.0.0.1:7a", false, nullptr));
    EXPECT_EQ("bad endpoint 'tcp:127.0.0.1:-1': " + reason,
              parseError("tcp:127.0.0.1:-1", false, nullptr));
}

TEST(OstLinkAppEndpointTest, Parse_TcpWithoutPort_FailsWithReason) {
    EXPECT_EQ("bad endpoint 'tcp:localhost': expected tcp:HOST:PORT",
              parseError("tcp:localhost", false, nullptr));
}

TEST(OstLinkAppEndpointTest, Parse_UnknownScheme_FailsNamingTheForms) {
    EXPECT_EQ("bad endpoint 'serial:/dev/ttyS0': expected loopback, unix:PATH or tcp:HOST:PORT",
              parseError("serial:/dev/ttyS0", false, nullptr));
    EXPECT_EQ("bad endpoint '': expected loopback, unix:PATH or tcp:HOST:PORT",
              parseError("", false, nullptr));
    EXPECT_EQ("bad endpoint 'Loopback': expected loopback, unix:PATH or tcp:HOST:PORT",
              parseError("Loopback", false, nullptr));
}

TEST(OstLinkAppEndpointTest, Parse_Failure_LeavesTheOutputAsItWas) {
    OstLinkAppEndpoint endpoint;
    std::string error;
    ASSERT_TRUE(OstLinkAppEndpoint::parse("unix:/a", false, endpoint, error));
    EXPECT_FALSE(OstLinkAppEndpoint::parse("tcp:10.1.1.1:1", false, endpoint, error));
    EXPECT_EQ("unix:/a", endpoint.getText());
}
