// Writes the bundled sample database and lists its TOC texts.
#include "moxdb/SampleDbCommand.h"

#include "moxdb/CatalogueBuilder.h"

namespace moxdb {

namespace {

const char kUsage[] =
    "Usage: mox-sampledb [--help] PATH\n"
    "\n"
    "Writes the bundled sample response database (four albums: ROCK, a two-disc\n"
    "JAZZ album, a Japanese POP album, R&B) to PATH, creating missing parent\n"
    "directories, then prints one line per TOC record: the TOC text, a tab and\n"
    "the album title.\n"
    "\n"
    "Exit status: 0 written, 1 cannot write PATH, 2 bad usage.\n";

int badUsage(const std::string& reason, std::ostream& err) {
    err << "mox-sampledb: " << reason << "\n" << kUsage;
    return SampleDbCommand::kBadUsage;
}

}  // namespace

const char* SampleDbCommand::usage() {
    return kUsage;
}

int SampleDbCommand::run(const std::vector<std::string>& args, std::ostream& out,
                         std::ostream& err) {
    std::string path;
    for (const std::string& arg : args) {
        if (arg == "--help" || arg == "-h") {
            out << kUsage;
            return kOk;
        }
        if (arg.size() > 1 && arg[0] == '-') {
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
    std::string error;
    if (!sample.writeFile(path, &error)) {
        err << "mox-sampledb: " << error << "\n";
        return kCannotWrite;
    }
    for (const TocListing& toc : sample.tocListing()) {
        out << toc.tocText << "\t" << toc.albumTitle << "\n";
    }
    return kOk;
}

}  // namespace moxdb
