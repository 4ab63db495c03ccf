// Reader of the response database that the phone sent, and the album search
// built on it.
//
// One search at a time, on the caller's thread; the reader takes no lock.
// Calling order of a search (getSearchResult does exactly this):
//   openSearchResultFile(); mpDbHeader = new DbHeader(); getDbHeader();
//   judgeDapDbVer(); mpDbToc = new DbToc(); getDbToc();
//   ... getString() and record lookups ...; init();
// Every failure prints its message through the debug output and ends in
// init(), which closes the file and frees both buffers, so after a first
// failure every later read fails at once ("mpReadFile is NULL.").
#ifndef MOX_PRIVATE_MOXDAPDATABASE_H
#define MOX_PRIVATE_MOXDAPDATABASE_H

#include <cstdio>
#include <list>
#include <map>
#include <string>
#include <vector>

#include "HbFramework/Foundation/HbSingleton.h"
#include "HbSMoxDef.h"
#include "private/MoxDbRecords.h"

class MoxDapDatabase : public HbSingleton<MoxDapDatabase> {
    friend class HbSingleton<MoxDapDatabase>;

public:
    // Does nothing: the instance lives until the singleton finalizer ends it.
    static void DelInstance();
    ~MoxDapDatabase() override;

    // --- Record access -------------------------------------------------------
    void init();
    bool openSearchResultFile();
    bool getDbHeader();
    bool judgeDapDbVer();
    bool getDbToc();
    bool dapFseek(FILE* file, unsigned int offset, unsigned int whence);
    bool dapFread(void* buffer, unsigned int size, unsigned int count, FILE* file);
    bool getString(unsigned int offset, std::string* text);
    bool getQuillTrackInfo(unsigned int id, QuillTrackRec* rec);
    bool getQuillAlbumInfo(unsigned int id, QuillAlbumRec* rec);
    bool getQuillArtistInfo(unsigned int id, QuillArtistRec* rec);
    bool getQuillGenreInfo(unsigned int id, QuillGenreRec* rec);
    bool getQuillAlbumTracksInfo(unsigned int offset, QuillAlbumTracks* list);

    // --- Diagnostic renderings (one line each, never read the file) ----------
    std::string getStrDbHeader();
    std::string getStrDbToc();
    std::string getStrQuillHead(QuillHead& head);
    std::string getStrTocRec(QuillTocRec& rec);
    std::string getStrAlbumRec(QuillAlbumRec& rec);
    std::string getStrTrackRec(QuillTrackRec& rec);
    std::string getStrArtistRec(QuillArtistRec& rec);
    std::string getStrGenreRec(QuillGenreRec& rec);

    // --- Text form of the public records -------------------------------------
    std::string getStrAlbum(HbSMoxDef::AlbumInfo& album);
    std::string getStrTrackList(std::vector<HbSMoxDef::TrackInfo>& tracks);

    // --- Album search ---------------------------------------------------------
    bool getSearchResult(std::string toc, std::list<HbSMoxDef::AlbumInfo>* albums);
    bool getQuillTocList(std::string toc, std::vector<QuillTocRec>* list);
    static bool compAlbumList(const HbSMoxDef::AlbumInfo& first,
                              const HbSMoxDef::AlbumInfo& second);
    void deleteAlbumListByTrackCount(std::string toc, std::list<HbSMoxDef::AlbumInfo>* albums);

    // --- Album assembly -------------------------------------------------------
    bool getAlbumInfo(unsigned int albumId, unsigned short mediaNum, HbSMoxDef::AlbumInfo* album);

    // --- Genre and language mapping ------------------------------------------
    // Genre number of an exact genre code; 0 when the code is not known.
    unsigned int getRudGenreID(std::string& code);
    // 3 for the language text "ja", 5 for every other text.
    uint8 getJalsLanguage(std::string& text);

    // Reader state; the search allocates the two buffers, init() frees them.
    DbHeader* mpDbHeader;      // owned; null when nothing is loaded
    DbToc* mpDbToc;            // owned; null when nothing is loaded
    unsigned int mStringBase;  // file offset of string offset 0 (StringTable + 4)
    FILE* mpReadFile;          // owned; null when closed
    std::map<std::string, unsigned int> mGenreMap;  // genre code -> genre number
    // The C stream's own buffer while the file is open, sized to the file by
    // openSearchResultFile so that a search fetches the file from the kernel
    // about once; released by init() after the stream is closed.
    std::vector<char> mReadBuffer;
    // What the search in progress has spent so far, against MoxLimits; both
    // restart when openSearchResultFile opens the stored answer.
    uint32 mWorkCount;   // reads, seeks and converted text units (see MoxLimits)
    uint32 mTrackCount;  // tracks appended to the albums of this search

private:
    MoxDapDatabase();

    // The records that album assembly reads per track. They live across the
    // tracks of one album: a record that is not read again (identifier 0)
    // keeps what the track before left in it.
    struct TrackRecords {
        QuillTrackRec track;
        QuillArtistRec artist;
        QuillGenreRec genre;
    };
    enum TrackOutcome { TRACK_ADDED, TRACK_OF_OTHER_MEDIUM, TRACK_FAILED };

    // The steps of getAlbumInfo.
    void readAlbumTexts(const QuillAlbumRec& albumRec, unsigned short mediaNum,
                        HbSMoxDef::AlbumInfo* album);
    TrackOutcome addAlbumTrack(unsigned int trackId, unsigned short mediaNum, int index,
                               TrackRecords* records, HbSMoxDef::TrackInfo* track,
                               HbSMoxDef::AlbumInfo* album);
};

#endif  // MOX_PRIVATE_MOXDAPDATABASE_H
