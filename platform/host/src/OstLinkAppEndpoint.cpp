#include "OstLinkAppEndpoint.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstring>

namespace {

const char kUnixPrefix[] = "unix:";
const char kTcpPrefix[] = "tcp:";

bool startsWith(const std::string& text, const char* prefix) {
    return text.compare(0, std::strlen(prefix), prefix) == 0;
}

}  // namespace

OstLinkAppEndpoint::OstLinkAppEndpoint()
    : mKind(en_KIND_LOOPBACK), mText("loopback"), mPath(), mHost(), mFamily(AF_UNSPEC), mPort(0) {}

bool OstLinkAppEndpoint::parse(const std::string& text, bool allowRemote, OstLinkAppEndpoint& out,
                               std::string& error) {
    OstLinkAppEndpoint endpoint;
    endpoint.mText = text;
    bool ok = true;
    if (text == "loopback") {
        endpoint.mKind = en_KIND_LOOPBACK;
    } else if (startsWith(text, kUnixPrefix)) {
        ok = parseUnix(text.substr(std::strlen(kUnixPrefix)), endpoint, error);
    } else if (startsWith(text, kTcpPrefix)) {
        ok = parseTcp(text.substr(std::strlen(kTcpPrefix)), allowRemote, endpoint, error);
    } else {
        error = "bad endpoint '" + text + "': expected loopback, unix:PATH or tcp:HOST:PORT";
        ok = false;
    }
    if (ok) {
        out = endpoint;
    }
    return ok;
}

bool OstLinkAppEndpoint::parseUnix(const std::string& rest, OstLinkAppEndpoint& out,
                                   std::string& error) {
    const size_t limit = sizeof(sockaddr_un::sun_path) - 1;
    if (rest.empty()) {
        error = "bad endpoint '" + out.mText + "': empty socket path";
        return false;
    }
    if (rest.size() > limit || rest.find('\0') != std::string::npos) {
        error = "bad endpoint '" + out.mText + "': socket path longer than " +
                std::to_string(limit) + " bytes";
        return false;
    }
    out.mKind = en_KIND_UNIX;
    out.mPath = rest;
    return true;
}

bool OstLinkAppEndpoint::parseTcp(const std::string& rest, bool allowRemote,
                                  OstLinkAppEndpoint& out, std::string& error) {
    const std::string prefix = "bad endpoint '" + out.mText + "': ";
    const size_t colon = rest.rfind(':');
    if (colon == std::string::npos) {
        error = prefix + "expected tcp:HOST:PORT";
        return false;
    }
    std::string host = rest.substr(0, colon);
    if (host.size() >= 2 && host.front() == '[' && host.back() == ']') {
        host = host.substr(1, host.size() - 2);
    }
    if (!parsePort(rest.substr(colon + 1), out.mPort)) {
        error = prefix + "port must be a number from 1 to 65535";
        return false;
    }
    if (host == "localhost") {
        host = "127.0.0.1";
    }
    unsigned char address[sizeof(in6_addr)];
    if (inet_pton(AF_INET, host.c_str(), address) == 1) {
        out.mFamily = AF_INET;
    } else if (inet_pton(AF_INET6, host.c_str(), address) == 1) {
        out.mFamily = AF_INET6;
    } else {
        error = prefix + "host must be localhost or a numeric IP address";
        return false;
    }
    if (!allowRemote && !isLoopbackAddress(out.mFamily, host)) {
        error =
            "remote endpoint '" + out.mText + "' refused: " + host + " is not a loopback address";
        return false;
    }
    out.mKind = en_KIND_TCP;
    out.mHost = host;
    return true;
}

bool OstLinkAppEndpoint::parsePort(const std::string& text, uint16& port) {
    if (text.empty() || text.size() > 5) {
        return false;
    }
    uint32 value = 0;
    for (char c : text) {
        if (c < '0' || c > '9') {
            return false;
        }
        value = value * 10u + static_cast<uint32>(c - '0');
    }
    if (value == 0 || value > 65535u) {
        return false;
    }
    port = static_cast<uint16>(value);
    return true;
}

bool OstLinkAppEndpoint::isLoopbackAddress(int family, const std::string& host) {
    if (family == AF_INET) {
        in_addr v4;
        inet_pton(AF_INET, host.c_str(), &v4);
        const uint8* bytes = reinterpret_cast<const uint8*>(&v4.s_addr);
        return bytes[0] == 127;
    }
    in6_addr v6;
    inet_pton(AF_INET6, host.c_str(), &v6);
    static const uint8 kMappedPrefix[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF};
    if (std::memcmp(v6.s6_addr, kMappedPrefix, sizeof(kMappedPrefix)) == 0) {
        return v6.s6_addr[12] == 127;
    }
    return IN6_IS_ADDR_LOOPBACK(&v6);
}
