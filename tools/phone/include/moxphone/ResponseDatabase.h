// The response database that the phone sends for one disc, made with the
// writer library as an online service would answer: only the candidates of
// that disc. For each candidate, in the catalogue's order: one album record
// (its identifier text, title, genre code, language, confidence, media
// count, and the candidate's medium as its own medium number) whose track
// list holds the tracks of every medium of the album, each track with its
// medium number, its performer (one artist record per name) and its genre;
// then one TOC record with the disc's TOC text, the album and the medium.
// Albums of equal confidence therefore keep the catalogue's order (or the
// online service's).
#ifndef MOXPHONE_RESPONSEDATABASE_H
#define MOXPHONE_RESPONSEDATABASE_H

#include <string>
#include <vector>

#include "moxdb/DbBytes.h"
#include "moxphone/Catalogue.h"
#include "moxphone/OnlineRecords.h"

namespace moxphone {

class ResponseDatabase {
public:
    // `disc` is a disc of `catalogue` (its candidates name albums of it).
    static moxdb::Bytes build(const Catalogue& catalogue, const CatalogueDisc& disc);
    // The same from an online source's answer: the albums in their order,
    // each a candidate of the disc whose TOC text is `toc`.
    static moxdb::Bytes build(const std::string& toc, const std::vector<FoundAlbum>& albums);
};

}  // namespace moxphone

#endif  // MOXPHONE_RESPONSEDATABASE_H
