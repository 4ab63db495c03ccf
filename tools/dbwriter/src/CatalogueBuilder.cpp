// Albums, tracks, artists, genres and TOC records with the identifier
// conventions of the response database.
#include "moxdb/CatalogueBuilder.h"

#include <algorithm>

#include "moxdb/TocText.h"

namespace moxdb {

CatalogueBuilder::CatalogueBuilder(const std::string& textAtOffsetZero)
    : mNextArtistId(1), mNextTrackId(1) {
    text(textAtOffsetZero);
}

uint32_t CatalogueBuilder::text(const std::string& utf8) {
    const auto found = mStrings.find(utf8);
    if (found != mStrings.end()) {
        return found->second;
    }
    const uint32_t offset = mImage.addString(utf8);
    mStrings.emplace(utf8, offset);
    return offset;
}

uint32_t CatalogueBuilder::addGenre(const std::string& code) {
    const auto found = mGenres.find(code);
    if (found != mGenres.end()) {
        return found->second;
    }
    GenreRecord record;
    record.Id = text(code);
    record.Name = record.Id;
    mImage.addGenre(record);
    mGenres.emplace(code, record.Id);
    return record.Id;
}

uint32_t CatalogueBuilder::addArtist(const std::string& name) {
    ArtistRecord record;
    record.Id = mNextArtistId++;
    record.Name = text(name);
    mImage.addArtist(record);
    return record.Id;
}

uint32_t CatalogueBuilder::addTrack(const TrackFields& track) {
    TrackRecord record;
    record.Id = mNextTrackId++;
    record.Title = text(track.title);
    record.Performer = track.artistId;
    record.Genre = track.genreId;
    record.MediaNum = track.mediaNum;
    record.TrackNum = track.trackNum;
    record.Time = track.time;
    mImage.addTrack(record);
    return record.Id;
}

uint32_t CatalogueBuilder::addAlbum(const AlbumFields& album) {
    AlbumRecord record;
    record.Id = text(album.idText);
    record.MediaNum = album.mediaNum;
    record.MediaCount = album.mediaCount;
    record.Title = text(album.title);
    record.Genre = text(album.genreCode);
    record.Language = text(album.language);
    record.Confidence = static_cast<uint32_t>(album.confidence);  // two's complement
    record.Tracks = mImage.addTrackList(album.trackIds);
    mImage.addAlbum(record);
    mAlbumTitles[record.Id] = album.title;
    return record.Id;
}

uint32_t CatalogueBuilder::addToc(const std::string& tocText, uint32_t albumId, uint16_t mediaNum) {
    TocRecord record;
    record.Id = text(tocText);
    record.AlbumId = albumId;
    record.MediaNum = mediaNum;
    mImage.addToc(record);
    TocListing listing;
    listing.tocText = tocText;
    listing.albumId = albumId;
    listing.mediaNum = mediaNum;
    const auto title = mAlbumTitles.find(albumId);
    if (title != mAlbumTitles.end()) {
        listing.albumTitle = title->second;
    }
    mTocListing.push_back(listing);
    return record.Id;
}

CatalogueBuilder CatalogueBuilder::makeUniform(const std::string& toc, int albums,
                                               int tracksPerAlbum) {
    CatalogueBuilder cat;
    const uint32_t genre = cat.addGenre("ROCK");
    const int albumCount = std::max(albums, 0);
    const int trackCount = std::max(tracksPerAlbum, 0);
    for (int a = 0; a < albumCount; ++a) {
        const std::string number = std::to_string(a);
        const uint32_t artist = cat.addArtist("Artist " + number);
        AlbumFields album;
        album.idText = "ALBUM-" + number;
        album.title = "Album " + number;
        album.genreCode = "ROCK";
        album.language = "en";
        album.confidence = 100 - a;
        for (int t = 0; t < trackCount; ++t) {
            TrackFields track;
            track.title = "Track " + number + "-" + std::to_string(t + 1);
            track.artistId = artist;
            track.genreId = genre;
            track.trackNum = static_cast<uint32_t>(t + 1);
            album.trackIds.push_back(cat.addTrack(track));
        }
        cat.addToc(toc, cat.addAlbum(album), 1);
    }
    return cat;
}

namespace {

// Adds one disc's tracks (all by `artist`, genre `genre`) and returns their Ids.
std::vector<uint32_t> addDisc(CatalogueBuilder& cat, const std::vector<std::string>& titles,
                              uint32_t artist, uint32_t genre, uint32_t mediaNum) {
    std::vector<uint32_t> ids;
    for (size_t i = 0; i < titles.size(); ++i) {
        TrackFields track;
        track.title = titles[i];
        track.artistId = artist;
        track.genreId = genre;
        track.mediaNum = mediaNum;
        track.trackNum = static_cast<uint32_t>(i + 1);
        ids.push_back(cat.addTrack(track));
    }
    return ids;
}

}  // namespace

CatalogueBuilder CatalogueBuilder::makeSample() {
    CatalogueBuilder cat;
    const uint32_t rock = cat.addGenre("ROCK");
    const uint32_t jazz = cat.addGenre("JAZZ");
    const uint32_t pop = cat.addGenre("POP");
    const uint32_t rnb = cat.addGenre("R&B");

    const uint32_t harbor = cat.addArtist("The Harbor Lights");
    AlbumFields first{"SAMPLE-0001", "Northern Roads", "ROCK", "en", 92, 1, {}, 1};
    first.trackIds = addDisc(cat, {"Open Highway", "Cold Harbor", "Last Exit"}, harbor, rock, 1);
    const uint32_t firstId = cat.addAlbum(first);
    cat.addToc(makeTocText({0, 18000, 36000}, 54000), firstId, 1);

    const uint32_t quartet = cat.addArtist("Mira Quartet");
    AlbumFields second{"SAMPLE-0002", "Blue Hours (Live)", "JAZZ", "en", 85, 2, {}, 1};
    second.trackIds =
        addDisc(cat, {"Opening", "Blue Hour", "Café Nocturne", "Interlude"}, quartet, jazz, 1);
    const std::vector<uint32_t> discTwo =
        addDisc(cat, {"Second Set", "Late Train", "Encore"}, quartet, jazz, 2);
    second.trackIds.insert(second.trackIds.end(), discTwo.begin(), discTwo.end());
    const uint32_t secondId = cat.addAlbum(second);
    cat.addToc(makeTocText({0, 20000, 41000, 60500}, 80000), secondId, 1);
    cat.addToc(makeTocText({0, 25000, 47000}, 70000), secondId, 2);

    const uint32_t hikari = cat.addArtist("ひかり");
    AlbumFields third{"SAMPLE-0003", "夜明けの街", "POP", "ja", 78, 1, {}, 1};
    third.trackIds = addDisc(cat, {"始まりの歌", "青い空", "さよなら🌙"}, hikari, pop, 1);
    const uint32_t thirdId = cat.addAlbum(third);
    cat.addToc(makeTocText({0, 15000, 31000}, 47000), thirdId, 1);

    const uint32_t velvet = cat.addArtist("Velvet Avenue");
    AlbumFields fourth{"SAMPLE-0004", "Slow Motion", "R&B", "en", 64, 1, {}, 1};
    fourth.trackIds =
        addDisc(cat, {"Midnight Call", "Golden", "Slow Motion", "Stay"}, velvet, rnb, 1);
    const uint32_t fourthId = cat.addAlbum(fourth);
    cat.addToc(makeTocText({0, 16000, 33000, 49000}, 66000), fourthId, 1);
    return cat;
}

}  // namespace moxdb
