#include "LookupLog.h"

#include <cstdlib>
#include <cstring>

#include "HbFramework/HbFileSysHost.h"

namespace {

// The module's messages about storing the answer begin so.
const char* const kStoreErrorStarts[] = {"search result file ", "clear file error",
                                         "create directory error"};
// The host edition's sources begin so; the phone link's contain the word.
const char* const kPlatformSource = "platform/";
const char* const kLinkSource = "OstLinkApp";

bool startsWith(const std::string& text, const char* start) {
    return text.compare(0, std::strlen(start), start) == 0;
}

bool isStoreError(const std::string& text) {
    for (const char* start : kStoreErrorStarts) {
        if (startsWith(text, start)) {
            return true;
        }
    }
    return false;
}

// HB_DBG_OUTPUT is set to anything but "off".
bool debugOutputAsked() {
    const char* setting = std::getenv("HB_DBG_OUTPUT");
    return setting != nullptr && setting[0] != '\0' && std::strcmp(setting, "off") != 0;
}

void keepFirst(std::string* kept, const std::string& text) {
    if (kept->empty()) {
        *kept = text;
    }
}

}  // namespace

LookupLog::LookupLog(bool echo) : mEcho(echo || debugOutputAsked()) {
    mPrevious = HbDbgOutput::SetSink([this](const HbDbgRecord& record) { take(record); });
}

LookupLog::~LookupLog() {
    HbDbgOutput::SetSink(mPrevious);
}

void LookupLog::take(const HbDbgRecord& record) {
    if (mEcho) {
        HbDbgOutput::WriteDefault(record);
    }
    std::string text = record.text;
    if (!text.empty() && text.back() == '\n') {
        text.pop_back();
    }
    const bool error = record.tag == en_TAG_ERROR;
    const bool platform = startsWith(record.file, kPlatformSource);
    std::lock_guard<std::mutex> lock(mMutex);
    if (record.file == HbFileSysHost::SOURCE) {
        keepFirst(&mRefusal, text);
    }
    if (isStoreError(text)) {
        keepFirst(&mStoreError, text);
    }
    if (error && !platform && !record.file.empty()) {
        keepFirst(&mModuleError, text);
    }
    if (error && platform && record.file.find(kLinkSource) != std::string::npos) {
        keepFirst(&mLinkError, text);
    }
    if (mLines.size() < kLinesKept) {
        mLines.push_back(text);
    } else {
        ++mLeftOut;
    }
}

std::vector<std::string> LookupLog::lines() const {
    std::lock_guard<std::mutex> lock(mMutex);
    std::vector<std::string> lines = mLines;
    if (mLeftOut > 0) {
        lines.push_back(std::to_string(mLeftOut) + " more messages left out");
    }
    return lines;
}

std::string LookupLog::refusal() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mRefusal;
}

std::string LookupLog::storeError() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mStoreError;
}

std::string LookupLog::moduleError() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mModuleError;
}

std::string LookupLog::linkError() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mLinkError;
}
