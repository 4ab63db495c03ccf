// The pace of requests to the online services, on a clock of the test's own:
// one request per second to one server, servers paced apart, loopback
// servers' pauses scaled, turns past the deadline refused.
#include "moxphone/ServerPacer.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>

namespace {

using moxphone::LookupControl;
using moxphone::ServerPacer;
using Clock = ServerPacer::Clock;
using std::chrono::milliseconds;

const std::string kMusicBrainz = "https://musicbrainz.org/ws/2/discid/x?fmt=json";
const Clock::time_point kFarAway = Clock::time_point::max();

// A pacer whose clock moves only when the test moves it.
class ServerPacerTest : public ::testing::Test {
protected:
    ServerPacer pacer(double scale) {
        return ServerPacer(scale, [this] { return mNow; });
    }

    // The turn taken for `url`, as milliseconds after the clock's start; -1 when refused.
    long long turn(ServerPacer& pacer, const std::string& url,
                   Clock::time_point deadline = kFarAway) {
        Clock::time_point at;
        if (!pacer.takeTurn(url, deadline, &at)) {
            return -1;
        }
        return std::chrono::duration_cast<milliseconds>(at - kStart).count();
    }

    const Clock::time_point kStart = Clock::time_point() + std::chrono::hours(1);
    Clock::time_point mNow = kStart;
};

TEST_F(ServerPacerTest, RequestsToOneServer_AreOneSecondApart) {
    ServerPacer paced = pacer(1.0);
    EXPECT_EQ(turn(paced, kMusicBrainz), 0);
    EXPECT_EQ(turn(paced, kMusicBrainz), 1000);
    EXPECT_EQ(turn(paced, "https://musicbrainz.org/other/path"), 2000);
    EXPECT_EQ(turn(paced, "https://musicbrainz.org:443/"), 3000);
}

TEST_F(ServerPacerTest, TurnAfterTheServersPause_IsNow) {
    ServerPacer paced = pacer(1.0);
    EXPECT_EQ(turn(paced, kMusicBrainz), 0);
    mNow = kStart + milliseconds(2500);
    EXPECT_EQ(turn(paced, kMusicBrainz), 2500);
    mNow = kStart + milliseconds(3000);
    EXPECT_EQ(turn(paced, kMusicBrainz), 3500);
}

TEST_F(ServerPacerTest, OtherServers_AreNotPacedTogether) {
    ServerPacer paced = pacer(1.0);
    EXPECT_EQ(turn(paced, kMusicBrainz), 0);
    EXPECT_EQ(turn(paced, "http://musicbrainz.org/ws"), 0);        // another scheme and port
    EXPECT_EQ(turn(paced, "https://musicbrainz.org:8443/ws"), 0);  // another port
    EXPECT_EQ(turn(paced, "https://gnudb.gnudb.org/~cddb/cddb.cgi"), 0);
    EXPECT_EQ(turn(paced, kMusicBrainz), 1000);
}

TEST_F(ServerPacerTest, LoopbackServer_HasItsPauseScaled) {
    ServerPacer paced = pacer(0.25);
    EXPECT_EQ(turn(paced, "http://127.0.0.1:8080/ws"), 0);
    EXPECT_EQ(turn(paced, "http://127.0.0.1:8080/ws"), 250);
    EXPECT_EQ(turn(paced, "http://localhost:9/x"), 0);
    EXPECT_EQ(turn(paced, "http://localhost:9/x"), 250);
    EXPECT_EQ(turn(paced, "http://[::1]:9/x"), 0);
    EXPECT_EQ(turn(paced, "http://[::1]:9/x"), 250);
}

TEST_F(ServerPacerTest, OtherServer_KeepsItsWholeSecondWhateverTheScale) {
    ServerPacer paced = pacer(0.25);
    EXPECT_EQ(turn(paced, kMusicBrainz), 0);
    EXPECT_EQ(turn(paced, kMusicBrainz), 1000);
    EXPECT_EQ(paced.pauseMs(kMusicBrainz, 2000), 2000u);
}

TEST_F(ServerPacerTest, ScaleAboveOne_NeverLengthensAPause) {
    ServerPacer paced = pacer(3.0);
    EXPECT_EQ(paced.pauseMs("http://127.0.0.1:1/", 1000), 1000u);
    EXPECT_EQ(pacer(0.0).pauseMs("http://127.0.0.1:1/", 1000), 0u);
    EXPECT_EQ(pacer(0.3).pauseMs("http://127.0.0.1:1/", 2000), 600u);
}

TEST_F(ServerPacerTest, TurnPastTheDeadline_IsRefusedAndNotTaken) {
    ServerPacer paced = pacer(1.0);
    EXPECT_EQ(turn(paced, kMusicBrainz), 0);
    EXPECT_EQ(turn(paced, kMusicBrainz, kStart + milliseconds(999)), -1);
    EXPECT_EQ(turn(paced, kMusicBrainz, kStart + milliseconds(1000)), 1000);
}

TEST_F(ServerPacerTest, WaitTurn_WithTheTurnPastTheControlsDeadline_ReturnsAtOnce) {
    ServerPacer paced(1.0);  // the steady clock
    LookupControl control(Clock::now() + std::chrono::minutes(1));
    EXPECT_TRUE(paced.waitTurn(kMusicBrainz, control));
    LookupControl shortControl(Clock::now() + milliseconds(100));
    EXPECT_FALSE(paced.waitTurn(kMusicBrainz, shortControl));
}

TEST_F(ServerPacerTest, WaitTurn_Cancelled_ReturnsFalse) {
    ServerPacer paced(1.0);
    LookupControl control(Clock::now() + std::chrono::minutes(1));
    EXPECT_TRUE(paced.waitTurn(kMusicBrainz, control));
    control.cancel();
    EXPECT_FALSE(paced.waitTurn(kMusicBrainz, control));
}

TEST(ServerPacerServerTest, ServerOf_IsSchemeHostAndPort) {
    bool loopback = true;
    EXPECT_EQ(ServerPacer::serverOf(kMusicBrainz, &loopback), "https://musicbrainz.org:443");
    EXPECT_FALSE(loopback);
    EXPECT_EQ(ServerPacer::serverOf("http://127.0.0.1:5000/cddb.cgi?cmd=x", &loopback),
              "http://127.0.0.1:5000");
    EXPECT_TRUE(loopback);
    EXPECT_EQ(ServerPacer::serverOf("not a url", &loopback), "");
    EXPECT_FALSE(loopback);
}

}  // namespace
