// Records, in order, what test callbacks and handlers ran; written on the
// framework's threads and read by the test. Can be used from any thread.
#ifndef MOX_TESTS_FRAMEWORK_CALLLOG_H
#define MOX_TESTS_FRAMEWORK_CALLLOG_H

#include <mutex>
#include <string>
#include <vector>

class CallLog {
public:
    void add(const std::string& entry) {
        std::lock_guard<std::mutex> lock(mMutex);
        mEntries.push_back(entry);
    }
    std::vector<std::string> entries() const {
        std::lock_guard<std::mutex> lock(mMutex);
        return mEntries;
    }

private:
    mutable std::mutex mMutex;  // guards mEntries
    std::vector<std::string> mEntries;
};

#endif  // MOX_TESTS_FRAMEWORK_CALLLOG_H
