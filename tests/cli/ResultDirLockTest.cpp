// ResultDirLock: the exclusive lock of the result directory that keeps two
// mox runs from sharing the result file. Two locks of one process conflict
// like those of two processes (each opens the directory anew), so one
// process can play both runs.
#include <gtest/gtest.h>
#include <signal.h>

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <ostream>
#include <streambuf>
#include <string>
#include <thread>

#include "ResultDirLock.h"
#include "TestDir.h"

namespace {

// A stream whose text can be read from another thread, and waited for.
class WatchedStream {
public:
    WatchedStream() : mBuffer(*this), mStream(&mBuffer) {}

    std::ostream& stream() { return mStream; }

    std::string text() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mText;
    }

    // Blocks until a whole line has been written.
    void waitForLine() {
        std::unique_lock<std::mutex> lock(mMutex);
        mChanged.wait(lock, [this] { return mText.find('\n') != std::string::npos; });
    }

private:
    class Buffer : public std::streambuf {
    public:
        explicit Buffer(WatchedStream& owner) : mOwner(owner) {}

    protected:
        int_type overflow(int_type c) override {
            if (c != traits_type::eof()) {
                mOwner.append(static_cast<char>(c));
            }
            return c;
        }

    private:
        WatchedStream& mOwner;
    };

    void append(char c) {
        {
            std::lock_guard<std::mutex> lock(mMutex);
            mText += c;
        }
        mChanged.notify_all();
    }

    std::mutex mMutex;
    std::condition_variable mChanged;
    std::string mText;
    Buffer mBuffer;
    std::ostream mStream;
};

class ResultDirLockTest : public ::testing::Test {
protected:
    ResultDirLockTest() : dir("ResultDirLockTest") {}
    TestDir dir;
};

TEST_F(ResultDirLockTest, Construct_FreeDirectory_LocksWithoutANotice) {
    WatchedStream notice;
    const ResultDirLock lock(dir.path(), notice.stream(), "mox search: ");
    EXPECT_TRUE(lock.locked());
    EXPECT_EQ(lock.error(), "");
    EXPECT_EQ(notice.text(), "");
}

TEST_F(ResultDirLockTest, Construct_HeldByAnother_WaitsSaysSoOnceThenLocks) {
    WatchedStream firstNotice;
    std::unique_ptr<ResultDirLock> first(new ResultDirLock(dir.path(), firstNotice.stream()));
    ASSERT_TRUE(first->locked());

    WatchedStream secondNotice;
    bool secondLocked = false;
    std::thread second([&] {
        const ResultDirLock lock(dir.path(), secondNotice.stream(), "mox lookup: ");
        secondLocked = lock.locked();
    });
    secondNotice.waitForLine();
    const std::string expected =
        "mox lookup: waiting for another run that uses " + dir.path() + "\n";
    EXPECT_EQ(secondNotice.text(), expected);

    first.reset();  // the other run ends
    second.join();
    EXPECT_TRUE(secondLocked);
    EXPECT_EQ(secondNotice.text(), expected);
    EXPECT_EQ(firstNotice.text(), "");
}

TEST_F(ResultDirLockTest, Destroy_ReleasesTheLock) {
    WatchedStream notice;
    { const ResultDirLock lock(dir.path(), notice.stream()); }
    const ResultDirLock again(dir.path(), notice.stream());
    EXPECT_TRUE(again.locked());
    EXPECT_EQ(notice.text(), "");
}

TEST_F(ResultDirLockTest, Construct_MissingDirectory_NotLockedWithTheSystemsReason) {
    WatchedStream notice;
    const std::string missing = dir.file("absent");
    const ResultDirLock lock(missing, notice.stream());
    EXPECT_FALSE(lock.locked());
    EXPECT_EQ(lock.error(), "cannot lock " + missing + ": No such file or directory");
    EXPECT_EQ(notice.text(), "");
}

TEST_F(ResultDirLockTest, Construct_WaitingWithoutPrefix_SaysMox) {
    WatchedStream firstNotice;
    std::unique_ptr<ResultDirLock> first(new ResultDirLock(dir.path(), firstNotice.stream()));
    WatchedStream secondNotice;
    std::thread second([&] { const ResultDirLock lock(dir.path(), secondNotice.stream()); });
    secondNotice.waitForLine();
    first.reset();
    second.join();
    EXPECT_EQ(secondNotice.text(), "mox: waiting for another run that uses " + dir.path() + "\n");
}

TEST_F(ResultDirLockTest, Construct_HeldByAnotherPastTheDeadline_TimesOutSayingWhy) {
    WatchedStream firstNotice;
    const ResultDirLock first(dir.path(), firstNotice.stream());
    WatchedStream notice;
    const ResultDirLock second(dir.path(), notice.stream(),
                               "mox lookup: ", ResultDirLock::Clock::now());
    EXPECT_FALSE(second.locked());
    EXPECT_TRUE(second.timedOut());
    EXPECT_FALSE(second.interrupted());
    EXPECT_EQ(second.error(), "timed out waiting for another run that uses " + dir.path());
    EXPECT_EQ(notice.text(), "mox lookup: waiting for another run that uses " + dir.path() + "\n");
}

TEST_F(ResultDirLockTest, Construct_HeldByAnotherAndInterrupted_GivesUpCancelled) {
    WatchedStream firstNotice;
    const ResultDirLock first(dir.path(), firstNotice.stream());
    WatchedStream notice;
    const std::atomic<int> interrupt{SIGINT};
    const ResultDirLock second(dir.path(), notice.stream(),
                               "mox lookup: ", ResultDirLock::Clock::time_point::max(), &interrupt);
    EXPECT_FALSE(second.locked());
    EXPECT_TRUE(second.interrupted());
    EXPECT_FALSE(second.timedOut());
    EXPECT_EQ(second.error(), "cancelled");
}

}  // namespace
