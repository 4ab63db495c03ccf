// The request MusicBrainz gets for a disc: the disc ID with the TOC for
// fuzzy matching, the includes the albums need, CD stubs left out.
#include "moxphone/MusicBrainzSource.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using moxphone::DiscQuery;
using moxphone::MusicBrainzSource;
using moxphone::OnlineSource;

TEST(MusicBrainzSourceTest, RequestUrl_NamesTheDiscIdTocAndIncludes) {
    DiscQuery disc;
    ASSERT_TRUE(OnlineSource::discOf("0000960046E6008D3600D386", &disc));
    const std::string query =
        "/ws/2/discid/LyYHtwByCwAcdhuXmLHF.KGB224-?toc=1+3+54150+150+18150+36150"
        "&inc=recordings+artist-credits+release-groups+genres&cdstubs=no&fmt=json";
    EXPECT_EQ(MusicBrainzSource::requestUrl("https://musicbrainz.org", disc),
              "https://musicbrainz.org" + query);
    EXPECT_EQ(MusicBrainzSource::requestUrl("http://127.0.0.1:8080//", disc),
              "http://127.0.0.1:8080" + query);
}

}  // namespace
