// The disc of a lookup request's TOC text, as every online source reads it:
// its frame offsets and both disc IDs; any other text is not a disc.
#include "moxphone/OnlineSource.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using moxphone::DiscQuery;
using moxphone::OnlineSource;

TEST(OnlineSourceTest, TocText_GivesOffsetsLeadOutAndDiscIds) {
    DiscQuery disc;
    ASSERT_TRUE(OnlineSource::discOf("0000960046E6008D3600D386", &disc));
    EXPECT_EQ(disc.toc, "0000960046E6008D3600D386");
    EXPECT_EQ(disc.tracks, (std::vector<uint32_t>{150, 18150, 36150}));
    EXPECT_EQ(disc.leadOut, 54150u);
    EXPECT_EQ(disc.musicBrainzId, "LyYHtwByCwAcdhuXmLHF.KGB224-");
    EXPECT_EQ(disc.freedbId, "1802d003");
}

TEST(OnlineSourceTest, TextOfAnotherForm_IsNoDisc) {
    for (const std::string toc : {"", "000096", "0000960046e6", "LyYHtwByCwAcdhuXmLHF.KGB224-"}) {
        DiscQuery disc;
        disc.toc = "untouched";
        EXPECT_FALSE(OnlineSource::discOf(toc, &disc)) << toc;
        EXPECT_EQ(disc.toc, "untouched");
    }
}

}  // namespace
