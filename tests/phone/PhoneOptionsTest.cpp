// The phone's options: their checks, the OS names and the time scale taken
// from HB_TIMER_SCALE by the timer manager's rule.
#include "moxphone/PhoneOptions.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "PhoneTestSupport.h"

using moxphone::PhoneOptions;

namespace {

std::string refusal(const PhoneOptions& options) {
    std::string error;
    return options.validate(&error) ? "valid" : error;
}

double scaleFrom(const char* value) {
    ::setenv("HB_TIMER_SCALE", value, 1);
    const double scale = PhoneOptions::timeScaleFromEnvironment();
    ::unsetenv("HB_TIMER_SCALE");
    return scale;
}

}  // namespace

TEST(PhoneOptionsTest, Defaults_ChunkSize4096NotFound404Android) {
    const PhoneOptions options;
    EXPECT_EQ(4096u, options.chunkSize);
    EXPECT_EQ(404, options.notFoundStatus);
    EXPECT_EQ(1, options.osType);
    EXPECT_EQ("mox-phone", options.deviceName);
    EXPECT_TRUE(options.faults.empty());
    EXPECT_EQ(1.0, options.timeScale);
}

TEST(PhoneOptionsTest, Validate_EachRefusal) {
    PhoneOptions options;
    EXPECT_EQ("no catalogue", refusal(options));
    options.catalogue = phonetest::smallCatalogue();
    EXPECT_EQ("valid", refusal(options));
    options.chunkSize = 0;
    EXPECT_EQ("the chunk size must be from 1 to 1048563, not 0", refusal(options));
    options.chunkSize = 1048564;
    EXPECT_EQ("the chunk size must be from 1 to 1048563, not 1048564", refusal(options));
    options.chunkSize = 1048563;
    EXPECT_EQ("valid", refusal(options));
    options.notFoundStatus = 0;
    EXPECT_EQ("the status for an unknown disc must be from 1 to 65535 (0 means success)",
              refusal(options));
    options.notFoundStatus = 1;
    options.timeScale = 0.0;
    EXPECT_EQ("the time scale must be above 0 and at most 1000", refusal(options));
    options.timeScale = 1000.0;
    EXPECT_EQ("valid", refusal(options));
}

TEST(PhoneOptionsTest, ParseOs_AndroidAndIosOnly) {
    uint8_t os = 9;
    EXPECT_TRUE(PhoneOptions::parseOs("ios", &os));
    EXPECT_EQ(0, os);
    EXPECT_TRUE(PhoneOptions::parseOs("android", &os));
    EXPECT_EQ(1, os);
    EXPECT_FALSE(PhoneOptions::parseOs("iOS", &os));
    EXPECT_FALSE(PhoneOptions::parseOs("", &os));
    EXPECT_EQ(1, os);
}

TEST(PhoneOptionsTest, TimeScaleFromEnvironment_SameRuleAsTheTimerManager) {
    ::unsetenv("HB_TIMER_SCALE");
    EXPECT_EQ(1.0, PhoneOptions::timeScaleFromEnvironment());
    EXPECT_EQ(0.001, scaleFrom("0.001"));
    EXPECT_EQ(1000.0, scaleFrom("1000"));
    EXPECT_EQ(1.0, scaleFrom("1000.5"));
    EXPECT_EQ(1.0, scaleFrom("0"));
    EXPECT_EQ(1.0, scaleFrom("-2"));
    EXPECT_EQ(1.0, scaleFrom("fast"));
}
