// The floor of the album search: the same albums from the same stored
// database, by the simplest program that gets them. It reads the whole file
// with one read, then makes the module's own lookups in memory: the TOC
// records in order, and for each match the album, its track list and, per
// track of the medium, the track, artist and genre records, each found by
// scanning its section from the first record, as the module does. What it
// leaves out is the module's way to the bytes: a C stream, a seek before
// every lookup and every text, a read per record.
//
// Both sides produce the same AlbumInfo values: texts are converted by the
// framework's HbString as the module converts them, and genre codes and
// language texts mapped by the module's own tables (MoxDapDatabase), which
// are lookups in small maps. The order (confidence, best first, database
// order among equals) and the track-count rule are the module's.
//
// Made for valid databases such as the writer's: a record, list or text that
// is missing or outside the file ends the search with false. The module's
// deliberate handling of damaged databases is not reproduced.
//
//   std::list<HbSMoxDef::AlbumInfo> albums;
//   bool found = BareAlbumSearch::search(path, toc, &albums);
//   bool agree = BareAlbumSearch::same(albums, moduleAlbums);
#ifndef MOX_BENCH_BAREALBUMSEARCH_H
#define MOX_BENCH_BAREALBUMSEARCH_H

#include <list>
#include <string>

#include "HbSMoxDef.h"

class BareAlbumSearch {
public:
    static bool search(const std::string& path, const std::string& toc,
                       std::list<HbSMoxDef::AlbumInfo>* albums);
    // True when both lists hold the same albums, field by field and track by
    // track, in the same order: how a benchmark checks the floor against the
    // module before it times either.
    static bool same(const std::list<HbSMoxDef::AlbumInfo>& first,
                     const std::list<HbSMoxDef::AlbumInfo>& second);
};

#endif  // MOX_BENCH_BAREALBUMSEARCH_H
