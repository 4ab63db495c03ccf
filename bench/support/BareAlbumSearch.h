// The floors of the album search: the same albums from the same stored
// database, by the simplest programs that get them. Both make the module's
// own lookups: the TOC records in order, and for each match the album, its
// track list and, per track of the medium, the track, artist and genre
// records, each found by scanning its section from the first record, as the
// module does. They differ in the way to the bytes:
// - search() reads the whole file with one read and makes every lookup in
//   memory: it leaves out the stream, the seeks and the reads per record;
// - searchThroughStream() reaches the bytes as the module's reader must: a
//   C stream (with the module's settings: a buffer of the whole file, no
//   stream lock), a seek before every lookup, every text and every TOC
//   record, and a read per record. It is the floor of the reader's contract.
//
// Both produce the module's AlbumInfo values: texts are converted by the
// framework's HbString as the module converts them, and genre codes and
// language texts mapped by the module's numbers (moxdb::GenreNumbers), which
// are lookups in small maps. The order (confidence, best first, database
// order among equals) and the track-count rule are the module's.
//
// Made for valid databases such as the writer's: a record, list or text that
// is missing or outside the file ends the search with false. The module's
// deliberate handling of damaged databases is not reproduced.
//
//   std::list<HbSMoxDef::AlbumInfo> albums;
//   bool found = BareAlbumSearch::search(path, toc, &albums);
//   bool foundToo = BareAlbumSearch::searchThroughStream(path, toc, &albums);
//   bool agree = BareAlbumSearch::same(albums, moduleAlbums);
#ifndef MOX_BENCH_BAREALBUMSEARCH_H
#define MOX_BENCH_BAREALBUMSEARCH_H

#include <list>
#include <string>

#include "HbSMoxDef.h"

class BareAlbumSearch {
public:
    // Either floor, for a benchmark that runs one or the other.
    using Search = bool (*)(const std::string& path, const std::string& toc,
                            std::list<HbSMoxDef::AlbumInfo>* albums);

    static bool search(const std::string& path, const std::string& toc,
                       std::list<HbSMoxDef::AlbumInfo>* albums);
    static bool searchThroughStream(const std::string& path, const std::string& toc,
                                    std::list<HbSMoxDef::AlbumInfo>* albums);
    // True when both lists hold the same albums, field by field and track by
    // track, in the same order: how a benchmark checks the floor against the
    // module before it times either.
    static bool same(const std::list<HbSMoxDef::AlbumInfo>& first,
                     const std::list<HbSMoxDef::AlbumInfo>& second);
};

#endif  // MOX_BENCH_BAREALBUMSEARCH_H
