// mox: run, inspect and test the music-information module on a PC.
#include <iostream>
#include <string>
#include <vector>

#include "Commands.h"

int main(int argc, char** argv) {
    CLI::App app{"mox - the music-information module on a PC"};
    app.require_subcommand(1);
    app.set_version_flag("--version", std::string("mox ") + MOX_VERSION);
    std::vector<Command> commands;
    commands.push_back(addDumpCommand(app));
    commands.push_back(addSearchCommand(app));
    commands.push_back(addTocCommand(app));
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
