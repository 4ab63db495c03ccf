// HelpFormatter: the help of mox and of each subcommand (and so the manual
// pages, which help2man makes from it) shows no type notes of the parser,
// one-line summaries of the subcommands, and the faults of the built-in
// phone under `mox lookup --help`.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "CliRun.h"
#include "HelpFormatter.h"
#include "TestDir.h"

namespace {

class HelpFormatterTest : public ::testing::Test {
protected:
    std::string help(std::vector<std::string> args) {
        args.push_back("--help");
        const CliResult result = runCli(MOX_CLI_PATH, args, dir);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.err, "");
        return result.out;
    }

    TestDir dir{"HelpFormatterTest"};
};

TEST_F(HelpFormatterTest, ProgramHelp_OneLineSummaryPerSubcommand) {
    EXPECT_EQ(help({}),
              "mox - the music-information module on a PC\n"
              "Usage: mox [OPTIONS] SUBCOMMAND\n\n"
              "Options:\n"
              "  -h,--help                   Print this help message and exit\n"
              "  --version                   Display program version information and exit\n\n"
              "Subcommands:\n"
              "  dump                        Render a response database, one line per structure\n"
              "  search                      Album search on a stored response database\n"
              "  toc                         TOC text and disc IDs from offsets, a CUE sheet, an "
              "image or a CD drive\n"
              "  lookup                      Look a disc up through the module and a phone\n\n");
}

TEST_F(HelpFormatterTest, SubcommandHelp_HoldsNoTypeNoteOfTheParser) {
    for (const std::string command : {"dump", "search", "toc", "lookup"}) {
        const std::string out = help({command});
        for (const std::string note : {"UINT", "INT in", "FLOAT", "POSITIVE", "REQUIRED",
                                       "TEXT=", "=0", "Excludes", "[Exactly", "[At least"}) {
            EXPECT_EQ(out.find(note), std::string::npos) << command << ": " << note << "\n" << out;
        }
    }
}

TEST_F(HelpFormatterTest, LookupHelp_NamesTheValueOfEachOption) {
    const std::string out = help({"lookup"});
    EXPECT_NE(out.find("\n  --kind N                    lookup kind (0-255)\n"), std::string::npos)
        << out;
    EXPECT_NE(
        out.find("\n  --timeout N                 bound on the whole run, the wait for another "
                 "run's lock included, seconds (default 60)\n"),
        std::string::npos)
        << out;
    EXPECT_NE(out.find("\n  --json                      print one JSON object"), std::string::npos)
        << out;
    EXPECT_NE(out.find("\n    --offsets N ...             frame offsets"), std::string::npos)
        << out;
}

TEST_F(HelpFormatterTest, LookupHelp_ListsTheFaultsAndWhereTheirOutcomesAreTold) {
    const std::string out = help({"lookup"});
    EXPECT_NE(out.find("\nThe faults of the built-in phone, for --fault NAME or NAME=VALUE "
                       "(repeatable); mox-phone --list-faults tells the result states that each "
                       "leads to.\n"
                       "  silent-after-connect      the connect request is never answered\n"),
              std::string::npos)
        << out;
    EXPECT_NE(out.find("\n  status-ack=N              the lookup answer 0x8010 carries the status "
                       "N; nothing follows\n"),
              std::string::npos)
        << out;
    EXPECT_NE(out.find("\n  slow-chunks[=MS]          each chunk is sent"), std::string::npos)
        << out;
}

TEST(HelpFormatterSummaryTest, Summary_FirstSentenceWithoutItsFullStop) {
    EXPECT_EQ(HelpFormatter::summary("Render it, one line each. Then more. And more"),
              "Render it, one line each");
    EXPECT_EQ(HelpFormatter::summary("One line.\nSecond"), "One line");
    EXPECT_EQ(HelpFormatter::summary("No full stop"), "No full stop");
    EXPECT_EQ(HelpFormatter::summary("Version 1.2 of it"), "Version 1.2 of it");
}

}  // namespace
