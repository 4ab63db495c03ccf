// Runs a built command-line program as a child process, for end-to-end tests
// of the CLI: its exit status and everything it wrote to stdout and stderr.
#ifndef MOX_TESTS_CLIRUN_H
#define MOX_TESTS_CLIRUN_H

#include <string>
#include <vector>

#include "TestDir.h"

struct CliResult {
    int status = -1;  // exit status; -1 when the program did not exit normally
    std::string out;
    std::string err;
};

// Runs `program` with `args` (no shell), its stdout and stderr going to the
// files "stdout" and "stderr" of `dir`, and waits for it to end. When it
// cannot be started, the status is -1 and `err` says why.
CliResult runCli(const std::string& program, const std::vector<std::string>& args,
                 const TestDir& dir);

// As runCli, with stdout on a terminal of its own (a pseudo-terminal in raw
// mode, so that its bytes arrive unchanged): `out` is what the program
// showed there.
CliResult runCliOnTerminal(const std::string& program, const std::vector<std::string>& args,
                           const TestDir& dir);

#endif  // MOX_TESTS_CLIRUN_H
