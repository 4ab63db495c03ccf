// `mox --version`: the program's name and the project's version on stdout,
// the form help2man reads for the manual pages, without a subcommand.
#include <gtest/gtest.h>

#include <string>

#include "CliRun.h"
#include "TestDir.h"

namespace {

class MoxVersionTest : public ::testing::Test {
protected:
    MoxVersionTest() : dir("MoxVersionTest") {}

    TestDir dir;
};

}  // namespace

TEST_F(MoxVersionTest, Version_PrintsNameAndProjectVersionExitZero) {
    const CliResult version = runCli(MOX_CLI_PATH, {"--version"}, dir);
    EXPECT_EQ(0, version.status);
    EXPECT_EQ(std::string("mox ") + MOX_PROJECT_VERSION + "\n", version.out);
    EXPECT_EQ("", version.err);
}

TEST_F(MoxVersionTest, Help_ListsTheVersionFlag) {
    const CliResult help = runCli(MOX_CLI_PATH, {"--help"}, dir);
    EXPECT_EQ(0, help.status);
    EXPECT_NE(std::string::npos,
              help.out.find("  --version                   Display program version information and "
                            "exit\n"))
        << help.out;
}

TEST_F(MoxVersionTest, NoSubcommand_StillRefusedWithStatus2) {
    const CliResult bare = runCli(MOX_CLI_PATH, {}, dir);
    EXPECT_EQ(2, bare.status);
    EXPECT_EQ(
        "mox: a subcommand is required (one of: dump, search, toc, lookup)\n"
        "Run with --help for more information.\n",
        bare.err);
}
