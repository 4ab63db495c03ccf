// The album search of `mox search`: the module's search over a stored
// response database, carried out by the tools on the file's bytes, since the
// module's public API searches only the answer of a lookup it has just made.
//
// It finds what the module finds and says what the module says, byte for
// byte (tests/cli/StoredSearchTest.cpp runs both over the same files): the
// albums whose TOC record holds the TOC text, best confidence first, those
// with the text's track count kept; the same work and track limits; and each
// failure as the module's debug message, with its source, operation and line,
// through the host's debug output. As in the module, a failure closes the
// file, so every later read of the same search fails at once
// ("mpReadFile is NULL."), and the albums assembled before it stay in the
// list, unsorted and unfiltered.
//
//   StoredSearch search(path);
//   std::list<HbSMoxDef::AlbumInfo> albums;
//   bool found = search.run(toc, &albums);
#ifndef MOX_TOOLS_STOREDSEARCH_H
#define MOX_TOOLS_STOREDSEARCH_H

#include <cstdint>
#include <list>
#include <string>
#include <utility>
#include <vector>

#include "HbSMoxDef.h"
#include "moxdb/DbBytes.h"
#include "moxdb/DbRecords.h"

class StoredSearch {
public:
    // `path` is the stored database; it is read when a search starts.
    explicit StoredSearch(std::string path) : mPath(std::move(path)) {}

    // True when the search ran to its end (even with no album); false after a
    // failure, with what was assembled before it left in `albums`.
    bool run(const std::string& toc, std::list<HbSMoxDef::AlbumInfo>* albums);

private:
    // The records that album assembly keeps across the tracks of one album:
    // a lookup of identifier 0 leaves its record as the track before left it.
    struct TrackRecords {
        moxdb::Bytes track;
        moxdb::Bytes artist;
        moxdb::Bytes genre;
    };
    enum class TrackOutcome { Added, OtherMedium, Failed };

    // The file: open (read whole), closed, positioned reads.
    bool open();
    void close();
    bool seek(uint32_t offset);
    bool read(size_t size, moxdb::Bytes* out);
    bool readU16(uint16_t* value);
    bool readU32(uint32_t* value);
    // Reports the failure and closes the file; always false.
    template <class... Args>
    bool fail(const char* function, int line, const char* format, Args... args);

    // The module's reads, each failing as the module's does.
    bool readHeader(moxdb::Bytes* header);
    bool acceptVersion(const moxdb::Bytes& header);
    bool readTable();
    bool readString(uint32_t offset, std::string* text);
    bool findRecord(const char* function, uint32_t id, moxdb::Section section, bool zeroRule,
                    moxdb::Bytes* record);
    bool readTrackList(uint32_t offset, std::vector<uint32_t>* trackIds);
    bool findTocMatches(const std::string& toc, std::vector<moxdb::Bytes>* matches);
    bool assembleAlbum(uint32_t albumId, uint16_t mediaNum, HbSMoxDef::AlbumInfo* album);
    void readAlbumTexts(const moxdb::Bytes& albumRecord, uint16_t mediaNum,
                        HbSMoxDef::AlbumInfo* album);
    TrackOutcome addTrack(uint32_t trackId, uint16_t mediaNum, int index, TrackRecords* records,
                          HbSMoxDef::TrackInfo* track, HbSMoxDef::AlbumInfo* album);
    uint32_t tableWord(moxdb::Section section) const;

    std::string mPath;
    moxdb::Bytes mImage;   // the file's bytes while it is open
    bool mOpen = false;    // the file is open
    bool mLoaded = false;  // header and section table are loaded (and the file open)
    uint64_t mPosition = 0;
    moxdb::Bytes mTable;                 // the section table's bytes
    uint32_t mStringBase = 0;            // position of string offset 0
    uint32_t mWorkCount = 0;             // reads, seeks and text units spent
    uint32_t mTrackCount = 0;            // tracks assembled over all albums
    moxdb::Bytes mScratch;               // the bytes of the last read that keeps none
    std::vector<unsigned short> mUnits;  // the last text's units and a zero unit
};

#endif  // MOX_TOOLS_STOREDSEARCH_H
