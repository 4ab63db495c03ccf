// Adds a plain album to a catalogue that a test builds: the tests of the
// search and of `mox search` only care for its identifier, confidence and
// number of tracks.
//
//   moxdb::CatalogueBuilder cat;
//   cat.addToc(toc, moxtest::addAlbum(cat, "A", 50, 2), 1);
#ifndef MOX_TESTS_CATALOGUEALBUM_H
#define MOX_TESTS_CATALOGUEALBUM_H

#include <cstdint>
#include <string>

#include "moxdb/CatalogueBuilder.h"

namespace moxtest {

// Adds an album of `tracks` tracks on medium 1 (titles "<idText>-1", ...)
// by one artist, genre ROCK, language "en"; returns its identifier.
uint32_t addAlbum(moxdb::CatalogueBuilder& cat, const std::string& idText, int32_t confidence,
                  int tracks);

}  // namespace moxtest

#endif  // MOX_TESTS_CATALOGUEALBUM_H
