// Album search half of MoxDapDatabase: genre and language mapping, assembly of
// one album from its records, the search over the TOC records, and the text
// form of the public records. The record access it builds on (opening the
// file, header, section table, strings and record lookups) lives beside it in
// MoxDapDatabase.cpp.
#include "private/MoxDapDatabase.h"

#include <cstring>
#include <iomanip>
#include <sstream>

#include "HbFramework/HbDbgOutput.h"

namespace {

// Source name under which the reader reports, whichever unit compiles it.
const char* const SEARCH_SOURCE = "private/MoxDapDatabase.cpp";

// Width of a hexadecimal field of the text form (a 32-bit value).
const int HEX_WIDTH = 8;

// Length of one TOC text entry: one per track plus one for the lead-out.
const uint32 TOC_ENTRY_LENGTH = 6;

}  // namespace

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
    QuillTrackRec trackRec;
    QuillArtistRec artistRec;
    QuillGenreRec genreRec;
    std::memset(&albumRec, 0, sizeof(albumRec));
    albumTracks.Count = 0;
    albumTracks.TrackIds.clear();
    std::memset(&trackRec, 0, sizeof(trackRec));
    std::memset(&artistRec, 0, sizeof(artistRec));
    std::memset(&genreRec, 0, sizeof(genreRec));
    std::string language;
    HbSMoxDef::TrackInfo track;

    if (mpReadFile == nullptr) {
        HbDbgOutput::DbgPrint(SEARCH_SOURCE, "getAlbumInfo", __LINE__, en_TAG_ERROR,
                              "mpReadFile is NULL.\n");
        init();
        return false;
    }
    if (mpDbToc == nullptr) {
        HbDbgOutput::DbgPrint(SEARCH_SOURCE, "getAlbumInfo", __LINE__, en_TAG_ERROR,
                              "mpDbToc is NULL.\n");
        init();
        return false;
    }

    if (!getQuillAlbumInfo(albumId, &albumRec)) {
        HbDbgOutput::DbgPrint(SEARCH_SOURCE, "getAlbumInfo", __LINE__, en_TAG_ERROR,
                              "getQuillAlbumInfo return false.\n");
        init();
        return false;
    }
    album->Database = 1;

    // The album-level texts are taken as read: a failed read is not reported
    // here, it closes the database and the track list read below then fails.
    (void)getString(albumRec.Id, &album->AlbumId);
    (void)getString(albumRec.Title, &album->AlbumName);
    (void)getString(albumRec.Genre, &album->GenreName);
    album->GenreID = getRudGenreID(album->GenreName);
    album->Confidence = static_cast<int32>(albumRec.Confidence);
    (void)getString(albumRec.Language, &language);
    album->AlbumLang = getJalsLanguage(language);
    album->MediaCount = static_cast<int32>(albumRec.MediaCount);
    album->MediaNum = static_cast<int32>(mediaNum);

    if (!getQuillAlbumTracksInfo(albumRec.Tracks, &albumTracks)) {
        HbDbgOutput::DbgPrint(SEARCH_SOURCE, "getAlbumInfo", __LINE__, en_TAG_ERROR,
                              "getQuillAlbumTracksInfo return false.\n");
        init();
        return false;
    }

    album->Tracks.clear();
    for (size_t n = 0; n < albumTracks.TrackIds.size(); ++n) {
        const int index = static_cast<int>(n);
        if (!getQuillTrackInfo(albumTracks.TrackIds[n], &trackRec)) {
            HbDbgOutput::DbgPrint(SEARCH_SOURCE, "getAlbumInfo", __LINE__, en_TAG_ERROR,
                                  "getQuillTrackInfo return false. n=%d\n", index);
            init();
            return false;
        }
        // Tracks of the album's other media are not part of this album.
        if (trackRec.MediaNum != static_cast<uint32>(mediaNum)) {
            continue;
        }
        if (!getString(trackRec.Title, &track.TrackName)) {
            HbDbgOutput::DbgPrint(SEARCH_SOURCE, "getAlbumInfo", __LINE__, en_TAG_ERROR,
                                  "getString return false. n=%d\n", index);
            init();
            return false;
        }
        if (!getQuillArtistInfo(trackRec.Performer, &artistRec)) {
            HbDbgOutput::DbgPrint(SEARCH_SOURCE, "getAlbumInfo", __LINE__, en_TAG_ERROR,
                                  "getQuillArtistInfo return false. n=%d\n", index);
            init();
            return false;
        }
        if (!getString(artistRec.Name, &track.PerformerName)) {
            HbDbgOutput::DbgPrint(SEARCH_SOURCE, "getAlbumInfo", __LINE__, en_TAG_ERROR,
                                  "getString return false. n=%d\n", index);
            init();
            return false;
        }
        if (!getQuillGenreInfo(trackRec.Genre, &genreRec)) {
            HbDbgOutput::DbgPrint(SEARCH_SOURCE, "getAlbumInfo", __LINE__, en_TAG_ERROR,
                                  "getQuillGenreInfo return false. n=%d\n", index);
            init();
            return false;
        }
        if (!getString(genreRec.Id, &track.GenreName)) {
            HbDbgOutput::DbgPrint(SEARCH_SOURCE, "getAlbumInfo", __LINE__, en_TAG_ERROR,
                                  "getString return false. n=%d\n", index);
            init();
            return false;
        }
        track.GenreID = getRudGenreID(track.GenreName);
        album->Tracks.push_back(track);
    }

    if (album->Tracks.empty()) {
        HbDbgOutput::DbgPrint(SEARCH_SOURCE, "getAlbumInfo", __LINE__, en_TAG_ERROR,
                              "npAlbum->Tracks.size() == 0.\n");
        init();
        return false;
    }
    return true;
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
        HbDbgOutput::DbgPrint(SEARCH_SOURCE, "getSearchResult", __LINE__, en_TAG_ERROR,
                              "openSearchResultFile error.\n");
        init();
        return false;
    }
    mpDbHeader = new DbHeader();  // value-initialised: all bytes zero
    if (!getDbHeader()) {
        HbDbgOutput::DbgPrint(SEARCH_SOURCE, "getSearchResult", __LINE__, en_TAG_ERROR,
                              "getDbHeader error.\n");
        init();
        return false;
    }
    if (!judgeDapDbVer()) {
        HbDbgOutput::DbgPrint(SEARCH_SOURCE, "getSearchResult", __LINE__, en_TAG_ERROR,
                              "judgeDapDbVer error.\n");
        init();
        return false;
    }
    mpDbToc = new DbToc();  // value-initialised: all offsets zero
    if (!getDbToc()) {
        HbDbgOutput::DbgPrint(SEARCH_SOURCE, "getSearchResult", __LINE__, en_TAG_ERROR,
                              "getDbToc error.\n");
        init();
        return false;
    }

    std::vector<QuillTocRec> matches;
    if (!getQuillTocList(toc, &matches)) {
        HbDbgOutput::DbgPrint(SEARCH_SOURCE, "getSearchResult", __LINE__, en_TAG_ERROR,
                              "getQuillTocList error.\n");
        init();
        return false;
    }

    albums->clear();
    for (size_t i = 0; i < matches.size(); ++i) {
        HbSMoxDef::AlbumInfo album;
        if (!getAlbumInfo(matches[i].AlbumId, matches[i].MediaNum, &album)) {
            HbDbgOutput::DbgPrint(SEARCH_SOURCE, "getSearchResult", __LINE__, en_TAG_ERROR,
                                  "getAlbumInfo error i=%d.\n", static_cast<int>(i));
            init();
            return false;
        }
        albums->push_back(album);
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
        HbDbgOutput::DbgPrint(SEARCH_SOURCE, "getQuillTocList", __LINE__, en_TAG_ERROR,
                              "mpReadFile is NULL.\n");
        init();
        return false;
    }
    if (mpDbToc == nullptr) {
        HbDbgOutput::DbgPrint(SEARCH_SOURCE, "getQuillTocList", __LINE__, en_TAG_ERROR,
                              "mpDbToc is NULL.\n");
        init();
        return false;
    }

    const uint32 sectionOffset = mpDbToc->QuillToc;
    if (!dapFseek(mpReadFile, sectionOffset, SEEK_SET)) {
        HbDbgOutput::DbgPrint(SEARCH_SOURCE, "getQuillTocList", __LINE__, en_TAG_ERROR,
                              "seek error.\n");
        init();
        return false;
    }
    QuillHead head;
    std::memset(&head, 0, sizeof(head));
    if (!dapFread(&head, 1, sizeof(head), mpReadFile)) {
        HbDbgOutput::DbgPrint(SEARCH_SOURCE, "getQuillTocList", __LINE__, en_TAG_ERROR,
                              "read error.\n");
        init();
        return false;
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
            HbDbgOutput::DbgPrint(SEARCH_SOURCE, "getQuillTocList", __LINE__, en_TAG_ERROR,
                                  "seek error i=%d.\n", index);
            init();
            return false;
        }
        QuillTocRec rec;
        std::memset(&rec, 0, sizeof(rec));
        if (!dapFread(&rec, 1, sizeof(rec), mpReadFile)) {
            HbDbgOutput::DbgPrint(SEARCH_SOURCE, "getQuillTocList", __LINE__, en_TAG_ERROR,
                                  "read error i=%d.\n", index);
            init();
            return false;
        }
        std::string stored;
        if (!getString(rec.Id, &stored)) {
            HbDbgOutput::DbgPrint(SEARCH_SOURCE, "getQuillTocList", __LINE__, en_TAG_ERROR,
                                  "get string error i=%d.\n", index);
            init();
            return false;
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
