// CommandLine: every refusal of the mox command line names the option or
// word and the reason, after the prefix of the program or subcommand, with
// exit status 2 and nothing on stdout; and the checks of option values.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "CliRun.h"
#include "CommandLine.h"
#include "TestDir.h"

namespace {

const std::string kMore = "Run with --help for more information.\n";

class CommandLineTest : public ::testing::Test {
protected:
    // Runs mox with `args`: exit 2, nothing on stdout and exactly `reason`
    // then the pointer to --help on stderr.
    void expectRefused(const std::vector<std::string>& args, const std::string& reason) {
        const CliResult result = runCli(MOX_CLI_PATH, args, dir);
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, reason + "\n" + kMore);
    }

    TestDir dir{"CommandLineTest"};
};

TEST_F(CommandLineTest, TimeoutNotANumber_NamesTheOptionAndTheValue) {
    expectRefused({"lookup", "--toc", "000096000100", "--timeout", "abc"},
                  "mox lookup: --timeout: abc is not a number");
}

TEST_F(CommandLineTest, TimeoutZero_IsNotAboveZero) {
    expectRefused({"lookup", "--toc", "000096000100", "--timeout", "0"},
                  "mox lookup: --timeout: 0 is not above 0");
}

TEST_F(CommandLineTest, KindAboveItsRange_NamesTheLimit) {
    expectRefused({"lookup", "--toc", "000096000100", "--kind", "300"},
                  "mox lookup: --kind: 300 is above 255");
    expectRefused({"lookup", "--toc", "000096000100", "--param1", "x"},
                  "mox lookup: --param1: x is not a whole number");
}

TEST_F(CommandLineTest, UnknownOptionOfASubcommand_IsNamedBeforeTheRequiredOnes) {
    expectRefused({"toc", "--tok", "X"}, "mox toc: unknown option --tok");
    expectRefused({"search", "f", "--toc", "X", "--offsets", "150"},
                  "mox search: unknown option --offsets");
    expectRefused({"toc", "--offsets=150", "--bad=3"}, "mox toc: unknown option --bad");
}

TEST_F(CommandLineTest, OptionOfTheProgramAfterTheSubcommand_IsNamedAsSuch) {
    expectRefused({"lookup", "--version"},
                  "mox lookup: unknown option --version (an option of mox, given before the "
                  "subcommand: mox --version)");
}

TEST_F(CommandLineTest, UnknownOptionOfTheProgram_IsNamed) {
    expectRefused({"--bogus"}, "mox: unknown option --bogus");
}

TEST_F(CommandLineTest, NoSubcommand_NamesThem) {
    expectRefused({}, "mox: a subcommand is required (one of: dump, search, toc, lookup)");
}

TEST_F(CommandLineTest, ValueThatDoesNotConvert_NamesTheOption) {
    expectRefused({"toc", "--offsets", "abc"}, "mox toc: --offsets: abc is not a valid value");
}

TEST_F(CommandLineTest, ParserRefusal_HasTheSubcommandsPrefix) {
    expectRefused({"search"}, "mox search: FILE is required");
}

TEST_F(CommandLineTest, WordsAfterDoubleDash_AreNotOptions) {
    const CliResult result = runCli(MOX_CLI_PATH, {"dump", "--", "--strings"}, dir);
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.err, "mox dump: --strings: No such file or directory\n");
}

TEST_F(CommandLineTest, ExtraWord_IsNamed) {
    expectRefused({"dump", "a", "b"}, "mox dump: The following argument was not expected: b");
}

TEST(CommandLineValidatorTest, WholeNumber_SaysWhyAValueIsRefused) {
    const CLI::Validator check = CommandLine::wholeNumber(0, 255);
    EXPECT_EQ(check("0"), "");
    EXPECT_EQ(check("255"), "");
    EXPECT_EQ(check("256"), "256 is above 255");
    EXPECT_EQ(check("-1"), "-1 is below 0");
    EXPECT_EQ(check("1.5"), "1.5 is not a whole number");
    EXPECT_EQ(check(""), " is not a whole number");
    EXPECT_EQ(check("99999999999999999999"), "99999999999999999999 is not a whole number");
}

TEST(CommandLineValidatorTest, PositiveNumber_SaysWhyAValueIsRefused) {
    const CLI::Validator check = CommandLine::positiveNumber();
    EXPECT_EQ(check("0.5"), "");
    EXPECT_EQ(check("abc"), "abc is not a number");
    EXPECT_EQ(check("nan"), "nan is not a number");
    EXPECT_EQ(check("1e999"), "1e999 is not a number");
    EXPECT_EQ(check("-2"), "-2 is not above 0");
}

}  // namespace
