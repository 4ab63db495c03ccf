// Where a program finds the bundled catalogue: the installed copy beside an
// installed program (relative to the program's directory), otherwise the
// source tree's copy it was built with.
#include "moxphone/CatalogueLocation.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "TestDir.h"

using moxphone::CatalogueLocation;

namespace {

const char kInstalled[] = "../share/mox/catalog";
const char kBuilt[] = "/src/tools/phone/catalog";

class CatalogueLocationTest : public ::testing::Test {
protected:
    CatalogueLocationTest() : dir("CatalogueLocationTest") {
        std::filesystem::create_directories(dir.file("bin"));
    }

    std::string program() const { return dir.file("bin/mox-phone"); }
    void install(const std::string& name) const {
        std::filesystem::create_directories(dir.file("share/mox/catalog"));
        TestDir::writeFile(dir.file("share/mox/catalog/" + name), {'{', '}'});
    }
    std::string canonical(const std::string& path) const {
        return std::filesystem::canonical(path).string();
    }

    TestDir dir;
};

}  // namespace

TEST_F(CatalogueLocationTest,
       Choose_WhenTheInstalledSampleIsBesideTheProgram_ItsCanonicalDirectory) {
    install("sample.json");
    EXPECT_EQ(canonical(dir.file("share/mox/catalog")),
              CatalogueLocation::choose(program(), kInstalled, kBuilt));
}

TEST_F(CatalogueLocationTest, Choose_WhenNothingIsInstalledBesideTheProgram_TheBuiltDirectory) {
    EXPECT_EQ(kBuilt, CatalogueLocation::choose(program(), kInstalled, kBuilt));
}

TEST_F(CatalogueLocationTest, Choose_WhenTheInstalledDirectoryLacksTheSample_TheBuiltDirectory) {
    install("catalog.schema.json");
    EXPECT_EQ(kBuilt, CatalogueLocation::choose(program(), kInstalled, kBuilt));
}

TEST_F(CatalogueLocationTest, Choose_WhenTheSampleIsADirectory_TheBuiltDirectory) {
    std::filesystem::create_directories(dir.file("share/mox/catalog/sample.json"));
    EXPECT_EQ(kBuilt, CatalogueLocation::choose(program(), kInstalled, kBuilt));
}

TEST_F(CatalogueLocationTest, Choose_WhenTheProgramIsUnknown_TheBuiltDirectory) {
    EXPECT_EQ(kBuilt, CatalogueLocation::choose("", kInstalled, kBuilt));
}

TEST_F(CatalogueLocationTest, RunningExecutable_IsThisTestProgram) {
    const std::string self = CatalogueLocation::runningExecutable();
    EXPECT_EQ("CatalogueLocationTest", std::filesystem::path(self).filename().string());
    EXPECT_TRUE(std::filesystem::path(self).is_absolute()) << self;
}

TEST_F(CatalogueLocationTest, Directory_InTheBuildTree_TheSourceTreeCatalogue) {
    EXPECT_EQ(MOXPHONE_TEST_SOURCE_CATALOG_DIR, CatalogueLocation::directory());
}
