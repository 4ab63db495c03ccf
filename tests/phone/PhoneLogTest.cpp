// The simulator's log: whole prefixed lines, nothing when quiet, no mixing
// of lines written by several threads.
#include "moxphone/PhoneLog.h"

#include <gtest/gtest.h>

#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

using moxphone::PhoneLog;

TEST(PhoneLogTest, Line_PrefixedAndEndedByALineFeed) {
    std::ostringstream out;
    PhoneLog log(&out);
    log.line("-> 0x8001 connect answer status 0 (8 bytes)");
    EXPECT_EQ("mox-phone: -> 0x8001 connect answer status 0 (8 bytes)\n", out.str());
    EXPECT_FALSE(log.quiet());
}

TEST(PhoneLogTest, NullStream_QuietAndWritesNothing) {
    PhoneLog log(nullptr);
    log.line("anything");
    EXPECT_TRUE(log.quiet());
}

TEST(PhoneLogTest, Line_FromFourThreads_EveryLineWhole) {
    std::ostringstream out;
    PhoneLog log(&out);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&log, t] {
            for (int i = 0; i < 200; ++i) {
                log.line("thread " + std::to_string(t) + " line " + std::to_string(i));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::istringstream in(out.str());
    std::string line;
    std::set<std::string> lines;
    while (std::getline(in, line)) {
        lines.insert(line);
    }
    EXPECT_EQ(800u, lines.size());
    EXPECT_EQ(1u, lines.count("mox-phone: thread 3 line 199"));
}
