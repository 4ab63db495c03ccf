// --source and its companions: their defaults, what the command line sets,
// what is refused and why, and the source each choice makes.
#include "moxphone/PhoneSourceOptions.h"

#include <gtest/gtest.h>

#include <CLI/CLI.hpp>
#include <memory>
#include <string>

namespace {

using moxphone::DiscSource;
using moxphone::PhoneSourceOptions;

// The options after parsing `line`; "" in `error`, or CLI11's message.
PhoneSourceOptions parsed(const std::string& line, std::string* error) {
    CLI::App app("test");
    PhoneSourceOptions options;
    options.addTo(app);
    error->clear();
    try {
        app.parse(line, false);
    } catch (const CLI::ParseError& e) {
        *error = e.what();
    }
    return options;
}

struct Made {
    bool ok = false;
    std::shared_ptr<const DiscSource> source;
    std::string why;
};

Made make(const PhoneSourceOptions& options) {
    Made made;
    made.ok = options.makeSource("mox-phone", "1.2.3", 1.0, &made.source, &made.why);
    return made;
}

TEST(PhoneSourceOptionsTest, Defaults_AreTheCatalogueAndMusicBrainzOrgWithThirtyDays) {
    std::string error;
    const PhoneSourceOptions options = parsed("", &error);
    EXPECT_EQ(error, "");
    EXPECT_EQ(options.source, "catalog");
    EXPECT_TRUE(options.isCatalogue());
    EXPECT_EQ(options.musicBrainzServer, "https://musicbrainz.org");
    EXPECT_EQ(options.cddbServer, "");
    EXPECT_EQ(options.cacheDays, 30u);
    EXPECT_FALSE(options.offline);
    EXPECT_EQ(options.describe(), "the catalogue");
}

TEST(PhoneSourceOptionsTest, Catalogue_MakesNoSource) {
    std::string error;
    const Made made = make(parsed("--source catalog", &error));
    EXPECT_TRUE(made.ok);
    EXPECT_EQ(made.source, nullptr);
}

TEST(PhoneSourceOptionsTest, EveryOption_IsRead) {
    std::string error;
    const PhoneSourceOptions options = parsed(
        "--source cddb --cddb-server http://127.0.0.1:9/cddb.cgi --musicbrainz-server "
        "http://127.0.0.1:8 --cache-days 7 --offline",
        &error);
    EXPECT_EQ(error, "");
    EXPECT_EQ(options.source, "cddb");
    EXPECT_FALSE(options.isCatalogue());
    EXPECT_EQ(options.cddbServer, "http://127.0.0.1:9/cddb.cgi");
    EXPECT_EQ(options.musicBrainzServer, "http://127.0.0.1:8");
    EXPECT_EQ(options.cacheDays, 7u);
    EXPECT_TRUE(options.offline);
    EXPECT_EQ(options.describe(), "cddb at http://127.0.0.1:9/cddb.cgi, cache 7 days, offline");
}

TEST(PhoneSourceOptionsTest, UnknownSource_IsRefusedByTheParser) {
    std::string error;
    parsed("--source freedb", &error);
    EXPECT_NE(error.find("--source"), std::string::npos) << error;
    EXPECT_NE(error.find("freedb"), std::string::npos) << error;
}

TEST(PhoneSourceOptionsTest, CacheDaysThatAreNoCount_AreRefusedByTheParser) {
    for (const std::string days : {"-1", "ten", "1.5", "99999999999"}) {
        std::string error;
        parsed("--cache-days " + days, &error);
        EXPECT_NE(error.find("--cache-days"), std::string::npos) << days << ": " << error;
    }
}

TEST(PhoneSourceOptionsTest, MusicBrainz_MakesASourceThatDoesNotAnswerAtOnce) {
    if (!PhoneSourceOptions::onlineBuiltIn()) {
        GTEST_SKIP() << "the online sources are not built in (no libcurl)";
    }
    std::string error;
    const PhoneSourceOptions options =
        parsed("--source musicbrainz --musicbrainz-server http://127.0.0.1:8", &error);
    EXPECT_EQ(options.describe(), "musicbrainz at http://127.0.0.1:8, cache 30 days");
    const Made made = make(options);
    ASSERT_TRUE(made.ok) << made.why;
    ASSERT_NE(made.source, nullptr);
    EXPECT_FALSE(made.source->answersAtOnce());
}

TEST(PhoneSourceOptionsTest, Cddb_WithoutItsServer_IsRefused) {
    if (!PhoneSourceOptions::onlineBuiltIn()) {
        GTEST_SKIP() << "the online sources are not built in (no libcurl)";
    }
    std::string error;
    const Made made = make(parsed("--source cddb", &error));
    EXPECT_FALSE(made.ok);
    EXPECT_EQ(made.source, nullptr);
    EXPECT_EQ(made.why, "--source cddb needs --cddb-server URL");
}

TEST(PhoneSourceOptionsTest, ServerThatIsNoHttpUrl_IsRefusedNamingItsOption) {
    if (!PhoneSourceOptions::onlineBuiltIn()) {
        GTEST_SKIP() << "the online sources are not built in (no libcurl)";
    }
    std::string error;
    Made made = make(parsed("--source musicbrainz --musicbrainz-server ftp://x", &error));
    EXPECT_FALSE(made.ok);
    EXPECT_EQ(made.why, "--musicbrainz-server takes an http:// or https:// URL, not 'ftp://x'");
    made = make(parsed("--source cddb --cddb-server gnudb.org", &error));
    EXPECT_FALSE(made.ok);
    EXPECT_EQ(made.why, "--cddb-server takes an http:// or https:// URL, not 'gnudb.org'");
    PhoneSourceOptions noServer = parsed("--source musicbrainz", &error);
    noServer.musicBrainzServer.clear();
    made = make(noServer);
    EXPECT_FALSE(made.ok);
    EXPECT_EQ(made.why, "--source musicbrainz needs --musicbrainz-server URL");
}

TEST(PhoneSourceOptionsTest, OfflineWithTheCacheTurnedOff_IsRefused) {
    if (!PhoneSourceOptions::onlineBuiltIn()) {
        GTEST_SKIP() << "the online sources are not built in (no libcurl)";
    }
    std::string error;
    const Made made = make(parsed("--source musicbrainz --offline --cache-days 0", &error));
    EXPECT_FALSE(made.ok);
    EXPECT_EQ(made.source, nullptr);
    EXPECT_EQ(made.why, "--offline answers from the cache alone, which --cache-days 0 turns off");
}

TEST(PhoneSourceOptionsTest, OnlineSourceNotBuiltIn_IsRefusedNamingTheTool) {
    if (PhoneSourceOptions::onlineBuiltIn()) {
        GTEST_SKIP() << "the online sources are built in";
    }
    std::string error;
    const Made made = make(parsed("--source musicbrainz", &error));
    EXPECT_FALSE(made.ok);
    EXPECT_EQ(
        made.why,
        "--source musicbrainz is not built in (libcurl was not found when mox-phone was built)");
}

}  // namespace
