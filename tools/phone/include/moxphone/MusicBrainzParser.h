// The answer of the MusicBrainz web service (version 2, JSON) to a disc ID
// lookup with the TOC for fuzzy matching
// (/ws/2/discid/<id>?toc=...&inc=recordings+artist-credits+release-groups+genres),
// read as untrusted input: every release becomes one candidate album.
//
// - AlbumId: the release MBID; AlbumName: its title.
// - The medium that holds the disc: the one listing the disc ID (an exact
//   match, confidence kDiscIdConfidence); else, among the media with as
//   many tracks as the disc, the one whose listed disc offsets lie nearest
//   the disc's (a TOC match, confidence kTocConfidence). A release without
//   such a medium is left out. MediaNum is that medium's place, MediaCount
//   the number of media; every medium's tracks are kept.
// - TrackName: the track's title; PerformerName: the track's artist credit
//   (names with their join phrases), or else the release's.
// - Genre: the release's most-voted genre, else its release group's, mapped
//   by GenreMap; "OTHER" without one. Every track has the album's genre.
// - Language: the two-letter code of the release's text-representation
//   language ("jpn" gives "ja"), "" when there is none or it has no such code.
// - Releases keep the service's order. Texts are cut to what a response
//   database holds. CD stubs (an answer without "releases") give no album.
#ifndef MOXPHONE_MUSICBRAINZPARSER_H
#define MOXPHONE_MUSICBRAINZPARSER_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "moxphone/OnlineRecords.h"

namespace moxphone {

class MusicBrainzParser {
public:
    static constexpr int32_t kDiscIdConfidence = 100;
    static constexpr int32_t kTocConfidence = 50;
    // At most this many releases become albums; the rest are left out.
    static constexpr size_t kMaxReleases = 100;
    // A release of more media than this is left out.
    static constexpr size_t kMaxMedia = 999;
    // Deeper nesting of arrays and objects is refused before parsing.
    static constexpr size_t kMaxDepth = 64;

    // The albums of `json` for `disc`. False, with a one-line reason, when
    // the text is not a JSON object.
    static bool parse(const std::string& json, const DiscQuery& disc,
                      std::vector<FoundAlbum>* albums, std::string* why);
};

}  // namespace moxphone

#endif  // MOXPHONE_MUSICBRAINZPARSER_H
