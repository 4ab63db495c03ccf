#include "OstLinkApp/OstLinkAppHost.h"

#include <cstdlib>
#include <mutex>

constexpr uint32 OstLinkAppHost::MAX_ENVELOPE_LENGTH;

namespace {

const char kEndpointVariable[] = "OST_LINKAPP_ENDPOINT";
const char kDefaultEndpoint[] = "loopback";

// Every member is guarded by `mutex`.
struct HostSettings {
    std::mutex mutex;
    std::string endpoint;  // the setter's; empty when unset
    bool allowRemote = false;
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

void OstLinkAppHost::setAllowRemote(bool allow) {
    std::lock_guard<std::mutex> lock(settings().mutex);
    settings().allowRemote = allow;
}

bool OstLinkAppHost::getAllowRemote() {
    std::lock_guard<std::mutex> lock(settings().mutex);
    return settings().allowRemote;
}

void OstLinkAppHost::setLoopbackPeer(OstLinkAppPeer* peer) {
    std::lock_guard<std::mutex> lock(settings().mutex);
    settings().peer = peer;
}

OstLinkAppPeer* OstLinkAppHost::getLoopbackPeer() {
    std::lock_guard<std::mutex> lock(settings().mutex);
    return settings().peer;
}
