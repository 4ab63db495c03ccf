// One disc's answer, built with moxdb::CatalogueBuilder.
#include "moxphone/ResponseDatabase.h"

#include <map>
#include <string>
#include <vector>

#include "moxdb/CatalogueBuilder.h"

namespace moxphone {

namespace {

// Artist records are shared by name within one answer.
uint32_t artistFor(moxdb::CatalogueBuilder& builder, std::map<std::string, uint32_t>& artists,
                   const std::string& name) {
    const auto found = artists.find(name);
    if (found != artists.end()) {
        return found->second;
    }
    const uint32_t id = builder.addArtist(name);
    artists[name] = id;
    return id;
}

std::vector<uint32_t> addTracks(moxdb::CatalogueBuilder& builder,
                                std::map<std::string, uint32_t>& artists,
                                const CatalogueAlbum& album) {
    std::vector<uint32_t> trackIds;
    for (size_t medium = 0; medium < album.media.size(); ++medium) {
        const std::vector<CatalogueTrack>& tracks = album.media[medium].tracks;
        for (size_t position = 0; position < tracks.size(); ++position) {
            moxdb::TrackFields track;
            track.title = tracks[position].title;
            track.artistId = artistFor(builder, artists, tracks[position].performer);
            track.genreId = builder.addGenre(tracks[position].genre);
            track.mediaNum = static_cast<uint32_t>(medium + 1);
            track.trackNum = static_cast<uint32_t>(position + 1);
            trackIds.push_back(builder.addTrack(track));
        }
    }
    return trackIds;
}

// One candidate: its album record, its tracks and its TOC record.
void addCandidate(moxdb::CatalogueBuilder& builder, std::map<std::string, uint32_t>& artists,
                  const std::string& toc, const CatalogueAlbum& album, uint16_t medium,
                  int32_t confidence) {
    moxdb::AlbumFields fields;
    fields.idText = album.id;
    fields.title = album.title;
    fields.genreCode = album.genre;
    fields.language = album.language;
    fields.confidence = confidence;
    fields.mediaCount = static_cast<uint32_t>(album.media.size());
    fields.trackIds = addTracks(builder, artists, album);
    fields.mediaNum = medium;
    const uint32_t albumId = builder.addAlbum(fields);
    builder.addToc(toc, albumId, medium);
}

}  // namespace

moxdb::Bytes ResponseDatabase::build(const Catalogue& catalogue, const CatalogueDisc& disc) {
    moxdb::CatalogueBuilder builder;
    std::map<std::string, uint32_t> artists;
    for (const CatalogueCandidate& candidate : disc.candidates) {
        const CatalogueAlbum* album = catalogue.findAlbum(candidate.album);
        if (album == nullptr) {
            continue;  // a loaded catalogue has none such
        }
        addCandidate(builder, artists, disc.toc, *album, candidate.medium, candidate.confidence);
    }
    return builder.build();
}

moxdb::Bytes ResponseDatabase::build(const std::string& toc,
                                     const std::vector<FoundAlbum>& albums) {
    moxdb::CatalogueBuilder builder;
    std::map<std::string, uint32_t> artists;
    for (const FoundAlbum& found : albums) {
        addCandidate(builder, artists, toc, found.album, found.medium, found.confidence);
    }
    return builder.build();
}

}  // namespace moxphone
