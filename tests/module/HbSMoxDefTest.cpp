#include <gtest/gtest.h>

#include <list>
#include <string>
#include <type_traits>
#include <vector>

#include "HbSMoxDef.h"

using HbSMoxDef::AlbumInfo;
using HbSMoxDef::SearchInfo;
using HbSMoxDef::TrackInfo;

namespace {

TrackInfo makeTrack(const std::string& name, uint32 genre, int32 number) {
    TrackInfo track;
    track.TrackName = name;
    track.PerformerName = name + " performer";
    track.GenreName = name + " genre";
    track.GenreID = genre;
    track.TrackNum = number;
    return track;
}

}  // namespace

TEST(HbSMoxDefTest, Records_ArePlainValueTypesWithoutVirtualOperations) {
    EXPECT_FALSE(std::is_polymorphic<SearchInfo>::value);
    EXPECT_FALSE(std::is_polymorphic<TrackInfo>::value);
    EXPECT_FALSE(std::is_polymorphic<AlbumInfo>::value);
    EXPECT_TRUE(std::is_copy_constructible<TrackInfo>::value);
    EXPECT_TRUE(std::is_copy_assignable<AlbumInfo>::value);
    EXPECT_TRUE((std::is_same<uint8, decltype(SearchInfo::lookupKind)>::value));
    EXPECT_TRUE((std::is_same<uint16, decltype(SearchInfo::lookupParam1)>::value));
    EXPECT_TRUE((std::is_same<uint16, decltype(SearchInfo::lookupParam2)>::value));
    EXPECT_TRUE((std::is_same<uint32, decltype(TrackInfo::GenreID)>::value));
    EXPECT_TRUE((std::is_same<int32, decltype(TrackInfo::TrackNum)>::value));
    EXPECT_TRUE((std::is_same<uint8, decltype(AlbumInfo::AlbumLang)>::value));
    EXPECT_TRUE((std::is_same<uint8, decltype(AlbumInfo::Database)>::value));
    EXPECT_TRUE((std::is_same<int32, decltype(AlbumInfo::Confidence)>::value));
}

TEST(HbSMoxDefTest, SearchInfo_FieldsInDeclarationOrder_TakeTheCallersValues) {
    // Brace initialisation follows declaration order; a wrong order would not
    // compile (the numbers would narrow or the text would not convert).
    SearchInfo info{0x21, 0x0102, 0xFFEE, "0000960046E6008D3600D386"};
    EXPECT_EQ(0x21, info.lookupKind);
    EXPECT_EQ(0x0102, info.lookupParam1);
    EXPECT_EQ(0xFFEE, info.lookupParam2);
    EXPECT_EQ("0000960046E6008D3600D386", info.toc);
}

TEST(HbSMoxDefTest, SearchInfo_Copy_IsIndependentOfTheSource) {
    SearchInfo source{1, 2, 3, "TOC"};
    SearchInfo copy = source;
    copy.toc += "X";
    copy.lookupKind = 9;
    EXPECT_EQ("TOC", source.toc);
    EXPECT_EQ(1, source.lookupKind);
    EXPECT_EQ("TOCX", copy.toc);
    EXPECT_EQ(2, copy.lookupParam1);
    EXPECT_EQ(3, copy.lookupParam2);
}

TEST(HbSMoxDefTest, TrackInfo_Default_HasEmptyStringsAndZeros) {
    TrackInfo track;
    EXPECT_EQ("", track.TrackName);
    EXPECT_EQ("", track.PerformerName);
    EXPECT_EQ("", track.GenreName);
    EXPECT_EQ(0u, track.GenreID);
    EXPECT_EQ(0, track.TrackNum);
}

TEST(HbSMoxDefTest, TrackInfo_Copy_CopiesAllFiveFields) {
    const TrackInfo source = makeTrack("Intro", 7, 3);
    TrackInfo copy(source);
    EXPECT_EQ("Intro", copy.TrackName);
    EXPECT_EQ("Intro performer", copy.PerformerName);
    EXPECT_EQ("Intro genre", copy.GenreName);
    EXPECT_EQ(7u, copy.GenreID);
    EXPECT_EQ(3, copy.TrackNum);
}

TEST(HbSMoxDefTest, TrackInfo_Copy_IsIndependentOfTheSource) {
    TrackInfo source = makeTrack("Intro", 7, 3);
    TrackInfo copy(source);
    copy.TrackName = "Changed";
    copy.GenreID = 1;
    source.PerformerName = "Other";
    source.TrackNum = -5;
    EXPECT_EQ("Intro", source.TrackName);
    EXPECT_EQ(7u, source.GenreID);
    EXPECT_EQ("Intro performer", copy.PerformerName);
    EXPECT_EQ(3, copy.TrackNum);
}

TEST(HbSMoxDefTest, TrackInfo_Copy_KeepsZeroBytesInsideStrings) {
    TrackInfo source;
    source.TrackName = std::string("a\0b", 3);
    TrackInfo copy(source);
    EXPECT_EQ(3u, copy.TrackName.size());
    EXPECT_EQ(std::string("a\0b", 3), copy.TrackName);
}

TEST(HbSMoxDefTest, TrackInfo_Assignment_ReplacesEveryField) {
    TrackInfo target = makeTrack("Old", 1, 1);
    target = makeTrack("New", 2, 2);
    EXPECT_EQ("New", target.TrackName);
    EXPECT_EQ("New performer", target.PerformerName);
    EXPECT_EQ("New genre", target.GenreName);
    EXPECT_EQ(2u, target.GenreID);
    EXPECT_EQ(2, target.TrackNum);
}

TEST(HbSMoxDefTest, AlbumInfo_Default_HasEmptyStringsZerosAndNoTracks) {
    AlbumInfo album;
    EXPECT_EQ("", album.AlbumId);
    EXPECT_EQ("", album.AlbumName);
    EXPECT_EQ("", album.GenreName);
    EXPECT_EQ(0u, album.GenreID);
    EXPECT_EQ(0, album.Confidence);
    EXPECT_EQ(0, album.AlbumLang);
    EXPECT_EQ(0, album.MediaNum);
    EXPECT_EQ(0, album.MediaCount);
    EXPECT_TRUE(album.Tracks.empty());
    EXPECT_EQ(0, album.Database);
}

TEST(HbSMoxDefTest, AlbumInfo_Copy_CopiesEveryFieldAndEveryTrack) {
    AlbumInfo source;
    source.AlbumId = "ALB-1";
    source.AlbumName = "Name";
    source.GenreName = "ROCK";
    source.GenreID = 5;
    source.Confidence = 80;
    source.AlbumLang = 3;
    source.MediaNum = 1;
    source.MediaCount = 2;
    source.Tracks.push_back(makeTrack("One", 5, 0));
    source.Tracks.push_back(makeTrack("Two", 6, 0));
    source.Database = 1;

    AlbumInfo copy(source);
    EXPECT_EQ("ALB-1", copy.AlbumId);
    EXPECT_EQ("Name", copy.AlbumName);
    EXPECT_EQ("ROCK", copy.GenreName);
    EXPECT_EQ(5u, copy.GenreID);
    EXPECT_EQ(80, copy.Confidence);
    EXPECT_EQ(3, copy.AlbumLang);
    EXPECT_EQ(1, copy.MediaNum);
    EXPECT_EQ(2, copy.MediaCount);
    ASSERT_EQ(2u, copy.Tracks.size());
    EXPECT_EQ("One", copy.Tracks[0].TrackName);
    EXPECT_EQ(6u, copy.Tracks[1].GenreID);
    EXPECT_EQ(1, copy.Database);
}

TEST(HbSMoxDefTest, AlbumInfo_Copy_IsIndependentOfTheSourceTracksIncluded) {
    AlbumInfo source;
    source.AlbumName = "Source";
    source.Tracks.push_back(makeTrack("One", 5, 0));
    AlbumInfo copy(source);
    copy.AlbumName = "Copy";
    copy.Tracks[0].TrackName = "Changed";
    copy.Tracks.push_back(makeTrack("Extra", 1, 0));
    source.Confidence = 42;

    EXPECT_EQ("Source", source.AlbumName);
    ASSERT_EQ(1u, source.Tracks.size());
    EXPECT_EQ("One", source.Tracks[0].TrackName);
    EXPECT_EQ(0, copy.Confidence);
    EXPECT_EQ(2u, copy.Tracks.size());
}

TEST(HbSMoxDefTest, AlbumList_Copy_CopiesEveryAlbumInOrder) {
    std::list<AlbumInfo> result;
    for (int i = 0; i < 3; ++i) {
        AlbumInfo album;
        album.AlbumId = "A" + std::to_string(i);
        album.Confidence = 10 * i;
        album.Tracks.push_back(makeTrack("T" + std::to_string(i), 0, 0));
        result.push_back(album);
    }
    std::list<AlbumInfo> copy = result;
    result.front().Tracks.clear();
    ASSERT_EQ(3u, copy.size());
    int i = 0;
    for (const AlbumInfo& album : copy) {
        EXPECT_EQ("A" + std::to_string(i), album.AlbumId);
        EXPECT_EQ(10 * i, album.Confidence);
        ASSERT_EQ(1u, album.Tracks.size());
        EXPECT_EQ("T" + std::to_string(i), album.Tracks[0].TrackName);
        ++i;
    }
}
