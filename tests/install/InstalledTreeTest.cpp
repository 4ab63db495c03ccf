// The installed tree, as an application's build and a PC user meet it: each
// test installs the build (cmake --install) into a fresh prefix, then checks
// the layout, the libraries' SONAMEs, the tools' versions and manual pages,
// and builds the installed example program against the tree, with
// find_package(mox), with pkg-config and with a platform of its own, and
// runs it against the installed mox-phone over a Unix socket.
#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "ChildProgram.h"
#include "CliRun.h"
#include "TestDir.h"

namespace fs = std::filesystem;

namespace {

// The three-track disc of the sample catalogue and what the example prints
// for it.
const char kToc[] = "0000960046E6008D3600D386";
const char kAlbum[] =
    "Northern Roads (92%, 3 tracks)\n"
    "  The Harbor Lights - Open Highway\n"
    "  The Harbor Lights - Cold Harbor\n"
    "  The Harbor Lights - Last Exit\n";

const std::string kVersion = MOX_PROJECT_VERSION;
const std::string kLibDir = MOX_TEST_LIBDIR;

std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> out;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        out.push_back(line);
    }
    return out;
}

// The subcommands that `mox --help` lists under "Subcommands:".
std::set<std::string> subcommands(const std::string& help) {
    std::set<std::string> names;
    bool inList = false;
    for (const std::string& line : lines(help)) {
        if (line == "Subcommands:") {
            inList = true;
        } else if (inList && line.empty()) {
            break;
        } else if (inList && line.compare(0, 2, "  ") == 0 && line.size() > 2 && line[2] != ' ') {
            names.insert(line.substr(2, line.find(' ', 2) - 2));
        }
    }
    return names;
}

// Files and symbolic links below `root`, as paths relative to it.
std::set<std::string> treeFiles(const std::string& root) {
    std::set<std::string> files;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root)) {
        if (!entry.is_directory() || entry.is_symlink()) {
            files.insert(entry.path().lexically_relative(root).string());
        }
    }
    return files;
}

// The headers of a source directory, as they are installed below `to`.
void addHeaders(std::set<std::string>& files, const std::string& from, const std::string& to) {
    for (const std::string& header : treeFiles(from)) {
        files.insert(to + "/" + header);
    }
}

class InstalledTreeTest : public ::testing::Test {
protected:
    InstalledTreeTest() : dir("InstalledTreeTest"), prefix(dir.file("prefix")) {}

    void SetUp() override {
        const CliResult installed =
            run(MOX_TEST_CMAKE, {"--install", MOX_TEST_BUILD_DIR, "--prefix", prefix});
        ASSERT_EQ(0, installed.status) << installed.out << installed.err;
    }

    CliResult run(const std::string& program, const std::vector<std::string>& args) {
        return runCli(program, args, dir);
    }

    std::string installed(const std::string& path) const { return prefix + "/" + path; }

    // Configures and builds a project against the installed tree with the
    // build's compiler and flags; warnings are errors.
    void build(const std::string& source, const std::string& binary,
               const std::vector<std::string>& options) {
        std::vector<std::string> args = {"-S",
                                         source,
                                         "-B",
                                         dir.file(binary),
                                         "-G",
                                         MOX_TEST_GENERATOR,
                                         "-DCMAKE_MAKE_PROGRAM=" MOX_TEST_MAKE_PROGRAM,
                                         "-DCMAKE_CXX_COMPILER=" MOX_TEST_CXX_COMPILER,
                                         "-DCMAKE_CXX_FLAGS=" MOX_TEST_CXX_FLAGS,
                                         "-DCMAKE_BUILD_TYPE=Debug",
                                         "-DMOX_EXAMPLE_WERROR=ON"};
        args.insert(args.end(), options.begin(), options.end());
        const CliResult configured = run(MOX_TEST_CMAKE, args);
        ASSERT_EQ(0, configured.status) << configured.out << configured.err;
        const CliResult built = run(MOX_TEST_CMAKE, {"--build", dir.file(binary)});
        ASSERT_EQ(0, built.status) << built.out << built.err;
    }

    // Runs `example` for the three-track disc against the installed
    // mox-phone, which must read the installed catalogue.
    CliResult lookUp(const std::string& example) {
        const std::string socket = dir.file("phone.sock");
        ChildProgram phone(installed("bin/mox-phone"), {"--listen", "unix:" + socket});
        EXPECT_EQ("mox-phone: catalogue " + fs::canonical(prefix).string() +
                      "/share/mox/catalog/sample.json: 8 discs",
                  phone.waitForLine("mox-phone: catalogue "));
        EXPECT_EQ("mox-phone: listening on unix:" + socket,
                  phone.waitForLine("mox-phone: listening on "));
        ::setenv("OST_LINKAPP_ENDPOINT", ("unix:" + socket).c_str(), 1);
        ::setenv("HB_TIMER_SCALE", "0.1", 1);
        const CliResult looked = run(example, {kToc});
        phone.signal(SIGTERM);
        EXPECT_EQ(0, phone.wait());
        EXPECT_NE(std::string::npos, phone.err().find("mox-phone: -> 0x8012 chunk 0/1 status 0"))
            << phone.err();
        return looked;
    }

    TestDir dir;
    const std::string prefix;
};

}  // namespace

// ---- Layout ----

TEST_F(InstalledTreeTest, Install_EveryFileInItsUsualDirectoryAndNothingElse) {
    std::set<std::string> expected = {
        "bin/mox",
        "bin/mox-phone",
        "bin/mox-sampledb",
        kLibDir + "/cmake/mox/moxConfig.cmake",
        kLibDir + "/cmake/mox/moxConfigVersion.cmake",
        kLibDir + "/cmake/mox/moxPlatformTargets.cmake",
        kLibDir + "/cmake/mox/moxPlatformTargets-" MOX_TEST_CONFIG ".cmake",
        kLibDir + "/cmake/mox/moxTargets.cmake",
        kLibDir + "/cmake/mox/moxTargets-" MOX_TEST_CONFIG ".cmake",
        kLibDir + "/pkgconfig/mox.pc",
        kLibDir + "/pkgconfig/mox-platform.pc",
        kLibDir + "/wireshark/plugins/moxlink.lua",
        "share/doc/mox/README.md",
        "share/doc/mox/examples/CMakeLists.txt",
        "share/doc/mox/examples/lookup.cpp",
        "share/man/man1/mox.1.gz",
        "share/man/man1/mox-phone.1.gz",
        "share/man/man1/mox-sampledb.1.gz",
        "share/mox/catalog/catalog.schema.json",
        "share/mox/catalog/sample.json",
    };
    for (const char* library : {"mox", "hbframework", "ostlinkapp"}) {
        const std::string name = kLibDir + "/lib" + library + ".so";
        expected.insert({name, name + ".0", name + "." + kVersion});
    }
    addHeaders(expected, MOX_TEST_SOURCE_DIR "/include", "include/mox");
    addHeaders(expected, MOX_TEST_SOURCE_DIR "/platform/host/include", "include/mox/host");
    for (const std::string& doc : treeFiles(MOX_TEST_SOURCE_DIR "/docs")) {
        expected.insert("share/doc/mox/" + doc);
    }
    const CliResult help = run(installed("bin/mox"), {"--help"});
    for (const std::string& name : subcommands(help.out)) {
        expected.insert("share/man/man1/mox-" + name + ".1.gz");
    }

    const std::set<std::string> found = treeFiles(prefix);
    std::vector<std::string> missing;
    std::set_difference(expected.begin(), expected.end(), found.begin(), found.end(),
                        std::back_inserter(missing));
    std::vector<std::string> unexpected;
    std::set_difference(found.begin(), found.end(), expected.begin(), expected.end(),
                        std::back_inserter(unexpected));
    EXPECT_EQ(std::vector<std::string>{}, missing);
    EXPECT_EQ(std::vector<std::string>{}, unexpected);
    EXPECT_LT(60u, found.size());
}

TEST_F(InstalledTreeTest, Libraries_CarryTheirSonameAndARunPathBesideThemselves) {
    for (const std::string library : {"mox", "hbframework", "ostlinkapp"}) {
        const std::string base = installed(kLibDir + "/lib" + library + ".so");
        EXPECT_EQ("lib" + library + ".so.0", fs::read_symlink(base).string());
        EXPECT_EQ("lib" + library + ".so." + kVersion, fs::read_symlink(base + ".0").string());
        const CliResult dynamic = run(MOX_TEST_READELF, {"-d", base + "." + kVersion});
        ASSERT_EQ(0, dynamic.status) << dynamic.err;
        EXPECT_NE(std::string::npos, dynamic.out.find("Library soname: [lib" + library + ".so.0]"))
            << dynamic.out;
        EXPECT_NE(std::string::npos, dynamic.out.find("Library runpath: [$ORIGIN]")) << dynamic.out;
    }
}

TEST_F(InstalledTreeTest, Tools_PrintTheProjectVersion) {
    const CliResult mox = run(installed("bin/mox"), {"--version"});
    EXPECT_EQ(0, mox.status);
    EXPECT_EQ("mox " + kVersion + "\n", mox.out);
    const CliResult phone = run(installed("bin/mox-phone"), {"--version"});
    EXPECT_EQ(0, phone.status);
    EXPECT_EQ("mox-phone " + kVersion + "\n", phone.out);
}

// ---- Manual pages ----

TEST_F(InstalledTreeTest, ManPages_OneForMoxAndEachSubcommand) {
    const std::set<std::string> listed = subcommands(run(installed("bin/mox"), {"--help"}).out);
    for (const char* known : {"dump", "search", "toc"}) {
        EXPECT_EQ(1u, listed.count(known)) << known;
    }
    for (const std::string& name : listed) {
        const std::string page = installed("share/man/man1/mox-" + name + ".1.gz");
        ASSERT_TRUE(fs::is_regular_file(page)) << page;
        ::setenv("MANWIDTH", "80", 1);
        const CliResult shown = run(MOX_TEST_MAN, {"-l", page});
        EXPECT_EQ(0, shown.status);
        EXPECT_NE(std::string::npos, shown.out.find("mox " + name + " [OPTIONS]")) << shown.out;
    }
}

TEST_F(InstalledTreeTest, ManPages_RenderWithoutWarnings) {
    ::setenv("LC_ALL", "C.UTF-8", 1);
    ::setenv("MANROFFSEQ", "", 1);
    ::setenv("MANWIDTH", "80", 1);
    size_t pages = 0;
    for (const fs::directory_entry& entry : fs::directory_iterator(installed("share/man/man1"))) {
        const std::string page = entry.path().string();
        const CliResult checked =
            run(MOX_TEST_MAN, {"--warnings", "-E", "UTF-8", "-l", "-Tutf8", "-Z", page});
        EXPECT_EQ(0, checked.status) << page;
        EXPECT_EQ("", checked.err) << page;
        const CliResult shown = run(MOX_TEST_MAN, {"-l", page});
        EXPECT_EQ(0, shown.status) << page;
        EXPECT_EQ("", shown.err) << page;
        EXPECT_NE(std::string::npos, shown.out.find("NAME\n")) << page;
        ++pages;
    }
    EXPECT_LE(6u, pages);
}

TEST_F(InstalledTreeTest, ManPages_EachHasExitStatusEnvironmentFilesAndExamples) {
    ::setenv("MANWIDTH", "80", 1);
    size_t pages = 0;
    for (const fs::directory_entry& entry : fs::directory_iterator(installed("share/man/man1"))) {
        const std::string page = entry.path().string();
        const CliResult shown = run(MOX_TEST_MAN, {"-l", page});
        EXPECT_EQ(0, shown.status) << page;
        for (const char* section :
             {"\nEXIT STATUS\n", "\nENVIRONMENT\n", "\nFILES\n", "\nEXAMPLES\n"}) {
            EXPECT_NE(std::string::npos, shown.out.find(section)) << page << ": " << section;
        }
        for (const char* name :
             {"HB_TIMER_SCALE", "OST_LINKAPP_ENDPOINT", "HB_DBG_OUTPUT", "MOX_RESULT_DIR"}) {
            EXPECT_NE(std::string::npos, shown.out.find(name)) << page << ": " << name;
        }
        for (const char* note : {"UINT", "REQUIRED", "INT in", "[Exactly"}) {
            EXPECT_EQ(std::string::npos, shown.out.find(note)) << page << ": " << note;
        }
        ++pages;
    }
    EXPECT_LE(7u, pages);
}

// ---- An application's build against the tree ----

TEST_F(InstalledTreeTest, PkgConfig_NamesTheInstalledPrefix) {
    ::setenv("PKG_CONFIG_PATH", installed(kLibDir + "/pkgconfig").c_str(), 1);
    const CliResult flags = run(MOX_TEST_PKG_CONFIG, {"--cflags", "--libs", "mox"});
    EXPECT_EQ(0, flags.status) << flags.err;
    EXPECT_EQ("-I" + prefix + "/include/mox -I" + prefix + "/include/mox/host -L" + prefix + "/" +
                  kLibDir + " -lmox -lhbframework -lostlinkapp \n",
              flags.out);
    const CliResult version = run(MOX_TEST_PKG_CONFIG, {"--modversion", "mox"});
    EXPECT_EQ(kVersion + "\n", version.out);
}

TEST_F(InstalledTreeTest, FindPackage_ExampleBuiltAgainstTheTree_LooksTheDiscUpThroughThePhone) {
    build(installed("share/doc/mox/examples"), "example", {"-DCMAKE_PREFIX_PATH=" + prefix});
    const CliResult looked = lookUp(dir.file("example/mox-example"));
    EXPECT_EQ(0, looked.status) << looked.err;
    EXPECT_EQ(kAlbum, looked.out);
    EXPECT_EQ("", looked.err);
}

TEST_F(InstalledTreeTest, PkgConfig_ExampleBuiltAgainstTheTree_LooksTheDiscUpThroughThePhone) {
    ::setenv("PKG_CONFIG_PATH", installed(kLibDir + "/pkgconfig").c_str(), 1);
    build(installed("share/doc/mox/examples"), "example",
          {"-DMOX_EXAMPLE_PKG_CONFIG=ON", "-DPKG_CONFIG_EXECUTABLE=" MOX_TEST_PKG_CONFIG});
    const CliResult looked = lookUp(dir.file("example/mox-example"));
    EXPECT_EQ(0, looked.status) << looked.err;
    EXPECT_EQ(kAlbum, looked.out);
    EXPECT_EQ("", looked.err);
}

TEST_F(InstalledTreeTest, FindPackage_WhenTheProjectBringsItsPlatform_TheHostEditionStaysOut) {
    build(MOX_TEST_SOURCE_DIR "/tests/install/own-platform", "own",
          {"-DCMAKE_PREFIX_PATH=" + prefix, "-DPLATFORM_PREFIX=" + prefix,
           "-DEXAMPLE_SOURCE=" + installed("share/doc/mox/examples/lookup.cpp")});
    const CliResult looked = lookUp(dir.file("own/mox-example"));
    EXPECT_EQ(0, looked.status) << looked.err;
    EXPECT_EQ(kAlbum, looked.out);
}

TEST_F(InstalledTreeTest, FindPackage_WhenAnotherMajorVersionIsAsked_Refused) {
    const std::string project = dir.file("major");
    fs::create_directories(project);
    const std::string text =
        "cmake_minimum_required(VERSION 3.16)\n"
        "project(major LANGUAGES NONE)\n"
        "find_package(mox 1.0 CONFIG REQUIRED)\n";
    TestDir::writeFile(project + "/CMakeLists.txt",
                       std::vector<unsigned char>(text.begin(), text.end()));
    const CliResult configured = run(MOX_TEST_CMAKE, {"-S", project, "-B", dir.file("major-build"),
                                                      "-DCMAKE_PREFIX_PATH=" + prefix});
    EXPECT_NE(0, configured.status);
    EXPECT_NE(std::string::npos, configured.err.find("version: " + kVersion)) << configured.err;
}
