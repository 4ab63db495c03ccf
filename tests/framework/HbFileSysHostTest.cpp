// Where the host edition keeps the module's result directory, and what it
// refuses: the choice (setter, MOX_RESULT_DIR, private default), the mapping
// of the head unit's path through HbFileSys and fopen64, and the checks.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "DbgCapture.h"
#include "HbFramework/HbFileSys.h"
#include "HbFramework/HbFileSysHost.h"
#include "HbFramework/HbSingletonFinalizer.h"
#include "TestDir.h"

// The module's own opening of its result file: the host links of the module
// reroute it (-Wl,--wrap=fopen64); a test calls the rerouted function itself.
extern "C" FILE* __wrap_fopen64(const char* path, const char* mode);

namespace {

const std::string kHeadUnitDir = "/temp/Infotainment/HbSDK/MOX/";
const std::string kHeadUnitFile = kHeadUnitDir + "dbupdateresponse.dap3";

int modeOf(const std::string& path) {
    struct stat info;
    return ::lstat(path.c_str(), &info) == 0 ? static_cast<int>(info.st_mode & 07777) : -1;
}

// True when a folder above `path` is sticky and world-writable (as /tmp is):
// every folder below it is then checked.
bool belowAStickyFolder(const std::string& path) {
    for (size_t end = path.find('/', 1); end != std::string::npos; end = path.find('/', end + 1)) {
        struct stat info;
        if (::stat(path.substr(0, end).c_str(), &info) == 0 && (info.st_mode & S_ISVTX) != 0 &&
            (info.st_mode & S_IWOTH) != 0) {
            return true;
        }
    }
    return false;
}

// Each test starts from the default choice, with TMPDIR in its scratch
// folder and no XDG_RUNTIME_DIR; the process's own setting is put back.
class HbFileSysHostTest : public ::testing::Test {
protected:
    HbFileSysHostTest() : dir("HbFileSysHostTest"), mSaved(HbFileSysHost::getResultDirectory()) {
        HbFileSysHost::setResultDirectory("");
        ::unsetenv("MOX_RESULT_DIR");
        ::unsetenv("XDG_RUNTIME_DIR");
        ::setenv("TMPDIR", dir.path().c_str(), 1);
    }
    ~HbFileSysHostTest() override {
        HbSingletonFinalizer::finalize();
        ::unsetenv("MOX_RESULT_DIR");
        ::unsetenv("TMPDIR");
        HbFileSysHost::setResultDirectory(mSaved);
    }

    // A directory of the test's, mode 0700, with its trailing slash.
    std::string privateDir(const std::string& name) {
        const std::string path = dir.file(name);
        EXPECT_EQ(::mkdir(path.c_str(), 0700), 0);
        return path + "/";
    }

    TestDir dir;
    DbgCapture dbg;

private:
    const std::string mSaved;
};

TEST_F(HbFileSysHostTest, Default_NothingGiven_PrivateDirectoryInTmpdirMode0700) {
    const std::string used = HbFileSysHost::getResultDirectory();
    EXPECT_EQ(used.rfind(dir.path() + "/mox-", 0), 0u) << used;
    EXPECT_EQ(used.back(), '/');
    EXPECT_EQ(modeOf(used), 0700);
    EXPECT_EQ(HbFileSysHost::getResultDirectoryOrigin(), HbFileSysHost::en_ORIGIN_PRIVATE);
    EXPECT_EQ(HbFileSysHost::getResultDirectory(), used);  // made once
}

TEST_F(HbFileSysHostTest, Default_Finalize_RemovesThePrivateDirectoryWithItsFile) {
    const std::string used = HbFileSysHost::getResultDirectory();
    TestDir::writeFile(used + "dbupdateresponse.dap3", {1, 2, 3});
    HbSingletonFinalizer::finalize();
    EXPECT_FALSE(std::filesystem::exists(used));
}

TEST_F(HbFileSysHostTest, Default_PrivateXdgRuntimeDir_PrivateDirectoryInsideItsMoxFolder) {
    const std::string runtime = privateDir("runtime");
    ::setenv("XDG_RUNTIME_DIR", runtime.c_str(), 1);
    const std::string used = HbFileSysHost::getResultDirectory();
    EXPECT_EQ(used.rfind(runtime + "mox/", 0), 0u) << used;
    EXPECT_EQ(modeOf(runtime + "mox"), 0700);
    EXPECT_EQ(modeOf(used), 0700);
}

TEST_F(HbFileSysHostTest, Default_XdgRuntimeDirOthersCanRead_PassedOverForTmpdir) {
    const std::string runtime = privateDir("runtime");
    ASSERT_EQ(::chmod(runtime.c_str(), 0755), 0);
    ::setenv("XDG_RUNTIME_DIR", runtime.c_str(), 1);
    EXPECT_EQ(HbFileSysHost::getResultDirectory().rfind(dir.path() + "/mox-", 0), 0u);
}

TEST_F(HbFileSysHostTest, Environment_MoxResultDir_WinsOverTheDefaultSlashAdded) {
    ::setenv("MOX_RESULT_DIR", dir.file("env").c_str(), 1);
    EXPECT_EQ(HbFileSysHost::getResultDirectory(), dir.file("env") + "/");
    EXPECT_EQ(HbFileSysHost::getResultDirectoryOrigin(), HbFileSysHost::en_ORIGIN_ENVIRONMENT);
    EXPECT_EQ(HbFileSysHost::getResultFilePath(), dir.file("env") + "/dbupdateresponse.dap3");
}

TEST_F(HbFileSysHostTest, Setter_WinsOverTheEnvironment) {
    ::setenv("MOX_RESULT_DIR", dir.file("env").c_str(), 1);
    HbFileSysHost::setResultDirectory(dir.file("set/"));
    EXPECT_EQ(HbFileSysHost::getResultDirectory(), dir.file("set/"));
    EXPECT_EQ(HbFileSysHost::getResultDirectoryOrigin(), HbFileSysHost::en_ORIGIN_SETTER);
}

TEST_F(HbFileSysHostTest, UsePrivate_WinsOverSetterAndEnvironment) {
    ::setenv("MOX_RESULT_DIR", dir.file("env").c_str(), 1);
    HbFileSysHost::setResultDirectory(dir.file("set/"));
    const std::string used = HbFileSysHost::usePrivateResultDirectory();
    EXPECT_EQ(used.rfind(dir.path() + "/mox-", 0), 0u) << used;
    EXPECT_EQ(HbFileSysHost::getResultDirectory(), used);
    EXPECT_EQ(HbFileSysHost::getResultDirectoryOrigin(), HbFileSysHost::en_ORIGIN_PRIVATE);
}

TEST_F(HbFileSysHostTest, MapPath_HeadUnitDirectoryAndItsFiles_OtherPathsAsTheyAre) {
    HbFileSysHost::setResultDirectory(dir.file("r/"));
    EXPECT_EQ(HbFileSysHost::mapPath(kHeadUnitFile.c_str()), dir.file("r/dbupdateresponse.dap3"));
    EXPECT_EQ(HbFileSysHost::mapPath(kHeadUnitDir.c_str()), dir.file("r/"));
    EXPECT_EQ(HbFileSysHost::mapPath("/temp/Infotainment/HbSDK/MOX"), dir.file("r"));
    EXPECT_EQ(HbFileSysHost::mapPath("/temp/Infotainment/HbSDK/MOXY"),
              "/temp/Infotainment/HbSDK/MOXY");
    EXPECT_EQ(HbFileSysHost::mapPath("/etc/passwd"), "/etc/passwd");
}

TEST_F(HbFileSysHostTest, CreateDirectory_HeadUnitPath_MakesTheMappedOneMode0700) {
    HbFileSysHost::setResultDirectory(dir.file("a/b/MOX/"));
    EXPECT_FALSE(HbFileSys::IsExist(kHeadUnitDir.c_str()));
    EXPECT_TRUE(HbFileSys::CreateDirectory(kHeadUnitDir.c_str(), true));
    EXPECT_TRUE(HbFileSys::IsExist(kHeadUnitDir.c_str()));
    EXPECT_EQ(modeOf(dir.file("a/b/MOX")), 0700);
    EXPECT_FALSE(std::filesystem::exists("/temp/Infotainment/HbSDK/MOX"));
    EXPECT_TRUE(dbg.texts().empty());
}

TEST_F(HbFileSysHostTest, Fopen64_HeadUnitFile_OpensTheMappedFileMode0600) {
    HbFileSysHost::setResultDirectory(privateDir("r"));
    FILE* file = __wrap_fopen64(kHeadUnitFile.c_str(), "ab");
    ASSERT_NE(file, nullptr);
    std::fputs("abc", file);
    std::fclose(file);
    EXPECT_EQ(TestDir::readFile(dir.file("r/dbupdateresponse.dap3")),
              (std::vector<unsigned char>{'a', 'b', 'c'}));
    EXPECT_EQ(modeOf(dir.file("r/dbupdateresponse.dap3")), 0600);
    file = __wrap_fopen64(kHeadUnitFile.c_str(), "w");
    ASSERT_NE(file, nullptr);
    std::fclose(file);
    EXPECT_TRUE(TestDir::readFile(dir.file("r/dbupdateresponse.dap3")).empty());
}

TEST_F(HbFileSysHostTest, Fopen64_ResultFileIsASymbolicLink_RefusedTargetUntouched) {
    const std::string used = privateDir("r");
    HbFileSysHost::setResultDirectory(used);
    TestDir::writeFile(dir.file("target"), {'t'});
    ASSERT_EQ(::symlink(dir.file("target").c_str(), (used + "dbupdateresponse.dap3").c_str()), 0);
    for (const char* mode : {"w", "ab", "r"}) {
        EXPECT_EQ(__wrap_fopen64(kHeadUnitFile.c_str(), mode), nullptr) << mode;
    }
    EXPECT_EQ(TestDir::readFile(dir.file("target")), (std::vector<unsigned char>{'t'}));
    const std::string line = "result file " + used + "dbupdateresponse.dap3 is a symbolic link\n";
    EXPECT_EQ(dbg.texts(), (std::vector<std::string>{line, line, line}));
    EXPECT_EQ(dbg.records().at(0).file, HbFileSysHost::SOURCE);
}

TEST_F(HbFileSysHostTest, Fopen64_ResultFileWithTwoHardLinks_RefusedNotTruncated) {
    const std::string used = privateDir("r");
    HbFileSysHost::setResultDirectory(used);
    TestDir::writeFile(dir.file("other"), {'o'});
    ASSERT_EQ(::link(dir.file("other").c_str(), (used + "dbupdateresponse.dap3").c_str()), 0);
    EXPECT_EQ(__wrap_fopen64(kHeadUnitFile.c_str(), "w"), nullptr);
    EXPECT_EQ(TestDir::readFile(dir.file("other")), (std::vector<unsigned char>{'o'}));
    EXPECT_EQ(dbg.texts(), (std::vector<std::string>{"result file " + used +
                                                     "dbupdateresponse.dap3 has 2 hard links\n"}));
}

TEST_F(HbFileSysHostTest, Fopen64_ResultFileIsAFifo_RefusedWithoutWaiting) {
    const std::string used = privateDir("r");
    HbFileSysHost::setResultDirectory(used);
    ASSERT_EQ(::mkfifo((used + "dbupdateresponse.dap3").c_str(), 0600), 0);
    EXPECT_EQ(__wrap_fopen64(kHeadUnitFile.c_str(), "r"), nullptr);
    EXPECT_EQ(dbg.texts(),
              (std::vector<std::string>{"result file " + used +
                                        "dbupdateresponse.dap3 is not a regular file\n"}));
}

TEST_F(HbFileSysHostTest, Fopen64_OtherPaths_OpenedAsTheyAre) {
    TestDir::writeFile(dir.file("plain"), {'p'});
    ASSERT_EQ(::symlink(dir.file("plain").c_str(), dir.file("link").c_str()), 0);
    FILE* file = __wrap_fopen64(dir.file("link").c_str(), "r");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(std::fgetc(file), 'p');
    std::fclose(file);
    EXPECT_TRUE(dbg.texts().empty());
}

TEST_F(HbFileSysHostTest, CreateDirectory_GroupWritableResultDirectory_RefusedOnceInWords) {
    const std::string used = privateDir("shared");
    ASSERT_EQ(::chmod(used.c_str(), 0770), 0);
    HbFileSysHost::setResultDirectory(used);
    EXPECT_FALSE(HbFileSys::IsExist(kHeadUnitDir.c_str()));
    EXPECT_FALSE(HbFileSys::CreateDirectory(kHeadUnitDir.c_str(), true));
    EXPECT_EQ(dbg.texts(), (std::vector<std::string>{"result directory " + dir.file("shared") +
                                                     " is writable by other users\n"}));
    EXPECT_EQ(dbg.textsOf("CreateDirectory").size(), 1u);
}

TEST_F(HbFileSysHostTest, CheckDirectory_ParentWritableBelowAStickyFolder_Refused) {
    const std::string sticky = privateDir("tmp");
    ASSERT_EQ(::chmod(sticky.c_str(), 01777), 0);
    const std::string parent = sticky + "open";
    ASSERT_EQ(::mkdir(parent.c_str(), 0700), 0);
    ASSERT_EQ(::chmod(parent.c_str(), 0777), 0);
    std::string why;
    EXPECT_FALSE(HbFileSysHost::checkDirectory(parent + "/MOX/", &why));
    EXPECT_EQ(why, "result directory " + parent + "/MOX: parent " + parent +
                       " is writable by other users");
}

TEST_F(HbFileSysHostTest, CheckDirectory_ParentWritableOutsideAStickyFolder_NotChecked) {
    if (belowAStickyFolder(dir.path())) {
        GTEST_SKIP() << dir.path() << " lies below a sticky world-writable folder";
    }
    const std::string open = privateDir("open");
    ASSERT_EQ(::chmod(open.c_str(), 0777), 0);
    std::string why;
    EXPECT_TRUE(HbFileSysHost::checkDirectory(open + "MOX/", &why)) << why;
}

TEST_F(HbFileSysHostTest, CheckDirectory_LinkOfTheUsersToAPrivateDirectory_Followed) {
    const std::string target = privateDir("target");
    ASSERT_EQ(::symlink(target.c_str(), dir.file("link").c_str()), 0);
    std::string why;
    EXPECT_TRUE(HbFileSysHost::checkDirectory(dir.file("link/"), &why)) << why;
    ASSERT_EQ(::chmod(target.c_str(), 0777), 0);
    EXPECT_FALSE(HbFileSysHost::checkDirectory(dir.file("link/"), &why));
    EXPECT_EQ(why, "result directory " + dir.file("link") + " is writable by other users");
}

TEST_F(HbFileSysHostTest, CheckDirectory_DanglingLink_Refused) {
    ASSERT_EQ(::symlink(dir.file("nowhere").c_str(), dir.file("link").c_str()), 0);
    std::string why;
    EXPECT_FALSE(HbFileSysHost::checkDirectory(dir.file("link/MOX/"), &why));
    EXPECT_EQ(why, "result directory " + dir.file("link/MOX") + ": " + dir.file("link") +
                       " is a symbolic link to nothing");
}

}  // namespace
