// Endpoint texts: unix:PATH and tcp:HOST:PORT, and what is refused.
#include "moxphone/Endpoint.h"

#include <gtest/gtest.h>

#include <string>

using moxphone::Endpoint;

namespace {

std::string refusal(const std::string& text) {
    Endpoint endpoint;
    std::string error;
    return Endpoint::parse(text, &endpoint, &error) ? "accepted" : error;
}

}  // namespace

TEST(EndpointTest, Parse_Unix_PathKept) {
    Endpoint endpoint;
    std::string error;
    ASSERT_TRUE(Endpoint::parse("unix:/tmp/phone.sock", &endpoint, &error)) << error;
    EXPECT_EQ(Endpoint::Kind::kUnix, endpoint.kind());
    EXPECT_EQ("/tmp/phone.sock", endpoint.path());
    EXPECT_EQ("unix:/tmp/phone.sock", endpoint.text());
}

TEST(EndpointTest, Parse_TcpIpv4_HostAndPort) {
    Endpoint endpoint;
    std::string error;
    ASSERT_TRUE(Endpoint::parse("tcp:127.0.0.1:5555", &endpoint, &error)) << error;
    EXPECT_EQ(Endpoint::Kind::kTcp, endpoint.kind());
    EXPECT_EQ("127.0.0.1", endpoint.host());
    EXPECT_EQ(5555, endpoint.port());
    EXPECT_EQ("tcp:127.0.0.1:5555", endpoint.text());
    EXPECT_EQ("tcp:127.0.0.1:7", endpoint.withPort(7).text());
}

TEST(EndpointTest, Parse_TcpIpv6InBrackets_TextKeepsTheBrackets) {
    Endpoint endpoint;
    std::string error;
    ASSERT_TRUE(Endpoint::parse("tcp:[::1]:0", &endpoint, &error)) << error;
    EXPECT_EQ("::1", endpoint.host());
    EXPECT_EQ(0, endpoint.port());
    EXPECT_EQ("tcp:[::1]:0", endpoint.text());
}

TEST(EndpointTest, Parse_Refusals_WithTheirReasons) {
    EXPECT_EQ("'loopback' is not an endpoint: use unix:PATH or tcp:HOST:PORT", refusal("loopback"));
    EXPECT_EQ("'unix:' is not an endpoint: use unix:PATH or tcp:HOST:PORT", refusal("unix:"));
    EXPECT_EQ("'tcp:5555' is not an endpoint: use unix:PATH or tcp:HOST:PORT", refusal("tcp:5555"));
    EXPECT_EQ("'tcp::5555' is not an endpoint: use unix:PATH or tcp:HOST:PORT",
              refusal("tcp::5555"));
    EXPECT_EQ(
        "'tcp:::1:5555' is not an endpoint: use unix:PATH or tcp:HOST:PORT (an IPv6 "
        "address goes in brackets: tcp:[::1]:PORT)",
        refusal("tcp:::1:5555"));
    EXPECT_EQ("'65536' is not a port number (0 to 65535)", refusal("tcp:127.0.0.1:65536"));
    EXPECT_EQ("'x' is not a port number (0 to 65535)", refusal("tcp:127.0.0.1:x"));
    EXPECT_EQ("'' is not a port number (0 to 65535)", refusal("tcp:127.0.0.1:"));
    EXPECT_EQ("the socket path /" + std::string(107, 'p') + " is longer than 107 bytes",
              refusal("unix:/" + std::string(107, 'p')));
    EXPECT_EQ("accepted", refusal("unix:/" + std::string(106, 'p')));
}
