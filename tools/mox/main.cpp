// mox: run, inspect and test the music-information module on a PC.
#include <signal.h>

#include <memory>
#include <vector>

#include "CommandLine.h"
#include "Commands.h"
#include "HelpFormatter.h"

int main(int argc, char** argv) {
    // A write past the file-size limit (ulimit -f) must fail like any other
    // write, so that the module reports it and the run ends with a reason,
    // instead of the process being killed by the signal.
    ::signal(SIGXFSZ, SIG_IGN);
    CLI::App app{"mox - the music-information module on a PC", "mox"};
    // Subcommands take the formatter of the program when they are added.
    app.formatter(std::make_shared<HelpFormatter>());
    app.require_subcommand(1);
    app.set_version_flag("--version", std::string("mox ") + MOX_VERSION);
    std::vector<Command> commands;
    commands.push_back(addDumpCommand(app));
    commands.push_back(addSearchCommand(app));
    commands.push_back(addTocCommand(app));
    commands.push_back(addLookupCommand(app));
    const int status = CommandLine::parse(app, argc, argv);
    if (status >= 0) {
        return status;
    }
    for (const Command& command : commands) {
        if (command.app->parsed()) {
            return command.run();
        }
    }
    return 2;
}
