// The one-line renderings of a response database's structures that `mox dump`
// prints: the header, the section table, a section head and the record of
// each record family. Each takes the structure's bytes as they lie in the
// file (little-endian) and renders them as the module renders its own copy,
// byte for byte (tests/cli/DbRenderingTest.cpp holds the two side by side).
//
// Numbers are "Key=0x" and eight lower-case hexadecimal digits, fields
// separated by ", ". The header's four signature bytes are copied as they
// are, zero bytes included; its version components are "0x" and four digits,
// each followed by a blank.
#ifndef MOX_TOOLS_DBRENDERING_H
#define MOX_TOOLS_DBRENDERING_H

#include <string>

#include "moxdb/DbBytes.h"
#include "moxdb/DbImageReader.h"
#include "moxdb/DbRecords.h"

class DbRendering {
public:
    // The 64 bytes of the header.
    static std::string header(const moxdb::Bytes& bytes);
    // The 60 bytes of the section table.
    static std::string table(const moxdb::Bytes& bytes);
    static std::string head(const moxdb::SectionHead& head);
    // One record of a record section (QuillToc, QuillAlbum, QuillTrack,
    // QuillArtist or QuillGenre), its family's size in bytes.
    static std::string record(moxdb::Section section, const moxdb::Bytes& bytes);
};

#endif  // MOX_TOOLS_DBRENDERING_H
