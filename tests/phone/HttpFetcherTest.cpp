// GET requests of the online sources against a local server started by the
// tests on 127.0.0.1 (tests/cli/online/fixture_server.py): the User-Agent,
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

LookupControl::Clock::time_point inSeconds(int seconds) {
    return LookupControl::Clock::now() + std::chrono::seconds(seconds);
}

long long msSince(LookupControl::Clock::time_point start) {
    return std::chrono::duration_cast<milliseconds>(LookupControl::Clock::now() - start).count();
}

// One server for every test of the suite, one route per test.
class HttpFetcherTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        const auto route = FixtureServer::route;
        sDir = new TestDir("HttpFetcherTest");
        sServer = new FixtureServer(
            *sDir, "[" + route("/agent", R"({"echo_header": "User-Agent"})") + "," +
                       route("/missing", R"({"status": 404, "body": "not here"})") + "," +
                       route("/busy-twice", R"({"status": 503}, {"status": 503}, {"body": "ok"})") +
                       "," + route("/busy-always", R"({"status": 503, "body": "busy"})") + "," +
                       route("/busy-slow", R"({"status": 503})") + "," +
                       route("/exactly", R"({"size": 4194304})") + "," +
                       route("/over", R"({"size": 4194305})") + "," +
                       route("/slow", R"({"delay_ms": 20000, "body": "late"})") + "," +
                       route("/ok", R"({"body": "ok"})") + "]");
    }

    static void TearDownTestSuite() {
        delete sServer;
        delete sDir;
    }

    static std::string url(const std::string& path) { return sServer->url() + path; }

    HttpFetcher::Response get(const std::string& url, LookupControl::Clock::time_point deadline) {
        LookupControl control(deadline);
        return mFetcher.get(url, control, &mNotes);
    }

    static TestDir* sDir;
    static FixtureServer* sServer;
    TestDir mDir{"HttpFetcherTestCase"};
    HttpFetcher mFetcher{kAgent, kScale};
    std::vector<std::string> mNotes;
};

TestDir* HttpFetcherTest::sDir = nullptr;
FixtureServer* HttpFetcherTest::sServer = nullptr;

TEST_F(HttpFetcherTest, UserAgent_NamesTheToolItsVersionAndAContact) {
    EXPECT_EQ(HttpFetcher::userAgent("mox-phone", "0.1.0", "mox@localhost"),
              "mox-phone/0.1.0 ( mox@localhost )");
}

TEST_F(HttpFetcherTest, Request_SendsTheUserAgent) {
    const HttpFetcher::Response response = get(url("/agent"), inSeconds(10));
    ASSERT_EQ(response.outcome, Outcome::kAnswered) << response.error;
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.body, kAgent);
}

TEST_F(HttpFetcherTest, Answer_GivesItsStatusAndBodyAndOneNote) {
    const std::string target = url("/missing?x=1");
    const HttpFetcher::Response response = get(target, inSeconds(10));
    ASSERT_EQ(response.outcome, Outcome::kAnswered) << response.error;
    EXPECT_EQ(response.status, 404);
    EXPECT_EQ(response.body, "not here");
    EXPECT_EQ(mNotes, (std::vector<std::string>{"GET " + target + ": status 404, 8 bytes"}));
}

TEST_F(HttpFetcherTest, Status503_IsTriedAgainAfterPausesThatDouble) {
    const std::string target = url("/busy-twice");
    const HttpFetcher::Response response = get(target, inSeconds(10));
    ASSERT_EQ(response.outcome, Outcome::kAnswered) << response.error;
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.body, "ok");
    EXPECT_EQ(mNotes,
              (std::vector<std::string>{"GET " + target + ": status 503, 0 bytes; again in 10 ms",
                                        "GET " + target + ": status 503, 0 bytes; again in 20 ms",
                                        "GET " + target + ": status 200, 2 bytes"}));
}

TEST_F(HttpFetcherTest, Status503EveryTime_GivesTheLast503AfterThreeTries) {
    const std::string target = url("/busy-always");
    const HttpFetcher::Response response = get(target, inSeconds(10));
    ASSERT_EQ(response.outcome, Outcome::kAnswered) << response.error;
    EXPECT_EQ(response.status, 503);
    ASSERT_EQ(mNotes.size(), static_cast<size_t>(HttpFetcher::kMaxAttempts));
    EXPECT_EQ(mNotes[2], "GET " + target + ": status 503, 4 bytes");
}

TEST_F(HttpFetcherTest, Status503WithNoTimeLeftForThePause_EndsAsTimedOut) {
    HttpFetcher slow(kAgent, 1.0);  // a pause of 1 s, past the deadline
    LookupControl control(LookupControl::Clock::now() + milliseconds(500));
    const HttpFetcher::Response response = slow.get(url("/busy-slow"), control, &mNotes);
    EXPECT_EQ(response.outcome, Outcome::kTimedOut);
    EXPECT_EQ(response.error, "no time left to try again");
    EXPECT_EQ(mNotes.size(), 1u);
}

TEST_F(HttpFetcherTest, BodyOfFourMiB_IsTaken) {
    const HttpFetcher::Response response = get(url("/exactly"), inSeconds(10));
    ASSERT_EQ(response.outcome, Outcome::kAnswered) << response.error;
    EXPECT_EQ(response.body.size(), HttpFetcher::kMaxBodyBytes);
}

TEST_F(HttpFetcherTest, BodyOverFourMiB_IsRefused) {
    const std::string target = url("/over");
    const HttpFetcher::Response response = get(target, inSeconds(10));
    EXPECT_EQ(response.outcome, Outcome::kFailed);
    EXPECT_EQ(response.error, "the answer is larger than 4 MiB");
    EXPECT_EQ(response.body, "");
    EXPECT_EQ(mNotes,
              (std::vector<std::string>{"GET " + target + ": the answer is larger than 4 MiB"}));
}

TEST_F(HttpFetcherTest, ServerSlowerThanTheDeadline_EndsAsTimedOutByTheDeadline) {
    const auto start = LookupControl::Clock::now();
    const HttpFetcher::Response response = get(url("/slow"), start + milliseconds(300));
    EXPECT_EQ(response.outcome, Outcome::kTimedOut);
    EXPECT_EQ(response.error, "no answer in time");
    EXPECT_LT(msSince(start), 5000);
}

TEST_F(HttpFetcherTest, Cancel_EndsARequestInFlightAtOnce) {
    LookupControl control(inSeconds(60));
    HttpFetcher::Response response;
    std::thread worker([&] { response = mFetcher.get(url("/slow?cancel"), control, &mNotes); });
    while (sServer->waitForRequest() != "/slow?cancel") {
    }
    const auto cancelled = LookupControl::Clock::now();
    control.cancel();
    worker.join();
    EXPECT_LT(msSince(cancelled), 2000);
    EXPECT_EQ(response.outcome, Outcome::kTimedOut);
    EXPECT_EQ(response.error, "cancelled");
}

TEST_F(HttpFetcherTest, CancelledBeforeTheRequest_MakesNoRequest) {
    LookupControl control(inSeconds(10));
    control.cancel();
    const HttpFetcher::Response response = mFetcher.get(url("/ok"), control, &mNotes);
    EXPECT_EQ(response.outcome, Outcome::kTimedOut);
    EXPECT_EQ(response.error, "cancelled");
    EXPECT_TRUE(mNotes.empty());
}

TEST_F(HttpFetcherTest, DeadlinePassed_MakesNoRequest) {
    const HttpFetcher::Response response =
        get(url("/ok"), LookupControl::Clock::now() - milliseconds(1));
    EXPECT_EQ(response.outcome, Outcome::kTimedOut);
    EXPECT_EQ(response.error, "no time left for a request");
    EXPECT_TRUE(mNotes.empty());
}

TEST_F(HttpFetcherTest, NoServerListening_FailsWithCurlsReason) {
    std::string target;
    {
        FixtureServer gone(mDir, "[]");
        target = gone.url() + "/ws";
        gone.requests();  // ends it: its port is free again
    }
    const HttpFetcher::Response response = get(target, inSeconds(10));
    EXPECT_EQ(response.outcome, Outcome::kFailed);
    EXPECT_EQ(response.error, "Couldn't connect to server");
    EXPECT_EQ(mNotes, (std::vector<std::string>{"GET " + target + ": Couldn't connect to server"}));
}

TEST_F(HttpFetcherTest, UrlOfAnotherProtocol_IsRefused) {
    const HttpFetcher::Response response = get("file:///etc/passwd", inSeconds(10));
    EXPECT_EQ(response.outcome, Outcome::kFailed);
    EXPECT_EQ(response.error, "Unsupported protocol");
    EXPECT_EQ(response.body, "");
}

}  // namespace
