// The simulated phone against the module's own protocol, state and reader:
// every fault leads the module through exactly the result states that the
// fault's documentation promises, and a fault-free lookup stores exactly the
// disc's response database. The module's frames reach the session at once,
// as through the in-process link; the session's envelopes are read back as
// the link's reader would, and queued for the module's worker; a hang-up or
// a bad envelope is reported as the loss of the link. The module's command
// timer runs on the manual clock, together with the phone's delays.
#include <gtest/gtest.h>

#include <cctype>

#include <deque>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "../module/MoxProtocolHarness.h"
#include "AlbumIds.h"
#include "FaultStates.h"
#include "PhoneTestSupport.h"
#include "moxphone/EnvelopeStream.h"
#include "moxphone/Faults.h"
#include "moxphone/PhoneSession.h"
#include "moxphone/ResponseDatabase.h"
#include "private/MoxDapDatabase.h"

using moxphone::FaultKind;
using moxphone::Faults;
using moxphone::PhoneOptions;
using moxtest::albumIds;
using moxtest::States;

namespace {

// The module's side of the link as the session sees it: what the session
// sends is read back into events for the module.
class ModuleSide : public moxphone::PhoneSession::Transport {
public:
    enum class Kind { kDeviceInfo, kDeviceStatus, kCommand, kLinkLost };
    struct Event {
        Kind kind;
        moxtest::Bytes payload;
    };

    bool send(const moxtest::Bytes& bytes) override {
        std::lock_guard<std::mutex> lock(mMutex);
        if (mLost) {
            return false;
        }
        mStream.append(bytes.data(), bytes.size());
        moxphone::EnvelopeStream::Message message;
        moxphone::EnvelopeStream::Status status;
        while ((status = mStream.next(&message)) == moxphone::EnvelopeStream::Status::kMessage) {
            const Kind kind = message.type == 0x01   ? Kind::kDeviceInfo
                              : message.type == 0x02 ? Kind::kDeviceStatus
                                                     : Kind::kCommand;
            mEvents.push_back({kind, message.payload});
        }
        if (status == moxphone::EnvelopeStream::Status::kBroken) {
            loseLocked();
        }
        return true;
    }
    void hangUp() override {
        std::lock_guard<std::mutex> lock(mMutex);
        loseLocked();
    }
    bool take(Event* event) {
        std::lock_guard<std::mutex> lock(mMutex);
        if (mEvents.empty()) {
            return false;
        }
        *event = mEvents.front();
        mEvents.pop_front();
        return true;
    }

private:
    void loseLocked() {
        if (!mLost) {
            mLost = true;
            mEvents.push_back({Kind::kLinkLost, {}});
        }
    }

    std::mutex mMutex;
    moxphone::EnvelopeStream mStream;
    std::deque<Event> mEvents;
    bool mLost = false;
};

class PhoneSessionModuleTest : public moxtest::ProtocolFixture {
protected:
    PhoneSessionModuleTest() : log(nullptr) {}

    void TearDown() override {
        recorder->onFrameHook = nullptr;
        session.reset();
        moxtest::ProtocolFixture::TearDown();
    }

    // The module opens the link to a phone with `options` and waits until
    // the connect has settled.
    void open(const PhoneOptions& options) {
        session.reset(new moxphone::PhoneSession(options, module, scheduler, log));
        recorder->onFrameHook = [this](const moxtest::Bytes& frame) {
            session->receiveFrame(frame.data(), frame.size());
        };
        session->open();
        settle();
    }
    // A lookup of `toc`, when the link came up, until the module has settled.
    void lookUp(const std::string& toc) {
        if (!state->getIsAppLinkState()) {
            return;
        }
        startLookup(toc);
        settle();
    }
    // Hands the phone's messages to the module, as its worker would.
    void pump() {
        ModuleSide::Event event;
        while (module.take(&event)) {
            switch (event.kind) {
                case ModuleSide::Kind::kDeviceInfo:
                    state->setOsType(event.payload.at(0));
                    break;
                case ModuleSide::Kind::kDeviceStatus:
                    if (event.payload.at(0) == 2) {
                        protocol->sendCmdConnect();
                    }
                    break;
                case ModuleSide::Kind::kCommand:
                    moxtest::feed(event.payload);
                    break;
                case ModuleSide::Kind::kLinkLost:
                    session->close();
                    state->notifyObserverAppState(0);
                    break;
            }
        }
    }
    // Moves the module's clock and the phone's together, 100 ms at a time,
    // until neither has anything pending (at most two minutes).
    void settle() {
        pump();
        for (uint32_t elapsed = 0; elapsed < 120000 && (armed() > 0 || scheduler.pending() > 0);
             elapsed += 100) {
            scheduler.advance(100);
            pump();
            advance(100);
            pump();
        }
    }

    States lookupWith(const std::vector<std::string>& faults, uint32_t chunkSize = 300) {
        PhoneOptions options = phonetest::optionsWith(phonetest::sampleCatalogue(), faults);
        options.chunkSize = chunkSize;
        open(options);
        lookUp(kTwoDiscAlbumToc);
        return recorder->states();
    }

    // The sample's disc 2: the first disc of its two-disc album.
    static inline const std::string kTwoDiscAlbumToc = "000096004EB600A0BE00ECEA013916";

    moxphone::PhoneLog log;
    ModuleSide module;
    phonetest::ManualScheduler scheduler;
    std::unique_ptr<moxphone::PhoneSession> session;
};

}  // namespace

TEST_F(PhoneSessionModuleTest, NoFault_EveryDiscOfTheSample_StoredAsBuiltAndFound) {
    const auto catalogue = phonetest::sampleCatalogue();
    const std::vector<std::vector<std::string>> expected = {{"MOXS-0001"},
                                                            {"MOXS-0002"},
                                                            {"MOXS-0002"},
                                                            {"MOXS-0003", "MOXS-0004"},
                                                            {"MOXS-0006"},
                                                            {"MOXS-0007"},
                                                            {"MOXS-0009", "MOXS-0008"},
                                                            {"MOXS-0010"}};
    ASSERT_EQ(expected.size(), catalogue->discs().size());
    PhoneOptions options = phonetest::optionsWith(catalogue);
    options.chunkSize = 256;
    open(options);
    for (size_t i = 0; i < catalogue->discs().size(); ++i) {
        const moxphone::CatalogueDisc& disc = catalogue->discs()[i];
        recorder->clear();
        lookUp(disc.toc);
        EXPECT_EQ(States({103, 0}), recorder->states()) << disc.toc;
        EXPECT_EQ(moxphone::ResponseDatabase::build(*catalogue, disc), moxtest::resultFile());
        std::list<HbSMoxDef::AlbumInfo> albums;
        ASSERT_TRUE(MoxDapDatabase::GetInstance()->getSearchResult(disc.toc, &albums));
        EXPECT_EQ(expected[i], albumIds(albums)) << disc.toc;
    }
}

TEST_F(PhoneSessionModuleTest, NoFault_StatesOfAWholeLookup) {
    EXPECT_EQ(States({101, 102, 103, 0}), lookupWith({}));
    EXPECT_EQ(Faults::normalStates(), recorder->states());
    EXPECT_TRUE(state->getIosConnect());
}

TEST_F(PhoneSessionModuleTest, Ios_SameStates) {
    PhoneOptions options = phonetest::optionsWith(phonetest::sampleCatalogue());
    options.osType = 0;
    open(options);
    lookUp(kTwoDiscAlbumToc);
    EXPECT_EQ(States({101, 102, 103, 0}), recorder->states());
    EXPECT_EQ(0, state->getOsType());
}

TEST_F(PhoneSessionModuleTest, UnknownDisc_NotFoundStatusBecomesTheState) {
    open(phonetest::optionsWith(phonetest::sampleCatalogue()));
    lookUp(phonetest::kUnknownToc);
    EXPECT_EQ(States({101, 102, 103, 404}), recorder->states());
    EXPECT_EQ(Faults::notFoundStates(404), recorder->states());
}

TEST_F(PhoneSessionModuleTest, UnknownDiscAnsweredWith103_ModuleCancels) {
    PhoneOptions options = phonetest::optionsWith(phonetest::sampleCatalogue());
    options.notFoundStatus = 103;
    open(options);
    lookUp(phonetest::kUnknownToc);
    EXPECT_EQ(States({101, 102, 103, 104, 100}), recorder->states());
    EXPECT_EQ(Faults::notFoundStates(103), recorder->states());
}

// ---- One fault at a time: the states of the documentation ----

// Every fault once, as --fault takes it; the states are the fault table's.
const std::vector<std::string> kEveryFault = {
    "silent-after-connect", "silent-after-lookup", "silent-after-notice", "silent-mid-transfer",
    "status-connect=503",   "status-connect=101",  "status-connect=103",  "status-connect=104",
    "status-ack=503",       "status-ack=103",      "status-ack=20",       "status-notice=503",
    "status-chunk=503",     "status-cancel=503",   "status-echo=503",     "wrong-chunk-index",
    "repeated-chunk",       "chunk-count-zero",    "short-notice",        "length-short",
    "length-long",          "drop-mid-transfer",   "garbage-length-zero", "garbage-oversize",
    "garbage-type",         "slow-chunks",         "slow-chunks=9900",    "slow-chunks=10100",
    "no-cancel-answer"};

class PhoneSessionFaultModuleTest : public PhoneSessionModuleTest,
                                    public ::testing::WithParamInterface<std::string> {};

TEST_P(PhoneSessionFaultModuleTest, Lookup_ReachesTheDocumentedStates) {
    const States documented = moxtest::documentedStates(GetParam());
    ASSERT_FALSE(documented.empty()) << GetParam();
    EXPECT_EQ(documented, lookupWith({GetParam()}));
    EXPECT_EQ(0u, armed());
}

const States kTimedOut = {101, 102, 103, 4, 104, 100};
const States kRefused = {101, 102, 103, 20, 104, 100};
const States kLost = {101, 102, 103, 20, 100};

INSTANTIATE_TEST_SUITE_P(EveryFault, PhoneSessionFaultModuleTest, ::testing::ValuesIn(kEveryFault),
                         // Each case by its fault text, every other character as '_'
                         // ("status-connect=503" runs as status_connect_503).
                         [](const ::testing::TestParamInfo<std::string>& info) {
                             std::string name = info.param;
                             for (char& c : name) {
                                 if (!std::isalnum(static_cast<unsigned char>(c))) {
                                     c = '_';
                                 }
                             }
                             return name;
                         });

// ---- Faults combined ----

TEST_F(PhoneSessionModuleTest, RefusedChunkWithUnansweredCancel_TimerEndsTheCancel) {
    EXPECT_EQ(kRefused, lookupWith({"wrong-chunk-index", "no-cancel-answer"}));
}

TEST_F(PhoneSessionModuleTest, RefusedChunkWithFailingCancelAnswer_ItsStatusIsTheLastState) {
    EXPECT_EQ(States({101, 102, 103, 20, 104, 503}),
              lookupWith({"wrong-chunk-index", "status-cancel=503"}));
}

TEST_F(PhoneSessionModuleTest, SilentAfterLookupWithUnansweredCancel_TimerEndsBoth) {
    EXPECT_EQ(kTimedOut, lookupWith({"silent-after-lookup", "no-cancel-answer"}));
}

TEST_F(PhoneSessionModuleTest, SlowChunksThenDrop_LinkLostAfterTheDelay) {
    EXPECT_EQ(kLost, lookupWith({"slow-chunks=5000", "drop-mid-transfer"}));
}

TEST_F(PhoneSessionModuleTest, SlowChunksOverTheTimer_LateChunksNeverReachTheFile) {
    EXPECT_EQ(kTimedOut, lookupWith({"slow-chunks=15000"}));
    EXPECT_TRUE(moxtest::resultFile().empty());
    EXPECT_EQ(0u, scheduler.pending());
}
