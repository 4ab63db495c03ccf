#include "BareAlbumSearch.h"

#include <stdio_ext.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <vector>

#include "HbFramework/HbString.h"
#include "moxdb/DbImageReader.h"
#include "moxdb/GenreNumbers.h"

namespace {

using moxdb::AlbumRecord;
using moxdb::ArtistRecord;
using moxdb::DbImageReader;
using moxdb::GenreRecord;
using moxdb::Section;
using moxdb::TocRecord;
using moxdb::TrackRecord;

// The bytes that an access has just read, valid until its next read: the
// fields of a record or a text, little-endian, from offset 0.
struct Window {
    const DbImageReader* reader;
    uint64_t base;

    uint16_t u16(uint64_t offset) const { return reader->u16(base + offset); }
    uint32_t u32(uint64_t offset) const { return reader->u32(base + offset); }
};

// The whole file with one read; every later read is a view into it.
class ImageAccess {
public:
    bool open(const std::string& path) {
        FILE* file = std::fopen(path.c_str(), "rb");
        if (file == nullptr) {
            return false;
        }
        struct stat info;
        bool ok = fstat(fileno(file), &info) == 0 && info.st_size >= 0;
        if (ok) {
            mImage.resize(static_cast<size_t>(info.st_size));
            ok = std::fread(mImage.data(), 1, mImage.size(), file) == mImage.size();
        }
        std::fclose(file);
        return ok;
    }
    // The header and the section table.
    const DbImageReader& table() const { return mReader; }
    // The `size` bytes at `offset`; false when they do not lie in the file.
    bool at(uint64_t offset, uint64_t size, Window* out) {
        mNext = offset;
        return next(size, out);
    }
    // The `size` bytes that follow the last ones read.
    bool next(uint64_t size, Window* out) {
        if (mNext + size > mImage.size()) {
            return false;
        }
        *out = Window{&mReader, mNext};
        mNext += size;
        return true;
    }

private:
    moxdb::Bytes mImage;
    DbImageReader mReader{mImage};
    uint64_t mNext = 0;
};

// The file reached as the module's reader must reach it: a C stream, a seek
// before every lookup, every text and every TOC record, a read per record,
// nothing loaded whole by the program itself. The stream is set up as the
// module sets up its own (a buffer of the whole file, no stream lock), so
// that what remains is the cost of that way to the bytes.
class StreamAccess {
public:
    StreamAccess() = default;
    StreamAccess(const StreamAccess&) = delete;
    StreamAccess& operator=(const StreamAccess&) = delete;
    ~StreamAccess() {
        if (mFile != nullptr) {
            std::fclose(mFile);
        }
    }

    bool open(const std::string& path) {
        mFile = std::fopen(path.c_str(), "rb");
        if (mFile == nullptr) {
            return false;
        }
        __fsetlocking(mFile, FSETLOCKING_BYCALLER);
        struct stat info;
        if (fstat(fileno(mFile), &info) == 0 && info.st_size > 0) {
            mBuffer.resize(static_cast<size_t>(info.st_size));
            std::setvbuf(mFile, mBuffer.data(), _IOFBF, mBuffer.size());
        }
        // The header, then the section table, as the reader loads them.
        mTable.resize(moxdb::kHeaderSize + moxdb::kTableSize);
        return readAt(0, mTable.data(), moxdb::kHeaderSize) &&
               readAt(moxdb::kTableOffset, mTable.data() + moxdb::kTableOffset, moxdb::kTableSize);
    }
    const DbImageReader& table() const { return mTableReader; }
    bool at(uint64_t offset, uint64_t size, Window* out) {
        return fseeko(mFile, static_cast<off_t>(offset), SEEK_SET) == 0 && next(size, out);
    }
    // Nothing read at once is larger than a text of the longest length.
    bool next(uint64_t size, Window* out) {
        if (size > mRecord.size() || std::fread(mRecord.data(), 1, size, mFile) != size) {
            return false;
        }
        *out = Window{&mRecordReader, 0};
        return true;
    }

private:
    bool readAt(uint64_t offset, uint8_t* into, size_t size) {
        return fseeko(mFile, static_cast<off_t>(offset), SEEK_SET) == 0 &&
               std::fread(into, 1, size, mFile) == size;
    }

    FILE* mFile = nullptr;
    std::vector<char> mBuffer;
    moxdb::Bytes mTable;
    DbImageReader mTableReader{mTable};
    moxdb::Bytes mRecord = moxdb::Bytes(2u * moxdb::kStringMaxUnits);
    DbImageReader mRecordReader{mRecord};
};

// The first record of `section` with identifier `id`, scanning from the
// first record; false when none does.
template <class Access>
bool findRecord(Access& access, Section section, uint32_t id, Window* record) {
    Window head;
    if (!access.at(access.table().tableWord(section), moxdb::kHeadSize, &head)) {
        return false;
    }
    const uint16_t count = head.u16(offsetof(moxdb::SectionHead, recordCount));
    for (uint32_t n = 0; n < count; ++n) {
        if (!access.next(moxdb::recordSizeOf(section), record)) {
            return false;
        }
        if (record->u32(0) == id) {
            return true;
        }
    }
    return false;
}

// The text at string offset `offset`, converted as the module converts it.
template <class Access>
bool text(Access& access, uint32_t offset, std::string* out) {
    Window length;
    if (!access.at(access.table().stringOffset(offset), 2u, &length)) {
        return false;
    }
    const uint16_t units = length.u16(0);
    Window body;
    if (units > moxdb::kStringMaxUnits || !access.next(2u * units, &body)) {
        return false;
    }
    unsigned short buffer[moxdb::kStringMaxUnits + 1];
    for (uint16_t i = 0; i < units; ++i) {
        buffer[i] = body.u16(2u * i);
    }
    buffer[units] = 0;
    HbString converted;
    converted.Copy(buffer, HbString::en_CODE_PAGE_UTF16);
    *out = converted.ToCHAR(HbString::en_CODE_PAGE_UTF8);
    return true;
}

// The track identifiers of the album's list, in list order.
template <class Access>
bool trackIds(Access& access, uint32_t listOffset, std::vector<uint32_t>* ids) {
    Window window;
    if (!access.at(access.table().tableWord(Section::QuillAlbumTracks) + 4u + listOffset, 4u,
                   &window)) {
        return false;
    }
    const uint32_t count = window.u32(0);
    ids->clear();
    for (uint32_t n = 0; n < count; ++n) {
        if (!access.next(4u, &window)) {
            return false;
        }
        ids->push_back(window.u32(0));
    }
    return true;
}

// The track `id` when it lies on `mediaNum`: its title, performer and genre.
// Each record's fields are taken before the next read replaces it.
template <class Access>
bool addTrack(Access& access, uint32_t id, uint32_t mediaNum, HbSMoxDef::AlbumInfo* album) {
    Window record;
    if (!findRecord(access, Section::QuillTrack, id, &record)) {
        return false;
    }
    if (record.u32(offsetof(TrackRecord, MediaNum)) != mediaNum) {
        return true;
    }
    const uint32_t title = record.u32(offsetof(TrackRecord, Title));
    const uint32_t genreId = record.u32(offsetof(TrackRecord, Genre));
    if (!findRecord(access, Section::QuillArtist, record.u32(offsetof(TrackRecord, Performer)),
                    &record)) {
        return false;
    }
    const uint32_t name = record.u32(offsetof(ArtistRecord, Name));
    if (!findRecord(access, Section::QuillGenre, genreId, &record)) {
        return false;
    }
    const uint32_t code = record.u32(offsetof(GenreRecord, Id));
    HbSMoxDef::TrackInfo info;
    if (!text(access, title, &info.TrackName) || !text(access, name, &info.PerformerName) ||
        !text(access, code, &info.GenreName)) {
        return false;
    }
    info.GenreID = moxdb::GenreNumbers::numberOf(info.GenreName);
    album->Tracks.push_back(info);
    return true;
}

template <class Access>
bool assemble(Access& access, uint32_t albumId, uint16_t mediaNum, HbSMoxDef::AlbumInfo* album) {
    Window record;
    if (!findRecord(access, Section::QuillAlbum, albumId, &record)) {
        return false;
    }
    const uint32_t id = record.u32(offsetof(AlbumRecord, Id));
    const uint32_t title = record.u32(offsetof(AlbumRecord, Title));
    const uint32_t genre = record.u32(offsetof(AlbumRecord, Genre));
    const uint32_t language = record.u32(offsetof(AlbumRecord, Language));
    const uint32_t tracks = record.u32(offsetof(AlbumRecord, Tracks));
    album->Database = 1;
    album->Confidence = static_cast<int32>(record.u32(offsetof(AlbumRecord, Confidence)));
    album->MediaCount = static_cast<int32>(record.u32(offsetof(AlbumRecord, MediaCount)));
    album->MediaNum = mediaNum;
    std::string languageText;
    if (!text(access, id, &album->AlbumId) || !text(access, title, &album->AlbumName) ||
        !text(access, genre, &album->GenreName) || !text(access, language, &languageText)) {
        return false;
    }
    album->GenreID = moxdb::GenreNumbers::numberOf(album->GenreName);
    album->AlbumLang = moxdb::GenreNumbers::languageOf(languageText);
    std::vector<uint32_t> ids;
    if (!trackIds(access, tracks, &ids)) {
        return false;
    }
    for (const uint32_t track : ids) {
        if (!addTrack(access, track, mediaNum, album)) {
            return false;
        }
    }
    return !album->Tracks.empty();
}

// Every album whose TOC record holds `toc`, best first, less those whose
// track count does not fit the TOC.
template <class Access>
bool searchWith(Access& access, const std::string& path, const std::string& toc,
                std::list<HbSMoxDef::AlbumInfo>* albums) {
    if (!access.open(path)) {
        return false;
    }
    const uint64_t tocs = access.table().tableWord(Section::QuillToc);
    Window record;
    if (!access.at(tocs, moxdb::kHeadSize, &record)) {
        return false;
    }
    const uint16_t stride = record.u16(offsetof(moxdb::SectionHead, recordSize));
    const uint16_t count = record.u16(offsetof(moxdb::SectionHead, recordCount));
    albums->clear();
    std::string stored;
    for (uint32_t i = 0; i < count; ++i) {
        const uint64_t at = tocs + moxdb::kHeadSize + static_cast<uint64_t>(i) * stride;
        if (!access.at(at, moxdb::kTocRecordSize, &record)) {
            return false;
        }
        const uint32_t albumId = record.u32(offsetof(TocRecord, AlbumId));
        const uint16_t mediaNum = record.u16(offsetof(TocRecord, MediaNum));
        if (!text(access, record.u32(offsetof(TocRecord, Id)), &stored)) {
            return false;
        }
        if (stored != toc) {
            continue;
        }
        HbSMoxDef::AlbumInfo album;
        if (!assemble(access, albumId, mediaNum, &album)) {
            return false;
        }
        albums->push_back(album);
    }
    // Best first; the list's sort is stable, so equals keep database order.
    albums->sort([](const HbSMoxDef::AlbumInfo& a, const HbSMoxDef::AlbumInfo& b) {
        return a.Confidence > b.Confidence;
    });
    const size_t expected = static_cast<uint32_t>(toc.size() / 6u) - 1u;
    albums->remove_if(
        [expected](const HbSMoxDef::AlbumInfo& album) { return album.Tracks.size() != expected; });
    return true;
}

bool sameTrack(const HbSMoxDef::TrackInfo& a, const HbSMoxDef::TrackInfo& b) {
    return a.TrackName == b.TrackName && a.PerformerName == b.PerformerName &&
           a.GenreName == b.GenreName && a.GenreID == b.GenreID && a.TrackNum == b.TrackNum;
}

bool sameAlbum(const HbSMoxDef::AlbumInfo& a, const HbSMoxDef::AlbumInfo& b) {
    return a.AlbumId == b.AlbumId && a.AlbumName == b.AlbumName && a.GenreName == b.GenreName &&
           a.GenreID == b.GenreID && a.Confidence == b.Confidence && a.AlbumLang == b.AlbumLang &&
           a.MediaNum == b.MediaNum && a.MediaCount == b.MediaCount && a.Database == b.Database &&
           std::equal(a.Tracks.begin(), a.Tracks.end(), b.Tracks.begin(), b.Tracks.end(),
                      sameTrack);
}

}  // namespace

bool BareAlbumSearch::same(const std::list<HbSMoxDef::AlbumInfo>& first,
                           const std::list<HbSMoxDef::AlbumInfo>& second) {
    return std::equal(first.begin(), first.end(), second.begin(), second.end(), sameAlbum);
}

bool BareAlbumSearch::search(const std::string& path, const std::string& toc,
                             std::list<HbSMoxDef::AlbumInfo>* albums) {
    ImageAccess access;
    return searchWith(access, path, toc, albums);
}

bool BareAlbumSearch::searchThroughStream(const std::string& path, const std::string& toc,
                                          std::list<HbSMoxDef::AlbumInfo>* albums) {
    StreamAccess access;
    return searchWith(access, path, toc, albums);
}
