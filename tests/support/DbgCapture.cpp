#include "DbgCapture.h"

#include <pthread.h>

namespace {

std::string currentThreadName() {
    char name[32] = {0};
    if (pthread_getname_np(pthread_self(), name, sizeof(name)) != 0) {
        return "";
    }
    return name;
}

}  // namespace

DbgCapture::DbgCapture() {
    mPrevious = HbDbgOutput::SetSink([this](const HbDbgRecord& record) {
        std::string thread = currentThreadName();
        std::lock_guard<std::mutex> lock(mMutex);
        mRecords.push_back(record);
        mThreads.push_back(thread);
        mArrived.notify_all();
    });
}

DbgCapture::~DbgCapture() {
    HbDbgOutput::SetSink(mPrevious);
}

std::vector<HbDbgRecord> DbgCapture::records() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mRecords;
}

std::vector<std::string> DbgCapture::texts() const {
    std::vector<std::string> out;
    for (const HbDbgRecord& record : records()) {
        out.push_back(record.text);
    }
    return out;
}

std::vector<std::string> DbgCapture::textsOf(const std::string& function) const {
    std::vector<std::string> out;
    for (const HbDbgRecord& record : records()) {
        if (record.function == function) {
            out.push_back(record.text);
        }
    }
    return out;
}

std::vector<std::string> DbgCapture::threads() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mThreads;
}

void DbgCapture::clear() {
    std::lock_guard<std::mutex> lock(mMutex);
    mRecords.clear();
    mThreads.clear();
}

bool DbgCapture::waitFor(const std::function<bool(const std::vector<HbDbgRecord>&)>& done,
                         std::chrono::milliseconds limit) {
    std::unique_lock<std::mutex> lock(mMutex);
    return mArrived.wait_for(lock, limit, [this, &done] { return done(mRecords); });
}

bool DbgCapture::waitForText(const std::string& text, std::chrono::milliseconds limit) {
    return waitFor(
        [&text](const std::vector<HbDbgRecord>& records) {
            for (const HbDbgRecord& record : records) {
                if (record.text == text) {
                    return true;
                }
            }
            return false;
        },
        limit);
}
