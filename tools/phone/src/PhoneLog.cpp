// Whole-line log writes.
#include "moxphone/PhoneLog.h"

namespace moxphone {

PhoneLog::PhoneLog(std::ostream* out) : mOut(out) {}

void PhoneLog::line(const std::string& text) {
    if (mOut == nullptr) {
        return;
    }
    const std::string whole = kPrefix + text + "\n";
    std::lock_guard<std::mutex> lock(mMutex);
    mOut->write(whole.data(), static_cast<std::streamsize>(whole.size()));
    mOut->flush();
}

}  // namespace moxphone
