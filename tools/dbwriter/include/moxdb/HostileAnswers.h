// Response databases made to exhaust a reader that trusts the file's counts:
// small files whose TOC walk, album track lists or identifier 0 make a naive
// search repeat the same work and the same tracks millions of times. The
// module must answer each of them with a bounded search; the tests, the fuzz
// seeds and the CLI tests take them from here.
//
// Every one matches the TOC text HostileAnswers::TOC ("000000000000": one
// track, so no album of them passes the track-count filter) and uses one
// genre "ROCK", one artist and language "en".
#ifndef MOXDB_HOSTILEANSWERS_H
#define MOXDB_HOSTILEANSWERS_H

#include <cstdint>
#include <string>

#include "moxdb/CatalogueBuilder.h"

namespace moxdb {

class HostileAnswers {
public:
    // The TOC text that every database here matches.
    static const std::string TOC;

    // One TOC record, but its section head says RecordSize 0 and RecordCount
    // 65535: the walk reads the same matching record 65535 times. Its album
    // lists one track (medium 1) `entries` times. 100 entries give a file of
    // 784 bytes, 1000 entries one of 4.4 KB.
    static CatalogueBuilder repeatedTocRecord(uint32_t entries);

    // `records` TOC records with the text at the normal stride (65535 of them
    // make a file of about 1.3 MB), all for one album that lists one track
    // (medium 1) `entries` times.
    static CatalogueBuilder duplicateTocRecords(uint16_t records, uint32_t entries);

    // One TOC record for medium 0 whose album's track list holds `entries`
    // identifiers 0: each repeats the zero-filled track record (medium 0)
    // without reading a record.
    static CatalogueBuilder zeroTrackList(uint32_t entries);

    // As repeatedTocRecord, but only the first of the album's `entries`
    // entries lies on medium 1; the others name a track of medium 2. Each
    // album then costs thousands of reads for a single kept track.
    static CatalogueBuilder otherMediumTrackList(uint32_t entries);

    // As repeatedTocRecord(1), but the TOC record's text is 1023 units long
    // (the longest the reader takes) and so never matches: the walk converts
    // that text 65535 times.
    static CatalogueBuilder longTocTexts();

    // As repeatedTocRecord(1), but every text the search keeps (album
    // identifier, title and genre code, track title, artist name) is one text
    // of 1023 units of U+3042, 3069 bytes of UTF-8: the largest album of one
    // track a search can assemble, 65535 times.
    static CatalogueBuilder longestTexts();
};

}  // namespace moxdb

#endif  // MOXDB_HOSTILEANSWERS_H
