// The threads that the module starts: creating the facade and bringing its
// link up adds two threads (the unit's worker "HbWorker" and the timer
// manager "HbLTimerMng"), three on a socket link (its reader "OstLinkAppRx"
// besides), and one lookup adds none. The count is asserted; the names are
// printed only, since a new thread carries its creator's name until it has
// named itself. The resident memory added is printed, not asserted
// (docs/performance.md keeps the figures of an optimised build, from
// bench/MoxFootprint.cpp).
//
// What creating the module starts can only be seen in a process where it has
// not been created yet (the timer manager lives as long as the process): the
// tests say so in their names, and the whole-binary run leaves them out.
#include <gtest/gtest.h>

#include <cstdio>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <thread>

#include "FacadeTest.h"
#include "HbSMox.h"
#include "NotificationLog.h"
#include "PhoneScript.h"
#include "ProcessStats.h"
#include "TestDir.h"
#include "moxdb/CatalogueBuilder.h"

namespace {

using moxtest::PhoneScript;

const char* const kToc = "0000960046E6008D3600D386";

// The ids and names of the threads that were not there `before`.
std::map<int, std::string> startedSince(const std::map<int, ProcessStats::Switches>& before) {
    std::map<int, std::string> started;
    for (const auto& entry : ProcessStats::switches()) {
        if (before.count(entry.first) == 0) {
            started[entry.first] = entry.second.name;
        }
    }
    return started;
}

std::string namesOf(const std::map<int, std::string>& threads) {
    std::string names;
    for (const auto& entry : threads) {
        names += (names.empty() ? "" : ", ") + entry.second;
    }
    return names;
}

class HbSMoxFootprintTest : public FacadeTest {
protected:
    // The timer manager is left for the module to create (on the real
    // clock): its thread is one of those counted.
    void SetUp() override {}

    // Creates the facade, brings the link up on `endpoint`, looks the disc
    // up; returns how many threads were started on the way.
    size_t createLinkAndLookUp(const std::string& endpoint) {
        // ThreadSanitizer's runtime starts a helper thread of its own with the
        // first thread of the process: one thread first, so it is not counted.
        std::thread([] {}).join();
        const std::map<int, ProcessStats::Switches> before = ProcessStats::switches();
        const uint64_t residentBefore = ProcessStats::statusKiB("VmRSS:");
        createFacade();
        OstLinkAppHost::setEndpoint(endpoint);
        facade->startLink();
        EXPECT_TRUE(appLog.waitForValue(1, 1)) << "the link did not come up";
        const std::map<int, std::string> started = startedSince(before);
        std::printf("%s: facade created, link up: +%zu threads (%s), VmRSS +%lld KiB\n",
                    endpoint.c_str(), started.size(), namesOf(started).c_str(),
                    static_cast<long long>(ProcessStats::statusKiB("VmRSS:")) -
                        static_cast<long long>(residentBefore));
        HbSMoxDef::SearchInfo info{0, 0, 0, kToc};
        facade->search(info);
        EXPECT_TRUE(appLog.waitForValue(2, 0)) << "the lookup did not complete";
        std::list<HbSMoxDef::AlbumInfo> albums;
        EXPECT_TRUE(facade->getSearchResult(kToc, &albums));
        EXPECT_EQ(albums.size(), 3u);
        std::map<int, std::string> afterLookup = startedSince(before);
        EXPECT_EQ(afterLookup.size(), started.size()) << "the lookup started or ended a thread";
        for (const auto& entry : started) {
            EXPECT_EQ(afterLookup.count(entry.first), 1u) << "thread " << entry.second << " ended";
        }
        return started.size();
    }

    PhoneScript script{moxdb::CatalogueBuilder::makeUniform(kToc, 3, 3).build()};
};

TEST_F(HbSMoxFootprintTest, CreateWithLoopbackLink_StartsTwoThreadsAndALookupNone_FreshProcess) {
    loopbackPhone.reset(new ScriptedPhone(script.play()));
    OstLinkAppHost::setLoopbackPeer(loopbackPhone.get());
    EXPECT_EQ(createLinkAndLookUp("loopback"), 2u);
}

TEST_F(HbSMoxFootprintTest,
       CreateWithUnixSocketLink_StartsThreeThreadsAndALookupNone_FreshProcess) {
    TestDir dir("HbSMoxFootprintUnix");
    socketPhone.reset(new ScriptedPhone(script.play()));
    ASSERT_TRUE(socketPhone->listenUnix(dir.file("phone.sock")));
    EXPECT_EQ(createLinkAndLookUp(socketPhone->endpoint()), 3u);
}

}  // namespace
