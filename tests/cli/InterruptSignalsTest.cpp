// InterruptSignals: the first Ctrl-C or SIGTERM is noted for the command to
// cancel cleanly; a second ends the process at once.
#include "InterruptSignals.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

namespace {

TEST(InterruptSignalsTest, FirstSignal_IsOnlyNoted) {
    const InterruptSignals signals(false);
    EXPECT_EQ(InterruptSignals::received(), 0);
    ::raise(SIGINT);
    EXPECT_EQ(InterruptSignals::received(), SIGINT);
    EXPECT_EQ(InterruptSignals::flag().load(), SIGINT);
}

TEST(InterruptSignalsTest, SecondSignal_EndsTheProcessAtOnceWith128PlusIt) {
    EXPECT_EXIT(
        {
            const InterruptSignals signals(false);
            ::raise(SIGINT);
            ::raise(SIGTERM);
            ::_exit(0);
        },
        ::testing::ExitedWithCode(143), "^$");
}

TEST(InterruptSignalsTest, SecondSignalWithAProgressLine_ClearsTheLineFirst) {
    EXPECT_EXIT(
        {
            const InterruptSignals signals(true);
            ::raise(SIGINT);
            ::raise(SIGINT);
            ::_exit(0);
        },
        ::testing::ExitedWithCode(130), "^\r\033\\[K$");
}

TEST(InterruptSignalsTest, End_PutsThePreviousActionsBack) {
    struct sigaction before = {};
    sigaction(SIGINT, nullptr, &before);
    { const InterruptSignals signals(false); }
    struct sigaction after = {};
    sigaction(SIGINT, nullptr, &after);
    EXPECT_EQ(after.sa_handler, before.sa_handler);
}

TEST(InterruptSignalsTest, NewInstance_StartsWithNoSignal) {
    {
        const InterruptSignals first(false);
        ::raise(SIGTERM);
        EXPECT_EQ(InterruptSignals::received(), SIGTERM);
    }
    const InterruptSignals second(false);
    EXPECT_EQ(InterruptSignals::received(), 0);
}

}  // namespace
