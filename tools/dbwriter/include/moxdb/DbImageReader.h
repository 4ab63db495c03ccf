// The tools' reader of a whole response-database image: it walks the header,
// the section table and every record of the five record sections, resolves
// the texts that the module resolves, and gives a reason for every structure
// that does not lie wholly inside the image. It reads the bytes itself,
// little-endian, and never uses the module's code; the writer's tests, the
// fuzzers and `mox dump` read images through it.
//
// Records lie where the module reads them: QuillToc records at the head's
// RecordSize stride, the position computed in 32 bits (the album search
// seeks there); the other families back to back at their fixed sizes,
// whatever their head says (the identifier lookups read them so). A string
// entry lies at StringTable + 4 + offset, also in 32 bits: a u16 unit count,
// which must be below kStringMaxUnits + 1, then the UTF-16LE units.
//
//   moxdb::DbImageReader reader(bytes);
//   moxdb::ImageFault fault;
//   if (!reader.walk(visitor, true, &fault)) { report(fault.line()); }
//
// The reader keeps a reference to the bytes: they must outlive it.
#ifndef MOXDB_DBIMAGEREADER_H
#define MOXDB_DBIMAGEREADER_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "moxdb/DbBytes.h"
#include "moxdb/DbRecords.h"

namespace moxdb {

// Why a structure could not be read: the structure ("QuillAlbum record 2",
// "QuillToc record 0 Id string"), the offset where it should lie, and the
// reason ("file ends after 1048 bytes", "length 1024 is not below 1024").
struct ImageFault {
    std::string what;
    uint64_t offset = 0;
    std::string reason;

    // "<what> at offset <offset>: <reason>"
    std::string line() const;
};

// The 8-byte head of a record section.
struct SectionHead {
    uint32_t ownSize = 0;
    uint16_t recordSize = 0;   // the TOC walk steps by it
    uint16_t recordCount = 0;  // records that follow the head
};

// A text of a record: the field's name and its string offset.
struct RecordText {
    const char* field;
    uint32_t offset;
};

// What a walk meets, in file order of the output: the header, the table,
// then per record section its head, and per record the record followed by
// its texts (when texts are asked for). The header, the table and each
// record come as the bytes that lie in the image.
class ImageVisitor {
public:
    virtual ~ImageVisitor() = default;
    virtual void header(const Bytes& bytes) = 0;
    virtual void table(const Bytes& bytes) = 0;
    virtual void head(Section section, const SectionHead& head) = 0;
    virtual void record(Section section, uint32_t index, const Bytes& bytes) = 0;
    virtual void text(const RecordText& text, const std::u16string& units) = 0;
};

class DbImageReader {
public:
    explicit DbImageReader(const Bytes& image) : mImage(image) {}

    size_t size() const { return mImage.size(); }

    // The five record sections in the order a walk visits them.
    static const std::vector<Section>& recordSections();
    // "QuillToc", "QuillAlbum", ... "StringTable": the section's name.
    static const char* nameOf(Section section);
    // The texts that the module resolves from a record of the family, in
    // order: QuillToc Id; QuillAlbum Id, Title, Genre, Language; QuillTrack
    // Title; QuillArtist Name; QuillGenre Id.
    static std::vector<RecordText> textsOf(Section section, const Bytes& record);

    // Checked reads: false, with `fault` naming `what`, unless the whole
    // range lies inside the image.
    bool read(const std::string& what, uint64_t offset, size_t size, Bytes* out,
              ImageFault* fault) const;
    bool head(Section section, SectionHead* out, ImageFault* fault) const;
    bool record(Section section, const SectionHead& head, uint32_t index, Bytes* out,
                ImageFault* fault) const;
    // Every unit of the string entry at string offset `offset`, zero units
    // included (the module stops at the first zero unit).
    bool string(const std::string& what, uint32_t offset, std::u16string* units,
                ImageFault* fault) const;

    // Lenient reads, for decoders that go on over damaged images: the value,
    // or 0 when it lies (partly) outside the image.
    uint16_t u16(uint64_t offset) const;
    uint32_t u32(uint64_t offset) const;
    uint32_t tableWord(Section section) const;
    uint32_t lastWord() const;  // the image's last four bytes

    // Where record `index` of the section lies (see the top of this file).
    uint64_t recordOffset(Section section, const SectionHead& head, uint32_t index) const;
    // Where the string entry of string offset `offset` lies.
    uint32_t stringOffset(uint32_t offset) const;

    // Visits the whole image; with `withTexts`, each record's texts after
    // it. Stops at the first structure that does not lie inside: what was
    // visited stays visited, and `fault` says what stopped the walk.
    bool walk(ImageVisitor& visitor, bool withTexts, ImageFault* fault) const;

private:
    bool walkSection(Section section, ImageVisitor& visitor, bool withTexts,
                     ImageFault* fault) const;
    static bool fail(const std::string& what, uint64_t offset, const std::string& reason,
                     ImageFault* fault);

    const Bytes& mImage;
};

}  // namespace moxdb

#endif  // MOXDB_DBIMAGEREADER_H
