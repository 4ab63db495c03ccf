// The pace of requests to the online services: at most one request per
// second to one server (scheme, host and port), as MusicBrainz asks of its
// clients, and the pauses before a request is tried again. A server on the
// loopback address (the tests' local servers) has its pauses scaled by
// HB_TIMER_SCALE like the phone's other delays; any other server never
// gets more than one request a second. Thread-safe: one pacer serves every
// lookup of a phone.
#ifndef MOXPHONE_SERVERPACER_H
#define MOXPHONE_SERVERPACER_H

#include <cstdint>
#include <map>
#include <mutex>
#include <string>

#include "moxphone/LookupControl.h"

namespace moxphone {

class ServerPacer {
public:
    static constexpr uint32_t kPauseMs = 1000;

    explicit ServerPacer(double timeScale) : mTimeScale(timeScale) {}

    // Waits for the turn of the server of `url` and takes it. False when the
    // turn would come after the control's deadline, or on cancel.
    bool waitTurn(const std::string& url, LookupControl& control);
    // `ms` for the server of `url`: scaled for a loopback server.
    uint32_t pauseMs(const std::string& url, uint32_t ms) const;
    // "scheme://host:port" of `url`, "" when it is not a URL; `loopback`
    // tells whether the host is 127.0.0.1, ::1 or localhost.
    static std::string serverOf(const std::string& url, bool* loopback);

private:
    const double mTimeScale;
    std::mutex mMutex;  // guards mNextTurn
    std::map<std::string, LookupControl::Clock::time_point> mNextTurn;
};

}  // namespace moxphone

#endif  // MOXPHONE_SERVERPACER_H
