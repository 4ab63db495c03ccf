// Layout constants and record values of the response database, as the writer
// sees them. The writer never copies these structures into the file: every
// field is placed byte by byte, little-endian, at the offset noted beside it.
#ifndef MOXDB_DBRECORDS_H
#define MOXDB_DBRECORDS_H

#include <cstdint>

namespace moxdb {

// Fixed places and sizes of the file.
constexpr uint32_t kHeaderSize = 64;   // database header at file offset 0
constexpr uint32_t kTableOffset = 64;  // section table: fifteen u32 words
constexpr uint32_t kTableWordCount = 15;
constexpr uint32_t kTableSize = 60;
constexpr uint32_t kHeadSize = 8;           // head of each record section
constexpr uint32_t kTocRecordSize = 20;     // QuillToc
constexpr uint32_t kAlbumRecordSize = 84;   // QuillAlbum
constexpr uint32_t kTrackRecordSize = 72;   // QuillTrack
constexpr uint32_t kArtistRecordSize = 44;  // QuillArtist
constexpr uint32_t kGenreRecordSize = 8;    // QuillGenre
constexpr uint32_t kDefaultVersion = 0x01000000;
constexpr uint32_t kStringMaxUnits = 1023;  // longest string the module's reader accepts

// The section words of the table, by index (word 0 is the table's own size).
// The numeric value is the word's index; its file offset is 64 + 4 * index.
enum class Section : uint32_t {
    RudTrack = 1,
    RudPlaylist = 2,
    RudPlaylistTrack = 3,
    StringTable = 4,  // string area: a 4-byte word, then the entries
    StringList = 5,
    QuillTrack = 6,
    QuillAlbum = 7,
    QuillAlbumTracks = 8,  // album track lists: a 4-byte word, then the lists
    QuillCredits = 9,
    QuillArtist = 10,
    QuillGenre = 11,
    QuillDesc = 12,
    QuillToc = 13,
    QuillTrackIndices = 14,
};

// True for the five sections that start with a record head (QuillToc,
// QuillAlbum, QuillTrack, QuillArtist, QuillGenre).
constexpr bool isRecordSection(Section section) {
    return section == Section::QuillToc || section == Section::QuillAlbum ||
           section == Section::QuillTrack || section == Section::QuillArtist ||
           section == Section::QuillGenre;
}

// Bytes of one record of a record section's family; 0 for other sections.
constexpr uint32_t recordSizeOf(Section section) {
    switch (section) {
        case Section::QuillToc:
            return kTocRecordSize;
        case Section::QuillAlbum:
            return kAlbumRecordSize;
        case Section::QuillTrack:
            return kTrackRecordSize;
        case Section::QuillArtist:
            return kArtistRecordSize;
        case Section::QuillGenre:
            return kGenreRecordSize;
        default:
            return 0;
    }
}

// TOC record, 20 bytes (file offsets in the record noted per field).
struct TocRecord {
    uint32_t Id = 0;                 // 0: string offset of the TOC text
    uint32_t AlbumId = 0;            // 4: Id of the album record
    uint16_t MediaNum = 0;           // 8: disc number within the album
    uint16_t Unnamed = 0;            // 10: not interpreted by the module
    uint32_t RudPictFolderPath = 0;  // 12
    uint32_t RudArtFileName = 0;     // 16
};

// Album record, 84 bytes: 21 u32 fields in this order.
struct AlbumRecord {
    uint32_t Id = 0;  // also the string offset of the album's identifier text
    uint32_t MediaNum = 0;
    uint32_t MediaCount = 0;
    uint32_t Title = 0;  // string offset
    uint32_t TitleYomi = 0;
    uint32_t Performer = 0;
    uint32_t Composer = 0;
    uint32_t Genre = 0;       // string offset of the genre code
    uint32_t Tracks = 0;      // list offset in the album-tracks section
    uint32_t Confidence = 0;  // a signed value stored in two's complement
    uint32_t Language = 0;    // string offset
    uint32_t ImageUrl = 0;
    uint32_t Upc = 0;
    uint32_t RelYear = 0;
    uint32_t PickFlag = 0;
    uint32_t KeyTitle = 0;
    uint32_t Credits = 0;
    uint32_t FirstTrackByMedia = 0;
    uint32_t Styles = 0;
    uint32_t Tones = 0;
    uint32_t Themas = 0;
};

// Track record, 72 bytes: 18 u32 fields in this order.
struct TrackRecord {
    uint32_t Id = 0;
    uint32_t Title = 0;  // string offset
    uint32_t TitleYomi = 0;
    uint32_t Performer = 0;  // Id of an artist record
    uint32_t Composer = 0;
    uint32_t Genre = 0;  // Id of a genre record
    uint32_t Time = 0;
    uint32_t Language = 0;
    uint32_t Confidence = 0;
    uint32_t MediaNum = 0;
    uint32_t TrackNum = 0;
    uint32_t PickFlag = 0;
    uint32_t KeyTitle = 0;
    uint32_t Work = 0;
    uint32_t Part = 0;
    uint32_t Conductor = 0;
    uint32_t PerfDate = 0;
    uint32_t CompDate = 0;
};

// Artist record, 44 bytes: 11 u32 fields in this order.
struct ArtistRecord {
    uint32_t Id = 0;
    uint32_t Name = 0;  // string offset
    uint32_t NameYomi = 0;
    uint32_t KeyName = 0;
    uint32_t Genre = 0;
    uint32_t Styles = 0;
    uint32_t Tones = 0;
    uint32_t Themas = 0;
    uint32_t SimilarArtists = 0;
    uint32_t Influences = 0;
    uint32_t Followers = 0;
};

// Genre record, 8 bytes.
struct GenreRecord {
    uint32_t Id = 0;  // also the string offset of the genre code
    uint32_t Name = 0;
};

}  // namespace moxdb

#endif  // MOXDB_DBRECORDS_H
