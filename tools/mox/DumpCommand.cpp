// mox dump FILE [--strings]: renders a response database, one line per
// structure, in the module's one-line renderings (DbRendering.h).
//
// Output (stdout), each on its own line:
//   the header rendering (control characters escaped, as in the texts),
//   the section-table rendering, then for QuillToc,
//   QuillAlbum, QuillTrack, QuillArtist and QuillGenre in this order:
//   "<Section> <head rendering>" and per record "  <record rendering>";
//   with --strings the texts that the module resolves follow their record
//   on lines "    <Field>: <text>".
// The file is read whole and walked with the tools' image reader, never
// through the module's result path. A structure that does not lie wholly inside the file ends the
// dump: what was read so far stays printed, one line on stderr names the
// structure, its offset and the reason, and the status is 1.
//
// Bounds, so that a hostile file cannot make the dump print without end:
// - A file larger than the module's result-file limit (ModuleLimits::kResultFileMax,
//   1 MiB) is refused with status 2: the phone could not deliver it.
// - At most kRecordsShown (1000) records are printed per section; a section
//   with more (a head may claim 65,535 records of size 0, all at one place)
//   ends with the line "  ... N more records left out". So the output holds
//   at most 5 x 1000 record lines, with --strings each followed by at most
//   four texts of at most 1023 characters (escaped: 4 bytes each).
#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "Commands.h"
#include "DbRendering.h"
#include "HbFramework/HbString.h"
#include "ModuleLimits.h"
#include "TextEscape.h"
#include "moxdb/DbImageReader.h"

namespace {

using moxdb::Section;

const char* const PREFIX = "mox dump: ";

// Records printed per section at most.
const uint32_t kRecordsShown = 1000;

// Reads the whole regular file at `path`, of at most kResultFileMax bytes;
// false with a one-line reason.
bool readImage(const std::string& path, moxdb::Bytes* image, std::string* why) {
    struct stat info;
    if (::stat(path.c_str(), &info) != 0) {
        *why = path + ": " + std::strerror(errno);
        return false;
    }
    if (!S_ISREG(info.st_mode)) {
        *why = path + ": not a regular file";
        return false;
    }
    const std::string limit = std::to_string(ModuleLimits::kResultFileMax);
    if (static_cast<uint64_t>(info.st_size) > ModuleLimits::kResultFileMax) {
        *why = path + ": " + std::to_string(info.st_size) +
               " bytes, larger than the module accepts from the phone (" + limit + " bytes)";
        return false;
    }
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        *why = path + ": " + std::strerror(errno);
        return false;
    }
    // The file may have grown since: one byte past the limit is enough to tell.
    image->resize(static_cast<size_t>(ModuleLimits::kResultFileMax) + 1);
    in.read(reinterpret_cast<char*>(image->data()), static_cast<std::streamsize>(image->size()));
    if (in.bad()) {
        *why = path + ": read failed";
        return false;
    }
    image->resize(static_cast<size_t>(in.gcount()));
    if (image->size() > ModuleLimits::kResultFileMax) {
        *why = path + ": grew past " + limit + " bytes while it was read";
        return false;
    }
    return true;
}

// Prints each structure the walk meets in the module's renderings.
class Dumper : public moxdb::ImageVisitor {
public:
    explicit Dumper(std::ostream& out) : mOut(out) {}

    void header(const moxdb::Bytes& bytes) override {
        // The signature's four bytes are the file's own: escaped, so
        // that a file starting with ESC [ 2 J cannot clear the screen.
        mOut << escapeControlCharacters(DbRendering::header(bytes)) << "\n";
    }

    void table(const moxdb::Bytes& bytes) override { mOut << DbRendering::table(bytes) << "\n"; }

    void head(Section section, const moxdb::SectionHead& head) override {
        finishSection();
        mOut << moxdb::DbImageReader::nameOf(section) << " " << DbRendering::head(head) << "\n";
    }

    void record(Section section, uint32_t index, const moxdb::Bytes& bytes) override {
        mShowing = index < kRecordsShown;
        if (!mShowing) {
            ++mLeftOut;
            return;
        }
        mOut << "  " << DbRendering::record(section, bytes) << "\n";
    }

    void text(const moxdb::RecordText& text, const std::u16string& units) override {
        if (mShowing) {
            mOut << "    " << text.field << ": " << escapeControlCharacters(utf8Of(units)) << "\n";
        }
    }

    // Says how many records of the section were not printed, if any; called
    // at each head and once the walk has ended.
    void finishSection() {
        if (mLeftOut > 0) {
            mOut << "  ... " << mLeftOut << " more records left out\n";
        }
        mLeftOut = 0;
    }

private:
    // The text as the module converts it: up to the first zero unit.
    static std::string utf8Of(const std::u16string& units) {
        std::vector<unsigned short> buffer(units.begin(), units.end());
        buffer.push_back(0);
        HbString converted;
        converted.Copy(buffer.data(), HbString::en_CODE_PAGE_UTF16);
        return converted.ToCHAR(HbString::en_CODE_PAGE_UTF8);
    }

    std::ostream& mOut;
    bool mShowing = true;   // the last record was printed, and so are its texts
    uint32_t mLeftOut = 0;  // records of the current section not printed
};

struct DumpOptions {
    std::string path;
    bool withStrings = false;
};

int runDump(const DumpOptions& options) {
    moxdb::Bytes image;
    std::string why;
    if (!readImage(options.path, &image, &why)) {
        std::cerr << PREFIX << why << "\n";
        return 2;
    }
    Dumper dumper(std::cout);
    moxdb::ImageFault fault;
    const bool complete = moxdb::DbImageReader(image).walk(dumper, options.withStrings, &fault);
    dumper.finishSection();
    std::cout.flush();
    if (!complete) {
        std::cerr << PREFIX << fault.line() << "\n";
        return 1;
    }
    return 0;
}

}  // namespace

Command addDumpCommand(CLI::App& app) {
    auto options = std::make_shared<DumpOptions>();
    CLI::App* dump = app.add_subcommand(
        "dump",
        "Render a response database, one line per structure. The header, the section table, "
        "then every record of QuillToc, "
        "QuillAlbum, QuillTrack, QuillArtist and QuillGenre, one line each (at most 1000 "
        "records per section, then a line saying how many were left out). Exit status 1 "
        "when the file ends inside a structure (what was read is printed, the reason goes "
        "to stderr, records counted from 0), 2 on bad usage, an unreadable file or one "
        "larger than the module accepts from the phone (1 MiB).");
    dump->add_option("FILE", options->path, "response database file to render")->required();
    dump->add_flag("--strings", options->withStrings,
                   "also print the texts that the module resolves from each record, "
                   "indented under it (control characters as \\xNN)");
    return Command{dump, [options]() { return runDump(*options); }};
}
