// Album search of MoxDapDatabase: genre and language mapping, album assembly,
// the search over the TOC records with its ordering and track-count filter,
// and the text form of the public records. Every database is made by the
// writer library in the test itself and stored as the module's result file.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <list>
#include <string>
#include <vector>

#include "AlbumIds.h"
#include "CatalogueAlbum.h"
#include "DbgCapture.h"
#include "MoxDbWriter.h"
#include "ProcessStats.h"
#include "ReaderMessages.h"
#include "StoredDatabaseFixture.h"
#include "private/MoxDapDatabase.h"

using HbSMoxDef::AlbumInfo;
using HbSMoxDef::TrackInfo;
using moxtest::addAlbum;
using moxtest::albumIds;
using moxtest::Msgs;
using moxtest::take;

namespace {

const std::string STRING_BUF_MAX_MESSAGE = "lStrSize(1024) >= STRING_BUF_MAX(1024) . 0.\n";

std::vector<std::string> trackNames(const AlbumInfo& album) {
    std::vector<std::string> out;
    for (const TrackInfo& track : album.Tracks) {
        out.push_back(track.TrackName);
    }
    return out;
}

// An album that a caller put in its list before the search.
AlbumInfo callerAlbum() {
    AlbumInfo album;
    album.AlbumId = "CALLER";
    album.Confidence = 7;
    return album;
}

// Read system calls and bytes of this process so far (/proc/self/io);
// false when the kernel does not offer them.
bool readCounters(uint64_t* calls, uint64_t* bytes) {
    std::ifstream in("/proc/self/io");
    std::string key;
    uint64_t value = 0;
    int found = 0;
    while (in >> key >> value) {
        if (key == "syscr:") {
            *calls = value;
            ++found;
        } else if (key == "rchar:") {
            *bytes = value;
            ++found;
        }
    }
    return found == 2;
}

class MoxDapDatabaseSearchTest : public StoredDatabaseFixture {
protected:
    // A string entry that claims 1024 units: the reader refuses it.
    static uint32_t addOverlongString(moxdb::CatalogueBuilder& cat) {
        return cat.image().addRawStringEntry(1024, moxdb::Bytes(2048, 0x41));
    }
};

// ---------------------------------------------------------------------------
// Genre and language mapping

TEST_F(MoxDapDatabaseSearchTest, GetRudGenreID_EveryCodeOfTheTable_GivesItsNumber) {
    const std::vector<std::pair<std::string, unsigned int>> table = {
        {"ROCK", 1},       {"COUNT", 2},   {"JAZZ", 3},       {"R&B", 4},   {"VOCAL", 5},
        {"WORLD", 6},      {"BLUES", 7},   {"ELEC", 8},       {"FOLK", 9},  {"OTHER", 10},
        {"CLASSICAL", 11}, {"DANCE", 12},  {"HIPHOP", 13},    {"JPOP", 14}, {"LATIN", 15},
        {"POP", 16},       {"REGGAE", 17}, {"SOUNDTRACK", 18}};
    for (const auto& entry : table) {
        std::string code = entry.first;
        EXPECT_EQ(db->getRudGenreID(code), entry.second) << code;
        EXPECT_EQ(code, entry.first);
    }
}

TEST_F(MoxDapDatabaseSearchTest, GetRudGenreID_InexactCodes_GiveZero) {
    for (std::string code :
         {"rock", "Rock", "ROCK ", " ROCK", "COUNTRY", "JAZZ/FUSION", "RB", ""}) {
        const std::string before = code;
        EXPECT_EQ(db->getRudGenreID(code), 0u) << "[" << code << "]";
        EXPECT_EQ(code, before);
    }
}

TEST_F(MoxDapDatabaseSearchTest, GetJalsLanguage_Ja_GivesThree) {
    std::string text = "ja";
    EXPECT_EQ(db->getJalsLanguage(text), 3);
    EXPECT_EQ(text, "ja");
}

TEST_F(MoxDapDatabaseSearchTest, GetJalsLanguage_EveryOtherText_GivesFive) {
    for (std::string text : {"JA", "Ja", "en", "ja-JP", "jpn", "j", "ja ", ""}) {
        EXPECT_EQ(db->getJalsLanguage(text), 5) << "[" << text << "]";
    }
}

TEST_F(MoxDapDatabaseSearchTest, GetInstance_TwiceWithDelInstanceBetween_GivesSameObject) {
    MoxDapDatabase* first = MoxDapDatabase::GetInstance();
    MoxDapDatabase::DelInstance();
    MoxDapDatabase* second = MoxDapDatabase::GetInstance();
    EXPECT_EQ(first, second);
    std::string code = "JPOP";
    EXPECT_EQ(second->getRudGenreID(code), 14u);
}

TEST_F(MoxDapDatabaseSearchTest, Destroy_WhileFileOpen_ClosesFile) {
    moxdb::CatalogueBuilder cat;
    addAlbum(cat, "A", 1, 1);
    store(cat);
    const size_t before = ProcessStats::openDescriptors();
    ASSERT_TRUE(load());
    EXPECT_EQ(ProcessStats::openDescriptors(), before + 1);
    HbSingleton<MoxDapDatabase>::destroy();
    EXPECT_EQ(ProcessStats::openDescriptors(), before);
    db = MoxDapDatabase::GetInstance();  // fresh instance for TearDown
}

// ---------------------------------------------------------------------------
// Text form of the public records

TEST_F(MoxDapDatabaseSearchTest, GetStrAlbum_DefaultAlbum_ShowsZerosAndEmptyTrackList) {
    AlbumInfo album;
    const std::string nul(1, '\0');
    const std::string expected =
        "AlbumId=, AlbumName=, GenreName=, GenreID=0x00000000, "
        "Confidence=0x00000000, AlbumLang=0x" +
        nul +
        ", MediaNum=0x00000000, MediaCount=0x00000000, "
        "Tracks.size=0, Tracks={} ,Database=0x" +
        nul + ", AlbumId=0x";
    EXPECT_EQ(db->getStrAlbum(album), expected);
}

TEST_F(MoxDapDatabaseSearchTest, GetStrAlbum_FilledAlbum_RendersEveryFieldInOrder) {
    AlbumInfo album;
    album.AlbumId = "ALB-7";
    album.AlbumName = "Blue Hours";
    album.GenreName = "JAZZ";
    album.GenreID = 3;
    album.Confidence = 90;
    album.AlbumLang = 3;
    album.MediaNum = 2;
    album.MediaCount = 2;
    album.Database = 1;
    TrackInfo track;
    track.TrackName = "Intro";
    track.PerformerName = "Mira";
    track.GenreName = "JAZZ";
    track.GenreID = 3;
    album.Tracks.push_back(track);
    const std::string expected =
        "AlbumId=ALB-7, AlbumName=Blue Hours, GenreName=JAZZ, GenreID=0x00000003, "
        "Confidence=0x0000005a, AlbumLang=0x\x03, MediaNum=0x00000002, MediaCount=0x00000002, "
        "Tracks.size=1, Tracks={Track[0]GenreID=0x00000003, Track[0]GenreName=JAZZ, "
        "Track[0]PerformerName=Mira, Track[0]TrackName=Intro, Track[0]TrackNum=0x00000000} ,"
        "Database=0x\x01, AlbumId=0xALB-7";
    EXPECT_EQ(db->getStrAlbum(album), expected);
}

TEST_F(MoxDapDatabaseSearchTest, GetStrAlbum_NumbersAsLowerCaseHexTwosComplement) {
    AlbumInfo album;
    album.GenreID = 0xABCDEF12u;
    album.Confidence = -1;
    album.MediaNum = 0x7FFFFFFF;
    album.MediaCount = -2;
    const std::string text = db->getStrAlbum(album);
    EXPECT_NE(text.find(", GenreID=0xabcdef12, Confidence=0xffffffff, "), std::string::npos)
        << text;
    EXPECT_NE(text.find(", MediaNum=0x7fffffff, MediaCount=0xfffffffe, "), std::string::npos)
        << text;
}

TEST_F(MoxDapDatabaseSearchTest, GetStrAlbum_AlbumLangAndDatabase_WrittenAsRawCharacters) {
    AlbumInfo album;
    album.AlbumLang = 'A';
    album.Database = '5';
    const std::string text = db->getStrAlbum(album);
    EXPECT_NE(text.find(", AlbumLang=0xA, MediaNum="), std::string::npos) << text;
    EXPECT_NE(text.find("} ,Database=0x5, AlbumId=0x"), std::string::npos) << text;
}

TEST_F(MoxDapDatabaseSearchTest, GetStrAlbum_SeventeenTracks_CountInHexWithoutPadding) {
    AlbumInfo album;
    album.Tracks.resize(17);
    const std::string text = db->getStrAlbum(album);
    EXPECT_NE(text.find(", Tracks.size=11, Tracks={Track[0]GenreID=0x00000000, "),
              std::string::npos)
        << text;
    EXPECT_NE(text.find("Track[10]GenreID=0x00000000, "), std::string::npos) << text;  // 0x10
    EXPECT_EQ(text.find("Track[16]"), std::string::npos) << text;
}

TEST_F(MoxDapDatabaseSearchTest, GetStrTrackList_ElevenTracks_IndexTurnsHexAfterFirstField) {
    std::vector<TrackInfo> tracks(11);
    const char* const index[] = {"0", "1", "2", "3", "4", "5", "6", "7", "8", "9", "a"};
    std::string expected;
    for (const char* i : index) {
        const std::string t = std::string("Track[") + i + "]";
        expected += t + "GenreID=0x00000000, " + t + "GenreName=, " + t + "PerformerName=, " + t +
                    "TrackName=, " + t + "TrackNum=0x00000000";
    }
    EXPECT_EQ(db->getStrTrackList(tracks), expected);
}

TEST_F(MoxDapDatabaseSearchTest, GetStrTrackList_TwoTracks_NothingBetweenTracks) {
    std::vector<TrackInfo> tracks(2);
    tracks[0].TrackName = "One";
    tracks[0].PerformerName = "P1";
    tracks[0].GenreName = "POP";
    tracks[0].GenreID = 16;
    tracks[1].TrackName = "Two";
    tracks[1].TrackNum = 255;  // the record form never sets it; the text shows what is there
    EXPECT_EQ(db->getStrTrackList(tracks),
              "Track[0]GenreID=0x00000010, Track[0]GenreName=POP, Track[0]PerformerName=P1, "
              "Track[0]TrackName=One, Track[0]TrackNum=0x00000000"
              "Track[1]GenreID=0x00000000, Track[1]GenreName=, Track[1]PerformerName=, "
              "Track[1]TrackName=Two, Track[1]TrackNum=0x000000ff");
}

TEST_F(MoxDapDatabaseSearchTest, GetStrTrackList_Empty_GivesEmptyText) {
    std::vector<TrackInfo> tracks;
    EXPECT_EQ(db->getStrTrackList(tracks), "");
}

TEST_F(MoxDapDatabaseSearchTest, GetStrAlbum_StringsStopAtFirstZeroByte) {
    AlbumInfo album;
    album.AlbumId = std::string("AB\0CD", 5);
    album.AlbumName = std::string("\0hidden", 7);
    TrackInfo track;
    track.TrackName = std::string("ab\0cd", 5);
    album.Tracks.push_back(track);
    const std::string text = db->getStrAlbum(album);
    EXPECT_EQ(text.substr(0, 33), "AlbumId=AB, AlbumName=, GenreName");
    EXPECT_NE(text.find("Track[0]TrackName=ab, Track[0]TrackNum="), std::string::npos) << text;
    EXPECT_EQ(text.substr(text.size() - 14), ", AlbumId=0xAB");
}

// ---------------------------------------------------------------------------
// Album assembly

TEST_F(MoxDapDatabaseSearchTest, GetAlbumInfo_TwoMediaAskedForSecond_KeepsItsFiveTracksInOrder) {
    moxdb::CatalogueBuilder cat;
    const uint32_t rock = cat.addGenre("ROCK");
    const uint32_t artist = cat.addArtist("The Harbor Lights");
    // Album-tracks order mixes the media: 7 entries on medium 1, 5 on medium 2.
    const uint32_t media[12] = {1, 2, 1, 1, 2, 1, 2, 1, 2, 1, 2, 1};
    moxdb::AlbumFields draft;
    draft.idText = "ALB-2M";
    draft.title = "Two Media";
    draft.genreCode = "ROCK";
    draft.language = "en";
    draft.confidence = 77;
    draft.mediaCount = 3;  // taken from the record as it is
    draft.mediaNum = 9;    // the album record's own MediaNum is not used
    for (int i = 0; i < 12; ++i) {
        draft.trackIds.push_back(cat.addTrack(
            {"E" + std::to_string(i), artist, rock, media[i], static_cast<uint32_t>(i + 1)}));
    }
    const uint32_t albumId = cat.addAlbum(draft);
    storeAndLoad(cat);

    DbgCapture capture;
    AlbumInfo album;
    ASSERT_TRUE(db->getAlbumInfo(albumId, 2, &album));
    EXPECT_TRUE(capture.records().empty());
    EXPECT_EQ(trackNames(album), (std::vector<std::string>{"E1", "E4", "E6", "E8", "E10"}));
    EXPECT_EQ(album.AlbumId, "ALB-2M");
    EXPECT_EQ(album.AlbumName, "Two Media");
    EXPECT_EQ(album.GenreName, "ROCK");
    EXPECT_EQ(album.GenreID, 1u);
    EXPECT_EQ(album.Confidence, 77);
    EXPECT_EQ(album.AlbumLang, 5);
    EXPECT_EQ(album.MediaNum, 2);
    EXPECT_EQ(album.MediaCount, 3);
    EXPECT_EQ(album.Database, 1);
    for (const TrackInfo& track : album.Tracks) {
        EXPECT_EQ(track.PerformerName, "The Harbor Lights");
        EXPECT_EQ(track.GenreName, "ROCK");
        EXPECT_EQ(track.GenreID, 1u);
        EXPECT_EQ(track.TrackNum, 0);
    }
    EXPECT_NE(db->mpReadFile, nullptr);  // success leaves the database open
}

TEST_F(MoxDapDatabaseSearchTest, GetAlbumInfo_MediumWithoutTracks_FailsAndClosesDatabase) {
    moxdb::CatalogueBuilder cat;
    const uint32_t albumId = addAlbum(cat, "ALB", 10, 4);
    storeAndLoad(cat);
    DbgCapture capture;
    AlbumInfo album;
    EXPECT_FALSE(db->getAlbumInfo(albumId, 2, &album));
    EXPECT_EQ(take(capture), (Msgs{{"getAlbumInfo", "npAlbum->Tracks.size() == 0.\n"}}));
    EXPECT_EQ(album.AlbumId, "ALB");  // partly filled
    EXPECT_EQ(album.Database, 1);
    expectClosed();
}

TEST_F(MoxDapDatabaseSearchTest, GetAlbumInfo_LanguageTexts_JaGivesThreeOthersFive) {
    moxdb::CatalogueBuilder cat;
    const uint32_t rock = cat.addGenre("ROCK");
    const uint32_t artist = cat.addArtist("A");
    const uint32_t track = cat.addTrack({"T", artist, rock, 1});
    const uint32_t ja = cat.addAlbum({"L-ja", "ja album", "ROCK", "ja", 1, 1, {track}});
    const uint32_t upper = cat.addAlbum({"L-JA", "JA album", "ROCK", "JA", 1, 1, {track}});
    const uint32_t empty = cat.addAlbum({"L-empty", "no language", "ROCK", "", 1, 1, {track}});
    const uint32_t jaJp = cat.addAlbum({"L-ja-JP", "ja-JP album", "ROCK", "ja-JP", 1, 1, {track}});
    storeAndLoad(cat);
    DbgCapture capture;
    AlbumInfo a1, a2, a3, a4;
    ASSERT_TRUE(db->getAlbumInfo(ja, 1, &a1));
    ASSERT_TRUE(db->getAlbumInfo(upper, 1, &a2));
    ASSERT_TRUE(db->getAlbumInfo(empty, 1, &a3));
    ASSERT_TRUE(db->getAlbumInfo(jaJp, 1, &a4));
    EXPECT_EQ(a1.AlbumLang, 3);
    EXPECT_EQ(a2.AlbumLang, 5);
    EXPECT_EQ(a3.AlbumLang, 5);
    EXPECT_EQ(a4.AlbumLang, 5);
    EXPECT_TRUE(capture.records().empty());
}

TEST_F(MoxDapDatabaseSearchTest, GetAlbumInfo_UnreadableLanguage_GivesFiveThenFailsAtTrackList) {
    moxdb::CatalogueBuilder cat;
    const uint32_t albumId = addAlbum(cat, "ALB", 10, 2);
    cat.image().album(0).Language = addOverlongString(cat);
    storeAndLoad(cat);
    DbgCapture capture;
    AlbumInfo album;
    EXPECT_FALSE(db->getAlbumInfo(albumId, 1, &album));
    EXPECT_EQ(album.AlbumLang, 5);
    EXPECT_EQ(album.AlbumId, "ALB");
    EXPECT_EQ(album.MediaNum, 1);
    EXPECT_EQ(take(capture), (Msgs{{"getString", STRING_BUF_MAX_MESSAGE},
                                   {"getQuillAlbumTracksInfo", "mpReadFile is NULL.\n"},
                                   {"getAlbumInfo", "getQuillAlbumTracksInfo return false.\n"}}));
    expectClosed();
}

TEST_F(MoxDapDatabaseSearchTest, GetAlbumInfo_GenreRnB_GivesFourForAlbumAndTrack) {
    moxdb::CatalogueBuilder cat;
    const uint32_t rnb = cat.addGenre("R&B");
    const uint32_t artist = cat.addArtist("Velvet Avenue");
    const uint32_t track = cat.addTrack({"Golden", artist, rnb, 1});
    const uint32_t albumId = cat.addAlbum({"RNB-1", "Slow Motion", "R&B", "en", 64, 1, {track}});
    storeAndLoad(cat);
    AlbumInfo album;
    ASSERT_TRUE(db->getAlbumInfo(albumId, 1, &album));
    EXPECT_EQ(album.GenreName, "R&B");
    EXPECT_EQ(album.GenreID, 4u);
    ASSERT_EQ(album.Tracks.size(), 1u);
    EXPECT_EQ(album.Tracks[0].GenreName, "R&B");
    EXPECT_EQ(album.Tracks[0].GenreID, 4u);
}

TEST_F(MoxDapDatabaseSearchTest, GetAlbumInfo_UnknownGenreCode_GivesZeroAndKeepsText) {
    moxdb::CatalogueBuilder cat;
    const uint32_t genre = cat.addGenre("Rock");
    const uint32_t artist = cat.addArtist("A");
    const uint32_t track = cat.addTrack({"T", artist, genre, 1});
    const uint32_t albumId = cat.addAlbum({"ALB", "X", "JAZZ/FUSION", "en", 1, 1, {track}});
    storeAndLoad(cat);
    AlbumInfo album;
    ASSERT_TRUE(db->getAlbumInfo(albumId, 1, &album));
    EXPECT_EQ(album.GenreName, "JAZZ/FUSION");
    EXPECT_EQ(album.GenreID, 0u);
    EXPECT_EQ(album.Tracks[0].GenreName, "Rock");
    EXPECT_EQ(album.Tracks[0].GenreID, 0u);
}

TEST_F(MoxDapDatabaseSearchTest, GetAlbumInfo_UnreadableGenreText_GivesZeroAndTextAsLeft) {
    moxdb::CatalogueBuilder cat;
    const uint32_t albumId = addAlbum(cat, "ALB", 10, 2);
    cat.image().album(0).Genre = addOverlongString(cat);
    storeAndLoad(cat);
    DbgCapture capture;
    AlbumInfo album;
    EXPECT_FALSE(db->getAlbumInfo(albumId, 1, &album));
    EXPECT_EQ(album.GenreName, "");  // the reader leaves its output as it was
    EXPECT_EQ(album.GenreID, 0u);
    EXPECT_EQ(album.AlbumLang, 5);
    EXPECT_EQ(take(capture), (Msgs{{"getString", STRING_BUF_MAX_MESSAGE},
                                   {"getString", "mpReadFile is NULL.\n"},
                                   {"getQuillAlbumTracksInfo", "mpReadFile is NULL.\n"},
                                   {"getAlbumInfo", "getQuillAlbumTracksInfo return false.\n"}}));
    expectClosed();
}

TEST_F(MoxDapDatabaseSearchTest, GetAlbumInfo_TrackNumInRecords_AlwaysZero) {
    moxdb::CatalogueBuilder cat;
    const uint32_t rock = cat.addGenre("ROCK");
    const uint32_t artist = cat.addArtist("A");
    const uint32_t t1 = cat.addTrack({"T1", artist, rock, 1, 5});
    const uint32_t t2 = cat.addTrack({"T2", artist, rock, 1, 0xFFFFFFFFu});
    const uint32_t albumId = cat.addAlbum({"ALB", "X", "ROCK", "en", 1, 1, {t1, t2}});
    storeAndLoad(cat);
    AlbumInfo album;
    ASSERT_TRUE(db->getAlbumInfo(albumId, 1, &album));
    ASSERT_EQ(album.Tracks.size(), 2u);
    EXPECT_EQ(album.Tracks[0].TrackNum, 0);
    EXPECT_EQ(album.Tracks[1].TrackNum, 0);
}

TEST_F(MoxDapDatabaseSearchTest, GetAlbumInfo_ArtistMissingForSixthEntry_FailsWithN5) {
    moxdb::CatalogueBuilder cat;
    const uint32_t rock = cat.addGenre("ROCK");
    const uint32_t artist = cat.addArtist("A");
    moxdb::AlbumFields draft{"ALB", "X", "ROCK", "en", 1, 2, {}};
    for (int i = 0; i < 5; ++i) {
        // The third entry lies on medium 2: skipped, but still counted in n.
        draft.trackIds.push_back(
            cat.addTrack({"T" + std::to_string(i), artist, rock, i == 2 ? 2u : 1u}));
    }
    draft.trackIds.push_back(cat.addTrack({"T5", 4242, rock, 1}));  // no artist 4242
    const uint32_t albumId = cat.addAlbum(draft);
    storeAndLoad(cat);
    DbgCapture capture;
    AlbumInfo album;
    EXPECT_FALSE(db->getAlbumInfo(albumId, 1, &album));
    EXPECT_EQ(take(capture), (Msgs{{"getAlbumInfo", "getQuillArtistInfo return false. n=5\n"}}));
    EXPECT_EQ(trackNames(album), (std::vector<std::string>{"T0", "T1", "T3", "T4"}));
    expectClosed();
}

TEST_F(MoxDapDatabaseSearchTest, GetAlbumInfo_PerformerAndGenreZero_RepeatPreviousTrackRecords) {
    moxdb::CatalogueBuilder cat;
    const uint32_t jazz = cat.addGenre("JAZZ");
    const uint32_t pop = cat.addGenre("POP");
    const uint32_t alice = cat.addArtist("Alice");
    const uint32_t bob = cat.addArtist("Bob");
    const uint32_t t1 = cat.addTrack({"T1", alice, jazz, 1});
    const uint32_t t2 = cat.addTrack({"T2", 0, 0, 1});
    const uint32_t t3 = cat.addTrack({"T3", bob, pop, 1});
    const uint32_t t4 = cat.addTrack({"T4", 0, 0, 1});
    const uint32_t albumId = cat.addAlbum({"ALB", "X", "JAZZ", "en", 1, 1, {t1, t2, t3, t4}});
    storeAndLoad(cat);
    DbgCapture capture;
    AlbumInfo album;
    ASSERT_TRUE(db->getAlbumInfo(albumId, 1, &album));
    ASSERT_EQ(album.Tracks.size(), 4u);
    EXPECT_EQ(album.Tracks[1].TrackName, "T2");
    EXPECT_EQ(album.Tracks[1].PerformerName, "Alice");
    EXPECT_EQ(album.Tracks[1].GenreName, "JAZZ");
    EXPECT_EQ(album.Tracks[1].GenreID, 3u);
    EXPECT_EQ(album.Tracks[3].PerformerName, "Bob");
    EXPECT_EQ(album.Tracks[3].GenreName, "POP");
    EXPECT_EQ(album.Tracks[3].GenreID, 16u);
    EXPECT_TRUE(capture.records().empty());
}

TEST_F(MoxDapDatabaseSearchTest, GetAlbumInfo_FirstTrackWithoutPerformer_TakesTextAtOffsetZero) {
    moxdb::CatalogueBuilder cat("OFFSET-ZERO");
    const uint32_t t1 = cat.addTrack({"T1", 0, 0, 1});
    const uint32_t albumId = cat.addAlbum({"ALB", "X", "ROCK", "en", 1, 1, {t1}});
    storeAndLoad(cat);
    AlbumInfo album;
    ASSERT_TRUE(db->getAlbumInfo(albumId, 1, &album));
    ASSERT_EQ(album.Tracks.size(), 1u);
    EXPECT_EQ(album.Tracks[0].TrackName, "T1");
    EXPECT_EQ(album.Tracks[0].PerformerName, "OFFSET-ZERO");
    EXPECT_EQ(album.Tracks[0].GenreName, "OFFSET-ZERO");
    EXPECT_EQ(album.Tracks[0].GenreID, 0u);
}

TEST_F(MoxDapDatabaseSearchTest, GetAlbumInfo_TrackIdZero_ListsPreviousTrackAgain) {
    moxdb::CatalogueBuilder cat;
    const uint32_t rock = cat.addGenre("ROCK");
    const uint32_t artist = cat.addArtist("A");
    const uint32_t t1 = cat.addTrack({"T1", artist, rock, 1});
    const uint32_t t2 = cat.addTrack({"T2", artist, rock, 1});
    const uint32_t albumId = cat.addAlbum({"ALB", "X", "ROCK", "en", 1, 1, {t1, 0, t2, 0}});
    storeAndLoad(cat);
    AlbumInfo album;
    ASSERT_TRUE(db->getAlbumInfo(albumId, 1, &album));
    EXPECT_EQ(trackNames(album), (std::vector<std::string>{"T1", "T1", "T2", "T2"}));
}

TEST_F(MoxDapDatabaseSearchTest, GetAlbumInfo_LeadingTrackIdZero_MatchesOnlyMediumZero) {
    moxdb::CatalogueBuilder cat("OFFSET-ZERO");
    const uint32_t rock = cat.addGenre("ROCK");
    const uint32_t artist = cat.addArtist("A");
    const uint32_t t1 = cat.addTrack({"T1", artist, rock, 1});
    const uint32_t onMediumOne = cat.addAlbum({"ONE", "X", "ROCK", "en", 1, 1, {0, t1}});
    const uint32_t onlyZero = cat.addAlbum({"ZERO", "Y", "ROCK", "en", 1, 1, {0}});
    storeAndLoad(cat);
    AlbumInfo first;
    ASSERT_TRUE(db->getAlbumInfo(onMediumOne, 1, &first));
    EXPECT_EQ(trackNames(first), (std::vector<std::string>{"T1"}));
    AlbumInfo second;
    ASSERT_TRUE(db->getAlbumInfo(onlyZero, 0, &second));
    ASSERT_EQ(second.Tracks.size(), 1u);
    EXPECT_EQ(second.MediaNum, 0);
    EXPECT_EQ(second.Tracks[0].TrackName, "OFFSET-ZERO");
    EXPECT_EQ(second.Tracks[0].PerformerName, "OFFSET-ZERO");
    EXPECT_EQ(second.Tracks[0].GenreName, "OFFSET-ZERO");
}

TEST_F(MoxDapDatabaseSearchTest, GetAlbumInfo_EmptyTrackList_Fails) {
    moxdb::CatalogueBuilder cat;
    const uint32_t albumId = cat.addAlbum({"ALB", "X", "ROCK", "en", 1, 1, {}});
    storeAndLoad(cat);
    DbgCapture capture;
    AlbumInfo album;
    EXPECT_FALSE(db->getAlbumInfo(albumId, 1, &album));
    EXPECT_EQ(take(capture), (Msgs{{"getAlbumInfo", "npAlbum->Tracks.size() == 0.\n"}}));
    EXPECT_TRUE(album.Tracks.empty());
    expectClosed();
}

TEST_F(MoxDapDatabaseSearchTest, GetAlbumInfo_AlbumMissing_FailsWithoutTouchingAlbum) {
    moxdb::CatalogueBuilder cat;
    addAlbum(cat, "ALB", 1, 1);
    storeAndLoad(cat);
    DbgCapture capture;
    AlbumInfo album;
    EXPECT_FALSE(db->getAlbumInfo(0xBEEF, 1, &album));
    EXPECT_EQ(take(capture), (Msgs{{"getAlbumInfo", "getQuillAlbumInfo return false.\n"}}));
    EXPECT_EQ(album.Database, 0);
    EXPECT_EQ(album.AlbumId, "");
    expectClosed();
}

TEST_F(MoxDapDatabaseSearchTest, GetAlbumInfo_NoFileOpen_ReportsNullFile) {
    DbgCapture capture;
    AlbumInfo album;
    EXPECT_FALSE(db->getAlbumInfo(1, 1, &album));
    EXPECT_EQ(take(capture), (Msgs{{"getAlbumInfo", "mpReadFile is NULL.\n"}}));
}

TEST_F(MoxDapDatabaseSearchTest, GetAlbumInfo_NoSectionTable_ReportsNullTableAndCloses) {
    moxdb::CatalogueBuilder cat;
    addAlbum(cat, "ALB", 1, 1);
    store(cat);
    ASSERT_TRUE(db->openSearchResultFile());
    DbgCapture capture;
    AlbumInfo album;
    EXPECT_FALSE(db->getAlbumInfo(1, 1, &album));
    EXPECT_EQ(take(capture), (Msgs{{"getAlbumInfo", "mpDbToc is NULL.\n"}}));
    expectClosed();
}

TEST_F(MoxDapDatabaseSearchTest, GetAlbumInfo_TrackMissing_ReportsItsIndex) {
    moxdb::CatalogueBuilder cat;
    const uint32_t rock = cat.addGenre("ROCK");
    const uint32_t artist = cat.addArtist("A");
    const uint32_t t1 = cat.addTrack({"T1", artist, rock, 1});
    const uint32_t albumId = cat.addAlbum({"ALB", "X", "ROCK", "en", 1, 1, {t1, 999}});
    storeAndLoad(cat);
    DbgCapture capture;
    AlbumInfo album;
    EXPECT_FALSE(db->getAlbumInfo(albumId, 1, &album));
    EXPECT_EQ(take(capture), (Msgs{{"getAlbumInfo", "getQuillTrackInfo return false. n=1\n"}}));
    expectClosed();
}

TEST_F(MoxDapDatabaseSearchTest, GetAlbumInfo_GenreMissing_ReportsItsIndex) {
    moxdb::CatalogueBuilder cat;
    const uint32_t artist = cat.addArtist("A");
    const uint32_t t1 = cat.addTrack({"T1", artist, 777, 1});
    const uint32_t albumId = cat.addAlbum({"ALB", "X", "ROCK", "en", 1, 1, {t1}});
    storeAndLoad(cat);
    DbgCapture capture;
    AlbumInfo album;
    EXPECT_FALSE(db->getAlbumInfo(albumId, 1, &album));
    EXPECT_EQ(take(capture), (Msgs{{"getAlbumInfo", "getQuillGenreInfo return false. n=0\n"}}));
    expectClosed();
}

TEST_F(MoxDapDatabaseSearchTest, GetAlbumInfo_TrackTitleUnreadable_ReportsGetStringWithIndex) {
    moxdb::CatalogueBuilder cat;
    const uint32_t albumId = addAlbum(cat, "ALB", 1, 3);
    cat.image().track(1).Title = addOverlongString(cat);
    storeAndLoad(cat);
    DbgCapture capture;
    AlbumInfo album;
    EXPECT_FALSE(db->getAlbumInfo(albumId, 1, &album));
    EXPECT_EQ(take(capture), (Msgs{{"getString", STRING_BUF_MAX_MESSAGE},
                                   {"getAlbumInfo", "getString return false. n=1\n"}}));
    expectClosed();
}

TEST_F(MoxDapDatabaseSearchTest, GetAlbumInfo_ArtistNameUnreadable_ReportsGetStringWithIndex) {
    moxdb::CatalogueBuilder cat;
    const uint32_t albumId = addAlbum(cat, "ALB", 1, 2);
    cat.image().artist(0).Name = addOverlongString(cat);
    storeAndLoad(cat);
    DbgCapture capture;
    AlbumInfo album;
    EXPECT_FALSE(db->getAlbumInfo(albumId, 1, &album));
    EXPECT_EQ(take(capture), (Msgs{{"getString", STRING_BUF_MAX_MESSAGE},
                                   {"getAlbumInfo", "getString return false. n=0\n"}}));
}

TEST_F(MoxDapDatabaseSearchTest, GetAlbumInfo_GenreCodeUnreadable_ReportsGetStringWithIndex) {
    moxdb::CatalogueBuilder cat;
    const uint32_t artist = cat.addArtist("A");
    moxdb::GenreRecord broken;
    broken.Id = addOverlongString(cat);  // the genre's Id is the offset of its code
    cat.image().addGenre(broken);
    const uint32_t t1 = cat.addTrack({"T1", artist, broken.Id, 1});
    const uint32_t albumId = cat.addAlbum({"ALB", "X", "ROCK", "en", 1, 1, {t1}});
    storeAndLoad(cat);
    DbgCapture capture;
    AlbumInfo album;
    EXPECT_FALSE(db->getAlbumInfo(albumId, 1, &album));
    EXPECT_EQ(take(capture), (Msgs{{"getString", STRING_BUF_MAX_MESSAGE},
                                   {"getAlbumInfo", "getString return false. n=0\n"}}));
}

TEST_F(MoxDapDatabaseSearchTest, GetAlbumInfo_TrackListPastEndOfFile_ReportsTrackListFailure) {
    moxdb::CatalogueBuilder cat;
    const uint32_t albumId = addAlbum(cat, "ALB", 1, 2);
    cat.image().album(0).Tracks = 0x100000;  // far beyond the end of the file
    storeAndLoad(cat);
    DbgCapture capture;
    AlbumInfo album;
    EXPECT_FALSE(db->getAlbumInfo(albumId, 1, &album));
    EXPECT_EQ(take(capture), (Msgs{{"dapFread", "eof error.\n"},
                                   {"getQuillAlbumTracksInfo", "read error.\n"},
                                   {"getAlbumInfo", "getQuillAlbumTracksInfo return false.\n"}}));
}

// ---------------------------------------------------------------------------
// TOC matching

TEST_F(MoxDapDatabaseSearchTest, GetQuillTocList_EqualTexts_KeptInSectionOrderWithDuplicates) {
    moxdb::CatalogueBuilder cat;
    const std::string toc = moxdb::makeTocTextOfTracks(3);
    cat.addToc(toc, 11, 1);
    cat.addToc(moxdb::makeTocTextOfTracks(4), 12, 1);
    cat.addToc(toc, 13, 2);
    cat.addToc(toc, 11, 1);
    storeAndLoad(cat);
    std::vector<QuillTocRec> list;
    ASSERT_TRUE(db->getQuillTocList(toc, &list));
    ASSERT_EQ(list.size(), 3u);
    EXPECT_EQ(list[0].AlbumId, 11u);
    EXPECT_EQ(list[0].MediaNum, 1);
    EXPECT_EQ(list[1].AlbumId, 13u);
    EXPECT_EQ(list[1].MediaNum, 2);
    EXPECT_EQ(list[2].AlbumId, 11u);
    EXPECT_NE(db->mpReadFile, nullptr);
}

TEST_F(MoxDapDatabaseSearchTest, GetQuillTocList_ComparisonIsExact) {
    moxdb::CatalogueBuilder cat;
    cat.addToc("0000960046E6008D3600D386", 11, 1);
    storeAndLoad(cat);
    for (const std::string& toc :
         {std::string("0000960046e6008d3600d386"), std::string("0000960046E6008D3600D386 "),
          std::string(" 0000960046E6008D3600D386"), std::string("0000960046E6008D3600D3"),
          std::string("0000960046E6008D3600D386\0", 25)}) {
        std::vector<QuillTocRec> list;
        ASSERT_TRUE(db->getQuillTocList(toc, &list)) << toc;
        EXPECT_TRUE(list.empty()) << "[" << toc << "]";
    }
    std::vector<QuillTocRec> list;
    ASSERT_TRUE(db->getQuillTocList("0000960046E6008D3600D386", &list));
    EXPECT_EQ(list.size(), 1u);
}

TEST_F(MoxDapDatabaseSearchTest, GetQuillTocList_RecordSize32_ReadsRecordsAtThatStride) {
    moxdb::CatalogueBuilder cat;
    cat.addToc("AAAAAA", 21, 1);
    cat.addToc("BBBBBB", 22, 2);
    cat.addToc("CCCCCC", 23, 3);
    cat.image().setRecordSize(moxdb::Section::QuillToc, 32);
    cat.image().setTocPadByte(0xEE);  // the 12 bytes after each record are never read
    storeAndLoad(cat);
    std::vector<QuillTocRec> list;
    ASSERT_TRUE(db->getQuillTocList("CCCCCC", &list));
    ASSERT_EQ(list.size(), 1u);
    EXPECT_EQ(list[0].AlbumId, 23u);
    EXPECT_EQ(list[0].MediaNum, 3);
    ASSERT_TRUE(db->getQuillTocList("BBBBBB", &list));
    ASSERT_EQ(list.size(), 1u);
    EXPECT_EQ(list[0].AlbumId, 22u);
}

TEST_F(MoxDapDatabaseSearchTest, GetQuillTocList_RecordCountZero_EmptiesListAndSucceeds) {
    moxdb::CatalogueBuilder cat;
    cat.addToc("AAAAAA", 21, 1);
    cat.image().setRecordCount(moxdb::Section::QuillToc, 0);
    storeAndLoad(cat);
    std::vector<QuillTocRec> list(2);
    DbgCapture capture;
    ASSERT_TRUE(db->getQuillTocList("AAAAAA", &list));
    EXPECT_TRUE(list.empty());
    EXPECT_TRUE(capture.records().empty());
}

TEST_F(MoxDapDatabaseSearchTest, GetQuillTocList_CountBeyondRecords_FailsKeepingEarlierMatches) {
    moxdb::CatalogueBuilder cat;
    cat.addToc("AAAAAA", 21, 1);
    cat.addToc("AAAAAA", 22, 1);
    cat.image().setRecordCount(moxdb::Section::QuillToc, 3);
    cat.image().placeLast(moxdb::Section::QuillToc);
    storeAndLoad(cat);
    DbgCapture capture;
    std::vector<QuillTocRec> list;
    EXPECT_FALSE(db->getQuillTocList("AAAAAA", &list));
    EXPECT_EQ(take(capture),
              (Msgs{{"dapFread", "eof error.\n"}, {"getQuillTocList", "read error i=2.\n"}}));
    EXPECT_EQ(list.size(), 2u);
    expectClosed();
}

TEST_F(MoxDapDatabaseSearchTest, GetQuillTocList_TocTextUnreadable_ReportsGetStringError) {
    moxdb::CatalogueBuilder cat;
    cat.addToc("AAAAAA", 21, 1);
    moxdb::TocRecord broken;
    broken.Id = addOverlongString(cat);
    broken.AlbumId = 22;
    cat.image().addToc(broken);
    storeAndLoad(cat);
    DbgCapture capture;
    std::vector<QuillTocRec> list;
    EXPECT_FALSE(db->getQuillTocList("AAAAAA", &list));
    EXPECT_EQ(take(capture), (Msgs{{"getString", STRING_BUF_MAX_MESSAGE},
                                   {"getQuillTocList", "get string error i=1.\n"}}));
    expectClosed();
}

TEST_F(MoxDapDatabaseSearchTest, GetQuillTocList_SectionHeadPastEnd_ReportsReadError) {
    moxdb::CatalogueBuilder cat;
    cat.addToc("AAAAAA", 21, 1);
    cat.image().setSectionWord(moxdb::Section::QuillToc, 0x00F00000);
    storeAndLoad(cat);
    DbgCapture capture;
    std::vector<QuillTocRec> list;
    EXPECT_FALSE(db->getQuillTocList("AAAAAA", &list));
    EXPECT_EQ(take(capture),
              (Msgs{{"dapFread", "eof error.\n"}, {"getQuillTocList", "read error.\n"}}));
    expectClosed();
}

TEST_F(MoxDapDatabaseSearchTest, GetQuillTocList_NoFileOpen_ReportsNullFile) {
    DbgCapture capture;
    std::vector<QuillTocRec> list;
    EXPECT_FALSE(db->getQuillTocList("AAAAAA", &list));
    EXPECT_EQ(take(capture), (Msgs{{"getQuillTocList", "mpReadFile is NULL.\n"}}));
}

TEST_F(MoxDapDatabaseSearchTest, GetQuillTocList_NoSectionTable_ReportsNullTable) {
    moxdb::CatalogueBuilder cat;
    cat.addToc("AAAAAA", 21, 1);
    store(cat);
    ASSERT_TRUE(db->openSearchResultFile());
    DbgCapture capture;
    std::vector<QuillTocRec> list;
    EXPECT_FALSE(db->getQuillTocList("AAAAAA", &list));
    EXPECT_EQ(take(capture), (Msgs{{"getQuillTocList", "mpDbToc is NULL.\n"}}));
    expectClosed();
}

// ---------------------------------------------------------------------------
// Ordering and track-count filter

TEST_F(MoxDapDatabaseSearchTest, CompAlbumList_IsNonStrictSignedLessOrEqual) {
    AlbumInfo a, b;
    a.Confidence = 40;
    b.Confidence = 90;
    EXPECT_TRUE(MoxDapDatabase::compAlbumList(a, b));
    EXPECT_FALSE(MoxDapDatabase::compAlbumList(b, a));
    EXPECT_TRUE(MoxDapDatabase::compAlbumList(a, a));
    a.Confidence = -1;
    b.Confidence = 0;
    EXPECT_TRUE(MoxDapDatabase::compAlbumList(a, b));
    EXPECT_FALSE(MoxDapDatabase::compAlbumList(b, a));
}

TEST_F(MoxDapDatabaseSearchTest, ListSortWithCompAlbumList_ReversesEquals_ThenReversalRestores) {
    std::list<AlbumInfo> albums;
    for (const char* id : {"X", "Y", "Z"}) {
        AlbumInfo album;
        album.AlbumId = id;
        album.Confidence = 50;
        albums.push_back(album);
    }
    albums.sort(MoxDapDatabase::compAlbumList);
    EXPECT_EQ(albumIds(albums), (std::vector<std::string>{"Z", "Y", "X"}));
    albums.reverse();
    EXPECT_EQ(albumIds(albums), (std::vector<std::string>{"X", "Y", "Z"}));
}

TEST_F(MoxDapDatabaseSearchTest,
       DeleteAlbumListByTrackCount_SixBytes_KeepsOnlyAlbumsWithoutTracks) {
    std::list<AlbumInfo> albums(3);
    albums.front().AlbumId = "EMPTY";
    albums.back().AlbumId = "ONE";
    albums.back().Tracks.resize(1);
    auto middle = std::next(albums.begin());
    middle->AlbumId = "EMPTY-2";
    db->deleteAlbumListByTrackCount("ABCDEF", &albums);
    EXPECT_EQ(albumIds(albums), (std::vector<std::string>{"EMPTY", "EMPTY-2"}));
    std::list<AlbumInfo> again(1);
    db->deleteAlbumListByTrackCount("ABCDEFGHIJK", &again);  // 11 bytes: still 0 expected
    EXPECT_EQ(again.size(), 1u);
}

TEST_F(MoxDapDatabaseSearchTest, DeleteAlbumListByTrackCount_UnderSixBytes_EmptiesList) {
    for (const std::string& toc : {std::string("12345"), std::string("")}) {
        std::list<AlbumInfo> albums(2);
        albums.back().Tracks.resize(1);
        db->deleteAlbumListByTrackCount(toc, &albums);
        EXPECT_TRUE(albums.empty()) << "[" << toc << "]";
    }
}

// ---------------------------------------------------------------------------
// Search (a database that a search cannot read: MoxDapDatabaseDamageTest.cpp)

TEST_F(MoxDapDatabaseSearchTest, GetSearchResult_NoMatchingToc_SucceedsWithEmptyList) {
    moxdb::CatalogueBuilder cat;
    cat.addToc(moxdb::makeTocTextOfTracks(2), addAlbum(cat, "A", 50, 2), 1);
    store(cat);
    std::list<AlbumInfo> albums{callerAlbum()};
    DbgCapture capture;
    EXPECT_TRUE(db->getSearchResult(moxdb::makeTocTextOfTracks(3), &albums));
    EXPECT_TRUE(albums.empty());
    EXPECT_TRUE(capture.records().empty());
    expectClosed();
}

TEST_F(MoxDapDatabaseSearchTest, GetSearchResult_TocRecordCountZero_SucceedsWithEmptyList) {
    moxdb::CatalogueBuilder cat;
    cat.addToc(moxdb::makeTocTextOfTracks(2), addAlbum(cat, "A", 50, 2), 1);
    cat.image().setRecordCount(moxdb::Section::QuillToc, 0);
    store(cat);
    std::list<AlbumInfo> albums{callerAlbum()};
    DbgCapture capture;
    EXPECT_TRUE(db->getSearchResult(moxdb::makeTocTextOfTracks(2), &albums));
    EXPECT_TRUE(albums.empty());
    EXPECT_TRUE(capture.records().empty());
    expectClosed();
}

TEST_F(MoxDapDatabaseSearchTest, GetSearchResult_Confidence40And90_BestFirst) {
    moxdb::CatalogueBuilder cat;
    const std::string toc = moxdb::makeTocTextOfTracks(2);
    cat.addToc(toc, addAlbum(cat, "C40", 40, 2), 1);
    cat.addToc(toc, addAlbum(cat, "C90", 90, 2), 1);
    store(cat);
    std::list<AlbumInfo> albums;
    DbgCapture capture;
    EXPECT_TRUE(db->getSearchResult(toc, &albums));
    EXPECT_EQ(albumIds(albums), (std::vector<std::string>{"C90", "C40"}));
    EXPECT_EQ(albums.front().Confidence, 90);
    EXPECT_EQ(albums.back().Confidence, 40);
    EXPECT_TRUE(capture.records().empty());
    expectClosed();
}

TEST_F(MoxDapDatabaseSearchTest, GetSearchResult_EqualConfidences_KeepDatabaseOrder) {
    moxdb::CatalogueBuilder cat;
    const std::string toc = moxdb::makeTocTextOfTracks(1);
    cat.addToc(toc, addAlbum(cat, "A50", 50, 1), 1);
    cat.addToc(toc, addAlbum(cat, "B70", 70, 1), 1);
    cat.addToc(toc, addAlbum(cat, "C50", 50, 1), 1);
    cat.addToc(toc, addAlbum(cat, "D50", 50, 1), 1);
    cat.addToc(toc, addAlbum(cat, "E70", 70, 1), 1);
    store(cat);
    std::list<AlbumInfo> albums;
    EXPECT_TRUE(db->getSearchResult(toc, &albums));
    EXPECT_EQ(albumIds(albums), (std::vector<std::string>{"B70", "E70", "A50", "C50", "D50"}));
}

TEST_F(MoxDapDatabaseSearchTest, GetSearchResult_NegativeConfidences_SortAsSigned) {
    moxdb::CatalogueBuilder cat;
    const std::string toc = moxdb::makeTocTextOfTracks(1);
    cat.addToc(toc, addAlbum(cat, "MINUS1", -1, 1), 1);
    cat.addToc(toc, addAlbum(cat, "ZERO", 0, 1), 1);
    cat.addToc(toc, addAlbum(cat, "LOWEST", INT32_MIN, 1), 1);
    cat.addToc(toc, addAlbum(cat, "SEVEN", 7, 1), 1);
    store(cat);
    std::list<AlbumInfo> albums;
    EXPECT_TRUE(db->getSearchResult(toc, &albums));
    EXPECT_EQ(albumIds(albums), (std::vector<std::string>{"SEVEN", "ZERO", "MINUS1", "LOWEST"}));
    EXPECT_EQ(albums.back().Confidence, INT32_MIN);
}

TEST_F(MoxDapDatabaseSearchTest, GetSearchResult_Toc66Bytes_KeepsOnlyTenTrackAlbums) {
    moxdb::CatalogueBuilder cat;
    const std::string toc = moxdb::makeTocTextOfTracks(10);
    ASSERT_EQ(toc.size(), 66u);
    cat.addToc(toc, addAlbum(cat, "N9", 90, 9), 1);
    cat.addToc(toc, addAlbum(cat, "N10a", 80, 10), 1);
    cat.addToc(toc, addAlbum(cat, "N11", 95, 11), 1);
    cat.addToc(toc, addAlbum(cat, "N10b", 85, 10), 1);
    store(cat);
    std::list<AlbumInfo> albums;
    DbgCapture capture;
    EXPECT_TRUE(db->getSearchResult(toc, &albums));
    EXPECT_EQ(albumIds(albums), (std::vector<std::string>{"N10b", "N10a"}));
    EXPECT_TRUE(capture.records().empty());
}

TEST_F(MoxDapDatabaseSearchTest, GetSearchResult_Toc70Bytes_AlsoExpectsTenTracks) {
    moxdb::CatalogueBuilder cat;
    const std::string toc = moxdb::makeTocTextOfTracks(10) + "ABCD";
    ASSERT_EQ(toc.size(), 70u);
    cat.addToc(toc, addAlbum(cat, "N9", 90, 9), 1);
    cat.addToc(toc, addAlbum(cat, "N10", 80, 10), 1);
    cat.addToc(toc, addAlbum(cat, "N11", 95, 11), 1);
    store(cat);
    std::list<AlbumInfo> albums;
    EXPECT_TRUE(db->getSearchResult(toc, &albums));
    EXPECT_EQ(albumIds(albums), (std::vector<std::string>{"N10"}));
}

TEST_F(MoxDapDatabaseSearchTest, GetSearchResult_Toc5Bytes_RemovesEveryAlbumButSucceeds) {
    moxdb::CatalogueBuilder cat;
    const std::string toc = "00009";
    cat.addToc(toc, addAlbum(cat, "A", 90, 1), 1);
    cat.addToc(toc, addAlbum(cat, "B", 80, 2), 1);
    store(cat);
    std::list<AlbumInfo> albums{callerAlbum()};
    DbgCapture capture;
    EXPECT_TRUE(db->getSearchResult(toc, &albums));
    EXPECT_TRUE(albums.empty());
    EXPECT_TRUE(capture.records().empty());
}

TEST_F(MoxDapDatabaseSearchTest, GetSearchResult_EmptyToc_RemovesEveryAlbumButSucceeds) {
    moxdb::CatalogueBuilder cat;  // string offset 0 holds the empty text
    cat.addToc("", addAlbum(cat, "A", 90, 1), 1);
    store(cat);
    std::list<AlbumInfo> albums;
    DbgCapture capture;
    EXPECT_TRUE(db->getSearchResult("", &albums));
    EXPECT_TRUE(albums.empty());
    EXPECT_TRUE(capture.records().empty());
}

TEST_F(MoxDapDatabaseSearchTest, GetSearchResult_SameAlbumOnTwoMedia_TwoAlbumsWithOwnTracks) {
    moxdb::CatalogueBuilder cat;
    const uint32_t jazz = cat.addGenre("JAZZ");
    const uint32_t artist = cat.addArtist("Mira Quartet");
    moxdb::AlbumFields draft{"LIVE", "Blue Hours (Live)", "JAZZ", "en", 85, 2, {}};
    for (const char* title : {"Opening", "Blue Hour", "Interlude"}) {
        draft.trackIds.push_back(cat.addTrack({title, artist, jazz, 1}));
    }
    for (const char* title : {"Second Set", "Late Train", "Encore"}) {
        draft.trackIds.push_back(cat.addTrack({title, artist, jazz, 2}));
    }
    const uint32_t albumId = cat.addAlbum(draft);
    const std::string toc = moxdb::makeTocTextOfTracks(3);
    cat.addToc(toc, albumId, 1);
    cat.addToc(toc, albumId, 2);
    store(cat);
    std::list<AlbumInfo> albums;
    EXPECT_TRUE(db->getSearchResult(toc, &albums));
    ASSERT_EQ(albums.size(), 2u);
    const AlbumInfo& first = albums.front();
    const AlbumInfo& second = albums.back();
    EXPECT_EQ(first.AlbumId, "LIVE");
    EXPECT_EQ(second.AlbumId, "LIVE");
    EXPECT_EQ(first.MediaNum, 1);
    EXPECT_EQ(second.MediaNum, 2);
    EXPECT_EQ(first.MediaCount, 2);
    EXPECT_EQ(second.MediaCount, 2);
    EXPECT_EQ(trackNames(first), (std::vector<std::string>{"Opening", "Blue Hour", "Interlude"}));
    EXPECT_EQ(trackNames(second), (std::vector<std::string>{"Second Set", "Late Train", "Encore"}));
}

TEST_F(MoxDapDatabaseSearchTest, GetSearchResult_ThirdAlbumFails_KeepsFirstTwoUnsortedUnfiltered) {
    moxdb::CatalogueBuilder cat;
    const std::string toc = moxdb::makeTocTextOfTracks(3);
    cat.addToc(toc, addAlbum(cat, "FIRST", 10, 3), 1);
    cat.addToc(toc, addAlbum(cat, "SECOND", 90, 2), 1);  // would be sorted first, then filtered
    cat.addToc(toc, addAlbum(cat, "THIRD", 50, 3), 2);   // nothing on medium 2
    cat.addToc(toc, addAlbum(cat, "FOURTH", 60, 3), 1);
    store(cat);
    std::list<AlbumInfo> albums{callerAlbum()};
    DbgCapture capture;
    EXPECT_FALSE(db->getSearchResult(toc, &albums));
    EXPECT_EQ(take(capture), (Msgs{{"getAlbumInfo", "npAlbum->Tracks.size() == 0.\n"},
                                   {"getSearchResult", "getAlbumInfo error i=2.\n"}}));
    EXPECT_EQ(albumIds(albums), (std::vector<std::string>{"FIRST", "SECOND"}));
    EXPECT_EQ(albums.back().Tracks.size(), 2u);
    expectClosed();
}

TEST_F(MoxDapDatabaseSearchTest, GetSearchResult_MatchedAlbumMissing_FailsAtFirstAlbum) {
    moxdb::CatalogueBuilder cat;
    const std::string toc = moxdb::makeTocTextOfTracks(1);
    addAlbum(cat, "A", 1, 1);
    cat.addToc(toc, 0xABCDEF, 1);
    store(cat);
    std::list<AlbumInfo> albums{callerAlbum()};
    DbgCapture capture;
    EXPECT_FALSE(db->getSearchResult(toc, &albums));
    EXPECT_EQ(take(capture), (Msgs{{"getAlbumInfo", "getQuillAlbumInfo return false.\n"},
                                   {"getSearchResult", "getAlbumInfo error i=0.\n"}}));
    EXPECT_TRUE(albums.empty());  // emptied before the first album was assembled
}

TEST_F(MoxDapDatabaseSearchTest, GetSearchResult_TocRecordSize32_FindsRecordsAtThatStride) {
    moxdb::CatalogueBuilder cat;
    const std::string toc = moxdb::makeTocTextOfTracks(2);
    cat.addToc(moxdb::makeTocTextOfTracks(5), addAlbum(cat, "OTHER", 99, 5), 1);
    cat.addToc(toc, addAlbum(cat, "LOW", 20, 2), 1);
    cat.addToc(toc, addAlbum(cat, "HIGH", 30, 2), 1);
    cat.image().setRecordSize(moxdb::Section::QuillToc, 32);
    cat.image().setTocPadByte(0xEE);
    store(cat);
    std::list<AlbumInfo> albums;
    DbgCapture capture;
    EXPECT_TRUE(db->getSearchResult(toc, &albums));
    EXPECT_EQ(albumIds(albums), (std::vector<std::string>{"HIGH", "LOW"}));
    EXPECT_TRUE(capture.records().empty());
}

TEST_F(MoxDapDatabaseSearchTest, GetSearchResult_SampleJapaneseAlbum_EveryFieldAssembled) {
    moxdb::CatalogueBuilder cat = moxdb::CatalogueBuilder::makeSample();
    store(cat);
    const std::string toc = moxdb::makeTocText({0, 15000, 31000}, 47000);
    std::list<AlbumInfo> albums;
    ASSERT_TRUE(db->getSearchResult(toc, &albums));
    ASSERT_EQ(albums.size(), 1u);
    const AlbumInfo& album = albums.front();
    EXPECT_EQ(album.AlbumId, "SAMPLE-0003");
    EXPECT_EQ(album.AlbumName, "夜明けの街");
    EXPECT_EQ(album.GenreName, "POP");
    EXPECT_EQ(album.GenreID, 16u);
    EXPECT_EQ(album.Confidence, 78);
    EXPECT_EQ(album.AlbumLang, 3);
    EXPECT_EQ(album.MediaNum, 1);
    EXPECT_EQ(album.MediaCount, 1);
    EXPECT_EQ(album.Database, 1);
    EXPECT_EQ(trackNames(album), (std::vector<std::string>{"始まりの歌", "青い空", "さよなら🌙"}));
    for (const TrackInfo& track : album.Tracks) {
        EXPECT_EQ(track.PerformerName, "ひかり");
        EXPECT_EQ(track.GenreName, "POP");
        EXPECT_EQ(track.GenreID, 16u);
        EXPECT_EQ(track.TrackNum, 0);
    }
}

TEST_F(MoxDapDatabaseSearchTest, GetSearchResult_ReadsTheFileFromTheKernelAboutOnce) {
    // 16 albums of 12 tracks: far larger than one default stream buffer, and
    // the lookups seek back and forth over all of it.
    const std::string toc = moxdb::makeTocTextOfTracks(12);
    const moxdb::CatalogueBuilder cat = moxdb::CatalogueBuilder::makeUniform(toc, 16, 12);
    const moxdb::Bytes bytes = cat.build();
    ASSERT_GT(bytes.size(), 16384u);
    store(bytes);
    uint64_t calls0 = 0, bytes0 = 0, calls1 = 0, bytes1 = 0, calls2 = 0, bytes2 = 0;
    if (!readCounters(&calls0, &bytes0)) {
        GTEST_SKIP() << "/proc/self/io is not available";
    }
    ASSERT_TRUE(readCounters(&calls1, &bytes1));  // what one look at the counters costs
    std::list<AlbumInfo> albums;
    ASSERT_TRUE(db->getSearchResult(toc, &albums));
    ASSERT_TRUE(readCounters(&calls2, &bytes2));
    EXPECT_EQ(albums.size(), 16u);
    const uint64_t searchCalls = (calls2 - calls1) - (calls1 - calls0);
    const uint64_t searchBytes = (bytes2 - bytes1) - (bytes1 - bytes0);
    EXPECT_LE(searchCalls, 2u);  // the file, and at most one read that meets its end
    EXPECT_EQ(searchBytes, bytes.size());
}

TEST_F(MoxDapDatabaseSearchTest, GetSearchResult_AfterFailedSearch_NextSearchReopensFile) {
    moxdb::CatalogueBuilder cat;
    const std::string toc = moxdb::makeTocTextOfTracks(1);
    cat.addToc(toc, addAlbum(cat, "A", 1, 1), 1);
    cat.image().setVersion(0x10000001);
    store(cat);
    std::list<AlbumInfo> albums;
    EXPECT_FALSE(db->getSearchResult(toc, &albums));
    cat.image().setVersion(0x10000000);
    store(cat);
    EXPECT_TRUE(db->getSearchResult(toc, &albums));
    EXPECT_EQ(albumIds(albums), (std::vector<std::string>{"A"}));
    EXPECT_TRUE(db->getSearchResult(toc, &albums));  // and again: nothing kept in between
    EXPECT_EQ(albumIds(albums), (std::vector<std::string>{"A"}));
    expectClosed();
}

}  // namespace
