// computeDiscIds: MusicBrainz and FreeDB IDs through libdiscid. The known
// discs' IDs below were worked out by hand from the published algorithms
// (SHA-1 of the hexadecimal TOC for MusicBrainz, digit sums and seconds for
// FreeDB), not taken from libdiscid.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "DiscIds.h"
#include "ReferenceReads.h"

namespace {

struct Ids {
    bool ok = false;
    std::string musicBrainz;
    std::string freedb;
    std::string why;
};

Ids compute(uint32 first, const std::vector<uint32>& offsets, uint32 leadOut) {
    Ids ids;
    ids.ok = computeDiscIds(first, offsets, leadOut, &ids.musicBrainz, &ids.freedb, &ids.why);
    return ids;
}

}  // namespace

TEST(DiscIdsTest, ComputeDiscIds_WhenKnownThreeTrackDisc_GivesItsIds) {
    const Ids ids = compute(1, {150, 18150, 36150}, 54150);
    ASSERT_TRUE(ids.ok) << ids.why;
    EXPECT_EQ(ids.musicBrainz, "LyYHtwByCwAcdhuXmLHF.KGB224-");
    EXPECT_EQ(ids.freedb, "1802d003");
}

TEST(DiscIdsTest, ComputeDiscIds_WhenKnownOneTrackDisc_GivesItsIds) {
    const Ids ids = compute(1, {150}, 18150);
    ASSERT_TRUE(ids.ok) << ids.why;
    EXPECT_EQ(ids.musicBrainz, "e2BLlo.Ig2Pkya.hFjQcNsVTYNY-");
    EXPECT_EQ(ids.freedb, "0200f001");
}

TEST(DiscIdsTest, ComputeDiscIds_WhenAudioStartsAtTrack2_NumbersTracksFrom2) {
    const Ids ids = compute(2, {18150, 36150}, 54150);
    ASSERT_TRUE(ids.ok) << ids.why;
    EXPECT_EQ(ids.musicBrainz, "9W9XFThitK.OR3jQusj77Xevb.A-");
    const DiscIdPair reference = idsFromLibdiscid(2, {18150, 36150}, 54150);
    EXPECT_EQ(ids.freedb, reference.freedb);
}

TEST(DiscIdsTest, ComputeDiscIds_When99Tracks_MatchesLibdiscid) {
    std::vector<uint32> offsets;
    for (uint32 i = 0; i < 99; ++i) {
        offsets.push_back(150 + i * 3000);
    }
    const Ids ids = compute(1, offsets, 150 + 99 * 3000);
    ASSERT_TRUE(ids.ok) << ids.why;
    const DiscIdPair reference = idsFromLibdiscid(1, offsets, 150 + 99 * 3000);
    EXPECT_EQ(ids.musicBrainz, reference.musicBrainz);
    EXPECT_EQ(ids.freedb, reference.freedb);
    EXPECT_EQ(ids.musicBrainz.size(), 28u);
}

TEST(DiscIdsTest, ComputeDiscIds_WhenPastTrack99_Refuses) {
    const Ids ids = compute(2, std::vector<uint32>(99, 150), 30000);
    EXPECT_FALSE(ids.ok);
    EXPECT_EQ(ids.why, "disc IDs need tracks numbered 1 to 99");
}

TEST(DiscIdsTest, ComputeDiscIds_WhenNoTrack_Refuses) {
    const Ids ids = compute(1, {}, 30000);
    EXPECT_FALSE(ids.ok);
    EXPECT_EQ(ids.why, "disc IDs need tracks numbered 1 to 99");
}

TEST(DiscIdsTest, ComputeDiscIds_WhenLeadOutBeforeLastTrack_PassesOnLibdiscidsReason) {
    const Ids ids = compute(1, {150, 18150}, 9000);
    EXPECT_FALSE(ids.ok);
    EXPECT_EQ(ids.why.rfind("libdiscid refuses the TOC: ", 0), 0u) << ids.why;
    EXPECT_GT(ids.why.size(), std::string("libdiscid refuses the TOC: ").size());
}

// The FreeDB formula as cd-discid applies it, worked out by hand: digit sums
// of the starts in seconds, the length in seconds, the track count.
TEST(DiscIdsTest, FreedbFormula_EveryTrackOfAnEnhancedCd_GivesCdDiscidsId) {
    EXPECT_EQ(freedbFormula({150, 13650, 28650}, 48650), "1a028603");
}

TEST(DiscIdsTest, FreedbFormula_PastNinetyMinutes_StillComputed) {
    EXPECT_EQ(freedbFormula({150}, 445000), "02172b01");
}

TEST(DiscIdsTest, FreedbFormula_AllAudio_EqualsLibdiscidsFreedbId) {
    const std::vector<uint32> offsets = {150, 18150, 36150};
    EXPECT_EQ(freedbFormula(offsets, 54150), idsFromLibdiscid(1, offsets, 54150).freedb);
}

TEST(DiscIdsTest, CdDiscidLine_IdCountOffsetsAndSeconds) {
    EXPECT_EQ(cdDiscidLine({150, 13650, 28650}, 48650), "1a028603 3 150 13650 28650 648");
}

TEST(DiscIdsTest, ComputeLibdiscidValues_GivesTocStringAndSubmissionUrl) {
    LibdiscidValues values;
    std::string why;
    ASSERT_TRUE(computeLibdiscidValues(1, {150, 18150, 36150}, 54150, &values, &why)) << why;
    EXPECT_EQ(values.musicBrainzId, "LyYHtwByCwAcdhuXmLHF.KGB224-");
    EXPECT_EQ(values.tocString, "1 3 54150 150 18150 36150");
    EXPECT_EQ(values.submissionUrl,
              "http://musicbrainz.org/cdtoc/attach?id=LyYHtwByCwAcdhuXmLHF.KGB224-&tracks=3&toc=1+"
              "3+54150+150+18150+36150");
}
