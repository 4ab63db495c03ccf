// xmcd entries to albums.
#include "moxphone/XmcdParser.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using moxphone::CatalogueAlbum;
using moxphone::XmcdParser;

TEST(XmcdParserTest, Entry_GivesArtistTitleTracksAndGenreWithContinuationLines) {
    CatalogueAlbum album;
    std::string why;
    ASSERT_TRUE(XmcdParser::parse(
        "# xmcd\nDTITLE=The Band / Long \nDTITLE=Title\nDGENRE=Hard Rock\nTTITLE0=One\n"
        "TTITLE1=Tw\nTTITLE1=o\\tparts\nEXTD=ignored\n",
        "misc", "1802d003", &album, &why))
        << why;
    EXPECT_EQ(album.id, "misc/1802d003");
    EXPECT_EQ(album.title, "Long Title");
    EXPECT_EQ(album.genre, "ROCK");
    EXPECT_EQ(album.language, "");
    ASSERT_EQ(album.media.size(), 1u);
    ASSERT_EQ(album.media[0].tracks.size(), 2u);
    EXPECT_EQ(album.media[0].tracks[1].title, "Two parts");
    EXPECT_EQ(album.media[0].tracks[1].performer, "The Band");
}

TEST(XmcdParserTest, UnknownDgenre_GivesTheCategorysGenre) {
    CatalogueAlbum album;
    std::string why;
    ASSERT_TRUE(XmcdParser::parse("DTITLE=A / B\nDGENRE=Krautpop\nTTITLE0=x\n", "jazz", "id",
                                  &album, &why));
    EXPECT_EQ(album.genre, "JAZZ");
}

TEST(XmcdParserTest, VariousArtists_NameEachTracksPerformer) {
    CatalogueAlbum album;
    std::string why;
    ASSERT_TRUE(XmcdParser::parse("DTITLE=Various / Hits\nTTITLE0=Ana / Song\n", "rock", "id",
                                  &album, &why));
    EXPECT_EQ(album.media[0].tracks[0].performer, "Ana");
    EXPECT_EQ(album.media[0].tracks[0].title, "Song");
}

TEST(XmcdParserTest, EntryWithoutTracks_IsRefused) {
    CatalogueAlbum album;
    std::string why;
    EXPECT_FALSE(XmcdParser::parse("DTITLE=A / B\n", "rock", "id", &album, &why));
    EXPECT_EQ(why, "the xmcd entry has no TTITLEn");
}

}  // namespace
