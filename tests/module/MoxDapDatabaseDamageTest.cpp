// Damaged response databases, one table for the reader and the search: each
// entry damages one part of a stored database (removes the file, cuts it or
// writes bytes at an offset into the part) and says exactly where the read
// steps of a search stop and what they log. The reader's steps must log just
// that; the search must log the same and one line of its own, and leave the
// caller's album list as it was.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <list>
#include <ostream>
#include <string>
#include <vector>

#include "AlbumIds.h"
#include "CatalogueAlbum.h"
#include "DbgCapture.h"
#include "MoxDbWriter.h"
#include "ReaderMessages.h"
#include "StoredDatabaseFixture.h"
#include "private/MoxDapDatabase.h"

namespace {

using moxtest::Msgs;
using moxtest::take;

// The part of the database that a damage lies in; its offset counts from
// the part's first byte.
enum class Part { Header, SectionTable, TocSection };

// What a damage does to the stored bytes.
enum class Harm {
    RemoveFile,  // no database at all
    CutAt,       // keep the bytes before the offset
    Write,       // overwrite the bytes at the offset
};

// The read step of a search that fails; None when every step succeeds.
enum class Step { None, Open, Header, Version, Table, TocList };

struct Damage {
    const char* name;  // the case's name in the test list
    Harm harm;
    Part part;
    size_t offset;
    moxdb::Bytes bytes;  // written, for Harm::Write
    Step failsAt;
    Msgs logged;             // what the reader's steps log
    const char* searchLine;  // what the search adds when it fails (nullptr: it succeeds)
};

void PrintTo(const Damage& damage, std::ostream* out) {
    *out << damage.name;
}

std::string caseName(const ::testing::TestParamInfo<Damage>& info) {
    return info.param.name;
}

moxdb::Bytes le32(uint32_t value) {
    moxdb::Bytes out;
    moxdb::appendU32Le(out, value);
    return out;
}

const Msgs kNoFile = {{"openSearchResultFile", "search result file open error.\n"}};
const Msgs kHeaderEnds = {{"dapFread", "eof error.\n"}, {"getDbHeader", "read error.\n"}};
const Msgs kTableEnds = {{"dapFread", "eof error.\n"}, {"getDbToc", "read error.\n"}};
const Msgs kUnknownVersion = {{"judgeDapDbVer", "unknown version.\n"}};
const Msgs kTocListEnds = {{"dapFread", "eof error.\n"}, {"getQuillTocList", "read error.\n"}};
const Msgs kTocRecordEnds = {{"dapFread", "eof error.\n"},
                             {"getQuillTocList", "read error i=1.\n"}};

const size_t kVersionAt = 4;   // the version word in the header
const size_t kTocWordAt = 52;  // the TOC section's word (word 13) in the section table
const size_t kTocCountAt = 6;  // the record count in the TOC section's head

Damage removeFile(const char* name, Step failsAt, const Msgs& logged, const char* searchLine) {
    return Damage{name, Harm::RemoveFile, Part::Header, 0, {}, failsAt, logged, searchLine};
}

Damage cutAt(const char* name, Part part, size_t offset, Step failsAt, const Msgs& logged,
             const char* searchLine) {
    return Damage{name, Harm::CutAt, part, offset, {}, failsAt, logged, searchLine};
}

Damage writeAt(const char* name, Part part, size_t offset, const moxdb::Bytes& bytes, Step failsAt,
               const Msgs& logged, const char* searchLine) {
    return Damage{name, Harm::Write, part, offset, bytes, failsAt, logged, searchLine};
}

const std::vector<Damage> kDamages = {
    removeFile("FileMissing", Step::Open, kNoFile, "openSearchResultFile error.\n"),
    cutAt("HeaderCutAt0", Part::Header, 0, Step::Header, kHeaderEnds, "getDbHeader error.\n"),
    cutAt("HeaderCutAt10", Part::Header, 10, Step::Header, kHeaderEnds, "getDbHeader error.\n"),
    cutAt("HeaderCutAt63", Part::Header, 63, Step::Header, kHeaderEnds, "getDbHeader error.\n"),
    cutAt("SectionTableCutAt0", Part::SectionTable, 0, Step::Table, kTableEnds,
          "getDbToc error.\n"),
    cutAt("SectionTableCutAt36", Part::SectionTable, 36, Step::Table, kTableEnds,
          "getDbToc error.\n"),
    cutAt("SectionTableCutAt59", Part::SectionTable, 59, Step::Table, kTableEnds,
          "getDbToc error.\n"),
    writeAt("KnownVersion00000000", Part::Header, kVersionAt, le32(0x00000000u), Step::None, {},
            nullptr),
    writeAt("KnownVersion00000005", Part::Header, kVersionAt, le32(0x00000005u), Step::None, {},
            nullptr),
    writeAt("KnownVersion01000000", Part::Header, kVersionAt, le32(0x01000000u), Step::None, {},
            nullptr),
    writeAt("KnownVersion01FFFFFF", Part::Header, kVersionAt, le32(0x01FFFFFFu), Step::None, {},
            nullptr),
    writeAt("KnownVersion10000000", Part::Header, kVersionAt, le32(0x10000000u), Step::None, {},
            nullptr),
    writeAt("UnknownVersion02000000", Part::Header, kVersionAt, le32(0x02000000u), Step::Version,
            kUnknownVersion, "judgeDapDbVer error.\n"),
    writeAt("UnknownVersion0F000000", Part::Header, kVersionAt, le32(0x0F000000u), Step::Version,
            kUnknownVersion, "judgeDapDbVer error.\n"),
    writeAt("UnknownVersion10000001", Part::Header, kVersionAt, le32(0x10000001u), Step::Version,
            kUnknownVersion, "judgeDapDbVer error.\n"),
    writeAt("UnknownVersion11000000", Part::Header, kVersionAt, le32(0x11000000u), Step::Version,
            kUnknownVersion, "judgeDapDbVer error.\n"),
    writeAt("UnknownVersionFF000000", Part::Header, kVersionAt, le32(0xFF000000u), Step::Version,
            kUnknownVersion, "judgeDapDbVer error.\n"),
    // The TOC section lies last (see the fixture): its second record would
    // lie past the end.
    writeAt("TocRecordCountPastTheEnd", Part::TocSection, kTocCountAt, {0x02, 0x00}, Step::TocList,
            kTocRecordEnds, "getQuillTocList error.\n"),
    writeAt("TocSectionWordPastTheEnd", Part::SectionTable, kTocWordAt, le32(0x00F00000u),
            Step::TocList, kTocListEnds, "getQuillTocList error.\n"),
};

class MoxDapDatabaseDamageTest : public StoredDatabaseFixture,
                                 public ::testing::WithParamInterface<Damage> {
protected:
    // One album "A" of one track, found by kToc; the TOC section lies last.
    MoxDapDatabaseDamageTest() : toc(moxdb::makeTocTextOfTracks(1)) {
        cat.addToc(toc, moxtest::addAlbum(cat, "A", 1, 1), 1);
        cat.image().placeLast(moxdb::Section::QuillToc);
    }

    uint32_t partStart(Part part) const {
        switch (part) {
            case Part::Header:
                return 0;
            case Part::SectionTable:
                return moxdb::kHeaderSize;
            case Part::TocSection:
                return cat.image().sectionWord(moxdb::Section::QuillToc);
        }
        return 0;
    }

    // Stores the database with the case's damage, as leveldb's corruption
    // test does: at an offset into one part of it.
    void storeDamaged() {
        const Damage& damage = GetParam();
        moxdb::Bytes bytes = cat.build();
        const size_t at = partStart(damage.part) + damage.offset;
        switch (damage.harm) {
            case Harm::RemoveFile:
                removeResultFile();
                return;
            case Harm::CutAt:
                ASSERT_TRUE(moxdb::cutTo(bytes, at));
                break;
            case Harm::Write:
                for (size_t i = 0; i < damage.bytes.size(); ++i) {
                    ASSERT_TRUE(moxdb::setByte(bytes, at + i, damage.bytes[i]));
                }
                break;
        }
        store(bytes);
    }

    bool succeeds() const { return GetParam().failsAt == Step::None; }

    // The section table has been read: the string base comes from it.
    bool tableRead() const { return succeeds() || GetParam().failsAt == Step::TocList; }

    const std::string toc;
    moxdb::CatalogueBuilder cat;
};

TEST_P(MoxDapDatabaseDamageTest, ReadSteps_StopAtTheDamageWithItsMessages) {
    ASSERT_NO_FATAL_FAILURE(storeDamaged());
    db->mStringBase = 77;
    DbgCapture capture;
    std::vector<QuillTocRec> list;
    const bool ok = load() && db->getQuillTocList(toc, &list);
    EXPECT_EQ(ok, succeeds());
    EXPECT_EQ(take(capture), GetParam().logged);
    if (ok) {
        EXPECT_NE(db->mpReadFile, nullptr);
        EXPECT_EQ(list.size(), 1u);
    } else {
        EXPECT_TRUE(isClosed());
    }
    EXPECT_EQ(db->mStringBase, tableRead() ? cat.image().stringBase() : 77u);
}

TEST_P(MoxDapDatabaseDamageTest, GetSearchResult_LogsTheReadersMessagesAndOneLineOfItsOwn) {
    ASSERT_NO_FATAL_FAILURE(storeDamaged());
    HbSMoxDef::AlbumInfo caller;
    caller.AlbumId = "CALLER";
    std::list<HbSMoxDef::AlbumInfo> albums{caller};
    DbgCapture capture;
    const bool found = db->getSearchResult(toc, &albums);
    EXPECT_EQ(found, succeeds());
    Msgs expected = GetParam().logged;
    if (!succeeds()) {
        expected.push_back({"getSearchResult", GetParam().searchLine});
    }
    EXPECT_EQ(take(capture), expected);
    EXPECT_EQ(moxtest::albumIds(albums), (std::vector<std::string>{succeeds() ? "A" : "CALLER"}));
    expectClosed();
}

INSTANTIATE_TEST_SUITE_P(Damages, MoxDapDatabaseDamageTest, ::testing::ValuesIn(kDamages),
                         caseName);

}  // namespace
