// Record layouts of the response database that the phone sends.
//
// The file is little-endian throughout and is read with one raw read per
// structure, so each structure below matches the file byte for byte: every
// size and every field offset is checked at compile time, and the module
// builds only for little-endian targets (the head unit and the PC both are).
#ifndef MOX_PRIVATE_MOXDBRECORDS_H
#define MOX_PRIVATE_MOXDBRECORDS_H

#include <cstddef>
#include <vector>

#include "HbFramework/HbTypes.h"

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__,
              "the response database is read with raw little-endian reads");

// Longest string (in UTF-16 code units, exclusive) the reader accepts.
static const unsigned int STRING_BUF_MAX = 1024;

// Database header, 64 bytes at file offset 0.
struct DbHeader {
    char Signature[4];  // printed as text, never tested
    uint32 Version;     // format version
    uint16 AppVer1[4];  // producing application's version components
    uint16 AppVer2[4];
    uint8 Reserved[40];  // not interpreted
};

// Section table, fifteen file offsets at file offset 64.
struct DbToc {
    uint32 OwnSize;
    uint32 RudTrack;
    uint32 RudPlaylist;
    uint32 RudPlaylistTrack;
    uint32 StringTable;  // string area: a 4-byte word, then the strings
    uint32 StringList;
    uint32 QuillTrack;
    uint32 QuillAlbum;
    uint32 QuillAlbumTracks;  // album track lists: a 4-byte word, then the lists
    uint32 QuillCredits;
    uint32 QuillArtist;
    uint32 QuillGenre;
    uint32 QuillDesc;
    uint32 QuillToc;
    uint32 QuillTrackIndices;
};

// Head of each record section (QuillToc, QuillAlbum, QuillTrack, QuillArtist, QuillGenre).
struct QuillHead {
    uint32 OwnSize;
    uint16 RecordSize;   // the TOC walk steps by it; identifier lookups ignore it
    uint16 RecordCount;  // records that follow the head
};

// TOC record, 20 bytes.
struct QuillTocRec {
    uint32 Id;        // string offset of the record's TOC text
    uint32 AlbumId;   // Id of the matching album record
    uint16 MediaNum;  // disc number within the album
    uint16 Reserved;  // not interpreted, not printed
    uint32 RudPictFolderPath;
    uint32 RudArtFileName;
};

// Album record, 84 bytes.
struct QuillAlbumRec {
    uint32 Id;  // identifier, also the string offset of the album's identifier text
    uint32 MediaNum;
    uint32 MediaCount;
    uint32 Title;  // string offset
    uint32 TitleYomi;
    uint32 Performer;
    uint32 Composer;
    uint32 Genre;   // string offset of the genre code
    uint32 Tracks;  // byte offset of the album's track list in the album-tracks section
    uint32 Confidence;
    uint32 Language;  // string offset of the language text
    uint32 ImageUrl;
    uint32 Upc;
    uint32 RelYear;
    uint32 PickFlag;
    uint32 KeyTitle;
    uint32 Credits;
    uint32 FirstTrackByMedia;
    uint32 Styles;
    uint32 Tones;
    uint32 Themas;
};

// Track record, 72 bytes.
struct QuillTrackRec {
    uint32 Id;
    uint32 Title;  // string offset
    uint32 TitleYomi;
    uint32 Performer;  // Id of an artist record
    uint32 Composer;
    uint32 Genre;  // Id of a genre record
    uint32 Time;
    uint32 Language;
    uint32 Confidence;
    uint32 MediaNum;
    uint32 TrackNum;
    uint32 PickFlag;
    uint32 KeyTitle;
    uint32 Work;
    uint32 Part;
    uint32 Conductor;
    uint32 PerfDate;
    uint32 CompDate;
};

// Artist record, 44 bytes.
struct QuillArtistRec {
    uint32 Id;
    uint32 Name;  // string offset
    uint32 NameYomi;
    uint32 KeyName;
    uint32 Genre;
    uint32 Styles;
    uint32 Tones;
    uint32 Themas;
    uint32 SimilarArtists;
    uint32 Influences;
    uint32 Followers;
};

// Genre record, 8 bytes.
struct QuillGenreRec {
    uint32 Id;  // identifier, also the string offset of the genre code
    uint32 Name;
};

// One album's track list as held in memory: the count read from the file and
// the track identifiers that follow it.
struct QuillAlbumTracks {
    uint32 Count;
    std::vector<uint32> TrackIds;
};

#define MOX_CHECK_FIELD(type, field, offset) \
    static_assert(offsetof(type, field) == (offset), #type "." #field " must be at " #offset)

static_assert(sizeof(DbHeader) == 64, "DbHeader is 64 bytes");
MOX_CHECK_FIELD(DbHeader, Signature, 0);
MOX_CHECK_FIELD(DbHeader, Version, 4);
MOX_CHECK_FIELD(DbHeader, AppVer1, 8);
MOX_CHECK_FIELD(DbHeader, AppVer2, 16);
MOX_CHECK_FIELD(DbHeader, Reserved, 24);

static_assert(sizeof(DbToc) == 60, "DbToc is 60 bytes");
MOX_CHECK_FIELD(DbToc, OwnSize, 0);
MOX_CHECK_FIELD(DbToc, RudTrack, 4);
MOX_CHECK_FIELD(DbToc, RudPlaylist, 8);
MOX_CHECK_FIELD(DbToc, RudPlaylistTrack, 12);
MOX_CHECK_FIELD(DbToc, StringTable, 16);
MOX_CHECK_FIELD(DbToc, StringList, 20);
MOX_CHECK_FIELD(DbToc, QuillTrack, 24);
MOX_CHECK_FIELD(DbToc, QuillAlbum, 28);
MOX_CHECK_FIELD(DbToc, QuillAlbumTracks, 32);
MOX_CHECK_FIELD(DbToc, QuillCredits, 36);
MOX_CHECK_FIELD(DbToc, QuillArtist, 40);
MOX_CHECK_FIELD(DbToc, QuillGenre, 44);
MOX_CHECK_FIELD(DbToc, QuillDesc, 48);
MOX_CHECK_FIELD(DbToc, QuillToc, 52);
MOX_CHECK_FIELD(DbToc, QuillTrackIndices, 56);

static_assert(sizeof(QuillHead) == 8, "QuillHead is 8 bytes");
MOX_CHECK_FIELD(QuillHead, OwnSize, 0);
MOX_CHECK_FIELD(QuillHead, RecordSize, 4);
MOX_CHECK_FIELD(QuillHead, RecordCount, 6);

static_assert(sizeof(QuillTocRec) == 20, "QuillTocRec is 20 bytes");
MOX_CHECK_FIELD(QuillTocRec, Id, 0);
MOX_CHECK_FIELD(QuillTocRec, AlbumId, 4);
MOX_CHECK_FIELD(QuillTocRec, MediaNum, 8);
MOX_CHECK_FIELD(QuillTocRec, Reserved, 10);
MOX_CHECK_FIELD(QuillTocRec, RudPictFolderPath, 12);
MOX_CHECK_FIELD(QuillTocRec, RudArtFileName, 16);

static_assert(sizeof(QuillAlbumRec) == 84, "QuillAlbumRec is 84 bytes");
MOX_CHECK_FIELD(QuillAlbumRec, Id, 0);
MOX_CHECK_FIELD(QuillAlbumRec, MediaNum, 4);
MOX_CHECK_FIELD(QuillAlbumRec, MediaCount, 8);
MOX_CHECK_FIELD(QuillAlbumRec, Title, 12);
MOX_CHECK_FIELD(QuillAlbumRec, TitleYomi, 16);
MOX_CHECK_FIELD(QuillAlbumRec, Performer, 20);
MOX_CHECK_FIELD(QuillAlbumRec, Composer, 24);
MOX_CHECK_FIELD(QuillAlbumRec, Genre, 28);
MOX_CHECK_FIELD(QuillAlbumRec, Tracks, 32);
MOX_CHECK_FIELD(QuillAlbumRec, Confidence, 36);
MOX_CHECK_FIELD(QuillAlbumRec, Language, 40);
MOX_CHECK_FIELD(QuillAlbumRec, ImageUrl, 44);
MOX_CHECK_FIELD(QuillAlbumRec, Upc, 48);
MOX_CHECK_FIELD(QuillAlbumRec, RelYear, 52);
MOX_CHECK_FIELD(QuillAlbumRec, PickFlag, 56);
MOX_CHECK_FIELD(QuillAlbumRec, KeyTitle, 60);
MOX_CHECK_FIELD(QuillAlbumRec, Credits, 64);
MOX_CHECK_FIELD(QuillAlbumRec, FirstTrackByMedia, 68);
MOX_CHECK_FIELD(QuillAlbumRec, Styles, 72);
MOX_CHECK_FIELD(QuillAlbumRec, Tones, 76);
MOX_CHECK_FIELD(QuillAlbumRec, Themas, 80);

static_assert(sizeof(QuillTrackRec) == 72, "QuillTrackRec is 72 bytes");
MOX_CHECK_FIELD(QuillTrackRec, Id, 0);
MOX_CHECK_FIELD(QuillTrackRec, Title, 4);
MOX_CHECK_FIELD(QuillTrackRec, TitleYomi, 8);
MOX_CHECK_FIELD(QuillTrackRec, Performer, 12);
MOX_CHECK_FIELD(QuillTrackRec, Composer, 16);
MOX_CHECK_FIELD(QuillTrackRec, Genre, 20);
MOX_CHECK_FIELD(QuillTrackRec, Time, 24);
MOX_CHECK_FIELD(QuillTrackRec, Language, 28);
MOX_CHECK_FIELD(QuillTrackRec, Confidence, 32);
MOX_CHECK_FIELD(QuillTrackRec, MediaNum, 36);
MOX_CHECK_FIELD(QuillTrackRec, TrackNum, 40);
MOX_CHECK_FIELD(QuillTrackRec, PickFlag, 44);
MOX_CHECK_FIELD(QuillTrackRec, KeyTitle, 48);
MOX_CHECK_FIELD(QuillTrackRec, Work, 52);
MOX_CHECK_FIELD(QuillTrackRec, Part, 56);
MOX_CHECK_FIELD(QuillTrackRec, Conductor, 60);
MOX_CHECK_FIELD(QuillTrackRec, PerfDate, 64);
MOX_CHECK_FIELD(QuillTrackRec, CompDate, 68);

static_assert(sizeof(QuillArtistRec) == 44, "QuillArtistRec is 44 bytes");
MOX_CHECK_FIELD(QuillArtistRec, Id, 0);
MOX_CHECK_FIELD(QuillArtistRec, Name, 4);
MOX_CHECK_FIELD(QuillArtistRec, NameYomi, 8);
MOX_CHECK_FIELD(QuillArtistRec, KeyName, 12);
MOX_CHECK_FIELD(QuillArtistRec, Genre, 16);
MOX_CHECK_FIELD(QuillArtistRec, Styles, 20);
MOX_CHECK_FIELD(QuillArtistRec, Tones, 24);
MOX_CHECK_FIELD(QuillArtistRec, Themas, 28);
MOX_CHECK_FIELD(QuillArtistRec, SimilarArtists, 32);
MOX_CHECK_FIELD(QuillArtistRec, Influences, 36);
MOX_CHECK_FIELD(QuillArtistRec, Followers, 40);

static_assert(sizeof(QuillGenreRec) == 8, "QuillGenreRec is 8 bytes");
MOX_CHECK_FIELD(QuillGenreRec, Id, 0);
MOX_CHECK_FIELD(QuillGenreRec, Name, 4);

#undef MOX_CHECK_FIELD

#endif  // MOX_PRIVATE_MOXDBRECORDS_H
