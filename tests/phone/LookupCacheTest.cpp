// The on-disk cache of online answers: what is kept is read back whole,
// keyed by server and disc ID, for --cache-days days; a corrupt file is
// ignored and replaced; files are written whole under a temporary name; the
// folder follows $XDG_CACHE_HOME, else ~/.cache.
#include "moxphone/LookupCache.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "TestDir.h"

namespace {

using Json = nlohmann::json;
using moxphone::FoundAlbum;
using moxphone::LookupCache;

const std::string kServer = "https://musicbrainz.example";
const std::string kDisc = "LyYHtwByCwAcdhuXmLHF.KGB224-";
const std::string kToc = "0000960046E6008D3600D386";
constexpr int64_t kDay = 86400;

std::vector<FoundAlbum> twoAlbums() {
    FoundAlbum first;
    first.album.id = "0a3c2d9e";
    first.album.title = "Blue Hours";
    first.album.genre = "JAZZ";
    first.album.language = "en";
    first.album.media.resize(2);
    first.album.media[0].tracks = {{"Opening", "Mira Quartet", "JAZZ"}};
    first.album.media[1].tracks = {{"Night Walk", "Mira Quartet & Jon Sato", "JAZZ"},
                                   {"夜明け", "Ana", "JAZZ"}};
    first.medium = 2;
    first.confidence = 100;
    FoundAlbum second;
    second.album.id = "rock/1802d003";
    second.album.title = "Long Title";
    second.album.genre = "ROCK";
    second.album.media.resize(1);
    second.album.media[0].tracks = {{"One", "The Band", "ROCK"}};
    second.confidence = 50;
    return {first, second};
}

// Every field of `albums`, one line each, to compare whole answers.
std::string describe(const std::vector<FoundAlbum>& albums) {
    std::ostringstream out;
    for (const FoundAlbum& found : albums) {
        out << found.album.id << "|" << found.album.title << "|" << found.album.genre << "|"
            << found.album.language << "|" << found.medium << "|" << found.confidence << "\n";
        for (const auto& medium : found.album.media) {
            out << " medium\n";
            for (const auto& track : medium.tracks) {
                out << "  " << track.title << "|" << track.performer << "|" << track.genre << "\n";
            }
        }
    }
    return out.str();
}

std::vector<std::string> filesIn(const std::string& dir) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(dir)) {
        names.push_back(entry.path().filename().string());
    }
    return names;
}

int64_t nowSeconds() {
    return std::chrono::duration_cast<std::chrono::seconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

std::string readText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << in.rdbuf();
    return bytes.str();
}

// Rewrites the time the answer at `path` was saved.
void setSaved(const std::string& path, int64_t saved) {
    Json root = Json::parse(readText(path));
    root["saved"] = saved;
    std::ofstream(path, std::ios::binary | std::ios::trunc) << root.dump();
}

// Sets or unsets an environment variable for one test, and puts it back.
class ScopedEnv {
public:
    ScopedEnv(const char* name, const char* value) : mName(name) {
        const char* old = ::getenv(name);
        mHad = old != nullptr;
        mOld = mHad ? old : "";
        value == nullptr ? ::unsetenv(name) : ::setenv(name, value, 1);
    }
    ~ScopedEnv() { mHad ? ::setenv(mName, mOld.c_str(), 1) : ::unsetenv(mName); }

private:
    const char* mName;
    bool mHad;
    std::string mOld;
};

class LookupCacheTest : public ::testing::Test {
protected:
    std::string folder() const { return mDir.file("cache/mox"); }

    TestDir mDir{"LookupCacheTest"};
    LookupCache mCache{mDir.file("cache/mox"), 30};
    std::string mNote;
    std::vector<FoundAlbum> mLoaded;
};

TEST_F(LookupCacheTest, StoredAnswer_IsReadBackWhole) {
    ASSERT_TRUE(mCache.store(kServer, kDisc, kToc, twoAlbums(), &mNote)) << mNote;
    const std::string path = mCache.pathOf(kServer, kDisc);
    EXPECT_EQ(mNote, "the answer is kept in the cache file " + path);
    ASSERT_TRUE(mCache.load(kServer, kDisc, kToc, &mLoaded, &mNote)) << mNote;
    EXPECT_EQ(mNote, "answered from the cache file " + path);
    EXPECT_EQ(describe(mLoaded), describe(twoAlbums()));
}

TEST_F(LookupCacheTest, NoFile_LoadsNothingWithoutANote) {
    EXPECT_FALSE(mCache.load(kServer, kDisc, kToc, &mLoaded, &mNote));
    EXPECT_EQ(mNote, "");
    EXPECT_TRUE(mLoaded.empty());
}

TEST_F(LookupCacheTest, FileName_IsTheServersHashAndTheDiscIdInTheFolder) {
    const std::string path = mCache.pathOf(kServer, kDisc);
    EXPECT_EQ(path.rfind(folder() + "/", 0), 0u) << path;
    const std::string name = path.substr(folder().size() + 1);
    EXPECT_EQ(name.size(), 16u + 1u + kDisc.size() + 5u) << name;
    EXPECT_EQ(name.substr(16), "-LyYHtwByCwAcdhuXmLHF_KGB224-.json");
    EXPECT_EQ(mCache.pathOf(kServer, "../a/b.c").substr(folder().size() + 17), "-___a_b_c.json");
}

TEST_F(LookupCacheTest, Key_IsServerAndDiscId) {
    ASSERT_TRUE(mCache.store(kServer, kDisc, kToc, twoAlbums(), &mNote)) << mNote;
    EXPECT_NE(mCache.pathOf(kServer, kDisc), mCache.pathOf("http://127.0.0.1:8080", kDisc));
    EXPECT_NE(mCache.pathOf(kServer, kDisc), mCache.pathOf(kServer, "other"));
    EXPECT_FALSE(mCache.load("http://127.0.0.1:8080", kDisc, kToc, &mLoaded, &mNote));
    EXPECT_FALSE(mCache.load(kServer, "7m9pTofhIv7OOpXAn3rmMza25VU-", kToc, &mLoaded, &mNote));
    EXPECT_EQ(mNote, "");
}

TEST_F(LookupCacheTest, FileOfAnotherServerUnderThisServersName_IsIgnored) {
    ASSERT_TRUE(mCache.store("http://other", kDisc, kToc, twoAlbums(), &mNote)) << mNote;
    std::filesystem::rename(mCache.pathOf("http://other", kDisc), mCache.pathOf(kServer, kDisc));
    EXPECT_FALSE(mCache.load(kServer, kDisc, kToc, &mLoaded, &mNote));
    EXPECT_EQ(mNote, "the cache file " + mCache.pathOf(kServer, kDisc) +
                         " is not a cached answer of this disc; ignored");
}

TEST_F(LookupCacheTest, AnswerForAnotherTocText_IsIgnored) {
    ASSERT_TRUE(mCache.store(kServer, kDisc, kToc, twoAlbums(), &mNote)) << mNote;
    EXPECT_FALSE(mCache.load(kServer, kDisc, "0000960046E6008D3600D387", &mLoaded, &mNote));
    EXPECT_EQ(mNote, "the cache file " + mCache.pathOf(kServer, kDisc) +
                         " is not a cached answer of this disc; ignored");
    EXPECT_TRUE(mLoaded.empty());
}

TEST_F(LookupCacheTest, AnswerOlderThanTheCacheDays_IsIgnored) {
    LookupCache cache(folder(), 2);
    ASSERT_TRUE(cache.store(kServer, kDisc, kToc, twoAlbums(), &mNote)) << mNote;
    const std::string path = cache.pathOf(kServer, kDisc);
    setSaved(path, nowSeconds() - 2 * kDay - 60);
    EXPECT_FALSE(cache.load(kServer, kDisc, kToc, &mLoaded, &mNote));
    EXPECT_EQ(mNote, "the cache file " + path + " is older than 2 days; ignored");
    EXPECT_TRUE(LookupCache(folder(), 3).load(kServer, kDisc, kToc, &mLoaded, &mNote)) << mNote;
}

TEST_F(LookupCacheTest, AnswerWithinTheCacheDays_IsUsed) {
    LookupCache cache(folder(), 2);
    ASSERT_TRUE(cache.store(kServer, kDisc, kToc, twoAlbums(), &mNote)) << mNote;
    setSaved(cache.pathOf(kServer, kDisc), nowSeconds() - 2 * kDay + 60);
    EXPECT_TRUE(cache.load(kServer, kDisc, kToc, &mLoaded, &mNote)) << mNote;
    EXPECT_EQ(mLoaded.size(), 2u);
}

TEST_F(LookupCacheTest, AnswerSavedInTheFuture_IsIgnoredSayingSo) {
    ASSERT_TRUE(mCache.store(kServer, kDisc, kToc, twoAlbums(), &mNote)) << mNote;
    const std::string path = mCache.pathOf(kServer, kDisc);
    setSaved(path, nowSeconds() + kDay);
    EXPECT_FALSE(mCache.load(kServer, kDisc, kToc, &mLoaded, &mNote));
    EXPECT_EQ(mNote, "the cache file " + path + " was saved later than now; ignored");
}

TEST_F(LookupCacheTest, CorruptFile_IsIgnoredAndReplacedByTheNextAnswer) {
    std::filesystem::create_directories(folder());
    const std::string path = mCache.pathOf(kServer, kDisc);
    const std::string ignored =
        "the cache file " + path + " is not a cached answer of this disc; ignored";
    for (const std::string& corrupt :
         {std::string("{\"format\": 1, \"albums\": [tru"), std::string("\xff\xfe garbage"),
          std::string(""), std::string("[]"),
          Json{{"format", 1},
               {"server", kServer},
               {"toc", kToc},
               {"saved", 0},
               {"albums", Json::array()}}
              .dump()}) {
        std::ofstream(path, std::ios::binary | std::ios::trunc) << corrupt;
        EXPECT_FALSE(mCache.load(kServer, kDisc, kToc, &mLoaded, &mNote)) << corrupt;
        EXPECT_EQ(mNote, ignored) << corrupt;
    }
    ASSERT_TRUE(mCache.store(kServer, kDisc, kToc, twoAlbums(), &mNote)) << mNote;
    ASSERT_TRUE(mCache.load(kServer, kDisc, kToc, &mLoaded, &mNote)) << mNote;
    EXPECT_EQ(describe(mLoaded), describe(twoAlbums()));
}

TEST_F(LookupCacheTest, AlbumsOfWrongFieldsOrMediumOutOfRange_AreACorruptFile) {
    ASSERT_TRUE(mCache.store(kServer, kDisc, kToc, twoAlbums(), &mNote)) << mNote;
    const std::string path = mCache.pathOf(kServer, kDisc);
    const Json stored = Json::parse(readText(path));
    const auto breakages =
        std::vector<std::pair<std::string, Json>>{{"/albums/0/medium", 0},
                                                  {"/albums/0/medium", 3},
                                                  {"/albums/0/medium", -1},
                                                  {"/albums/0/medium", 70000},
                                                  {"/albums/0/title", nullptr},
                                                  {"/albums/0/confidence", 3000000000LL},
                                                  {"/albums/1/media/0/tracks/0/genre", 5},
                                                  {"/albums/1/media", "x"},
                                                  {"/format", 2},
                                                  {"/saved", INT64_MIN},
                                                  {"/saved", UINT64_MAX},
                                                  {"/saved", 1.5}};
    for (const auto& breakage : breakages) {
        Json broken = stored;
        broken[Json::json_pointer(breakage.first)] = breakage.second;
        std::ofstream(path, std::ios::binary | std::ios::trunc) << broken.dump();
        EXPECT_FALSE(mCache.load(kServer, kDisc, kToc, &mLoaded, &mNote)) << breakage.first;
        EXPECT_EQ(mNote,
                  "the cache file " + path + " is not a cached answer of this disc; ignored");
    }
}

TEST_F(LookupCacheTest, ManyMediaWithAMediumBeyondSixteenBits_IsACorruptFile) {
    ASSERT_TRUE(mCache.store(kServer, kDisc, kToc, twoAlbums(), &mNote)) << mNote;
    const std::string path = mCache.pathOf(kServer, kDisc);
    Json broken = Json::parse(readText(path));
    broken["albums"][1]["media"] = "MEDIA";
    broken["albums"][1]["medium"] = 65537;  // 1 when cut to 16 bits
    std::string media = "[";
    for (int i = 0; i < 65537; ++i) {
        media += "{\"tracks\":[]},";
    }
    media.back() = ']';
    std::string text = broken.dump();
    text.replace(text.find("\"MEDIA\""), 7, media);
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
    EXPECT_FALSE(mCache.load(kServer, kDisc, kToc, &mLoaded, &mNote));
    EXPECT_EQ(mNote, "the cache file " + path + " is not a cached answer of this disc; ignored");
}

TEST_F(LookupCacheTest, Store_LeavesOneWholeFileAndNoTemporaryOne) {
    ASSERT_TRUE(mCache.store(kServer, kDisc, kToc, twoAlbums(), &mNote)) << mNote;
    ASSERT_TRUE(mCache.store(kServer, kDisc, kToc, {twoAlbums()[1]}, &mNote)) << mNote;
    const std::string name = mCache.pathOf(kServer, kDisc).substr(folder().size() + 1);
    EXPECT_EQ(filesIn(folder()), (std::vector<std::string>{name}));
    const std::string text = readText(mCache.pathOf(kServer, kDisc));
    EXPECT_EQ(text.back(), '\n');
    EXPECT_TRUE(Json::accept(text));
    ASSERT_TRUE(mCache.load(kServer, kDisc, kToc, &mLoaded, &mNote)) << mNote;
    EXPECT_EQ(describe(mLoaded), describe({twoAlbums()[1]}));
}

TEST_F(LookupCacheTest, StoreThatCannotRename_FailsAndRemovesItsTemporaryFile) {
    const std::string path = mCache.pathOf(kServer, kDisc);
    std::filesystem::create_directories(path + "/occupied");
    EXPECT_FALSE(mCache.store(kServer, kDisc, kToc, twoAlbums(), &mNote));
    EXPECT_EQ(mNote.rfind("cannot write the cache file " + path + ": ", 0), 0u) << mNote;
    EXPECT_EQ(filesIn(folder()).size(), 1u);
}

TEST_F(LookupCacheTest, Store_MakesTheFolderPrivateToTheUser) {
    ASSERT_TRUE(mCache.store(kServer, kDisc, kToc, twoAlbums(), &mNote)) << mNote;
    struct stat info;
    ASSERT_EQ(::stat(folder().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0700u);
}

TEST_F(LookupCacheTest, NoAlbums_AreNotKept) {
    EXPECT_FALSE(mCache.store(kServer, kDisc, kToc, {}, &mNote));
    EXPECT_EQ(mNote, "");
    EXPECT_FALSE(std::filesystem::exists(folder()));
}

TEST_F(LookupCacheTest, ZeroDays_TurnsTheCacheOff) {
    LookupCache off(folder(), 0);
    EXPECT_FALSE(off.enabled());
    EXPECT_FALSE(off.store(kServer, kDisc, kToc, twoAlbums(), &mNote));
    EXPECT_FALSE(std::filesystem::exists(folder()));
    ASSERT_TRUE(mCache.store(kServer, kDisc, kToc, twoAlbums(), &mNote)) << mNote;
    EXPECT_FALSE(off.load(kServer, kDisc, kToc, &mLoaded, &mNote));
    EXPECT_EQ(mNote, "");
}

TEST(LookupCacheFolderTest, XdgCacheHome_GivesItsMoxFolder) {
    const ScopedEnv xdg("XDG_CACHE_HOME", "/var/tmp/xdg");
    const ScopedEnv home("HOME", "/home/someone");
    EXPECT_EQ(LookupCache::defaultDirectory(), "/var/tmp/xdg/mox");
    EXPECT_EQ(LookupCache("", 30).pathOf("s", "d").rfind("/var/tmp/xdg/mox/", 0), 0u);
}

TEST(LookupCacheFolderTest, NoOrRelativeXdgCacheHome_GivesTheHomesDotCache) {
    const ScopedEnv home("HOME", "/home/someone");
    {
        const ScopedEnv xdg("XDG_CACHE_HOME", nullptr);
        EXPECT_EQ(LookupCache::defaultDirectory(), "/home/someone/.cache/mox");
    }
    const ScopedEnv xdg("XDG_CACHE_HOME", "relative/cache");
    EXPECT_EQ(LookupCache::defaultDirectory(), "/home/someone/.cache/mox");
}

TEST(LookupCacheFolderTest, NeitherSet_GivesNoFolderAndACacheThatIsOff) {
    const ScopedEnv xdg("XDG_CACHE_HOME", nullptr);
    const ScopedEnv home("HOME", nullptr);
    EXPECT_EQ(LookupCache::defaultDirectory(), "");
    EXPECT_FALSE(LookupCache("", 30).enabled());
}

}  // namespace
