// selectAudioTracks: which tracks of a disc make its TOC, and where its
// lead-out lies when a data track is left out.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "DiscLayout.h"

namespace {

DiscTrack track(uint32 number, uint32 offset, bool audio = true, bool firstSession = true) {
    DiscTrack entry;
    entry.number = number;
    entry.offset = offset;
    entry.audio = audio;
    entry.firstSession = firstSession;
    return entry;
}

DiscLayout layoutOf(const std::vector<DiscTrack>& tracks, uint32 leadOut) {
    DiscLayout layout;
    layout.tracks = tracks;
    layout.leadOut = leadOut;
    return layout;
}

}  // namespace

TEST(DiscLayoutTest, SelectAudioTracks_WhenAllAudio_TakesEveryTrackAndTheLeadOut) {
    DiscToc toc;
    std::string why;
    ASSERT_TRUE(selectAudioTracks(
        layoutOf({track(1, 150), track(2, 18150), track(3, 36150)}, 54150), &toc, &why));
    EXPECT_EQ(toc.first, 1u);
    EXPECT_EQ(toc.last, 3u);
    EXPECT_EQ(toc.offsets, (std::vector<uint32>{150, 18150, 36150}));
    EXPECT_EQ(toc.leadOut, 54150u);
    EXPECT_FALSE(toc.dataTrack);
    EXPECT_EQ(toc.dataTrackNumber, 0u);
    EXPECT_EQ(toc.dataTrackOffset, 0u);
}

TEST(DiscLayoutTest, SelectAudioTracks_WhenDataTrackFollows_MovesLeadOut11400FramesBeforeIt) {
    DiscToc toc;
    std::string why;
    ASSERT_TRUE(selectAudioTracks(
        layoutOf({track(1, 150), track(2, 18150), track(3, 60000, false)}, 90000), &toc, &why));
    EXPECT_EQ(toc.offsets, (std::vector<uint32>{150, 18150}));
    EXPECT_EQ(toc.last, 2u);
    EXPECT_EQ(toc.leadOut, 48600u);
    EXPECT_TRUE(toc.dataTrack);
    EXPECT_EQ(toc.dataTrackNumber, 3u);
    EXPECT_EQ(toc.dataTrackOffset, 60000u);
}

TEST(DiscLayoutTest, SelectAudioTracks_WhenDataTrackLeads_StartsAtFirstAudioTrack) {
    DiscToc toc;
    std::string why;
    ASSERT_TRUE(selectAudioTracks(
        layoutOf({track(1, 150, false), track(2, 18150), track(3, 36150)}, 54150), &toc, &why));
    EXPECT_EQ(toc.first, 2u);
    EXPECT_EQ(toc.last, 3u);
    EXPECT_EQ(toc.offsets, (std::vector<uint32>{18150, 36150}));
    EXPECT_EQ(toc.leadOut, 54150u);
    EXPECT_TRUE(toc.dataTrack);
    EXPECT_EQ(toc.dataTrackNumber, 1u);
}

TEST(DiscLayoutTest, SelectAudioTracks_WhenAudioInLaterSession_LeavesItOut) {
    DiscToc toc;
    std::string why;
    ASSERT_TRUE(selectAudioTracks(layoutOf({track(1, 150), track(2, 40000, true, false)}, 60000),
                                  &toc, &why));
    EXPECT_EQ(toc.offsets, (std::vector<uint32>{150}));
    EXPECT_EQ(toc.leadOut, 28600u);
    EXPECT_FALSE(toc.dataTrack);
}

TEST(DiscLayoutTest, SelectAudioTracks_WhenDataTrackInLaterSession_NotesIt) {
    DiscToc toc;
    std::string why;
    ASSERT_TRUE(selectAudioTracks(layoutOf({track(1, 150), track(2, 40000, false, false)}, 60000),
                                  &toc, &why));
    EXPECT_EQ(toc.leadOut, 28600u);
    EXPECT_TRUE(toc.dataTrack);
    EXPECT_EQ(toc.dataTrackNumber, 2u);
}

TEST(DiscLayoutTest, SelectAudioTracks_WhenOnlyData_Refuses) {
    DiscToc toc;
    std::string why;
    EXPECT_FALSE(selectAudioTracks(layoutOf({track(1, 150, false)}, 54150), &toc, &why));
    EXPECT_EQ(why, "no audio track in the first session");
}

TEST(DiscLayoutTest, SelectAudioTracks_WhenNoTracks_Refuses) {
    DiscToc toc;
    std::string why;
    EXPECT_FALSE(selectAudioTracks(layoutOf({}, 54150), &toc, &why));
    EXPECT_EQ(why, "no audio track in the first session");
}

TEST(DiscLayoutTest, SelectAudioTracks_WhenDataTrackTooCloseToAudio_Refuses) {
    DiscToc toc;
    std::string why;
    EXPECT_FALSE(selectAudioTracks(
        layoutOf({track(1, 150), track(2, 18150), track(3, 29550, false)}, 40000), &toc, &why));
    EXPECT_EQ(why,
              "track 3 at 29550 lies too close to the audio before it to place the lead-out "
              "11400 frames earlier");
}

TEST(DiscLayoutTest, SelectAudioTracks_WhenDataTrackLeads_LibdiscidAndCdDiscidCountIt) {
    DiscToc toc;
    std::string why;
    ASSERT_TRUE(selectAudioTracks(
        layoutOf({track(1, 150, false), track(2, 13650), track(3, 28650)}, 48650), &toc, &why));
    EXPECT_EQ(toc.idFirst, 1u);
    EXPECT_EQ(toc.idOffsets, (std::vector<uint32>{150, 13650, 28650}));
    EXPECT_EQ(toc.allOffsets, (std::vector<uint32>{150, 13650, 28650}));
    EXPECT_EQ(toc.discLeadOut, 48650u);
}

TEST(DiscLayoutTest, SelectAudioTracks_WhenDataTrackFollows_OnlyCdDiscidCountsIt) {
    DiscToc toc;
    std::string why;
    ASSERT_TRUE(selectAudioTracks(
        layoutOf({track(1, 150), track(2, 13650), track(3, 28650, false)}, 48650), &toc, &why));
    EXPECT_EQ(toc.idFirst, 1u);
    EXPECT_EQ(toc.idOffsets, (std::vector<uint32>{150, 13650}));
    EXPECT_EQ(toc.leadOut, 17250u);
    EXPECT_EQ(toc.allOffsets, (std::vector<uint32>{150, 13650, 28650}));
    EXPECT_EQ(toc.discLeadOut, 48650u);
}
