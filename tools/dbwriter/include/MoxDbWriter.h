// The response-database writer: builds the binary database that the phone
// application sends for a TOC lookup, valid or deliberately broken, for the
// tests, fuzz corpora, benchmarks, the CLI and the phone simulator. It writes
// the format itself, byte by byte, and never uses the module's code.
//
// - moxdb::CatalogueBuilder (moxdb/CatalogueBuilder.h): albums, tracks,
//   artists, genres and TOC texts with the format's identifier conventions.
// - moxdb::DbImageBuilder (moxdb/DbImageBuilder.h): every byte settable,
//   heads and table words overridable, strings and lists of any length.
// - moxdb::HostileAnswers (moxdb/HostileAnswers.h): small databases that
//   make a search without limits repeat its work millions of times.
// - moxdb::makeTocText (moxdb/TocText.h): the tools' TOC text.
// - moxdb::SampleDbCommand (moxdb/SampleDbCommand.h): the mox-sampledb program.
// - moxdb::DbImageReader (moxdb/DbImageReader.h): reads a whole image back,
//   every record and string, with a reason for each structure that does not
//   lie inside.
// - moxdb byte helpers (moxdb/DbBytes.h): little-endian put/get, UTF-8 to
//   UTF-16, and damage (cut, set or flip a byte) on a built image.
//
// Namespace moxdb. Link the static library `moxdbwriter`.
#ifndef MOXDB_MOXDBWRITER_H
#define MOXDB_MOXDBWRITER_H

#include "moxdb/CatalogueBuilder.h"
#include "moxdb/DbBytes.h"
#include "moxdb/DbImageBuilder.h"
#include "moxdb/DbImageReader.h"
#include "moxdb/DbRecords.h"
#include "moxdb/HostileAnswers.h"
#include "moxdb/SampleDbCommand.h"
#include "moxdb/TocText.h"

#endif  // MOXDB_MOXDBWRITER_H
