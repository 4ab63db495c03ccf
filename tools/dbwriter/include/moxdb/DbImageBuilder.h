// Low-level builder of a response database image: every byte of the header,
// the section table, the string area, the album track lists and the five
// record sections can be set, including values that the module must reject.
//
// Layout of build(): header (0..63), section table (64..123), then one area
// per section word 1..14 in table order, each starting on a 4-byte boundary
// (padding bytes are 0), then the tail bytes. A section moved with
// placeLast() comes after all other areas, right before the tail. Sections
// the module does not read get an 8-byte empty area (u32 8, u32 0).
//
//   moxdb::DbImageBuilder image;
//   uint32_t toc = image.addString("0000960046E6008D3600D386");
//   moxdb::TocRecord rec;
//   rec.Id = toc;
//   rec.AlbumId = 7;
//   image.addToc(rec);
//   image.setRecordSize(moxdb::Section::QuillToc, 32);  // stride 32, zero padding
//   std::vector<uint8_t> bytes = image.build();
//
// Not thread-safe; one builder per thread.
#ifndef MOXDB_DBIMAGEBUILDER_H
#define MOXDB_DBIMAGEBUILDER_H

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "moxdb/DbBytes.h"
#include "moxdb/DbRecords.h"

namespace moxdb {

// Where build() puts one section's area, before any override of its table word.
struct SectionSpan {
    uint32_t offset = 0;  // file offset of the area
    uint32_t size = 0;    // bytes of the area (head and records, or word and entries)
};

class DbImageBuilder {
public:
    DbImageBuilder();

    // ---- Header (file offsets 0..63) ----
    // The first four bytes of `signature` (zero-padded when shorter); default "DAP3".
    void setSignature(const std::string& signature);
    void setVersion(uint32_t version);  // default kDefaultVersion (0x01000000)
    void setAppVer1(const std::array<uint16_t, 4>& components);  // offsets 8..15; default {1,0,0,0}
    void setAppVer2(
        const std::array<uint16_t, 4>& components);          // offsets 16..23; default {1,0,0,0}
    void setReserved(const std::array<uint8_t, 40>& bytes);  // offsets 24..63; default zeros
    void fillReserved(uint8_t value);

    // ---- Section table (file offsets 64..123) ----
    void setTableOwnSize(uint32_t value);  // word 0; default 60
    // Replaces the table word of `section` with `value`; the area is still written
    // where the layout puts it, so the word may point anywhere (or past the end).
    void setSectionWord(Section section, uint32_t value);
    // Puts the area of `section` after every other area (before the tail), so a
    // count or length that says more than the area holds runs into the end of file.
    void placeLast(Section section);

    // ---- String area (section StringTable) ----
    // The 4-byte word in front of the entries; default: the bytes of all entries.
    void setStringAreaWord(uint32_t value);
    // Appends an entry (u16 unit count, then the UTF-16LE units, no terminator) and
    // returns its string offset (relative to StringTable + 4). Entries are placed in
    // call order, back to back; the first one added is at offset 0. Nothing is
    // shared: adding the same text twice gives two entries.
    uint32_t addString(const std::string& utf8);
    uint32_t addStringUnits(const std::u16string& units);
    // Appends a hand-made entry: `declaredLength` as the u16 count, then `bytes`
    // as they are (any length, odd included). Returns its string offset.
    uint32_t addRawStringEntry(uint16_t declaredLength, const Bytes& bytes);
    // String offset that the next added entry will get.
    uint32_t nextStringOffset() const;

    // ---- Album track lists (section QuillAlbumTracks) ----
    // The 4-byte word in front of the lists; default: the bytes of all lists.
    void setTrackListAreaWord(uint32_t value);
    // Appends a list (u32 count, then the ids) and returns its list offset T
    // (relative to QuillAlbumTracks + 4), the value for an album's Tracks field.
    uint32_t addTrackList(const std::vector<uint32_t>& trackIds);
    // As addTrackList, but the count word says `declaredCount` whatever `trackIds`
    // holds: a list that claims more (or fewer) entries than are present.
    uint32_t addTrackListWithCount(uint32_t declaredCount, const std::vector<uint32_t>& trackIds);

    // ---- Records; each add returns the record's index within its section ----
    size_t addToc(const TocRecord& record);
    size_t addAlbum(const AlbumRecord& record);
    size_t addTrack(const TrackRecord& record);
    size_t addArtist(const ArtistRecord& record);
    size_t addGenre(const GenreRecord& record);

    // Records added so far, changeable until build(). The index must be valid.
    TocRecord& toc(size_t index) { return mTocs.at(index); }
    AlbumRecord& album(size_t index) { return mAlbums.at(index); }
    TrackRecord& track(size_t index) { return mTracks.at(index); }
    ArtistRecord& artist(size_t index) { return mArtists.at(index); }
    GenreRecord& genre(size_t index) { return mGenres.at(index); }
    size_t tocCount() const { return mTocs.size(); }
    size_t albumCount() const { return mAlbums.size(); }
    size_t trackCount() const { return mTracks.size(); }
    size_t artistCount() const { return mArtists.size(); }
    size_t genreCount() const { return mGenres.size(); }

    // ---- Record-section heads; false (nothing set) for a non-record section ----
    // OwnSize in the head; default: the area's size (head included).
    bool setOwnSize(Section section, uint32_t value);
    // RecordSize in the head; default: the family's fixed size. For QuillToc a value
    // above 20 is also the stride at which the records are written (each record
    // followed by zero padding, see setTocPadByte); a value below 20 changes only
    // the head. For the other families it changes only the head.
    bool setRecordSize(Section section, uint16_t value);
    // RecordCount in the head; default: the records added, at most 65535 (a u16;
    // records beyond are written but not counted). It may say more or fewer than
    // the records written; the records are written all the same.
    bool setRecordCount(Section section, uint16_t value);
    // Fill byte of the padding after each TOC record when the stride exceeds 20.
    void setTocPadByte(uint8_t value);

    // ---- Tail ----
    // Bytes appended after the last area (for example junk after the database).
    void appendTail(const Bytes& bytes);

    // ---- Result ----
    // Where build() places each area (before setSectionWord overrides).
    SectionSpan sectionSpan(Section section) const;
    // The table word that build() writes for `section` (override included).
    uint32_t sectionWord(Section section) const;
    // File offset of string offset 0 (StringTable area + 4), as laid out.
    uint32_t stringBase() const;
    // File offset of list offset 0 (QuillAlbumTracks area + 4), as laid out.
    uint32_t trackListBase() const;

    Bytes build() const;
    // Writes build() to `path`, creating missing parent directories and replacing an
    // existing file. On failure returns false and, when `error` is not null, stores
    // a one-line reason in it.
    bool writeFile(const std::string& path, std::string* error) const;

private:
    struct HeadOverride {
        std::optional<uint32_t> ownSize;
        std::optional<uint16_t> recordSize;
        std::optional<uint16_t> recordCount;
    };
    struct Layout {
        std::array<SectionSpan, kTableWordCount> spans{};  // index = table word index
        uint32_t tailOffset = 0;
    };

    Layout computeLayout() const;
    uint32_t areaSize(Section section) const;
    uint32_t tocStride() const;
    uint32_t recordCountOf(Section section) const;
    void writeHeader(Bytes& out) const;
    void writeTable(Bytes& out, const Layout& layout) const;
    void writeArea(Bytes& out, Section section) const;
    void writeHead(Bytes& out, Section section) const;
    void writeRecords(Bytes& out, Section section) const;

    std::array<char, 4> mSignature;
    uint32_t mVersion;
    std::array<uint16_t, 4> mAppVer1;
    std::array<uint16_t, 4> mAppVer2;
    std::array<uint8_t, 40> mReserved;
    uint32_t mTableOwnSize;
    std::map<uint32_t, uint32_t> mWordOverrides;  // table word index -> value
    std::vector<Section> mPlacedLast;             // in call order
    std::optional<uint32_t> mStringAreaWord;
    Bytes mStringEntries;
    std::optional<uint32_t> mTrackListAreaWord;
    Bytes mTrackLists;
    std::vector<TocRecord> mTocs;
    std::vector<AlbumRecord> mAlbums;
    std::vector<TrackRecord> mTracks;
    std::vector<ArtistRecord> mArtists;
    std::vector<GenreRecord> mGenres;
    std::map<uint32_t, HeadOverride> mHeads;  // section word index -> head overrides
    uint8_t mTocPadByte;
    Bytes mTail;
};

}  // namespace moxdb

#endif  // MOXDB_DBIMAGEBUILDER_H
