// One request per second and server.
#include "moxphone/ServerPacer.h"

#include <curl/curl.h>

#include <algorithm>
#include <cmath>

namespace moxphone {

namespace {

// One part of a parsed URL, "" when it has none.
std::string part(CURLU* handle, CURLUPart which, unsigned int flags) {
    char* text = nullptr;
    if (curl_url_get(handle, which, &text, flags) != CURLUE_OK || text == nullptr) {
        return std::string();
    }
    std::string value(text);
    curl_free(text);
    return value;
}

}  // namespace

std::string ServerPacer::serverOf(const std::string& url, bool* loopback) {
    *loopback = false;
    CURLU* handle = curl_url();
    if (handle == nullptr) {
        return std::string();
    }
    std::string server;
    if (curl_url_set(handle, CURLUPART_URL, url.c_str(), 0) == CURLUE_OK) {
        const std::string host = part(handle, CURLUPART_HOST, 0);
        server = part(handle, CURLUPART_SCHEME, 0) + "://" + host + ":" +
                 part(handle, CURLUPART_PORT, CURLU_DEFAULT_PORT);
        *loopback = host == "127.0.0.1" || host == "[::1]" || host == "localhost";
    }
    curl_url_cleanup(handle);
    return server;
}

uint32_t ServerPacer::pauseMs(const std::string& url, uint32_t ms) const {
    bool loopback = false;
    serverOf(url, &loopback);
    if (!loopback) {
        return ms;
    }
    const double scaled = std::llround(static_cast<double>(ms) * mTimeScale);
    return static_cast<uint32_t>(std::max(0.0, std::min(scaled, static_cast<double>(ms))));
}

bool ServerPacer::waitTurn(const std::string& url, LookupControl& control) {
    bool loopback = false;
    const std::string server = serverOf(url, &loopback);
    const auto pause = std::chrono::milliseconds(pauseMs(url, kPauseMs));
    LookupControl::Clock::time_point turn;
    {
        std::lock_guard<std::mutex> lock(mMutex);
        const auto now = LookupControl::Clock::now();
        const auto found = mNextTurn.find(server);
        turn = found == mNextTurn.end() ? now : std::max(now, found->second);
        if (turn > control.deadline()) {
            return false;
        }
        mNextTurn[server] = turn + pause;
    }
    return control.waitUntil(turn);
}

}  // namespace moxphone
