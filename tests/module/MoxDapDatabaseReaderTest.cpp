// Reader half of MoxDapDatabase: opening the stored answer, header, version,
// section table, strings, record lookups, album track lists and the one-line
// renderings. Fixtures are made with the response-database writer and stored
// at the module's result path.
#include <fcntl.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "DbgCapture.h"
#include "HbFramework/HbFileSys.h"
#include "HbFramework/HbFileSysHost.h"
#include "HbFramework/HbString.h"
#include "ProcessStats.h"
#include "ReaderMessages.h"
#include "StoredDatabaseFixture.h"
#include "moxdb/CatalogueBuilder.h"
#include "moxdb/DbBytes.h"
#include "moxdb/DbImageBuilder.h"
#include "private/MoxDapDatabase.h"

namespace {

using moxdb::Bytes;
using moxdb::Section;

using moxtest::Msg;
using moxtest::Msgs;
using moxtest::take;

const char* const SOURCE = moxtest::kReaderSource;

template <class T>
void fillPattern(T* value, unsigned char byte) {
    std::memset(static_cast<void*>(value), byte, sizeof(T));
}

template <class T>
bool allBytesAre(const T& value, unsigned char byte) {
    const unsigned char* p = reinterpret_cast<const unsigned char*>(&value);
    for (size_t i = 0; i < sizeof(T); ++i) {
        if (p[i] != byte) {
            return false;
        }
    }
    return true;
}

// The database most tests read: two genres, two artists, three tracks (the
// third on disc 2), two albums, two TOC records.
struct Catalogue {
    moxdb::CatalogueBuilder cat;
    uint32_t rock = 0, jazz = 0;
    uint32_t artist1 = 0, artist2 = 0;
    uint32_t track1 = 0, track2 = 0, track3 = 0;
    uint32_t album1 = 0, album2 = 0;
    uint32_t toc1 = 0, toc2 = 0;
};

Catalogue makeCatalogue() {
    Catalogue c;
    c.rock = c.cat.addGenre("ROCK");
    c.jazz = c.cat.addGenre("JAZZ");
    c.artist1 = c.cat.addArtist("Artist One");
    c.artist2 = c.cat.addArtist("Artist Two");
    c.track1 = c.cat.addTrack({"First", c.artist1, c.rock, 1, 1, 100});
    c.track2 = c.cat.addTrack({"Second", c.artist2, c.jazz, 1, 2, 200});
    c.track3 = c.cat.addTrack({"Third", c.artist1, c.rock, 2, 1, 300});
    c.album1 = c.cat.addAlbum(
        {"ALB-1", "Album One", "ROCK", "en", 90, 2, {c.track1, c.track2, c.track3}, 1});
    c.album2 = c.cat.addAlbum({"ALB-2", "Album Two", "JAZZ", "ja", 40, 1, {c.track2}, 1});
    c.toc1 = c.cat.addToc("0000960046E6008D3600D386", c.album1, 1);
    c.toc2 = c.cat.addToc("00009600623E00B82E011206", c.album2, 1);
    return c;
}

class MoxDapDatabaseReaderTest : public StoredDatabaseFixture {
protected:
    // Stores `bytes` as the result file and loads it; fails the test unless
    // every step succeeded without a message.
    void storeAndLoad(const Bytes& bytes) {
        StoredDatabaseFixture::storeAndLoad(bytes);
        if (HasFatalFailure()) {
            return;
        }
        ASSERT_EQ(take(capture), Msgs{});
    }

    DbgCapture capture;
};

// ---------------------------------------------------------------------------
// Construction, init, open

TEST_F(MoxDapDatabaseReaderTest, Constructor_StartsClosedWithTheEighteenGenreCodes) {
    EXPECT_TRUE(isClosed());
    EXPECT_EQ(db->mStringBase, 0u);
    const std::map<std::string, unsigned int> expected = {
        {"ROCK", 1},       {"COUNT", 2},   {"JAZZ", 3},        {"R&B", 4},   {"VOCAL", 5},
        {"WORLD", 6},      {"BLUES", 7},   {"ELEC", 8},        {"FOLK", 9},  {"OTHER", 10},
        {"CLASSICAL", 11}, {"DANCE", 12},  {"HIPHOP", 13},     {"JPOP", 14}, {"LATIN", 15},
        {"POP", 16},       {"REGGAE", 17}, {"SOUNDTRACK", 18},
    };
    EXPECT_EQ(db->mGenreMap, expected);
}

TEST_F(MoxDapDatabaseReaderTest, Init_WhenClosed_DoesNothingAndKeepsStringBase) {
    db->mStringBase = 1234;
    db->init();
    db->init();
    EXPECT_TRUE(isClosed());
    EXPECT_EQ(db->mStringBase, 1234u);
    EXPECT_EQ(take(capture), Msgs{});
}

TEST_F(MoxDapDatabaseReaderTest, Init_WhenLoaded_ClosesFileFreesBuffersKeepsStringBase) {
    Catalogue c = makeCatalogue();
    const size_t fdsBefore = ProcessStats::openDescriptors();
    storeAndLoad(c.cat.build());
    EXPECT_EQ(ProcessStats::openDescriptors(), fdsBefore + 1);
    const unsigned int base = db->mStringBase;
    db->init();
    EXPECT_TRUE(isClosed());
    EXPECT_EQ(db->mStringBase, base);
    EXPECT_EQ(ProcessStats::openDescriptors(), fdsBefore);
}

TEST_F(MoxDapDatabaseReaderTest, DelInstance_DoesNothing) {
    Catalogue c = makeCatalogue();
    storeAndLoad(c.cat.build());
    FILE* file = db->mpReadFile;
    MoxDapDatabase::DelInstance();
    EXPECT_EQ(MoxDapDatabase::GetInstance(), db);
    EXPECT_EQ(db->mpReadFile, file);
}

TEST_F(MoxDapDatabaseReaderTest, Destructor_WithOpenFile_ClosesIt) {
    Catalogue c = makeCatalogue();
    const size_t fdsBefore = ProcessStats::openDescriptors();
    storeAndLoad(c.cat.build());
    EXPECT_EQ(ProcessStats::openDescriptors(), fdsBefore + 1);
    HbSingleton<MoxDapDatabase>::destroy();
    EXPECT_EQ(ProcessStats::openDescriptors(), fdsBefore);
    db = MoxDapDatabase::GetInstance();  // a fresh one for TearDown
    EXPECT_TRUE(isClosed());
}

TEST_F(MoxDapDatabaseReaderTest, OpenSearchResultFile_Failing_FreesBuffersLoadedBefore) {
    Catalogue c = makeCatalogue();
    storeAndLoad(c.cat.build());
    db->init();
    db->mpDbHeader = new DbHeader();
    db->mpDbToc = new DbToc();
    removeResultFile();
    EXPECT_FALSE(db->openSearchResultFile());
    EXPECT_EQ(take(capture), (Msgs{{"openSearchResultFile", "search result file open error.\n"}}));
    EXPECT_TRUE(isClosed());
}

TEST_F(MoxDapDatabaseReaderTest,
       OpenSearchResultFile_WhenAlreadyOpen_ReplacesStreamWithoutClosingIt) {
    Catalogue c = makeCatalogue();
    writeResultFile(c.cat.build());
    const size_t fdsBefore = ProcessStats::openDescriptors();
    ASSERT_TRUE(db->openSearchResultFile());
    FILE* first = db->mpReadFile;
    ASSERT_TRUE(db->openSearchResultFile());
    FILE* second = db->mpReadFile;
    EXPECT_NE(first, second);
    EXPECT_EQ(take(capture), Msgs{});
    // Both streams are open: the first one was simply forgotten by the reader
    // and keeps the read buffer it was given.
    EXPECT_EQ(ProcessStats::openDescriptors(), fdsBefore + 2);
    EXPECT_NE(::fcntl(::fileno(first), F_GETFD), -1);
    std::fclose(first);
    db->init();
    EXPECT_EQ(ProcessStats::openDescriptors(), fdsBefore);
}

TEST_F(MoxDapDatabaseReaderTest, OpenSearchResultFile_BuffersTheWholeFileAndInitReleasesTheBuffer) {
    Catalogue c = makeCatalogue();
    const Bytes bytes = c.cat.build();
    storeAndLoad(bytes);
    EXPECT_EQ(db->mReadBuffer.size(), bytes.size());
    QuillTrackRec track;
    EXPECT_TRUE(db->getQuillTrackInfo(c.track3, &track));
    db->init();
    EXPECT_EQ(db->mReadBuffer.capacity(), 0u);
}

TEST_F(MoxDapDatabaseReaderTest, OpenSearchResultFile_EmptyFile_OpensAndTheHeaderReadHitsTheEnd) {
    writeResultFile(Bytes{});
    ASSERT_TRUE(db->openSearchResultFile());
    EXPECT_TRUE(db->mReadBuffer.empty());
    db->mpDbHeader = new DbHeader();
    EXPECT_FALSE(db->getDbHeader());
    EXPECT_EQ(take(capture),
              (Msgs{{"dapFread", "eof error.\n"}, {"getDbHeader", "read error.\n"}}));
    EXPECT_TRUE(isClosed());
}

// ---------------------------------------------------------------------------
// Header, version, section table (a missing file, cuts and versions of
// every kind: MoxDapDatabaseDamageTest.cpp)

TEST_F(MoxDapDatabaseReaderTest, GetDbHeader_ReadsTheFirst64Bytes) {
    Catalogue c = makeCatalogue();
    c.cat.image().setSignature("DAP3");
    c.cat.image().setVersion(0x00000005);
    c.cat.image().setAppVer1({1, 2, 3, 4});
    c.cat.image().setAppVer2({5, 6, 7, 0xffff});
    storeAndLoad(c.cat.build());
    EXPECT_EQ(std::string(db->mpDbHeader->Signature, 4), "DAP3");
    EXPECT_EQ(db->mpDbHeader->Version, 0x00000005u);
    EXPECT_EQ(db->mpDbHeader->AppVer1[3], 4);
    EXPECT_EQ(db->mpDbHeader->AppVer2[3], 0xffff);
}

TEST_F(MoxDapDatabaseReaderTest, GetDbHeader_WhenClosed_ReportsReadFileNull) {
    db->mpDbHeader = new DbHeader();
    EXPECT_FALSE(db->getDbHeader());
    EXPECT_EQ(take(capture), (Msgs{{"getDbHeader", "mpReadFile is NULL.\n"}}));
    EXPECT_TRUE(isClosed());
}

TEST_F(MoxDapDatabaseReaderTest, Header_Bytes24To63MayHoldAnything) {
    for (uint8_t fill : {0x00, 0x5a, 0xff}) {
        SCOPED_TRACE(static_cast<int>(fill));
        Catalogue c = makeCatalogue();
        c.cat.image().fillReserved(fill);
        writeResultFile(c.cat.build());
        ASSERT_TRUE(load());
        std::string text;
        EXPECT_TRUE(db->getString(c.cat.text("Album One"), &text));
        EXPECT_EQ(text, "Album One");
        QuillAlbumRec album;
        EXPECT_TRUE(db->getQuillAlbumInfo(c.album2, &album));
        EXPECT_EQ(album.Id, c.album2);
        EXPECT_EQ(take(capture), Msgs{});
        db->init();
    }
}

TEST_F(MoxDapDatabaseReaderTest, GetDbToc_ReadsTableAndSetsStringBase) {
    Catalogue c = makeCatalogue();
    storeAndLoad(c.cat.build());
    const moxdb::DbImageBuilder& image = c.cat.image();
    EXPECT_EQ(db->mpDbToc->OwnSize, 60u);
    EXPECT_EQ(db->mpDbToc->StringTable, image.sectionWord(Section::StringTable));
    EXPECT_EQ(db->mpDbToc->QuillTrack, image.sectionWord(Section::QuillTrack));
    EXPECT_EQ(db->mpDbToc->QuillAlbum, image.sectionWord(Section::QuillAlbum));
    EXPECT_EQ(db->mpDbToc->QuillAlbumTracks, image.sectionWord(Section::QuillAlbumTracks));
    EXPECT_EQ(db->mpDbToc->QuillArtist, image.sectionWord(Section::QuillArtist));
    EXPECT_EQ(db->mpDbToc->QuillGenre, image.sectionWord(Section::QuillGenre));
    EXPECT_EQ(db->mpDbToc->QuillToc, image.sectionWord(Section::QuillToc));
    EXPECT_EQ(db->mpDbToc->QuillTrackIndices, image.sectionWord(Section::QuillTrackIndices));
    EXPECT_EQ(db->mStringBase, image.sectionWord(Section::StringTable) + 4);
    EXPECT_EQ(db->mStringBase, image.stringBase());
}

TEST_F(MoxDapDatabaseReaderTest, GetDbToc_WhenClosed_ReportsReadFileNull) {
    db->mpDbToc = new DbToc();
    EXPECT_FALSE(db->getDbToc());
    EXPECT_EQ(take(capture), (Msgs{{"getDbToc", "mpReadFile is NULL.\n"}}));
    EXPECT_TRUE(isClosed());
}

TEST_F(MoxDapDatabaseReaderTest, StringBase_WrapsIn32Bits) {
    Catalogue c = makeCatalogue();
    c.cat.image().setSectionWord(Section::StringTable, 0xFFFFFFFE);
    storeAndLoad(c.cat.build());
    EXPECT_EQ(db->mStringBase, 2u);
}

// ---------------------------------------------------------------------------
// Guarded seek and read

TEST_F(MoxDapDatabaseReaderTest, DapFseek_NullStream_ReportsReadFileNullAndCloses) {
    Catalogue c = makeCatalogue();
    storeAndLoad(c.cat.build());
    EXPECT_FALSE(db->dapFseek(nullptr, 0, SEEK_SET));
    EXPECT_EQ(take(capture), (Msgs{{"dapFseek", "mpReadFile is NULL.\n"}}));
    EXPECT_TRUE(isClosed());
}

TEST_F(MoxDapDatabaseReaderTest, DapFseek_SeekFails_ReportsReturnValueAndKeepsDatabaseOpen) {
    Catalogue c = makeCatalogue();
    storeAndLoad(c.cat.build());
    int fds[2];
    ASSERT_EQ(::pipe(fds), 0);
    FILE* pipeStream = ::fdopen(fds[0], "r");
    ASSERT_NE(pipeStream, nullptr);
    EXPECT_FALSE(db->dapFseek(pipeStream, 4, SEEK_SET));  // a pipe cannot seek
    EXPECT_EQ(take(capture), (Msgs{{"dapFseek", "fseek return -1.\n"}}));
    EXPECT_NE(db->mpReadFile, nullptr);
    EXPECT_NE(db->mpDbToc, nullptr);
    std::fclose(pipeStream);
    ::close(fds[1]);
}

TEST_F(MoxDapDatabaseReaderTest, DapFseek_PastEndOfFile_Succeeds) {
    Catalogue c = makeCatalogue();
    storeAndLoad(c.cat.build());
    EXPECT_TRUE(db->dapFseek(db->mpReadFile, 1000000, SEEK_SET));
    EXPECT_EQ(std::ftell(db->mpReadFile), 1000000L);
    EXPECT_EQ(take(capture), Msgs{});
}

TEST_F(MoxDapDatabaseReaderTest, DapFread_ExactCount_ReturnsTrue) {
    Catalogue c = makeCatalogue();
    storeAndLoad(c.cat.build());
    ASSERT_TRUE(db->dapFseek(db->mpReadFile, 64, SEEK_SET));
    uint32_t word = 0;
    EXPECT_TRUE(db->dapFread(&word, 1, 4, db->mpReadFile));
    EXPECT_EQ(word, 60u);
    EXPECT_TRUE(db->dapFread(&word, 1, 0, db->mpReadFile));
    EXPECT_EQ(take(capture), Msgs{});
}

TEST_F(MoxDapDatabaseReaderTest, DapFread_ShortRead_ReportsEofErrorAndKeepsDatabaseOpen) {
    Catalogue c = makeCatalogue();
    const Bytes bytes = c.cat.build();
    storeAndLoad(bytes);
    ASSERT_TRUE(
        db->dapFseek(db->mpReadFile, static_cast<unsigned int>(bytes.size() - 2), SEEK_SET));
    uint32_t word = 0;
    EXPECT_FALSE(db->dapFread(&word, 1, 4, db->mpReadFile));
    EXPECT_EQ(take(capture), (Msgs{{"dapFread", "eof error.\n"}}));
    EXPECT_NE(db->mpReadFile, nullptr);
    EXPECT_NE(db->mpDbToc, nullptr);
}

TEST_F(MoxDapDatabaseReaderTest, DapFread_StreamError_ReportsReadError) {
    Catalogue c = makeCatalogue();
    storeAndLoad(c.cat.build());
    FILE* writeOnly = std::fopen(HbFileSysHost::getResultFilePath().c_str(), "a");
    ASSERT_NE(writeOnly, nullptr);
    uint32_t word = 0;
    EXPECT_FALSE(db->dapFread(&word, 1, 4, writeOnly));  // reading a write-only stream fails
    EXPECT_EQ(take(capture), (Msgs{{"dapFread", "read error.\n"}}));
    EXPECT_NE(db->mpReadFile, nullptr);
    std::fclose(writeOnly);
}

TEST_F(MoxDapDatabaseReaderTest, DapFread_NullStream_ReportsReadFileNullAndCloses) {
    Catalogue c = makeCatalogue();
    storeAndLoad(c.cat.build());
    uint32_t word = 0;
    EXPECT_FALSE(db->dapFread(&word, 1, 4, nullptr));
    EXPECT_EQ(take(capture), (Msgs{{"dapFread", "mpReadFile is NULL.\n"}}));
    EXPECT_TRUE(isClosed());
}

// ---------------------------------------------------------------------------
// Strings

TEST_F(MoxDapDatabaseReaderTest, GetString_ConvertsUtf16ToUtf8) {
    moxdb::CatalogueBuilder cat;
    const uint32_t ascii = cat.text("Album One");
    const uint32_t accented = cat.text("Caf\xc3\xa9");
    const uint32_t japanese = cat.text("\xe5\xa4\x9c\xe6\x98\x8e\xe3\x81\x91");
    const uint32_t astral = cat.text("\xf0\x9f\x8e\xb5");  // one surrogate pair
    const uint32_t lone = cat.image().addStringUnits(std::u16string{u'a', char16_t(0xD800), u'b'});
    storeAndLoad(cat.build());
    std::string text;
    EXPECT_TRUE(db->getString(ascii, &text));
    EXPECT_EQ(text, "Album One");
    EXPECT_TRUE(db->getString(accented, &text));
    EXPECT_EQ(text, "Caf\xc3\xa9");
    EXPECT_TRUE(db->getString(japanese, &text));
    EXPECT_EQ(text, "\xe5\xa4\x9c\xe6\x98\x8e\xe3\x81\x91");
    EXPECT_TRUE(db->getString(astral, &text));
    EXPECT_EQ(text, "\xf0\x9f\x8e\xb5");
    EXPECT_TRUE(db->getString(lone, &text));
    EXPECT_EQ(text,
              "a\xef\xbf\xbd"
              "b");
    EXPECT_EQ(take(capture), Msgs{});
    EXPECT_NE(db->mpReadFile, nullptr);
}

TEST_F(MoxDapDatabaseReaderTest, GetString_WithoutStoredTerminator_ConvertsExactlyLengthUnits) {
    // Entries lie back to back without terminators: the next entry's length
    // word follows "abc" directly and must not be taken as text.
    moxdb::CatalogueBuilder cat;
    const uint32_t first = cat.text("abc");
    const uint32_t second = cat.text("defg");
    storeAndLoad(cat.build());
    std::string text;
    EXPECT_TRUE(db->getString(first, &text));
    EXPECT_EQ(text, "abc");
    EXPECT_TRUE(db->getString(second, &text));
    EXPECT_EQ(text, "defg");
}

TEST_F(MoxDapDatabaseReaderTest, GetString_StopsAtFirstZeroUnit) {
    moxdb::CatalogueBuilder cat;
    const uint32_t offset = cat.image().addStringUnits(std::u16string{u'a', u'b', 0, u'c', u'd'});
    storeAndLoad(cat.build());
    std::string text = "previous";
    EXPECT_TRUE(db->getString(offset, &text));
    EXPECT_EQ(text, "ab");
}

TEST_F(MoxDapDatabaseReaderTest, GetString_LengthZero_GivesEmptyText) {
    moxdb::CatalogueBuilder cat;  // offset 0 holds the empty text
    storeAndLoad(cat.build());
    std::string text = "previous";
    EXPECT_TRUE(db->getString(0, &text));
    EXPECT_EQ(text, "");
    EXPECT_EQ(take(capture), Msgs{});
}

TEST_F(MoxDapDatabaseReaderTest, GetString_Length1023_IsRead) {
    moxdb::CatalogueBuilder cat;
    std::u16string units;
    for (int i = 0; i < 1023; ++i) {
        units.push_back(static_cast<char16_t>(u'a' + i % 26));
    }
    const uint32_t offset = cat.image().addStringUnits(units);
    storeAndLoad(cat.build());
    std::string text;
    EXPECT_TRUE(db->getString(offset, &text));
    ASSERT_EQ(text.size(), 1023u);
    EXPECT_EQ(text.substr(0, 3), "abc");
    EXPECT_EQ(text[1022], static_cast<char>('a' + 1022 % 26));
    EXPECT_EQ(take(capture), Msgs{});
}

TEST_F(MoxDapDatabaseReaderTest, GetString_Length1024_ReportsStringBufMaxAndCloses) {
    moxdb::CatalogueBuilder cat;
    const uint32_t offset = cat.image().addRawStringEntry(1024, Bytes(2048, 'a'));
    storeAndLoad(cat.build());
    std::string text = "previous";
    EXPECT_FALSE(db->getString(offset, &text));
    EXPECT_EQ(take(capture),
              (Msgs{{"getString", "lStrSize(1024) >= STRING_BUF_MAX(1024) . 0.\n"}}));
    EXPECT_TRUE(isClosed());
    EXPECT_EQ(text, "previous");
}

TEST_F(MoxDapDatabaseReaderTest, GetString_Length65535_ReportsStringBufMax) {
    moxdb::CatalogueBuilder cat;
    const uint32_t offset = cat.image().addRawStringEntry(0xFFFF, Bytes(8, 'a'));
    storeAndLoad(cat.build());
    std::string text;
    EXPECT_FALSE(db->getString(offset, &text));
    EXPECT_EQ(take(capture),
              (Msgs{{"getString", "lStrSize(65535) >= STRING_BUF_MAX(1024) . 0.\n"}}));
    EXPECT_TRUE(isClosed());
}

TEST_F(MoxDapDatabaseReaderTest, GetString_OffsetPastEndOfFile_ReportsEofThenReadError) {
    Catalogue c = makeCatalogue();
    const Bytes bytes = c.cat.build();
    storeAndLoad(bytes);
    std::string text = "previous";
    EXPECT_FALSE(db->getString(static_cast<unsigned int>(bytes.size()), &text));
    EXPECT_EQ(take(capture), (Msgs{{"dapFread", "eof error.\n"}, {"getString", "read error.\n"}}));
    EXPECT_TRUE(isClosed());
    EXPECT_EQ(text, "previous");
}

TEST_F(MoxDapDatabaseReaderTest, GetString_TextCutByEndOfFile_ReportsEofThenReadError) {
    Catalogue c = makeCatalogue();
    c.cat.image().placeLast(Section::StringTable);
    const uint32_t offset = c.cat.image().addRawStringEntry(10, Bytes{'a', 0, 'b', 0});
    storeAndLoad(c.cat.build());
    std::string text = "previous";
    EXPECT_FALSE(db->getString(offset, &text));
    EXPECT_EQ(take(capture), (Msgs{{"dapFread", "eof error.\n"}, {"getString", "read error.\n"}}));
    EXPECT_TRUE(isClosed());
    EXPECT_EQ(text, "previous");
}

TEST_F(MoxDapDatabaseReaderTest, GetString_WithoutTable_ReportsDbTocNull) {
    Catalogue c = makeCatalogue();
    writeResultFile(c.cat.build());
    ASSERT_TRUE(db->openSearchResultFile());
    std::string text;
    EXPECT_FALSE(db->getString(0, &text));
    EXPECT_EQ(take(capture), (Msgs{{"getString", "mpDbToc is NULL.\n"}}));
    EXPECT_TRUE(isClosed());
}

// ---------------------------------------------------------------------------
// Record lookups

TEST_F(MoxDapDatabaseReaderTest, Lookups_FindEveryRecordWithItsFields) {
    Catalogue c = makeCatalogue();
    storeAndLoad(c.cat.build());
    moxdb::DbImageBuilder& image = c.cat.image();

    QuillTrackRec track;
    ASSERT_TRUE(db->getQuillTrackInfo(c.track3, &track));
    EXPECT_EQ(track.Id, c.track3);
    EXPECT_EQ(track.Title, c.cat.text("Third"));
    EXPECT_EQ(track.Performer, c.artist1);
    EXPECT_EQ(track.Genre, c.rock);
    EXPECT_EQ(track.Time, 300u);
    EXPECT_EQ(track.MediaNum, 2u);
    EXPECT_EQ(track.TrackNum, 1u);

    QuillAlbumRec album;
    ASSERT_TRUE(db->getQuillAlbumInfo(c.album1, &album));
    EXPECT_EQ(album.Id, c.album1);
    EXPECT_EQ(album.Title, c.cat.text("Album One"));
    EXPECT_EQ(album.Genre, c.cat.text("ROCK"));
    EXPECT_EQ(album.Language, c.cat.text("en"));
    EXPECT_EQ(album.Confidence, 90u);
    EXPECT_EQ(album.MediaCount, 2u);
    EXPECT_EQ(album.Tracks, image.album(0).Tracks);

    QuillArtistRec artist;
    ASSERT_TRUE(db->getQuillArtistInfo(c.artist2, &artist));
    EXPECT_EQ(artist.Id, c.artist2);
    EXPECT_EQ(artist.Name, c.cat.text("Artist Two"));

    QuillGenreRec genre;
    ASSERT_TRUE(db->getQuillGenreInfo(c.jazz, &genre));
    EXPECT_EQ(genre.Id, c.jazz);
    std::string code;
    ASSERT_TRUE(db->getString(genre.Id, &code));
    EXPECT_EQ(code, "JAZZ");

    // Every lookup scans from the first record again: an earlier record is
    // found after a later one.
    ASSERT_TRUE(db->getQuillTrackInfo(c.track1, &track));
    EXPECT_EQ(track.Id, c.track1);
    EXPECT_EQ(take(capture), Msgs{});
    EXPECT_NE(db->mpReadFile, nullptr);
}

TEST_F(MoxDapDatabaseReaderTest, GetQuillTrackInfo_IdZero_ReturnsTrueWithoutReading) {
    Catalogue c = makeCatalogue();
    storeAndLoad(c.cat.build());
    ASSERT_TRUE(db->dapFseek(db->mpReadFile, 12345, SEEK_SET));
    QuillTrackRec track;
    fillPattern(&track, 0xAB);
    EXPECT_TRUE(db->getQuillTrackInfo(0, &track));
    EXPECT_TRUE(allBytesAre(track, 0xAB));
    EXPECT_EQ(std::ftell(db->mpReadFile), 12345L);  // the file was not touched
    EXPECT_EQ(take(capture), Msgs{});
    EXPECT_NE(db->mpReadFile, nullptr);
}

TEST_F(MoxDapDatabaseReaderTest, GetQuillArtistAndGenreInfo_IdZero_ReturnTrueWithoutReading) {
    Catalogue c = makeCatalogue();
    storeAndLoad(c.cat.build());
    ASSERT_TRUE(db->dapFseek(db->mpReadFile, 777, SEEK_SET));
    QuillArtistRec artist;
    fillPattern(&artist, 0xCD);
    QuillGenreRec genre;
    fillPattern(&genre, 0xEF);
    EXPECT_TRUE(db->getQuillArtistInfo(0, &artist));
    EXPECT_TRUE(db->getQuillGenreInfo(0, &genre));
    EXPECT_TRUE(allBytesAre(artist, 0xCD));
    EXPECT_TRUE(allBytesAre(genre, 0xEF));
    EXPECT_EQ(std::ftell(db->mpReadFile), 777L);
    EXPECT_EQ(take(capture), Msgs{});
}

TEST_F(MoxDapDatabaseReaderTest, GetQuillAlbumInfo_IdZero_IsSearchedLikeAnyOther) {
    // The album whose identifier text sits at string offset 0 has Id 0.
    moxdb::CatalogueBuilder cat("ALB-0");
    const uint32_t track = cat.addTrack({"Only", 0, 0, 1, 0, 0});
    const uint32_t other = cat.addAlbum({"ALB-9", "Other", "POP", "en", 5, 1, {track}, 1});
    const uint32_t zero = cat.addAlbum({"ALB-0", "Zero", "ROCK", "en", 77, 1, {track}, 1});
    ASSERT_EQ(zero, 0u);
    ASSERT_NE(other, 0u);
    storeAndLoad(cat.build());
    QuillAlbumRec album;
    fillPattern(&album, 0xAB);
    EXPECT_TRUE(db->getQuillAlbumInfo(0, &album));
    EXPECT_EQ(album.Id, 0u);
    EXPECT_EQ(album.Confidence, 77u);
    EXPECT_EQ(album.Title, cat.text("Zero"));
    EXPECT_EQ(take(capture), Msgs{});
    EXPECT_NE(db->mpReadFile, nullptr);
}

TEST_F(MoxDapDatabaseReaderTest, GetQuillAlbumInfo_IdZeroAbsent_ZeroFillsAndCloses) {
    Catalogue c = makeCatalogue();
    storeAndLoad(c.cat.build());
    QuillAlbumRec album;
    fillPattern(&album, 0xAB);
    EXPECT_FALSE(db->getQuillAlbumInfo(0, &album));
    EXPECT_TRUE(allBytesAre(album, 0));
    EXPECT_EQ(take(capture), Msgs{});
    EXPECT_TRUE(isClosed());
}

TEST_F(MoxDapDatabaseReaderTest, Lookups_MissingId_ZeroFillRecordAndCloseWithoutMessage) {
    Catalogue c = makeCatalogue();
    const Bytes bytes = c.cat.build();
    const uint32_t missing = 0x7777;

    storeAndLoad(bytes);
    QuillTrackRec track;
    fillPattern(&track, 0xAB);
    EXPECT_FALSE(db->getQuillTrackInfo(missing, &track));
    EXPECT_TRUE(allBytesAre(track, 0));
    EXPECT_TRUE(isClosed());

    storeAndLoad(bytes);
    QuillAlbumRec album;
    fillPattern(&album, 0xAB);
    EXPECT_FALSE(db->getQuillAlbumInfo(missing, &album));
    EXPECT_TRUE(allBytesAre(album, 0));
    EXPECT_TRUE(isClosed());

    storeAndLoad(bytes);
    QuillArtistRec artist;
    fillPattern(&artist, 0xAB);
    EXPECT_FALSE(db->getQuillArtistInfo(missing, &artist));
    EXPECT_TRUE(allBytesAre(artist, 0));
    EXPECT_TRUE(isClosed());

    storeAndLoad(bytes);
    QuillGenreRec genre;
    fillPattern(&genre, 0xAB);
    EXPECT_FALSE(db->getQuillGenreInfo(missing, &genre));
    EXPECT_TRUE(allBytesAre(genre, 0));
    EXPECT_TRUE(isClosed());

    EXPECT_EQ(take(capture), Msgs{});
}

TEST_F(MoxDapDatabaseReaderTest, Lookups_RecordCountZero_FindNothing) {
    Catalogue c = makeCatalogue();
    for (Section section :
         {Section::QuillTrack, Section::QuillAlbum, Section::QuillArtist, Section::QuillGenre}) {
        c.cat.image().setRecordCount(section, 0);  // the records are still written
    }
    const Bytes bytes = c.cat.build();

    storeAndLoad(bytes);
    QuillTrackRec track;
    EXPECT_FALSE(db->getQuillTrackInfo(c.track1, &track));
    EXPECT_TRUE(allBytesAre(track, 0));
    EXPECT_TRUE(isClosed());

    storeAndLoad(bytes);
    QuillAlbumRec album;
    EXPECT_FALSE(db->getQuillAlbumInfo(c.album1, &album));
    EXPECT_TRUE(isClosed());

    storeAndLoad(bytes);
    QuillArtistRec artist;
    EXPECT_FALSE(db->getQuillArtistInfo(c.artist1, &artist));
    EXPECT_TRUE(isClosed());

    storeAndLoad(bytes);
    QuillGenreRec genre;
    EXPECT_FALSE(db->getQuillGenreInfo(c.rock, &genre));
    EXPECT_TRUE(isClosed());

    EXPECT_EQ(take(capture), Msgs{});
}

TEST_F(MoxDapDatabaseReaderTest, Lookups_OnlyTheFirstRecordCountRecordsAreSearched) {
    Catalogue c = makeCatalogue();
    c.cat.image().setRecordCount(Section::QuillTrack, 2);   // track3 lies beyond
    c.cat.image().setRecordCount(Section::QuillAlbum, 1);   // album2 lies beyond
    c.cat.image().setRecordCount(Section::QuillArtist, 1);  // artist2 lies beyond
    c.cat.image().setRecordCount(Section::QuillGenre, 1);   // jazz lies beyond
    const Bytes bytes = c.cat.build();

    storeAndLoad(bytes);
    QuillTrackRec track;
    EXPECT_TRUE(db->getQuillTrackInfo(c.track2, &track));
    EXPECT_FALSE(db->getQuillTrackInfo(c.track3, &track));
    EXPECT_TRUE(isClosed());

    storeAndLoad(bytes);
    QuillAlbumRec album;
    EXPECT_TRUE(db->getQuillAlbumInfo(c.album1, &album));
    EXPECT_FALSE(db->getQuillAlbumInfo(c.album2, &album));
    EXPECT_TRUE(isClosed());

    storeAndLoad(bytes);
    QuillArtistRec artist;
    EXPECT_TRUE(db->getQuillArtistInfo(c.artist1, &artist));
    EXPECT_FALSE(db->getQuillArtistInfo(c.artist2, &artist));
    EXPECT_TRUE(isClosed());

    storeAndLoad(bytes);
    QuillGenreRec genre;
    EXPECT_TRUE(db->getQuillGenreInfo(c.rock, &genre));
    EXPECT_FALSE(db->getQuillGenreInfo(c.jazz, &genre));
    EXPECT_TRUE(isClosed());

    EXPECT_EQ(take(capture), Msgs{});
}

TEST_F(MoxDapDatabaseReaderTest, Lookups_IgnoreTheHeadsRecordSize) {
    for (uint16_t recordSize : {uint16_t{0}, uint16_t{4}, uint16_t{200}}) {
        SCOPED_TRACE(recordSize);
        Catalogue c = makeCatalogue();
        for (Section section : {Section::QuillTrack, Section::QuillAlbum, Section::QuillArtist,
                                Section::QuillGenre}) {
            c.cat.image().setRecordSize(section, recordSize);
        }
        storeAndLoad(c.cat.build());
        QuillTrackRec track;
        EXPECT_TRUE(db->getQuillTrackInfo(c.track3, &track));
        EXPECT_EQ(track.Title, c.cat.text("Third"));
        QuillAlbumRec album;
        EXPECT_TRUE(db->getQuillAlbumInfo(c.album2, &album));
        EXPECT_EQ(album.Title, c.cat.text("Album Two"));
        QuillArtistRec artist;
        EXPECT_TRUE(db->getQuillArtistInfo(c.artist2, &artist));
        EXPECT_EQ(artist.Name, c.cat.text("Artist Two"));
        QuillGenreRec genre;
        EXPECT_TRUE(db->getQuillGenreInfo(c.jazz, &genre));
        EXPECT_EQ(take(capture), Msgs{});
        db->init();
    }
}

// A section placed last whose head claims more records than the file holds.
struct CountPastEnd {
    Section section;
    const char* function;
};

TEST_F(MoxDapDatabaseReaderTest,
       Lookups_CountPastEndOfFile_ReportEofThenReadErrorAtFirstMissingRecord) {
    const CountPastEnd cases[] = {{Section::QuillTrack, "getQuillTrackInfo"},
                                  {Section::QuillAlbum, "getQuillAlbumInfo"},
                                  {Section::QuillArtist, "getQuillArtistInfo"},
                                  {Section::QuillGenre, "getQuillGenreInfo"}};
    for (const CountPastEnd& entry : cases) {
        SCOPED_TRACE(entry.function);
        Catalogue c = makeCatalogue();
        c.cat.image().placeLast(entry.section);
        c.cat.image().setRecordCount(entry.section, 9);
        storeAndLoad(c.cat.build());
        const unsigned int missing = 0x7777;
        bool found = true;
        QuillTrackRec track;
        QuillAlbumRec album;
        QuillArtistRec artist;
        QuillGenreRec genre;
        size_t written = 0;
        switch (entry.section) {
            case Section::QuillTrack:
                found = db->getQuillTrackInfo(missing, &track);
                written = 3;
                break;
            case Section::QuillAlbum:
                found = db->getQuillAlbumInfo(missing, &album);
                written = 2;
                break;
            case Section::QuillArtist:
                found = db->getQuillArtistInfo(missing, &artist);
                written = 2;
                break;
            default:
                found = db->getQuillGenreInfo(missing, &genre);
                written = 2;
                break;
        }
        EXPECT_FALSE(found);
        const std::string lCnt = "read error lCnt=" + std::to_string(written) + ".\n";
        EXPECT_EQ(take(capture), (Msgs{{"dapFread", "eof error.\n"}, {entry.function, lCnt}}));
        EXPECT_TRUE(isClosed());
    }
}

TEST_F(MoxDapDatabaseReaderTest, Lookups_CountPastEndOfFile_MatchBeforeTheEndIsFound) {
    Catalogue c = makeCatalogue();
    c.cat.image().placeLast(Section::QuillTrack);
    c.cat.image().setRecordCount(Section::QuillTrack, 9);
    storeAndLoad(c.cat.build());
    QuillTrackRec track;
    EXPECT_TRUE(db->getQuillTrackInfo(c.track3, &track));
    EXPECT_EQ(track.Id, c.track3);
    EXPECT_EQ(take(capture), Msgs{});
    EXPECT_NE(db->mpReadFile, nullptr);
}

TEST_F(MoxDapDatabaseReaderTest, Lookups_SectionPastEndOfFile_ReportEofThenReadError) {
    Catalogue c = makeCatalogue();
    const Bytes bytes = c.cat.build();
    c.cat.image().setSectionWord(Section::QuillArtist, static_cast<uint32_t>(bytes.size()) + 100);
    storeAndLoad(c.cat.build());
    QuillArtistRec artist;
    fillPattern(&artist, 0xAB);
    EXPECT_FALSE(db->getQuillArtistInfo(c.artist1, &artist));
    EXPECT_EQ(take(capture),
              (Msgs{{"dapFread", "eof error.\n"}, {"getQuillArtistInfo", "read error.\n"}}));
    EXPECT_TRUE(allBytesAre(artist, 0xAB));
    EXPECT_TRUE(isClosed());
}

TEST_F(MoxDapDatabaseReaderTest, Lookups_WithoutTable_ReportDbTocNull) {
    Catalogue c = makeCatalogue();
    writeResultFile(c.cat.build());
    ASSERT_TRUE(db->openSearchResultFile());
    QuillTrackRec track;
    fillPattern(&track, 0xAB);
    EXPECT_FALSE(db->getQuillTrackInfo(0, &track));  // checked before the zero rule
    EXPECT_EQ(take(capture), (Msgs{{"getQuillTrackInfo", "mpDbToc is NULL.\n"}}));
    EXPECT_TRUE(allBytesAre(track, 0xAB));
    EXPECT_TRUE(isClosed());

    ASSERT_TRUE(db->openSearchResultFile());
    QuillAlbumRec album;
    EXPECT_FALSE(db->getQuillAlbumInfo(c.album1, &album));
    EXPECT_EQ(take(capture), (Msgs{{"getQuillAlbumInfo", "mpDbToc is NULL.\n"}}));

    ASSERT_TRUE(db->openSearchResultFile());
    QuillArtistRec artist;
    EXPECT_FALSE(db->getQuillArtistInfo(c.artist1, &artist));
    EXPECT_EQ(take(capture), (Msgs{{"getQuillArtistInfo", "mpDbToc is NULL.\n"}}));

    ASSERT_TRUE(db->openSearchResultFile());
    QuillGenreRec genre;
    EXPECT_FALSE(db->getQuillGenreInfo(c.rock, &genre));
    EXPECT_EQ(take(capture), (Msgs{{"getQuillGenreInfo", "mpDbToc is NULL.\n"}}));

    ASSERT_TRUE(db->openSearchResultFile());
    QuillAlbumTracks list;
    EXPECT_FALSE(db->getQuillAlbumTracksInfo(0, &list));
    EXPECT_EQ(take(capture), (Msgs{{"getQuillAlbumTracksInfo", "mpDbToc is NULL.\n"}}));
    EXPECT_TRUE(isClosed());
}

// ---------------------------------------------------------------------------
// Album track lists

TEST_F(MoxDapDatabaseReaderTest, GetQuillAlbumTracksInfo_ReadsCountAndIdsInOrder) {
    Catalogue c = makeCatalogue();
    storeAndLoad(c.cat.build());
    QuillAlbumTracks list;
    list.TrackIds = {99, 98};
    ASSERT_TRUE(db->getQuillAlbumTracksInfo(c.cat.image().album(0).Tracks, &list));
    EXPECT_EQ(list.Count, 3u);
    EXPECT_EQ(list.TrackIds, (std::vector<uint32>{c.track1, c.track2, c.track3}));
    ASSERT_TRUE(db->getQuillAlbumTracksInfo(c.cat.image().album(1).Tracks, &list));
    EXPECT_EQ(list.Count, 1u);
    EXPECT_EQ(list.TrackIds, (std::vector<uint32>{c.track2}));
    EXPECT_EQ(take(capture), Msgs{});
}

TEST_F(MoxDapDatabaseReaderTest, GetQuillAlbumTracksInfo_CountZero_GivesEmptyVectorAndTrue) {
    Catalogue c = makeCatalogue();
    const uint32_t empty = c.cat.image().addTrackList({});
    storeAndLoad(c.cat.build());
    QuillAlbumTracks list;
    list.Count = 5;
    list.TrackIds = {1, 2, 3};
    EXPECT_TRUE(db->getQuillAlbumTracksInfo(empty, &list));
    EXPECT_EQ(list.Count, 0u);
    EXPECT_TRUE(list.TrackIds.empty());
    EXPECT_EQ(take(capture), Msgs{});
    EXPECT_NE(db->mpReadFile, nullptr);
}

TEST_F(MoxDapDatabaseReaderTest,
       GetQuillAlbumTracksInfo_ListCutShort_ReportsReadErrorWithFirstMissingIndex) {
    Catalogue c = makeCatalogue();
    c.cat.image().placeLast(Section::QuillAlbumTracks);
    const uint32_t cut = c.cat.image().addTrackListWithCount(5, {c.track1, c.track2});
    storeAndLoad(c.cat.build());
    QuillAlbumTracks list;
    EXPECT_FALSE(db->getQuillAlbumTracksInfo(cut, &list));
    EXPECT_EQ(take(capture), (Msgs{{"dapFread", "eof error.\n"},
                                   {"getQuillAlbumTracksInfo", "read error i=2.\n"}}));
    EXPECT_EQ(list.Count, 5u);
    EXPECT_EQ(list.TrackIds, (std::vector<uint32>{c.track1, c.track2}));
    EXPECT_TRUE(isClosed());
}

TEST_F(MoxDapDatabaseReaderTest,
       GetQuillAlbumTracksInfo_CountPastEndOfFile_ReportsEofThenReadError) {
    Catalogue c = makeCatalogue();
    const Bytes bytes = c.cat.build();
    storeAndLoad(bytes);
    const unsigned int pastEnd =
        static_cast<unsigned int>(bytes.size()) - c.cat.image().trackListBase();
    QuillAlbumTracks list;
    list.TrackIds = {42};
    EXPECT_FALSE(db->getQuillAlbumTracksInfo(pastEnd, &list));
    EXPECT_EQ(take(capture),
              (Msgs{{"dapFread", "eof error.\n"}, {"getQuillAlbumTracksInfo", "read error.\n"}}));
    EXPECT_EQ(list.TrackIds, (std::vector<uint32>{42}));  // untouched
    EXPECT_TRUE(isClosed());
}

// ---------------------------------------------------------------------------
// After a failure every operation finds the database closed

TEST_F(MoxDapDatabaseReaderTest, AnyOperationAfterFailure_ReportsReadFileNullAndReturnsFalse) {
    Catalogue c = makeCatalogue();
    storeAndLoad(c.cat.build());
    QuillGenreRec genre;
    ASSERT_FALSE(db->getQuillGenreInfo(0x7777, &genre));  // a missing id closes the database
    ASSERT_TRUE(isClosed());
    take(capture);

    db->mpDbHeader = new DbHeader();
    EXPECT_FALSE(db->getDbHeader());
    db->mpDbToc = new DbToc();
    EXPECT_FALSE(db->getDbToc());
    std::string text = "previous";
    EXPECT_FALSE(db->getString(0, &text));
    EXPECT_EQ(text, "previous");
    QuillTrackRec track;
    fillPattern(&track, 0xAB);
    EXPECT_FALSE(db->getQuillTrackInfo(0, &track));  // even identifier 0
    EXPECT_TRUE(allBytesAre(track, 0xAB));
    EXPECT_FALSE(db->getQuillTrackInfo(c.track1, &track));
    QuillAlbumRec album;
    EXPECT_FALSE(db->getQuillAlbumInfo(c.album1, &album));
    QuillArtistRec artist;
    EXPECT_FALSE(db->getQuillArtistInfo(0, &artist));
    EXPECT_FALSE(db->getQuillGenreInfo(0, &genre));
    QuillAlbumTracks list;
    EXPECT_FALSE(db->getQuillAlbumTracksInfo(0, &list));
    EXPECT_FALSE(db->dapFseek(db->mpReadFile, 0, SEEK_SET));
    uint32_t word = 0;
    EXPECT_FALSE(db->dapFread(&word, 1, 4, db->mpReadFile));

    const std::string null = "mpReadFile is NULL.\n";
    EXPECT_EQ(take(capture), (Msgs{{"getDbHeader", null},
                                   {"getDbToc", null},
                                   {"getString", null},
                                   {"getQuillTrackInfo", null},
                                   {"getQuillTrackInfo", null},
                                   {"getQuillAlbumInfo", null},
                                   {"getQuillArtistInfo", null},
                                   {"getQuillGenreInfo", null},
                                   {"getQuillAlbumTracksInfo", null},
                                   {"dapFseek", null},
                                   {"dapFread", null}}));
    EXPECT_TRUE(isClosed());
}

// ---------------------------------------------------------------------------
// Renderings

TEST_F(MoxDapDatabaseReaderTest, Render_AllZeroRecords_ShowEveryKeyAsZero) {
    QuillHead head{};
    QuillTocRec toc{};
    QuillAlbumRec album{};
    QuillTrackRec track{};
    QuillArtistRec artist{};
    QuillGenreRec genre{};
    EXPECT_EQ(db->getStrQuillHead(head),
              "OwnSize=0x00000000, RecordSize=0x00000000, RecordCount=0x00000000");
    EXPECT_EQ(db->getStrTocRec(toc),
              "Id=0x00000000, AlbumId=0x00000000, MediaNum=0x00000000, RudArtFileName=0x00000000, "
              "RudPictFolderPath=0x00000000");
    EXPECT_EQ(db->getStrAlbumRec(album),
              "Id=0x00000000, MediaNum=0x00000000, MediaCount=0x00000000, Title=0x00000000, "
              "TitleYomi=0x00000000, Performer=0x00000000, Composer=0x00000000, Genre=0x00000000, "
              "Tracks=0x00000000, Confidence=0x00000000, Language=0x00000000, ImageUrl=0x00000000, "
              "Upc=0x00000000, RelYear=0x00000000, PickFlag=0x00000000, KeyTitle=0x00000000, "
              "Credits=0x00000000, FirstTrackByMedia=0x00000000, Styles=0x00000000, "
              "Tones=0x00000000, Themas=0x00000000");
    EXPECT_EQ(db->getStrTrackRec(track),
              "Id=0x00000000, Title=0x00000000, TitleYomi=0x00000000, Performer=0x00000000, "
              "Composer=0x00000000, Genre=0x00000000, Time=0x00000000, Language=0x00000000, "
              "Confidence=0x00000000, MediaNum=0x00000000, TrackNum=0x00000000, "
              "PickFlag=0x00000000, KeyTitle=0x00000000, Work=0x00000000, Part=0x00000000, "
              "Conductor=0x00000000, PerfDate=0x00000000, CompDate=0x00000000");
    EXPECT_EQ(db->getStrArtistRec(artist),
              "Id=0x00000000, Name=0x00000000, NameYomi=0x00000000, KeyName=0x00000000, "
              "Genre=0x00000000, Styles=0x00000000, Tones=0x00000000, Themas=0x00000000, "
              "SimilarArtists=0x00000000, Influences=0x00000000, Followers=0x00000000");
    EXPECT_EQ(db->getStrGenreRec(genre), "Id=0x00000000, Name=0x00000000");

    db->mpDbHeader = new DbHeader();
    std::memset(static_cast<void*>(db->mpDbHeader), 0, sizeof(DbHeader));
    db->mpDbToc = new DbToc();
    std::memset(static_cast<void*>(db->mpDbToc), 0, sizeof(DbToc));
    EXPECT_EQ(db->getStrDbToc(),
              "OwnSize=0x00000000, RudTrack=0x00000000, RudPlaylist=0x00000000, "
              "RudPlaylistTrack=0x00000000, StringTable=0x00000000, StringList=0x00000000, "
              "QuillTrack=0x00000000, QuillAlbum=0x00000000, QuillAlbumTracks=0x00000000, "
              "QuillCredits=0x00000000, QuillArtist=0x00000000, QuillGenre=0x00000000, "
              "QuillDesc=0x00000000, QuillToc=0x00000000, QuillTrackIndices=0x00000000");
    EXPECT_EQ(db->getStrDbHeader(),
              std::string("Signature=") + std::string(4, '\0') + ", Version=0x00000000, " +
                  "AppVer1={0x0000 0x0000 0x0000 0x0000 }, AppVer2={0x0000 0x0000 0x0000 0x0000 }");
}

TEST_F(MoxDapDatabaseReaderTest, Render_LargestU32_IsLowerCaseFfffffff) {
    QuillGenreRec genre;
    fillPattern(&genre, 0xFF);
    EXPECT_EQ(db->getStrGenreRec(genre), "Id=0xffffffff, Name=0xffffffff");
    QuillArtistRec artist;
    fillPattern(&artist, 0xFF);
    EXPECT_EQ(db->getStrArtistRec(artist),
              "Id=0xffffffff, Name=0xffffffff, NameYomi=0xffffffff, KeyName=0xffffffff, "
              "Genre=0xffffffff, Styles=0xffffffff, Tones=0xffffffff, Themas=0xffffffff, "
              "SimilarArtists=0xffffffff, Influences=0xffffffff, Followers=0xffffffff");
    QuillAlbumRec album{};
    album.Confidence = 0xFFFFFFFFu;  // -1
    album.Upc = 0xABCDEF12u;
    const std::string text = db->getStrAlbumRec(album);
    EXPECT_NE(text.find("Confidence=0xffffffff, "), std::string::npos);
    EXPECT_NE(text.find("Upc=0xabcdef12, "), std::string::npos);
}

TEST_F(MoxDapDatabaseReaderTest, Render_U16FieldsAreWidenedTo32Bits) {
    QuillTocRec toc;
    fillPattern(&toc, 0xFF);
    EXPECT_EQ(db->getStrTocRec(toc),
              "Id=0xffffffff, AlbumId=0xffffffff, MediaNum=0x0000ffff, RudArtFileName=0xffffffff, "
              "RudPictFolderPath=0xffffffff");
    QuillHead head;
    head.OwnSize = 0x1234;
    head.RecordSize = 0xFFFF;
    head.RecordCount = 0xFFFF;
    EXPECT_EQ(db->getStrQuillHead(head),
              "OwnSize=0x00001234, RecordSize=0x0000ffff, RecordCount=0x0000ffff");
}

TEST_F(MoxDapDatabaseReaderTest,
       Render_TocRec_ShowsTheFieldAtOffset16BeforeTheOneAt12AndSkipsTheUnnamedWord) {
    QuillTocRec toc{};
    toc.Id = 300;
    toc.AlbumId = 7;
    toc.MediaNum = 1;
    toc.Reserved = 0xBEEF;
    EXPECT_EQ(db->getStrTocRec(toc),
              "Id=0x0000012c, AlbumId=0x00000007, MediaNum=0x00000001, RudArtFileName=0x00000000, "
              "RudPictFolderPath=0x00000000");
    toc.RudPictFolderPath = 0x12;  // offset 12
    toc.RudArtFileName = 0x16;     // offset 16
    EXPECT_EQ(db->getStrTocRec(toc),
              "Id=0x0000012c, AlbumId=0x00000007, MediaNum=0x00000001, RudArtFileName=0x00000016, "
              "RudPictFolderPath=0x00000012");
}

// Fills the u32 fields of a record with 1, 2, 3, ... in layout order.
template <class Rec>
Rec numberedRecord() {
    Rec rec;
    uint32_t words[sizeof(Rec) / 4];
    for (size_t i = 0; i < sizeof(Rec) / 4; ++i) {
        words[i] = static_cast<uint32_t>(i + 1);
    }
    std::memcpy(static_cast<void*>(&rec), words, sizeof(Rec));
    return rec;
}

TEST_F(MoxDapDatabaseReaderTest, Render_RecordFieldsAppearInLayoutOrder) {
    QuillAlbumRec album = numberedRecord<QuillAlbumRec>();
    EXPECT_EQ(db->getStrAlbumRec(album),
              "Id=0x00000001, MediaNum=0x00000002, MediaCount=0x00000003, Title=0x00000004, "
              "TitleYomi=0x00000005, Performer=0x00000006, Composer=0x00000007, Genre=0x00000008, "
              "Tracks=0x00000009, Confidence=0x0000000a, Language=0x0000000b, ImageUrl=0x0000000c, "
              "Upc=0x0000000d, RelYear=0x0000000e, PickFlag=0x0000000f, KeyTitle=0x00000010, "
              "Credits=0x00000011, FirstTrackByMedia=0x00000012, Styles=0x00000013, "
              "Tones=0x00000014, Themas=0x00000015");
    QuillTrackRec track = numberedRecord<QuillTrackRec>();
    EXPECT_EQ(db->getStrTrackRec(track),
              "Id=0x00000001, Title=0x00000002, TitleYomi=0x00000003, Performer=0x00000004, "
              "Composer=0x00000005, Genre=0x00000006, Time=0x00000007, Language=0x00000008, "
              "Confidence=0x00000009, MediaNum=0x0000000a, TrackNum=0x0000000b, "
              "PickFlag=0x0000000c, KeyTitle=0x0000000d, Work=0x0000000e, Part=0x0000000f, "
              "Conductor=0x00000010, PerfDate=0x00000011, CompDate=0x00000012");
    QuillArtistRec artist = numberedRecord<QuillArtistRec>();
    EXPECT_EQ(db->getStrArtistRec(artist),
              "Id=0x00000001, Name=0x00000002, NameYomi=0x00000003, KeyName=0x00000004, "
              "Genre=0x00000005, Styles=0x00000006, Tones=0x00000007, Themas=0x00000008, "
              "SimilarArtists=0x00000009, Influences=0x0000000a, Followers=0x0000000b");
    QuillGenreRec genre = numberedRecord<QuillGenreRec>();
    EXPECT_EQ(db->getStrGenreRec(genre), "Id=0x00000001, Name=0x00000002");
    db->mpDbToc = new DbToc(numberedRecord<DbToc>());
    EXPECT_EQ(db->getStrDbToc(),
              "OwnSize=0x00000001, RudTrack=0x00000002, RudPlaylist=0x00000003, "
              "RudPlaylistTrack=0x00000004, StringTable=0x00000005, StringList=0x00000006, "
              "QuillTrack=0x00000007, QuillAlbum=0x00000008, QuillAlbumTracks=0x00000009, "
              "QuillCredits=0x0000000a, QuillArtist=0x0000000b, QuillGenre=0x0000000c, "
              "QuillDesc=0x0000000d, QuillToc=0x0000000e, QuillTrackIndices=0x0000000f");
}

TEST_F(MoxDapDatabaseReaderTest, Render_Header_KeepsTheBlankBeforeEachClosingBrace) {
    Catalogue c = makeCatalogue();
    c.cat.image().setSignature("DAP3");
    c.cat.image().setVersion(0x01000000);
    c.cat.image().setAppVer1({1, 2, 0, 0});
    c.cat.image().setAppVer2({0, 0, 0, 0xabcd});
    storeAndLoad(c.cat.build());
    EXPECT_EQ(db->getStrDbHeader(),
              "Signature=DAP3, Version=0x01000000, AppVer1={0x0001 0x0002 0x0000 0x0000 }, "
              "AppVer2={0x0000 0x0000 0x0000 0xabcd }");
}

TEST_F(MoxDapDatabaseReaderTest, Render_Header_CopiesSignatureBytesAsTheyAre) {
    db->mpDbHeader = new DbHeader();
    std::memset(static_cast<void*>(db->mpDbHeader), 0, sizeof(DbHeader));
    std::memcpy(db->mpDbHeader->Signature, "A\0\xffZ", 4);
    db->mpDbHeader->Version = 0x10000000;
    const std::string text = db->getStrDbHeader();
    EXPECT_EQ(text,
              std::string("Signature=") + std::string("A\0\xffZ", 4) + ", Version=0x10000000, " +
                  "AppVer1={0x0000 0x0000 0x0000 0x0000 }, AppVer2={0x0000 0x0000 0x0000 0x0000 }");
}

TEST_F(MoxDapDatabaseReaderTest, Render_LoadedTable_MatchesTheFile) {
    Catalogue c = makeCatalogue();
    storeAndLoad(c.cat.build());
    const moxdb::DbImageBuilder& image = c.cat.image();
    char expected[1024];
    std::snprintf(
        expected, sizeof(expected),
        "OwnSize=0x0000003c, RudTrack=0x%08x, RudPlaylist=0x%08x, RudPlaylistTrack=0x%08x, "
        "StringTable=0x%08x, StringList=0x%08x, QuillTrack=0x%08x, QuillAlbum=0x%08x, "
        "QuillAlbumTracks=0x%08x, QuillCredits=0x%08x, QuillArtist=0x%08x, QuillGenre=0x%08x, "
        "QuillDesc=0x%08x, QuillToc=0x%08x, QuillTrackIndices=0x%08x",
        image.sectionWord(Section::RudTrack), image.sectionWord(Section::RudPlaylist),
        image.sectionWord(Section::RudPlaylistTrack), image.sectionWord(Section::StringTable),
        image.sectionWord(Section::StringList), image.sectionWord(Section::QuillTrack),
        image.sectionWord(Section::QuillAlbum), image.sectionWord(Section::QuillAlbumTracks),
        image.sectionWord(Section::QuillCredits), image.sectionWord(Section::QuillArtist),
        image.sectionWord(Section::QuillGenre), image.sectionWord(Section::QuillDesc),
        image.sectionWord(Section::QuillToc), image.sectionWord(Section::QuillTrackIndices));
    EXPECT_EQ(db->getStrDbToc(), expected);
}

TEST_F(MoxDapDatabaseReaderTest, Render_LeavesOtherStreamsFormattingAlone) {
    const std::ios_base::fmtflags flags = std::cout.flags();
    const char fill = std::cout.fill();
    QuillGenreRec genre{};
    genre.Id = 255;
    EXPECT_EQ(db->getStrGenreRec(genre), "Id=0x000000ff, Name=0x00000000");
    EXPECT_EQ(db->getStrGenreRec(genre), "Id=0x000000ff, Name=0x00000000");
    EXPECT_EQ(std::cout.flags(), flags);
    EXPECT_EQ(std::cout.fill(), fill);
    std::ostringstream other;
    other << 255;
    EXPECT_EQ(other.str(), "255");
}

// ---------------------------------------------------------------------------
// Every cut and every damaged byte of the fixed parts, against a model of the
// reader's rules over the bytes in memory.

// True when the C library's seek (which takes a long) can reach `target`.
bool fitsInLong(uint64_t target) {
    return target <= static_cast<uint64_t>(LONG_MAX);
}

// What the reader should do with an image: each operation gives its result
// and the messages it prints. Seeks past the end succeed and the following
// read hits the end; a seek target beyond the C library's long fails.
class ReaderModel {
public:
    explicit ReaderModel(const Bytes& image) : mImage(image) {}

    struct Outcome {
        bool ok = false;
        Msgs messages;
    };

    Outcome header() {
        Outcome out;
        if (!checkOpen("getDbHeader", false, &out)) {
            return out;
        }
        out.ok =
            seek("getDbHeader", 0, &out) && read("getDbHeader", 64, nullptr, "read error.\n", &out);
        mHeaderLoaded = out.ok;
        return out;
    }

    Outcome version() {
        Outcome out;
        const uint32_t v = moxdb::getU32Le(mImage, 4);
        out.ok = (v & 0xFF000000u) <= 0x01000000u || v == 0x10000000u;
        if (!out.ok) {
            out.messages.push_back({"judgeDapDbVer", "unknown version.\n"});
            close();
        }
        return out;
    }

    Outcome table() {
        Outcome out;
        if (!checkOpen("getDbToc", false, &out)) {
            return out;
        }
        out.ok = seek("getDbToc", 64, &out) && read("getDbToc", 60, nullptr, "read error.\n", &out);
        if (out.ok) {
            mTableLoaded = true;
            mStringBase = word(4) + 4;
        }
        return out;
    }

    uint32_t stringBase() const { return mStringBase; }

    Outcome string(uint32_t offset, std::string* text) {
        Outcome out;
        if (!checkOpen("getString", true, &out) || !seek("getString", mStringBase + offset, &out)) {
            return out;
        }
        Bytes lengthBytes;
        if (!read("getString", 2, &lengthBytes, "read error.\n", &out)) {
            return out;
        }
        const uint16_t length = moxdb::getU16Le(lengthBytes, 0);
        if (length >= 1024) {
            out.messages.push_back({"getString", "lStrSize(" + std::to_string(length) +
                                                     ") >= STRING_BUF_MAX(1024) . 0.\n"});
            close();
            return out;
        }
        Bytes units;
        if (!read("getString", 2u * length, &units, "read error.\n", &out)) {
            return out;
        }
        std::vector<unsigned short> buffer;
        for (size_t i = 0; i < length && moxdb::getU16Le(units, 2 * i) != 0; ++i) {
            buffer.push_back(moxdb::getU16Le(units, 2 * i));
        }
        buffer.push_back(0);
        HbString converted;
        converted.Copy(buffer.data(), HbString::en_CODE_PAGE_UTF16);
        *text = converted.ToCHAR(HbString::en_CODE_PAGE_UTF8);
        out.ok = true;
        return out;
    }

    // `found` receives the matching record's bytes on success.
    Outcome lookup(const char* function, uint32_t tableWord, size_t recordSize, bool zeroRule,
                   uint32_t id, Bytes* found) {
        Outcome out;
        if (!checkOpen(function, true, &out)) {
            return out;
        }
        if (zeroRule && id == 0) {
            out.ok = true;
            return out;
        }
        Bytes head;
        if (!seek(function, word(tableWord), &out) ||
            !read(function, 8, &head, "read error.\n", &out)) {
            return out;
        }
        const uint16_t count = moxdb::getU16Le(head, 6);
        for (uint32_t n = 0; n < count; ++n) {
            Bytes rec;
            const std::string lCnt = "read error lCnt=" + std::to_string(n) + ".\n";
            if (!read(function, recordSize, &rec, lCnt.c_str(), &out)) {
                return out;
            }
            if (moxdb::getU32Le(rec, 0) == id) {
                *found = rec;
                out.ok = true;
                return out;
            }
        }
        *found = Bytes(recordSize, 0);
        close();
        return out;
    }

    // `count` receives the list's count once read, `ids` the entries read.
    Outcome trackList(uint32_t offset, bool* countRead, uint32_t* count,
                      std::vector<uint32_t>* ids) {
        Outcome out;
        *countRead = false;
        const char* function = "getQuillAlbumTracksInfo";
        if (!checkOpen(function, true, &out) || !seek(function, word(8) + 4 + offset, &out)) {
            return out;
        }
        Bytes countBytes;
        if (!read(function, 4, &countBytes, "read error.\n", &out)) {
            return out;
        }
        *countRead = true;
        *count = moxdb::getU32Le(countBytes, 0);
        ids->clear();
        for (uint32_t i = 0; i < *count; ++i) {
            Bytes entry;
            const std::string text = "read error i=" + std::to_string(i) + ".\n";
            if (!read(function, 4, &entry, text.c_str(), &out)) {
                return out;
            }
            ids->push_back(moxdb::getU32Le(entry, 0));
        }
        out.ok = true;
        return out;
    }

    bool closed() const { return !mOpen; }

private:
    uint32_t word(uint32_t index) const { return moxdb::getU32Le(mImage, 64 + 4 * index); }

    void close() {
        mOpen = false;
        mHeaderLoaded = false;
        mTableLoaded = false;
    }

    bool checkOpen(const char* function, bool needTable, Outcome* out) {
        if (!mOpen) {
            out->messages.push_back({function, "mpReadFile is NULL.\n"});
            close();
            return false;
        }
        if (needTable && !mTableLoaded) {
            out->messages.push_back({function, "mpDbToc is NULL.\n"});
            close();
            return false;
        }
        return true;
    }

    bool seek(const char* function, uint32_t target, Outcome* out) {
        if (!fitsInLong(target)) {
            out->messages.push_back({"dapFseek", "fseek return -1.\n"});
            out->messages.push_back({function, "seek error.\n"});
            close();
            return false;
        }
        mPosition = target;
        return true;
    }

    bool read(const char* function, size_t size, Bytes* bytes, const char* failure, Outcome* out) {
        if (size == 0) {
            if (bytes != nullptr) {
                bytes->clear();
            }
            return true;
        }
        if (mPosition > mImage.size() || mImage.size() - mPosition < size) {
            out->messages.push_back({"dapFread", "eof error.\n"});
            out->messages.push_back({function, failure});
            close();
            return false;
        }
        if (bytes != nullptr) {
            bytes->assign(mImage.begin() + static_cast<long>(mPosition),
                          mImage.begin() + static_cast<long>(mPosition + size));
        }
        mPosition += size;
        return true;
    }

    const Bytes& mImage;
    bool mOpen = true;  // the file exists: opening succeeds
    bool mHeaderLoaded = false;
    bool mTableLoaded = false;
    uint32_t mStringBase = 0;
    uint64_t mPosition = 0;
};

// The identifiers and offsets that one read path asks for.
struct ReadPlan {
    std::vector<uint32_t> strings;
    std::vector<uint32_t> albums;
    std::vector<uint32_t> trackLists;
    std::vector<uint32_t> tracks;
    std::vector<uint32_t> artists;
    std::vector<uint32_t> genres;
};

ReadPlan makePlan(Catalogue& c) {
    ReadPlan plan;
    plan.strings = {0,
                    c.toc1,
                    c.toc2,
                    c.cat.text("Album One"),
                    c.cat.text("ROCK"),
                    c.cat.text("ja"),
                    c.cat.text("Third"),
                    c.cat.text("Artist Two")};
    plan.albums = {c.album1, c.album2};
    plan.trackLists = {c.cat.image().album(0).Tracks, c.cat.image().album(1).Tracks};
    plan.tracks = {c.track1, 0, c.track3};
    plan.artists = {c.artist2, 0};
    plan.genres = {c.jazz, 0, c.rock};
    return plan;
}

// Compares one reader operation with the model's prediction (`outcome` must
// be a variable: it is used twice); after a failure the database must be
// closed.
#define EXPECT_STEP(name, readerOk, outcome)                  \
    do {                                                      \
        SCOPED_TRACE(name);                                   \
        EXPECT_EQ((readerOk), (outcome).ok);                  \
        EXPECT_EQ(take(capture), (outcome).messages);         \
        if (!(readerOk)) {                                    \
            EXPECT_TRUE(isClosed());                          \
        }                                                     \
        EXPECT_EQ(db->mpReadFile == nullptr, model.closed()); \
    } while (0)

class MoxDapDatabaseReaderDamageTest : public MoxDapDatabaseReaderTest {
protected:
    // Runs the read path of a search over `image` (stored as the result file)
    // and checks every step against the model. Returns the number of steps
    // that succeeded.
    int runPath(const Bytes& image, const ReadPlan& plan) {
        writeResultFile(image);
        ReaderModel model(image);
        int succeeded = 0;
        take(capture);

        EXPECT_TRUE(db->openSearchResultFile());
        db->mpDbHeader = new DbHeader();
        std::memset(static_cast<void*>(db->mpDbHeader), 0, sizeof(DbHeader));
        const bool headerOk = db->getDbHeader();
        const ReaderModel::Outcome headerOutcome = model.header();
        EXPECT_STEP("header", headerOk, headerOutcome);
        if (!headerOk) {
            return succeeded;
        }
        const bool versionOk = db->judgeDapDbVer();
        const ReaderModel::Outcome versionOutcome = model.version();
        EXPECT_STEP("version", versionOk, versionOutcome);
        if (!versionOk) {
            return succeeded;
        }
        db->mpDbToc = new DbToc();
        std::memset(static_cast<void*>(db->mpDbToc), 0, sizeof(DbToc));
        const bool tableOk = db->getDbToc();
        const ReaderModel::Outcome tableOutcome = model.table();
        EXPECT_STEP("table", tableOk, tableOutcome);
        if (!tableOk) {
            return succeeded;
        }
        EXPECT_EQ(db->mStringBase, model.stringBase());
        succeeded = 1;

        for (uint32_t offset : plan.strings) {
            std::string text = "unchanged";
            std::string expected = "unchanged";
            const bool ok = db->getString(offset, &text);
            const ReaderModel::Outcome outcome = model.string(offset, &expected);
            EXPECT_STEP("string " + std::to_string(offset), ok, outcome);
            EXPECT_EQ(text, expected);
            succeeded += ok;
        }
        for (uint32_t id : plan.albums) {
            QuillAlbumRec rec;
            succeeded += lookupStep(
                model, "getQuillAlbumInfo", 7, false, id, &rec,
                [&](unsigned int i, QuillAlbumRec* r) { return db->getQuillAlbumInfo(i, r); });
        }
        for (uint32_t offset : plan.trackLists) {
            QuillAlbumTracks list;
            list.Count = 0xDEAD;
            list.TrackIds = {0xDEAD};
            bool countRead = false;
            uint32_t count = 0;
            std::vector<uint32_t> ids = {0xDEAD};
            const bool ok = db->getQuillAlbumTracksInfo(offset, &list);
            const ReaderModel::Outcome outcome = model.trackList(offset, &countRead, &count, &ids);
            EXPECT_STEP("track list " + std::to_string(offset), ok, outcome);
            if (countRead) {
                EXPECT_EQ(list.Count, count);
                EXPECT_EQ(list.TrackIds, ids);
            }
            succeeded += ok;
        }
        for (uint32_t id : plan.tracks) {
            QuillTrackRec rec;
            succeeded += lookupStep(
                model, "getQuillTrackInfo", 6, true, id, &rec,
                [&](unsigned int i, QuillTrackRec* r) { return db->getQuillTrackInfo(i, r); });
        }
        for (uint32_t id : plan.artists) {
            QuillArtistRec rec;
            succeeded += lookupStep(
                model, "getQuillArtistInfo", 10, true, id, &rec,
                [&](unsigned int i, QuillArtistRec* r) { return db->getQuillArtistInfo(i, r); });
        }
        for (uint32_t id : plan.genres) {
            QuillGenreRec rec;
            succeeded += lookupStep(
                model, "getQuillGenreInfo", 11, true, id, &rec,
                [&](unsigned int i, QuillGenreRec* r) { return db->getQuillGenreInfo(i, r); });
        }
        // A missing identifier ends every path: the database is closed after it.
        QuillGenreRec rec;
        lookupStep(model, "getQuillGenreInfo", 11, true, 0x7FFFFFFE, &rec,
                   [&](unsigned int i, QuillGenreRec* r) { return db->getQuillGenreInfo(i, r); });
        EXPECT_TRUE(isClosed());
        return succeeded;
    }

    template <class Rec, class Call>
    int lookupStep(ReaderModel& model, const char* function, uint32_t tableWord, bool zeroRule,
                   uint32_t id, Rec* rec, Call call) {
        fillPattern(rec, 0xAB);
        Bytes expected;
        const bool ok = call(id, rec);
        const ReaderModel::Outcome outcome =
            model.lookup(function, tableWord, sizeof(Rec), zeroRule, id, &expected);
        EXPECT_STEP(std::string(function) + " " + std::to_string(id), ok, outcome);
        if (ok && !expected.empty()) {
            EXPECT_EQ(std::memcmp(rec, expected.data(), sizeof(Rec)), 0);
        } else if (ok) {
            EXPECT_TRUE(allBytesAre(*rec, 0xAB));  // identifier 0: untouched
        } else if (outcome.messages.empty()) {
            EXPECT_TRUE(allBytesAre(*rec, 0));  // not found: zero-filled
        }
        return ok ? 1 : 0;
    }
};

TEST_F(MoxDapDatabaseReaderDamageTest, CutAtEveryLength_FailsCleanlyWhereTheBytesEnd) {
    Catalogue c = makeCatalogue();
    const ReadPlan plan = makePlan(c);
    const Bytes full = c.cat.build();
    const size_t fdsBefore = ProcessStats::openDescriptors();

    // The whole file: every step but the final missing identifier succeeds.
    const int allSteps =
        static_cast<int>(1 + plan.strings.size() + plan.albums.size() + plan.trackLists.size() +
                         plan.tracks.size() + plan.artists.size() + plan.genres.size());
    EXPECT_EQ(runPath(full, plan), allSteps);

    // A longer file never makes fewer steps succeed: the first step that
    // reaches the cut fails and every later one finds the database closed.
    int previous = 0;
    int partial = 0;
    for (size_t length = 0; length < full.size(); ++length) {
        SCOPED_TRACE("length " + std::to_string(length));
        Bytes cut = full;
        ASSERT_TRUE(moxdb::cutTo(cut, length));
        const int succeeded = runPath(cut, plan);
        if (length < 124) {
            EXPECT_EQ(succeeded, 0);  // no table, nothing more was tried
        }
        EXPECT_GE(succeeded, previous);
        previous = succeeded;
        partial += (succeeded > 0 && succeeded < allSteps) ? 1 : 0;
        if (HasFailure()) {
            break;
        }
    }
    // The record sections end before the file does, so some cuts already
    // leave every step succeeding, and some fail in the middle of the path.
    EXPECT_EQ(previous, allSteps);
    EXPECT_GT(partial, 0);
    EXPECT_EQ(ProcessStats::openDescriptors(), fdsBefore);
}

TEST_F(MoxDapDatabaseReaderDamageTest, EveryDamagedByteOfTheFixedParts_FailsCleanlyOrSucceeds) {
    Catalogue c = makeCatalogue();
    const ReadPlan plan = makePlan(c);
    const Bytes full = c.cat.build();
    const moxdb::DbImageBuilder& image = c.cat.image();

    std::vector<size_t> positions;
    for (size_t i = 0; i < 124; ++i) {
        positions.push_back(i);  // header and section table
    }
    for (Section section :
         {Section::QuillToc, Section::QuillAlbum, Section::QuillTrack, Section::QuillArtist,
          Section::QuillGenre, Section::StringTable, Section::QuillAlbumTracks}) {
        const uint32_t start = image.sectionWord(section);
        const size_t headSize = moxdb::isRecordSection(section) ? 8 : 4;  // head, or skipped word
        for (size_t i = 0; i < headSize; ++i) {
            positions.push_back(start + i);
        }
    }

    const size_t fdsBefore = ProcessStats::openDescriptors();
    int failedPaths = 0;
    for (size_t position : positions) {
        for (uint8_t mask : {uint8_t{0xFF}, uint8_t{0x01}, uint8_t{0x80}}) {
            SCOPED_TRACE("byte " + std::to_string(position) + " mask " + std::to_string(mask));
            Bytes damaged = full;
            ASSERT_TRUE(moxdb::flipByte(damaged, position, mask));
            const int allSteps = static_cast<int>(1 + plan.strings.size() + plan.albums.size() +
                                                  plan.trackLists.size() + plan.tracks.size() +
                                                  plan.artists.size() + plan.genres.size());
            if (runPath(damaged, plan) < allSteps) {
                ++failedPaths;
            }
            if (HasFailure()) {
                return;
            }
        }
    }
    // Damage to the version and to the section words used must show up.
    EXPECT_GT(failedPaths, 50);
    EXPECT_EQ(ProcessStats::openDescriptors(), fdsBefore);
}

}  // namespace
