// The mox-sampledb command: arguments, output lines and exit status.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "MoxDbWriter.h"
#include "TestDir.h"

using moxdb::SampleDbCommand;

TEST(SampleDbCommandTest, Run_Path_WritesTheSampleAndListsEveryTocWithItsTitle) {
    TestDir dir("sampledb-ok");
    const std::string path = dir.file("sample.dap3");
    std::ostringstream out;
    std::ostringstream err;
    EXPECT_EQ(0, SampleDbCommand::run({path}, out, err));
    EXPECT_EQ("", err.str());
    const moxdb::Bytes expected = moxdb::CatalogueBuilder::makeSample().build();
    EXPECT_EQ(expected, moxdb::Bytes(TestDir::readFile(path)));
    EXPECT_EQ(
        "0000960046E6008D3600D386\tNorthern Roads\n"
        "000096004EB600A0BE00ECEA013916\tBlue Hours (Live)\n"
        "00009600623E00B82E011206\tBlue Hours (Live)\n"
        "000096003B2E0079AE00B82E\t\xE5\xA4\x9C\xE6\x98\x8E\xE3\x81\x91\xE3\x81\xAE\xE8\xA1\x97\n"
        "000096003F1600817E00BFFE010266\tSlow Motion\n",
        out.str());
}

TEST(SampleDbCommandTest, Run_Help_PrintsUsageAndExitsZero) {
    for (const char* help : {"--help", "-h"}) {
        std::ostringstream out;
        std::ostringstream err;
        EXPECT_EQ(0, SampleDbCommand::run({help}, out, err));
        EXPECT_EQ(SampleDbCommand::usage(), out.str());
        EXPECT_EQ("", err.str());
    }
    EXPECT_EQ(0u, std::string(SampleDbCommand::usage())
                      .find("Usage: mox-sampledb [--help] [--version] PATH\n"));
}

TEST(SampleDbCommandTest, Run_NoPath_IsBadUsage) {
    std::ostringstream out;
    std::ostringstream err;
    EXPECT_EQ(2, SampleDbCommand::run({}, out, err));
    EXPECT_EQ("", out.str());
    EXPECT_EQ(std::string("mox-sampledb: missing PATH\n") + SampleDbCommand::usage(), err.str());
}

TEST(SampleDbCommandTest, Run_UnknownOptionOrTwoPaths_IsBadUsage) {
    std::ostringstream out;
    std::ostringstream err;
    EXPECT_EQ(2, SampleDbCommand::run({"--force", "x"}, out, err));
    EXPECT_EQ(0u, err.str().find("mox-sampledb: unknown option --force\n"));
    err.str("");
    EXPECT_EQ(2, SampleDbCommand::run({"a", "b"}, out, err));
    EXPECT_EQ(0u, err.str().find("mox-sampledb: more than one PATH given\n"));
    err.str("");
    EXPECT_EQ(2, SampleDbCommand::run({""}, out, err));
    EXPECT_EQ(0u, err.str().find("mox-sampledb: empty PATH\n"));
    EXPECT_EQ("", out.str());
}

TEST(SampleDbCommandTest, Run_MissingDirectory_RefusedAndNothingCreated) {
    TestDir dir("sampledb-missing");
    const std::string missing = dir.file("absent");
    std::ostringstream out;
    std::ostringstream err;
    EXPECT_EQ(1, SampleDbCommand::run({missing + "/x.dap3"}, out, err));
    EXPECT_EQ("", out.str());
    EXPECT_EQ("mox-sampledb: cannot write " + missing + "/x.dap3: no directory " + missing + "\n",
              err.str());
    EXPECT_FALSE(std::filesystem::exists(missing));
}

TEST(SampleDbCommandTest, Run_PathInAFileInsteadOfADirectory_RefusedWithOneLine) {
    TestDir dir("sampledb-fail");
    TestDir::writeFile(dir.file("plain"), {0});
    std::ostringstream out;
    std::ostringstream err;
    EXPECT_EQ(1, SampleDbCommand::run({dir.file("plain/sample.dap3")}, out, err));
    EXPECT_EQ("", out.str());
    EXPECT_EQ("mox-sampledb: cannot write " + dir.file("plain/sample.dap3") + ": no directory " +
                  dir.file("plain") + "\n",
              err.str());
}

TEST(SampleDbCommandTest, Run_Dash_WritesTheDatabaseToOutAndTheListingToErr) {
    TestDir dir("sampledb-dash");
    std::ostringstream fileOut;
    std::ostringstream fileErr;
    ASSERT_EQ(0, SampleDbCommand::run({dir.file("sample.dap3")}, fileOut, fileErr));
    const std::vector<unsigned char> written = TestDir::readFile(dir.file("sample.dap3"));
    std::ostringstream out;
    std::ostringstream err;
    EXPECT_EQ(0, SampleDbCommand::run({"-"}, out, err));
    EXPECT_EQ(std::string(written.begin(), written.end()), out.str());
    EXPECT_EQ(fileOut.str(), err.str());
    EXPECT_FALSE(std::filesystem::exists("-"));
}

TEST(SampleDbCommandTest, Run_Version_PrintsTheProgramAndItsVersion) {
    std::ostringstream out;
    std::ostringstream err;
    EXPECT_EQ(0, SampleDbCommand::run({"--version"}, out, err, "1.2.3"));
    EXPECT_EQ("mox-sampledb 1.2.3\n", out.str());
    EXPECT_EQ("", err.str());
}
