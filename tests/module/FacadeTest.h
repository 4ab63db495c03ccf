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

#include "HbFramework/HbLTimerMng.h"
#include "HbSMox.h"
#include "ModuleReset.h"
#include "NotificationLog.h"
#include "OstLinkApp/OstLinkAppHost.h"
#include "ScriptedPhone.h"

class FacadeTest : public ::testing::Test {
protected:
    void SetUp() override { HbLTimerMng::GetTimerMng()->UseManualClock(); }

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

    NotificationLog appLog;
    HbSMox* facade = nullptr;
    std::unique_ptr<moxtest::LoopbackPhone> loopbackPhone;
    std::unique_ptr<moxtest::SocketPhone> socketPhone;
};

#endif  // MOX_TESTS_FACADETEST_H
