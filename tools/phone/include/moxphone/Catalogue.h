// The simulator's catalogue: the discs it knows by TOC text, each with its
// candidate albums, loaded from JSON and checked as a whole before use.
//
//   {
//     "albums": [
//       {"id": "MOXS-0002", "title": "Blue Hours (Live)", "genre": "JAZZ", "language": "en",
//        "media": [{"tracks": [{"title": "Opening", "performer": "Mira Quartet",
//                               "genre": "JAZZ"}, ...]},
//                  {"tracks": [...]}]}
//     ],
//     "discs": [
//       {"toc": "000096004EC600A0AE00EEAA0139B6",
//        "candidates": [{"album": "MOXS-0002", "medium": 1, "confidence": 85}]}
//     ]
//   }
//
// A multi-disc album is one album with several media; each of its discs has
// its own TOC text and names the medium it is. "note" (a string) may stand
// at the top and in any album or disc; "$schema" may stand at the top;
// every other key is refused, so that a misspelt key is not silently
// ignored. The JSON Schema catalog.schema.json beside the sample describes
// the same format (the loader also checks what a schema cannot: unique
// identifiers and TOC texts, candidates naming an existing album and medium,
// increasing frame offsets, texts of at most 1023 UTF-16 units).
//
// A loaded catalogue does not change; it can be shared between threads.
#ifndef MOXPHONE_CATALOGUE_H
#define MOXPHONE_CATALOGUE_H

#include <string>
#include <vector>

#include "moxphone/CatalogueRecords.h"

namespace moxphone {

class Catalogue {
public:
    // Loads and checks a catalogue file. On failure returns false, leaves
    // `out` unchanged and describes the first problem.
    static bool loadFile(const std::string& path, Catalogue* out, CatalogueProblem* problem);
    // Same, from JSON text.
    static bool parse(const std::string& json, Catalogue* out, CatalogueProblem* problem);

    // The bundled sample catalogue and its JSON Schema.
    static std::string bundledPath();
    static std::string schemaPath();

    const std::vector<CatalogueAlbum>& albums() const { return mAlbums; }
    const std::vector<CatalogueDisc>& discs() const { return mDiscs; }
    // The disc whose TOC text is exactly `toc`, or null.
    const CatalogueDisc* findDisc(const std::string& toc) const;
    // The album of that id, or null.
    const CatalogueAlbum* findAlbum(const std::string& id) const;

private:
    std::vector<CatalogueAlbum> mAlbums;
    std::vector<CatalogueDisc> mDiscs;
};

}  // namespace moxphone

#endif  // MOXPHONE_CATALOGUE_H
