// DbRendering, the renderings of `mox dump`, against the module's own
// renderings (MoxDapDatabase::getStr...) of the same bytes, byte for byte:
// for each structure of the sample database and for patterned bytes that set
// every field to a distinct value (the top bit included).
#include "DbRendering.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "moxdb/CatalogueBuilder.h"
#include "moxdb/DbImageReader.h"
#include "private/MoxDapDatabase.h"
#include "private/MoxDbRecords.h"

namespace {

using moxdb::Section;

template <class Structure>
Structure structureOf(const moxdb::Bytes& bytes) {
    Structure structure{};
    std::memcpy(&structure, bytes.data(), sizeof(structure));
    return structure;
}

// `size` bytes, byte i holding `seed` + 37 i (so every field differs and
// many have their top bit set).
moxdb::Bytes patterned(size_t size, uint8_t seed) {
    moxdb::Bytes bytes;
    for (size_t i = 0; i < size; ++i) {
        bytes.push_back(static_cast<uint8_t>(seed + 37 * i));
    }
    return bytes;
}

template <class Rec>
std::string moduleRecord(std::string (MoxDapDatabase::*rendering)(Rec&),
                         const moxdb::Bytes& bytes) {
    Rec rec = structureOf<Rec>(bytes);
    return (MoxDapDatabase::GetInstance()->*rendering)(rec);
}

std::string moduleRecord(Section section, const moxdb::Bytes& bytes) {
    switch (section) {
        case Section::QuillToc:
            return moduleRecord(&MoxDapDatabase::getStrTocRec, bytes);
        case Section::QuillAlbum:
            return moduleRecord(&MoxDapDatabase::getStrAlbumRec, bytes);
        case Section::QuillTrack:
            return moduleRecord(&MoxDapDatabase::getStrTrackRec, bytes);
        case Section::QuillArtist:
            return moduleRecord(&MoxDapDatabase::getStrArtistRec, bytes);
        default:
            return moduleRecord(&MoxDapDatabase::getStrGenreRec, bytes);
    }
}

// The module renders the header and the table from its loaded copies.
std::string moduleHeader(const moxdb::Bytes& bytes) {
    MoxDapDatabase* db = MoxDapDatabase::GetInstance();
    db->init();
    db->mpDbHeader = new DbHeader(structureOf<DbHeader>(bytes));
    const std::string out = db->getStrDbHeader();
    db->init();
    return out;
}

std::string moduleTable(const moxdb::Bytes& bytes) {
    MoxDapDatabase* db = MoxDapDatabase::GetInstance();
    db->init();
    db->mpDbToc = new DbToc(structureOf<DbToc>(bytes));
    const std::string out = db->getStrDbToc();
    db->init();
    return out;
}

// Compares every structure a walk of the image meets.
class Comparer : public moxdb::ImageVisitor {
public:
    void header(const moxdb::Bytes& bytes) override {
        EXPECT_EQ(DbRendering::header(bytes), moduleHeader(bytes));
        ++compared;
    }
    void table(const moxdb::Bytes& bytes) override {
        EXPECT_EQ(DbRendering::table(bytes), moduleTable(bytes));
        ++compared;
    }
    void head(Section section, const moxdb::SectionHead& head) override {
        QuillHead quillHead{head.ownSize, head.recordSize, head.recordCount};
        EXPECT_EQ(DbRendering::head(head),
                  MoxDapDatabase::GetInstance()->getStrQuillHead(quillHead))
            << moxdb::DbImageReader::nameOf(section);
        ++compared;
    }
    void record(Section section, uint32_t index, const moxdb::Bytes& bytes) override {
        EXPECT_EQ(DbRendering::record(section, bytes), moduleRecord(section, bytes))
            << moxdb::DbImageReader::nameOf(section) << " " << index;
        ++compared;
    }
    void text(const moxdb::RecordText&, const std::u16string&) override {}

    int compared = 0;
};

TEST(DbRenderingTest, SampleStructures_RenderAsTheModuleRendersThem) {
    const moxdb::Bytes image = moxdb::CatalogueBuilder::makeSample().build();
    Comparer comparer;
    moxdb::ImageFault fault;
    ASSERT_TRUE(moxdb::DbImageReader(image).walk(comparer, false, &fault)) << fault.line();
    EXPECT_GT(comparer.compared, 20);
}

TEST(DbRenderingTest, PatternedHeaderAndTable_RenderAsTheModuleRendersThem) {
    for (uint8_t seed : {0, 1, 0x80, 0xFF}) {
        const moxdb::Bytes header = patterned(moxdb::kHeaderSize, seed);
        EXPECT_EQ(DbRendering::header(header), moduleHeader(header)) << int(seed);
        const moxdb::Bytes table = patterned(moxdb::kTableSize, seed);
        EXPECT_EQ(DbRendering::table(table), moduleTable(table)) << int(seed);
    }
}

TEST(DbRenderingTest, PatternedRecords_RenderAsTheModuleRendersThem) {
    for (Section section : moxdb::DbImageReader::recordSections()) {
        for (uint8_t seed : {0, 3, 0x80, 0xFF}) {
            const moxdb::Bytes bytes = patterned(moxdb::recordSizeOf(section), seed);
            EXPECT_EQ(DbRendering::record(section, bytes), moduleRecord(section, bytes))
                << moxdb::DbImageReader::nameOf(section) << " " << int(seed);
        }
    }
}

TEST(DbRenderingTest, HeadExtremes_RenderAsTheModuleRendersThem) {
    for (const moxdb::SectionHead& head :
         {moxdb::SectionHead{0, 0, 0}, moxdb::SectionHead{0xFFFFFFFFu, 0xFFFF, 0xFFFF},
          moxdb::SectionHead{0x12345678u, 0x80, 0x8000}}) {
        QuillHead quillHead{head.ownSize, head.recordSize, head.recordCount};
        EXPECT_EQ(DbRendering::head(head),
                  MoxDapDatabase::GetInstance()->getStrQuillHead(quillHead));
    }
}

}  // namespace
