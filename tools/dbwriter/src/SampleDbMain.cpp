// mox-sampledb: writes the bundled sample response database to a file and
// lists its TOC texts, so a person can try the module's search on it.
// Exit status: 0 written, 1 the file cannot be written, 2 bad usage.
#include <iostream>
#include <string>
#include <vector>

#include "moxdb/SampleDbCommand.h"

int main(int argc, char** argv) {
    const std::vector<std::string> args(argv + (argc > 0 ? 1 : 0), argv + argc);
    return moxdb::SampleDbCommand::run(args, std::cout, std::cerr, MOX_VERSION);
}
