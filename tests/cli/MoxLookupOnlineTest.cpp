// mox lookup --source musicbrainz|cddb end to end: the module, the built-in
// phone and its online sources, against a local server started by each test
// on 127.0.0.1 (tests/cli/online/fixture_server.py) that answers with
// fixtures in the services' documented formats. Each case pins the albums
// that `mox lookup --json` prints, or its exact failure, and the requests
// the server got.
#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "ChildProgram.h"
#include "FixtureServer.h"
#include "JsonSchemaCheck.h"
#include "TestDir.h"
#include "moxphone/PhoneSourceOptions.h"

namespace {

using Json = nlohmann::json;

const std::string kMox = MOX_CLI_PATH;
const std::string kDisc1 = "0000960046E6008D3600D386";  // 3 tracks, LyYHtwByCwAcdhuXmLHF.KGB224-
const std::string kDisc4Tracks = "0000960061A800C350011170015F90";  // 7m9pTofhIv7OOpXAn3rmMza25VU-
const std::string kMbDisc1 =
    "/ws/2/discid/LyYHtwByCwAcdhuXmLHF.KGB224-?toc=1+3+54150+150+18150+36150"
    "&inc=recordings+artist-credits+release-groups+genres&cdstubs=no&fmt=json";
const std::string kCddbQueryDisc1 = "/cddb.cgi?cmd=cddb+query+1802d003+3+150+18150+36150+722&";
// The phone's pauses on a loopback server, and the module's timers, at a
// third of their length.
const std::string kScale = "HB_TIMER_SCALE=0.3";

struct Lookup {
    int status = -1;
    Json albums;
    std::string err;
};

class MoxLookupOnlineTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (!moxphone::PhoneSourceOptions::onlineBuiltIn()) {
            GTEST_SKIP() << "the online sources are not built in (no libcurl)";
        }
    }

    std::string cacheDir() const { return mDir.file("cache"); }

    Lookup lookUp(const std::vector<std::string>& args, const std::string& scale = kScale) {
        std::vector<std::string> all = {"lookup", "--json"};
        all.insert(all.end(), args.begin(), args.end());
        ChildProgram mox(kMox, all, {"XDG_CACHE_HOME=" + cacheDir(), scale});
        Lookup result;
        result.status = mox.wait();
        result.err = mox.err();
        const Json out = Json::parse(mox.out(), nullptr, false);
        EXPECT_TRUE(out.is_object()) << mox.out() << mox.err();
        EXPECT_EQ(JsonSchemaCheck::problems("mox-lookup", mox.out()), "") << mox.out();
        result.albums = out.is_object() ? out["albums"] : Json();
        return result;
    }

    Lookup musicBrainz(const FixtureServer& server, const std::string& toc,
                       const std::vector<std::string>& extra = {},
                       const std::string& scale = kScale) {
        std::vector<std::string> args = {
            "--toc", toc, "--source", "musicbrainz", "--musicbrainz-server", server.url()};
        args.insert(args.end(), extra.begin(), extra.end());
        return lookUp(args, scale);
    }

    Lookup cddb(const FixtureServer& server, const std::string& toc) {
        return lookUp(
            {"--toc", toc, "--source", "cddb", "--cddb-server", server.url() + "/cddb.cgi"});
    }

    std::vector<std::string> cacheFiles() const {
        std::vector<std::string> files;
        const std::string dir = cacheDir() + "/mox";
        if (!std::filesystem::is_directory(dir)) {
            return files;
        }
        for (const auto& entry : std::filesystem::directory_iterator(dir)) {
            files.push_back(entry.path().string());
        }
        std::sort(files.begin(), files.end());
        return files;
    }

    TestDir mDir{"MoxLookupOnlineTest"};
};

std::string route(const std::string& path, const std::string& answers) {
    return FixtureServer::route(path, answers);
}

Json track(const std::string& title, const std::string& performer, const std::string& genre,
           int genreId) {
    return Json{{"TrackName", title},
                {"PerformerName", performer},
                {"GenreName", genre},
                {"GenreID", genreId},
                {"TrackNum", 0}};
}

Json album(const std::string& id, const std::string& name, const std::string& genre, int genreId,
           int confidence, int language, int mediaNum, int mediaCount, const Json& tracks) {
    return Json{{"AlbumId", id},        {"AlbumName", name},        {"GenreName", genre},
                {"GenreID", genreId},   {"Confidence", confidence}, {"AlbumLang", language},
                {"MediaNum", mediaNum}, {"MediaCount", mediaCount}, {"Database", 1},
                {"Tracks", tracks}};
}

const int kLangOther = 5;
const int kLangJapanese = 3;

Json northernRoads(int confidence) {
    return album("5b11f4ce-a62d-471e-81fc-a69a8278c7da", "Northern Roads", "ROCK", 1, confidence,
                 kLangOther, 1, 1,
                 {track("Open Highway", "The Harbor Lights", "ROCK", 1),
                  track("Cold Harbor", "The Harbor Lights feat. Ana Vela", "ROCK", 1),
                  track("Last Exit", "The Harbor Lights", "ROCK", 1)});
}

TEST_F(MoxLookupOnlineTest, OneRelease_IsOneAlbumWithTheTrackArtistCreditAndTheReleaseGenre) {
    FixtureServer server(mDir, "[" + route(kMbDisc1, R"({"file": "mb-one-release.json"})") + "]");
    const Lookup lookup = musicBrainz(server, kDisc1);
    EXPECT_EQ(lookup.status, 0) << lookup.err;
    EXPECT_EQ(lookup.albums, Json::array({northernRoads(100)}));
    EXPECT_EQ(server.requests(), std::vector<std::string>{kMbDisc1});
}

TEST_F(MoxLookupOnlineTest, TwoDiscRelease_LookedUpByItsSecondDisc_IsMediumTwoOfTwo) {
    const std::string path =
        "/ws/2/discid/7m9pTofhIv7OOpXAn3rmMza25VU-?toc=1+4+90000+150+25000+50000+70000&";
    FixtureServer server(mDir, "[" + route(path, R"({"file": "mb-two-discs.json"})") + "]");
    const Lookup lookup = musicBrainz(server, kDisc4Tracks);
    EXPECT_EQ(lookup.status, 0) << lookup.err;
    const Json expected = album("0a3c2d9e-7f41-4c8e-9a55-3b7e1f2d4c60", "Blue Hours (Live)", "JAZZ",
                                3, 100, kLangOther, 2, 2,
                                {track("Second Set", "Mira Quartet", "JAZZ", 3),
                                 track("Night Walk", "Mira Quartet & Jon Sato", "JAZZ", 3),
                                 track("Encore", "Mira Quartet", "JAZZ", 3),
                                 track("Goodnight", "Mira Quartet", "JAZZ", 3)});
    EXPECT_EQ(lookup.albums, Json::array({expected}));
}

TEST_F(MoxLookupOnlineTest, ThreeReleasesForOneDiscId_KeepTheServiceOrder_WithJapaneseText) {
    FixtureServer server(mDir,
                         "[" + route(kMbDisc1, R"({"file": "mb-three-releases.json"})") + "]");
    const Lookup lookup = musicBrainz(server, kDisc1);
    EXPECT_EQ(lookup.status, 0) << lookup.err;
    const Json expected = Json::array({album("11111111-aaaa-4bbb-8ccc-000000000001",
                                             "Lumière d'été", "OTHER", 10, 100, kLangOther, 1, 1,
                                             {track("Été", "Élise Moreau", "OTHER", 10),
                                              track("Rivière", "Élise Moreau", "OTHER", 10),
                                              track("Fin", "Élise Moreau", "OTHER", 10)}),
                                       album("22222222-aaaa-4bbb-8ccc-000000000002", "夜明けの街",
                                             "JPOP", 14, 100, kLangJapanese, 1, 1,
                                             {track("夜明け", "星野みなと", "JPOP", 14),
                                              track("街の灯", "星野みなと", "JPOP", 14),
                                              track("さよなら", "星野みなと", "JPOP", 14)}),
                                       album("33333333-aaaa-4bbb-8ccc-000000000003", "Untitled",
                                             "OTHER", 10, 100, kLangOther, 1, 1,
                                             {track("One", "Unknown Artist", "OTHER", 10),
                                              track("Two", "Unknown Artist", "OTHER", 10),
                                              track("Three", "Unknown Artist", "OTHER", 10)})});
    EXPECT_EQ(lookup.albums, expected);
}

TEST_F(MoxLookupOnlineTest, TocOnlyMatch_RanksBelowTheDiscIdMatch_OnTheMediumOfNearestOffsets) {
    FixtureServer server(mDir, "[" + route(kMbDisc1, R"({"file": "mb-toc-match.json"})") + "]");
    const Lookup lookup = musicBrainz(server, kDisc1);
    EXPECT_EQ(lookup.status, 0) << lookup.err;
    const Json tocMatch = album("44444444-aaaa-4bbb-8ccc-000000000004", "Northern Roads (Remaster)",
                                "ROCK", 1, 50, kLangOther, 2, 2,
                                {track("Open Highway (Remaster)", "The Harbor Lights", "ROCK", 1),
                                 track("Cold Harbor (Remaster)", "The Harbor Lights", "ROCK", 1),
                                 track("Last Exit (Remaster)", "The Harbor Lights", "ROCK", 1)});
    const Json exact = album("5b11f4ce-a62d-471e-81fc-a69a8278c7da", "Northern Roads", "ROCK", 1,
                             100, kLangOther, 1, 1,
                             {track("Open Highway", "The Harbor Lights", "ROCK", 1),
                              track("Cold Harbor", "The Harbor Lights", "ROCK", 1),
                              track("Last Exit", "The Harbor Lights", "ROCK", 1)});
    EXPECT_EQ(lookup.albums, Json::array({exact, tocMatch}));
}

TEST_F(MoxLookupOnlineTest, NotFound_IsThePhonesNotFoundStatus) {
    FixtureServer server(
        mDir,
        "[" + route(kMbDisc1, R"({"status": 404, "body": "{\"error\": \"Not Found\"}"})") + "]");
    const Lookup lookup = musicBrainz(server, kDisc1);
    EXPECT_EQ(lookup.status, 1);
    EXPECT_EQ(lookup.albums, Json::array());
    EXPECT_EQ(lookup.err, "mox lookup: the phone does not know this disc (phone status 404)\n");
}

TEST_F(MoxLookupOnlineTest, ServiceUnavailableThenSuccess_IsTriedAgainAndAnswered) {
    FixtureServer server(
        mDir, "[" + route(kMbDisc1, R"({"status": 503}, {"file": "mb-one-release.json"})") + "]");
    const Lookup lookup = musicBrainz(server, kDisc1);
    EXPECT_EQ(lookup.status, 0) << lookup.err;
    EXPECT_EQ(lookup.albums, Json::array({northernRoads(100)}));
    EXPECT_EQ(server.requests(), std::vector<std::string>({kMbDisc1, kMbDisc1}));
}

TEST_F(MoxLookupOnlineTest, ServerSlowerThanTheModulesTimer_IsAnsweredWithStatus504InTime) {
    FixtureServer server(
        mDir, "[" + route(kMbDisc1, R"({"delay_ms": 20000, "file": "mb-one-release.json"})") + "]");
    const Lookup lookup = musicBrainz(server, kDisc1, {}, "HB_TIMER_SCALE=0.1");
    EXPECT_EQ(lookup.status, 1);
    EXPECT_EQ(lookup.err, "mox lookup: the phone failed (phone status 504)\n");
}

TEST_F(MoxLookupOnlineTest, MalformedJson_IsTheServiceFailureStatus) {
    FixtureServer server(mDir,
                         "[" + route(kMbDisc1, R"({"body": "{\"releases\": [{\"id\": "})") + "]");
    const Lookup lookup = musicBrainz(server, kDisc1);
    EXPECT_EQ(lookup.status, 1);
    EXPECT_EQ(lookup.err, "mox lookup: the phone failed (phone status 502)\n");
}

TEST_F(MoxLookupOnlineTest, FiveMebibyteBody_IsRefusedWithTheServiceFailureStatus) {
    FixtureServer server(mDir, "[" + route(kMbDisc1, R"({"size": 5242880})") + "]");
    const Lookup lookup = musicBrainz(server, kDisc1);
    EXPECT_EQ(lookup.status, 1);
    EXPECT_EQ(lookup.err, "mox lookup: the phone failed (phone status 502)\n");
}

TEST_F(MoxLookupOnlineTest, TocTextOfAnotherForm_IsNotFoundWithoutARequest) {
    FixtureServer server(mDir, "[]");
    // --raw-toc: --toc refuses a text that breaks the tools' rules.
    const Lookup lookup = lookUp({"--raw-toc", "0000960046E6008D3600D38", "--source", "musicbrainz",
                                  "--musicbrainz-server", server.url()},
                                 kScale);
    EXPECT_EQ(lookup.status, 1);
    EXPECT_EQ(lookup.err, "mox lookup: the phone does not know this disc (phone status 404)\n");
    EXPECT_EQ(server.requests(), std::vector<std::string>());
}

TEST_F(MoxLookupOnlineTest, SecondLookup_IsAnsweredFromTheCacheWithoutARequest) {
    FixtureServer server(mDir, "[" + route(kMbDisc1, R"({"file": "mb-one-release.json"})") + "]");
    EXPECT_EQ(musicBrainz(server, kDisc1).status, 0);
    const Lookup again = musicBrainz(server, kDisc1);
    EXPECT_EQ(again.status, 0) << again.err;
    EXPECT_EQ(again.albums, Json::array({northernRoads(100)}));
    EXPECT_EQ(server.requests(), std::vector<std::string>{kMbDisc1});
    const Lookup offline = musicBrainz(server, kDisc1, {"--offline"});
    EXPECT_EQ(offline.albums, Json::array({northernRoads(100)}));
}

TEST_F(MoxLookupOnlineTest, OfflineOnAnEmptyCache_IsNotFound) {
    FixtureServer server(mDir, "[" + route(kMbDisc1, R"({"file": "mb-one-release.json"})") + "]");
    const Lookup lookup = musicBrainz(server, kDisc1, {"--offline"});
    EXPECT_EQ(lookup.status, 1);
    EXPECT_EQ(lookup.err, "mox lookup: the phone does not know this disc (phone status 404)\n");
    EXPECT_EQ(server.requests(), std::vector<std::string>());
}

TEST_F(MoxLookupOnlineTest, CorruptCacheFile_IsIgnoredAndReplaced) {
    FixtureServer server(mDir, "[" + route(kMbDisc1, R"({"file": "mb-one-release.json"})") + "]");
    EXPECT_EQ(musicBrainz(server, kDisc1).status, 0);
    const std::vector<std::string> files = cacheFiles();
    ASSERT_EQ(files.size(), 1u);
    std::ofstream(files[0], std::ios::trunc) << "{\"format\": 1, \"albums\": [tru";
    const Lookup lookup = musicBrainz(server, kDisc1);
    EXPECT_EQ(lookup.status, 0) << lookup.err;
    EXPECT_EQ(lookup.albums, Json::array({northernRoads(100)}));
    EXPECT_EQ(server.requests(), std::vector<std::string>({kMbDisc1, kMbDisc1}));
    std::ifstream in(files[0]);
    const Json replaced = Json::parse(in, nullptr, false);
    EXPECT_EQ(replaced.value("disc", ""), "LyYHtwByCwAcdhuXmLHF.KGB224-");
}

// ---- CDDB ----

Json cddbRock(const std::string& id, int confidence) {
    return album(id, "Northern Roads", "ROCK", 1, confidence, kLangOther, 1, 1,
                 {track("Open Highway", "The Harbor Lights", "ROCK", 1),
                  track("Cold Harbor (Extended Version)", "The Harbor Lights", "ROCK", 1),
                  track("Last Exit", "The Harbor Lights", "ROCK", 1)});
}

const std::string kLatin1Entry =
    "210 misc 1802d003 CD database entry follows (until terminating `.')\r\n"
    "DISCID=1802d003\r\nDTITLE=Élise Moreau / Lumière d'été\r\nDGENRE=Chanson\r\n"
    "TTITLE0=Été\r\nTTITLE1=Rivière \r\nTTITLE1=sombre\r\nTTITLE2=Fin\r\n.\r\n";

TEST_F(MoxLookupOnlineTest, Cddb200_ReadsTheOneExactMatch_WithContinuationLines) {
    FixtureServer server(
        mDir,
        "[" +
            route(kCddbQueryDisc1,
                  R"({"body": "200 rock 1802d003 The Harbor Lights / Northern Roads\r\n"})") +
            "," +
            route("/cddb.cgi?cmd=cddb+read+rock+1802d003&", R"({"file": "cddb-read-rock.txt"})") +
            "]");
    const Lookup lookup = cddb(server, kDisc1);
    EXPECT_EQ(lookup.status, 0) << lookup.err;
    EXPECT_EQ(lookup.albums, Json::array({cddbRock("rock/1802d003", 100)}));
    const std::vector<std::string> requests = server.requests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[0].rfind(kCddbQueryDisc1 + "hello=anonymous+localhost+mox-phone+", 0), 0u)
        << requests[0];
    EXPECT_NE(requests[0].find("&proto=6"), std::string::npos) << requests[0];
}

TEST_F(MoxLookupOnlineTest, Cddb210_ReadsEveryExactMatch_Latin1Decoded) {
    FixtureServer server(
        mDir,
        "[" +
            route(
                kCddbQueryDisc1,
                R"({"body": "210 Found exact matches, list follows (until terminating `.')\r\nrock 1802d003 The Harbor Lights / Northern Roads\r\nmisc 1802d003 Elise Moreau / Lumiere d'ete\r\n.\r\n"})") +
            "," +
            route("/cddb.cgi?cmd=cddb+read+rock+1802d003&", R"({"file": "cddb-read-rock.txt"})") +
            "," +
            route("/cddb.cgi?cmd=cddb+read+misc+1802d003&",
                  "{\"latin1\": " + Json(kLatin1Entry).dump() + "}") +
            "]");
    const Lookup lookup = cddb(server, kDisc1);
    EXPECT_EQ(lookup.status, 0) << lookup.err;
    const Json latin1 = album("misc/1802d003", "Lumière d'été", "OTHER", 10, 100, kLangOther, 1, 1,
                              {track("Été", "Élise Moreau", "OTHER", 10),
                               track("Rivière sombre", "Élise Moreau", "OTHER", 10),
                               track("Fin", "Élise Moreau", "OTHER", 10)});
    EXPECT_EQ(lookup.albums, Json::array({cddbRock("rock/1802d003", 100), latin1}));
}

TEST_F(MoxLookupOnlineTest, Cddb211_InexactMatchesGetTheLowerConfidence) {
    FixtureServer server(
        mDir,
        "[" +
            route(
                kCddbQueryDisc1,
                R"({"body": "211 Found inexact matches, list follows (until terminating `.')\r\nrock 1802d003 The Harbor Lights / Northern Roads\r\n.\r\n"})") +
            "," +
            route("/cddb.cgi?cmd=cddb+read+rock+1802d003&", R"({"file": "cddb-read-rock.txt"})") +
            "]");
    const Lookup lookup = cddb(server, kDisc1);
    EXPECT_EQ(lookup.status, 0) << lookup.err;
    EXPECT_EQ(lookup.albums, Json::array({cddbRock("rock/1802d003", 50)}));
}

TEST_F(MoxLookupOnlineTest, Cddb202_IsNotFound) {
    FixtureServer server(
        mDir, "[" +
                  route(kCddbQueryDisc1, R"({"body": "202 No match for disc ID 1802d003.\r\n"})") +
                  "]");
    const Lookup lookup = cddb(server, kDisc1);
    EXPECT_EQ(lookup.status, 1);
    EXPECT_EQ(lookup.err, "mox lookup: the phone does not know this disc (phone status 404)\n");
}

}  // namespace
