// MoxProtocol with its command timer expiring on the timer manager's thread
// while frames arrive on another thread, as on the head unit (worker thread
// for frames, manager thread for expiries, callers reading the state). Meant
// to run under ThreadSanitizer as well.
#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "DbgCapture.h"
#include "HbFramework/Foundation/HbObserver.h"
#include "HbFramework/HbFileSysHost.h"
#include "HbFramework/HbLTimerManualClock.h"
#include "HbFramework/HbLTimerMng.h"
#include "MoxProtocolHarness.h"
#include "TestDir.h"
#include "TestEvent.h"
#include "TimerCallGate.h"
#include "private/MoxProtocol.h"
#include "private/MoxState.h"

namespace {

using namespace moxtest;

class MoxProtocolThreadTest : public ProtocolFixture {};

// Runs `body` on a new thread named `name`.
std::thread named(const std::string& name, std::function<void()> body) {
    return std::thread([name, body] {
        TimerCallGate::nameThisThread(name);
        body();
    });
}

}  // namespace

TEST_F(MoxProtocolThreadTest, ExpiriesOnManagerThreadWhileFramesArrive_StatesAndFramesStayValid) {
    std::atomic<bool> feeding{true};
    std::atomic<int> rounds{0};
    std::thread worker([this, &feeding, &rounds] {
        for (int i = 0; i < 300; ++i) {
            startLookup();
            feed(answer(0x8010));
            feed(notice(9));
            feed(chunk(0, 3, text("abc")));
            feed(chunk(1, 3, text("def")));
            feed(chunk(2, 3, text("ghi")));
            if (i % 3 == 0) {
                feed(answer(0x8FFF));
            }
            if (i % 5 == 0) {
                state->notifyObserverAppState(OstLinkAppState::en_APP_STATE_LOST);
            }
            if (i % 7 == 0) {
                protocol->sendCmdConnect();
                feed(answer(0x8001));
            }
            if (i % 11 == 0) {
                feed(answer(0x8010, 103));
            }
            ++rounds;
        }
        feeding = false;
    });
    // This thread moves the clock (expiries run on the manager's thread) and
    // reads the state as a caller would.
    const std::set<unsigned int> documented = {0, 4, 20, 100, 101, 102, 103, 104};
    bool readOnlyDocumented = true;
    int advances = 0;
    while (feeding.load()) {
        advance(10000);
        ++advances;
        readOnlyDocumented = readOnlyDocumented && documented.count(state->getResultState()) == 1;
    }
    worker.join();
    advance(10000);
    advance(10000);

    EXPECT_EQ(300, rounds.load());
    EXPECT_GT(advances, 0);
    EXPECT_TRUE(readOnlyDocumented);
    for (unsigned int value : recorder->states()) {
        EXPECT_EQ(1u, documented.count(value)) << value;
    }
    const std::set<Bytes> known = {kConnect, kGetCdMetaInfo, kCancel,
                                   lookupFrame(kToc, 0x01, 0x0002, 0x0003)};
    for (const Bytes& frame : recorder->frames()) {
        EXPECT_EQ(1u, known.count(frame)) << hex(frame);
    }
    // Once nothing arrives any more, every wait has run out or was stopped.
    EXPECT_EQ(0u, armed());
    EXPECT_EQ(1u, documented.count(state->getResultState()));
    // Every round stored its three chunks in a freshly emptied file.
    EXPECT_EQ(text("abcdefghi"), resultFile());
    // The chunk count is kept on the frame thread alone: no chunk was refused.
    for (const std::string& message : dbg.texts()) {
        EXPECT_EQ(std::string::npos, message.find("index error")) << message;
    }
}

// --- The command timer restarted and stopped from two threads -----------------------
//
// Frames arrive on the worker ("HbWorker") while the timer's expiry runs on
// the manager's thread ("HbLTimerMng"); both restart or stop the command
// timer. Each test holds one thread between two timer steps (TimerCallGate)
// to force one interleaving, then checks that the timer is armed at most once
// and that a stop after the last restart leaves it disarmed.

// A late acceptance (0x8010) restarts the timer on the worker while the
// expiry in 103 restarts it for the cancel; both found it disarmed.
TEST_F(MoxProtocolThreadTest, RestartOnTheWorker_WhileTheExpirysCancelRestarts_ArmsTheTimerOnce) {
    startLookup();
    recorder->clear();
    TimerCallGate gate(nullptr);
    gate.holdAt("HbLTimerMng", HbLTimerClock::en_CALL_IS_ACTIVE, 2);
    std::thread clock([this] { advance(10000); });
    gate.waitHeld("HbLTimerMng");  // timed out, 4 and 104 set; the cancel's restart found no arming
    std::thread worker = named("HbWorker", [] { feed(answer(0x8010)); });
    worker.join();
    gate.resume("HbLTimerMng");
    clock.join();

    const Texts steps = {"HbLTimerMng IsActive", "HbLTimerMng IsActive", "HbWorker IsActive",
                         "HbWorker IsActive",    "HbWorker AddTimer",    "HbLTimerMng AddTimer"};
    EXPECT_EQ(steps, gate.steps());
    EXPECT_EQ(1u, armed());
    EXPECT_EQ(States({4, 104, 103}), recorder->states());
    EXPECT_EQ(std::vector<Bytes>({kCancel}), recorder->frames());

    // One wait runs, not two: it times out once (103: 4, 104 and one cancel),
    // then the cancel's wait ends in 100.
    advance(10000);
    EXPECT_EQ(States({4, 104, 103, 4, 104}), recorder->states());
    EXPECT_EQ(std::vector<Bytes>({kCancel, kCancel}), recorder->frames());
    EXPECT_EQ(1u, armed());
    advance(10000);
    EXPECT_EQ(States({4, 104, 103, 4, 104, 100}), recorder->states());
    EXPECT_EQ(0u, armed());
    EXPECT_EQ(Texts(), dbg.texts());
}

// The worker has armed the timer (0x8010) but not yet stored the handle when
// that arming expires; the expiry's cancel arms the timer anew and stores its
// handle first. The phone's answer to the cancel must still stop the timer.
TEST_F(MoxProtocolThreadTest, CancelAnswer_AfterTheWorkersHandleStoreLandedLast_StopsTheTimer) {
    startLookup();
    recorder->clear();
    TimerCallGate gate(nullptr);
    gate.holdAt("HbWorker", HbLTimerClock::en_CALL_ADD_TIMER, 1);
    std::thread worker = named("HbWorker", [] { feed(answer(0x8010)); });
    gate.waitHeld("HbWorker");
    advance(10000);  // the worker's arming expires: 4, 104, the cancel's restart
    gate.resume("HbWorker");
    worker.join();

    const Texts steps = {"HbWorker IsActive",   "HbWorker RemoveTimer", "HbWorker IsActive",
                         "HbWorker AddTimer",   "HbLTimerMng IsActive", "HbLTimerMng IsActive",
                         "HbLTimerMng AddTimer"};
    EXPECT_EQ(steps, gate.steps());
    EXPECT_EQ(1u, armed());
    EXPECT_EQ(States({4, 104}), recorder->states());

    feed(answer(0x8FFF));
    EXPECT_EQ(0u, armed());
    EXPECT_EQ(States({4, 104, 100}), recorder->states());
    advance(20000);
    EXPECT_EQ(States({4, 104, 100}), recorder->states());
    EXPECT_EQ(std::vector<Bytes>({kCancel}), recorder->frames());
    EXPECT_EQ(Texts(), dbg.texts());
}

// The expiry in 103 is about to restart the timer for its cancel when the
// worker arms it (0x8010), then stops it (0x8FFF) and waits inside
// RemoveTimer for the running expiry. The expiry's restart replaces the
// worker's arming and stores its handle; the worker's stop then clears the
// handle after that store. The timer must end disarmed, and a stop after the
// last restart must leave it so.
TEST_F(MoxProtocolThreadTest, StopOnTheWorker_WaitingForTheExpirysRestart_LeavesTheTimerDisarmed) {
    startLookup();
    recorder->clear();
    TimerCallGate gate(nullptr);
    gate.holdAt("HbLTimerMng", HbLTimerClock::en_CALL_IS_ACTIVE, 1);
    TestEvent stopWaitingOrDone;
    std::atomic<bool> stopWaited{false};
    HbLTimerManualClock::GetInstance()->SetRemoveWaitHook([&stopWaitingOrDone, &stopWaited] {
        stopWaited = true;
        stopWaitingOrDone.set();
    });
    std::thread clock([this] { advance(10000); });
    gate.waitHeld("HbLTimerMng");  // timed out, 4 and 104 set; the cancel's restart begins
    std::thread worker = named("HbWorker", [&stopWaitingOrDone] {
        feed(answer(0x8010));
        feed(answer(0x8FFF));
        stopWaitingOrDone.set();
    });
    stopWaitingOrDone.wait();
    gate.resume("HbLTimerMng");
    worker.join();
    clock.join();
    HbLTimerManualClock::GetInstance()->SetRemoveWaitHook(nullptr);

    EXPECT_TRUE(stopWaited.load());
    const Texts steps = {"HbLTimerMng IsActive",    "HbWorker IsActive",    "HbWorker IsActive",
                         "HbWorker AddTimer",       "HbWorker IsActive",    "HbLTimerMng IsActive",
                         "HbLTimerMng RemoveTimer", "HbLTimerMng AddTimer", "HbWorker RemoveTimer"};
    EXPECT_EQ(steps, gate.steps());
    EXPECT_EQ(0u, armed());
    EXPECT_EQ(States({4, 104, 103, 100}), recorder->states());
    EXPECT_EQ(std::vector<Bytes>({kCancel}), recorder->frames());

    protocol->moxCmdTimerStopIfNeeded();
    EXPECT_EQ(0u, armed());
    advance(20000);
    EXPECT_EQ(States({4, 104, 103, 100}), recorder->states());
    EXPECT_EQ(Texts(), dbg.texts());
}

// The expiry of a lookup is held inside its first state notification while
// the protocol is destroyed on another thread. The destructor must wait for
// the running expiry (which re-arms the timer for its cancel) before it
// deletes the timer.
TEST(MoxProtocolThreadLifetimeTest, DestroyWhileExpiryRuns_WaitsForItAndLeavesNothingArmed) {
    HbLTimerMng* manager = HbLTimerMng::GetTimerMng();
    HbLTimerManualClock::GetInstance()->Use();
    MoxProtocol* protocol = MoxProtocol::GetInstance();
    MoxState* state = MoxState::GetInstance();

    struct Gate {
        std::mutex mutex;
        std::condition_variable changed;
        bool entered = false;
        bool released = false;
        std::vector<unsigned int> states;
        uint32 onState(uint32 id, void* data, uint32 size) {
            if (id != 8 || size != 4) {
                return 1;
            }
            unsigned int value = 0;
            std::memcpy(&value, data, 4);
            std::unique_lock<std::mutex> lock(mutex);
            states.push_back(value);
            if (value == MoxState::en_RESULT_TIMEOUT) {
                entered = true;
                changed.notify_all();
                changed.wait(lock, [this] { return released; });
            }
            return 1;
        }
        void release() {
            std::lock_guard<std::mutex> lock(mutex);
            released = true;
            changed.notify_all();
        }
    } gate;
    struct FrameLog {
        std::mutex mutex;
        std::vector<Bytes> frames;
        uint32 onFrame(uint32, void* data, uint32 size) {
            const unsigned char* bytes = static_cast<const unsigned char*>(data);
            std::lock_guard<std::mutex> lock(mutex);
            frames.emplace_back(bytes, bytes + size);
            return 1;
        }
    } frameLog;
    HbObserver<Gate> stateObserver(&gate, &Gate::onState);
    HbObserver<FrameLog> frameObserver(&frameLog, &FrameLog::onFrame);
    resetResultPlace();
    protocol->AddObserver(&frameObserver);
    state->AddObserver(&stateObserver);

    HbSMoxDef::SearchInfo info;
    info.lookupKind = 1;
    info.lookupParam1 = 2;
    info.lookupParam2 = 3;
    info.toc = kToc;
    protocol->sendCmdEventCdTocLookup(info);

    std::atomic<bool> hookRan{false};
    HbLTimerManualClock::GetInstance()->SetRemoveWaitHook([&gate, &hookRan] {
        hookRan = true;
        gate.release();
    });
    std::thread clock([] { HbLTimerManualClock::GetInstance()->Advance(10000); });
    {
        std::unique_lock<std::mutex> lock(gate.mutex);
        gate.changed.wait(lock, [&gate] { return gate.entered; });
    }
    HbSingleton<MoxProtocol>::destroy();
    gate.release();  // in case the destructor did not wait: the test then fails below
    clock.join();
    HbLTimerManualClock::GetInstance()->SetRemoveWaitHook(nullptr);
    state->RemoveObserver(&stateObserver);

    EXPECT_TRUE(hookRan.load());
    EXPECT_EQ(std::vector<unsigned int>({103, 4, 104}), gate.states);
    EXPECT_EQ(std::vector<Bytes>({lookupFrame(kToc, 1, 2, 3), kCancel}), frameLog.frames);
    EXPECT_EQ(0u, manager->ActiveCount());
    EXPECT_EQ(0u, state->ObserverCount());
}
