// One disc's answer, read back by the module's own album search: for every
// disc of the bundled catalogue exactly its candidates, best first, ties in
// catalogue order, the track-count rule applied, every field of every album
// and track; and nothing of the other discs.
#include "moxphone/ResponseDatabase.h"

#include <gtest/gtest.h>

#include <list>
#include <string>
#include <vector>

#include "HbFramework/HbFileSys.h"
#include "HbFramework/HbFileSysHost.h"
#include "PhoneTestSupport.h"
#include "TestDir.h"
#include "moxdb/DbRecords.h"
#include "private/MoxDapDatabase.h"

using HbSMoxDef::AlbumInfo;
using HbSMoxDef::TrackInfo;
using moxphone::Bytes;

namespace {

struct ExpectedTrack {
    std::string title;
    std::string performer;
    std::string genre;
    uint32_t genreId;
};

struct ExpectedAlbum {
    std::string id;
    std::string title;
    std::string genre;
    uint32_t genreId;
    int32_t confidence;
    uint8_t language;
    int32_t mediaNum;
    int32_t mediaCount;
    std::vector<ExpectedTrack> tracks;
};

class ResponseDatabaseTest : public ::testing::Test {
protected:
    void SetUp() override {
        catalogue = phonetest::sampleCatalogue();
        HbFileSys::CreateDirectory(HbFileSysHost::getResultDirectory().c_str(), true);
    }
    void TearDown() override { std::remove(HbFileSysHost::getResultFilePath().c_str()); }

    const moxphone::CatalogueDisc& disc(size_t index) const { return catalogue->discs().at(index); }
    Bytes build(size_t index) const {
        return moxphone::ResponseDatabase::build(*catalogue, disc(index));
    }

    // Stores `db` as the module's result file and runs its album search.
    std::list<AlbumInfo> search(const Bytes& db, const std::string& toc) {
        TestDir::writeFile(HbFileSysHost::getResultFilePath(), db);
        std::list<AlbumInfo> albums;
        EXPECT_TRUE(MoxDapDatabase::GetInstance()->getSearchResult(toc, &albums));
        return albums;
    }
    std::list<AlbumInfo> searchDisc(size_t index) { return search(build(index), disc(index).toc); }

    static void expectAlbums(const std::vector<ExpectedAlbum>& expected,
                             const std::list<AlbumInfo>& albums) {
        ASSERT_EQ(expected.size(), albums.size());
        auto album = albums.begin();
        for (const ExpectedAlbum& want : expected) {
            SCOPED_TRACE(want.id);
            EXPECT_EQ(want.id, album->AlbumId);
            EXPECT_EQ(want.title, album->AlbumName);
            EXPECT_EQ(want.genre, album->GenreName);
            EXPECT_EQ(want.genreId, album->GenreID);
            EXPECT_EQ(want.confidence, album->Confidence);
            EXPECT_EQ(want.language, album->AlbumLang);
            EXPECT_EQ(want.mediaNum, album->MediaNum);
            EXPECT_EQ(want.mediaCount, album->MediaCount);
            EXPECT_EQ(1, album->Database);
            ASSERT_EQ(want.tracks.size(), album->Tracks.size());
            for (size_t i = 0; i < want.tracks.size(); ++i) {
                const TrackInfo& track = album->Tracks[i];
                EXPECT_EQ(want.tracks[i].title, track.TrackName);
                EXPECT_EQ(want.tracks[i].performer, track.PerformerName);
                EXPECT_EQ(want.tracks[i].genre, track.GenreName);
                EXPECT_EQ(want.tracks[i].genreId, track.GenreID);
                EXPECT_EQ(0, track.TrackNum);
            }
            ++album;
        }
    }

    static std::vector<ExpectedTrack> tracks(const std::vector<std::string>& titles,
                                             const std::string& performer, const std::string& genre,
                                             uint32_t genreId) {
        std::vector<ExpectedTrack> out;
        for (const std::string& title : titles) {
            out.push_back({title, performer, genre, genreId});
        }
        return out;
    }

    // Records of a family in a built database (the head's RecordCount).
    static uint16_t recordCount(const Bytes& db, moxdb::Section section) {
        const uint32_t word = moxdb::getU32Le(db, 64 + 4 * static_cast<uint32_t>(section));
        return moxdb::getU16Le(db, word + 6);
    }

    std::shared_ptr<const moxphone::Catalogue> catalogue;
};

}  // namespace

TEST_F(ResponseDatabaseTest, Disc1_OneRockAlbum) {
    expectAlbums(
        {{"MOXS-0001", "Northern Roads", "ROCK", 1, 92, 5, 1, 1,
          tracks({"Open Highway", "Cold Harbor", "Last Exit"}, "The Harbor Lights", "ROCK", 1)}},
        searchDisc(0));
}

TEST_F(ResponseDatabaseTest, Disc2_FirstMediumOfTheTwoDiscAlbum) {
    expectAlbums({{"MOXS-0002", "Blue Hours (Live)", "JAZZ", 3, 85, 5, 1, 2,
                   tracks({"Opening", "Blue Hour", "Café Nocturne", "Interlude"}, "Mira Quartet",
                          "JAZZ", 3)}},
                 searchDisc(1));
}

TEST_F(ResponseDatabaseTest, Disc3_SecondMediumOfTheSameAlbum) {
    expectAlbums({{"MOXS-0002", "Blue Hours (Live)", "JAZZ", 3, 83, 5, 2, 2,
                   tracks({"Second Set", "Late Train", "Encore"}, "Mira Quartet", "JAZZ", 3)}},
                 searchDisc(2));
}

TEST_F(ResponseDatabaseTest, Disc4_DeluxeRemovedByTrackCountAndTheTieKeepsCatalogueOrder) {
    const Bytes db = build(3);
    EXPECT_EQ(3u, recordCount(db, moxdb::Section::QuillAlbum));
    EXPECT_EQ(3u, recordCount(db, moxdb::Section::QuillToc));
    expectAlbums({{"MOXS-0003", "Lumière d'été", "POP", 16, 70, 5, 1, 1,
                   tracks({"Lumière d'été", "Café de la Gare", "Où es-tu ?", "Señorita", "Déjà vu"},
                          "Élodie Marchand", "POP", 16)},
                  {"MOXS-0004", "Summer Light", "POP", 16, 70, 5, 1, 1,
                   tracks({"Summer Light", "Station Café", "Where Are You?", "Señorita", "Déjà Vu"},
                          "Élodie Marchand", "POP", 16)}},
                 search(db, disc(3).toc));
}

TEST_F(ResponseDatabaseTest, Disc5_JapaneseTextAndLanguage) {
    expectAlbums({{"MOXS-0006", "夜明けの街", "JPOP", 14, 78, 3, 1, 1,
                   tracks({"始まりの歌", "青い空", "さよなら🌙"}, "ひかり", "JPOP", 14)}},
                 searchDisc(4));
}

TEST_F(ResponseDatabaseTest, Disc6_UnknownGenreCodeHasGenreIdZero) {
    std::vector<ExpectedTrack> neon = tracks(
        {"Neon Rain", "Midnight Drive", "Chrome Hearts", "Afterglow"}, "Kōji Satō", "SYNTHWAVE", 0);
    neon[2].genre = "ELEC";
    neon[2].genreId = 8;
    expectAlbums({{"MOXS-0007", "Neon Rain", "SYNTHWAVE", 0, 66, 5, 1, 1, neon}}, searchDisc(5));
}

TEST_F(ResponseDatabaseTest, Disc7_ListedWorstFirst_BestFirstInTheResult) {
    expectAlbums({{"MOXS-0009", "Vivaldi: The Four Seasons", "CLASSICAL", 11, 90, 5, 1, 1,
                   tracks({"Spring", "Summer", "Autumn", "Winter"}, "Zürich Chamber Orchestra",
                          "CLASSICAL", 11)},
                  {"MOXS-0008", "Vivaldi: Die vier Jahreszeiten", "CLASSICAL", 11, 40, 5, 1, 1,
                   tracks({"Frühling", "Sommer", "Herbst", "Winter"}, "Kammerorchester Zürich",
                          "CLASSICAL", 11)}},
                 searchDisc(6));
}

TEST_F(ResponseDatabaseTest, Disc8_PerformerPerTrack) {
    std::vector<ExpectedTrack> slow =
        tracks({"Midnight Call", "Golden", "Slow Motion", "Stay"}, "Velvet Avenue", "R&B", 4);
    slow[1].performer = "Velvet Avenue feat. Nia Brooks";
    expectAlbums({{"MOXS-0010", "Slow Motion", "R&B", 4, 64, 5, 1, 1, slow}}, searchDisc(7));
}

TEST_F(ResponseDatabaseTest, EveryDisc_HoldsNothingOfTheOtherDiscs) {
    for (size_t i = 0; i < catalogue->discs().size(); ++i) {
        const Bytes db = build(i);
        EXPECT_EQ(disc(i).candidates.size(), recordCount(db, moxdb::Section::QuillToc));
        for (size_t other = 0; other < catalogue->discs().size(); ++other) {
            if (other != i) {
                EXPECT_TRUE(search(db, disc(other).toc).empty()) << i << " " << other;
            }
        }
    }
}

TEST_F(ResponseDatabaseTest, TwoDiscAlbum_TrackListHoldsBothMediaWithTheirNumbers) {
    const Bytes db = build(1);
    EXPECT_EQ(7u, recordCount(db, moxdb::Section::QuillTrack));
    EXPECT_EQ(1u, recordCount(db, moxdb::Section::QuillArtist));
    const uint32_t tracks = moxdb::getU32Le(db, 64 + 4 * 6);
    std::vector<uint32_t> media;
    for (uint32_t i = 0; i < 7; ++i) {
        media.push_back(moxdb::getU32Le(db, tracks + 8 + 72 * i + 36));
    }
    EXPECT_EQ((std::vector<uint32_t>{1, 1, 1, 1, 2, 2, 2}), media);
}

TEST_F(ResponseDatabaseTest, DiscWithoutCandidates_EmptyButValidDatabase) {
    auto empty = phonetest::loadCatalogue(
        R"({"albums": [], "discs": [{"toc": "0000960046E6", "candidates": []}]})");
    const Bytes db = moxphone::ResponseDatabase::build(*empty, empty->discs().at(0));
    EXPECT_TRUE(search(db, "0000960046E6").empty());
}
