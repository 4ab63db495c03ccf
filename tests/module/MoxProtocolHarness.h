// Shared by the protocol tests: records every frame MoxProtocol hands over and
// every notification of MoxState, builds the frames the phone sends, feeds them
// to the protocol from exactly-sized heap copies, and prepares the result
// file's place.
#ifndef MOX_TESTS_MOXPROTOCOLHARNESS_H
#define MOX_TESTS_MOXPROTOCOLHARNESS_H

#include <gtest/gtest.h>

#include <sys/resource.h>

#include <csignal>
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "DbgCapture.h"
#include "HbFramework/Foundation/HbObserver.h"
#include "HbFramework/HbFileSysHost.h"
#include "HbFramework/HbLTimerManualClock.h"
#include "HbFramework/HbLTimerMng.h"
#include "LinkWire.h"
#include "TestDir.h"
#include "private/MoxProtocol.h"
#include "private/MoxState.h"

namespace moxtest {

using namespace linkwire;

using Texts = std::vector<std::string>;
using States = std::vector<unsigned int>;

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

// Hands `frame` to the protocol from a heap copy of exactly its size, so a
// read past the frame is caught by AddressSanitizer.
inline void feed(const Bytes& frame) {
    std::unique_ptr<unsigned char[]> copy(new unsigned char[frame.size()]);
    if (!frame.empty()) {
        std::memcpy(copy.get(), frame.data(), frame.size());
    }
    MoxProtocol::GetInstance()->analysisProtocolCmd(copy.get(),
                                                    static_cast<unsigned int>(frame.size()));
}

inline std::string resultDir() {
    std::string dir = HbFileSysHost::getResultDirectory();
    while (dir.size() > 1 && dir.back() == '/') {
        dir.pop_back();
    }
    return dir;
}

inline bool resultFileExists() {
    std::error_code ignored;
    return std::filesystem::is_regular_file(HbFileSysHost::getResultFilePath(), ignored);
}

inline Bytes resultFile() {
    return TestDir::readFile(HbFileSysHost::getResultFilePath());
}

// The result directory as a fresh run finds it: a directory without the file.
// Also undoes whatever a test planted in its place.
inline void resetResultPlace() {
    namespace fs = std::filesystem;
    std::error_code ignored;
    const fs::path dir(resultDir());
    if (fs::exists(fs::symlink_status(dir, ignored)) && !fs::is_directory(dir, ignored)) {
        fs::remove(dir, ignored);
    }
    fs::remove_all(HbFileSysHost::getResultFilePath(), ignored);
    fs::create_directories(dir, ignored);
}

// A regular file where the result directory should be: the directory can
// then not be created, not even by root.
inline void plantFileInPlaceOfResultDir() {
    TestDir::removeTree(resultDir());
    TestDir::writeFile(resultDir(), text("not a directory"));
}

// A directory where the result file should be: it can then not be opened.
inline void plantDirectoryInPlaceOfResultFile() {
    std::error_code ignored;
    std::filesystem::remove(HbFileSysHost::getResultFilePath(), ignored);
    std::filesystem::create_directories(HbFileSysHost::getResultFilePath());
}

// Limits the size of any file this process writes (SIGXFSZ ignored, so the
// write fails instead of ending the process); undone when it goes.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) {
        ::getrlimit(RLIMIT_FSIZE, &mSaved);
        mSavedHandler = std::signal(SIGXFSZ, SIG_IGN);
        rlimit limit = mSaved;
        limit.rlim_cur = bytes;
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() {
        ::setrlimit(RLIMIT_FSIZE, &mSaved);
        std::signal(SIGXFSZ, mSavedHandler);
    }

private:
    rlimit mSaved;
    void (*mSavedHandler)(int);
};

// Fresh protocol and state for every test (the singletons may be shared by
// the tests of one process), a manual clock, a recorder and a debug capture.
class ProtocolFixture : public ::testing::Test {
public:
    void SetUp() override {
        HbLTimerManualClock::GetInstance()->Use();
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
    void advance(uint32 ms) { HbLTimerManualClock::GetInstance()->Advance(ms); }

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
        feed(answer(kLookupAnswerId));
        feed(notice(100));
        recorder->clear();
        dbg.clear();
    }

    DbgCapture dbg;
    MoxProtocol* protocol = nullptr;
    MoxState* state = nullptr;
    std::unique_ptr<Recorder> recorder;
};

}  // namespace moxtest

#endif  // MOX_TESTS_MOXPROTOCOLHARNESS_H
