#include "CatalogueAlbum.h"

namespace moxtest {

uint32_t addAlbum(moxdb::CatalogueBuilder& cat, const std::string& idText, int32_t confidence,
                  int tracks) {
    const uint32_t genre = cat.addGenre("ROCK");
    const uint32_t artist = cat.addArtist("Artist of " + idText);
    moxdb::AlbumFields draft;
    draft.idText = idText;
    draft.title = "Title of " + idText;
    draft.genreCode = "ROCK";
    draft.language = "en";
    draft.confidence = confidence;
    for (int t = 0; t < tracks; ++t) {
        draft.trackIds.push_back(
            cat.addTrack({idText + "-" + std::to_string(t + 1), artist, genre, 1}));
    }
    return cat.addAlbum(draft);
}

}  // namespace moxtest
