#include "CommandLine.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <iostream>

namespace {

const char* const MORE = "Run with --help for more information.\n";

// The option's name in a word of the command line: "--toc" of "--toc=X";
// empty when the word is not an option (a value, a negative number, "-").
std::string optionOf(const std::string& word) {
    if (word.size() < 2 || word[0] != '-') {
        return std::string();
    }
    if (word[1] != '-') {
        const bool letter =
            (word[1] >= 'a' && word[1] <= 'z') || (word[1] >= 'A' && word[1] <= 'Z');
        return letter ? word.substr(0, 2) : std::string();
    }
    return word.substr(0, word.find('='));
}

}  // namespace

CLI::App* CommandLine::subcommandNamed(CLI::App& app, const std::string& word) {
    for (CLI::App* command : app.get_subcommands([](CLI::App*) { return true; })) {
        if (!command->get_name().empty() && command->get_name() == word) {
            return command;
        }
    }
    return nullptr;
}

std::string CommandLine::subcommandNames(CLI::App& app) {
    std::string names;
    for (const CLI::App* command : app.get_subcommands([](CLI::App*) { return true; })) {
        names += (names.empty() ? "" : ", ") + command->get_name();
    }
    return names;
}

std::string CommandLine::programName(CLI::App& app, int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        const CLI::App* command = subcommandNamed(app, argv[i]);
        if (command != nullptr) {
            return app.get_name() + " " + command->get_name();
        }
    }
    return app.get_name();
}

std::string CommandLine::unknownOption(CLI::App& app, CLI::App& command, int from, int argc,
                                       char** argv) {
    for (int i = from; i < argc; ++i) {
        const std::string word = argv[i];
        if (word == "--") {
            return std::string();
        }
        const std::string option = optionOf(word);
        if (option.empty() || command.get_option_no_throw(option) != nullptr) {
            continue;
        }
        if (&command != &app && app.get_option_no_throw(option) != nullptr) {
            return "unknown option " + option + " (an option of " + app.get_name() +
                   ", given before the subcommand: " + app.get_name() + " " + option + ")";
        }
        return "unknown option " + option;
    }
    return std::string();
}

std::string CommandLine::unknownWords(CLI::App& app, int argc, char** argv) {
    int at = 1;
    while (at < argc && optionOf(argv[at]) != "") {
        const std::string option = optionOf(argv[at]);
        if (app.get_option_no_throw(option) == nullptr) {
            return "unknown option " + option;
        }
        ++at;
    }
    if (at >= argc) {
        // Only options of the program, such as --help or --version.
        return argc > 1 ? std::string()
                        : "a subcommand is required (one of: " + subcommandNames(app) + ")";
    }
    CLI::App* command = subcommandNamed(app, argv[at]);
    if (command == nullptr) {
        return "unknown subcommand '" + std::string(argv[at]) +
               "' (known: " + subcommandNames(app) + ")";
    }
    return unknownOption(app, *command, at + 1, argc, argv);
}

std::string CommandLine::parserReason(const CLI::ParseError& error) {
    const std::string what = error.what();
    // "Could not convert: --offsets = abc"
    const std::string convert = "Could not convert: ";
    if (what.rfind(convert, 0) == 0) {
        const std::string rest = what.substr(convert.size());
        const size_t equals = rest.find(" = ");
        if (equals != std::string::npos) {
            return rest.substr(0, equals) + ": " + rest.substr(equals + 3) +
                   " is not a valid value";
        }
    }
    return what;
}

int CommandLine::parse(CLI::App& app, int argc, char** argv) {
    const std::string prefix = programName(app, argc, argv) + ": ";
    const std::string unknown = unknownWords(app, argc, argv);
    if (!unknown.empty()) {
        std::cerr << prefix << unknown << "\n" << MORE;
        return 2;
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
        std::cerr << prefix << parserReason(e) << "\n" << MORE;
        return 2;
    }
    return -1;
}

CLI::Validator CommandLine::wholeNumber(int64_t min, int64_t max) {
    const std::string range = std::to_string(min) + " to " + std::to_string(max);
    return CLI::Validator(
        [min, max](std::string& value) -> std::string {
            errno = 0;
            char* end = nullptr;
            const long long number = std::strtoll(value.c_str(), &end, 10);
            if (value.empty() || *end != '\0' || errno == ERANGE) {
                return value + " is not a whole number";
            }
            if (number < min) {
                return value + " is below " + std::to_string(min);
            }
            if (number > max) {
                return value + " is above " + std::to_string(max);
            }
            return std::string();
        },
        range);
}

CLI::Validator CommandLine::positiveNumber() {
    return CLI::Validator(
        [](std::string& value) -> std::string {
            errno = 0;
            char* end = nullptr;
            const double number = std::strtod(value.c_str(), &end);
            if (value.empty() || *end != '\0' || errno == ERANGE || std::isnan(number)) {
                return value + " is not a number";
            }
            if (number <= 0) {
                return value + " is not above 0";
            }
            return std::string();
        },
        "above 0");
}
