// HTTP GET for the online sources, with libcurl: TLS certificates verified
// (https), proxies taken from the environment as curl takes them
// (http_proxy, https_proxy, no_proxy), a User-Agent naming the tool, its
// version and a contact, redirects followed (http and https only, at most
// 5), at most one request per second to one server (ServerPacer), a 503
// tried again after 1 s then 2 s (kMaxAttempts in all), and an answer over
// kMaxBodyBytes refused. Every request ends by the lookup's deadline or at
// once on its cancel. Thread-safe.
#ifndef MOXPHONE_HTTPFETCHER_H
#define MOXPHONE_HTTPFETCHER_H

#include <cstddef>
#include <string>
#include <vector>

#include "moxphone/LookupControl.h"
#include "moxphone/ServerPacer.h"

namespace moxphone {

class HttpFetcher {
public:
    static constexpr size_t kMaxBodyBytes = 4 * 1024 * 1024;
    static constexpr int kMaxAttempts = 3;
    static constexpr uint32_t kFirstRetryMs = 1000;

    struct Response {
        enum class Outcome { kAnswered, kFailed, kTimedOut };
        Outcome outcome = Outcome::kFailed;
        long status = 0;    // kAnswered: the HTTP status
        std::string body;   // kAnswered
        std::string error;  // kFailed, kTimedOut: one line
    };

    // "mox-phone/0.1.0 ( contact )".
    static std::string userAgent(const std::string& tool, const std::string& version,
                                 const std::string& contact);

    HttpFetcher(const std::string& userAgent, double timeScale);

    // GET `url`; one line per request made goes to `notes`.
    Response get(const std::string& url, LookupControl& control,
                 std::vector<std::string>* notes) const;

private:
    Response getOnce(const std::string& url, LookupControl& control) const;

    const std::string mUserAgent;
    mutable ServerPacer mPacer;
};

}  // namespace moxphone

#endif  // MOXPHONE_HTTPFETCHER_H
