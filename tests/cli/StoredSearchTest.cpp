// StoredSearch, the album search of `mox search`, against the module's own
// search (MoxDapDatabase::getSearchResult) on the same files: the same
// outcome, the same albums and the same debug messages (source, operation,
// line, tag and text), for whole, cut, damaged and hostile databases.
#include "StoredSearch.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <list>
#include <string>
#include <vector>

#include "AlbumOutput.h"
#include "DbgCapture.h"
#include "HbFramework/HbFileSys.h"
#include "HbFramework/HbFileSysHost.h"
#include "ModuleLimits.h"
#include "TestDir.h"
#include "moxdb/CatalogueBuilder.h"
#include "moxdb/DbBytes.h"
#include "moxdb/HostileAnswers.h"
#include "private/MoxDapDatabase.h"
#include "private/MoxLimits.h"

namespace {

// What one search gave: its outcome, its albums (as JSON) and its messages.
struct Outcome {
    bool found = false;
    std::string albums;
    std::vector<std::string> messages;
};

std::vector<std::string> messagesOf(const DbgCapture& capture) {
    std::vector<std::string> out;
    for (const HbDbgRecord& record : capture.records()) {
        out.push_back(record.file + "|" + record.function + "|" + std::to_string(record.line) +
                      "|" + std::to_string(record.tag) + "|" + record.text);
    }
    return out;
}

// The stored answer that both searches read: the module's result file.
std::string storeAnswer(const moxdb::Bytes& image) {
    EXPECT_TRUE(HbFileSys::CreateDirectory(HbFileSysHost::getResultDirectory().c_str(), true));
    const std::string path = HbFileSysHost::getResultFilePath();
    std::remove(path.c_str());
    TestDir::writeFile(path, std::vector<unsigned char>(image.begin(), image.end()));
    return path;
}

Outcome moduleSearch(const std::string& toc) {
    DbgCapture capture;
    std::list<HbSMoxDef::AlbumInfo> albums;
    Outcome out;
    out.found = MoxDapDatabase::GetInstance()->getSearchResult(toc, &albums);
    out.albums = albumsToJson(albums).dump();
    out.messages = messagesOf(capture);
    return out;
}

Outcome toolSearch(const std::string& path, const std::string& toc) {
    DbgCapture capture;
    std::list<HbSMoxDef::AlbumInfo> albums;
    Outcome out;
    out.found = StoredSearch(path).run(toc, &albums);
    out.albums = albumsToJson(albums).dump();
    out.messages = messagesOf(capture);
    return out;
}

// Both searches over `image` for each TOC text; `label` names the image.
void expectSameSearches(const std::string& label, const moxdb::Bytes& image,
                        const std::vector<std::string>& tocs) {
    const std::string path = storeAnswer(image);
    for (const std::string& toc : tocs) {
        const Outcome module = moduleSearch(toc);
        const Outcome tool = toolSearch(path, toc);
        EXPECT_EQ(tool.found, module.found) << label << " toc " << toc;
        EXPECT_EQ(tool.albums, module.albums) << label << " toc " << toc;
        EXPECT_EQ(tool.messages, module.messages) << label << " toc " << toc;
    }
}

std::vector<std::string> sampleTocs(const moxdb::CatalogueBuilder& catalogue) {
    std::vector<std::string> tocs;
    for (const moxdb::TocListing& listing : catalogue.tocListing()) {
        tocs.push_back(listing.tocText);
    }
    tocs.push_back("X");  // shorter than one entry: no album passes the count
    return tocs;
}

TEST(StoredSearchTest, Limits_AreTheModules) {
    EXPECT_EQ(ModuleLimits::kResultFileMax, MoxLimits::RESULT_FILE_MAX);
    EXPECT_EQ(ModuleLimits::kSearchWorkMax, MoxLimits::SEARCH_WORK_MAX);
    EXPECT_EQ(ModuleLimits::kSearchTrackMax, MoxLimits::SEARCH_TRACK_MAX);
}

TEST(StoredSearchTest, WholeSample_FindsWhatTheModuleFinds) {
    const moxdb::CatalogueBuilder sample = moxdb::CatalogueBuilder::makeSample();
    expectSameSearches("sample", sample.build(), sampleTocs(sample));
}

TEST(StoredSearchTest, EqualConfidences_KeepTheModulesOrder) {
    const std::string toc = "0000960046E6008D3600D386";
    expectSameSearches("uniform", moxdb::CatalogueBuilder::makeUniform(toc, 6, 3).build(), {toc});
}

// Every cut ends the search at another read, with the module's messages.
TEST(StoredSearchTest, CutSample_FailsAsTheModuleFails) {
    const moxdb::CatalogueBuilder sample = moxdb::CatalogueBuilder::makeSample();
    const moxdb::Bytes whole = sample.build();
    const std::string toc = sample.tocListing().front().tocText;
    for (size_t length = 0; length < whole.size(); length += 7) {
        moxdb::Bytes cut = whole;
        ASSERT_TRUE(moxdb::cutTo(cut, length));
        expectSameSearches("cut to " + std::to_string(length), cut, {toc});
    }
}

// A flipped byte anywhere: offsets, counts, lengths and identifiers gone wrong.
TEST(StoredSearchTest, FlippedBytes_SearchAsTheModuleSearches) {
    const moxdb::CatalogueBuilder sample = moxdb::CatalogueBuilder::makeSample();
    const moxdb::Bytes whole = sample.build();
    const std::string toc = sample.tocListing().front().tocText;
    for (size_t offset = 0; offset < whole.size(); offset += 11) {
        moxdb::Bytes damaged = whole;
        ASSERT_TRUE(moxdb::flipByte(damaged, offset));
        expectSameSearches("flipped at " + std::to_string(offset), damaged, {toc});
    }
}

// The track limit ends the search where the module's ends it.
TEST(StoredSearchTest, TrackListPastTheTrackLimit_EndsAsTheModuleEnds) {
    expectSameSearches("zero track list", moxdb::HostileAnswers::zeroTrackList(5000).build(),
                       {moxdb::HostileAnswers::TOC});
}

// The work limit ends the search where the module's ends it: about five
// million units of text converted by each search, the cheapest way to reach it.
TEST(StoredSearchTest, RepeatedLongTocTexts_EndAtTheWorkLimitAsTheModuleEnds) {
    expectSameSearches("long toc texts", moxdb::HostileAnswers::longTocTexts().build(),
                       {moxdb::HostileAnswers::TOC});
}

TEST(StoredSearchTest, MissingFile_SaysWhatTheModuleSays) {
    const std::string path = storeAnswer({});
    std::remove(path.c_str());
    const Outcome module = moduleSearch("X");
    const Outcome tool = toolSearch(path, "X");
    EXPECT_FALSE(tool.found);
    EXPECT_EQ(tool.messages, module.messages);
}

}  // namespace
