// The requests a CDDB server gets: the query with the FreeDB disc ID, the
// offsets and the length in seconds, then a read per match, each with the
// anonymous hello and protocol level 6.
#include "moxphone/CddbSource.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using moxphone::CddbSource;
using moxphone::DiscQuery;
using moxphone::OnlineSource;

CddbSource source() {
    OnlineSource::Settings settings;
    settings.server = "http://127.0.0.1:8/~cddb/cddb.cgi";
    settings.cacheDays = 0;
    return CddbSource(settings, "1.2.3");
}

TEST(CddbSourceTest, QueryUrl_NamesTheDiscIdTracksOffsetsAndSeconds) {
    DiscQuery disc;
    ASSERT_TRUE(OnlineSource::discOf("0000960046E6008D3600D386", &disc));
    EXPECT_EQ(source().queryUrl(disc),
              "http://127.0.0.1:8/~cddb/cddb.cgi?cmd=cddb+query+1802d003+3+150+18150+36150+722"
              "&hello=anonymous+localhost+mox-phone+1.2.3&proto=6");
}

TEST(CddbSourceTest, ReadUrl_NamesTheCategoryAndDiscId) {
    EXPECT_EQ(source().readUrl("rock", "1802d003"),
              "http://127.0.0.1:8/~cddb/cddb.cgi?cmd=cddb+read+rock+1802d003"
              "&hello=anonymous+localhost+mox-phone+1.2.3&proto=6");
}

}  // namespace
