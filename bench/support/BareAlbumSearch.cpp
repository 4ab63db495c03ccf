#include "BareAlbumSearch.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "HbFramework/HbString.h"
#include "moxdb/DbImageReader.h"
#include "private/MoxDapDatabase.h"

namespace {

using moxdb::AlbumRecord;
using moxdb::ArtistRecord;
using moxdb::DbImageReader;
using moxdb::GenreRecord;
using moxdb::Section;
using moxdb::TocRecord;
using moxdb::TrackRecord;

// The whole file with one read.
bool readWhole(const std::string& path, moxdb::Bytes* image) {
    FILE* file = std::fopen(path.c_str(), "rb");
    if (file == nullptr) {
        return false;
    }
    struct stat info;
    bool ok = fstat(fileno(file), &info) == 0 && info.st_size >= 0;
    if (ok) {
        image->resize(static_cast<size_t>(info.st_size));
        ok = std::fread(image->data(), 1, image->size(), file) == image->size();
    }
    std::fclose(file);
    return ok;
}

bool inside(const DbImageReader& reader, uint64_t offset, uint64_t size) {
    return offset + size <= reader.size();
}

// Where the first record of `section` with identifier `id` lies, scanning
// from the first record; 0 when none does.
uint64_t findRecord(const DbImageReader& reader, Section section, uint32_t id) {
    const uint64_t start = reader.tableWord(section);
    const uint32_t size = moxdb::recordSizeOf(section);
    const uint16_t count = reader.u16(start + offsetof(moxdb::SectionHead, recordCount));
    for (uint32_t n = 0; n < count; ++n) {
        const uint64_t at = start + moxdb::kHeadSize + static_cast<uint64_t>(n) * size;
        if (!inside(reader, at, size)) {
            return 0;
        }
        if (reader.u32(at) == id) {
            return at;
        }
    }
    return 0;
}

// The text at string offset `offset`, converted as the module converts it.
bool text(const DbImageReader& reader, uint32_t offset, std::string* out) {
    const uint64_t at = reader.stringOffset(offset);
    const uint16_t units = reader.u16(at);
    if (units > moxdb::kStringMaxUnits || !inside(reader, at, 2u + 2u * units)) {
        return false;
    }
    unsigned short buffer[moxdb::kStringMaxUnits + 1];
    for (uint16_t i = 0; i < units; ++i) {
        buffer[i] = reader.u16(at + 2u + 2u * i);
    }
    buffer[units] = 0;
    HbString converted;
    converted.Copy(buffer, HbString::en_CODE_PAGE_UTF16);
    *out = converted.ToCHAR(HbString::en_CODE_PAGE_UTF8);
    return true;
}

uint32_t field(const DbImageReader& reader, uint64_t record, size_t offset) {
    return reader.u32(record + offset);
}

// The tracks of the album's list that lie on `mediaNum`, in list order.
bool addTracks(const DbImageReader& reader, uint32_t listOffset, uint32_t mediaNum,
               MoxDapDatabase& maps, HbSMoxDef::AlbumInfo* album) {
    const uint64_t list = reader.tableWord(Section::QuillAlbumTracks) + 4u + listOffset;
    const uint32_t count = reader.u32(list);
    if (!inside(reader, list, 4u + 4u * static_cast<uint64_t>(count))) {
        return false;
    }
    HbSMoxDef::TrackInfo info;
    for (uint32_t n = 0; n < count; ++n) {
        const uint64_t track =
            findRecord(reader, Section::QuillTrack, reader.u32(list + 4u + 4u * n));
        if (track == 0) {
            return false;
        }
        if (field(reader, track, offsetof(TrackRecord, MediaNum)) != mediaNum) {
            continue;
        }
        const uint64_t artist = findRecord(reader, Section::QuillArtist,
                                           field(reader, track, offsetof(TrackRecord, Performer)));
        const uint64_t genre = findRecord(reader, Section::QuillGenre,
                                          field(reader, track, offsetof(TrackRecord, Genre)));
        if (artist == 0 || genre == 0 ||
            !text(reader, field(reader, track, offsetof(TrackRecord, Title)), &info.TrackName) ||
            !text(reader, field(reader, artist, offsetof(ArtistRecord, Name)),
                  &info.PerformerName) ||
            !text(reader, field(reader, genre, offsetof(GenreRecord, Id)), &info.GenreName)) {
            return false;
        }
        info.GenreID = maps.getRudGenreID(info.GenreName);
        album->Tracks.push_back(info);
    }
    return !album->Tracks.empty();
}

bool assemble(const DbImageReader& reader, uint32_t albumId, uint16_t mediaNum,
              MoxDapDatabase& maps, HbSMoxDef::AlbumInfo* album) {
    const uint64_t record = findRecord(reader, Section::QuillAlbum, albumId);
    if (record == 0) {
        return false;
    }
    std::string language;
    if (!text(reader, field(reader, record, offsetof(AlbumRecord, Id)), &album->AlbumId) ||
        !text(reader, field(reader, record, offsetof(AlbumRecord, Title)), &album->AlbumName) ||
        !text(reader, field(reader, record, offsetof(AlbumRecord, Genre)), &album->GenreName) ||
        !text(reader, field(reader, record, offsetof(AlbumRecord, Language)), &language)) {
        return false;
    }
    album->Database = 1;
    album->GenreID = maps.getRudGenreID(album->GenreName);
    album->Confidence =
        static_cast<int32>(field(reader, record, offsetof(AlbumRecord, Confidence)));
    album->AlbumLang = maps.getJalsLanguage(language);
    album->MediaCount =
        static_cast<int32>(field(reader, record, offsetof(AlbumRecord, MediaCount)));
    album->MediaNum = mediaNum;
    return addTracks(reader, field(reader, record, offsetof(AlbumRecord, Tracks)), mediaNum, maps,
                     album);
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
    moxdb::Bytes image;
    if (!readWhole(path, &image)) {
        return false;
    }
    const DbImageReader reader(image);
    MoxDapDatabase& maps = *MoxDapDatabase::GetInstance();
    const uint64_t tocs = reader.tableWord(Section::QuillToc);
    const uint16_t stride = reader.u16(tocs + offsetof(moxdb::SectionHead, recordSize));
    const uint16_t count = reader.u16(tocs + offsetof(moxdb::SectionHead, recordCount));
    albums->clear();
    std::string stored;
    for (uint32_t i = 0; i < count; ++i) {
        const uint64_t at = tocs + moxdb::kHeadSize + static_cast<uint64_t>(i) * stride;
        if (!inside(reader, at, moxdb::kTocRecordSize) ||
            !text(reader, field(reader, at, offsetof(TocRecord, Id)), &stored)) {
            return false;
        }
        if (stored != toc) {
            continue;
        }
        HbSMoxDef::AlbumInfo album;
        if (!assemble(reader, field(reader, at, offsetof(TocRecord, AlbumId)),
                      reader.u16(at + offsetof(TocRecord, MediaNum)), maps, &album)) {
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
