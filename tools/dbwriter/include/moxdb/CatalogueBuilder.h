// High-level builder of a response database from albums, tracks, artists,
// genres and TOC texts, with the identifier conventions of the format:
// - an album's Id is the string offset of its identifier text;
// - a genre's Id is the string offset of its code;
// - a TOC record's Id is the string offset of its TOC text;
// - tracks and artists get fresh identifiers 1, 2, 3, ... per family.
// Texts are shared: the same text added twice (as a title, code, ...) is one
// string entry. String offset 0 holds the text given to the constructor
// (empty by default), so no genre or album gets Id 0 by accident.
//
//   moxdb::CatalogueBuilder cat;
//   uint32_t rock = cat.addGenre("ROCK");
//   uint32_t artist = cat.addArtist("The Band");
//   uint32_t t1 = cat.addTrack({"Intro", artist, rock, 1});
//   uint32_t album = cat.addAlbum({"ALB-1", "First", "ROCK", "en", 90, 1, {t1}});
//   cat.addToc(moxdb::makeTocText({0}, 18000), album, 1);
//   cat.writeFile(path, &error);
//
// image() gives the low-level builder for overrides and damage. Not
// thread-safe; one builder per thread.
#ifndef MOXDB_CATALOGUEBUILDER_H
#define MOXDB_CATALOGUEBUILDER_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "moxdb/DbImageBuilder.h"

namespace moxdb {

// One track record. Identifiers of the artist and genre are those returned by
// addArtist and addGenre (0 means none).
struct TrackFields {
    std::string title;
    uint32_t artistId = 0;  // stored as Performer
    uint32_t genreId = 0;   // stored as Genre
    uint32_t mediaNum = 1;  // disc of the album the track lies on
    uint32_t trackNum = 0;  // stored as TrackNum (the module ignores it)
    uint32_t time = 0;      // stored as Time
};

// One album record and its track list.
struct AlbumFields {
    std::string idText;      // the album's identifier text; its offset is the Id
    std::string title;       // Title
    std::string genreCode;   // Genre: string offset of this code
    std::string language;    // Language: string offset of this text ("ja", "en", ...)
    int32_t confidence = 0;  // stored as u32 two's complement
    uint32_t mediaCount = 1;
    std::vector<uint32_t> trackIds;  // track Ids in album order, every disc
    uint32_t mediaNum = 1;           // the album record's own MediaNum
};

// One TOC record as added, with the title of its album when known.
struct TocListing {
    std::string tocText;
    uint32_t albumId = 0;
    uint16_t mediaNum = 0;
    std::string albumTitle;  // empty when albumId was not returned by addAlbum
};

class CatalogueBuilder {
public:
    // `textAtOffsetZero` becomes the first string entry (offset 0).
    explicit CatalogueBuilder(const std::string& textAtOffsetZero = std::string());

    // String offset of `utf8`, adding the entry on first use.
    uint32_t text(const std::string& utf8);

    // Genre record {Id = Name = offset of code}; returns the Id. The same code
    // twice gives the same record.
    uint32_t addGenre(const std::string& code);
    // Artist record with a fresh Id and Name = offset of name; returns the Id.
    uint32_t addArtist(const std::string& name);
    // Track record with a fresh Id; returns the Id.
    uint32_t addTrack(const TrackFields& track);
    // Album record with Id = offset of idText, its texts, Confidence, MediaCount,
    // and Tracks = offset of a new list holding trackIds; returns the Id.
    uint32_t addAlbum(const AlbumFields& album);
    // TOC record with Id = offset of tocText; returns the Id.
    uint32_t addToc(const std::string& tocText, uint32_t albumId, uint16_t mediaNum);

    // Every TOC record added, in file order.
    const std::vector<TocListing>& tocListing() const { return mTocListing; }

    DbImageBuilder& image() { return mImage; }
    const DbImageBuilder& image() const { return mImage; }
    Bytes build() const { return mImage.build(); }
    bool writeFile(const std::string& path, std::string* error) const {
        return mImage.writeFile(path, error);
    }

    // `albums` albums of `tracksPerAlbum` tracks each (one disc, genre "ROCK",
    // language "en", one artist per album), every one with a TOC record whose
    // text is `toc`; album i (0-based) has identifier text "ALBUM-<i>", title
    // "Album <i>" and confidence 100 - i. Negative counts count as 0.
    static CatalogueBuilder makeUniform(const std::string& toc, int albums, int tracksPerAlbum);

    // The bundled sample: four albums (ROCK, a two-disc JAZZ album, a Japanese
    // "ja" POP album, R&B), five TOC records made with makeTocText.
    static CatalogueBuilder makeSample();

private:
    DbImageBuilder mImage;
    std::map<std::string, uint32_t> mStrings;      // text -> string offset
    std::map<std::string, uint32_t> mGenres;       // code -> genre Id
    std::map<uint32_t, std::string> mAlbumTitles;  // album Id -> title
    std::vector<TocListing> mTocListing;
    uint32_t mNextArtistId;
    uint32_t mNextTrackId;
};

}  // namespace moxdb

#endif  // MOXDB_CATALOGUEBUILDER_H
