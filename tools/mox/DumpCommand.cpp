// mox dump FILE [--strings]: renders a response database, one line per
// structure, with the module's own one-line renderings.
//
// Output (stdout), each on its own line:
//   the header rendering, the section-table rendering, then for QuillToc,
//   QuillAlbum, QuillTrack, QuillArtist and QuillGenre in this order:
//   "<Section> <head rendering>" and per record "  <record rendering>";
//   with --strings the texts that the module resolves follow their record
//   on lines "    <Field>: <text>".
// The file is read here with a bounded reader, never through the module's
// result path. A structure that does not lie wholly inside the file ends the
// dump: what was read so far stays printed, one line on stderr names the
// structure, its offset and the reason, and the status is 1.
#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "Commands.h"
#include "HbFramework/HbString.h"
#include "TextEscape.h"
#include "private/MoxDapDatabase.h"
#include "private/MoxDbRecords.h"

namespace {

const char* const PREFIX = "mox dump: ";
// File layout of the fixed parts (all integers little-endian).
const uint64_t HEADER_OFFSET = 0;
const uint64_t TABLE_OFFSET = 64;
const uint64_t HEAD_SIZE = sizeof(QuillHead);
// The string area begins with a word that the module skips.
const uint32_t STRING_AREA_SKIP = 4;

// Why a structure could not be read: the structure, where it should lie, and
// the reason ("file ends after N bytes", ...).
struct DumpFailure {
    std::string what;
    uint64_t offset = 0;
    std::string reason;

    std::string line() const {
        return PREFIX + what + " at offset " + std::to_string(offset) + ": " + reason;
    }
};

// Reads byte ranges of one regular file and never past its end.
class BoundedFile {
public:
    BoundedFile() = default;
    BoundedFile(const BoundedFile&) = delete;
    BoundedFile& operator=(const BoundedFile&) = delete;
    ~BoundedFile() {
        if (mFile != nullptr) {
            std::fclose(mFile);
        }
    }

    // False with a one-line reason when `path` is not a readable regular file.
    bool open(const std::string& path, std::string* why) {
        struct stat info;
        if (::stat(path.c_str(), &info) != 0) {
            *why = path + ": " + std::strerror(errno);
            return false;
        }
        if (!S_ISREG(info.st_mode)) {
            *why = path + ": not a regular file";
            return false;
        }
        mFile = std::fopen(path.c_str(), "rb");
        if (mFile == nullptr) {
            *why = path + ": " + std::strerror(errno);
            return false;
        }
        mSize = static_cast<uint64_t>(info.st_size);
        return true;
    }

    // Reads `size` bytes at `offset` into `out`; false, with the reason in
    // `*reason`, unless the whole range lies inside the file.
    bool readAt(uint64_t offset, void* out, size_t size, std::string* reason) {
        if (offset > mSize || mSize - offset < size) {
            *reason = "file ends after " + std::to_string(mSize) + " bytes";
            return false;
        }
        if (::fseeko(mFile, static_cast<off_t>(offset), SEEK_SET) != 0 ||
            std::fread(out, 1, size, mFile) != size) {
            *reason = "read failed";
            return false;
        }
        return true;
    }

private:
    FILE* mFile = nullptr;
    uint64_t mSize = 0;
};

uint16_t loadU16Le(const uint8_t* bytes) {
    return static_cast<uint16_t>(bytes[0] | (bytes[1] << 8));
}

// One text of a record that --strings shows: its label and string offset.
struct TextField {
    const char* label;
    uint32_t offset;
};

// Walks the file in the order of the output and prints as it goes.
class Dumper {
public:
    Dumper(BoundedFile& file, MoxDapDatabase& db, bool withStrings, std::ostream& out)
        : mFile(file), mDb(db), mWithStrings(withStrings), mOut(out) {}

    // True when everything was printed; otherwise `*failure` says what stopped it.
    bool run(DumpFailure* failure) {
        if (!dumpHeaderAndTable(failure)) {
            return false;
        }
        const DbToc& toc = *mDb.mpDbToc;
        return dumpTocSection(toc.QuillToc, failure) &&
               dumpSection<QuillAlbumRec>("QuillAlbum", toc.QuillAlbum, failure) &&
               dumpSection<QuillTrackRec>("QuillTrack", toc.QuillTrack, failure) &&
               dumpSection<QuillArtistRec>("QuillArtist", toc.QuillArtist, failure) &&
               dumpSection<QuillGenreRec>("QuillGenre", toc.QuillGenre, failure);
    }

private:
    bool read(const std::string& what, uint64_t offset, void* out, size_t size,
              DumpFailure* failure) {
        std::string reason;
        if (mFile.readAt(offset, out, size, &reason)) {
            return true;
        }
        failure->what = what;
        failure->offset = offset;
        failure->reason = reason;
        return false;
    }

    // Loads the header and the table into the reader's buffers, where its
    // renderings look for them; the caller's init() frees them.
    bool dumpHeaderAndTable(DumpFailure* failure) {
        mDb.mpDbHeader = new DbHeader();
        if (!read("header", HEADER_OFFSET, mDb.mpDbHeader, sizeof(DbHeader), failure)) {
            return false;
        }
        mOut << mDb.getStrDbHeader() << "\n";
        mDb.mpDbToc = new DbToc();
        if (!read("section table", TABLE_OFFSET, mDb.mpDbToc, sizeof(DbToc), failure)) {
            return false;
        }
        mOut << mDb.getStrDbToc() << "\n";
        return true;
    }

    bool dumpHead(const char* name, uint32_t sectionOffset, QuillHead* head, DumpFailure* failure) {
        if (!read(std::string(name) + " head", sectionOffset, head, sizeof(QuillHead), failure)) {
            return false;
        }
        mOut << name << " " << mDb.getStrQuillHead(*head) << "\n";
        return true;
    }

    // TOC records lie at the head's RecordSize stride, as the album search
    // walks them; only their first 20 bytes are read. The position is
    // computed in 32 bits, as the module computes its seek target.
    bool dumpTocSection(uint32_t sectionOffset, DumpFailure* failure) {
        QuillHead head{};
        if (!dumpHead("QuillToc", sectionOffset, &head, failure)) {
            return false;
        }
        for (uint32_t i = 0; i < head.RecordCount; ++i) {
            const uint32_t position = sectionOffset + static_cast<uint32_t>(HEAD_SIZE) +
                                      i * static_cast<uint32_t>(head.RecordSize);
            QuillTocRec rec{};
            if (!read("QuillToc record " + std::to_string(i), position, &rec, sizeof(rec),
                      failure)) {
                return false;
            }
            mOut << "  " << mDb.getStrTocRec(rec) << "\n";
            const TextField texts[] = {{"Id", rec.Id}};
            if (!dumpTexts("QuillToc record " + std::to_string(i), texts, failure)) {
                return false;
            }
        }
        return true;
    }

    // Other families lie back to back at their fixed sizes after the head,
    // whatever the head's RecordSize says, as the identifier lookups read them.
    template <class Rec>
    bool dumpSection(const char* name, uint32_t sectionOffset, DumpFailure* failure) {
        QuillHead head{};
        if (!dumpHead(name, sectionOffset, &head, failure)) {
            return false;
        }
        for (uint32_t i = 0; i < head.RecordCount; ++i) {
            const uint64_t position =
                uint64_t{sectionOffset} + HEAD_SIZE + uint64_t{i} * sizeof(Rec);
            const std::string what = std::string(name) + " record " + std::to_string(i);
            Rec rec{};
            if (!read(what, position, &rec, sizeof(rec), failure)) {
                return false;
            }
            if (!renderRecord(what, rec, failure)) {
                return false;
            }
        }
        return true;
    }

    bool renderRecord(const std::string& what, QuillAlbumRec& rec, DumpFailure* failure) {
        mOut << "  " << mDb.getStrAlbumRec(rec) << "\n";
        const TextField texts[] = {
            {"Id", rec.Id}, {"Title", rec.Title}, {"Genre", rec.Genre}, {"Language", rec.Language}};
        return dumpTexts(what, texts, failure);
    }

    bool renderRecord(const std::string& what, QuillTrackRec& rec, DumpFailure* failure) {
        mOut << "  " << mDb.getStrTrackRec(rec) << "\n";
        const TextField texts[] = {{"Title", rec.Title}};
        return dumpTexts(what, texts, failure);
    }

    bool renderRecord(const std::string& what, QuillArtistRec& rec, DumpFailure* failure) {
        mOut << "  " << mDb.getStrArtistRec(rec) << "\n";
        const TextField texts[] = {{"Name", rec.Name}};
        return dumpTexts(what, texts, failure);
    }

    bool renderRecord(const std::string& what, QuillGenreRec& rec, DumpFailure* failure) {
        mOut << "  " << mDb.getStrGenreRec(rec) << "\n";
        const TextField texts[] = {{"Id", rec.Id}};
        return dumpTexts(what, texts, failure);
    }

    template <size_t N>
    bool dumpTexts(const std::string& what, const TextField (&texts)[N], DumpFailure* failure) {
        if (!mWithStrings) {
            return true;
        }
        for (const TextField& field : texts) {
            std::string text;
            if (!resolveString(what + " " + field.label + " string", field.offset, &text,
                               failure)) {
                return false;
            }
            mOut << "    " << field.label << ": " << escapeControlCharacters(text) << "\n";
        }
        return true;
    }

    // Resolves a string offset the way the module does: a u16 unit count below
    // STRING_BUF_MAX at StringTable + 4 + offset (32-bit arithmetic), then the
    // UTF-16LE units, converted up to the first zero unit.
    bool resolveString(const std::string& what, uint32_t offset, std::string* text,
                       DumpFailure* failure) {
        const uint32_t position = mDb.mpDbToc->StringTable + STRING_AREA_SKIP + offset;
        uint8_t lengthBytes[2];
        if (!read(what, position, lengthBytes, sizeof(lengthBytes), failure)) {
            return false;
        }
        const uint16_t units = loadU16Le(lengthBytes);
        if (units >= STRING_BUF_MAX) {
            failure->what = what;
            failure->offset = position;
            failure->reason = "length " + std::to_string(units) + " is not below " +
                              std::to_string(STRING_BUF_MAX);
            return false;
        }
        std::vector<uint8_t> bytes(2u * units);
        if (!read(what, uint64_t{position} + 2, bytes.data(), bytes.size(), failure)) {
            return false;
        }
        std::vector<unsigned short> buffer(units + 1u, 0);
        for (size_t i = 0; i < units; ++i) {
            buffer[i] = loadU16Le(&bytes[2 * i]);
        }
        HbString converted;
        converted.Copy(buffer.data(), HbString::en_CODE_PAGE_UTF16);
        *text = converted.ToCHAR(HbString::en_CODE_PAGE_UTF8);
        return true;
    }

    BoundedFile& mFile;
    MoxDapDatabase& mDb;
    bool mWithStrings;
    std::ostream& mOut;
};

struct DumpOptions {
    std::string path;
    bool withStrings = false;
};

int runDump(const DumpOptions& options) {
    BoundedFile file;
    std::string why;
    if (!file.open(options.path, &why)) {
        std::cerr << PREFIX << why << "\n";
        return 2;
    }
    MoxDapDatabase* db = MoxDapDatabase::GetInstance();
    db->init();
    Dumper dumper(file, *db, options.withStrings, std::cout);
    DumpFailure failure;
    const bool complete = dumper.run(&failure);
    db->init();
    std::cout.flush();
    if (!complete) {
        std::cerr << failure.line() << "\n";
        return 1;
    }
    return 0;
}

}  // namespace

Command addDumpCommand(CLI::App& app) {
    auto options = std::make_shared<DumpOptions>();
    CLI::App* dump = app.add_subcommand(
        "dump",
        "Render a response database: header, section table, then every record of QuillToc, "
        "QuillAlbum, QuillTrack, QuillArtist and QuillGenre, one line each. Exit status 1 "
        "when the file ends inside a structure (what was read is printed, the reason goes "
        "to stderr, records counted from 0), 2 on bad usage or an unreadable file.");
    dump->add_option("FILE", options->path, "response database file to render")->required();
    dump->add_flag("--strings", options->withStrings,
                   "also print the texts that the module resolves from each record, "
                   "indented under it (control characters as \\xNN)");
    return Command{dump, [options]() { return runDump(*options); }};
}
