// The command behind the mox-sampledb program: writes the bundled sample
// database (CatalogueBuilder::makeSample) to a path and lists its TOC texts.
// Kept in the library so that its arguments, output and exit status are
// tested without starting a process.
#ifndef MOXDB_SAMPLEDBCOMMAND_H
#define MOXDB_SAMPLEDBCOMMAND_H

#include <ostream>
#include <string>
#include <vector>

namespace moxdb {

class SampleDbCommand {
public:
    enum ExitCode { kOk = 0, kCannotWrite = 1, kBadUsage = 2 };

    // `args` are the program's arguments without the program name:
    // "--help" or "-h" prints the usage to `out` (0); "--version" prints
    // "mox-sampledb <version>" (0); one PATH, whose directory must exist,
    // writes the database there and prints "<TOC text>\t<album title>\n" per
    // TOC record to `out` (0), or a one-line reason to `err` (1); PATH "-"
    // writes the database to `out` and the lines to `err`; anything else
    // prints the reason and the usage to `err` (2).
    static int run(const std::vector<std::string>& args, std::ostream& out, std::ostream& err,
                   const std::string& version = "");

    static const char* usage();
};

}  // namespace moxdb

#endif  // MOXDB_SAMPLEDBCOMMAND_H
