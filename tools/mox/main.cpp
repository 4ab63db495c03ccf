// mox: run, inspect and test the music-information module on a PC.
#include <signal.h>

#include <iostream>
#include <string>
#include <vector>

#include "Commands.h"

namespace {

// The word where a subcommand should stand when it names none of them
// (CLI11 would only say that a subcommand is required); empty otherwise.
std::string unknownSubcommand(CLI::App& app, int argc, char** argv) {
    if (argc < 2 || argv[1][0] == '-' || argv[1][0] == '\0') {
        return std::string();
    }
    const std::string word = argv[1];
    for (const CLI::App* command : app.get_subcommands([](CLI::App*) { return true; })) {
        if (command->get_name() == word) {
            return std::string();
        }
    }
    return word;
}

// "dump, search": the subcommands, for the message about an unknown one.
std::string subcommandNames(CLI::App& app) {
    std::string names;
    for (const CLI::App* command : app.get_subcommands([](CLI::App*) { return true; })) {
        names += (names.empty() ? "" : ", ") + command->get_name();
    }
    return names;
}

}  // namespace

int main(int argc, char** argv) {
    // A write past the file-size limit (ulimit -f) must fail like any other
    // write, so that the module reports it and the run ends with a reason,
    // instead of the process being killed by the signal.
    ::signal(SIGXFSZ, SIG_IGN);
    CLI::App app{"mox - the music-information module on a PC"};
    app.require_subcommand(1);
    app.set_version_flag("--version", std::string("mox ") + MOX_VERSION);
    std::vector<Command> commands;
    commands.push_back(addDumpCommand(app));
    commands.push_back(addSearchCommand(app));
    commands.push_back(addTocCommand(app));
    commands.push_back(addLookupCommand(app));
    const std::string unknown = unknownSubcommand(app, argc, argv);
    if (!unknown.empty()) {
        std::cerr << "mox: unknown subcommand '" << unknown << "' (known: " << subcommandNames(app)
                  << ")\nRun with --help for more information.\n";
        return 2;  // bad usage
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForAllHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForVersion& e) {
        return app.exit(e);
    } catch (const CLI::ParseError& e) {
        app.exit(e);
        return 2;  // bad usage
    }
    for (const Command& command : commands) {
        if (command.app->parsed()) {
            return command.run();
        }
    }
    return 2;
}
