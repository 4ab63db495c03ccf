// The soak: 1000 consecutive lookups through the facade in one process,
// against the simulated phone in the same process (the loopback link), every
// tenth with a fault of the simulator drawn at random. Between lookup 100
// and the last one the process must not gain a descriptor or a thread; its
// resident memory is printed (docs/reliability.md keeps the figures).
//
// The module's command timer runs on the manual clock: a lookup that waits
// for it is run out at once, and a lookup that does not can never time out by
// accident. The in-process phone answers while the module's worker sends, so
// once the worker has drained its queue and the command timer is disarmed,
// nothing more can happen: the test knows a lookup has ended without
// sleeping.
//
//   MOX_SOAK_LOOKUPS=N  number of lookups (a multiple of 10, at least 100; default 1000)
//   MOX_SOAK_SEED=S     seed of the fault draw (default 20261122)
//   MOX_SOAK_COLD=1     no thread ends before the soak (see warmThreadExit)
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <list>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "BundledLookupFixture.h"
#include "FaultDraw.h"
#include "HbFramework/HbLTimerManualClock.h"
#include "HbFramework/HbLTimerMng.h"
#include "HbSMox.h"
#include "OstLinkApp/OstLinkAppHost.h"
#include "ProcessStats.h"
#include "moxphone/LoopbackPhone.h"
#include "moxphone/PhoneLog.h"
#include "moxphone/PhoneOptions.h"
#include "private/MoxProtocol.h"

namespace {

const size_t kCheckpoint = 100;

size_t lookupsFromEnvironment() {
    const char* text = std::getenv("MOX_SOAK_LOOKUPS");
    const size_t count = text != nullptr ? std::strtoul(text, nullptr, 10) : 1000;
    return count < kCheckpoint ? kCheckpoint : count - count % 10;
}

bool coldFromEnvironment() {
    const char* text = std::getenv("MOX_SOAK_COLD");
    return text != nullptr && std::string(text) == "1";
}

// A process that has run for a while has seen a thread end. The first end
// in a process makes glibc run its per-thread clean-up code, which the
// kernel maps 64 KiB of libc at a time, and leaves the thread's malloc arena
// and stack cached for the next thread. Without this, that one-time cost
// would land at whichever lookup first draws slow-chunks: the only fault
// whose in-process phone sends from a thread of its own. The module starts
// and ends no thread during the soak.
void warmThreadExit() {
    std::thread([] {
        std::unique_ptr<std::string> text(new std::string(64, 'x'));
        (void)text;
    }).join();
}

class MoxSoakTest : public BundledLookupFixture {
protected:
    void SetUp() override {
        BundledLookupFixture::SetUp();
        if (HasFatalFailure()) {
            return;
        }
        normalPhone.reset(new moxphone::LoopbackPhone(options, phoneLog));
        OstLinkAppHost::setEndpoint("loopback");
    }

    void releasePhones() override {
        OstLinkAppHost::setLoopbackPeer(nullptr);
        normalPhone.reset();
    }

    // Runs the module until it has nothing left to do: the worker drained,
    // the command timer disarmed. An armed timer is run out on the manual
    // clock; the cancel that its expiry sends is answered at once, so the
    // loop ends after a few rounds.
    void settle() {
        HbLTimerMng* timers = HbLTimerMng::GetTimerMng();
        for (int round = 0; round < 8; ++round) {
            ASSERT_TRUE(barrier->drain()) << "the worker did not drain";
            if (timers->ActiveCount() == 0) {
                return;
            }
            HbLTimerManualClock::GetInstance()->Advance(MoxProtocol::CMD_TIMER_PERIOD);
        }
        FAIL() << "the command timer is armed again and again";
    }

    void startLinkWith(OstLinkAppPeer* phone) {
        OstLinkAppHost::setLoopbackPeer(phone);
        facade->startLink();
        settle();
    }

    void stopLink() {
        facade->stopLink();
        settle();
    }

    void expectAlbums(size_t lookup) {
        std::list<HbSMoxDef::AlbumInfo> albums;
        ASSERT_TRUE(facade->getSearchResult(kToc, &albums)) << "lookup " << lookup;
        ASSERT_EQ(titles(albums), kExpectedTitles) << "lookup " << lookup;
    }

    void normalLookup(size_t lookup) {
        appLog.clear();
        HbSMoxDef::SearchInfo info{0, 0, 0, kToc};
        facade->search(info);
        settle();
        ASSERT_EQ(appLog.valuesOf(2), (std::vector<int32>{103, 0})) << "lookup " << lookup;
        expectAlbums(lookup);
    }

    // The phone is swapped for one with the fault: a fresh link, the lookup
    // (when the link comes up), then the fault-free phone again.
    void faultyLookup(size_t lookup, const FaultDraw& fault) {
        moxphone::PhoneOptions faulty = options;
        std::string error;
        ASSERT_TRUE(faulty.faults.add(fault.text, &error)) << error;
        moxphone::LoopbackPhone faultPhone(faulty, phoneLog);
        stopLink();
        appLog.clear();
        startLinkWith(&faultPhone);
        if (linked()) {
            HbSMoxDef::SearchInfo info{0, 0, 0, kToc};
            facade->search(info);
            if (fault.info->kind == moxphone::FaultKind::kSlowChunks) {
                // Its chunks come from the phone's own thread.
                ASSERT_TRUE(appLog.waitForValue(2, 0)) << "lookup " << lookup;
            }
            settle();
        }
        const std::vector<int32> states = appLog.valuesOf(2);
        ASSERT_EQ(states, fault.expectedStates()) << "lookup " << lookup << ", " << fault.text;
        if (states.back() == 0) {
            expectAlbums(lookup);
        }
        stopLink();
        startLinkWith(normalPhone.get());
        ASSERT_TRUE(linked()) << "after lookup " << lookup << ", " << fault.text;
    }

    static void report(const char* when, const ProcessStats::Snapshot& s) {
        std::printf(
            "soak: after %s: %zu descriptors, %zu threads, VmRSS %llu KiB (RssAnon %llu KiB), "
            "VmHWM %llu KiB, heap in use %llu bytes\n",
            when, s.descriptors, s.threads, static_cast<unsigned long long>(s.residentKiB),
            static_cast<unsigned long long>(s.anonymousResidentKiB),
            static_cast<unsigned long long>(s.peakResidentKiB),
            static_cast<unsigned long long>(s.heapInUseBytes));
        std::fflush(stdout);
    }

    moxphone::PhoneLog phoneLog{nullptr};
    std::unique_ptr<moxphone::LoopbackPhone> normalPhone;
};

TEST_F(MoxSoakTest, ThousandLookups_KeepDescriptorsAndThreadsAndEveryFaultEndsAsDocumented) {
    const size_t lookups = lookupsFromEnvironment();
    const uint32_t seed = FaultDraw::seedFromEnvironment(20261122);
    std::mt19937 random(seed);
    const bool cold = coldFromEnvironment();
    if (!cold) {
        warmThreadExit();
    }
    std::printf("soak: %zu lookups, seed %u%s\n", lookups, seed,
                cold ? ", no thread ended before" : "");
    startLinkWith(normalPhone.get());
    ASSERT_TRUE(linked());
    ProcessStats::Snapshot atCheckpoint;
    size_t faulty = 0;
    for (size_t lookup = 1; lookup <= lookups; ++lookup) {
        if (lookup % 10 == 0) {
            ++faulty;
            faultyLookup(lookup, FaultDraw::draw(random));
        } else {
            normalLookup(lookup);
        }
        if (HasFatalFailure()) {
            return;
        }
        if (lookup == kCheckpoint) {
            atCheckpoint = ProcessStats::take();
            report("lookup 100", atCheckpoint);
        }
    }
    const ProcessStats::Snapshot atEnd = ProcessStats::take();
    report(("lookup " + std::to_string(lookups)).c_str(), atEnd);
    const long long growth = static_cast<long long>(atEnd.residentKiB) -
                             static_cast<long long>(atCheckpoint.residentKiB);
    const long long dataGrowth = static_cast<long long>(atEnd.anonymousResidentKiB) -
                                 static_cast<long long>(atCheckpoint.anonymousResidentKiB);
    std::printf(
        "soak: %zu faulty lookups; resident memory growth %lld KiB, of which data (RssAnon) "
        "%lld KiB; %zu log records\n",
        faulty, growth, dataGrowth, logged.load());
    RecordProperty("resident_growth_kib", std::to_string(growth));
    RecordProperty("data_growth_kib", std::to_string(dataGrowth));
    EXPECT_EQ(atEnd.descriptors, atCheckpoint.descriptors);
    EXPECT_EQ(atEnd.threads, atCheckpoint.threads);
    EXPECT_EQ(normalPhone->connections(), faulty + 1);
}

}  // namespace
