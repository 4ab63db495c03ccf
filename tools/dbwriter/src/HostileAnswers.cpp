// Response databases that make a naive search repeat its work.
#include "moxdb/HostileAnswers.h"

#include <vector>

namespace moxdb {

namespace {

// The largest record count a section head can state.
const uint16_t MOST_RECORDS = 0xFFFF;

// The longest text the reader takes: 1023 UTF-16 units.
const size_t LONGEST_TEXT_UNITS = 1023;

// An album of `trackIds` on genre `genre`, language "en", confidence 50.
uint32_t addAlbum(CatalogueBuilder& cat, const std::vector<uint32_t>& trackIds,
                  const std::string& idText = "HOSTILE", const std::string& title = "Hostile",
                  const std::string& genre = "ROCK") {
    AlbumFields album;
    album.idText = idText;
    album.title = title;
    album.genreCode = genre;
    album.language = "en";
    album.confidence = 50;
    album.trackIds = trackIds;
    return cat.addAlbum(album);
}

// A track of medium `mediaNum` by a fresh artist named `artistName`, genre `genre`.
uint32_t addTrack(CatalogueBuilder& cat, const std::string& title, uint32_t mediaNum,
                  const std::string& artistName = "Artist", const std::string& genre = "ROCK") {
    const uint32_t genreId = cat.addGenre(genre);
    const uint32_t artist = cat.addArtist(artistName);
    return cat.addTrack({title, artist, genreId, mediaNum});
}

// 1023 times U+3042 in UTF-8.
std::string longestText() {
    std::string text;
    for (size_t i = 0; i < LONGEST_TEXT_UNITS; ++i) {
        text += "\xE3\x81\x82";
    }
    return text;
}

// One TOC record, read again and again: stride 0 and the largest count.
void repeatOnlyTocRecord(CatalogueBuilder& cat) {
    cat.image().setRecordSize(Section::QuillToc, 0);
    cat.image().setRecordCount(Section::QuillToc, MOST_RECORDS);
}

}  // namespace

const std::string HostileAnswers::TOC = "000000000000";

CatalogueBuilder HostileAnswers::repeatedTocRecord(uint32_t entries) {
    CatalogueBuilder cat;
    const uint32_t track = addTrack(cat, "T", 1);
    cat.addToc(TOC, addAlbum(cat, std::vector<uint32_t>(entries, track)), 1);
    repeatOnlyTocRecord(cat);
    return cat;
}

CatalogueBuilder HostileAnswers::duplicateTocRecords(uint16_t records, uint32_t entries) {
    CatalogueBuilder cat;
    const uint32_t track = addTrack(cat, "T", 1);
    const uint32_t album = addAlbum(cat, std::vector<uint32_t>(entries, track));
    for (uint32_t i = 0; i < records; ++i) {
        cat.addToc(TOC, album, 1);
    }
    return cat;
}

CatalogueBuilder HostileAnswers::zeroTrackList(uint32_t entries) {
    CatalogueBuilder cat;
    cat.addToc(TOC, addAlbum(cat, std::vector<uint32_t>(entries, 0)), 0);
    return cat;
}

CatalogueBuilder HostileAnswers::otherMediumTrackList(uint32_t entries) {
    CatalogueBuilder cat;
    const uint32_t kept = addTrack(cat, "T", 1);
    const uint32_t skipped = addTrack(cat, "U", 2);
    std::vector<uint32_t> trackIds(entries, skipped);
    if (!trackIds.empty()) {
        trackIds[0] = kept;
    }
    cat.addToc(TOC, addAlbum(cat, trackIds), 1);
    repeatOnlyTocRecord(cat);
    return cat;
}

CatalogueBuilder HostileAnswers::longTocTexts() {
    CatalogueBuilder cat = repeatedTocRecord(1);
    cat.image().toc(0).Id = cat.text(longestText());
    return cat;
}

CatalogueBuilder HostileAnswers::longestTexts() {
    CatalogueBuilder cat;
    const std::string text = longestText();
    const uint32_t track = addTrack(cat, text, 1, text, text);
    cat.addToc(TOC, addAlbum(cat, {track}, text, text, text), 1);
    repeatOnlyTocRecord(cat);
    return cat;
}

}  // namespace moxdb
