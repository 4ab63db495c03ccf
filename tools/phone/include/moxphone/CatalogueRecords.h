// What a catalogue holds, once loaded (see Catalogue.h for the JSON form).
#ifndef MOXPHONE_CATALOGUERECORDS_H
#define MOXPHONE_CATALOGUERECORDS_H

#include <cstdint>
#include <string>
#include <vector>

namespace moxphone {

struct CatalogueTrack {
    std::string title;
    std::string performer;
    std::string genre;  // genre code, such as "ROCK"
};

// One medium (disc) of an album: its tracks in order.
struct CatalogueMedium {
    std::vector<CatalogueTrack> tracks;
};

struct CatalogueAlbum {
    std::string id;  // the album's identifier text, unique in the catalogue
    std::string title;
    std::string genre;                   // genre code
    std::string language;                // language text, such as "en" or "ja"
    std::vector<CatalogueMedium> media;  // medium 1 first; their number is the media count
};

// One candidate album of a disc: which album, which of its media the disc
// is, and how sure the online service is of the match.
struct CatalogueCandidate {
    std::string album;  // the album's id
    uint16_t medium = 1;
    int32_t confidence = 0;
};

struct CatalogueDisc {
    std::string toc;  // TOC text, unique in the catalogue
    std::vector<CatalogueCandidate> candidates;
};

// The first problem found in a catalogue: where (a JSON path such as
// "$.discs[2].candidates[0].album", or empty when the file itself cannot be
// read) and why.
struct CatalogueProblem {
    std::string path;
    std::string reason;

    // "PATH: REASON", or REASON alone when there is no path.
    std::string text() const { return path.empty() ? reason : path + ": " + reason; }
};

}  // namespace moxphone

#endif  // MOXPHONE_CATALOGUERECORDS_H
