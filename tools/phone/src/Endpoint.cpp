// Endpoint texts.
#include "moxphone/Endpoint.h"

#include <sys/un.h>

#include <algorithm>

namespace moxphone {

namespace {

const std::string kUnixPrefix = "unix:";
const std::string kTcpPrefix = "tcp:";

bool parsePort(const std::string& text, uint16_t* port) {
    if (text.empty() || text.size() > 5 ||
        !std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; })) {
        return false;
    }
    const unsigned long value = std::stoul(text);
    if (value > 65535) {
        return false;
    }
    *port = static_cast<uint16_t>(value);
    return true;
}

bool fail(std::string* error, const std::string& reason) {
    *error = reason;
    return false;
}

}  // namespace

bool Endpoint::parse(const std::string& text, Endpoint* out, std::string* error) {
    const std::string usage = "'" + text + "' is not an endpoint: use unix:PATH or tcp:HOST:PORT";
    Endpoint endpoint;
    if (text.compare(0, kUnixPrefix.size(), kUnixPrefix) == 0) {
        endpoint.mKind = Kind::kUnix;
        endpoint.mPath = text.substr(kUnixPrefix.size());
        if (endpoint.mPath.empty()) {
            return fail(error, usage);
        }
        if (endpoint.mPath.size() >= sizeof(sockaddr_un::sun_path)) {
            return fail(error, "the socket path " + endpoint.mPath + " is longer than " +
                                   std::to_string(sizeof(sockaddr_un::sun_path) - 1) + " bytes");
        }
        *out = endpoint;
        return true;
    }
    if (text.compare(0, kTcpPrefix.size(), kTcpPrefix) != 0) {
        return fail(error, usage);
    }
    const std::string rest = text.substr(kTcpPrefix.size());
    const size_t colon = rest.rfind(':');
    if (colon == std::string::npos || colon == 0) {
        return fail(error, usage);
    }
    std::string host = rest.substr(0, colon);
    if (host.front() == '[') {
        if (host.size() < 3 || host.back() != ']') {
            return fail(error, usage);
        }
        host = host.substr(1, host.size() - 2);
    } else if (host.find(':') != std::string::npos) {
        return fail(error, usage + " (an IPv6 address goes in brackets: tcp:[::1]:PORT)");
    }
    if (!parsePort(rest.substr(colon + 1), &endpoint.mPort)) {
        return fail(error, "'" + rest.substr(colon + 1) + "' is not a port number (0 to 65535)");
    }
    endpoint.mKind = Kind::kTcp;
    endpoint.mHost = host;
    *out = endpoint;
    return true;
}

std::string Endpoint::text() const {
    if (mKind == Kind::kUnix) {
        return kUnixPrefix + mPath;
    }
    const bool ipv6 = mHost.find(':') != std::string::npos;
    return kTcpPrefix + (ipv6 ? "[" + mHost + "]" : mHost) + ":" + std::to_string(mPort);
}

Endpoint Endpoint::withPort(uint16_t port) const {
    Endpoint copy = *this;
    copy.mPort = port;
    return copy;
}

}  // namespace moxphone
