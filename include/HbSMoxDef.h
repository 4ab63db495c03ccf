// Records exchanged between the head unit's application and the music-information
// module: the lookup request (SearchInfo) and the candidate albums it yields
// (AlbumInfo, each holding its TrackInfo list). Plain value types; strings hold
// the bytes exactly as the phone's response database delivers them.
#ifndef HBSMOXDEF_H
#define HBSMOXDEF_H

#include <list>
#include <string>
#include <vector>

#include "HbFramework/HbTypes.h"

namespace HbSMoxDef {

// A disc lookup request. The caller sets every field; the three numbers are
// carried unchanged to the phone application.
struct SearchInfo {
    uint8 lookupKind;     // third byte of the TOC-lookup command
    uint16 lookupParam1;  // big-endian, after lookupKind and one zero byte
    uint16 lookupParam2;  // big-endian, after lookupParam1
    std::string toc;      // the disc's TOC text; keep it under 65,536 bytes
};

// One track of a candidate album.
class TrackInfo {
public:
    TrackInfo() : TrackName(""), PerformerName(""), GenreName(""), GenreID(0), TrackNum(0) {}
    TrackInfo(const TrackInfo& other)
        : TrackName(other.TrackName),
          PerformerName(other.PerformerName),
          GenreName(other.GenreName),
          GenreID(other.GenreID),
          TrackNum(other.TrackNum) {}
    TrackInfo& operator=(const TrackInfo& other) = default;
    ~TrackInfo() = default;

    std::string TrackName;
    std::string PerformerName;
    std::string GenreName;
    uint32 GenreID;  // genre number of the track (0: unknown code)
    int32 TrackNum;  // always 0: a track's number is its position in Tracks
};

// One candidate album found for the disc.
class AlbumInfo {
public:
    AlbumInfo()
        : AlbumId(""),
          AlbumName(""),
          GenreName(""),
          GenreID(0),
          Confidence(0),
          AlbumLang(0),
          MediaNum(0),
          MediaCount(0),
          Tracks(),
          Database(0) {}
    AlbumInfo(const AlbumInfo& other) = default;
    AlbumInfo& operator=(const AlbumInfo& other) = default;
    ~AlbumInfo() = default;

    std::string AlbumId;
    std::string AlbumName;
    std::string GenreName;
    uint32 GenreID;    // album genre number (0: unknown code)
    int32 Confidence;  // match confidence as delivered by the database
    uint8 AlbumLang;   // 3 Japanese, 5 any other language
    int32 MediaNum;    // number of this medium within its set
    int32 MediaCount;  // number of media in the set
    std::vector<TrackInfo> Tracks;
    uint8 Database;  // one-byte database code
};

}  // namespace HbSMoxDef

#endif  // HBSMOXDEF_H
