// A lookup on a worker thread of its own: the answer is delivered once to
// take(), the worker gets the TOC text and the deadline, is named, and is
// cancelled and joined when the lookup is destroyed, leaving nothing behind.
#include "moxphone/PendingLookup.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "TestEvent.h"

namespace {

using moxphone::DiscAnswer;
using moxphone::DiscSource;
using moxphone::LookupControl;
using moxphone::PendingLookup;

const std::string kToc = "0000960046E6008D3600D386";

// A source that answers when the test lets it, or at once, and tells what
// its worker saw.
class ScriptedSource : public DiscSource {
public:
    explicit ScriptedSource(bool waitForCancel) : mWaitForCancel(waitForCancel) {}

    bool answersAtOnce() const override { return false; }

    DiscAnswer lookUp(const std::string& toc, LookupControl& control) const override {
        char name[16] = {};
        pthread_getname_np(pthread_self(), name, sizeof(name));
        {
            std::lock_guard<std::mutex> lock(mMutex);
            mToc = toc;
            mDeadline = control.deadline();
            mThreadName = name;
        }
        mStarted.set();
        if (mWaitForCancel) {
            control.waitUntil(control.deadline());
            mSawCancel = control.cancelled();
        }
        DiscAnswer answer;
        answer.outcome = DiscAnswer::Outcome::kFound;
        answer.database = moxdb::Bytes(1000, 0x5A);
        answer.notes = {"asked " + toc};
        answer.summary = "found";
        mAnswered.set();
        return answer;
    }

    mutable std::mutex mMutex;  // guards what the worker saw
    mutable std::string mToc;
    mutable LookupControl::Clock::time_point mDeadline;
    mutable std::string mThreadName;
    mutable TestEvent mStarted;
    mutable TestEvent mAnswered;
    mutable bool mSawCancel = false;  // written before the worker ends, read after the join

private:
    const bool mWaitForCancel;
};

// Asks take() until the answer is there: the worker ends right after the
// source answers, so this loop is short.
DiscAnswer takeWhenThere(PendingLookup& lookup) {
    DiscAnswer answer;
    while (!lookup.take(&answer)) {
        std::this_thread::yield();
    }
    return answer;
}

LookupControl::Clock::time_point inSeconds(int seconds) {
    return LookupControl::Clock::now() + std::chrono::seconds(seconds);
}

TEST(PendingLookupTest, Answer_IsDeliveredToTakeOnce) {
    auto source = std::make_shared<ScriptedSource>(false);
    PendingLookup lookup(source, kToc, inSeconds(10));
    source->mAnswered.wait();
    const DiscAnswer answer = takeWhenThere(lookup);
    EXPECT_EQ(answer.outcome, DiscAnswer::Outcome::kFound);
    EXPECT_EQ(answer.database, moxdb::Bytes(1000, 0x5A));
    EXPECT_EQ(answer.notes, (std::vector<std::string>{"asked " + kToc}));
    EXPECT_EQ(answer.summary, "found");
    DiscAnswer again;
    ASSERT_TRUE(lookup.take(&again));
    EXPECT_TRUE(again.database.empty());
    EXPECT_TRUE(again.notes.empty());
    EXPECT_EQ(again.summary, "");
}

TEST(PendingLookupTest, BeforeTheAnswer_TakeGivesNothing) {
    auto source = std::make_shared<ScriptedSource>(true);
    PendingLookup lookup(source, kToc, inSeconds(10));
    source->mStarted.wait();
    DiscAnswer answer;
    answer.summary = "untouched";
    EXPECT_FALSE(lookup.take(&answer));
    EXPECT_EQ(answer.summary, "untouched");
}

TEST(PendingLookupTest, Worker_GetsTheTocTextAndDeadlineAndIsNamed) {
    auto source = std::make_shared<ScriptedSource>(false);
    const auto deadline = inSeconds(7);
    PendingLookup lookup(source, kToc, deadline);
    EXPECT_EQ(lookup.deadline(), deadline);
    source->mStarted.wait();
    std::lock_guard<std::mutex> lock(source->mMutex);
    EXPECT_EQ(source->mToc, kToc);
    EXPECT_EQ(source->mDeadline, deadline);
    EXPECT_EQ(source->mThreadName, PendingLookup::kThreadName);
}

TEST(PendingLookupTest, Destroying_CancelsTheLookupAndJoinsItsWorker) {
    auto source = std::make_shared<ScriptedSource>(true);
    const auto start = LookupControl::Clock::now();
    {
        PendingLookup lookup(source, kToc, inSeconds(60));
        source->mStarted.wait();
    }
    EXPECT_TRUE(source->mAnswered.isSet());
    EXPECT_TRUE(source->mSawCancel);
    EXPECT_LT(LookupControl::Clock::now() - start, std::chrono::seconds(5));
}

TEST(PendingLookupTest, Destroying_ReleasesTheSourceAndAnUntakenAnswer) {
    auto source = std::make_shared<ScriptedSource>(false);
    {
        PendingLookup lookup(source, kToc, inSeconds(10));
        source->mAnswered.wait();
    }
    EXPECT_EQ(source.use_count(), 1);
}

TEST(PendingLookupTest, DestroyedAtOnce_StillJoinsAndReleasesTheSource) {
    auto source = std::make_shared<ScriptedSource>(true);
    for (int i = 0; i < 20; ++i) {
        PendingLookup lookup(source, kToc, inSeconds(60));
    }
    EXPECT_EQ(source.use_count(), 1);
}

}  // namespace
