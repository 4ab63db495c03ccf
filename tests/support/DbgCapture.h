// Captures every debug record while it lives, so tests can compare logged
// messages byte for byte.
#ifndef MOX_TESTS_DBGCAPTURE_H
#define MOX_TESTS_DBGCAPTURE_H

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "HbFramework/HbDbgOutput.h"

class DbgCapture {
public:
    DbgCapture();
    ~DbgCapture();
    DbgCapture(const DbgCapture&) = delete;
    DbgCapture& operator=(const DbgCapture&) = delete;

    std::vector<HbDbgRecord> records() const;
    // The text of every record, in order.
    std::vector<std::string> texts() const;
    // The text of every record whose function is `function`.
    std::vector<std::string> textsOf(const std::string& function) const;
    // The name of the thread that logged each record, in order.
    std::vector<std::string> threads() const;
    void clear();

    // Waits until `done` holds for the records captured so far (checked at
    // every new record); false when `limit` passes first. The limit only
    // guards a broken test: a passing test never waits for it to run out.
    bool waitFor(const std::function<bool(const std::vector<HbDbgRecord>&)>& done,
                 std::chrono::milliseconds limit = std::chrono::seconds(30));
    // Waits until a record with exactly this text has been captured.
    bool waitForText(const std::string& text,
                     std::chrono::milliseconds limit = std::chrono::seconds(30));

private:
    mutable std::mutex mMutex;
    std::condition_variable mArrived;
    std::vector<HbDbgRecord> mRecords;
    std::vector<std::string> mThreads;
    HbDbgOutput::Sink mPrevious;
};

#endif  // MOX_TESTS_DBGCAPTURE_H
