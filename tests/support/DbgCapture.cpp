#include "DbgCapture.h"

DbgCapture::DbgCapture() {
    mPrevious = HbDbgOutput::SetSink([this](const HbDbgRecord& record) {
        std::lock_guard<std::mutex> lock(mMutex);
        mRecords.push_back(record);
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

void DbgCapture::clear() {
    std::lock_guard<std::mutex> lock(mMutex);
    mRecords.clear();
}
