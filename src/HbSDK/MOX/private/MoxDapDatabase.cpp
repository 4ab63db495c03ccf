// MoxDapDatabase: the reader of the stored response database (opening it, the
// guarded seek and read primitives, header, version and section table,
// strings, the per-family record lookups, the one-line renderings of the
// loaded structures) and the album search built on it (genre and language
// mapping, album assembly, the search over the TOC records, and the text form
// of the public records).
//
// Every failure prints its message and ends in init() (reportAndReset), so
// the file is closed and both buffers are freed; a caller prints its own
// message on top, so one fault gives one line per level.
#include "private/MoxDapDatabase.h"

#include <stdio_ext.h>
#include <sys/stat.h>

#include <cstring>
#include <iomanip>
#include <sstream>
#include <utility>

#include "HbFramework/HbDbgOutput.h"
#include "HbFramework/HbString.h"
#include "private/MoxLimits.h"
#include "private/MoxResultFile.h"

namespace {

const char* const SOURCE = "private/MoxDapDatabase.cpp";

// File layout of the fixed parts of the response database.
const unsigned int DB_HEADER_OFFSET = 0;
const unsigned int DB_TOC_OFFSET = 64;
// The string area and the album-tracks section each begin with a word the
// reader skips.
const unsigned int SECTION_SKIP_WORD = 4;
// Largest stream buffer given to the result file: the largest file that
// reception stores, so that every answer of the phone is fetched from the
// kernel once. A larger file is still read through a buffer of this size.
const uint64 READ_BUFFER_MAX = MoxLimits::RESULT_FILE_MAX;

// Work that one seek counts: the C stream asks the kernel on every seek (a
// system call), which costs about as much as eight reads from its buffer.
const uint32 SEEK_WORK = 8;

// Width of a hexadecimal field of the text form (a 32-bit value).
const int HEX_WIDTH = 8;

// Length of one TOC text entry: one per track plus one for the lead-out.
const uint32 TOC_ENTRY_LENGTH = 6;

// Every message names the reporting operation and a line. The lines are
// part of what the module prints ("private/MoxDapDatabase.cpp:292 dapFread:
// ..."), which logs and tools are compared against, so each place keeps its
// number as written here rather than whatever line it lands on.
void report(const char* function, int line, const char* text) {
    HbDbgOutput::DbgPrint(SOURCE, function, line, en_TAG_ERROR, "%s", text);
}

template <class Arg, class... Args>
void report(const char* function, int line, const char* format, Arg arg, Args... args) {
    HbDbgOutput::DbgPrint(SOURCE, function, line, en_TAG_ERROR, format, arg, args...);
}

// Reports a failure and closes the database (file and buffers): how every
// failure of the reader ends. Always false, for `return reportAndReset(...)`.
template <class... Args>
bool reportAndReset(MoxDapDatabase& db, const char* function, int line, const char* format,
                    Args... args) {
    report(function, line, format, args...);
    db.init();
    return false;
}

// Finds the record whose Id is `id` in the section at `sectionOffset` by a
// linear scan of RecordCount records of the family's own size (the head's
// RecordSize is ignored on purpose). `zeroRule`: identifier 0 means "no such
// record" and succeeds at once without reading. A missing identifier zero-fills
// `*rec` and closes the database without a message: the caller treats it as
// the end of the search.
template <class Rec>
bool findRecord(MoxDapDatabase& db, const char* function, unsigned int id, Rec* rec, bool zeroRule,
                unsigned int DbToc::*section) {
    if (db.mpReadFile == nullptr) {
        return reportAndReset(db, function, 60, "mpReadFile is NULL.\n");
    }
    if (db.mpDbToc == nullptr) {
        return reportAndReset(db, function, 65, "mpDbToc is NULL.\n");
    }
    if (zeroRule && id == 0) {
        return true;
    }
    if (!db.dapFseek(db.mpReadFile, db.mpDbToc->*section, SEEK_SET)) {
        return reportAndReset(db, function, 73, "seek error.\n");
    }
    QuillHead head;
    std::memset(&head, 0, sizeof(head));
    if (!db.dapFread(&head, 1, sizeof(head), db.mpReadFile)) {
        return reportAndReset(db, function, 80, "read error.\n");
    }
    for (unsigned int lCnt = 0; lCnt < head.RecordCount; ++lCnt) {
        if (!db.dapFread(rec, 1, sizeof(Rec), db.mpReadFile)) {
            return reportAndReset(db, function, 86, "read error lCnt=%d.\n",
                                  static_cast<int>(lCnt));
        }
        if (rec->Id == id) {
            return true;
        }
    }
    std::memset(static_cast<void*>(rec), 0, sizeof(Rec));
    db.init();
    return false;
}

// Writes "key0x" and `value` as eight lower-case hexadecimal digits.
void putHex32(std::ostringstream& out, const char* key, uint32 value) {
    out << key << "0x" << std::hex << std::setw(8) << std::setfill('0') << value;
}

// Writes "0x" and `value` as four lower-case hexadecimal digits, then a blank.
void putHex16Component(std::ostringstream& out, uint16 value) {
    out << "0x" << std::hex << std::setw(4) << std::setfill('0') << static_cast<uint32>(value)
        << " ";
}

// One key/value pair of a record rendering.
struct Field {
    const char* key;
    uint32 value;
};

// "key=0x........" for every field, separated by ", ", nothing after the last.
template <size_t N>
std::string renderFields(const Field (&fields)[N]) {
    std::ostringstream out;
    for (size_t i = 0; i < N; ++i) {
        if (i != 0) {
            out << ", ";
        }
        putHex32(out, fields[i].key, fields[i].value);
    }
    return out.str();
}

}  // namespace

// --- Reader -------------------------------------------------------------------

MoxDapDatabase::MoxDapDatabase()
    : mpDbHeader(nullptr),
      mpDbToc(nullptr),
      mStringBase(0),
      mpReadFile(nullptr),
      mGenreMap(),
      mReadBuffer(),
      mWorkCount(0),
      mTrackCount(0) {
    // Genre codes of the phone's database and the numbers the application
    // knows them by; 0 stays free for an unknown code.
    static const struct {
        const char* code;
        unsigned int id;
    } GENRES[] = {
        {"ROCK", 1},       {"COUNT", 2},   {"JAZZ", 3},        {"R&B", 4},   {"VOCAL", 5},
        {"WORLD", 6},      {"BLUES", 7},   {"ELEC", 8},        {"FOLK", 9},  {"OTHER", 10},
        {"CLASSICAL", 11}, {"DANCE", 12},  {"HIPHOP", 13},     {"JPOP", 14}, {"LATIN", 15},
        {"POP", 16},       {"REGGAE", 17}, {"SOUNDTRACK", 18},
    };
    for (const auto& genre : GENRES) {
        mGenreMap.insert(std::make_pair(std::string(genre.code), genre.id));
    }
}

MoxDapDatabase::~MoxDapDatabase() {
    init();
}

void MoxDapDatabase::DelInstance() {}

void MoxDapDatabase::init() {
    if (mpReadFile != nullptr) {
        std::fclose(mpReadFile);
        mpReadFile = nullptr;
        std::vector<char>().swap(mReadBuffer);  // the stream's buffer, free once it is closed
    }
    if (mpDbHeader != nullptr) {
        delete mpDbHeader;
        mpDbHeader = nullptr;
    }
    if (mpDbToc != nullptr) {
        delete mpDbToc;
        mpDbToc = nullptr;
    }
}

// Replaces mpReadFile without closing a stream that is already open: the
// caller starts from the closed state.
bool MoxDapDatabase::openSearchResultFile() {
    // A stream left open by the caller keeps using mReadBuffer: leave it alone.
    const bool bufferInUse = mpReadFile != nullptr;
    // Opening the stored answer starts a search: nothing of it is spent yet.
    mWorkCount = 0;
    mTrackCount = 0;
    mpReadFile = fopen64(MoxResultFile::FULL_PATH.c_str(), "r");
    if (mpReadFile == nullptr) {
        return reportAndReset(*this, "openSearchResultFile", 189,
                              "search result file open error.\n");
    }
    // Searches never overlap (the reader takes no lock and its callers must
    // not run two at once), so the stream's own lock would only cost an
    // atomic operation on every one of a search's thousands of reads.
    __fsetlocking(mpReadFile, FSETLOCKING_BYCALLER);
    // The record lookups seek back and forth over the whole (small) file; with
    // a buffer of the whole file every seek stays inside it, instead of
    // fetching the same blocks from the kernel again and again.
    struct stat64 info;
    if (!bufferInUse && fstat64(fileno(mpReadFile), &info) == 0 && info.st_size > 0) {
        const uint64 fileSize = static_cast<uint64>(info.st_size);
        mReadBuffer.resize(
            static_cast<size_t>(fileSize < READ_BUFFER_MAX ? fileSize : READ_BUFFER_MAX));
        if (std::setvbuf(mpReadFile, mReadBuffer.data(), _IOFBF, mReadBuffer.size()) != 0) {
            std::vector<char>().swap(mReadBuffer);  // the stream keeps its own buffer
        }
    }
    return true;
}

// Needs mpDbHeader allocated by the caller.
bool MoxDapDatabase::getDbHeader() {
    if (mpReadFile == nullptr) {
        return reportAndReset(*this, "getDbHeader", 212, "mpReadFile is NULL.\n");
    }
    if (!dapFseek(mpReadFile, DB_HEADER_OFFSET, SEEK_SET)) {
        return reportAndReset(*this, "getDbHeader", 218, "seek error.\n");
    }
    if (!dapFread(mpDbHeader, 1, sizeof(DbHeader), mpReadFile)) {
        return reportAndReset(*this, "getDbHeader", 223, "read error.\n");
    }
    return true;
}

// Accepts every version whose top byte is at most 0x01, and 0x10000000.
// Needs the header loaded.
bool MoxDapDatabase::judgeDapDbVer() {
    const uint32 version = mpDbHeader->Version;
    if ((version & 0xFF000000u) <= 0x01000000u || version == 0x10000000u) {
        return true;
    }
    return reportAndReset(*this, "judgeDapDbVer", 237, "unknown version.\n");
}

// Needs mpDbToc allocated by the caller; sets mStringBase on success.
bool MoxDapDatabase::getDbToc() {
    if (mpReadFile == nullptr) {
        return reportAndReset(*this, "getDbToc", 245, "mpReadFile is NULL.\n");
    }
    if (!dapFseek(mpReadFile, DB_TOC_OFFSET, SEEK_SET)) {
        return reportAndReset(*this, "getDbToc", 250, "seek error.\n");
    }
    if (!dapFread(mpDbToc, 1, sizeof(DbToc), mpReadFile)) {
        return reportAndReset(*this, "getDbToc", 255, "read error.\n");
    }
    mStringBase = mpDbToc->StringTable + SECTION_SKIP_WORD;
    return true;
}

// A failing seek is reported here and again by the caller; only a missing
// stream closes the database here. Every seek counts against the work limit
// of the search; the read that follows it is refused once the limit is met.
bool MoxDapDatabase::dapFseek(FILE* file, unsigned int offset, unsigned int whence) {
    if (file == nullptr) {
        return reportAndReset(*this, "dapFseek", 268, "mpReadFile is NULL.\n");
    }
    mWorkCount += SEEK_WORK;
    const int result = std::fseek(file, static_cast<long>(offset), static_cast<int>(whence));
    if (result != 0) {
        report("dapFseek", 275, "fseek return %d.\n", result);
        return false;
    }
    return true;
}

// True only when all `count` items were read; a short read is a failure.
// Every call counts against the work limit of the search: a read past it
// fails like a read error, so the caller reports it and closes the database.
bool MoxDapDatabase::dapFread(void* buffer, unsigned int size, unsigned int count, FILE* file) {
    if (file == nullptr) {
        return reportAndReset(*this, "dapFread", 287, "mpReadFile is NULL.\n");
    }
    if (mWorkCount >= MoxLimits::SEARCH_WORK_MAX) {
        report("dapFread", 292, "search work limit (%u) reached.\n", MoxLimits::SEARCH_WORK_MAX);
        return false;
    }
    ++mWorkCount;
    if (std::fread(buffer, size, count, file) == count) {
        return true;
    }
    if (std::ferror(file) != 0) {
        report("dapFread", 301, "read error.\n");
        return false;
    }
    if (std::feof(file) != 0) {
        report("dapFread", 305, "eof error.\n");
        return false;
    }
    return false;
}

// Resolves the string at string offset `offset`: a u16 unit count L below
// STRING_BUF_MAX, then L UTF-16LE units, converted to UTF-8 up to the first
// zero unit. `*text` is left unchanged on failure.
bool MoxDapDatabase::getString(unsigned int offset, std::string* text) {
    if (mpReadFile == nullptr) {
        return reportAndReset(*this, "getString", 316, "mpReadFile is NULL.\n");
    }
    if (mpDbToc == nullptr) {
        return reportAndReset(*this, "getString", 321, "mpDbToc is NULL.\n");
    }
    if (!dapFseek(mpReadFile, mStringBase + offset, SEEK_SET)) {
        return reportAndReset(*this, "getString", 326, "seek error.\n");
    }
    uint16 lStrSize = 0;
    if (!dapFread(&lStrSize, 1, sizeof(lStrSize), mpReadFile)) {
        return reportAndReset(*this, "getString", 332, "read error.\n");
    }
    if (lStrSize >= STRING_BUF_MAX) {
        return reportAndReset(*this, "getString", 337, "lStrSize(%d) >= STRING_BUF_MAX(%d) . %d.\n",
                              static_cast<int>(lStrSize), static_cast<int>(STRING_BUF_MAX), 0);
    }
    // One unit more than the longest string, for the terminator the file
    // does not store.
    unsigned short buffer[STRING_BUF_MAX + 1];
    // Each unit of the text counts like a read: converting and keeping it
    // costs time and memory in proportion to its length, which its two reads
    // do not show. Counted before the read, so that a text past the limit is
    // not converted.
    mWorkCount += lStrSize;
    if (!dapFread(buffer, 1, 2u * lStrSize, mpReadFile)) {
        return reportAndReset(*this, "getString", 352, "read error.\n");
    }
    buffer[lStrSize] = 0;
    HbString converted;
    converted.Copy(buffer, HbString::en_CODE_PAGE_UTF16);
    *text = converted.ToCHAR(HbString::en_CODE_PAGE_UTF8);
    return true;
}

bool MoxDapDatabase::getQuillTrackInfo(unsigned int id, QuillTrackRec* rec) {
    return findRecord(*this, "getQuillTrackInfo", id, rec, true, &DbToc::QuillTrack);
}

// Identifier 0 is searched like any other here.
bool MoxDapDatabase::getQuillAlbumInfo(unsigned int id, QuillAlbumRec* rec) {
    return findRecord(*this, "getQuillAlbumInfo", id, rec, false, &DbToc::QuillAlbum);
}

bool MoxDapDatabase::getQuillArtistInfo(unsigned int id, QuillArtistRec* rec) {
    return findRecord(*this, "getQuillArtistInfo", id, rec, true, &DbToc::QuillArtist);
}

bool MoxDapDatabase::getQuillGenreInfo(unsigned int id, QuillGenreRec* rec) {
    return findRecord(*this, "getQuillGenreInfo", id, rec, true, &DbToc::QuillGenre);
}

// Reads the track list at byte `offset` of the album-tracks section (an
// album's Tracks): a u32 count, then that many u32 track identifiers.
bool MoxDapDatabase::getQuillAlbumTracksInfo(unsigned int offset, QuillAlbumTracks* list) {
    if (mpReadFile == nullptr) {
        return reportAndReset(*this, "getQuillAlbumTracksInfo", 384, "mpReadFile is NULL.\n");
    }
    if (mpDbToc == nullptr) {
        return reportAndReset(*this, "getQuillAlbumTracksInfo", 390, "mpDbToc is NULL.\n");
    }
    if (!dapFseek(mpReadFile, mpDbToc->QuillAlbumTracks + SECTION_SKIP_WORD + offset, SEEK_SET)) {
        return reportAndReset(*this, "getQuillAlbumTracksInfo", 396, "seek error.\n");
    }
    if (!dapFread(&list->Count, 1, sizeof(list->Count), mpReadFile)) {
        return reportAndReset(*this, "getQuillAlbumTracksInfo", 402, "read error.\n");
    }
    list->TrackIds.clear();
    if (list->Count == 0) {
        return true;
    }
    // The count comes from the file: grow one entry at a time, so a bogus
    // count ends at the end of the file instead of in one huge allocation. No
    // album lists more tracks than one search may assemble.
    for (uint32 i = 0; i < list->Count; ++i) {
        if (i >= MoxLimits::SEARCH_TRACK_MAX) {
            return reportAndReset(*this, "getQuillAlbumTracksInfo", 416,
                                  "search track limit (%u) reached. i=%d\n",
                                  MoxLimits::SEARCH_TRACK_MAX, static_cast<int>(i));
        }
        uint32 trackId = 0;
        if (!dapFread(&trackId, 1, sizeof(trackId), mpReadFile)) {
            return reportAndReset(*this, "getQuillAlbumTracksInfo", 424, "read error i=%d.\n",
                                  static_cast<int>(i));
        }
        list->TrackIds.push_back(trackId);
    }
    return true;
}

// --- Renderings of the loaded structures -----------------------------------
// Each builds its line on its own stream, so the hexadecimal and fill
// settings never reach other output.

// Needs the header loaded. The signature's four bytes are copied as they are,
// zero bytes included.
std::string MoxDapDatabase::getStrDbHeader() {
    std::ostringstream out;
    out << "Signature=";
    for (char c : mpDbHeader->Signature) {
        out.put(c);
    }
    out << ", ";
    putHex32(out, "Version=", mpDbHeader->Version);
    out << ", AppVer1={";
    for (uint16 component : mpDbHeader->AppVer1) {
        putHex16Component(out, component);
    }
    out << "}, AppVer2={";
    for (uint16 component : mpDbHeader->AppVer2) {
        putHex16Component(out, component);
    }
    out << "}";
    return out.str();
}

// Needs the section table loaded.
std::string MoxDapDatabase::getStrDbToc() {
    const DbToc& toc = *mpDbToc;
    const Field fields[] = {
        {"OwnSize=", toc.OwnSize},
        {"RudTrack=", toc.RudTrack},
        {"RudPlaylist=", toc.RudPlaylist},
        {"RudPlaylistTrack=", toc.RudPlaylistTrack},
        {"StringTable=", toc.StringTable},
        {"StringList=", toc.StringList},
        {"QuillTrack=", toc.QuillTrack},
        {"QuillAlbum=", toc.QuillAlbum},
        {"QuillAlbumTracks=", toc.QuillAlbumTracks},
        {"QuillCredits=", toc.QuillCredits},
        {"QuillArtist=", toc.QuillArtist},
        {"QuillGenre=", toc.QuillGenre},
        {"QuillDesc=", toc.QuillDesc},
        {"QuillToc=", toc.QuillToc},
        {"QuillTrackIndices=", toc.QuillTrackIndices},
    };
    return renderFields(fields);
}

std::string MoxDapDatabase::getStrQuillHead(QuillHead& head) {
    const Field fields[] = {
        {"OwnSize=", head.OwnSize},
        {"RecordSize=", head.RecordSize},
        {"RecordCount=", head.RecordCount},
    };
    return renderFields(fields);
}

// The field at offset 16 (RudArtFileName) is shown before the one at offset
// 12 (RudPictFolderPath); the unnamed word after MediaNum is not shown.
std::string MoxDapDatabase::getStrTocRec(QuillTocRec& rec) {
    const Field fields[] = {
        {"Id=", rec.Id},
        {"AlbumId=", rec.AlbumId},
        {"MediaNum=", rec.MediaNum},
        {"RudArtFileName=", rec.RudArtFileName},
        {"RudPictFolderPath=", rec.RudPictFolderPath},
    };
    return renderFields(fields);
}

std::string MoxDapDatabase::getStrAlbumRec(QuillAlbumRec& rec) {
    const Field fields[] = {
        {"Id=", rec.Id},
        {"MediaNum=", rec.MediaNum},
        {"MediaCount=", rec.MediaCount},
        {"Title=", rec.Title},
        {"TitleYomi=", rec.TitleYomi},
        {"Performer=", rec.Performer},
        {"Composer=", rec.Composer},
        {"Genre=", rec.Genre},
        {"Tracks=", rec.Tracks},
        {"Confidence=", rec.Confidence},
        {"Language=", rec.Language},
        {"ImageUrl=", rec.ImageUrl},
        {"Upc=", rec.Upc},
        {"RelYear=", rec.RelYear},
        {"PickFlag=", rec.PickFlag},
        {"KeyTitle=", rec.KeyTitle},
        {"Credits=", rec.Credits},
        {"FirstTrackByMedia=", rec.FirstTrackByMedia},
        {"Styles=", rec.Styles},
        {"Tones=", rec.Tones},
        {"Themas=", rec.Themas},
    };
    return renderFields(fields);
}

std::string MoxDapDatabase::getStrTrackRec(QuillTrackRec& rec) {
    const Field fields[] = {
        {"Id=", rec.Id},
        {"Title=", rec.Title},
        {"TitleYomi=", rec.TitleYomi},
        {"Performer=", rec.Performer},
        {"Composer=", rec.Composer},
        {"Genre=", rec.Genre},
        {"Time=", rec.Time},
        {"Language=", rec.Language},
        {"Confidence=", rec.Confidence},
        {"MediaNum=", rec.MediaNum},
        {"TrackNum=", rec.TrackNum},
        {"PickFlag=", rec.PickFlag},
        {"KeyTitle=", rec.KeyTitle},
        {"Work=", rec.Work},
        {"Part=", rec.Part},
        {"Conductor=", rec.Conductor},
        {"PerfDate=", rec.PerfDate},
        {"CompDate=", rec.CompDate},
    };
    return renderFields(fields);
}

std::string MoxDapDatabase::getStrArtistRec(QuillArtistRec& rec) {
    const Field fields[] = {
        {"Id=", rec.Id},
        {"Name=", rec.Name},
        {"NameYomi=", rec.NameYomi},
        {"KeyName=", rec.KeyName},
        {"Genre=", rec.Genre},
        {"Styles=", rec.Styles},
        {"Tones=", rec.Tones},
        {"Themas=", rec.Themas},
        {"SimilarArtists=", rec.SimilarArtists},
        {"Influences=", rec.Influences},
        {"Followers=", rec.Followers},
    };
    return renderFields(fields);
}

std::string MoxDapDatabase::getStrGenreRec(QuillGenreRec& rec) {
    const Field fields[] = {
        {"Id=", rec.Id},
        {"Name=", rec.Name},
    };
    return renderFields(fields);
}

// --- Genre and language mapping ---------------------------------------------

unsigned int MoxDapDatabase::getRudGenreID(std::string& code) {
    std::map<std::string, unsigned int>::const_iterator found = mGenreMap.find(code);
    if (found == mGenreMap.end()) {
        return 0;
    }
    return found->second;
}

uint8 MoxDapDatabase::getJalsLanguage(std::string& text) {
    if (text == "ja") {
        return 3;
    }
    return 5;
}

// --- Album assembly ---------------------------------------------------------

// Builds `album` for one TOC match: the album record's texts and numbers, then
// every track of the album-tracks list that lies on `mediaNum`.
//
// The working records are zero-filled once for the whole call, not per track.
// The record lookups treat identifier 0 as "no record" and leave the record as
// it is, so a track whose Performer or Genre is 0 takes the artist or genre of
// the previous kept track (the text at string offset 0 for the first one), and
// a track identifier 0 reuses the previous track record, which lists that
// track again when it lies on the requested medium. TrackNum stays 0: a
// track's number is its position in Tracks.
bool MoxDapDatabase::getAlbumInfo(unsigned int albumId, unsigned short mediaNum,
                                  HbSMoxDef::AlbumInfo* album) {
    QuillAlbumRec albumRec;
    QuillAlbumTracks albumTracks;
    TrackRecords records;
    std::memset(&albumRec, 0, sizeof(albumRec));
    albumTracks.Count = 0;
    albumTracks.TrackIds.clear();
    std::memset(&records.track, 0, sizeof(records.track));
    std::memset(&records.artist, 0, sizeof(records.artist));
    std::memset(&records.genre, 0, sizeof(records.genre));
    HbSMoxDef::TrackInfo track;

    if (mpReadFile == nullptr) {
        return reportAndReset(*this, "getAlbumInfo", 626, "mpReadFile is NULL.\n");
    }
    if (mpDbToc == nullptr) {
        return reportAndReset(*this, "getAlbumInfo", 632, "mpDbToc is NULL.\n");
    }
    if (!getQuillAlbumInfo(albumId, &albumRec)) {
        return reportAndReset(*this, "getAlbumInfo", 638, "getQuillAlbumInfo return false.\n");
    }
    readAlbumTexts(albumRec, mediaNum, album);
    if (!getQuillAlbumTracksInfo(albumRec.Tracks, &albumTracks)) {
        return reportAndReset(*this, "getAlbumInfo", 658,
                              "getQuillAlbumTracksInfo return false.\n");
    }
    album->Tracks.clear();
    for (size_t n = 0; n < albumTracks.TrackIds.size(); ++n) {
        if (addAlbumTrack(albumTracks.TrackIds[n], mediaNum, static_cast<int>(n), &records, &track,
                          album) == TRACK_FAILED) {
            return false;
        }
    }
    if (album->Tracks.empty()) {
        return reportAndReset(*this, "getAlbumInfo", 721, "npAlbum->Tracks.size() == 0.\n");
    }
    return true;
}

// The album-level fields. Its texts are taken as read: a failed read is not
// reported here, it closes the database and the track list read after it then
// fails.
void MoxDapDatabase::readAlbumTexts(const QuillAlbumRec& albumRec, unsigned short mediaNum,
                                    HbSMoxDef::AlbumInfo* album) {
    std::string language;
    album->Database = 1;
    (void)getString(albumRec.Id, &album->AlbumId);
    (void)getString(albumRec.Title, &album->AlbumName);
    (void)getString(albumRec.Genre, &album->GenreName);
    album->GenreID = getRudGenreID(album->GenreName);
    album->Confidence = static_cast<int32>(albumRec.Confidence);
    (void)getString(albumRec.Language, &language);
    album->AlbumLang = getJalsLanguage(language);
    album->MediaCount = static_cast<int32>(albumRec.MediaCount);
    album->MediaNum = static_cast<int32>(mediaNum);
}

// Track `index` of the album's list: its record, then title, performer and
// genre, appended to the album when it belongs to medium `mediaNum`. A failure
// is reported with the index and closes the database.
MoxDapDatabase::TrackOutcome MoxDapDatabase::addAlbumTrack(unsigned int trackId,
                                                           unsigned short mediaNum, int index,
                                                           TrackRecords* records,
                                                           HbSMoxDef::TrackInfo* track,
                                                           HbSMoxDef::AlbumInfo* album) {
    if (!getQuillTrackInfo(trackId, &records->track)) {
        reportAndReset(*this, "getAlbumInfo", 668, "getQuillTrackInfo return false. n=%d\n", index);
        return TRACK_FAILED;
    }
    // Tracks of the album's other media are not part of this album.
    if (records->track.MediaNum != static_cast<uint32>(mediaNum)) {
        return TRACK_OF_OTHER_MEDIUM;
    }
    // Bounds the memory of the whole result, over all albums of the search.
    if (mTrackCount >= MoxLimits::SEARCH_TRACK_MAX) {
        reportAndReset(*this, "getAlbumInfo", 679, "search track limit (%u) reached. n=%d\n",
                       MoxLimits::SEARCH_TRACK_MAX, index);
        return TRACK_FAILED;
    }
    if (!getString(records->track.Title, &track->TrackName)) {
        reportAndReset(*this, "getAlbumInfo", 686, "getString return false. n=%d\n", index);
        return TRACK_FAILED;
    }
    if (!getQuillArtistInfo(records->track.Performer, &records->artist)) {
        reportAndReset(*this, "getAlbumInfo", 692, "getQuillArtistInfo return false. n=%d\n",
                       index);
        return TRACK_FAILED;
    }
    if (!getString(records->artist.Name, &track->PerformerName)) {
        reportAndReset(*this, "getAlbumInfo", 698, "getString return false. n=%d\n", index);
        return TRACK_FAILED;
    }
    if (!getQuillGenreInfo(records->track.Genre, &records->genre)) {
        reportAndReset(*this, "getAlbumInfo", 704, "getQuillGenreInfo return false. n=%d\n", index);
        return TRACK_FAILED;
    }
    if (!getString(records->genre.Id, &track->GenreName)) {
        reportAndReset(*this, "getAlbumInfo", 710, "getString return false. n=%d\n", index);
        return TRACK_FAILED;
    }
    track->GenreID = getRudGenreID(track->GenreName);
    album->Tracks.push_back(*track);
    ++mTrackCount;
    return TRACK_ADDED;
}

// --- Album search -----------------------------------------------------------

// Opens the stored answer, assembles one album per TOC record whose text equals
// `toc`, orders them best confidence first and keeps those whose track count
// fits `toc`. Every exit closes the file and frees the buffers. `albums` is
// left untouched by a failure before the matching; an album that cannot be
// assembled fails the whole search and leaves the albums before it in the
// list, unsorted and unfiltered.
bool MoxDapDatabase::getSearchResult(std::string toc, std::list<HbSMoxDef::AlbumInfo>* albums) {
    if (!openSearchResultFile()) {
        return reportAndReset(*this, "getSearchResult", 739, "openSearchResultFile error.\n");
    }
    mpDbHeader = new DbHeader();  // value-initialised: all bytes zero
    if (!getDbHeader()) {
        return reportAndReset(*this, "getSearchResult", 746, "getDbHeader error.\n");
    }
    if (!judgeDapDbVer()) {
        return reportAndReset(*this, "getSearchResult", 752, "judgeDapDbVer error.\n");
    }
    mpDbToc = new DbToc();  // value-initialised: all offsets zero
    if (!getDbToc()) {
        return reportAndReset(*this, "getSearchResult", 759, "getDbToc error.\n");
    }

    std::vector<QuillTocRec> matches;
    if (!getQuillTocList(toc, &matches)) {
        return reportAndReset(*this, "getSearchResult", 767, "getQuillTocList error.\n");
    }

    albums->clear();
    for (size_t i = 0; i < matches.size(); ++i) {
        HbSMoxDef::AlbumInfo album;
        if (!getAlbumInfo(matches[i].AlbumId, matches[i].MediaNum, &album)) {
            return reportAndReset(*this, "getSearchResult", 777, "getAlbumInfo error i=%d.\n",
                                  static_cast<int>(i));
        }
        albums->push_back(std::move(album));
    }

    // Ascending merge sort with the non-strict compAlbumList puts equal
    // confidences in reverse database order; reversing the whole list gives
    // best first with equals back in database order.
    albums->sort(compAlbumList);
    albums->reverse();

    deleteAlbumListByTrackCount(toc, albums);
    init();
    return true;
}

// Scans the whole TOC section and appends, in section order, every record
// whose TOC text equals `toc` byte for byte (duplicates included). Records are
// read at the stride given by the section head, 20 bytes of each.
bool MoxDapDatabase::getQuillTocList(std::string toc, std::vector<QuillTocRec>* list) {
    if (mpReadFile == nullptr) {
        return reportAndReset(*this, "getQuillTocList", 801, "mpReadFile is NULL.\n");
    }
    if (mpDbToc == nullptr) {
        return reportAndReset(*this, "getQuillTocList", 807, "mpDbToc is NULL.\n");
    }

    const uint32 sectionOffset = mpDbToc->QuillToc;
    if (!dapFseek(mpReadFile, sectionOffset, SEEK_SET)) {
        return reportAndReset(*this, "getQuillTocList", 815, "seek error.\n");
    }
    QuillHead head;
    std::memset(&head, 0, sizeof(head));
    if (!dapFread(&head, 1, sizeof(head), mpReadFile)) {
        return reportAndReset(*this, "getQuillTocList", 822, "read error.\n");
    }

    list->clear();
    if (head.RecordCount == 0) {
        return true;
    }

    for (uint32 i = 0; i < head.RecordCount; ++i) {
        const int index = static_cast<int>(i);
        // 32-bit unsigned position, as the file's offsets are.
        const uint32 recordOffset = sectionOffset + static_cast<uint32>(sizeof(QuillHead)) +
                                    i * static_cast<uint32>(head.RecordSize);
        if (!dapFseek(mpReadFile, recordOffset, SEEK_SET)) {
            return reportAndReset(*this, "getQuillTocList", 838, "seek error i=%d.\n", index);
        }
        QuillTocRec rec;
        std::memset(&rec, 0, sizeof(rec));
        if (!dapFread(&rec, 1, sizeof(rec), mpReadFile)) {
            return reportAndReset(*this, "getQuillTocList", 846, "read error i=%d.\n", index);
        }
        std::string stored;
        if (!getString(rec.Id, &stored)) {
            return reportAndReset(*this, "getQuillTocList", 853, "get string error i=%d.\n", index);
        }
        if (stored == toc) {
            list->push_back(rec);
        }
    }
    return true;
}

// Non-strict on purpose: see the ordering in getSearchResult.
bool MoxDapDatabase::compAlbumList(const HbSMoxDef::AlbumInfo& first,
                                   const HbSMoxDef::AlbumInfo& second) {
    return first.Confidence <= second.Confidence;
}

// Keeps only the albums with (length of `toc` / 6) - 1 tracks, computed in
// unsigned 32-bit arithmetic: a TOC text under 6 bytes expects 4294967295
// tracks and so empties the list.
void MoxDapDatabase::deleteAlbumListByTrackCount(std::string toc,
                                                 std::list<HbSMoxDef::AlbumInfo>* albums) {
    const uint32 expected = static_cast<uint32>(toc.size()) / TOC_ENTRY_LENGTH - 1u;
    std::list<HbSMoxDef::AlbumInfo>::iterator it = albums->begin();
    while (it != albums->end()) {
        if (it->Tracks.size() != static_cast<size_t>(expected)) {
            it = albums->erase(it);
        } else {
            ++it;
        }
    }
}

// --- Text form of the public records ----------------------------------------
//
// One stream per call. Each "0x" field switches the stream to hexadecimal with
// fill '0' and nothing switches it back, so every later bare number (the track
// count, the track index) is hexadecimal too. AlbumLang and Database are
// written as raw characters after their "0x". Strings stop at their first
// zero byte.

std::string MoxDapDatabase::getStrAlbum(HbSMoxDef::AlbumInfo& album) {
    std::ostringstream out;
    out << "AlbumId=" << album.AlbumId.c_str() << ", ";
    out << "AlbumName=" << album.AlbumName.c_str() << ", ";
    out << "GenreName=" << album.GenreName.c_str() << ", ";
    out << "GenreID="
        << "0x" << std::hex << std::setfill('0') << std::setw(HEX_WIDTH) << album.GenreID << ", ";
    out << "Confidence="
        << "0x" << std::hex << std::setfill('0') << std::setw(HEX_WIDTH) << album.Confidence
        << ", ";
    out << "AlbumLang="
        << "0x" << std::hex << std::setfill('0') << static_cast<char>(album.AlbumLang) << ", ";
    out << "MediaNum="
        << "0x" << std::hex << std::setfill('0') << std::setw(HEX_WIDTH) << album.MediaNum << ", ";
    out << "MediaCount="
        << "0x" << std::hex << std::setfill('0') << std::setw(HEX_WIDTH) << album.MediaCount
        << ", ";
    out << "Tracks.size=" << album.Tracks.size() << ", ";
    out << "Tracks={" << getStrTrackList(album.Tracks) << "} ,";
    out << "Database="
        << "0x" << std::hex << std::setfill('0') << static_cast<char>(album.Database) << ", ";
    out << "AlbumId="
        << "0x" << std::hex << std::setfill('0') << album.AlbumId.c_str();
    return out.str();
}

std::string MoxDapDatabase::getStrTrackList(std::vector<HbSMoxDef::TrackInfo>& tracks) {
    std::ostringstream out;
    for (size_t i = 0; i < tracks.size(); ++i) {
        const HbSMoxDef::TrackInfo& track = tracks[i];
        out << "Track[" << i << "]GenreID="
            << "0x" << std::hex << std::setfill('0') << std::setw(HEX_WIDTH) << track.GenreID
            << ", ";
        out << "Track[" << i << "]GenreName=" << track.GenreName.c_str() << ", ";
        out << "Track[" << i << "]PerformerName=" << track.PerformerName.c_str() << ", ";
        out << "Track[" << i << "]TrackName=" << track.TrackName.c_str() << ", ";
        out << "Track[" << i << "]TrackNum="
            << "0x" << std::hex << std::setfill('0') << std::setw(HEX_WIDTH) << track.TrackNum;
    }
    return out.str();
}
