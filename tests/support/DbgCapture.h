// Captures every debug record while it lives, so tests can compare logged
// messages byte for byte.
#ifndef MOX_TESTS_DBGCAPTURE_H
#define MOX_TESTS_DBGCAPTURE_H

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
    void clear();

private:
    mutable std::mutex mMutex;
    std::vector<HbDbgRecord> mRecords;
    HbDbgOutput::Sink mPrevious;
};

#endif  // MOX_TESTS_DBGCAPTURE_H
