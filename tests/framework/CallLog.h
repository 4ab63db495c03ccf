// Records, in order, what test callbacks and handlers ran; written on the
// framework's threads and read by the test. Can be used from any thread.
// The waits return false only if the entries do not come within a generous
// guard time, so a broken test fails instead of hanging; a passing test never
// depends on that time.
#ifndef MOX_TESTS_FRAMEWORK_CALLLOG_H
#define MOX_TESTS_FRAMEWORK_CALLLOG_H

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

class CallLog {
public:
    void add(const std::string& entry) {
        std::lock_guard<std::mutex> lock(mMutex);
        mEntries.push_back(entry);
        mChanged.notify_all();
    }
    std::vector<std::string> entries() const {
        std::lock_guard<std::mutex> lock(mMutex);
        return mEntries;
    }
    // Waits until at least `count` entries are there.
    bool waitForCount(size_t count) const {
        std::unique_lock<std::mutex> lock(mMutex);
        return mChanged.wait_for(lock, kGuard, [this, count] { return mEntries.size() >= count; });
    }
    // Waits until `entry` has been added (at any time before).
    bool waitFor(const std::string& entry) const {
        std::unique_lock<std::mutex> lock(mMutex);
        return mChanged.wait_for(lock, kGuard, [this, &entry] {
            return std::find(mEntries.begin(), mEntries.end(), entry) != mEntries.end();
        });
    }

private:
    static constexpr std::chrono::seconds kGuard{60};

    mutable std::mutex mMutex;                 // guards mEntries
    mutable std::condition_variable mChanged;  // waits sleep here
    std::vector<std::string> mEntries;
};

#endif  // MOX_TESTS_FRAMEWORK_CALLLOG_H
