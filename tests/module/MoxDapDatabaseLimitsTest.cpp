// Limits of MoxDapDatabase's search: the work of one search, the tracks it
// assembles and the entries of one album's track list. Answers made to
// exhaust a search without limits (moxdb::HostileAnswers) must end in a
// bounded search with their limit's message and false, and every answer
// within the limits must behave as before.
//
// Peak memory is measured here: this test program counts every byte that
// operator new hands out (the module's containers and strings all come from
// it), so a test can take the highest amount live during one search.
#include <gtest/gtest.h>

#include <malloc.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <list>
#include <new>
#include <string>
#include <vector>

#include "DbgCapture.h"
#include "MoxDbWriter.h"
#include "StoredDatabaseFixture.h"
#include "private/MoxDapDatabase.h"
#include "private/MoxLimits.h"

using HbSMoxDef::AlbumInfo;
using HbSMoxDef::TrackInfo;

namespace {

std::atomic<size_t> gLiveBytes{0};
std::atomic<size_t> gPeakBytes{0};

void* countedAlloc(std::size_t size) {
    void* block = std::malloc(size == 0 ? 1 : size);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    const size_t bytes = malloc_usable_size(block);
    const size_t live = gLiveBytes.fetch_add(bytes) + bytes;
    size_t peak = gPeakBytes.load();
    while (live > peak && !gPeakBytes.compare_exchange_weak(peak, live)) {
    }
    return block;
}

void countedFree(void* block) {
    if (block == nullptr) {
        return;
    }
    gLiveBytes.fetch_sub(malloc_usable_size(block));
    std::free(block);
}

}  // namespace

void* operator new(std::size_t size) {
    return countedAlloc(size);
}
void* operator new[](std::size_t size) {
    return countedAlloc(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    try {
        return countedAlloc(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    try {
        return countedAlloc(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}
void operator delete(void* block) noexcept {
    countedFree(block);
}
void operator delete[](void* block) noexcept {
    countedFree(block);
}
void operator delete(void* block, std::size_t) noexcept {
    countedFree(block);
}
void operator delete[](void* block, std::size_t) noexcept {
    countedFree(block);
}
void operator delete(void* block, const std::nothrow_t&) noexcept {
    countedFree(block);
}
void operator delete[](void* block, const std::nothrow_t&) noexcept {
    countedFree(block);
}

namespace {

const size_t MiB = 1024 * 1024;

// Peak memory of a search made of the hostile answers below, whose strings
// are short: the albums and tracks of the result, the read buffer and the
// match list.
const size_t HOSTILE_PEAK_BOUND = 8 * MiB;
// Peak memory of any search: the texts kept (a text of L units costs L + 10
// units of work, its seek and two reads included, and takes at most 3L + 1
// bytes plus the allocator's overhead: at most 15 MB in all), the albums and
// tracks (at most SEARCH_TRACK_MAX of each), the match list (65535 TOC
// records) and the read buffer.
const size_t LONGEST_TEXTS_PEAK_BOUND = 24 * MiB;

// How far the work count can pass the limit: the seek and the text of one
// string are counted before the read that the limit refuses.
const uint32_t WORK_OVERSHOOT_MAX = 8 + STRING_BUF_MAX;

// Bytes live now above those live when it was made, and the highest that
// amount reached in between.
class HeapWatch {
public:
    HeapWatch() : mBase(gLiveBytes.load()) { gPeakBytes.store(mBase); }
    size_t peak() const { return gPeakBytes.load() - mBase; }

private:
    size_t mBase;
};

// Every captured message as "function|text", in order.
std::vector<std::string> messages(const DbgCapture& capture) {
    std::vector<std::string> out;
    for (const HbDbgRecord& record : capture.records()) {
        out.push_back(record.function + "|" + record.text);
    }
    return out;
}

std::string workLimitMessage() {
    return "dapFread|search work limit (" + std::to_string(MoxLimits::SEARCH_WORK_MAX) +
           ") reached.\n";
}

std::string trackLimitMessage(const char* function, const char* index, int value) {
    return std::string(function) + "|search track limit (" +
           std::to_string(MoxLimits::SEARCH_TRACK_MAX) + ") reached. " + index + "=" +
           std::to_string(value) + "\n";
}

size_t trackCount(const std::list<AlbumInfo>& albums) {
    size_t count = 0;
    for (const AlbumInfo& album : albums) {
        count += album.Tracks.size();
    }
    return count;
}

// What one search did: its result, messages, peak memory and time.
struct SearchRun {
    bool found = false;
    std::list<AlbumInfo> albums;
    std::vector<std::string> log;
    size_t peakBytes = 0;
    double seconds = 0;
};

class MoxDapDatabaseLimitsTest : public StoredDatabaseFixture {
protected:
    // Writes the database as the result file; the image is gone before the
    // search, so that the search's peak memory is its own.
    void store(const moxdb::CatalogueBuilder& cat) {
        const moxdb::Bytes bytes = cat.build();
        writeResultFile(bytes);
        storedBytes = bytes.size();
    }

    SearchRun search(const std::string& toc) {
        SearchRun run;
        DbgCapture capture;
        const HeapWatch heap;
        const auto start = std::chrono::steady_clock::now();
        run.found = db->getSearchResult(toc, &run.albums);
        run.seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        run.peakBytes = heap.peak();
        run.log = messages(capture);
        // The work, and so the time, of every search is bounded.
        EXPECT_LE(db->mWorkCount, MoxLimits::SEARCH_WORK_MAX + WORK_OVERSHOOT_MAX);
        RecordProperty("file_bytes", std::to_string(storedBytes));
        RecordProperty("work", std::to_string(db->mWorkCount));
        RecordProperty("peak_bytes", std::to_string(run.peakBytes));
        RecordProperty("milliseconds", std::to_string(static_cast<long>(run.seconds * 1000)));
        return run;
    }

    size_t storedBytes = 0;
};

// ---------------------------------------------------------------------------
// Answers made to exhaust a search

// 956 bytes: the walk finds the one TOC record 65535 times and every album
// brings the same track 100 times. Without limits: 6.5 million tracks.
TEST_F(MoxDapDatabaseLimitsTest, GetSearchResult_TocStrideZeroAlbumOf100Tracks_StopsAtTrackLimit) {
    store(moxdb::HostileAnswers::repeatedTocRecord(100));
    ASSERT_LT(storedBytes, 1024u);
    const SearchRun run = search(moxdb::HostileAnswers::TOC);
    EXPECT_FALSE(run.found);
    EXPECT_EQ(run.log, (std::vector<std::string>{trackLimitMessage("getAlbumInfo", "n", 96),
                                                 "getSearchResult|getAlbumInfo error i=40.\n"}));
    EXPECT_EQ(run.albums.size(), 40u);
    EXPECT_EQ(trackCount(run.albums), 4000u);
    EXPECT_LT(run.peakBytes, HOSTILE_PEAK_BOUND);
    expectClosed();
}

// 4.4 KB: as above with 1000 entries per album. Without limits the search
// ran out of memory.
TEST_F(MoxDapDatabaseLimitsTest, GetSearchResult_TocStrideZeroAlbumOf1000Tracks_StopsAtTrackLimit) {
    store(moxdb::HostileAnswers::repeatedTocRecord(1000));
    ASSERT_LT(storedBytes, 5000u);
    const SearchRun run = search(moxdb::HostileAnswers::TOC);
    EXPECT_FALSE(run.found);
    EXPECT_EQ(run.log, (std::vector<std::string>{trackLimitMessage("getAlbumInfo", "n", 96),
                                                 "getSearchResult|getAlbumInfo error i=4.\n"}));
    EXPECT_EQ(run.albums.size(), 4u);
    EXPECT_EQ(trackCount(run.albums), 4000u);
    EXPECT_LT(run.peakBytes, HOSTILE_PEAK_BOUND);
    expectClosed();
}

// 1.3 MB: 65535 TOC records at the normal stride, all for the same album.
TEST_F(MoxDapDatabaseLimitsTest, GetSearchResult_DuplicateTocRecords_StopsAtTrackLimit) {
    store(moxdb::HostileAnswers::duplicateTocRecords(65535, 100));
    ASSERT_GT(storedBytes, 65535u * 20u);
    const SearchRun run = search(moxdb::HostileAnswers::TOC);
    EXPECT_FALSE(run.found);
    EXPECT_EQ(run.log, (std::vector<std::string>{trackLimitMessage("getAlbumInfo", "n", 96),
                                                 "getSearchResult|getAlbumInfo error i=40.\n"}));
    EXPECT_EQ(trackCount(run.albums), 4000u);
    EXPECT_LT(run.peakBytes, HOSTILE_PEAK_BOUND);
    expectClosed();
}

// A million identifiers 0: each would repeat the previous track record
// without reading one. The list itself is cut at the track limit.
TEST_F(MoxDapDatabaseLimitsTest, GetSearchResult_MillionZeroTrackIds_StopsAtTrackLimitInTheList) {
    store(moxdb::HostileAnswers::zeroTrackList(1000000));
    const SearchRun run = search(moxdb::HostileAnswers::TOC);
    EXPECT_FALSE(run.found);
    EXPECT_EQ(run.log,
              (std::vector<std::string>{trackLimitMessage("getQuillAlbumTracksInfo", "i", 4096),
                                        "getAlbumInfo|getQuillAlbumTracksInfo return false.\n",
                                        "getSearchResult|getAlbumInfo error i=0.\n"}));
    EXPECT_TRUE(run.albums.empty());
    EXPECT_LT(run.peakBytes, HOSTILE_PEAK_BOUND);
    expectClosed();
}

// 4.7 KB: every album keeps one track but looks up 999 of another medium, so
// the tracks stay few and the work limit ends the search.
TEST_F(MoxDapDatabaseLimitsTest, GetSearchResult_EntriesOnOtherMedium_StopsAtWorkLimit) {
    store(moxdb::HostileAnswers::otherMediumTrackList(1000));
    const SearchRun run = search(moxdb::HostileAnswers::TOC);
    EXPECT_FALSE(run.found);
    EXPECT_EQ(run.log, (std::vector<std::string>{
                           workLimitMessage(), "getQuillTrackInfo|read error lCnt=0.\n",
                           "getAlbumInfo|getQuillTrackInfo return false. n=484\n",
                           "getSearchResult|getAlbumInfo error i=244.\n"}));
    EXPECT_EQ(run.albums.size(), 244u);
    EXPECT_EQ(trackCount(run.albums), 244u);
    EXPECT_EQ(db->mWorkCount, MoxLimits::SEARCH_WORK_MAX);
    EXPECT_LT(run.peakBytes, HOSTILE_PEAK_BOUND);
    expectClosed();
}

// The walk converts 65535 TOC texts of 1023 units unless their conversion
// counts as work: it stops before the section's end.
TEST_F(MoxDapDatabaseLimitsTest, GetSearchResult_LongestTocTexts_ConversionStopsAtWorkLimit) {
    store(moxdb::HostileAnswers::longTocTexts());
    const SearchRun run = search(moxdb::HostileAnswers::TOC);
    EXPECT_FALSE(run.found);
    EXPECT_EQ(run.log, (std::vector<std::string>{workLimitMessage(), "getString|read error.\n",
                                                 "getQuillTocList|get string error i=4798.\n",
                                                 "getSearchResult|getQuillTocList error.\n"}));
    EXPECT_TRUE(run.albums.empty());
    EXPECT_LT(run.peakBytes, HOSTILE_PEAK_BOUND);
    expectClosed();
}

// Every text of every album and track as long as the reader allows: the
// texts count as work, so the work limit ends the search long before the
// track limit, and bounds the memory of the texts kept. The album-level texts
// of the album that meets the limit are still read one after the other,
// whatever failed before.
TEST_F(MoxDapDatabaseLimitsTest, GetSearchResult_LongestTextsEverywhere_PeakUnderStatedBound) {
    store(moxdb::HostileAnswers::longestTexts());
    const SearchRun run = search(moxdb::HostileAnswers::TOC);
    EXPECT_FALSE(run.found);
    EXPECT_EQ(run.log, (std::vector<std::string>{
                           workLimitMessage(), "getString|read error.\n",
                           "getString|mpReadFile is NULL.\n", "getString|mpReadFile is NULL.\n",
                           "getQuillAlbumTracksInfo|mpReadFile is NULL.\n",
                           "getAlbumInfo|getQuillAlbumTracksInfo return false.\n",
                           "getSearchResult|getAlbumInfo error i=474.\n"}));
    ASSERT_EQ(run.albums.size(), 474u);
    const AlbumInfo& album = run.albums.front();
    for (const std::string* text :
         {&album.AlbumId, &album.AlbumName, &album.GenreName, &album.Tracks.at(0).TrackName,
          &album.Tracks.at(0).PerformerName, &album.Tracks.at(0).GenreName}) {
        EXPECT_EQ(text->size(), 3069u);
    }
    EXPECT_LT(run.peakBytes, LONGEST_TEXTS_PEAK_BOUND);
    expectClosed();
}

// ---------------------------------------------------------------------------
// Within the limits

// The largest case of the search benchmark: 64 candidates of 40 tracks,
// 2560 tracks in all, about 3.4 million reads.
TEST_F(MoxDapDatabaseLimitsTest, GetSearchResult_SixtyFourAlbumsOfFortyTracks_StaysWithinLimits) {
    const std::string toc = moxdb::makeTocTextOfTracks(40);
    store(moxdb::CatalogueBuilder::makeUniform(toc, 64, 40));
    const SearchRun run = search(toc);
    EXPECT_TRUE(run.found);
    EXPECT_TRUE(run.log.empty());
    EXPECT_EQ(run.albums.size(), 64u);
    EXPECT_EQ(trackCount(run.albums), 2560u);
    EXPECT_LT(db->mWorkCount, MoxLimits::SEARCH_WORK_MAX);
    expectClosed();
}

TEST_F(MoxDapDatabaseLimitsTest, GetSearchResult_ExactlyTheTrackLimit_Succeeds) {
    moxdb::CatalogueBuilder cat;
    const uint32_t rock = cat.addGenre("ROCK");
    const uint32_t artist = cat.addArtist("A");
    const uint32_t track = cat.addTrack({"T", artist, rock, 1});
    const std::string toc = moxdb::makeTocTextOfTracks(2);
    const uint32_t big =
        cat.addAlbum({"BIG", "Big", "ROCK", "en", 1, 1,
                      std::vector<uint32_t>(MoxLimits::SEARCH_TRACK_MAX - 2u, track)});
    const uint32_t small = cat.addAlbum({"SMALL", "Small", "ROCK", "en", 2, 1, {track, track}});
    cat.addToc(toc, big, 1);
    cat.addToc(toc, small, 1);
    store(cat);
    const SearchRun run = search(toc);
    EXPECT_TRUE(run.found);
    EXPECT_TRUE(run.log.empty());
    ASSERT_EQ(run.albums.size(), 1u);  // the big one fails the track-count filter
    EXPECT_EQ(run.albums.front().AlbumId, "SMALL");
    EXPECT_EQ(db->mTrackCount, MoxLimits::SEARCH_TRACK_MAX);
}

// The limit counts the tracks of all albums of the search together.
TEST_F(MoxDapDatabaseLimitsTest, GetSearchResult_OneTrackPastTheLimit_FailsInTheAlbumThatPassesIt) {
    moxdb::CatalogueBuilder cat;
    const uint32_t rock = cat.addGenre("ROCK");
    const uint32_t artist = cat.addArtist("A");
    const uint32_t track = cat.addTrack({"T", artist, rock, 1});
    const std::string toc = moxdb::makeTocTextOfTracks(3);
    const uint32_t big =
        cat.addAlbum({"BIG", "Big", "ROCK", "en", 1, 1,
                      std::vector<uint32_t>(MoxLimits::SEARCH_TRACK_MAX - 2u, track)});
    const uint32_t small =
        cat.addAlbum({"SMALL", "Small", "ROCK", "en", 2, 1, {track, track, track}});
    cat.addToc(toc, big, 1);
    cat.addToc(toc, small, 1);
    store(cat);
    const SearchRun run = search(toc);
    EXPECT_FALSE(run.found);
    EXPECT_EQ(run.log, (std::vector<std::string>{trackLimitMessage("getAlbumInfo", "n", 2),
                                                 "getSearchResult|getAlbumInfo error i=1.\n"}));
    ASSERT_EQ(run.albums.size(), 1u);
    EXPECT_EQ(run.albums.front().AlbumId, "BIG");
    EXPECT_EQ(trackCount(run.albums), MoxLimits::SEARCH_TRACK_MAX - 2u);
    expectClosed();
}

// After a search that met a limit, the next one starts from nothing spent.
TEST_F(MoxDapDatabaseLimitsTest, GetSearchResult_AfterWorkLimit_NextSearchSucceeds) {
    store(moxdb::HostileAnswers::otherMediumTrackList(1000));
    ASSERT_FALSE(search(moxdb::HostileAnswers::TOC).found);
    const std::string toc = moxdb::makeTocTextOfTracks(3);
    store(moxdb::CatalogueBuilder::makeUniform(toc, 2, 3));
    const SearchRun run = search(toc);
    EXPECT_TRUE(run.found);
    EXPECT_TRUE(run.log.empty());
    EXPECT_EQ(run.albums.size(), 2u);
}

// ---------------------------------------------------------------------------
// The counts behind the limits

TEST_F(MoxDapDatabaseLimitsTest, OpenSearchResultFile_RestartsBothCounts) {
    store(moxdb::CatalogueBuilder::makeSample());
    db->mWorkCount = 12345;
    db->mTrackCount = 678;
    ASSERT_TRUE(db->openSearchResultFile());
    EXPECT_EQ(db->mWorkCount, 0u);
    EXPECT_EQ(db->mTrackCount, 0u);
}

TEST_F(MoxDapDatabaseLimitsTest, DapFseek_EveryCallCountsEight) {
    store(moxdb::CatalogueBuilder::makeSample());
    ASSERT_TRUE(db->openSearchResultFile());
    EXPECT_TRUE(db->dapFseek(db->mpReadFile, 64, SEEK_SET));
    EXPECT_TRUE(db->dapFseek(db->mpReadFile, 0, SEEK_SET));
    EXPECT_EQ(db->mWorkCount, 16u);
}

TEST_F(MoxDapDatabaseLimitsTest, DapFread_EveryCallCountsOne) {
    store(moxdb::CatalogueBuilder::makeSample());
    ASSERT_TRUE(db->openSearchResultFile());
    unsigned char bytes[72];
    EXPECT_TRUE(db->dapFread(bytes, 1, 72, db->mpReadFile));
    EXPECT_TRUE(db->dapFread(bytes, 1, 1, db->mpReadFile));
    EXPECT_EQ(db->mWorkCount, 2u);
}

TEST_F(MoxDapDatabaseLimitsTest, DapFread_AtWorkLimit_RefusesWithItsMessageWithoutReading) {
    store(moxdb::CatalogueBuilder::makeSample());
    ASSERT_TRUE(load());
    db->mWorkCount = MoxLimits::SEARCH_WORK_MAX - 1u;
    unsigned char bytes[4] = {0xAA, 0xAA, 0xAA, 0xAA};
    ASSERT_EQ(std::fseek(db->mpReadFile, 0, SEEK_SET), 0);
    EXPECT_TRUE(db->dapFread(bytes, 1, 2, db->mpReadFile));  // the last read allowed
    DbgCapture capture;
    EXPECT_FALSE(db->dapFread(bytes + 2, 1, 2, db->mpReadFile));
    EXPECT_EQ(messages(capture), (std::vector<std::string>{workLimitMessage()}));
    EXPECT_EQ(bytes[2], 0xAA);
    EXPECT_EQ(std::ftell(db->mpReadFile), 2);
    EXPECT_EQ(db->mWorkCount, MoxLimits::SEARCH_WORK_MAX);
}

// A string costs its seek, its two reads and one per unit of its text, counted
// before its text is read.
TEST_F(MoxDapDatabaseLimitsTest, GetString_CountsSeekTwoReadsAndOnePerUnit) {
    moxdb::CatalogueBuilder cat;
    const uint32_t seven = cat.text("1234567");
    const uint32_t seventeen = cat.text("12345678901234567");
    store(cat);
    ASSERT_TRUE(load());
    std::string text;
    db->mWorkCount = 0;
    ASSERT_TRUE(db->getString(seven, &text));
    EXPECT_EQ(db->mWorkCount, 8u + 2u + 7u);
    ASSERT_TRUE(db->getString(seventeen, &text));
    EXPECT_EQ(db->mWorkCount, 8u + 2u + 7u + 8u + 2u + 17u);
}

TEST_F(MoxDapDatabaseLimitsTest, GetString_TextPastWorkLimit_IsNotConverted) {
    moxdb::CatalogueBuilder cat;
    const uint32_t sixteen = cat.text("1234567890123456");
    store(cat);
    ASSERT_TRUE(load());
    // The seek and the length read fit, the text not.
    db->mWorkCount = MoxLimits::SEARCH_WORK_MAX - 9u;
    std::string text = "unchanged";
    DbgCapture capture;
    EXPECT_FALSE(db->getString(sixteen, &text));
    EXPECT_EQ(messages(capture),
              (std::vector<std::string>{workLimitMessage(), "getString|read error.\n"}));
    EXPECT_EQ(text, "unchanged");
    expectClosed();
}

TEST_F(MoxDapDatabaseLimitsTest, GetQuillAlbumTracksInfo_ListOfTrackLimitEntries_IsRead) {
    moxdb::CatalogueBuilder cat;
    std::vector<uint32_t> ids;
    for (uint32_t i = 0; i < MoxLimits::SEARCH_TRACK_MAX; ++i) {
        ids.push_back(i + 1);
    }
    const uint32_t list = cat.image().addTrackList(ids);
    store(cat);
    ASSERT_TRUE(load());
    QuillAlbumTracks tracks;
    DbgCapture capture;
    EXPECT_TRUE(db->getQuillAlbumTracksInfo(list, &tracks));
    EXPECT_TRUE(capture.records().empty());
    EXPECT_EQ(tracks.Count, MoxLimits::SEARCH_TRACK_MAX);
    EXPECT_EQ(tracks.TrackIds, ids);
}

TEST_F(MoxDapDatabaseLimitsTest, GetQuillAlbumTracksInfo_OneEntryPastTrackLimit_FailsAndCloses) {
    moxdb::CatalogueBuilder cat;
    const uint32_t list =
        cat.image().addTrackList(std::vector<uint32_t>(MoxLimits::SEARCH_TRACK_MAX + 1u, 7));
    store(cat);
    ASSERT_TRUE(load());
    QuillAlbumTracks tracks;
    DbgCapture capture;
    EXPECT_FALSE(db->getQuillAlbumTracksInfo(list, &tracks));
    EXPECT_EQ(messages(capture),
              (std::vector<std::string>{trackLimitMessage("getQuillAlbumTracksInfo", "i", 4096)}));
    EXPECT_EQ(tracks.TrackIds.size(), MoxLimits::SEARCH_TRACK_MAX);
    expectClosed();
}

// A list that claims more entries than the limit but ends sooner still ends
// at the end of the file, as before.
TEST_F(MoxDapDatabaseLimitsTest, GetQuillAlbumTracksInfo_HugeCountCutShort_ReportsTheEndOfFile) {
    moxdb::CatalogueBuilder cat;
    cat.image().placeLast(moxdb::Section::QuillAlbumTracks);
    const uint32_t list = cat.image().addTrackListWithCount(0xFFFFFFFFu, {1, 2, 3});
    store(cat);
    ASSERT_TRUE(load());
    QuillAlbumTracks tracks;
    DbgCapture capture;
    EXPECT_FALSE(db->getQuillAlbumTracksInfo(list, &tracks));
    EXPECT_EQ(messages(capture),
              (std::vector<std::string>{"dapFread|eof error.\n",
                                        "getQuillAlbumTracksInfo|read error i=3.\n"}));
}

}  // namespace
