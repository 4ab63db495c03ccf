// The fixture of a test that drives the module through its facade, as an
// application does: the command timer runs only when the test moves the
// clock, the application's notifications are logged, and afterwards the
// link is shut before the test's phones go (a closing link still tells its
// loopback peer) and the module is reset, so that the next test in the same
// process starts afresh.
//
//   class MyTest : public FacadeTest {
//       void SetUp() override { FacadeTest::SetUp(); createFacade(); }
//   };
#ifndef MOX_TESTS_FACADETEST_H
#define MOX_TESTS_FACADETEST_H

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "HbFramework/HbLTimerManualClock.h"
#include "HbFramework/HbLTimerMng.h"
#include "HbSMox.h"
#include "ModuleReset.h"
#include "MoxProtocolHarness.h"
#include "NotificationLog.h"
#include "OstLinkApp/OstLinkAppHost.h"
#include "RawPhone.h"
#include "ScriptedPhone.h"

class FacadeTest : public ::testing::Test {
protected:
    void SetUp() override { HbLTimerManualClock::GetInstance()->Use(); }

    void TearDown() override {
        if (facade != nullptr) {
            facade->Terminate();
            facade->RemoveObserver(appLog.observer());
        }
        OstLinkAppHost::setLoopbackPeer(nullptr);
        socketPhone.reset();
        loopbackPhone.reset();
        moxtest::resetModule();
    }

    // Creates the facade (and with it the module) and follows its notifications.
    void createFacade() {
        facade = HbSMox::GetInstance();
        facade->AddObserver(appLog.observer());
    }

    // Starts the link and plays its phone by hand on `phone`: takes the
    // connection, opens the application and answers the connect. Returns
    // once the application was told that the link is up.
    void linkUpWith(RawPhone& phone, const std::string& deviceName) {
        appLog.clear();
        facade->startLink();
        ASSERT_TRUE(phone.acceptAndOpen(deviceName));
        ASSERT_EQ(phone.readFrame(), moxtest::kConnect);
        ASSERT_TRUE(phone.sendCommand(moxtest::answer(moxtest::kConnectAnswerId)));
        ASSERT_TRUE(appLog.waitForValue(1, 1));
    }

    // Searches `toc` on the link that `phone` carries, answers the lookup
    // with the notice of a database of `databaseSize` bytes, and reads the
    // module's request for it.
    void searchAndAnnounce(RawPhone& phone, const std::string& toc, uint32 databaseSize) {
        appLog.clear();
        HbSMoxDef::SearchInfo info{0, 0, 0, toc};
        facade->search(info);
        ASSERT_EQ(phone.readFrame(), moxtest::lookupFrame(toc));
        ASSERT_TRUE(phone.sendCommand(moxtest::answer(moxtest::kLookupAnswerId)));
        ASSERT_TRUE(phone.sendCommand(moxtest::notice(databaseSize)));
        ASSERT_EQ(phone.readFrame(), moxtest::kGetCdMetaInfo);
    }

    NotificationLog appLog;
    HbSMox* facade = nullptr;
    std::unique_ptr<ScriptedPhone> loopbackPhone;
    std::unique_ptr<ScriptedPhone> socketPhone;
};

#endif  // MOX_TESTS_FACADETEST_H
