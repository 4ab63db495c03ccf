// Whole conversations with the phone, as the unit drives them: a lookup from
// connect to the stored database that the reader then searches, a silent
// phone, failure codes, the link dropping in each state, and a result file
// that cannot be written.
#include <gtest/gtest.h>

#include <sys/resource.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "DbgCapture.h"
#include "HbFramework/Foundation/HbObserver.h"
#include "HbFramework/HbFileSysHost.h"
#include "HbFramework/HbLTimerMng.h"
#include "MoxDbWriter.h"
#include "MoxProtocolHarness.h"
#include "TestDir.h"
#include "private/MoxDapDatabase.h"
#include "private/MoxProtocol.h"
#include "private/MoxState.h"

namespace {

using namespace moxtest;

class MoxProtocolScenarioTest : public ProtocolFixture {};

// Splits `data` into `count` chunks as the phone sends them (the last one
// takes the rest), indexes 0 to count-1.
std::vector<Bytes> splitIntoChunks(const Bytes& data, uint16 count) {
    std::vector<Bytes> frames;
    const size_t part = (data.size() + count - 1) / count;
    for (uint16 i = 0; i < count; ++i) {
        const size_t begin = std::min(data.size(), part * i);
        const size_t end = i + 1 == count ? data.size() : std::min(data.size(), part * (i + 1));
        frames.push_back(chunk(i, count, Bytes(data.begin() + begin, data.begin() + end)));
    }
    return frames;
}

}  // namespace

// --- A whole lookup ---------------------------------------------------------------------

TEST_F(MoxProtocolScenarioTest, WholeLookup_StoredDatabaseIsFoundByTheReader) {
    const moxdb::Bytes built = moxdb::CatalogueBuilder::makeUniform(kToc, 3, 3).build();
    const Bytes database(built.begin(), built.end());
    ASSERT_GT(database.size(), 16u);

    protocol->sendCmdConnect();
    feed(answer(0x8001));
    startLookup();
    feed(answer(0x8010));
    feed(notice(static_cast<uint32>(database.size())));
    const std::vector<Bytes> chunks = splitIntoChunks(database, 4);
    for (const Bytes& frame : chunks) {
        feed(frame);
    }

    EXPECT_EQ(
        Texts({"state 101", "frame 00 01 01", "state 102", "link 1", "ios 1", "state 103",
               "frame " + hex(lookupFrame(kToc, 1, 2, 3)), "frame 00 12 00 00 03 e8", "state 0"}),
        recorder->events());
    EXPECT_TRUE(dbg.texts().empty());
    EXPECT_EQ(0u, armed());
    EXPECT_EQ(database, resultFile());

    std::list<HbSMoxDef::AlbumInfo> albums;
    ASSERT_TRUE(MoxDapDatabase::GetInstance()->getSearchResult(kToc, &albums));
    ASSERT_EQ(3u, albums.size());
    std::vector<std::string> names;
    std::vector<int32> confidences;
    for (const HbSMoxDef::AlbumInfo& album : albums) {
        names.push_back(album.AlbumName);
        confidences.push_back(album.Confidence);
        EXPECT_EQ(3u, album.Tracks.size());
    }
    EXPECT_EQ(std::vector<std::string>({"Album 0", "Album 1", "Album 2"}), names);
    EXPECT_EQ(std::vector<int32>({100, 99, 98}), confidences);
}

TEST_F(MoxProtocolScenarioTest, ThreeChunkAnswer_EveryStepExactly) {
    startLookup();
    feed(answer(0x8010));
    feed(notice(9));
    feed(chunk(0, 3, text("abc")));
    EXPECT_EQ(103u, state->getResultState());
    feed(chunk(1, 3, text("def")));
    EXPECT_EQ(103u, state->getResultState());
    feed(chunk(2, 3, text("ghi")));
    EXPECT_EQ(Texts({"state 103", "frame " + hex(lookupFrame(kToc, 1, 2, 3)),
                     "frame 00 12 00 00 03 e8", "state 0"}),
              recorder->events());
    EXPECT_EQ(text("abcdefghi"), resultFile());
    EXPECT_EQ(0u, armed());
    // After completion the state stays 0 until the next command.
    advance(30000);
    EXPECT_EQ(0u, state->getResultState());
}

TEST_F(MoxProtocolScenarioTest, TwoLookupsInARow_SecondAnswerReplacesTheFirst) {
    startLookup();
    feed(notice(5));
    feed(chunk(0, 1, text("first")));
    startLookup();
    feed(notice(6));
    feed(chunk(0, 2, text("sec")));
    feed(chunk(1, 2, text("ond")));
    EXPECT_EQ(text("second"), resultFile());
    EXPECT_EQ(States({103, 0, 103, 0}), recorder->states());
}

// --- A silent phone -------------------------------------------------------------------------

TEST_F(MoxProtocolScenarioTest, SilentPhoneAfterLookup_TimeoutCancelThenIdle) {
    startLookup();
    recorder->clear();
    advance(10000);
    EXPECT_EQ(Texts({"state 4", "state 104", "frame 0f ff"}), recorder->events());
    advance(10000);
    EXPECT_EQ(Texts({"state 4", "state 104", "frame 0f ff", "state 100"}), recorder->events());
    EXPECT_EQ(0u, armed());
    advance(10000);  // nothing is retried
    EXPECT_EQ(4u, recorder->events().size());
    EXPECT_TRUE(dbg.texts().empty());
}

TEST_F(MoxProtocolScenarioTest, SilentPhoneAfterAcknowledge_TimeoutCancelThenIdle) {
    startLookup();
    feed(answer(0x8010));
    feed(notice(10));
    recorder->clear();
    advance(10000);
    advance(10000);
    EXPECT_EQ(Texts({"state 4", "state 104", "frame 0f ff", "state 100"}), recorder->events());
}

TEST_F(MoxProtocolScenarioTest, SilentPhoneBetweenChunks_TimeoutCancelFileKeepsReceivedPart) {
    startLookup();
    feed(notice(9));
    feed(chunk(0, 3, text("abc")));
    recorder->clear();
    advance(10000);
    advance(10000);
    EXPECT_EQ(Texts({"state 4", "state 104", "frame 0f ff", "state 100"}), recorder->events());
    EXPECT_EQ(text("abc"), resultFile());
}

TEST_F(MoxProtocolScenarioTest, SilentPhoneOnConnect_ErrorAndNothingElse) {
    protocol->sendCmdConnect();
    recorder->clear();
    advance(10000);
    EXPECT_EQ(Texts({"state 20"}), recorder->events());
    advance(10000);
    EXPECT_EQ(Texts({"state 20"}), recorder->events());
    EXPECT_FALSE(state->getIsAppLinkState());
}

TEST_F(MoxProtocolScenarioTest, CancelAnswered_IdleAndTimerStoppedNotConnected) {
    protocol->sendCmdConnect();
    feed(answer(0x8001));
    startLookup();
    advance(10000);
    recorder->clear();
    feed(answer(0x8FFF));
    // After a cancel the state is idle, not connected, although the link is up.
    EXPECT_EQ(Texts({"state 100"}), recorder->events());
    EXPECT_TRUE(state->getIsAppLinkState());
    EXPECT_EQ(0u, armed());
    advance(10000);
    EXPECT_EQ(Texts({"state 100"}), recorder->events());
}

// --- Failure codes from the phone ------------------------------------------------------------

TEST_F(MoxProtocolScenarioTest, FailureStatus103DuringLookup_CancelThenIdleOnAnswer) {
    startLookup();
    feed(answer(0x8010));
    recorder->clear();
    feed(answer(0x8011, 103));
    // 103 is already the state, so only the cancel is seen.
    EXPECT_EQ(Texts({"state 104", "frame 0f ff"}), recorder->events());
    feed(answer(0x8FFF));
    EXPECT_EQ(Texts({"state 104", "frame 0f ff", "state 100"}), recorder->events());
    EXPECT_EQ(0u, armed());
    EXPECT_TRUE(dbg.texts().empty());
}

TEST_F(MoxProtocolScenarioTest, FailureStatus103WhileConnected_Notifies103Then104AndCancels) {
    protocol->sendCmdConnect();
    feed(answer(0x8001));
    recorder->clear();
    feed(answer(0x8001, 103));
    EXPECT_EQ(Texts({"state 103", "state 104", "frame 0f ff"}), recorder->events());
}

TEST_F(MoxProtocolScenarioTest, FailureStatus5DuringLookup_StaysFiveUntilTheNextCommand) {
    startLookup();
    feed(answer(0x8010));
    feed(notice(3));
    recorder->clear();
    feed(chunk(0, 1, text("abc")));
    ASSERT_EQ(Texts({"state 0"}), recorder->events());
    startLookup();
    recorder->clear();
    feed(answer(0x8011, 5));
    EXPECT_EQ(Texts({"state 5"}), recorder->events());
    advance(10000);  // the lookup's wait runs out in state 5: nothing happens
    EXPECT_EQ(Texts({"state 5"}), recorder->events());
    EXPECT_EQ(5u, state->getResultState());
    EXPECT_TRUE(resultFile().empty());
    // A new lookup starts over from the failure state.
    startLookup();
    feed(notice(2));
    feed(chunk(0, 1, text("ok")));
    EXPECT_EQ(0u, state->getResultState());
    EXPECT_EQ(text("ok"), resultFile());
}

// --- The link drops in each state ---------------------------------------------------------------

struct LinkLossCase {
    const char* name;
    std::function<void(MoxProtocolScenarioTest*)> reach;  // brings the module into the state
    unsigned int before;
    States after;
};

TEST_F(MoxProtocolScenarioTest, LinkLoss_InEachState_ErrorOnlyDuringAnOperationThenIdle) {
    const std::vector<LinkLossCase> cases = {
        {"idle", [](MoxProtocolScenarioTest*) {}, 100, {}},
        {"connecting",
         [](MoxProtocolScenarioTest* t) { t->protocol->sendCmdConnect(); },
         101,
         {20, 100}},
        {"connected",
         [](MoxProtocolScenarioTest* t) {
             t->protocol->sendCmdConnect();
             feed(answer(0x8001));
         },
         102,
         {20, 100}},
        {"searching", [](MoxProtocolScenarioTest* t) { t->startLookup(); }, 103, {20, 100}},
        {"receiving",
         [](MoxProtocolScenarioTest* t) {
             t->startLookup();
             feed(notice(4));
             feed(chunk(0, 2, text("ab")));
         },
         103,
         {20, 100}},
        {"cancelling",
         [](MoxProtocolScenarioTest* t) { t->protocol->sendCmdCancel(); },
         104,
         {20, 100}},
        {"complete",
         [](MoxProtocolScenarioTest* t) {
             t->startLookup();
             feed(notice(2));
             feed(chunk(0, 1, text("ab")));
         },
         0,
         {100}},
        {"connect timed out",
         [](MoxProtocolScenarioTest* t) {
             t->protocol->sendCmdConnect();
             t->advance(10000);
         },
         20,
         {100}},
        {"timeout", [](MoxProtocolScenarioTest* t) { t->state->setResultState(4); }, 4, {100}},
        {"failure code", [](MoxProtocolScenarioTest*) { feed(answer(0x8010, 5)); }, 5, {100}},
    };
    for (const LinkLossCase& c : cases) {
        SCOPED_TRACE(c.name);
        SetUp();
        c.reach(this);
        ASSERT_EQ(c.before, state->getResultState());
        recorder->clear();
        dbg.clear();
        state->notifyObserverAppState(OstLinkAppState::en_APP_STATE_LOST);
        EXPECT_EQ(c.after, recorder->states());
        EXPECT_EQ(100u, state->getResultState());
        EXPECT_EQ(0u, armed());
        EXPECT_TRUE(recorder->frames().empty());
        EXPECT_TRUE(dbg.texts().empty());
        advance(10000);  // no wait is left over
        EXPECT_EQ(c.after, recorder->states());
        TearDown();
    }
}

// --- The result file cannot be written ---------------------------------------------------------

TEST_F(MoxProtocolScenarioTest, UnwritableFile_DirectoryCannotBeCreated_ErrorCancelThenIdle) {
    startLookup();
    feed(notice(4));
    plantFileInPlaceOfResultDir();
    recorder->clear();
    feed(chunk(0, 1, text("data")));
    EXPECT_EQ(Texts({"create directory error.\n"}), dbg.texts());
    EXPECT_EQ(Texts({"state 20", "state 104", "frame 0f ff"}), recorder->events());
    feed(answer(0x8FFF));
    EXPECT_EQ(100u, state->getResultState());
}

TEST_F(MoxProtocolScenarioTest, UnwritableFile_DirectoryCannotBeCreatedBeforeLookup_NothingSent) {
    plantFileInPlaceOfResultDir();
    startLookup();
    EXPECT_EQ(Texts({"create directory error.\n", "clear file error\n"}), dbg.texts());
    EXPECT_EQ(Texts({"state 20"}), recorder->events());
    EXPECT_EQ(0u, armed());
}

TEST_F(MoxProtocolScenarioTest, UnwritableFile_ResultPathIsADirectory_ErrorCancelThenIdle) {
    startLookup();
    feed(notice(4));
    plantDirectoryInPlaceOfResultFile();
    recorder->clear();
    feed(chunk(0, 2, text("data")));
    EXPECT_EQ(Texts({"search result file open error.\n"}), dbg.texts());
    EXPECT_EQ(Texts({"state 20", "state 104", "frame 0f ff"}), recorder->events());
    advance(10000);  // the phone does not answer the cancel either
    EXPECT_EQ(Texts({"state 20", "state 104", "frame 0f ff", "state 100"}), recorder->events());
}

TEST_F(MoxProtocolScenarioTest, UnwritableFile_ShortWriteOfALargeChunk_WriteErrorCancel) {
    startLookup();
    feed(notice(100000));
    recorder->clear();
    const Bytes payload(100000, 0xA5);
    {
        FileSizeLimit limit(4096);
        feed(chunk(0, 1, payload));
    }
    EXPECT_EQ(Texts({"search result file write error.\n"}), dbg.texts());
    EXPECT_EQ(Texts({"state 20", "state 104", "frame 0f ff"}), recorder->events());
    EXPECT_EQ(Bytes(4096, 0xA5), resultFile());
}

TEST_F(MoxProtocolScenarioTest, UnwritableFile_FileFullAfterFirstChunk_CloseErrorCancel) {
    startLookup();
    feed(notice(2000));
    feed(chunk(0, 2, Bytes(1000, 0x11)));
    recorder->clear();
    {
        FileSizeLimit limit(1000);
        feed(chunk(1, 2, Bytes(1000, 0x22)));
    }
    EXPECT_EQ(Texts({"search result file close error.\n"}), dbg.texts());
    EXPECT_EQ(Texts({"state 20", "state 104", "frame 0f ff"}), recorder->events());
    EXPECT_EQ(Bytes(1000, 0x11), resultFile());
}
