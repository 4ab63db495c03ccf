// Where the bundled sample catalogue and its schema are. An installed program
// finds them in its own installation (<prefix>/share/mox/catalog), reached
// from the program's path, so that an installed tree works under any prefix
// and wherever it is copied; a program run where it was built (the tools and
// the tests of the build tree) has no such directory beside it and uses the
// source tree's copy.
#ifndef MOXPHONE_CATALOGUELOCATION_H
#define MOXPHONE_CATALOGUELOCATION_H

#include <string>

namespace moxphone {

class CatalogueLocation {
public:
    // The catalogue directory of the running program.
    static std::string directory();

    // The catalogue directory of a program at `executable`: `installed`
    // (relative to the program's directory), made canonical, when it holds
    // sample.json; otherwise `built`.
    static std::string choose(const std::string& executable, const std::string& installed,
                              const std::string& built);

    // The running program's path (/proc/self/exe); empty when unreadable.
    static std::string runningExecutable();
};

}  // namespace moxphone

#endif  // MOXPHONE_CATALOGUELOCATION_H
