// The tools' whole-image reader, on images made with the writer: the walk's
// order, the place of records and strings as the module computes them, and
// the reason given for each structure that does not lie inside.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "MoxDbWriter.h"

using moxdb::Bytes;
using moxdb::DbImageBuilder;
using moxdb::DbImageReader;
using moxdb::ImageFault;
using moxdb::Section;
using moxdb::SectionHead;

namespace {

const char* const kToc = "0000960046E6008D3600D386";

// Writes down every visit as one line, in order.
class VisitLog : public moxdb::ImageVisitor {
public:
    void header(const Bytes& bytes) override { add("header " + std::to_string(bytes.size())); }
    void table(const Bytes& bytes) override { add("table " + std::to_string(bytes.size())); }
    void head(Section section, const SectionHead& head) override {
        add(std::string(DbImageReader::nameOf(section)) + " head " +
            std::to_string(head.recordCount) + "x" + std::to_string(head.recordSize));
    }
    void record(Section section, uint32_t index, const Bytes& bytes) override {
        add(std::string(DbImageReader::nameOf(section)) + " record " + std::to_string(index) + " " +
            std::to_string(bytes.size()));
    }
    void text(const moxdb::RecordText& text, const std::u16string& units) override {
        add(std::string("  ") + text.field + " " + std::string(units.begin(), units.end()));
    }

    std::vector<std::string> lines;

private:
    void add(const std::string& line) { lines.push_back(line); }
};

// One album of one track with its TOC, artist and genre.
DbImageBuilder oneAlbum() {
    DbImageBuilder image;
    moxdb::TocRecord toc;
    toc.Id = image.addString(kToc);
    toc.AlbumId = image.addString("A1");
    toc.MediaNum = 1;
    image.addToc(toc);
    moxdb::AlbumRecord album;
    album.Id = toc.AlbumId;
    album.Title = image.addString("Roads");
    album.Genre = image.addString("G7");
    album.Language = image.addString("en");
    album.Tracks = image.addTrackList({5});
    image.addAlbum(album);
    moxdb::TrackRecord track;
    track.Id = 5;
    track.Title = image.addString("Dawn");
    image.addTrack(track);
    moxdb::ArtistRecord artist;
    artist.Name = image.addString("Band");
    image.addArtist(artist);
    moxdb::GenreRecord genre;
    genre.Id = album.Genre;
    image.addGenre(genre);
    return image;
}

// What the reader makes of the string at string offset `at` of the built image.
struct StringRead {
    bool ok = false;
    std::u16string units;
    ImageFault fault;
};

StringRead readString(const DbImageBuilder& image, uint32_t at) {
    const Bytes bytes = image.build();
    StringRead read;
    read.ok = DbImageReader(bytes).string("Title string", at, &read.units, &read.fault);
    return read;
}

}  // namespace

TEST(MoxDbImageReaderTest, Walk_VisitsHeaderTableThenEachSectionsHeadRecordsAndTexts) {
    const Bytes bytes = oneAlbum().build();
    VisitLog log;
    ImageFault fault;
    EXPECT_TRUE(DbImageReader(bytes).walk(log, true, &fault)) << fault.line();
    EXPECT_EQ(log.lines, (std::vector<std::string>{"header 64",
                                                   "table 60",
                                                   "QuillToc head 1x20",
                                                   "QuillToc record 0 20",
                                                   "  Id " + std::string(kToc),
                                                   "QuillAlbum head 1x84",
                                                   "QuillAlbum record 0 84",
                                                   "  Id A1",
                                                   "  Title Roads",
                                                   "  Genre G7",
                                                   "  Language en",
                                                   "QuillTrack head 1x72",
                                                   "QuillTrack record 0 72",
                                                   "  Title Dawn",
                                                   "QuillArtist head 1x44",
                                                   "QuillArtist record 0 44",
                                                   "  Name Band",
                                                   "QuillGenre head 1x8",
                                                   "QuillGenre record 0 8",
                                                   "  Id G7"}));
}

TEST(MoxDbImageReaderTest, Walk_WithoutTexts_ResolvesNoString) {
    DbImageBuilder image = oneAlbum();
    image.album(0).Title = 0x7FFFFFF0;  // far outside
    const Bytes bytes = image.build();
    VisitLog log;
    ImageFault fault;
    EXPECT_TRUE(DbImageReader(bytes).walk(log, false, &fault)) << fault.line();
    EXPECT_EQ(log.lines.size(), 12u);
    EXPECT_FALSE(DbImageReader(bytes).walk(log, true, &fault));
    EXPECT_EQ(fault.what, "QuillAlbum record 0 Title string");
}

TEST(MoxDbImageReaderTest, Walk_EmptyImage_FailsAtTheHeaderAndVisitsNothing) {
    const Bytes bytes;
    VisitLog log;
    ImageFault fault;
    EXPECT_FALSE(DbImageReader(bytes).walk(log, true, &fault));
    EXPECT_EQ(fault.line(), "header at offset 0: file ends after 0 bytes");
    EXPECT_TRUE(log.lines.empty());
}

TEST(MoxDbImageReaderTest, Walk_CutInsideTheTable_KeepsTheHeaderVisited) {
    Bytes bytes = oneAlbum().build();
    ASSERT_TRUE(moxdb::cutTo(bytes, 100));
    VisitLog log;
    ImageFault fault;
    EXPECT_FALSE(DbImageReader(bytes).walk(log, true, &fault));
    EXPECT_EQ(fault.line(), "section table at offset 64: file ends after 100 bytes");
    EXPECT_EQ(log.lines, (std::vector<std::string>{"header 64"}));
}

TEST(MoxDbImageReaderTest, Walk_HeadPastTheEnd_NamesTheSectionAndItsWord) {
    DbImageBuilder image = oneAlbum();
    image.setSectionWord(Section::QuillTrack, 900000);
    const Bytes bytes = image.build();
    VisitLog log;
    ImageFault fault;
    EXPECT_FALSE(DbImageReader(bytes).walk(log, false, &fault));
    EXPECT_EQ(fault.line(), "QuillTrack head at offset 900000: file ends after " +
                                std::to_string(bytes.size()) + " bytes");
    EXPECT_EQ(log.lines.back(), "QuillAlbum record 0 84");
}

TEST(MoxDbImageReaderTest, Walk_CountBeyondTheRecords_StopsAtTheFirstMissingRecord) {
    DbImageBuilder image = oneAlbum();
    image.setRecordCount(Section::QuillGenre, 3);
    image.placeLast(Section::QuillGenre);
    const Bytes bytes = image.build();
    VisitLog log;
    ImageFault fault;
    EXPECT_FALSE(DbImageReader(bytes).walk(log, false, &fault));
    EXPECT_EQ(fault.what, "QuillGenre record 1");
    EXPECT_EQ(fault.offset, image.sectionWord(Section::QuillGenre) + 8u + 8u);
    EXPECT_EQ(log.lines.back(), "QuillGenre record 0 8");
}

TEST(MoxDbImageReaderTest, RecordOffset_TocStepsByTheHeadsRecordSizeIn32Bits) {
    DbImageBuilder image = oneAlbum();
    image.setRecordSize(Section::QuillToc, 32);
    const Bytes bytes = image.build();
    const DbImageReader reader(bytes);
    const uint32_t word = reader.tableWord(Section::QuillToc);
    SectionHead head;
    head.recordSize = 32;
    EXPECT_EQ(reader.recordOffset(Section::QuillToc, head, 2), word + 8u + 64u);
    head.recordSize = 0xFFFF;
    EXPECT_EQ(reader.recordOffset(Section::QuillToc, head, 0x10001),
              static_cast<uint32_t>(word + 8u + 0x10001u * 0xFFFFu));
}

TEST(MoxDbImageReaderTest, RecordOffset_OtherFamiliesLieAtTheirFixedSizeWhateverTheHead) {
    const Bytes bytes = oneAlbum().build();
    const DbImageReader reader(bytes);
    SectionHead head;
    head.recordSize = 1;
    EXPECT_EQ(reader.recordOffset(Section::QuillAlbum, head, 3),
              reader.tableWord(Section::QuillAlbum) + 8u + 3u * 84u);
    EXPECT_EQ(reader.recordOffset(Section::QuillGenre, head, 0xFFFFFFFFu),
              uint64_t{reader.tableWord(Section::QuillGenre)} + 8u + 0xFFFFFFFFull * 8u);
}

TEST(MoxDbImageReaderTest, String_GivesEveryUnitZerosIncluded) {
    DbImageBuilder image;
    const uint32_t at = image.addStringUnits(std::u16string(u"a\0b", 3));
    const StringRead read = readString(image, at);
    ASSERT_TRUE(read.ok) << read.fault.line();
    EXPECT_EQ(read.units, std::u16string(u"a\0b", 3));
}

TEST(MoxDbImageReaderTest, String_LengthAbove1023_IsRefusedWithItsLength) {
    DbImageBuilder image;
    const uint32_t at = image.addRawStringEntry(1024, Bytes(2048, 'x'));
    const StringRead read = readString(image, at);
    EXPECT_FALSE(read.ok);
    EXPECT_EQ(read.fault.line(), "Title string at offset " +
                                     std::to_string(image.stringBase() + at) +
                                     ": length 1024 is not below 1024");
}

TEST(MoxDbImageReaderTest, String_Length1023_IsRead) {
    DbImageBuilder image;
    const uint32_t at = image.addRawStringEntry(1023, Bytes(2046, 'x'));
    const StringRead read = readString(image, at);
    ASSERT_TRUE(read.ok) << read.fault.line();
    EXPECT_EQ(read.units, std::u16string(1023, u'\x7878'));
}

TEST(MoxDbImageReaderTest, String_UnitsPastTheEnd_NameTheOffsetOfTheUnits) {
    Bytes bytes = DbImageBuilder().build();
    const DbImageReader reader(bytes);
    // A count of 5 in the last two bytes of the image.
    const uint32_t at = static_cast<uint32_t>(bytes.size() - 2 - reader.stringOffset(0));
    ASSERT_TRUE(moxdb::putU16Le(bytes, bytes.size() - 2, 5));
    std::u16string units;
    ImageFault fault;
    EXPECT_FALSE(reader.string("s", at, &units, &fault));
    EXPECT_EQ(fault.line(), "s at offset " + std::to_string(bytes.size()) + ": file ends after " +
                                std::to_string(bytes.size()) + " bytes");
}

TEST(MoxDbImageReaderTest, StringOffset_WrapsIn32BitsAsTheModuleComputesIt) {
    const Bytes bytes = DbImageBuilder().build();
    const DbImageReader reader(bytes);
    const uint32_t area = reader.tableWord(Section::StringTable);
    EXPECT_EQ(reader.stringOffset(0), area + 4u);
    EXPECT_EQ(reader.stringOffset(0xFFFFFFFFu - area - 4u + 1u + 16u), 16u);
}

TEST(MoxDbImageReaderTest, LenientReads_OutsideTheImage_GiveZero) {
    Bytes bytes = {0x01, 0x02, 0x03, 0x04, 0x05};
    const DbImageReader reader(bytes);
    EXPECT_EQ(reader.u32(0), 0x04030201u);
    EXPECT_EQ(reader.u32(1), 0x05040302u);
    EXPECT_EQ(reader.u32(2), 0u);
    EXPECT_EQ(reader.u16(3), 0x0504u);
    EXPECT_EQ(reader.u16(4), 0u);
    EXPECT_EQ(reader.u32(0xFFFFFFFFFFFFFFFFull), 0u);
    EXPECT_EQ(reader.lastWord(), 0x05040302u);
    EXPECT_EQ(reader.tableWord(Section::QuillToc), 0u);
    EXPECT_EQ(DbImageReader(Bytes{1, 2, 3}).lastWord(), 0u);
}

TEST(MoxDbImageReaderTest, Read_RangeOverTheEnd_FailsWithoutCopying) {
    const Bytes bytes(10, 0xAB);
    const DbImageReader reader(bytes);
    Bytes out = {1};
    ImageFault fault;
    EXPECT_TRUE(reader.read("all", 0, 10, &out, &fault));
    EXPECT_EQ(out, bytes);
    out = {1};
    EXPECT_FALSE(reader.read("one more", 5, 6, &out, &fault));
    EXPECT_EQ(out, Bytes{1});
    EXPECT_EQ(fault.line(), "one more at offset 5: file ends after 10 bytes");
    EXPECT_FALSE(reader.read("far", 0xFFFFFFFFFFFFFFF0ull, 32, &out, &fault));
    EXPECT_EQ(fault.offset, 0xFFFFFFFFFFFFFFF0ull);
}

TEST(MoxDbImageReaderTest, TextsOf_EachFamily_NamesTheFieldsTheModuleResolves) {
    DbImageBuilder image = oneAlbum();
    const Bytes bytes = image.build();
    const DbImageReader reader(bytes);
    auto fields = [&](Section section) {
        SectionHead head;
        ImageFault fault;
        Bytes record;
        EXPECT_TRUE(reader.head(section, &head, &fault));
        EXPECT_TRUE(reader.record(section, head, 0, &record, &fault));
        std::vector<std::string> out;
        for (const moxdb::RecordText& text : DbImageReader::textsOf(section, record)) {
            out.push_back(std::string(text.field) + "=" + std::to_string(text.offset));
        }
        return out;
    };
    const moxdb::AlbumRecord& album = image.album(0);
    EXPECT_EQ(fields(Section::QuillToc),
              (std::vector<std::string>{"Id=" + std::to_string(image.toc(0).Id)}));
    EXPECT_EQ(
        fields(Section::QuillAlbum),
        (std::vector<std::string>{
            "Id=" + std::to_string(album.Id), "Title=" + std::to_string(album.Title),
            "Genre=" + std::to_string(album.Genre), "Language=" + std::to_string(album.Language)}));
    EXPECT_EQ(fields(Section::QuillTrack),
              (std::vector<std::string>{"Title=" + std::to_string(image.track(0).Title)}));
    EXPECT_EQ(fields(Section::QuillArtist),
              (std::vector<std::string>{"Name=" + std::to_string(image.artist(0).Name)}));
    EXPECT_EQ(fields(Section::QuillGenre),
              (std::vector<std::string>{"Id=" + std::to_string(image.genre(0).Id)}));
    EXPECT_TRUE(DbImageReader::textsOf(Section::StringTable, Bytes(8, 0)).empty());
}

TEST(MoxDbImageReaderTest, NameOf_AndRecordSizeOf_FollowTheTable) {
    EXPECT_STREQ(DbImageReader::nameOf(Section::RudTrack), "RudTrack");
    EXPECT_STREQ(DbImageReader::nameOf(Section::QuillTrackIndices), "QuillTrackIndices");
    EXPECT_EQ(moxdb::recordSizeOf(Section::QuillToc), 20u);
    EXPECT_EQ(moxdb::recordSizeOf(Section::QuillAlbum), 84u);
    EXPECT_EQ(moxdb::recordSizeOf(Section::QuillTrack), 72u);
    EXPECT_EQ(moxdb::recordSizeOf(Section::QuillArtist), 44u);
    EXPECT_EQ(moxdb::recordSizeOf(Section::QuillGenre), 8u);
    EXPECT_EQ(moxdb::recordSizeOf(Section::StringList), 0u);
}
