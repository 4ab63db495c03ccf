// Whole lookups through the facade alone, against a scripted phone at the
// other end of the loopback link, a Unix socket and a TCP connection.
#include <gtest/gtest.h>

#include <list>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "DbgCapture.h"
#include "FacadeTest.h"
#include "HbFramework/HbLTimerManualClock.h"
#include "HbFramework/HbLTimerMng.h"
#include "HbSMox.h"
#include "NotificationLog.h"
#include "PhoneScript.h"
#include "TestDir.h"
#include "moxdb/CatalogueBuilder.h"
#include "private/MoxDapDatabase.h"

namespace {

using moxtest::Bytes;
using moxtest::PhoneScript;

const char* const kToc = "0000960046E6008D3600D386";

// Three albums of three tracks, spread over several 4 KiB chunks by a long
// string area.
Bytes sampleDatabase() {
    moxdb::CatalogueBuilder cat = moxdb::CatalogueBuilder::makeUniform(kToc, 3, 3);
    cat.text(std::string(9000, 'x'));
    return cat.build();
}

std::vector<std::string> rendered(std::list<HbSMoxDef::AlbumInfo>& albums) {
    std::vector<std::string> out;
    for (HbSMoxDef::AlbumInfo& album : albums) {
        out.push_back(MoxDapDatabase::GetInstance()->getStrAlbum(album));
    }
    return out;
}

class HbSMoxLookupTest : public FacadeTest {
protected:
    void SetUp() override {
        FacadeTest::SetUp();
        createFacade();
    }

    ScriptedPhone& useLoopbackPhone(PhoneScript& script) {
        loopbackPhone.reset(new ScriptedPhone(script.play()));
        OstLinkAppHost::setLoopbackPeer(loopbackPhone.get());
        return *loopbackPhone;
    }

    void startLinkOn(const std::string& endpoint) {
        OstLinkAppHost::setEndpoint(endpoint);
        facade->startLink();
        ASSERT_TRUE(appLog.waitForValue(1, 1)) << "the link did not come up";
    }

    // Searches and waits for result state 0; checks the albums against the
    // album search on the same stored file.
    void lookUpAndCompare() {
        HbSMoxDef::SearchInfo info{0, 0, 0, kToc};
        facade->search(info);
        ASSERT_TRUE(appLog.waitForValue(2, 0)) << "the lookup did not complete";
        std::list<HbSMoxDef::AlbumInfo> viaFacade;
        ASSERT_TRUE(facade->getSearchResult(kToc, &viaFacade));
        std::list<HbSMoxDef::AlbumInfo> direct;
        ASSERT_TRUE(MoxDapDatabase::GetInstance()->getSearchResult(kToc, &direct));
        ASSERT_EQ(viaFacade.size(), 3u);
        EXPECT_EQ(viaFacade.front().AlbumName, "Album 0");
        EXPECT_EQ(rendered(viaFacade), rendered(direct));
    }

    void stopLinkAndExpectDisconnect(const ScriptedPhone& phone) {
        facade->stopLink();
        ASSERT_TRUE(appLog.waitForValue(1, 0));
        EXPECT_TRUE(phone.waitForFrame(moxtest::kDisconnect));
    }

    // The whole lookup as the application sees it.
    void expectWholeLookupNotifications() {
        EXPECT_EQ(appLog.valuesOf(2), (std::vector<int32>{101, 102, 103, 0, 100}));
        EXPECT_EQ(appLog.valuesOf(1), (std::vector<int32>{1, 0}));
        std::vector<Bytes> statuses;
        for (const Notification& n : appLog.all()) {
            if (n.id == 3) {
                statuses.push_back(n.data);
            }
        }
        ASSERT_FALSE(statuses.empty());
        EXPECT_EQ(statuses.front(), (Bytes{2}));
    }

    DbgCapture capture;
    PhoneScript script{sampleDatabase()};
};

TEST_F(HbSMoxLookupTest, Loopback_WholeLookupThroughTheFacade) {
    useLoopbackPhone(script);
    startLinkOn("loopback");
    lookUpAndCompare();
    stopLinkAndExpectDisconnect(*loopbackPhone);
    expectWholeLookupNotifications();
    EXPECT_EQ(loopbackPhone->received().front(), moxtest::kConnect);
}

TEST_F(HbSMoxLookupTest, UnixSocket_WholeLookupThroughTheFacade) {
    TestDir dir("HbSMoxLookupUnix");
    socketPhone.reset(new ScriptedPhone(script.play()));
    ASSERT_TRUE(socketPhone->listenUnix(dir.file("phone.sock")));
    startLinkOn(socketPhone->endpoint());
    lookUpAndCompare();
    stopLinkAndExpectDisconnect(*socketPhone);
    expectWholeLookupNotifications();
}

TEST_F(HbSMoxLookupTest, Tcp_WholeLookupThroughTheFacade) {
    socketPhone.reset(new ScriptedPhone(script.play()));
    ASSERT_TRUE(socketPhone->listenTcp());
    startLinkOn(socketPhone->endpoint());
    lookUpAndCompare();
    stopLinkAndExpectDisconnect(*socketPhone);
    expectWholeLookupNotifications();
}

TEST_F(HbSMoxLookupTest, FramesFromThePhone_AreHandledOnTheWorker) {
    useLoopbackPhone(script);
    startLinkOn("loopback");
    lookUpAndCompare();
    for (const Notification& n : appLog.all()) {
        EXPECT_EQ(n.thread, "HbWorker") << "notification " << n.id;
    }
}

TEST_F(HbSMoxLookupTest, SilentPhone_TimesOutOnTheTimerThreadAndCancels) {
    script.silentAfter(PhoneScript::AT_LOOKUP);
    useLoopbackPhone(script);
    startLinkOn("loopback");
    HbSMoxDef::SearchInfo info{0, 0, 0, kToc};
    facade->search(info);
    ASSERT_TRUE(loopbackPhone->waitForFrame(moxtest::lookupFrame(kToc)));
    ASSERT_TRUE(appLog.waitForValue(2, 103));
    HbLTimerManualClock::GetInstance()->Advance(10000);
    ASSERT_TRUE(appLog.waitForValue(2, 104));
    EXPECT_TRUE(loopbackPhone->waitForFrame(moxtest::kCancel));
    HbLTimerManualClock::GetInstance()->Advance(10000);  // the cancel is not answered either
    ASSERT_TRUE(appLog.waitForValue(2, 100));
    EXPECT_EQ(appLog.valuesOf(2), (std::vector<int32>{101, 102, 103, 4, 104, 100}));
    for (const Notification& n : appLog.all()) {
        if (n.id == 2 && (n.asInt32() == 4 || n.asInt32() == 104 || n.asInt32() == 100)) {
            EXPECT_EQ(n.thread, "HbLTimerMng");
        }
    }
}

TEST_F(HbSMoxLookupTest, LinkDroppedAtRandomPoints_EndsIdleAndTheNextLookupSucceeds) {
    std::mt19937 random(20261122);
    std::uniform_int_distribution<int> steps(PhoneScript::AT_CONNECT, PhoneScript::AT_META_INFO);
    useLoopbackPhone(script);
    OstLinkAppHost::setEndpoint("loopback");
    for (int round = 0; round < 20; ++round) {
        const PhoneScript::Step step = static_cast<PhoneScript::Step>(steps(random));
        script.hangUpAt(step);
        appLog.clear();
        facade->startLink();
        if (step != PhoneScript::AT_CONNECT) {
            ASSERT_TRUE(appLog.waitForValue(1, 1)) << "round " << round;
            HbSMoxDef::SearchInfo info{0, 0, 0, kToc};
            facade->search(info);
        }
        // The drop ends whatever ran in an error, then idle.
        ASSERT_TRUE(appLog.waitForValue(2, 100)) << "round " << round;
        ASSERT_TRUE(appLog.waitFor([](const std::vector<Notification>& all) {
            for (const Notification& n : all) {
                if (n.id == 3 && n.data == Bytes{0}) {
                    return true;
                }
            }
            return false;
        })) << "round "
            << round;
        const std::vector<int32> states = appLog.valuesOf(2);
        ASSERT_GE(states.size(), 2u);
        EXPECT_EQ(states[states.size() - 2], 20) << "round " << round;
        EXPECT_EQ(facade->getSearchStatus(), 100);
    }
    script.hangUpAt(PhoneScript::NEVER);
    appLog.clear();
    facade->startLink();
    ASSERT_TRUE(appLog.waitForValue(1, 1));
    lookUpAndCompare();
}

}  // namespace
