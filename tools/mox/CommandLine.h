// Parsing the command line of a program with subcommands (mox), so that every
// refusal names what was wrong and why, after the prefix of the program or
// subcommand ("mox lookup: --timeout: abc is not a number"), on stderr, with
// exit status 2:
// - a word in the place of the subcommand that names none of them, or an
//   option before it that the program does not know;
// - an option that the subcommand does not know (checked before the
//   parser's own checks, which would only say that a required option is
//   missing); an option of the program given after the subcommand is named
//   as such;
// - the parser's refusals (a value that does not convert or fails its
//   check, a missing value or option), with the prefix added.
// Checks for option values that say why a value is refused without the
// parser's notes (a range of 300 digits) are here too.
#ifndef MOX_TOOLS_COMMANDLINE_H
#define MOX_TOOLS_COMMANDLINE_H

#include <CLI/CLI.hpp>
#include <cstdint>
#include <string>

class CommandLine {
public:
    // Parses argc/argv with `app`. Returns -1 when a subcommand is to run;
    // otherwise the exit status: 0 after --help or --version, 2 after a
    // refusal (written to stderr).
    static int parse(CLI::App& app, int argc, char** argv);

    // A whole number from `min` to `max`: "abc is not a whole number",
    // "300 is above 255".
    static CLI::Validator wholeNumber(int64_t min, int64_t max);

    // A number above zero: "abc is not a number", "-1 is not above 0".
    static CLI::Validator positiveNumber();

    // The refusal of the words of the command line, or "" when the parser
    // may read them: an unknown subcommand or an unknown option.
    static std::string unknownWords(CLI::App& app, int argc, char** argv);

    // "mox" or "mox lookup": the subcommand that argv names, for the prefix.
    static std::string programName(CLI::App& app, int argc, char** argv);

private:
    static CLI::App* subcommandNamed(CLI::App& app, const std::string& word);
    static std::string subcommandNames(CLI::App& app);
    static std::string unknownOption(CLI::App& app, CLI::App& command, int from, int argc,
                                     char** argv);
    static std::string parserReason(const CLI::ParseError& error);
};

#endif  // MOX_TOOLS_COMMANDLINE_H
