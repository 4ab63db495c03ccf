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
#include "HbFramework/HbLTimerMng.h"
#include "TestDir.h"
#include "private/MoxProtocol.h"
#include "private/MoxResultFile.h"
#include "private/MoxState.h"

namespace {

using Bytes = std::vector<unsigned char>;
using Texts = std::vector<std::string>;
using States = std::vector<unsigned int>;

std::string hex(const Bytes& bytes) {
    std::string out;
    char digits[4];
    for (size_t i = 0; i < bytes.size(); ++i) {
        std::snprintf(digits, sizeof(digits), i == 0 ? "%02x" : " %02x", bytes[i]);
        out += digits;
    }
    return out;
}

// Everything MoxProtocol hands over for sending and everything MoxState
// reports, in arrival order: "frame 0f ff", "state 104", "link 1", "ios 1",
// "app 0". Safe to use from several threads.
class Recorder {
public:
    Recorder()
        : mFrameObserver(this, &Recorder::onFrame), mStateObserver(this, &Recorder::onState) {
        MoxProtocol::GetInstance()->AddObserver(&mFrameObserver);
        MoxState::GetInstance()->AddObserver(&mStateObserver);
    }
    ~Recorder() {
        MoxProtocol::GetInstance()->RemoveObserver(&mFrameObserver);
        MoxState::GetInstance()->RemoveObserver(&mStateObserver);
    }

    uint32 onFrame(uint32 id, void* data, uint32 size) {
        const unsigned char* bytes = static_cast<const unsigned char*>(data);
        Bytes frame(bytes, bytes + size);
        std::function<void(const Bytes&)> hook;
        {
            std::lock_guard<std::mutex> lock(mMutex);
            mFrameIds.push_back(id);
            mFrames.push_back(frame);
            mArmedAtFrame.push_back(HbLTimerMng::GetTimerMng()->ActiveCount());
            mEvents.push_back("frame " + hex(frame));
            hook = onFrameHook;
        }
        if (hook) {
            hook(frame);
        }
        return 1;
    }

    uint32 onState(uint32 id, void* data, uint32 size) {
        std::lock_guard<std::mutex> lock(mMutex);
        if (id == 8 && size == 4) {
            unsigned int value = 0;
            std::memcpy(&value, data, 4);
            mStates.push_back(value);
            mEvents.push_back("state " + std::to_string(value));
            return 1;
        }
        const unsigned int byte = size >= 1 ? *static_cast<unsigned char*>(data) : 999;
        const char* name = id == 9 ? "ios " : id == 3 ? "link " : id == 0 ? "app " : "other ";
        mEvents.push_back(name + std::to_string(byte));
        return 1;
    }

    std::vector<Bytes> frames() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mFrames;
    }
    std::vector<uint32> frameIds() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mFrameIds;
    }
    // How many timers were armed when each frame was handed over.
    std::vector<size_t> armedAtFrame() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mArmedAtFrame;
    }
    States states() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mStates;
    }
    Texts events() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mEvents;
    }
    void clear() {
        std::lock_guard<std::mutex> lock(mMutex);
        mFrames.clear();
        mFrameIds.clear();
        mArmedAtFrame.clear();
        mStates.clear();
        mEvents.clear();
    }

    std::function<void(const Bytes&)> onFrameHook;  // runs inside the frame notification

private:
    HbObserver<Recorder> mFrameObserver;
    HbObserver<Recorder> mStateObserver;
    std::mutex mMutex;
    std::vector<Bytes> mFrames;
    std::vector<uint32> mFrameIds;
    std::vector<size_t> mArmedAtFrame;
    States mStates;
    Texts mEvents;
};

const Bytes kConnect = {0x00, 0x01, 0x01};
const Bytes kDisconnect = {0x00, 0x02};
const Bytes kGetCdMetaInfo = {0x00, 0x12, 0x00, 0x00, 0x03, 0xE8};
const Bytes kCancel = {0x0F, 0xFF};
const Bytes kEcho = {0x7F, 0xFF};

const std::string kHead =
    "<DbUpdateRequest>\n"
    "\t<DatabaseInfo>\n"
    "\t\t<DatabaseKind>73QRVB</DatabaseKind>\n"
    "\t</DatabaseInfo>\n"
    "\t<TOCRequest>\n"
    "\t\t<TOC>";
const std::string kTail =
    "</TOC>\n"
    "\t</TOCRequest>\n"
    "</DbUpdateRequest>";
const std::string kToc = "0000960046E6008D3600D386";

// The lookup frame as the phone must receive it.
Bytes lookupFrame(uint8 kind, uint16 param1, uint16 param2, const std::string& toc) {
    Bytes frame = {0x00,
                   0x10,
                   kind,
                   0x00,
                   static_cast<unsigned char>(param1 >> 8),
                   static_cast<unsigned char>(param1 & 0xFF),
                   static_cast<unsigned char>(param2 >> 8),
                   static_cast<unsigned char>(param2 & 0xFF)};
    const std::string text = kHead + toc + kTail;
    frame.insert(frame.end(), text.begin(), text.end());
    frame.push_back(0x00);
    return frame;
}

// An 8-byte frame header from the phone.
Bytes answer(uint16 command, uint16 status = 0, uint16 index = 0, uint16 count = 0) {
    return {static_cast<unsigned char>(command >> 8), static_cast<unsigned char>(command & 0xFF),
            static_cast<unsigned char>(status >> 8),  static_cast<unsigned char>(status & 0xFF),
            static_cast<unsigned char>(index >> 8),   static_cast<unsigned char>(index & 0xFF),
            static_cast<unsigned char>(count >> 8),   static_cast<unsigned char>(count & 0xFF)};
}

void appendU32Be(Bytes& out, uint32 value) {
    out.push_back(static_cast<unsigned char>(value >> 24));
    out.push_back(static_cast<unsigned char>((value >> 16) & 0xFF));
    out.push_back(static_cast<unsigned char>((value >> 8) & 0xFF));
    out.push_back(static_cast<unsigned char>(value & 0xFF));
}

// The lookup notice 0x8011: header, then the database size.
Bytes notice(uint32 databaseSize) {
    Bytes frame = answer(0x8011);
    appendU32Be(frame, databaseSize);
    return frame;
}

// A database chunk 0x8012 whose length field says `declared`.
Bytes chunkDeclaring(uint16 index, uint16 count, uint32 declared, const Bytes& payload) {
    Bytes frame = answer(0x8012, 0, index, count);
    appendU32Be(frame, declared);
    frame.insert(frame.end(), payload.begin(), payload.end());
    return frame;
}

Bytes chunk(uint16 index, uint16 count, const Bytes& payload) {
    return chunkDeclaring(index, count, static_cast<uint32>(payload.size()), payload);
}

Bytes text(const std::string& s) {
    return Bytes(s.begin(), s.end());
}

// Hands `frame` to the protocol from a heap copy of exactly its size, so a
// read past the frame is caught by AddressSanitizer.
void feed(const Bytes& frame) {
    std::unique_ptr<unsigned char[]> copy(new unsigned char[frame.size()]);
    if (!frame.empty()) {
        std::memcpy(copy.get(), frame.data(), frame.size());
    }
    MoxProtocol::GetInstance()->analysisProtocolCmd(copy.get(),
                                                    static_cast<unsigned int>(frame.size()));
}

std::string resultDir() {
    std::string dir = MoxResultFile::DIRECTORY;
    while (dir.size() > 1 && dir.back() == '/') {
        dir.pop_back();
    }
    return dir;
}

Bytes resultFile() {
    return TestDir::readFile(MoxResultFile::FULL_PATH);
}

// The result directory as a fresh run finds it: a directory without the file.
// Also undoes whatever a test planted in its place.
void resetResultPlace() {
    namespace fs = std::filesystem;
    std::error_code ignored;
    const fs::path dir(resultDir());
    if (fs::exists(fs::symlink_status(dir, ignored)) && !fs::is_directory(dir, ignored)) {
        fs::remove(dir, ignored);
    }
    fs::remove_all(MoxResultFile::FULL_PATH, ignored);
    fs::create_directories(dir, ignored);
}

// A regular file where the result directory should be: the directory can
// then not be created, not even by root.
class MoxProtocolThreadTest : public ::testing::Test {
protected:
    void SetUp() override {
        HbLTimerMng::GetTimerMng()->UseManualClock();
        resetResultPlace();
        protocol = MoxProtocol::GetInstance();
        state = MoxState::GetInstance();
        // Tests of one process share the singletons: start from the initial values.
        protocol->moxCmdTimerStopIfNeeded();
        state->setResultState(MoxState::en_RESULT_IDLE);
        state->setIosConnect(false);
        state->setIsAppLinkState(false);
        state->setOsType(OstLinkAppState::en_OS_TYPE_ANDROID);
        recorder.reset(new Recorder());
        dbg.clear();
    }
    void TearDown() override {
        recorder.reset();
        protocol->moxCmdTimerStopIfNeeded();
        resetResultPlace();
    }

    size_t armed() { return HbLTimerMng::GetTimerMng()->ActiveCount(); }
    void advance(uint32 ms) { HbLTimerMng::GetTimerMng()->AdvanceClock(ms); }

    void startLookup(const std::string& toc = kToc) {
        HbSMoxDef::SearchInfo info;
        info.lookupKind = 0x01;
        info.lookupParam1 = 0x0002;
        info.lookupParam2 = 0x0003;
        info.toc = toc;
        protocol->sendCmdEventCdTocLookup(info);
    }
    // A lookup sent and announced as ready, database requested; then the
    // recorder and the captured messages are cleared.
    void startTransfer() {
        startLookup();
        feed(answer(0x8010));
        feed(notice(100));
        recorder->clear();
        dbg.clear();
    }

    DbgCapture dbg;
    MoxProtocol* protocol = nullptr;
    MoxState* state = nullptr;
    std::unique_ptr<Recorder> recorder;
};

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
                                   lookupFrame(0x01, 0x0002, 0x0003, kToc)};
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

// The expiry of a lookup is held inside its first state notification while
// the protocol is destroyed on another thread. The destructor must wait for
// the running expiry (which re-arms the timer for its cancel) before it
// deletes the timer.
TEST(MoxProtocolThreadLifetimeTest, DestroyWhileExpiryRuns_WaitsForItAndLeavesNothingArmed) {
    HbLTimerMng* manager = HbLTimerMng::GetTimerMng();
    manager->UseManualClock();
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
    manager->SetRemoveWaitHook([&gate, &hookRan] {
        hookRan = true;
        gate.release();
    });
    std::thread clock([manager] { manager->AdvanceClock(10000); });
    {
        std::unique_lock<std::mutex> lock(gate.mutex);
        gate.changed.wait(lock, [&gate] { return gate.entered; });
    }
    HbSingleton<MoxProtocol>::destroy();
    gate.release();  // in case the destructor did not wait: the test then fails below
    clock.join();
    manager->SetRemoveWaitHook(nullptr);
    state->RemoveObserver(&stateObserver);

    EXPECT_TRUE(hookRan.load());
    EXPECT_EQ(std::vector<unsigned int>({103, 4, 104}), gate.states);
    EXPECT_EQ(std::vector<Bytes>({lookupFrame(1, 2, 3, kToc), kCancel}), frameLog.frames);
    EXPECT_EQ(0u, manager->ActiveCount());
    EXPECT_EQ(0u, state->ObserverCount());
}
