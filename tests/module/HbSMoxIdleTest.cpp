// An idle module costs nothing: with the link up and no lookup under way,
// none of its threads wakes. Once the work of bringing the link up has
// ended, every thread's voluntary and involuntary context switches are read
// from /proc/self/task/*/status, the test thread sleeps, and they are read
// again: none may have grown (the test thread itself, which reads and
// sleeps, is left out). An idle thread has no reason
// to wake at all, so any growth is a fault, not bad luck.
//
// The timer manager runs on the real clock here, as in a product. Under
// ThreadSanitizer or an emulator (qemu-arm) only the module's own threads
// are checked: the sanitizer's runtime and the emulator each keep a
// background thread that wakes on its own timer.
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <list>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <thread>

#include "DbgCapture.h"
#include "FacadeTest.h"
#include "HbFramework/HbLTimerManualClock.h"
#include "HbSMox.h"
#include "MoxProtocolHarness.h"
#include "NotificationLog.h"
#include "OstLinkApp/OstLinkAppHost.h"
#include "PhoneScript.h"
#include "ProcessStats.h"
#include "RawPhone.h"
#include "TestDir.h"
#include "moxdb/CatalogueBuilder.h"

namespace {

using moxtest::Bytes;

const char* const kToc = "0000960046E6008D3600D386";
const std::chrono::milliseconds kIdle(1500);

#if defined(__SANITIZE_THREAD__) || defined(MOX_TEST_UNDER_EMULATOR)
const bool kOnlyModuleThreads = true;
#else
const bool kOnlyModuleThreads = false;
#endif

int ownThreadId() {
    return static_cast<int>(::syscall(SYS_gettid));
}

bool isModuleThread(const std::string& name) {
    return name == "HbWorker" || name == "HbLTimerMng" || name == "OstLinkAppRx";
}

// Every thread but the test's own (which reads and sleeps).
std::map<int, ProcessStats::Switches> otherThreads() {
    std::map<int, ProcessStats::Switches> threads = ProcessStats::switches();
    threads.erase(ownThreadId());
    for (auto it = threads.begin(); it != threads.end();) {
        if (kOnlyModuleThreads && !isModuleThread(it->second.name)) {
            it = threads.erase(it);
        } else {
            ++it;
        }
    }
    return threads;
}

std::multiset<std::string> namesOf(const std::map<int, ProcessStats::Switches>& threads) {
    std::multiset<std::string> names;
    for (const auto& entry : threads) {
        names.insert(entry.second.name);
    }
    return names;
}

bool sameSwitches(const std::map<int, ProcessStats::Switches>& a,
                  const std::map<int, ProcessStats::Switches>& b) {
    if (a.size() != b.size()) {
        return false;
    }
    for (const auto& entry : a) {
        const auto found = b.find(entry.first);
        if (found == b.end() || found->second.voluntary != entry.second.voluntary ||
            found->second.involuntary != entry.second.involuntary) {
            return false;
        }
    }
    return true;
}

// Waits until the work that brought the link up has ended: the last message
// handled, the last timer change seen by the timer thread. Quiet means one
// window of 100 ms in which no thread was switched. A thread that never stops
// waking never gets there, and the test fails here.
void waitUntilQuiet() {
    for (int window = 0; window < 50; ++window) {
        const std::map<int, ProcessStats::Switches> before = otherThreads();
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        if (sameSwitches(before, otherThreads())) {
            return;
        }
    }
    ADD_FAILURE() << "the module's threads did not come to rest within 5 s";
}

// Once quiet, sleeps on the test thread and fails for every other thread
// that woke meanwhile.
void expectNoThreadWakes() {
    waitUntilQuiet();
    const std::map<int, ProcessStats::Switches> before = otherThreads();
    std::this_thread::sleep_for(kIdle);
    const std::map<int, ProcessStats::Switches> after = otherThreads();
    EXPECT_EQ(namesOf(after), namesOf(before)) << "threads came or went";
    for (const auto& entry : before) {
        const auto found = after.find(entry.first);
        if (found == after.end()) {
            continue;
        }
        EXPECT_EQ(found->second.voluntary, entry.second.voluntary)
            << "thread " << entry.second.name << " woke";
        EXPECT_EQ(found->second.involuntary, entry.second.involuntary)
            << "thread " << entry.second.name << " was scheduled";
    }
}

class HbSMoxIdleTest : public FacadeTest {
protected:
    void SetUp() override {
        HbLTimerManualClock::GetInstance()->UseRealClock();
        createFacade();
    }

    DbgCapture capture;
};

TEST_F(HbSMoxIdleTest, UnixLinkUpAfterALookup_NoThreadWakes) {
    TestDir dir("HbSMoxIdle");
    RawPhone phone(dir.file("phone.sock"));
    ASSERT_TRUE(phone.listening());
    OstLinkAppHost::setEndpoint(phone.endpoint());
    ASSERT_NO_FATAL_FAILURE(linkUpWith(phone, "I"));

    const Bytes database = moxdb::CatalogueBuilder::makeUniform(kToc, 3, 3).build();
    ASSERT_NO_FATAL_FAILURE(searchAndAnnounce(phone, kToc, static_cast<uint32>(database.size())));
    ASSERT_TRUE(phone.sendCommand(moxtest::chunk(0, 1, database)));
    ASSERT_TRUE(appLog.waitForValue(2, 0));
    std::list<HbSMoxDef::AlbumInfo> albums;
    ASSERT_TRUE(facade->getSearchResult(kToc, &albums));

    // The module's threads: its worker, the timer manager, the link's reader
    // (each has named itself once it has run).
    waitUntilQuiet();
    EXPECT_EQ(namesOf(otherThreads()),
              (std::multiset<std::string>{"HbLTimerMng", "HbWorker", "OstLinkAppRx"}));
    expectNoThreadWakes();
}

TEST_F(HbSMoxIdleTest, LoopbackLinkUp_NoThreadWakes) {
    moxtest::PhoneScript script(moxdb::CatalogueBuilder::makeUniform(kToc, 3, 3).build());
    loopbackPhone.reset(new ScriptedPhone(script.play()));
    OstLinkAppHost::setLoopbackPeer(loopbackPhone.get());
    OstLinkAppHost::setEndpoint("loopback");
    facade->startLink();
    ASSERT_TRUE(appLog.waitForValue(1, 1));
    waitUntilQuiet();
    EXPECT_EQ(namesOf(otherThreads()), (std::multiset<std::string>{"HbLTimerMng", "HbWorker"}));
    expectNoThreadWakes();
}

}  // namespace
