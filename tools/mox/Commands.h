// Subcommands of the mox CLI. Each add...Command() registers its CLI11
// subcommand on `app` and returns the function that runs it once parsed; that
// function returns the process's exit status (0 success, 1 the operation
// failed, 2 bad usage or unreadable input).
#ifndef MOX_TOOLS_COMMANDS_H
#define MOX_TOOLS_COMMANDS_H

#include <CLI/CLI.hpp>
#include <functional>

using CommandRunner = std::function<int()>;

struct Command {
    CLI::App* app;
    CommandRunner run;
};

Command addDumpCommand(CLI::App& app);
Command addSearchCommand(CLI::App& app);
Command addTocCommand(CLI::App& app);
Command addLookupCommand(CLI::App& app);

#endif  // MOX_TOOLS_COMMANDS_H
