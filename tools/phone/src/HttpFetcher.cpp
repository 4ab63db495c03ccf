// GET requests with libcurl's multi interface, so that a request can be
// given up at once when the lookup is cancelled.
#include "moxphone/HttpFetcher.h"

#include <curl/curl.h>

#include <memory>
#include <mutex>

namespace moxphone {

namespace {

// How long one wait for the transfer lasts before the cancel flag is looked at.
constexpr int kPollSliceMs = 20;
constexpr long kMaxRedirects = 5;

struct Sink {
    std::string body;
    bool tooLarge = false;
};

size_t collect(char* data, size_t size, size_t count, void* user) {
    Sink* sink = static_cast<Sink*>(user);
    const size_t bytes = size * count;
    if (sink->body.size() + bytes > HttpFetcher::kMaxBodyBytes) {
        sink->tooLarge = true;
        return 0;  // curl ends the transfer with a write error
    }
    sink->body.append(data, bytes);
    return bytes;
}

void initialiseCurl() {
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

struct EasyDeleter {
    void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
};
struct MultiDeleter {
    void operator()(CURLM* handle) const { curl_multi_cleanup(handle); }
};

void configure(CURL* easy, const std::string& url, const std::string& userAgent, Sink* sink,
               long timeoutMs) {
    curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
    curl_easy_setopt(easy, CURLOPT_USERAGENT, userAgent.c_str());
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, collect);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, sink);
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(easy, CURLOPT_SSL_VERIFYHOST, 2L);
    curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(easy, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(easy, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(easy, CURLOPT_MAXREDIRS, kMaxRedirects);
    curl_easy_setopt(easy, CURLOPT_MAXFILESIZE_LARGE,
                     static_cast<curl_off_t>(HttpFetcher::kMaxBodyBytes));
    curl_easy_setopt(easy, CURLOPT_TIMEOUT_MS, timeoutMs);
    curl_easy_setopt(easy, CURLOPT_ACCEPT_ENCODING, "");
}

std::string tooLargeText() {
    return "the answer is larger than " + std::to_string(HttpFetcher::kMaxBodyBytes / 1024 / 1024) +
           " MiB";
}

}  // namespace

std::string HttpFetcher::userAgent(const std::string& tool, const std::string& version,
                                   const std::string& contact) {
    return tool + "/" + version + " ( " + contact + " )";
}

HttpFetcher::HttpFetcher(const std::string& userAgent, double timeScale)
    : mUserAgent(userAgent), mPacer(timeScale) {
    initialiseCurl();
}

HttpFetcher::Response HttpFetcher::get(const std::string& url, LookupControl& control,
                                       std::vector<std::string>* notes) const {
    uint32_t retryMs = kFirstRetryMs;
    Response response;
    for (int attempt = 1; attempt <= kMaxAttempts; ++attempt) {
        if (!mPacer.waitTurn(url, control)) {
            response = Response();
            response.outcome = Response::Outcome::kTimedOut;
            response.error = "no time left for a request";
            return response;
        }
        response = getOnce(url, control);
        if (response.outcome != Response::Outcome::kAnswered) {
            notes->push_back("GET " + url + ": " + response.error);
            return response;
        }
        const std::string got = "GET " + url + ": status " + std::to_string(response.status) +
                                ", " + std::to_string(response.body.size()) + " bytes";
        if (response.status != 503 || attempt == kMaxAttempts) {
            notes->push_back(got);
            return response;
        }
        const uint32_t pause = mPacer.pauseMs(url, retryMs);
        notes->push_back(got + "; again in " + std::to_string(pause) + " ms");
        if (!control.waitUntil(LookupControl::Clock::now() + std::chrono::milliseconds(pause))) {
            response = Response();
            response.outcome = Response::Outcome::kTimedOut;
            response.error = "no time left to try again";
            return response;
        }
        retryMs *= 2;
    }
    return response;
}

HttpFetcher::Response HttpFetcher::getOnce(const std::string& url, LookupControl& control) const {
    Response response;
    std::unique_ptr<CURL, EasyDeleter> easy(curl_easy_init());
    std::unique_ptr<CURLM, MultiDeleter> multi(curl_multi_init());
    if (!easy || !multi) {
        response.error = "libcurl cannot start a request";
        return response;
    }
    Sink sink;
    configure(easy.get(), url, mUserAgent, &sink, std::max(1L, control.remainingMs()));
    curl_multi_add_handle(multi.get(), easy.get());
    int running = 1;
    bool stopped = false;
    while (running > 0) {
        if (curl_multi_perform(multi.get(), &running) != CURLM_OK) {
            break;
        }
        if (running == 0) {
            break;
        }
        if (control.over()) {
            stopped = true;
            break;
        }
        curl_multi_poll(multi.get(), nullptr, 0, kPollSliceMs, nullptr);
    }
    CURLcode result = CURLE_OK;
    int left = 0;
    while (CURLMsg* message = curl_multi_info_read(multi.get(), &left)) {
        if (message->msg == CURLMSG_DONE) {
            result = message->data.result;
        }
    }
    curl_multi_remove_handle(multi.get(), easy.get());
    if (stopped || result == CURLE_OPERATION_TIMEDOUT) {
        response.outcome = Response::Outcome::kTimedOut;
        response.error = control.cancelled() ? "cancelled" : "no answer in time";
        return response;
    }
    if (sink.tooLarge || result == CURLE_FILESIZE_EXCEEDED) {
        response.error = tooLargeText();
        return response;
    }
    if (result != CURLE_OK) {
        response.error = curl_easy_strerror(result);
        return response;
    }
    curl_easy_getinfo(easy.get(), CURLINFO_RESPONSE_CODE, &response.status);
    response.outcome = Response::Outcome::kAnswered;
    response.body = std::move(sink.body);
    return response;
}

}  // namespace moxphone
