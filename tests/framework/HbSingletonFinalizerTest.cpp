#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "HbFramework/HbSingletonFinalizer.h"

namespace {

std::vector<std::string> gLog;

void destroyA() {
    gLog.push_back("destroy A");
}
void destroyB() {
    gLog.push_back("destroy B");
}
void destroyC() {
    gLog.push_back("destroy C");
}
void destroyLate() {
    gLog.push_back("destroy late");
}
void destroyRegisteringLate() {
    gLog.push_back("destroy registering");
    HbSingletonFinalizer::addDestroyFunc(&destroyLate);
}
void destroyAtExit() {
    std::fputs("destroyed at exit\n", stderr);
}

// Every test starts with nothing registered and an empty log, and leaves
// nothing registered behind.
class HbSingletonFinalizerTest : public ::testing::Test {
protected:
    void SetUp() override {
        HbSingletonFinalizer::finalize();
        gLog.clear();
    }
    void TearDown() override { HbSingletonFinalizer::finalize(); }
};

using HbSingletonFinalizerDeathTest = HbSingletonFinalizerTest;

}  // namespace

TEST_F(HbSingletonFinalizerTest, Finalize_RunsHooksThenDestroyFuncsInReverseThenStoppers) {
    HbSingletonFinalizer::addDestroyFunc(&destroyA);
    HbSingletonFinalizer::addShutdownHook([] { gLog.push_back("hook 1"); });
    HbSingletonFinalizer::addThreadStopper([] { gLog.push_back("stopper 1"); });
    HbSingletonFinalizer::addDestroyFunc(&destroyB);
    HbSingletonFinalizer::addShutdownHook([] { gLog.push_back("hook 2"); });
    HbSingletonFinalizer::addThreadStopper([] { gLog.push_back("stopper 2"); });
    HbSingletonFinalizer::addDestroyFunc(&destroyC);

    HbSingletonFinalizer::finalize();

    const std::vector<std::string> expected = {"hook 1",    "hook 2",    "destroy C", "destroy B",
                                               "destroy A", "stopper 1", "stopper 2"};
    EXPECT_EQ(expected, gLog);
}

TEST_F(HbSingletonFinalizerTest, Finalize_CalledTwice_RunsEachFunctionOnce) {
    HbSingletonFinalizer::addDestroyFunc(&destroyA);
    HbSingletonFinalizer::addShutdownHook([] { gLog.push_back("hook"); });
    HbSingletonFinalizer::addThreadStopper([] { gLog.push_back("stopper"); });
    HbSingletonFinalizer::finalize();
    HbSingletonFinalizer::finalize();
    const std::vector<std::string> expected = {"hook", "destroy A", "stopper"};
    EXPECT_EQ(expected, gLog);
}

TEST_F(HbSingletonFinalizerTest, Finalize_AgainAfterNewRegistration_RunsOnlyTheNewOnes) {
    HbSingletonFinalizer::addDestroyFunc(&destroyA);
    HbSingletonFinalizer::finalize();
    HbSingletonFinalizer::addDestroyFunc(&destroyB);
    HbSingletonFinalizer::finalize();
    const std::vector<std::string> expected = {"destroy A", "destroy B"};
    EXPECT_EQ(expected, gLog);
}

TEST_F(HbSingletonFinalizerTest, Finalize_DestroyFuncRegisteringAnother_RunsItInTheSamePass) {
    HbSingletonFinalizer::addDestroyFunc(&destroyA);
    HbSingletonFinalizer::addDestroyFunc(&destroyRegisteringLate);
    HbSingletonFinalizer::addThreadStopper([] { gLog.push_back("stopper"); });
    HbSingletonFinalizer::finalize();
    const std::vector<std::string> expected = {"destroy registering", "destroy late", "destroy A",
                                               "stopper"};
    EXPECT_EQ(expected, gLog);
}

TEST_F(HbSingletonFinalizerTest, AddDestroyFunc_Null_IsIgnored) {
    const unsigned long before = HbSingletonFinalizer::DestroyFuncCalls();
    HbSingletonFinalizer::addDestroyFunc(nullptr);
    EXPECT_EQ(before, HbSingletonFinalizer::DestroyFuncCalls());
    HbSingletonFinalizer::finalize();  // must not call a null function
    EXPECT_TRUE(gLog.empty());
}

TEST_F(HbSingletonFinalizerTest, AddDestroyFunc_EachCall_RaisesTheCounterByOne) {
    const unsigned long before = HbSingletonFinalizer::DestroyFuncCalls();
    HbSingletonFinalizer::addDestroyFunc(&destroyA);
    HbSingletonFinalizer::addDestroyFunc(&destroyA);
    EXPECT_EQ(before + 2, HbSingletonFinalizer::DestroyFuncCalls());
    HbSingletonFinalizer::finalize();
    EXPECT_EQ(before + 2, HbSingletonFinalizer::DestroyFuncCalls());
    const std::vector<std::string> expected = {"destroy A", "destroy A"};
    EXPECT_EQ(expected, gLog);
}

TEST_F(HbSingletonFinalizerDeathTest, ProcessExit_WithoutFinalize_RunsDestroyFuncs) {
    // "fast" forks without re-executing the binary, which also works under qemu-arm;
    // the fixture has run what was registered before, so only this runs.
    GTEST_FLAG_SET(death_test_style, "fast");
    EXPECT_EXIT(
        {
            HbSingletonFinalizer::addDestroyFunc(&destroyAtExit);
            std::exit(0);
        },
        ::testing::ExitedWithCode(0), "destroyed at exit");
}
