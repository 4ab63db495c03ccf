#include "StoredSearch.h"

#include <fstream>
#include <iterator>
#include <utility>

#include "HbFramework/HbDbgOutput.h"
#include "HbFramework/HbString.h"
#include "ModuleLimits.h"
#include "moxdb/GenreNumbers.h"

namespace {

using moxdb::Section;

// The module's messages name its reader's source; logs and the tests compare
// against these names and lines, so each place keeps the module's number.
const char* const kSource = "private/MoxDapDatabase.cpp";

const uint32_t kVersionOffset = 4;
// The string area and the album-tracks section each begin with a word that
// is skipped.
const uint32_t kSkipWord = 4;
// A seek costs as much work as eight reads.
const uint32_t kSeekWork = 8;
// Longest string plus one, in units.
const uint16_t kStringBufferUnits = moxdb::kStringMaxUnits + 1;
// Length of one TOC text entry: one per track plus one for the lead-out.
const uint32_t kTocEntryLength = 6;

// Field offsets of the records that the search reads.
const size_t kTocAlbumId = 4;
const size_t kTocMediaNum = 8;  // u16
const size_t kAlbumMediaCount = 8;
const size_t kAlbumTitle = 12;
const size_t kAlbumGenre = 28;
const size_t kAlbumTracks = 32;
const size_t kAlbumConfidence = 36;
const size_t kAlbumLanguage = 40;
const size_t kTrackTitle = 4;
const size_t kTrackPerformer = 12;
const size_t kTrackGenre = 20;
const size_t kTrackMediaNum = 36;
const size_t kArtistName = 4;

uint32_t wordOf(const moxdb::Bytes& record, size_t offset) {
    return moxdb::getU32Le(record, offset);
}

// Ascending by confidence, equal ones not kept apart: the search's order
// comes from sorting with it and then reversing the list.
bool confidenceNotAbove(const HbSMoxDef::AlbumInfo& first, const HbSMoxDef::AlbumInfo& second) {
    return first.Confidence <= second.Confidence;
}

}  // namespace

template <class... Args>
bool StoredSearch::fail(const char* function, int line, const char* format, Args... args) {
    HbDbgOutput::DbgPrint(kSource, function, line, en_TAG_ERROR, format, args...);
    close();
    return false;
}

// --- The file -------------------------------------------------------------------

bool StoredSearch::open() {
    mWorkCount = 0;
    mTrackCount = 0;
    std::ifstream in(mPath, std::ios::binary);
    if (!in) {
        return fail("openSearchResultFile", 189, "%s", "search result file open error.\n");
    }
    mImage.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    mPosition = 0;
    mOpen = true;
    return true;
}

void StoredSearch::close() {
    mOpen = false;
    mLoaded = false;
    moxdb::Bytes().swap(mImage);
}

// Any 32-bit position may be sought, past the end too (the read after it
// fails), as with the C stream on a host whose long holds every such offset.
bool StoredSearch::seek(uint32_t offset) {
    if (!mOpen) {
        return fail("dapFseek", 268, "%s", "mpReadFile is NULL.\n");
    }
    mWorkCount += kSeekWork;
    mPosition = offset;
    return true;
}

// A short read fails at the end of the file, as the C stream's does.
bool StoredSearch::read(size_t size, moxdb::Bytes* out) {
    if (!mOpen) {
        return fail("dapFread", 287, "%s", "mpReadFile is NULL.\n");
    }
    if (mWorkCount >= ModuleLimits::kSearchWorkMax) {
        HbDbgOutput::DbgPrint(kSource, "dapFread", 292, en_TAG_ERROR,
                              "search work limit (%u) reached.\n", ModuleLimits::kSearchWorkMax);
        return false;
    }
    ++mWorkCount;
    if (size == 0) {
        out->clear();
        return true;
    }
    if (mPosition > mImage.size() || mImage.size() - mPosition < size) {
        HbDbgOutput::DbgPrint(kSource, "dapFread", 305, en_TAG_ERROR, "%s", "eof error.\n");
        return false;
    }
    const auto from = mImage.begin() + static_cast<std::ptrdiff_t>(mPosition);
    out->assign(from, from + static_cast<std::ptrdiff_t>(size));
    mPosition += size;
    return true;
}

bool StoredSearch::readU16(uint16_t* value) {
    if (!read(2, &mScratch)) {
        return false;
    }
    *value = moxdb::getU16Le(mScratch, 0);
    return true;
}

bool StoredSearch::readU32(uint32_t* value) {
    if (!read(4, &mScratch)) {
        return false;
    }
    *value = moxdb::getU32Le(mScratch, 0);
    return true;
}

uint32_t StoredSearch::tableWord(Section section) const {
    return moxdb::getU32Le(mTable, 4 * static_cast<size_t>(section));
}

// --- The module's reads ------------------------------------------------------------

bool StoredSearch::readHeader(moxdb::Bytes* header) {
    if (!mOpen) {
        return fail("getDbHeader", 212, "%s", "mpReadFile is NULL.\n");
    }
    if (!seek(0)) {
        return fail("getDbHeader", 218, "%s", "seek error.\n");
    }
    if (!read(moxdb::kHeaderSize, header)) {
        return fail("getDbHeader", 223, "%s", "read error.\n");
    }
    return true;
}

// Every version whose top byte is at most 0x01, and 0x10000000.
bool StoredSearch::acceptVersion(const moxdb::Bytes& header) {
    const uint32_t version = wordOf(header, kVersionOffset);
    if ((version & 0xFF000000u) <= 0x01000000u || version == 0x10000000u) {
        return true;
    }
    return fail("judgeDapDbVer", 237, "%s", "unknown version.\n");
}

bool StoredSearch::readTable() {
    if (!mOpen) {
        return fail("getDbToc", 245, "%s", "mpReadFile is NULL.\n");
    }
    if (!seek(moxdb::kTableOffset)) {
        return fail("getDbToc", 250, "%s", "seek error.\n");
    }
    if (!read(moxdb::kTableSize, &mTable)) {
        return fail("getDbToc", 255, "%s", "read error.\n");
    }
    mStringBase = tableWord(Section::StringTable) + kSkipWord;
    mLoaded = true;
    return true;
}

// A u16 unit count below 1024, then the UTF-16LE units, converted to UTF-8
// up to the first zero unit. `*text` is left as it is on failure.
bool StoredSearch::readString(uint32_t offset, std::string* text) {
    if (!mOpen) {
        return fail("getString", 316, "%s", "mpReadFile is NULL.\n");
    }
    if (!mLoaded) {
        return fail("getString", 321, "%s", "mpDbToc is NULL.\n");
    }
    if (!seek(mStringBase + offset)) {
        return fail("getString", 326, "%s", "seek error.\n");
    }
    uint16_t length = 0;
    if (!readU16(&length)) {
        return fail("getString", 332, "%s", "read error.\n");
    }
    if (length >= kStringBufferUnits) {
        return fail("getString", 337, "lStrSize(%d) >= STRING_BUF_MAX(%d) . %d.\n",
                    static_cast<int>(length), static_cast<int>(kStringBufferUnits), 0);
    }
    // Each unit counts like a read, before it is read.
    mWorkCount += length;
    if (!read(2u * length, &mScratch)) {
        return fail("getString", 352, "%s", "read error.\n");
    }
    mUnits.resize(length + 1u);
    for (size_t i = 0; i < length; ++i) {
        mUnits[i] = moxdb::getU16Le(mScratch, 2 * i);
    }
    mUnits[length] = 0;
    HbString converted;
    converted.Copy(mUnits.data(), HbString::en_CODE_PAGE_UTF16);
    *text = converted.ToCHAR(HbString::en_CODE_PAGE_UTF8);
    return true;
}

// A linear scan of the section's RecordCount records at the family's own
// size. With `zeroRule`, identifier 0 means "no record": true at once, the
// record left as it is. A missing identifier zero-fills the record and closes
// the file without a message.
bool StoredSearch::findRecord(const char* function, uint32_t id, Section section, bool zeroRule,
                              moxdb::Bytes* record) {
    if (!mOpen) {
        return fail(function, 60, "%s", "mpReadFile is NULL.\n");
    }
    if (!mLoaded) {
        return fail(function, 65, "%s", "mpDbToc is NULL.\n");
    }
    if (zeroRule && id == 0) {
        return true;
    }
    if (!seek(tableWord(section))) {
        return fail(function, 73, "%s", "seek error.\n");
    }
    if (!read(moxdb::kHeadSize, &mScratch)) {
        return fail(function, 80, "%s", "read error.\n");
    }
    const uint16_t count = moxdb::getU16Le(mScratch, 6);
    const size_t size = moxdb::recordSizeOf(section);
    for (uint16_t index = 0; index < count; ++index) {
        if (!read(size, record)) {
            return fail(function, 86, "read error lCnt=%d.\n", static_cast<int>(index));
        }
        if (wordOf(*record, 0) == id) {
            return true;
        }
    }
    record->assign(size, 0);
    close();
    return false;
}

// An album's track list at `offset` in the album-tracks section: a u32
// count, then that many u32 track identifiers.
bool StoredSearch::readTrackList(uint32_t offset, std::vector<uint32_t>* trackIds) {
    const char* const function = "getQuillAlbumTracksInfo";
    if (!mOpen) {
        return fail(function, 384, "%s", "mpReadFile is NULL.\n");
    }
    if (!mLoaded) {
        return fail(function, 390, "%s", "mpDbToc is NULL.\n");
    }
    if (!seek(tableWord(Section::QuillAlbumTracks) + kSkipWord + offset)) {
        return fail(function, 396, "%s", "seek error.\n");
    }
    uint32_t count = 0;
    if (!readU32(&count)) {
        return fail(function, 402, "%s", "read error.\n");
    }
    trackIds->clear();
    for (uint32_t i = 0; i < count; ++i) {
        if (i >= ModuleLimits::kSearchTrackMax) {
            return fail(function, 416, "search track limit (%u) reached. i=%d\n",
                        ModuleLimits::kSearchTrackMax, static_cast<int>(i));
        }
        uint32_t trackId = 0;
        if (!readU32(&trackId)) {
            return fail(function, 424, "read error i=%d.\n", static_cast<int>(i));
        }
        trackIds->push_back(trackId);
    }
    return true;
}

// Every TOC record whose text equals `toc` byte for byte, in section order,
// read at the head's RecordSize stride (positions in 32 bits).
bool StoredSearch::findTocMatches(const std::string& toc, std::vector<moxdb::Bytes>* matches) {
    const char* const function = "getQuillTocList";
    if (!mOpen) {
        return fail(function, 801, "%s", "mpReadFile is NULL.\n");
    }
    if (!mLoaded) {
        return fail(function, 807, "%s", "mpDbToc is NULL.\n");
    }
    const uint32_t sectionOffset = tableWord(Section::QuillToc);
    if (!seek(sectionOffset)) {
        return fail(function, 815, "%s", "seek error.\n");
    }
    if (!read(moxdb::kHeadSize, &mScratch)) {
        return fail(function, 822, "%s", "read error.\n");
    }
    const uint16_t stride = moxdb::getU16Le(mScratch, 4);
    const uint16_t count = moxdb::getU16Le(mScratch, 6);
    matches->clear();
    moxdb::Bytes record;
    std::string stored;
    for (uint32_t i = 0; i < count; ++i) {
        const int index = static_cast<int>(i);
        if (!seek(sectionOffset + moxdb::kHeadSize + i * stride)) {
            return fail(function, 838, "seek error i=%d.\n", index);
        }
        if (!read(moxdb::kTocRecordSize, &record)) {
            return fail(function, 846, "read error i=%d.\n", index);
        }
        stored.clear();
        if (!readString(wordOf(record, 0), &stored)) {
            return fail(function, 853, "get string error i=%d.\n", index);
        }
        if (stored == toc) {
            matches->push_back(record);
        }
    }
    return true;
}

// --- Album assembly ---------------------------------------------------------------

// The album record's texts and numbers, then every track of its list that
// lies on `mediaNum`. The track, artist and genre records start zero-filled
// once for the whole album.
bool StoredSearch::assembleAlbum(uint32_t albumId, uint16_t mediaNum, HbSMoxDef::AlbumInfo* album) {
    const char* const function = "getAlbumInfo";
    moxdb::Bytes albumRecord(moxdb::kAlbumRecordSize, 0);
    TrackRecords records{moxdb::Bytes(moxdb::kTrackRecordSize, 0),
                         moxdb::Bytes(moxdb::kArtistRecordSize, 0),
                         moxdb::Bytes(moxdb::kGenreRecordSize, 0)};
    HbSMoxDef::TrackInfo track;
    if (!mOpen) {
        return fail(function, 626, "%s", "mpReadFile is NULL.\n");
    }
    if (!mLoaded) {
        return fail(function, 632, "%s", "mpDbToc is NULL.\n");
    }
    if (!findRecord("getQuillAlbumInfo", albumId, Section::QuillAlbum, false, &albumRecord)) {
        return fail(function, 638, "%s", "getQuillAlbumInfo return false.\n");
    }
    readAlbumTexts(albumRecord, mediaNum, album);
    std::vector<uint32_t> trackIds;
    if (!readTrackList(wordOf(albumRecord, kAlbumTracks), &trackIds)) {
        return fail(function, 658, "%s", "getQuillAlbumTracksInfo return false.\n");
    }
    album->Tracks.clear();
    for (size_t n = 0; n < trackIds.size(); ++n) {
        if (addTrack(trackIds[n], mediaNum, static_cast<int>(n), &records, &track, album) ==
            TrackOutcome::Failed) {
            return false;
        }
    }
    if (album->Tracks.empty()) {
        return fail(function, 721, "%s", "npAlbum->Tracks.size() == 0.\n");
    }
    return true;
}

// A failed text read is not reported here: it closes the file, and the
// track list read after it fails.
void StoredSearch::readAlbumTexts(const moxdb::Bytes& albumRecord, uint16_t mediaNum,
                                  HbSMoxDef::AlbumInfo* album) {
    std::string language;
    album->Database = 1;
    (void)readString(wordOf(albumRecord, 0), &album->AlbumId);
    (void)readString(wordOf(albumRecord, kAlbumTitle), &album->AlbumName);
    (void)readString(wordOf(albumRecord, kAlbumGenre), &album->GenreName);
    album->GenreID = moxdb::GenreNumbers::numberOf(album->GenreName);
    album->Confidence = static_cast<int32>(wordOf(albumRecord, kAlbumConfidence));
    (void)readString(wordOf(albumRecord, kAlbumLanguage), &language);
    album->AlbumLang = moxdb::GenreNumbers::languageOf(language);
    album->MediaCount = static_cast<int32>(wordOf(albumRecord, kAlbumMediaCount));
    album->MediaNum = static_cast<int32>(mediaNum);
}

StoredSearch::TrackOutcome StoredSearch::addTrack(uint32_t trackId, uint16_t mediaNum, int index,
                                                  TrackRecords* records,
                                                  HbSMoxDef::TrackInfo* track,
                                                  HbSMoxDef::AlbumInfo* album) {
    const char* const function = "getAlbumInfo";
    if (!findRecord("getQuillTrackInfo", trackId, Section::QuillTrack, true, &records->track)) {
        fail(function, 668, "getQuillTrackInfo return false. n=%d\n", index);
        return TrackOutcome::Failed;
    }
    if (wordOf(records->track, kTrackMediaNum) != static_cast<uint32_t>(mediaNum)) {
        return TrackOutcome::OtherMedium;
    }
    if (mTrackCount >= ModuleLimits::kSearchTrackMax) {
        fail(function, 679, "search track limit (%u) reached. n=%d\n",
             ModuleLimits::kSearchTrackMax, index);
        return TrackOutcome::Failed;
    }
    if (!readString(wordOf(records->track, kTrackTitle), &track->TrackName)) {
        fail(function, 686, "getString return false. n=%d\n", index);
        return TrackOutcome::Failed;
    }
    if (!findRecord("getQuillArtistInfo", wordOf(records->track, kTrackPerformer),
                    Section::QuillArtist, true, &records->artist)) {
        fail(function, 692, "getQuillArtistInfo return false. n=%d\n", index);
        return TrackOutcome::Failed;
    }
    if (!readString(wordOf(records->artist, kArtistName), &track->PerformerName)) {
        fail(function, 698, "getString return false. n=%d\n", index);
        return TrackOutcome::Failed;
    }
    if (!findRecord("getQuillGenreInfo", wordOf(records->track, kTrackGenre), Section::QuillGenre,
                    true, &records->genre)) {
        fail(function, 704, "getQuillGenreInfo return false. n=%d\n", index);
        return TrackOutcome::Failed;
    }
    if (!readString(wordOf(records->genre, 0), &track->GenreName)) {
        fail(function, 710, "getString return false. n=%d\n", index);
        return TrackOutcome::Failed;
    }
    track->GenreID = moxdb::GenreNumbers::numberOf(track->GenreName);
    album->Tracks.push_back(*track);
    ++mTrackCount;
    return TrackOutcome::Added;
}

// --- The search -------------------------------------------------------------------

bool StoredSearch::run(const std::string& toc, std::list<HbSMoxDef::AlbumInfo>* albums) {
    const char* const function = "getSearchResult";
    if (!open()) {
        return fail(function, 739, "%s", "openSearchResultFile error.\n");
    }
    moxdb::Bytes header;
    if (!readHeader(&header)) {
        return fail(function, 746, "%s", "getDbHeader error.\n");
    }
    if (!acceptVersion(header)) {
        return fail(function, 752, "%s", "judgeDapDbVer error.\n");
    }
    if (!readTable()) {
        return fail(function, 759, "%s", "getDbToc error.\n");
    }
    std::vector<moxdb::Bytes> matches;
    if (!findTocMatches(toc, &matches)) {
        return fail(function, 767, "%s", "getQuillTocList error.\n");
    }
    albums->clear();
    for (size_t i = 0; i < matches.size(); ++i) {
        HbSMoxDef::AlbumInfo album;
        if (!assembleAlbum(wordOf(matches[i], kTocAlbumId),
                           moxdb::getU16Le(matches[i], kTocMediaNum), &album)) {
            return fail(function, 777, "getAlbumInfo error i=%d.\n", static_cast<int>(i));
        }
        albums->push_back(std::move(album));
    }
    // Sorting ascending with a comparator that does not keep equals apart puts
    // equal confidences in reverse database order; reversing the whole list
    // gives best first with equals back in database order.
    albums->sort(confidenceNotAbove);
    albums->reverse();
    // Keeps the albums with (length / 6) - 1 tracks, in 32-bit unsigned
    // arithmetic: a text under 6 bytes keeps none.
    const uint32_t expected = static_cast<uint32_t>(toc.size()) / kTocEntryLength - 1u;
    albums->remove_if([expected](const HbSMoxDef::AlbumInfo& album) {
        return album.Tracks.size() != static_cast<size_t>(expected);
    });
    close();
    return true;
}
