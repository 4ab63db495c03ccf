// AlbumText, the text form that `mox search --records` prints, against the
// module's own (MoxDapDatabase::getStrAlbum), byte for byte.
#include "AlbumText.h"

#include <gtest/gtest.h>

#include <string>

#include "private/MoxDapDatabase.h"

namespace {

HbSMoxDef::TrackInfo track(const std::string& name, uint32 genreId) {
    HbSMoxDef::TrackInfo out;
    out.TrackName = name;
    out.PerformerName = "Perf\tormer";
    out.GenreName = "ROCK";
    out.GenreID = genreId;
    return out;
}

HbSMoxDef::AlbumInfo album(int tracks) {
    HbSMoxDef::AlbumInfo out;
    out.AlbumId = "ID-1";
    out.AlbumName = "Name";
    out.GenreName = "JAZZ";
    out.GenreID = 3;
    out.Confidence = 92;
    out.AlbumLang = 5;
    out.MediaNum = 1;
    out.MediaCount = 2;
    out.Database = 1;
    for (int i = 0; i < tracks; ++i) {
        out.Tracks.push_back(track("Track " + std::to_string(i), static_cast<uint32>(i)));
    }
    return out;
}

void expectModulesText(HbSMoxDef::AlbumInfo value) {
    EXPECT_EQ(AlbumText::of(value), MoxDapDatabase::GetInstance()->getStrAlbum(value));
}

TEST(AlbumTextTest, PlainAlbum_IsTheModulesText) {
    expectModulesText(album(3));
}

// From the first "0x" field on, counts and indexes are hexadecimal.
TEST(AlbumTextTest, SeventeenTracks_CountsAndIndexesAsTheModuleWritesThem) {
    expectModulesText(album(17));
}

TEST(AlbumTextTest, NoTracks_IsTheModulesText) {
    expectModulesText(album(0));
}

TEST(AlbumTextTest, NegativeAndLargeNumbers_AreTheModulesText) {
    HbSMoxDef::AlbumInfo value = album(2);
    value.Confidence = -1;
    value.MediaNum = -20;
    value.MediaCount = 0x7FFFFFFF;
    value.GenreID = 0xFFFFFFFFu;
    value.Tracks[1].TrackNum = -5;
    expectModulesText(value);
}

// Strings stop at a zero byte; the two one-byte codes are raw characters.
TEST(AlbumTextTest, ZeroBytesAndRawCodes_AreTheModulesText) {
    HbSMoxDef::AlbumInfo value = album(1);
    value.AlbumId = std::string("AB\0CD", 5);
    value.Tracks[0].TrackName = std::string("\0x", 2);
    value.AlbumLang = 0;
    value.Database = 0xFF;
    expectModulesText(value);
}

}  // namespace
