#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/types.h>

#include <filesystem>
#include <string>

#include "HbFramework/HbFileSys.h"
#include "TestDir.h"

namespace {

// Permission bits of `path`, or -1 when it does not exist.
int modeOf(const std::string& path) {
    struct stat info;
    if (::stat(path.c_str(), &info) != 0) {
        return -1;
    }
    return static_cast<int>(info.st_mode & 07777);
}

bool isDirectory(const std::string& path) {
    struct stat info;
    return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

// Clears the process umask for one test so created modes show unmasked.
class UmaskCleared {
public:
    UmaskCleared() : mPrevious(::umask(0)) {}
    ~UmaskCleared() { ::umask(mPrevious); }

private:
    mode_t mPrevious;
};

}  // namespace

TEST(HbFileSysTest, IsExist_ExistingFileAndDirectory_True) {
    TestDir dir("HbFileSysIsExist");
    TestDir::writeFile(dir.file("f"), {1});
    EXPECT_TRUE(HbFileSys::IsExist(dir.path().c_str()));
    EXPECT_TRUE(HbFileSys::IsExist(dir.file("f").c_str()));
}

TEST(HbFileSysTest, IsExist_MissingNullOrEmpty_False) {
    TestDir dir("HbFileSysIsExistMissing");
    EXPECT_FALSE(HbFileSys::IsExist(dir.file("missing").c_str()));
    EXPECT_FALSE(HbFileSys::IsExist(nullptr));
    EXPECT_FALSE(HbFileSys::IsExist(""));
}

TEST(HbFileSysTest, CreateDirectory_Recursive_CreatesEveryMissingLevelWithMode0755) {
    UmaskCleared umaskCleared;
    TestDir dir("HbFileSysRecursive");
    const std::string deepest = dir.path() + "/temp/Infotainment/HbSDK/MOX/";
    EXPECT_TRUE(HbFileSys::CreateDirectory(deepest.c_str(), true));
    for (const char* level : {"/temp", "/temp/Infotainment", "/temp/Infotainment/HbSDK",
                              "/temp/Infotainment/HbSDK/MOX"}) {
        const std::string path = dir.path() + level;
        EXPECT_TRUE(isDirectory(path)) << path;
        EXPECT_EQ(0755, modeOf(path)) << path;
    }
}

TEST(HbFileSysTest, CreateDirectory_RecursiveWhenItExists_ReturnsTrue) {
    TestDir dir("HbFileSysExists");
    EXPECT_TRUE(HbFileSys::CreateDirectory(dir.path().c_str(), true));
    EXPECT_TRUE(HbFileSys::CreateDirectory(dir.path().c_str(), false));
}

TEST(HbFileSysTest, CreateDirectory_NonRecursiveWithMissingParent_FailsAndCreatesNothing) {
    TestDir dir("HbFileSysFlat");
    const std::string child = dir.path() + "/a/b";
    EXPECT_FALSE(HbFileSys::CreateDirectory(child.c_str(), false));
    EXPECT_FALSE(HbFileSys::IsExist((dir.path() + "/a").c_str()));
}

TEST(HbFileSysTest, CreateDirectory_NonRecursiveWithParentPresent_CreatesIt) {
    UmaskCleared umaskCleared;
    TestDir dir("HbFileSysFlatOk");
    const std::string child = dir.path() + "/a";
    EXPECT_TRUE(HbFileSys::CreateDirectory(child.c_str(), false));
    EXPECT_TRUE(isDirectory(child));
    EXPECT_EQ(0755, modeOf(child));
}

TEST(HbFileSysTest, CreateDirectory_RegularFileInTheWay_FailsAndCreatesNothingBelow) {
    TestDir dir("HbFileSysBlocked");
    TestDir::writeFile(dir.file("blocker"), {'x'});
    const std::string target = dir.path() + "/blocker/sub/leaf";
    EXPECT_FALSE(HbFileSys::CreateDirectory(target.c_str(), true));
    EXPECT_FALSE(isDirectory(dir.path() + "/blocker"));
    EXPECT_FALSE(HbFileSys::IsExist((dir.path() + "/blocker/sub").c_str()));
}

TEST(HbFileSysTest, CreateDirectory_PathIsARegularFile_Fails) {
    TestDir dir("HbFileSysFile");
    TestDir::writeFile(dir.file("plain"), {'x'});
    EXPECT_FALSE(HbFileSys::CreateDirectory(dir.file("plain").c_str(), true));
    EXPECT_FALSE(HbFileSys::CreateDirectory(dir.file("plain").c_str(), false));
}

TEST(HbFileSysTest, CreateDirectory_NullOrEmpty_Fails) {
    EXPECT_FALSE(HbFileSys::CreateDirectory(nullptr, true));
    EXPECT_FALSE(HbFileSys::CreateDirectory("", true));
}

TEST(HbFileSysTest, CreateDirectory_RelativePath_CreatedBelowTheWorkingDirectory) {
    TestDir dir("HbFileSysRelative");
    const std::string previous = std::filesystem::current_path().string();
    std::filesystem::current_path(dir.path());
    const bool created = HbFileSys::CreateDirectory("rel/one/two", true);
    std::filesystem::current_path(previous);
    EXPECT_TRUE(created);
    EXPECT_TRUE(isDirectory(dir.path() + "/rel/one/two"));
}
