// The documented defaults of the module's limits (docs/response-database.md
// states them and the reasoning behind them).
#include <gtest/gtest.h>

#include "private/MoxLimits.h"

namespace {

TEST(MoxLimitsTest, Defaults_AreTheDocumentedValues) {
    EXPECT_EQ(1048576u, MoxLimits::RESULT_FILE_MAX);
    EXPECT_EQ(5000000u, MoxLimits::SEARCH_WORK_MAX);
    EXPECT_EQ(4096u, MoxLimits::SEARCH_TRACK_MAX);
}

}  // namespace
