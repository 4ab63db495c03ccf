// Writes the bundled sample database and lists its TOC texts.
#include "moxdb/SampleDbCommand.h"

#include <filesystem>
#include <system_error>

#include "moxdb/CatalogueBuilder.h"

namespace moxdb {

namespace {

const char kUsage[] =
    "Usage: mox-sampledb [--help] [--version] PATH\n"
    "\n"
    "Writes the bundled sample response database (four albums: ROCK, a two-disc\n"
    "JAZZ album, a Japanese POP album, R&B) to PATH, whose directory must exist,\n"
    "then prints one line per TOC record: the TOC text, a tab and the album\n"
    "title. PATH \"-\" writes the database to standard output and the lines to\n"
    "standard error.\n"
    "\n"
    "Exit status: 0 written, 1 cannot write PATH, 2 bad usage.\n";

int badUsage(const std::string& reason, std::ostream& err) {
    err << "mox-sampledb: " << reason << "\n" << kUsage;
    return SampleDbCommand::kBadUsage;
}

// The database to standard output, for a pipe.
int writeToOut(const CatalogueBuilder& sample, std::ostream& out) {
    const Bytes bytes = sample.build();
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
    out.flush();
    return out ? SampleDbCommand::kOk : SampleDbCommand::kCannotWrite;
}

// A PATH whose directory is missing is refused: a typing error must not
// leave directories behind.
bool directoryExists(const std::string& path, std::string* error) {
    const std::filesystem::path parent = std::filesystem::path(path).parent_path();
    std::error_code ec;
    if (parent.empty() || std::filesystem::is_directory(parent, ec)) {
        return true;
    }
    *error = "cannot write " + path + ": no directory " + parent.string();
    return false;
}

}  // namespace

const char* SampleDbCommand::usage() {
    return kUsage;
}

int SampleDbCommand::run(const std::vector<std::string>& args, std::ostream& out, std::ostream& err,
                         const std::string& version) {
    std::string path;
    for (const std::string& arg : args) {
        if (arg == "--help" || arg == "-h") {
            out << kUsage;
            return kOk;
        }
        if (arg == "--version") {
            out << "mox-sampledb " << version << "\n";
            return kOk;
        }
        if (arg.size() > 1 && arg[0] == '-') {  // "-" alone is standard output
            return badUsage("unknown option " + arg, err);
        }
        if (arg.empty() || !path.empty()) {
            return badUsage(arg.empty() ? "empty PATH" : "more than one PATH given", err);
        }
        path = arg;
    }
    if (path.empty()) {
        return badUsage("missing PATH", err);
    }
    const CatalogueBuilder sample = CatalogueBuilder::makeSample();
    std::ostream& listing = path == "-" ? err : out;
    if (path == "-" && writeToOut(sample, out) != kOk) {
        err << "mox-sampledb: cannot write to standard output\n";
        return kCannotWrite;
    }
    std::string error;
    if (path != "-" && (!directoryExists(path, &error) || !sample.writeFile(path, &error))) {
        err << "mox-sampledb: " << error << "\n";
        return kCannotWrite;
    }
    for (const TocListing& toc : sample.tocListing()) {
        listing << toc.tocText << "\t" << toc.albumTitle << "\n";
    }
    return kOk;
}

}  // namespace moxdb
