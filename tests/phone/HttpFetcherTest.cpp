// GET requests of the online sources against a local server started by each
// test on 127.0.0.1 (tests/cli/online/fixture_server.py): the User-Agent,
// the 4 MiB bound, 503 tried again with growing pauses, the deadline and the
// cancel, and a server that is not there.
#include "moxphone/HttpFetcher.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "FixtureServer.h"
#include "TestDir.h"

namespace {

using moxphone::HttpFetcher;
using moxphone::LookupControl;
using Outcome = HttpFetcher::Response::Outcome;
using std::chrono::milliseconds;

const std::string kAgent = "mox-phone/9.8.7 ( tests@example.org )";
// Pauses of a loopback server at a hundredth: 10 ms between requests, then
// 10 ms and 20 ms before the second and third try of a 503.
constexpr double kScale = 0.01;

std::string route(const std::string& path, const std::string& answers) {
    return "[" + FixtureServer::route(path, answers) + "]";
}

LookupControl::Clock::time_point inSeconds(int seconds) {
    return LookupControl::Clock::now() + std::chrono::seconds(seconds);
}

long long msSince(LookupControl::Clock::time_point start) {
    return std::chrono::duration_cast<milliseconds>(LookupControl::Clock::now() - start).count();
}

class HttpFetcherTest : public ::testing::Test {
protected:
    HttpFetcher::Response get(const std::string& url, LookupControl::Clock::time_point deadline) {
        LookupControl control(deadline);
        return mFetcher.get(url, control, &mNotes);
    }

    TestDir mDir{"HttpFetcherTest"};
    HttpFetcher mFetcher{kAgent, kScale};
    std::vector<std::string> mNotes;
};

TEST_F(HttpFetcherTest, UserAgent_NamesTheToolItsVersionAndAContact) {
    EXPECT_EQ(HttpFetcher::userAgent("mox-phone", "0.1.0", "mox@localhost"),
              "mox-phone/0.1.0 ( mox@localhost )");
}

TEST_F(HttpFetcherTest, Request_SendsTheUserAgent) {
    FixtureServer server(mDir, route("/agent", R"({"echo_header": "User-Agent"})"));
    const HttpFetcher::Response response = get(server.url() + "/agent", inSeconds(10));
    ASSERT_EQ(response.outcome, Outcome::kAnswered) << response.error;
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.body, kAgent);
}

TEST_F(HttpFetcherTest, Answer_GivesItsStatusAndBodyAndOneNote) {
    FixtureServer server(mDir, route("/ws", R"({"status": 404, "body": "not here"})"));
    const std::string url = server.url() + "/ws?x=1";
    const HttpFetcher::Response response = get(url, inSeconds(10));
    ASSERT_EQ(response.outcome, Outcome::kAnswered) << response.error;
    EXPECT_EQ(response.status, 404);
    EXPECT_EQ(response.body, "not here");
    EXPECT_EQ(mNotes, (std::vector<std::string>{"GET " + url + ": status 404, 8 bytes"}));
    EXPECT_EQ(server.requests(), (std::vector<std::string>{"/ws?x=1"}));
}

TEST_F(HttpFetcherTest, Status503_IsTriedAgainAfterPausesThatDouble) {
    FixtureServer server(mDir, route("/ws", R"({"status": 503}, {"status": 503}, {"body": "ok"})"));
    const std::string url = server.url() + "/ws";
    const HttpFetcher::Response response = get(url, inSeconds(10));
    ASSERT_EQ(response.outcome, Outcome::kAnswered) << response.error;
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.body, "ok");
    EXPECT_EQ(mNotes,
              (std::vector<std::string>{"GET " + url + ": status 503, 0 bytes; again in 10 ms",
                                        "GET " + url + ": status 503, 0 bytes; again in 20 ms",
                                        "GET " + url + ": status 200, 2 bytes"}));
    EXPECT_EQ(server.requests().size(), 3u);
}

TEST_F(HttpFetcherTest, Status503EveryTime_GivesTheLast503AfterThreeTries) {
    FixtureServer server(mDir, route("/ws", R"({"status": 503, "body": "busy"})"));
    const std::string url = server.url() + "/ws";
    const HttpFetcher::Response response = get(url, inSeconds(10));
    ASSERT_EQ(response.outcome, Outcome::kAnswered) << response.error;
    EXPECT_EQ(response.status, 503);
    ASSERT_EQ(mNotes.size(), 3u);
    EXPECT_EQ(mNotes[2], "GET " + url + ": status 503, 4 bytes");
    EXPECT_EQ(server.requests().size(), static_cast<size_t>(HttpFetcher::kMaxAttempts));
}

TEST_F(HttpFetcherTest, Status503WithNoTimeLeftForThePause_EndsAsTimedOut) {
    HttpFetcher slow(kAgent, 1.0);  // a pause of 1 s, past the deadline
    FixtureServer server(mDir, route("/ws", R"({"status": 503})"));
    LookupControl control(LookupControl::Clock::now() + milliseconds(500));
    const HttpFetcher::Response response = slow.get(server.url() + "/ws", control, &mNotes);
    EXPECT_EQ(response.outcome, Outcome::kTimedOut);
    EXPECT_EQ(response.error, "no time left to try again");
    EXPECT_EQ(server.requests().size(), 1u);
}

TEST_F(HttpFetcherTest, BodyOfFourMiB_IsTaken) {
    FixtureServer server(mDir, route("/big", R"({"size": 4194304})"));
    const HttpFetcher::Response response = get(server.url() + "/big", inSeconds(10));
    ASSERT_EQ(response.outcome, Outcome::kAnswered) << response.error;
    EXPECT_EQ(response.body.size(), HttpFetcher::kMaxBodyBytes);
}

TEST_F(HttpFetcherTest, BodyOverFourMiB_IsRefused) {
    FixtureServer server(mDir, route("/big", R"({"size": 4194305})"));
    const std::string url = server.url() + "/big";
    const HttpFetcher::Response response = get(url, inSeconds(10));
    EXPECT_EQ(response.outcome, Outcome::kFailed);
    EXPECT_EQ(response.error, "the answer is larger than 4 MiB");
    EXPECT_EQ(response.body, "");
    EXPECT_EQ(mNotes,
              (std::vector<std::string>{"GET " + url + ": the answer is larger than 4 MiB"}));
}

TEST_F(HttpFetcherTest, ServerSlowerThanTheDeadline_EndsAsTimedOutByTheDeadline) {
    FixtureServer server(mDir, route("/slow", R"({"delay_ms": 20000, "body": "late"})"));
    const auto start = LookupControl::Clock::now();
    const HttpFetcher::Response response = get(server.url() + "/slow", start + milliseconds(300));
    EXPECT_EQ(response.outcome, Outcome::kTimedOut);
    EXPECT_EQ(response.error, "no answer in time");
    EXPECT_GE(msSince(start), 300);
    EXPECT_LT(msSince(start), 5000);
}

TEST_F(HttpFetcherTest, Cancel_EndsARequestInFlightAtOnce) {
    FixtureServer server(mDir, route("/slow", R"({"delay_ms": 20000, "body": "late"})"));
    LookupControl control(inSeconds(60));
    HttpFetcher::Response response;
    std::thread worker([&] { response = mFetcher.get(server.url() + "/slow", control, &mNotes); });
    EXPECT_EQ(server.waitForRequest(), "/slow");
    const auto cancelled = LookupControl::Clock::now();
    control.cancel();
    worker.join();
    EXPECT_LT(msSince(cancelled), 2000);
    EXPECT_EQ(response.outcome, Outcome::kTimedOut);
    EXPECT_EQ(response.error, "cancelled");
}

TEST_F(HttpFetcherTest, CancelledBeforeTheRequest_MakesNoRequest) {
    FixtureServer server(mDir, route("/ws", R"({"body": "ok"})"));
    LookupControl control(inSeconds(10));
    control.cancel();
    const HttpFetcher::Response response = mFetcher.get(server.url() + "/ws", control, &mNotes);
    EXPECT_EQ(response.outcome, Outcome::kTimedOut);
    EXPECT_EQ(response.error, "cancelled");
    EXPECT_TRUE(server.requests().empty());
}

TEST_F(HttpFetcherTest, DeadlinePassed_MakesNoRequest) {
    FixtureServer server(mDir, route("/ws", R"({"body": "ok"})"));
    const HttpFetcher::Response response =
        get(server.url() + "/ws", LookupControl::Clock::now() - milliseconds(1));
    EXPECT_EQ(response.outcome, Outcome::kTimedOut);
    EXPECT_EQ(response.error, "no time left for a request");
    EXPECT_TRUE(server.requests().empty());
}

TEST_F(HttpFetcherTest, NoServerListening_FailsWithCurlsReason) {
    std::string url;
    {
        FixtureServer gone(mDir, "[]");
        url = gone.url() + "/ws";
        gone.requests();  // ends it: its port is free again
    }
    const HttpFetcher::Response response = get(url, inSeconds(10));
    EXPECT_EQ(response.outcome, Outcome::kFailed);
    EXPECT_EQ(response.error, "Couldn't connect to server");
    EXPECT_EQ(mNotes, (std::vector<std::string>{"GET " + url + ": Couldn't connect to server"}));
}

TEST_F(HttpFetcherTest, UrlOfAnotherProtocol_IsRefused) {
    const HttpFetcher::Response response = get("file:///etc/passwd", inSeconds(10));
    EXPECT_EQ(response.outcome, Outcome::kFailed);
    EXPECT_EQ(response.error, "Unsupported protocol");
    EXPECT_EQ(response.body, "");
}

}  // namespace
