#include "OstLinkApp/OstLinkAppHost.h"

#include "OstLinkAppEndpoint.h"

#include <cstdlib>
#include <mutex>

constexpr uint32 OstLinkAppHost::MAX_ENVELOPE_LENGTH;
constexpr uint32 OstLinkAppHost::GREETING_MS;
constexpr uint32 OstLinkAppHost::SEND_QUEUE_LIMIT;
constexpr uint32 OstLinkAppHost::SEND_STALL_MS;

namespace {

const char kEndpointVariable[] = "OST_LINKAPP_ENDPOINT";
const char kDefaultEndpoint[] = "loopback";

// Every member is guarded by `mutex`.
struct HostSettings {
    std::mutex mutex;
    std::string endpoint;  // the setter's; empty when unset
    bool allowRemote = false;
    bool allowOtherUsers = false;
    uint32 greetingMs = 0;           // 0: GREETING_MS
    uint32 sendStallMs = 0;          // 0: SEND_STALL_MS
    OstLinkAppPeer* peer = nullptr;  // not owned
};

// Created on first use and never destroyed, so that links closed at process
// exit still find it.
HostSettings& settings() {
    static HostSettings* s = new HostSettings();
    return *s;
}

}  // namespace

void OstLinkAppHost::setEndpoint(const std::string& endpoint) {
    std::lock_guard<std::mutex> lock(settings().mutex);
    settings().endpoint = endpoint;
}

std::string OstLinkAppHost::getEndpoint() {
    {
        std::lock_guard<std::mutex> lock(settings().mutex);
        if (!settings().endpoint.empty()) {
            return settings().endpoint;
        }
    }
    const char* fromEnvironment = std::getenv(kEndpointVariable);
    if (fromEnvironment != nullptr && fromEnvironment[0] != '\0') {
        return fromEnvironment;
    }
    return kDefaultEndpoint;
}

bool OstLinkAppHost::checkEndpoint(const std::string& endpoint, std::string* error,
                                   bool* remoteRefused) {
    OstLinkAppEndpoint parsed;
    std::string reason;
    if (OstLinkAppEndpoint::parse(endpoint, getAllowRemote(), parsed, reason)) {
        return true;
    }
    if (error != nullptr) {
        *error = reason;
    }
    if (remoteRefused != nullptr) {
        std::string ignored;
        *remoteRefused = OstLinkAppEndpoint::parse(endpoint, true, parsed, ignored);
    }
    return false;
}

void OstLinkAppHost::setAllowRemote(bool allow) {
    std::lock_guard<std::mutex> lock(settings().mutex);
    settings().allowRemote = allow;
}

bool OstLinkAppHost::getAllowRemote() {
    std::lock_guard<std::mutex> lock(settings().mutex);
    return settings().allowRemote;
}

void OstLinkAppHost::setLinkTimes(uint32 greetingMs, uint32 sendStallMs) {
    std::lock_guard<std::mutex> lock(settings().mutex);
    settings().greetingMs = greetingMs;
    settings().sendStallMs = sendStallMs;
}

uint32 OstLinkAppHost::getGreetingMs() {
    std::lock_guard<std::mutex> lock(settings().mutex);
    return settings().greetingMs != 0 ? settings().greetingMs : GREETING_MS;
}

uint32 OstLinkAppHost::getSendStallMs() {
    std::lock_guard<std::mutex> lock(settings().mutex);
    return settings().sendStallMs != 0 ? settings().sendStallMs : SEND_STALL_MS;
}

void OstLinkAppHost::setAllowOtherUsers(bool allow) {
    std::lock_guard<std::mutex> lock(settings().mutex);
    settings().allowOtherUsers = allow;
}

bool OstLinkAppHost::getAllowOtherUsers() {
    {
        std::lock_guard<std::mutex> lock(settings().mutex);
        if (settings().allowOtherUsers) {
            return true;
        }
    }
    const char* fromEnvironment = std::getenv("OST_LINKAPP_ALLOW_OTHER_USERS");
    return fromEnvironment != nullptr && std::string(fromEnvironment) == "1";
}

void OstLinkAppHost::setLoopbackPeer(OstLinkAppPeer* peer) {
    std::lock_guard<std::mutex> lock(settings().mutex);
    settings().peer = peer;
}

OstLinkAppPeer* OstLinkAppHost::getLoopbackPeer() {
    std::lock_guard<std::mutex> lock(settings().mutex);
    return settings().peer;
}
