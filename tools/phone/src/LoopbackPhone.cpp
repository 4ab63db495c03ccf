// The in-process phone: a PhoneSession behind the loopback peer interface.
#include "moxphone/LoopbackPhone.h"

namespace moxphone {

LoopbackPhone::LoopbackPhone(const PhoneOptions& options, PhoneLog& log)
    : mOptions(options), mLog(log), mLink(nullptr), mConnections(0), mScheduler(mMutex) {}

LoopbackPhone::~LoopbackPhone() {}

void LoopbackPhone::onOpen(OstLinkAppPeerLink& link) {
    std::lock_guard<std::recursive_mutex> lock(mMutex);
    if (mSession) {
        mSession->close();
    }
    mScheduler.cancelAll();
    mLink = &link;
    ++mConnections;
    mLog.line("the module opened the link (connection " + std::to_string(mConnections) + ")");
    mSession.reset(new PhoneSession(mOptions, *this, mScheduler, mLog));
    mSession->open();
}

void LoopbackPhone::onCommand(const uint8* frame, uint32 size) {
    std::lock_guard<std::recursive_mutex> lock(mMutex);
    if (!mSession) {
        mLog.line("<- frame of " + std::to_string(size) + " bytes before any connection ignored");
        return;
    }
    mSession->receiveFrame(frame, size);
}

void LoopbackPhone::onClose() {
    std::lock_guard<std::recursive_mutex> lock(mMutex);
    mLink = nullptr;
    if (mSession) {
        mSession->close();
    }
}

size_t LoopbackPhone::connections() const {
    std::lock_guard<std::recursive_mutex> lock(mMutex);
    return mConnections;
}

bool LoopbackPhone::send(const Bytes& bytes) {
    // Called by the session, with mMutex held.
    if (mLink == nullptr) {
        return false;
    }
    return mLink->pushBytes(bytes.data(), bytes.size());
}

void LoopbackPhone::hangUp() {
    // Called by the session, with mMutex held.
    OstLinkAppPeerLink* link = mLink;
    mLink = nullptr;
    if (link != nullptr) {
        link->hangUp();
    }
}

}  // namespace moxphone
