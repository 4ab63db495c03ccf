// The catalogue builder's identifier conventions and its bundled databases,
// checked on the built bytes with a small decoder of this file over the
// tools' image reader (independent of the module's reader).
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "ImageReads.h"
#include "MoxDbWriter.h"

using moxdb::Bytes;
using moxdb::CatalogueBuilder;
using moxdb::Section;

namespace {

// Decodes what the tests need from a built image, following the table words.
class Image {
public:
    explicit Image(Bytes bytes) : mBytes(std::move(bytes)) {}

    uint32_t word(Section s) const { return tableWord(mBytes, s); }
    uint16_t count(Section s) const { return le16(mBytes, word(s) + 6); }

    // Field `field` (u32 index) of record `index`, at the family's fixed stride.
    uint32_t field(Section s, uint32_t stride, uint32_t index, uint32_t field) const {
        return le32(mBytes, word(s) + 8 + stride * index + 4 * field);
    }
    uint16_t field16(Section s, uint32_t stride, uint32_t index, uint32_t byteOffset) const {
        return le16(mBytes, word(s) + 8 + stride * index + byteOffset);
    }

    std::u16string units(uint32_t offset) const { return stringAt(mBytes, offset); }

    // ASCII text of a string entry ('?' for any unit above 0x7F).
    std::string ascii(uint32_t offset) const {
        std::string text;
        for (char16_t unit : units(offset)) {
            text.push_back(unit < 0x80 ? static_cast<char>(unit) : '?');
        }
        return text;
    }

    std::vector<uint32_t> trackList(uint32_t offset) const {
        const size_t at = word(Section::QuillAlbumTracks) + 4 + offset;
        std::vector<uint32_t> ids;
        const uint32_t n = le32(mBytes, at);
        for (uint32_t i = 0; i < n; ++i) {
            ids.push_back(le32(mBytes, at + 4 + 4 * i));
        }
        return ids;
    }

    const Bytes& bytes() const { return mBytes; }

private:
    Bytes mBytes;
};

// Field indexes (u32 words) used below.
enum AlbumField {
    kAlbumId = 0,
    kAlbumMediaNum = 1,
    kAlbumMediaCount = 2,
    kAlbumTitle = 3,
    kAlbumGenre = 7,
    kAlbumTracks = 8,
    kAlbumConfidence = 9,
    kAlbumLanguage = 10
};
enum TrackField {
    kTrackId = 0,
    kTrackTitle = 1,
    kTrackPerformer = 3,
    kTrackGenre = 5,
    kTrackTime = 6,
    kTrackMediaNum = 9,
    kTrackTrackNum = 10
};

}  // namespace

TEST(CatalogueBuilderTest, Constructor_Default_PutsAnEmptyStringAtOffsetZero) {
    CatalogueBuilder cat;
    EXPECT_EQ(2u, cat.image().nextStringOffset());
    const Image image(cat.build());
    EXPECT_EQ(0u, le16(image.bytes(), image.word(Section::StringTable) + 4));
    EXPECT_EQ(0u, cat.text(""));
}

TEST(CatalogueBuilderTest, Constructor_WithText_PutsThatTextAtOffsetZero) {
    CatalogueBuilder cat("Unknown");
    const Image image(cat.build());
    EXPECT_EQ(u"Unknown", image.units(0));
    EXPECT_EQ(0u, cat.text("Unknown"));
}

TEST(CatalogueBuilderTest, Text_SameTextTwice_IsOneEntry) {
    CatalogueBuilder cat;
    const uint32_t first = cat.text("Blue");
    const uint32_t next = cat.image().nextStringOffset();
    EXPECT_EQ(first, cat.text("Blue"));
    EXPECT_EQ(next, cat.image().nextStringOffset());
    EXPECT_NE(first, cat.text("blue"));
}

TEST(CatalogueBuilderTest, AddGenre_IdAndNameAreTheStringOffsetOfTheCode) {
    CatalogueBuilder cat;
    const uint32_t rock = cat.addGenre("ROCK");
    const uint32_t rnb = cat.addGenre("R&B");
    EXPECT_EQ(2u, rock);
    EXPECT_EQ(12u, rnb);
    EXPECT_EQ(rock, cat.addGenre("ROCK"));  // no second record
    const Image image(cat.build());
    ASSERT_EQ(2u, image.count(Section::QuillGenre));
    EXPECT_EQ(rock, image.field(Section::QuillGenre, 8, 0, 0));
    EXPECT_EQ(rock, image.field(Section::QuillGenre, 8, 0, 1));
    EXPECT_EQ(rnb, image.field(Section::QuillGenre, 8, 1, 0));
    EXPECT_EQ("ROCK", image.ascii(rock));
    EXPECT_EQ("R&B", image.ascii(rnb));
}

TEST(CatalogueBuilderTest, AddArtist_FreshNonZeroIdsAndNameString) {
    CatalogueBuilder cat;
    EXPECT_EQ(1u, cat.addArtist("First"));
    EXPECT_EQ(2u, cat.addArtist("Second"));
    const Image image(cat.build());
    ASSERT_EQ(2u, image.count(Section::QuillArtist));
    EXPECT_EQ(1u, image.field(Section::QuillArtist, 44, 0, 0));
    EXPECT_EQ(2u, image.field(Section::QuillArtist, 44, 1, 0));
    EXPECT_EQ("First", image.ascii(image.field(Section::QuillArtist, 44, 0, 1)));
    EXPECT_EQ("Second", image.ascii(image.field(Section::QuillArtist, 44, 1, 1)));
}

TEST(CatalogueBuilderTest, AddTrack_FreshIdsAndEveryGivenField) {
    CatalogueBuilder cat;
    const uint32_t genre = cat.addGenre("JAZZ");
    const uint32_t artist = cat.addArtist("Quartet");
    moxdb::TrackFields wanted;
    wanted.title = "Caf\xC3\xA9 \xF0\x9F\x8E\xB7";  // "Café 🎷"
    wanted.artistId = artist;
    wanted.genreId = genre;
    wanted.mediaNum = 2;
    wanted.trackNum = 9;
    wanted.time = 245;
    EXPECT_EQ(1u, cat.addTrack({"Intro", artist, genre, 1}));
    EXPECT_EQ(2u, cat.addTrack(wanted));
    const Image image(cat.build());
    ASSERT_EQ(2u, image.count(Section::QuillTrack));
    EXPECT_EQ(2u, image.field(Section::QuillTrack, 72, 1, kTrackId));
    EXPECT_EQ((std::u16string{u'C', u'a', u'f', 0x00E9, u' ', 0xD83C, 0xDFB7}),
              image.units(image.field(Section::QuillTrack, 72, 1, kTrackTitle)));
    EXPECT_EQ(artist, image.field(Section::QuillTrack, 72, 1, kTrackPerformer));
    EXPECT_EQ(genre, image.field(Section::QuillTrack, 72, 1, kTrackGenre));
    EXPECT_EQ(245u, image.field(Section::QuillTrack, 72, 1, kTrackTime));
    EXPECT_EQ(2u, image.field(Section::QuillTrack, 72, 1, kTrackMediaNum));
    EXPECT_EQ(9u, image.field(Section::QuillTrack, 72, 1, kTrackTrackNum));
    EXPECT_EQ(1u, image.field(Section::QuillTrack, 72, 0, kTrackMediaNum));
    EXPECT_EQ("Intro", image.ascii(image.field(Section::QuillTrack, 72, 0, kTrackTitle)));
}

TEST(CatalogueBuilderTest, AddAlbum_IdIsTheStringOffsetOfItsIdText) {
    CatalogueBuilder cat;
    cat.addGenre("ROCK");
    const uint32_t t1 = cat.addTrack({"One"});
    const uint32_t t2 = cat.addTrack({"Two"});
    moxdb::AlbumFields wanted;
    wanted.idText = "ALB-42";
    wanted.title = "Night Drive";
    wanted.genreCode = "ROCK";
    wanted.language = "ja";
    wanted.confidence = -1;
    wanted.mediaCount = 2;
    wanted.mediaNum = 1;
    wanted.trackIds = {t2, t1};
    const uint32_t id = cat.addAlbum(wanted);
    const Image image(cat.build());
    ASSERT_EQ(1u, image.count(Section::QuillAlbum));
    EXPECT_EQ(id, image.field(Section::QuillAlbum, 84, 0, kAlbumId));
    EXPECT_EQ("ALB-42", image.ascii(id));
    EXPECT_EQ("Night Drive", image.ascii(image.field(Section::QuillAlbum, 84, 0, kAlbumTitle)));
    // The album's genre text is the genre record's string: one entry for both.
    EXPECT_EQ(cat.addGenre("ROCK"), image.field(Section::QuillAlbum, 84, 0, kAlbumGenre));
    EXPECT_EQ("ja", image.ascii(image.field(Section::QuillAlbum, 84, 0, kAlbumLanguage)));
    EXPECT_EQ(0xFFFFFFFFu, image.field(Section::QuillAlbum, 84, 0, kAlbumConfidence));
    EXPECT_EQ(2u, image.field(Section::QuillAlbum, 84, 0, kAlbumMediaCount));
    EXPECT_EQ(1u, image.field(Section::QuillAlbum, 84, 0, kAlbumMediaNum));
    const uint32_t list = image.field(Section::QuillAlbum, 84, 0, kAlbumTracks);
    EXPECT_EQ(0u, list);
    EXPECT_EQ((std::vector<uint32_t>{t2, t1}), image.trackList(list));
}

TEST(CatalogueBuilderTest, AddAlbum_TwoAlbums_EachGetsItsOwnList) {
    CatalogueBuilder cat;
    const uint32_t a = cat.addAlbum({"A", "Alpha", "POP", "en", 10, 1, {1, 2, 3}});
    const uint32_t b = cat.addAlbum({"B", "Beta", "POP", "en", 20, 1, {}});
    EXPECT_NE(a, b);
    const Image image(cat.build());
    EXPECT_EQ(0u, image.field(Section::QuillAlbum, 84, 0, kAlbumTracks));
    EXPECT_EQ(16u, image.field(Section::QuillAlbum, 84, 1, kAlbumTracks));
    EXPECT_EQ((std::vector<uint32_t>{1, 2, 3}), image.trackList(0));
    EXPECT_TRUE(image.trackList(16).empty());
    EXPECT_EQ(20u, image.field(Section::QuillAlbum, 84, 1, kAlbumConfidence));
}

TEST(CatalogueBuilderTest, AddToc_IdIsTheStringOffsetOfTheTocText) {
    CatalogueBuilder cat;
    const uint32_t album = cat.addAlbum({"X", "Title X", "ROCK", "en", 50, 1, {}});
    const std::string toc = moxdb::makeTocText({0, 18000, 36000}, 54000);
    const uint32_t id = cat.addToc(toc, album, 3);
    EXPECT_EQ(id, cat.addToc(toc, 999, 1));  // same text, same string
    const Image image(cat.build());
    ASSERT_EQ(2u, image.count(Section::QuillToc));
    EXPECT_EQ(id, image.field(Section::QuillToc, 20, 0, 0));
    EXPECT_EQ(toc, image.ascii(id));
    EXPECT_EQ(album, image.field(Section::QuillToc, 20, 0, 1));
    EXPECT_EQ(3u, image.field16(Section::QuillToc, 20, 0, 8));
    EXPECT_EQ(0u, image.field16(Section::QuillToc, 20, 0, 10));
    EXPECT_EQ(999u, image.field(Section::QuillToc, 20, 1, 1));
    ASSERT_EQ(2u, cat.tocListing().size());
    EXPECT_EQ(toc, cat.tocListing()[0].tocText);
    EXPECT_EQ("Title X", cat.tocListing()[0].albumTitle);
    EXPECT_EQ(3u, cat.tocListing()[0].mediaNum);
    EXPECT_EQ("", cat.tocListing()[1].albumTitle);
}

TEST(CatalogueBuilderTest, Image_OverridesApplyToTheCatalogue) {
    CatalogueBuilder cat;
    cat.addToc("000096", 1, 1);
    cat.image().setVersion(0x02000000);
    cat.image().setRecordCount(Section::QuillToc, 9);
    const Image image(cat.build());
    EXPECT_EQ(0x02000000u, le32(image.bytes(), 4));
    EXPECT_EQ(9u, image.count(Section::QuillToc));
}

TEST(CatalogueBuilderTest, MakeUniform_EveryAlbumMatchesTheTocWithItsTracks) {
    const std::string toc = moxdb::makeTocText({0, 18000, 36000}, 54000);
    const CatalogueBuilder cat = CatalogueBuilder::makeUniform(toc, 4, 3);
    const Image image(cat.build());
    ASSERT_EQ(4u, image.count(Section::QuillToc));
    ASSERT_EQ(4u, image.count(Section::QuillAlbum));
    ASSERT_EQ(12u, image.count(Section::QuillTrack));
    ASSERT_EQ(4u, image.count(Section::QuillArtist));
    ASSERT_EQ(1u, image.count(Section::QuillGenre));
    for (uint32_t i = 0; i < 4; ++i) {
        EXPECT_EQ(toc, image.ascii(image.field(Section::QuillToc, 20, i, 0)));
        const uint32_t album = image.field(Section::QuillToc, 20, i, 1);
        EXPECT_EQ(album, image.field(Section::QuillAlbum, 84, i, kAlbumId));
        EXPECT_EQ("ALBUM-" + std::to_string(i), image.ascii(album));
        EXPECT_EQ("Album " + std::to_string(i),
                  image.ascii(image.field(Section::QuillAlbum, 84, i, kAlbumTitle)));
        EXPECT_EQ(100 - i, image.field(Section::QuillAlbum, 84, i, kAlbumConfidence));
        EXPECT_EQ(1u, image.field16(Section::QuillToc, 20, i, 8));
        const std::vector<uint32_t> tracks =
            image.trackList(image.field(Section::QuillAlbum, 84, i, kAlbumTracks));
        EXPECT_EQ((std::vector<uint32_t>{3 * i + 1, 3 * i + 2, 3 * i + 3}), tracks);
    }
    EXPECT_EQ(1u, image.field(Section::QuillTrack, 72, 11, kTrackMediaNum));
    EXPECT_EQ("Track 3-3", image.ascii(image.field(Section::QuillTrack, 72, 11, kTrackTitle)));
}

TEST(CatalogueBuilderTest, MakeUniform_NegativeCounts_GiveAnEmptyCatalogue) {
    const Image image(CatalogueBuilder::makeUniform("000096", -1, -5).build());
    EXPECT_EQ(0u, image.count(Section::QuillToc));
    EXPECT_EQ(0u, image.count(Section::QuillAlbum));
    EXPECT_EQ(0u, image.count(Section::QuillTrack));
}

TEST(CatalogueBuilderTest, MakeSample_FourAlbumsFiveDiscsConsistentReferences) {
    const CatalogueBuilder cat = CatalogueBuilder::makeSample();
    const Image image(cat.build());
    ASSERT_EQ(4u, image.count(Section::QuillAlbum));
    ASSERT_EQ(5u, image.count(Section::QuillToc));
    ASSERT_EQ(5u, cat.tocListing().size());

    std::set<uint32_t> artists;
    for (uint32_t i = 0; i < image.count(Section::QuillArtist); ++i) {
        artists.insert(image.field(Section::QuillArtist, 44, i, 0));
    }
    std::set<std::string> genres;
    std::set<uint32_t> genreIds;
    for (uint32_t i = 0; i < image.count(Section::QuillGenre); ++i) {
        const uint32_t id = image.field(Section::QuillGenre, 8, i, 0);
        genreIds.insert(id);
        genres.insert(image.ascii(id));
    }
    EXPECT_EQ((std::set<std::string>{"ROCK", "JAZZ", "POP", "R&B"}), genres);
    std::map<uint32_t, uint32_t> trackMedia;  // track Id -> MediaNum
    for (uint32_t i = 0; i < image.count(Section::QuillTrack); ++i) {
        trackMedia[image.field(Section::QuillTrack, 72, i, kTrackId)] =
            image.field(Section::QuillTrack, 72, i, kTrackMediaNum);
        EXPECT_EQ(1u, artists.count(image.field(Section::QuillTrack, 72, i, kTrackPerformer)));
        EXPECT_EQ(1u, genreIds.count(image.field(Section::QuillTrack, 72, i, kTrackGenre)));
    }
    std::map<uint32_t, uint32_t> albumIndex;  // album Id -> record index
    for (uint32_t i = 0; i < 4; ++i) {
        albumIndex[image.field(Section::QuillAlbum, 84, i, kAlbumId)] = i;
    }

    // Every TOC record points at an album whose tracks on that disc number as
    // many as the TOC text has track entries.
    for (uint32_t i = 0; i < 5; ++i) {
        const std::string toc = image.ascii(image.field(Section::QuillToc, 20, i, 0));
        EXPECT_EQ(cat.tocListing()[i].tocText, toc);
        const uint32_t album = image.field(Section::QuillToc, 20, i, 1);
        const uint16_t disc = image.field16(Section::QuillToc, 20, i, 8);
        ASSERT_EQ(1u, albumIndex.count(album)) << toc;
        const uint32_t index = albumIndex[album];
        size_t onDisc = 0;
        for (uint32_t id :
             image.trackList(image.field(Section::QuillAlbum, 84, index, kAlbumTracks))) {
            ASSERT_EQ(1u, trackMedia.count(id));
            onDisc += trackMedia[id] == disc ? 1 : 0;
        }
        EXPECT_EQ(toc.size() / 6 - 1, onDisc) << toc;
        EXPECT_EQ(0u, toc.size() % 6) << toc;
    }

    EXPECT_EQ("0000960046E6008D3600D386", cat.tocListing()[0].tocText);
    EXPECT_EQ("Northern Roads", cat.tocListing()[0].albumTitle);
    // The two-disc album: two TOC records with discs 1 and 2, MediaCount 2.
    EXPECT_EQ(cat.tocListing()[1].albumId, cat.tocListing()[2].albumId);
    EXPECT_EQ(1u, cat.tocListing()[1].mediaNum);
    EXPECT_EQ(2u, cat.tocListing()[2].mediaNum);
    EXPECT_EQ("JAZZ", image.ascii(image.field(Section::QuillAlbum, 84, 1, kAlbumGenre)));
    EXPECT_EQ(2u, image.field(Section::QuillAlbum, 84, 1, kAlbumMediaCount));
    // The Japanese album.
    EXPECT_EQ("ja", image.ascii(image.field(Section::QuillAlbum, 84, 2, kAlbumLanguage)));
    EXPECT_EQ((std::u16string{0x591C, 0x660E, 0x3051, 0x306E, 0x8857}),
              image.units(image.field(Section::QuillAlbum, 84, 2, kAlbumTitle)));
    EXPECT_EQ("R&B", image.ascii(image.field(Section::QuillAlbum, 84, 3, kAlbumGenre)));
}

TEST(CatalogueBuilderTest, MakeSample_ConfidencesAreDistinctAndPositive) {
    const Image image(CatalogueBuilder::makeSample().build());
    std::set<uint32_t> confidences;
    for (uint32_t i = 0; i < 4; ++i) {
        const uint32_t c = image.field(Section::QuillAlbum, 84, i, kAlbumConfidence);
        EXPECT_GT(c, 0u);
        EXPECT_LE(c, 100u);
        confidences.insert(c);
    }
    EXPECT_EQ(4u, confidences.size());
}
