// Byte-exact checks of the response-database writer's low-level builder, its
// byte helpers and the tools' TOC text. The expected bytes are read back with
// the tools' image reader, independently of the module's reader.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ImageReads.h"
#include "MoxDbWriter.h"
#include "TestDir.h"

using moxdb::Bytes;
using moxdb::DbImageBuilder;
using moxdb::Section;

namespace {

// The u32 fields of record `index` of a record section with a fixed stride.
std::vector<uint32_t> recordWords(const Bytes& b, Section s, uint32_t stride, uint32_t index,
                                  uint32_t fieldCount) {
    const size_t at = tableWord(b, s) + 8 + static_cast<size_t>(stride) * index;
    std::vector<uint32_t> words;
    for (uint32_t i = 0; i < fieldCount; ++i) {
        words.push_back(le32(b, at + 4 * i));
    }
    return words;
}

std::vector<uint32_t> sequence(uint32_t first, uint32_t count) {
    std::vector<uint32_t> values;
    for (uint32_t i = 0; i < count; ++i) {
        values.push_back(first + i);
    }
    return values;
}

}  // namespace

// ---- Header ----

TEST(DbImageBuilderTest, Build_Defaults_HeaderHoldsSignatureVersionAndAppVersions) {
    const Bytes b = DbImageBuilder().build();
    ASSERT_GE(b.size(), 124u);
    EXPECT_EQ((Bytes{'D', 'A', 'P', '3'}), Bytes(b.begin(), b.begin() + 4));
    EXPECT_EQ((Bytes{0x00, 0x00, 0x00, 0x01}), Bytes(b.begin() + 4, b.begin() + 8));
    EXPECT_EQ(0x01000000u, le32(b, 4));
    EXPECT_EQ(1u, le16(b, 8));
    EXPECT_EQ(0u, le16(b, 10));
    EXPECT_EQ(0u, le16(b, 12));
    EXPECT_EQ(0u, le16(b, 14));
    EXPECT_EQ(1u, le16(b, 16));
    EXPECT_EQ(0u, le16(b, 22));
    EXPECT_EQ(Bytes(40, 0), Bytes(b.begin() + 24, b.begin() + 64));
}

TEST(DbImageBuilderTest, SetHeaderFields_WritesEachAtItsOffset) {
    DbImageBuilder image;
    image.setSignature("XY");
    image.setVersion(0x10000001);
    image.setAppVer1({{0x0102, 0x0304, 0x0506, 0x0708}});
    image.setAppVer2({{0xA1A2, 0xB1B2, 0xC1C2, 0xD1D2}});
    std::array<uint8_t, 40> reserved{};
    for (size_t i = 0; i < reserved.size(); ++i) {
        reserved[i] = static_cast<uint8_t>(0xC0 + i);
    }
    image.setReserved(reserved);
    const Bytes b = image.build();
    EXPECT_EQ((Bytes{'X', 'Y', 0, 0}), Bytes(b.begin(), b.begin() + 4));
    EXPECT_EQ((Bytes{0x01, 0x00, 0x00, 0x10}), Bytes(b.begin() + 4, b.begin() + 8));
    EXPECT_EQ((Bytes{0x02, 0x01, 0x04, 0x03, 0x06, 0x05, 0x08, 0x07}),
              Bytes(b.begin() + 8, b.begin() + 16));
    EXPECT_EQ((Bytes{0xA2, 0xA1, 0xB2, 0xB1, 0xC2, 0xC1, 0xD2, 0xD1}),
              Bytes(b.begin() + 16, b.begin() + 24));
    EXPECT_EQ(Bytes(reserved.begin(), reserved.end()), Bytes(b.begin() + 24, b.begin() + 64));
    EXPECT_EQ(60u, tableWord(b, 0u));
}

TEST(DbImageBuilderTest, SetSignature_LongerThanFour_KeepsTheFirstFourBytes) {
    DbImageBuilder image;
    image.setSignature("ABCDEFG");
    const Bytes b = image.build();
    EXPECT_EQ((Bytes{'A', 'B', 'C', 'D'}), Bytes(b.begin(), b.begin() + 4));
    EXPECT_EQ(0x01000000u, le32(b, 4));
}

TEST(DbImageBuilderTest, FillReserved_FillsBytes24To63Only) {
    DbImageBuilder image;
    image.fillReserved(0xAB);
    const Bytes b = image.build();
    EXPECT_EQ(Bytes(40, 0xAB), Bytes(b.begin() + 24, b.begin() + 64));
    EXPECT_EQ(0u, le16(b, 22));
    EXPECT_EQ(60u, tableWord(b, 0u));
}

// ---- Section table and layout ----

TEST(DbImageBuilderTest, Build_Defaults_TablePointsAtAlignedAreasInTableOrder) {
    const DbImageBuilder image;
    const Bytes b = image.build();
    EXPECT_EQ(60u, tableWord(b, 0u));
    uint32_t expected = 124;
    for (uint32_t index = 1; index < 15; ++index) {
        const Section s = static_cast<Section>(index);
        const uint32_t word = tableWord(b, index);
        EXPECT_EQ(expected, word) << "word " << index;
        EXPECT_EQ(0u, word % 4) << "word " << index;
        EXPECT_EQ(word, image.sectionWord(s));
        EXPECT_EQ(word, image.sectionSpan(s).offset);
        expected = (word + image.sectionSpan(s).size + 3) / 4 * 4;
    }
    const moxdb::SectionSpan last = image.sectionSpan(Section::QuillTrackIndices);
    EXPECT_EQ(last.offset + last.size, b.size());
}

TEST(DbImageBuilderTest, Build_UnreadSections_AreEightByteEmptyAreas) {
    const Bytes b = DbImageBuilder().build();
    for (Section s :
         {Section::RudTrack, Section::RudPlaylist, Section::RudPlaylistTrack, Section::StringList,
          Section::QuillCredits, Section::QuillDesc, Section::QuillTrackIndices}) {
        const uint32_t at = tableWord(b, s);
        EXPECT_EQ(8u, le32(b, at)) << static_cast<uint32_t>(s);
        EXPECT_EQ(0u, le32(b, at + 4)) << static_cast<uint32_t>(s);
    }
}

TEST(DbImageBuilderTest, Build_NoRecords_EveryRecordSectionHasAnEmptyHead) {
    const Bytes b = DbImageBuilder().build();
    const struct {
        Section section;
        uint16_t recordSize;
    } heads[] = {{Section::QuillToc, 20},
                 {Section::QuillAlbum, 84},
                 {Section::QuillTrack, 72},
                 {Section::QuillArtist, 44},
                 {Section::QuillGenre, 8}};
    for (const auto& head : heads) {
        const uint32_t at = tableWord(b, head.section);
        EXPECT_EQ(8u, le32(b, at));
        EXPECT_EQ(head.recordSize, le16(b, at + 4));
        EXPECT_EQ(0u, le16(b, at + 6));
    }
}

TEST(DbImageBuilderTest, SetSectionWord_OverridesOnlyThatWord) {
    DbImageBuilder image;
    const uint32_t albumOffset = image.sectionSpan(Section::QuillAlbum).offset;
    image.setSectionWord(Section::QuillToc, 0xFFFFFFF0);
    image.setSectionWord(Section::RudTrack, 0);
    image.setTableOwnSize(0x12345678);
    const Bytes b = image.build();
    EXPECT_EQ(0x12345678u, tableWord(b, 0u));
    EXPECT_EQ(0u, tableWord(b, Section::RudTrack));
    EXPECT_EQ(0xFFFFFFF0u, tableWord(b, Section::QuillToc));
    EXPECT_EQ(0xFFFFFFF0u, image.sectionWord(Section::QuillToc));
    EXPECT_EQ(albumOffset, tableWord(b, Section::QuillAlbum));
    // The TOC area is still written where the layout puts it.
    const uint32_t tocArea = image.sectionSpan(Section::QuillToc).offset;
    EXPECT_EQ(20u, le16(b, tocArea + 4));
}

TEST(DbImageBuilderTest, PlaceLast_PutsTheAreaAtTheEndOfTheFile) {
    DbImageBuilder image;
    image.addTrackListWithCount(3, {7});
    image.placeLast(Section::QuillAlbumTracks);
    const Bytes b = image.build();
    const moxdb::SectionSpan lists = image.sectionSpan(Section::QuillAlbumTracks);
    EXPECT_EQ(lists.offset, tableWord(b, Section::QuillAlbumTracks));
    EXPECT_EQ(lists.offset + lists.size, b.size());
    EXPECT_EQ(4u + 8u, lists.size);
    EXPECT_GT(lists.offset, tableWord(b, Section::QuillTrackIndices));
    // The other areas close up in table order.
    EXPECT_EQ(image.sectionSpan(Section::QuillCredits).offset,
              image.sectionSpan(Section::QuillAlbum).offset +
                  image.sectionSpan(Section::QuillAlbum).size);
}

TEST(DbImageBuilderTest, AppendTail_BytesFollowTheLastArea) {
    DbImageBuilder image;
    image.appendTail({0xDE, 0xAD});
    image.appendTail({0xBE});
    const Bytes b = image.build();
    const moxdb::SectionSpan last = image.sectionSpan(Section::QuillTrackIndices);
    ASSERT_EQ(last.offset + last.size + 3, b.size());
    EXPECT_EQ((Bytes{0xDE, 0xAD, 0xBE}), Bytes(b.end() - 3, b.end()));
}

// ---- String area ----

TEST(DbImageBuilderTest, AddString_Ascii_EntriesInCallOrderWithUnitCountPrefix) {
    DbImageBuilder image;
    EXPECT_EQ(0u, image.nextStringOffset());
    EXPECT_EQ(0u, image.addString("ROCK"));
    EXPECT_EQ(10u, image.addString(""));
    EXPECT_EQ(12u, image.addString("ja"));
    EXPECT_EQ(18u, image.nextStringOffset());
    const Bytes b = image.build();
    const uint32_t area = tableWord(b, Section::StringTable);
    EXPECT_EQ(area + 4, image.stringBase());
    EXPECT_EQ(18u, le32(b, area));  // default word: bytes of the entries
    EXPECT_EQ((Bytes{4, 0, 'R', 0, 'O', 0, 'C', 0, 'K', 0, 0, 0, 2, 0, 'j', 0, 'a', 0}),
              Bytes(b.begin() + area + 4, b.begin() + area + 22));
    EXPECT_EQ(u"ROCK", stringAt(b, 0));
    EXPECT_EQ(u"", stringAt(b, 10));
    EXPECT_EQ(u"ja", stringAt(b, 12));
}

TEST(DbImageBuilderTest, AddString_CafeWithAccent_IsOneUnitPerCharacter) {
    DbImageBuilder image;
    const uint32_t at = image.addString("Caf\xC3\xA9");
    const Bytes b = image.build();
    const size_t entry = image.stringBase() + at;
    EXPECT_EQ((Bytes{4, 0, 'C', 0, 'a', 0, 'f', 0, 0xE9, 0x00}),
              Bytes(b.begin() + entry, b.begin() + entry + 10));
}

TEST(DbImageBuilderTest, AddString_OutsideBasicPlane_IsASurrogatePair) {
    DbImageBuilder image;
    image.addString("x");
    const uint32_t at = image.addString("\xF0\x9D\x84\x9E!");  // U+1D11E, '!'
    const Bytes b = image.build();
    const size_t entry = image.stringBase() + at;
    EXPECT_EQ(4u, at);
    EXPECT_EQ((Bytes{3, 0, 0x34, 0xD8, 0x1E, 0xDD, '!', 0}),
              Bytes(b.begin() + entry, b.begin() + entry + 8));
}

TEST(DbImageBuilderTest, AddString_Japanese_ThreeByteSequencesBecomeOneUnitEach) {
    DbImageBuilder image;
    const uint32_t at = image.addString("\xE5\xA4\x9C\xE6\x98\x8E");  // 夜明
    const Bytes b = image.build();
    EXPECT_EQ((std::u16string{0x591C, 0x660E}), stringAt(b, at));
    EXPECT_EQ((Bytes{0x1C, 0x59, 0x0E, 0x66}),
              Bytes(b.begin() + image.stringBase() + 2, b.begin() + image.stringBase() + 6));
}

TEST(DbImageBuilderTest, AddStringUnits_WritesUnitsUnchangedEvenUnpairedSurrogates) {
    DbImageBuilder image;
    const uint32_t at = image.addStringUnits(std::u16string{0xD800, u'a', 0x0000, 0xFFFF});
    const Bytes b = image.build();
    const size_t entry = image.stringBase() + at;
    EXPECT_EQ((Bytes{4, 0, 0x00, 0xD8, 'a', 0, 0, 0, 0xFF, 0xFF}),
              Bytes(b.begin() + entry, b.begin() + entry + 10));
}

TEST(DbImageBuilderTest, AddStringUnits_1023Units_DeclaresExactly1023) {
    DbImageBuilder image;
    const uint32_t at = image.addStringUnits(std::u16string(1023, u'z'));
    EXPECT_EQ(2u + 2046u, image.nextStringOffset());
    const Bytes b = image.build();
    EXPECT_EQ(1023u, le16(b, image.stringBase() + at));
    EXPECT_EQ(std::u16string(1023, u'z'), stringAt(b, at));
}

TEST(DbImageBuilderTest, AddRawStringEntry_DeclaredLengthIsWrittenWhateverFollows) {
    DbImageBuilder image;
    const uint32_t first = image.addRawStringEntry(1024, {'a', 0, 'b'});
    const uint32_t second = image.addString("c");
    EXPECT_EQ(0u, first);
    EXPECT_EQ(5u, second);  // the odd raw entry leaves the next one at an odd offset
    const Bytes b = image.build();
    const size_t base = image.stringBase();
    EXPECT_EQ((Bytes{0x00, 0x04, 'a', 0, 'b', 1, 0, 'c', 0}),
              Bytes(b.begin() + base, b.begin() + base + 9));
}

TEST(DbImageBuilderTest, SetStringAreaWord_ReplacesTheWordBeforeTheEntries) {
    DbImageBuilder image;
    image.addString("a");
    image.setStringAreaWord(0xCAFEF00D);
    const Bytes b = image.build();
    EXPECT_EQ(0xCAFEF00Du, le32(b, tableWord(b, Section::StringTable)));
    EXPECT_EQ(u"a", stringAt(b, 0));
}

// ---- Album track lists ----

TEST(DbImageBuilderTest, AddTrackList_ListsFollowTheAreaWordWithCountThenIds) {
    DbImageBuilder image;
    EXPECT_EQ(0u, image.addTrackList({11, 12, 13}));
    EXPECT_EQ(16u, image.addTrackList({}));
    EXPECT_EQ(20u, image.addTrackList({0x01020304}));
    const Bytes b = image.build();
    const uint32_t area = tableWord(b, Section::QuillAlbumTracks);
    EXPECT_EQ(area + 4, image.trackListBase());
    EXPECT_EQ(28u, le32(b, area));  // default word: bytes of the lists
    const size_t base = area + 4;
    EXPECT_EQ(3u, le32(b, base));
    EXPECT_EQ(11u, le32(b, base + 4));
    EXPECT_EQ(12u, le32(b, base + 8));
    EXPECT_EQ(13u, le32(b, base + 12));
    EXPECT_EQ(0u, le32(b, base + 16));
    EXPECT_EQ(1u, le32(b, base + 20));
    EXPECT_EQ((Bytes{0x04, 0x03, 0x02, 0x01}), Bytes(b.begin() + base + 24, b.begin() + base + 28));
}

TEST(DbImageBuilderTest, AddTrackListWithCount_CountSaysMoreThanTheEntriesPresent) {
    DbImageBuilder image;
    const uint32_t list = image.addTrackListWithCount(5, {21, 22});
    image.setTrackListAreaWord(0x55AA55AA);
    image.placeLast(Section::QuillAlbumTracks);
    const Bytes b = image.build();
    const size_t at = image.trackListBase() + list;
    EXPECT_EQ(0x55AA55AAu, le32(b, image.trackListBase() - 4));
    EXPECT_EQ(5u, le32(b, at));
    EXPECT_EQ(21u, le32(b, at + 4));
    EXPECT_EQ(22u, le32(b, at + 8));
    EXPECT_EQ(at + 12, b.size());  // the file ends after the second entry
}

// ---- Records ----

TEST(DbImageBuilderTest, AddToc_FieldsAtTheirOffsetsAfterTheHead) {
    DbImageBuilder image;
    moxdb::TocRecord first;
    first.Id = 0x11111111;
    first.AlbumId = 0x22222222;
    first.MediaNum = 0x3344;
    first.Unnamed = 0x5566;
    first.RudPictFolderPath = 0x77777777;
    first.RudArtFileName = 0x88888888;
    EXPECT_EQ(0u, image.addToc(first));
    moxdb::TocRecord second;
    second.Id = 2;
    EXPECT_EQ(1u, image.addToc(second));
    const Bytes b = image.build();
    const uint32_t at = tableWord(b, Section::QuillToc);
    EXPECT_EQ(8u + 40u, le32(b, at));
    EXPECT_EQ(20u, le16(b, at + 4));
    EXPECT_EQ(2u, le16(b, at + 6));
    EXPECT_EQ((Bytes{0x11, 0x11, 0x11, 0x11, 0x22, 0x22, 0x22, 0x22, 0x44, 0x33,
                     0x66, 0x55, 0x77, 0x77, 0x77, 0x77, 0x88, 0x88, 0x88, 0x88}),
              Bytes(b.begin() + at + 8, b.begin() + at + 28));
    EXPECT_EQ(2u, le32(b, at + 28));
    EXPECT_EQ(Bytes(16, 0), Bytes(b.begin() + at + 32, b.begin() + at + 48));
}

TEST(DbImageBuilderTest, AddAlbum_All21FieldsInOrder) {
    DbImageBuilder image;
    moxdb::AlbumRecord r;
    uint32_t* fields[] = {
        &r.Id,       &r.MediaNum, &r.MediaCount, &r.Title,      &r.TitleYomi, &r.Performer,
        &r.Composer, &r.Genre,    &r.Tracks,     &r.Confidence, &r.Language,  &r.ImageUrl,
        &r.Upc,      &r.RelYear,  &r.PickFlag,   &r.KeyTitle,   &r.Credits,   &r.FirstTrackByMedia,
        &r.Styles,   &r.Tones,    &r.Themas};
    for (uint32_t i = 0; i < 21; ++i) {
        *fields[i] = 0xA0000000 + i;
    }
    image.addAlbum(moxdb::AlbumRecord{});
    image.addAlbum(r);
    const Bytes b = image.build();
    const uint32_t at = tableWord(b, Section::QuillAlbum);
    EXPECT_EQ(8u + 2 * 84u, le32(b, at));
    EXPECT_EQ(84u, le16(b, at + 4));
    EXPECT_EQ(2u, le16(b, at + 6));
    EXPECT_EQ(std::vector<uint32_t>(21, 0), recordWords(b, Section::QuillAlbum, 84, 0, 21));
    EXPECT_EQ(sequence(0xA0000000, 21), recordWords(b, Section::QuillAlbum, 84, 1, 21));
}

TEST(DbImageBuilderTest, AddTrack_All18FieldsInOrder) {
    DbImageBuilder image;
    moxdb::TrackRecord r;
    uint32_t* fields[] = {&r.Id,        &r.Title,    &r.TitleYomi, &r.Performer,  &r.Composer,
                          &r.Genre,     &r.Time,     &r.Language,  &r.Confidence, &r.MediaNum,
                          &r.TrackNum,  &r.PickFlag, &r.KeyTitle,  &r.Work,       &r.Part,
                          &r.Conductor, &r.PerfDate, &r.CompDate};
    for (uint32_t i = 0; i < 18; ++i) {
        *fields[i] = 0xB0000000 + i;
    }
    image.addTrack(r);
    const Bytes b = image.build();
    const uint32_t at = tableWord(b, Section::QuillTrack);
    EXPECT_EQ(8u + 72u, le32(b, at));
    EXPECT_EQ(72u, le16(b, at + 4));
    EXPECT_EQ(1u, le16(b, at + 6));
    EXPECT_EQ(sequence(0xB0000000, 18), recordWords(b, Section::QuillTrack, 72, 0, 18));
}

TEST(DbImageBuilderTest, AddArtist_All11FieldsInOrder) {
    DbImageBuilder image;
    moxdb::ArtistRecord r;
    uint32_t* fields[] = {&r.Id,       &r.Name,  &r.NameYomi, &r.KeyName,        &r.Genre,
                          &r.Styles,   &r.Tones, &r.Themas,   &r.SimilarArtists, &r.Influences,
                          &r.Followers};
    for (uint32_t i = 0; i < 11; ++i) {
        *fields[i] = 0xC0000000 + i;
    }
    image.addArtist(r);
    const Bytes b = image.build();
    const uint32_t at = tableWord(b, Section::QuillArtist);
    EXPECT_EQ(8u + 44u, le32(b, at));
    EXPECT_EQ(44u, le16(b, at + 4));
    EXPECT_EQ(1u, le16(b, at + 6));
    EXPECT_EQ(sequence(0xC0000000, 11), recordWords(b, Section::QuillArtist, 44, 0, 11));
}

TEST(DbImageBuilderTest, AddGenre_IdThenName) {
    DbImageBuilder image;
    image.addGenre({0xD0000000, 0xD0000001});
    image.addGenre({5, 6});
    const Bytes b = image.build();
    const uint32_t at = tableWord(b, Section::QuillGenre);
    EXPECT_EQ(8u + 16u, le32(b, at));
    EXPECT_EQ(8u, le16(b, at + 4));
    EXPECT_EQ(2u, le16(b, at + 6));
    EXPECT_EQ(sequence(0xD0000000, 2), recordWords(b, Section::QuillGenre, 8, 0, 2));
    EXPECT_EQ((std::vector<uint32_t>{5, 6}), recordWords(b, Section::QuillGenre, 8, 1, 2));
}

TEST(DbImageBuilderTest, RecordAccessors_ChangesBeforeBuildAreWritten) {
    DbImageBuilder image;
    image.addAlbum(moxdb::AlbumRecord{});
    image.addTrack(moxdb::TrackRecord{});
    image.album(0).Confidence = 0xFFFFFFFF;
    image.track(0).MediaNum = 2;
    EXPECT_EQ(1u, image.albumCount());
    EXPECT_EQ(1u, image.trackCount());
    EXPECT_EQ(0u, image.tocCount());
    const Bytes b = image.build();
    EXPECT_EQ(0xFFFFFFFFu, recordWords(b, Section::QuillAlbum, 84, 0, 21)[9]);
    EXPECT_EQ(2u, recordWords(b, Section::QuillTrack, 72, 0, 18)[9]);
}

// ---- Head overrides ----

TEST(DbImageBuilderTest, SetRecordSize_TocAbove20_RecordsAtThatStrideWithPadding) {
    DbImageBuilder image;
    for (uint32_t i = 0; i < 3; ++i) {
        moxdb::TocRecord r;
        r.Id = 100 + i;
        r.AlbumId = 200 + i;
        image.addToc(r);
    }
    EXPECT_TRUE(image.setRecordSize(Section::QuillToc, 32));
    image.setTocPadByte(0xEE);
    const Bytes b = image.build();
    const uint32_t at = tableWord(b, Section::QuillToc);
    EXPECT_EQ(8u + 3 * 32u, le32(b, at));
    EXPECT_EQ(32u, le16(b, at + 4));
    EXPECT_EQ(3u, le16(b, at + 6));
    EXPECT_EQ(8u + 3 * 32u, image.sectionSpan(Section::QuillToc).size);
    for (uint32_t i = 0; i < 3; ++i) {
        const size_t rec = at + 8 + 32 * i;
        EXPECT_EQ(100 + i, le32(b, rec));
        EXPECT_EQ(200 + i, le32(b, rec + 4));
        EXPECT_EQ(Bytes(12, 0xEE), Bytes(b.begin() + rec + 20, b.begin() + rec + 32));
    }
}

TEST(DbImageBuilderTest, SetRecordSize_TocBelow20_OnlyTheHeadChanges) {
    DbImageBuilder image;
    moxdb::TocRecord r;
    r.Id = 1;
    image.addToc(r);
    r.Id = 2;
    image.addToc(r);
    image.setRecordSize(Section::QuillToc, 16);
    const Bytes b = image.build();
    const uint32_t at = tableWord(b, Section::QuillToc);
    EXPECT_EQ(16u, le16(b, at + 4));
    EXPECT_EQ(8u + 40u, le32(b, at));
    EXPECT_EQ(1u, le32(b, at + 8));
    EXPECT_EQ(2u, le32(b, at + 28));
}

TEST(DbImageBuilderTest, SetRecordSize_Album_OnlyTheHeadChanges) {
    DbImageBuilder image;
    moxdb::AlbumRecord r;
    r.Id = 1;
    image.addAlbum(r);
    r.Id = 2;
    image.addAlbum(r);
    EXPECT_TRUE(image.setRecordSize(Section::QuillAlbum, 100));
    const Bytes b = image.build();
    const uint32_t at = tableWord(b, Section::QuillAlbum);
    EXPECT_EQ(100u, le16(b, at + 4));
    EXPECT_EQ(8u + 2 * 84u, image.sectionSpan(Section::QuillAlbum).size);
    EXPECT_EQ(1u, le32(b, at + 8));
    EXPECT_EQ(2u, le32(b, at + 8 + 84));
}

TEST(DbImageBuilderTest, SetRecordCount_MoreOrFewerThanWritten_OnlyTheHeadChanges) {
    DbImageBuilder image;
    image.addTrack(moxdb::TrackRecord{});
    image.addTrack(moxdb::TrackRecord{});
    image.addGenre({4, 4});
    EXPECT_TRUE(image.setRecordCount(Section::QuillTrack, 7));
    EXPECT_TRUE(image.setRecordCount(Section::QuillGenre, 0));
    const Bytes b = image.build();
    const uint32_t tracks = tableWord(b, Section::QuillTrack);
    EXPECT_EQ(7u, le16(b, tracks + 6));
    EXPECT_EQ(8u + 2 * 72u, image.sectionSpan(Section::QuillTrack).size);
    const uint32_t genres = tableWord(b, Section::QuillGenre);
    EXPECT_EQ(0u, le16(b, genres + 6));
    EXPECT_EQ(4u, le32(b, genres + 8));  // the record is still there
}

TEST(DbImageBuilderTest, RecordCount_MoreThan65535Records_HeadSays65535AllWritten) {
    DbImageBuilder image;
    for (uint32_t i = 0; i < 65537; ++i) {
        image.addGenre({i, 0});
    }
    const Bytes b = image.build();
    const uint32_t at = tableWord(b, Section::QuillGenre);
    EXPECT_EQ(65535u, le16(b, at + 6));
    EXPECT_EQ(8u + 65537u * 8u, le32(b, at));
    EXPECT_EQ(65536u, le32(b, at + 8 + 65536 * 8));
}

TEST(DbImageBuilderTest, SetOwnSize_WritesTheHeadWordOnly) {
    DbImageBuilder image;
    image.addArtist(moxdb::ArtistRecord{});
    EXPECT_TRUE(image.setOwnSize(Section::QuillArtist, 0xFEEDBEEF));
    const Bytes b = image.build();
    const uint32_t at = tableWord(b, Section::QuillArtist);
    EXPECT_EQ(0xFEEDBEEFu, le32(b, at));
    EXPECT_EQ(44u, le16(b, at + 4));
    EXPECT_EQ(1u, le16(b, at + 6));
}

TEST(DbImageBuilderTest, HeadOverrides_OnSectionsWithoutHead_AreRefused) {
    DbImageBuilder image;
    const Bytes before = image.build();
    EXPECT_FALSE(image.setOwnSize(Section::StringTable, 1));
    EXPECT_FALSE(image.setRecordSize(Section::QuillAlbumTracks, 1));
    EXPECT_FALSE(image.setRecordCount(Section::RudTrack, 1));
    EXPECT_EQ(before, image.build());
}

// ---- Files ----

TEST(DbImageBuilderTest, WriteFile_CreatesParentsAndWritesTheBuiltBytes) {
    TestDir dir("dbwriter-write");
    DbImageBuilder image;
    image.addString("abc");
    const std::string path = dir.file("a/b/dbupdateresponse.dap3");
    std::string error = "untouched";
    ASSERT_TRUE(image.writeFile(path, &error));
    EXPECT_EQ("untouched", error);
    EXPECT_EQ(image.build(), TestDir::readFile(path));
    // A second write replaces the file.
    image.addString("defg");
    ASSERT_TRUE(image.writeFile(path, nullptr));
    EXPECT_EQ(image.build(), TestDir::readFile(path));
}

TEST(DbImageBuilderTest, WriteFile_ParentIsAFile_FailsWithAReason) {
    TestDir dir("dbwriter-fail");
    TestDir::writeFile(dir.file("plain"), {1});
    std::string error;
    EXPECT_FALSE(DbImageBuilder().writeFile(dir.file("plain/x.dap3"), &error));
    EXPECT_EQ(0u, error.find("cannot create directory " + dir.file("plain"))) << error;
    EXPECT_FALSE(DbImageBuilder().writeFile(dir.file("plain/x.dap3"), nullptr));
}

// ---- Byte helpers and damage ----

TEST(DbBytesTest, AppendAndPut_LowByteFirst) {
    Bytes b;
    moxdb::appendU16Le(b, 0x1234);
    moxdb::appendU32Le(b, 0x89ABCDEF);
    EXPECT_EQ((Bytes{0x34, 0x12, 0xEF, 0xCD, 0xAB, 0x89}), b);
    EXPECT_TRUE(moxdb::putU32Le(b, 2, 0x01020304));
    EXPECT_TRUE(moxdb::putU16Le(b, 0, 0xBEEF));
    EXPECT_EQ((Bytes{0xEF, 0xBE, 0x04, 0x03, 0x02, 0x01}), b);
    EXPECT_EQ(0x01020304u, moxdb::getU32Le(b, 2));
    EXPECT_EQ(0xBEEFu, moxdb::getU16Le(b, 0));
}

TEST(DbBytesTest, PutAndGet_OutsideTheBuffer_FailWithoutWriting) {
    Bytes b(5, 0x77);
    EXPECT_FALSE(moxdb::putU32Le(b, 2, 0));
    EXPECT_FALSE(moxdb::putU16Le(b, 4, 0));
    EXPECT_FALSE(moxdb::putU16Le(b, SIZE_MAX, 0));
    EXPECT_EQ(Bytes(5, 0x77), b);
    EXPECT_EQ(0u, moxdb::getU32Le(b, 2));
    EXPECT_EQ(0u, moxdb::getU16Le(b, 4));
    EXPECT_EQ(0x7777u, moxdb::getU16Le(b, 3));
}

TEST(DbBytesTest, AppendAndPutBe_HighByteFirst) {
    Bytes b;
    moxdb::appendU16Be(b, 0x1234);
    moxdb::appendU32Be(b, 0x89ABCDEF);
    EXPECT_EQ((Bytes{0x12, 0x34, 0x89, 0xAB, 0xCD, 0xEF}), b);
    EXPECT_TRUE(moxdb::putU32Be(b, 2, 0x01020304));
    EXPECT_TRUE(moxdb::putU16Be(b, 0, 0xBEEF));
    EXPECT_EQ((Bytes{0xBE, 0xEF, 0x01, 0x02, 0x03, 0x04}), b);
    EXPECT_EQ(0x01020304u, moxdb::getU32Be(b, 2));
    EXPECT_EQ(0xBEEFu, moxdb::getU16Be(b, 0));
}

TEST(DbBytesTest, PutAndGetBe_OutsideTheBuffer_FailWithoutWriting) {
    Bytes b(5, 0x77);
    EXPECT_FALSE(moxdb::putU32Be(b, 2, 0));
    EXPECT_FALSE(moxdb::putU16Be(b, 4, 0));
    EXPECT_FALSE(moxdb::putU32Be(b, SIZE_MAX, 0));
    EXPECT_EQ(Bytes(5, 0x77), b);
    EXPECT_EQ(0u, moxdb::getU32Be(b, 2));
    EXPECT_EQ(0u, moxdb::getU16Be(b, 4));
    EXPECT_EQ(0x7777u, moxdb::getU16Be(b, 3));
}

TEST(DbBytesTest, CutTo_KeepsThePrefixAndRefusesToGrow) {
    Bytes b{1, 2, 3, 4};
    EXPECT_FALSE(moxdb::cutTo(b, 5));
    EXPECT_EQ((Bytes{1, 2, 3, 4}), b);
    EXPECT_TRUE(moxdb::cutTo(b, 4));
    EXPECT_TRUE(moxdb::cutTo(b, 2));
    EXPECT_EQ((Bytes{1, 2}), b);
    EXPECT_TRUE(moxdb::cutTo(b, 0));
    EXPECT_TRUE(b.empty());
}

TEST(DbBytesTest, SetAndFlipByte_ChangeOneByteInside) {
    Bytes b{0x0F, 0x00, 0xAA};
    EXPECT_TRUE(moxdb::setByte(b, 1, 0x42));
    EXPECT_TRUE(moxdb::flipByte(b, 0));
    EXPECT_TRUE(moxdb::flipByte(b, 2, 0x01));
    EXPECT_EQ((Bytes{0xF0, 0x42, 0xAB}), b);
    EXPECT_FALSE(moxdb::setByte(b, 3, 0));
    EXPECT_FALSE(moxdb::flipByte(b, 3));
    EXPECT_EQ((Bytes{0xF0, 0x42, 0xAB}), b);
}

TEST(DbBytesTest, DamageOnABuiltImage_VersionByteAndCut) {
    DbImageBuilder image;
    image.addString("abc");
    Bytes b = image.build();
    ASSERT_TRUE(moxdb::setByte(b, 7, 0x02));  // top byte of Version
    EXPECT_EQ(0x02000000u, le32(b, 4));
    const size_t cut = image.stringBase() + 4;  // inside the first string's text
    ASSERT_TRUE(moxdb::cutTo(b, cut));
    EXPECT_EQ(cut, b.size());
    EXPECT_EQ(3u, le16(b, image.stringBase()));
}

TEST(DbBytesTest, Utf8ToUtf16_ValidTextOfEveryLength) {
    EXPECT_EQ(u"", moxdb::utf8ToUtf16(""));
    EXPECT_EQ(u"R&B", moxdb::utf8ToUtf16("R&B"));
    EXPECT_EQ((std::u16string{u'C', u'a', u'f', 0x00E9}), moxdb::utf8ToUtf16("Caf\xC3\xA9"));
    EXPECT_EQ((std::u16string{0x3055}), moxdb::utf8ToUtf16("\xE3\x81\x95"));
    EXPECT_EQ((std::u16string{0xD83C, 0xDF19}), moxdb::utf8ToUtf16("\xF0\x9F\x8C\x99"));
    EXPECT_EQ((std::u16string{0xDBFF, 0xDFFF}), moxdb::utf8ToUtf16("\xF4\x8F\xBF\xBF"));
}

TEST(DbBytesTest, Utf8ToUtf16_MalformedBytesBecomeReplacementCharacters) {
    const char16_t r = 0xFFFD;
    EXPECT_EQ((std::u16string{r, u'a'}), moxdb::utf8ToUtf16("\x80"
                                                            "a"));  // stray continuation
    EXPECT_EQ((std::u16string{r, u'a'}), moxdb::utf8ToUtf16("\xC3"
                                                            "a"));      // missing continuation
    EXPECT_EQ((std::u16string{r, r}), moxdb::utf8ToUtf16("\xE3\x81"));  // truncated at the end
    EXPECT_EQ((std::u16string{r, r}), moxdb::utf8ToUtf16("\xC0\xAF"));  // overlong '/'
    EXPECT_EQ((std::u16string{r, r, r}), moxdb::utf8ToUtf16("\xED\xA0\x80"));  // encoded surrogate
    EXPECT_EQ((std::u16string{r, r, r, r}), moxdb::utf8ToUtf16("\xF4\x90\x80\x80"));  // > U+10FFFF
    EXPECT_EQ((std::u16string{r}), moxdb::utf8ToUtf16("\xFF"));
}

// ---- TOC text ----

TEST(TocTextTest, MakeTocText_ThreeTracks_GivesTheDocumentedText) {
    EXPECT_EQ("0000960046E6008D3600D386", moxdb::makeTocText({0, 18000, 36000}, 54000));
}

TEST(TocTextTest, MakeTocText_SixUpperCaseDigitsPerEntryLeadOutLast) {
    const std::string text = moxdb::makeTocText({0, 1, 0xFFFF}, 0xFFFF69);
    EXPECT_EQ("000096000097010095FFFFFF", text);
    EXPECT_EQ(4u * 6u, text.size());
    EXPECT_EQ("000096", moxdb::makeTocText({}, 0));
}

TEST(TocTextTest, MakeTocText_OffsetAboveSixDigits_IsWrittenInFull) {
    EXPECT_EQ("1000000", moxdb::makeTocText({}, 0xFFFF6A));
    EXPECT_EQ("100000095", moxdb::makeTocText({}, 0xFFFFFFFF));
}

TEST(TocTextTest, ParseTocText_ThreeTracks_GivesTheFrameOffsetsLeadOutLast) {
    std::vector<uint32_t> offsets;
    ASSERT_TRUE(moxdb::parseTocText("0000960046E6008D3600D386", &offsets));
    EXPECT_EQ(offsets, (std::vector<uint32_t>{150, 18150, 36150, 54150}));
}

TEST(TocTextTest, ParseTocText_ReadsBackWhatMakeTocTextWrites) {
    for (uint32_t tracks : {1u, 2u, 99u}) {
        std::vector<uint32_t> offsets;
        ASSERT_TRUE(moxdb::parseTocText(moxdb::makeTocTextOfTracks(tracks), &offsets)) << tracks;
        ASSERT_EQ(offsets.size(), tracks + 1u);
        EXPECT_EQ(offsets.front(), 150u);
        EXPECT_EQ(offsets.back(), tracks * 15000u + 9000u + 150u);
    }
}

TEST(TocTextTest, ParseTocText_HighestSixDigitOffset_IsRead) {
    std::vector<uint32_t> offsets;
    ASSERT_TRUE(moxdb::parseTocText("000096FFFFFF", &offsets));
    EXPECT_EQ(offsets, (std::vector<uint32_t>{150, 0xFFFFFF}));
}

TEST(TocTextTest, ParseTocText_TextOfAnotherForm_IsRefusedAndLeavesTheOffsets) {
    const std::string hundredTracks = moxdb::makeTocTextOfTracks(100);
    for (const std::string& text : {
             std::string(""),              // no entry
             std::string("000096"),        // a lead-out without a track
             std::string("0000960046E"),   // not a multiple of six
             std::string("0000960046e6"),  // lower-case digit
             std::string("000096 046E6"),  // not a digit
             std::string("+00096046E60"),  // a sign
             std::string("0000950046E6"),  // an offset below 150
             std::string("0046E6000096"),  // offsets that decrease
             std::string("0046E60046E6"),  // offsets that repeat
             hundredTracks,                // more than 99 tracks
             std::string("000096\0"
                         "46E6",
                         12),  // a NUL
         }) {
        std::vector<uint32_t> offsets = {7};
        EXPECT_FALSE(moxdb::parseTocText(text, &offsets)) << text;
        EXPECT_EQ(offsets, (std::vector<uint32_t>{7})) << text;
    }
}
