// The random fault campaign: 300 lookups over a Unix socket, each with a
// fault at a random step, each followed by a fault-free lookup that must
// succeed. Half of the faults are the simulator's own (drawn from its list,
// the phone serving on its own thread in this process); the other half cut
// the phone's stream after a random number of bytes, so the phone hangs up
// anywhere: inside an envelope's length, inside its body, between two.
// Built and run under the asan and tsan presets too: no report, no hang.
//
// The module's command timer runs on the manual clock. The fault-free
// lookups never move it, so they cannot time out by accident. A faulty
// lookup whose module waits on the timer has it run out once the link has
// been quiet for a moment (nothing copied, nothing queued, nothing
// notified); the end state that the test asserts does not depend on that
// moment, only the way there might.
//
//   MOX_CAMPAIGN_LOOKUPS=N  number of faulty lookups (default 300)
//   MOX_SOAK_SEED=S         seed of the draw (default 20261123)
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
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
#include "NotificationLog.h"
#include "OstLinkApp/OstLinkAppHost.h"
#include "RawPhone.h"
#include "TestDir.h"
#include "WorkerBarrier.h"
#include "moxphone/PhoneLog.h"
#include "moxphone/PhoneOptions.h"
#include "moxphone/PhoneServer.h"
#include "private/MoxProtocol.h"

namespace {

size_t lookupsFromEnvironment() {
    const char* text = std::getenv("MOX_CAMPAIGN_LOOKUPS");
    return text != nullptr && text[0] != '\0' ? std::strtoul(text, nullptr, 10) : 300;
}

// A simulated phone serving a Unix socket on its own thread.
class ServedPhone {
public:
    ServedPhone(const moxphone::PhoneOptions& options, const std::string& path)
        : mLog(nullptr), mServer(options, mLog), mPath(path) {
        std::string error;
        mListening = mServer.listen("unix:" + path, false, &error);
        if (mListening) {
            mThread = std::thread([this] { mServer.run(); });
        }
    }
    ~ServedPhone() {
        mServer.requestStop();
        if (mThread.joinable()) {
            mThread.join();
        }
    }
    bool listening() const { return mListening; }
    const std::string& path() const { return mPath; }

private:
    moxphone::PhoneLog mLog;
    moxphone::PhoneServer mServer;
    std::string mPath;
    bool mListening = false;
    std::thread mThread;
};

class MoxFaultCampaignTest : public BundledLookupFixture {
protected:
    void SetUp() override {
        BundledLookupFixture::SetUp();
        if (HasFatalFailure()) {
            return;
        }
        normalPhone.reset(new ServedPhone(options, dir.file("phone.sock")));
        ASSERT_TRUE(normalPhone->listening());
        proxy.reset(new RawPhone(dir.file("proxy.sock")));
    }

    void releasePhones() override {
        proxy.reset();
        normalPhone.reset();
    }

    // Everything the link carries passes the proxy, and everything the
    // module does passes its worker or notifies: when none of them moved
    // over a few short looks, the link is quiet.
    bool quiet() {
        for (int look = 0; look < 5; ++look) {
            const uint64_t traffic = proxy->traffic();
            const size_t notified = appLog.all().size();
            const size_t records = logged.load();
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
            if (!barrier->drain() || traffic != proxy->traffic() ||
                notified != appLog.all().size() || records != logged.load()) {
                return false;
            }
        }
        return true;
    }

    // Drives one lookup through the proxy until `done` holds: starts the
    // link, searches once the link is up, and runs the command timer out
    // when the module waits on it over a quiet link.
    void drive(const std::function<bool(const std::vector<Notification>&)>& done) {
        appLog.clear();
        OstLinkAppHost::setEndpoint(proxy->endpoint());
        facade->startLink();
        bool searched = false;
        for (int step = 0; step < 200; ++step) {
            const size_t seen = appLog.all().size();
            if (done(appLog.all())) {
                ASSERT_TRUE(barrier->drain());
                return;
            }
            if (!searched && linked()) {
                HbSMoxDef::SearchInfo info{0, 0, 0, kToc};
                facade->search(info);
                searched = true;
                continue;
            }
            const bool moved = appLog.waitFor(
                [seen](const std::vector<Notification>& all) { return all.size() != seen; },
                std::chrono::milliseconds(50));
            if (!moved && quiet() && HbLTimerMng::GetTimerMng()->ActiveCount() != 0) {
                HbLTimerManualClock::GetInstance()->Advance(MoxProtocol::CMD_TIMER_PERIOD);
            }
        }
        FAIL() << "the lookup did not end";
    }

    void stopLink() {
        facade->stopLink();
        ASSERT_TRUE(barrier->drain());
    }

    static std::vector<int32> statesOf(const std::vector<Notification>& all) {
        std::vector<int32> states;
        for (const Notification& n : all) {
            if (n.id == 2) {
                states.push_back(n.asInt32());
            }
        }
        return states;
    }

    // A fault-free lookup straight to the phone; waits only for events.
    void normalLookup(size_t round) {
        appLog.clear();
        OstLinkAppHost::setEndpoint("unix:" + normalPhone->path());
        facade->startLink();
        ASSERT_TRUE(appLog.waitForValue(1, 1)) << "round " << round << ": no link";
        HbSMoxDef::SearchInfo info{0, 0, 0, kToc};
        facade->search(info);
        ASSERT_TRUE(appLog.waitForValue(2, 0)) << "round " << round << ": no result";
        std::list<HbSMoxDef::AlbumInfo> albums;
        ASSERT_TRUE(facade->getSearchResult(kToc, &albums)) << "round " << round;
        ASSERT_EQ(titles(albums), kExpectedTitles) << "round " << round;
        facade->stopLink();
        ASSERT_TRUE(appLog.waitForValue(1, 0)) << "round " << round;
        ASSERT_TRUE(barrier->drain());
    }

    // Bytes the phone sends in a whole fault-free lookup.
    uint64_t measureWholeLookup() {
        proxy->relay(normalPhone->path(), 0);
        drive([](const std::vector<Notification>& all) {
            return statesOf(all) == std::vector<int32>{101, 102, 103, 0};
        });
        stopLink();
        return proxy->bytesToModule();
    }

    // A fault of the simulator: the lookup goes through the result states
    // that the simulator's list gives for it.
    void simulatorFault(size_t round, const FaultDraw& fault) {
        moxphone::PhoneOptions faulty = options;
        std::string error;
        ASSERT_TRUE(faulty.faults.add(fault.text, &error)) << error;
        ServedPhone phone(faulty, dir.file("faulty.sock"));
        ASSERT_TRUE(phone.listening());
        proxy->relay(phone.path(), 0);
        const std::vector<int32> expected = fault.expectedStates();
        // Ends on the documented path's last state, reached no earlier than
        // that path reaches it.
        drive([&expected](const std::vector<Notification>& all) {
            const std::vector<int32> states = statesOf(all);
            return states.size() >= expected.size() && states.back() == expected.back() &&
                   HbLTimerMng::GetTimerMng()->ActiveCount() == 0;
        });
        const std::vector<int32> states = appLog.valuesOf(2);
        stopLink();
        ASSERT_FALSE(HasFatalFailure()) << "round " << round << ", " << fault.text;
        ASSERT_EQ(facade->getSearchStatus(), 100) << "round " << round << ", " << fault.text;
        if (states != expected) {
            ++unusualPaths;
            std::printf("campaign: round %zu, %s: states", round, fault.text.c_str());
            for (int32 state : states) {
                std::printf(" %d", state);
            }
            std::printf(" (documented path another)\n");
        }
    }

    // The phone hangs up after `cut` bytes, before the lookup is whole:
    // the link is lost, and whatever was under way ends in an error, then
    // idle.
    void cutLink(size_t round, uint64_t cut) {
        proxy->relay(normalPhone->path(), cut);
        drive([](const std::vector<Notification>& all) {
            for (const Notification& n : all) {
                if (n.id == 3 && n.data == std::vector<unsigned char>{0}) {
                    return true;
                }
            }
            return false;
        });
        ASSERT_FALSE(HasFatalFailure()) << "round " << round << ", cut after " << cut;
        const std::vector<int32> states = appLog.valuesOf(2);
        ASSERT_EQ(facade->getSearchStatus(), 100) << "round " << round << ", cut after " << cut;
        ASSERT_FALSE(linked()) << "round " << round;
        if (!states.empty() && states.back() != 100) {
            ADD_FAILURE() << "round " << round << ", cut after " << cut << ": ends in "
                          << states.back();
        }
        if (states.size() >= 2) {
            EXPECT_EQ(states[states.size() - 2], 20) << "round " << round << ", cut after " << cut;
        }
        stopLink();
    }

    TestDir dir{"MoxFaultCampaign"};
    std::unique_ptr<ServedPhone> normalPhone;
    std::unique_ptr<RawPhone> proxy;  // relays the link, and cuts it on demand
    size_t unusualPaths = 0;
};

TEST_F(MoxFaultCampaignTest,
       RandomFaultsAtRandomSteps_EndInADocumentedStateAndTheNextLookupSucceeds) {
    const size_t rounds = lookupsFromEnvironment();
    const uint32_t seed = FaultDraw::seedFromEnvironment(20261123);
    std::mt19937 random(seed);
    const uint64_t whole = measureWholeLookup();
    ASSERT_GT(whole, 2u);
    std::printf("campaign: %zu faulty lookups, seed %u, %llu bytes from the phone per lookup\n",
                rounds, seed, static_cast<unsigned long long>(whole));
    std::uniform_int_distribution<uint64_t> cutAt(1, whole - 1);
    size_t cuts = 0;
    for (size_t round = 1; round <= rounds; ++round) {
        if (random() % 2 == 0) {
            ++cuts;
            cutLink(round, cutAt(random));
        } else {
            simulatorFault(round, FaultDraw::draw(random));
        }
        if (HasFatalFailure()) {
            return;
        }
        normalLookup(round);
        if (HasFatalFailure()) {
            return;
        }
    }
    std::printf(
        "campaign: %zu cuts, %zu simulator faults (%zu took another documented path), "
        "%zu log records\n",
        cuts, rounds - cuts, unusualPaths, logged.load());
}

}  // namespace
