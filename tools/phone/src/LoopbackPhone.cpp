// The in-process phone: a PhoneSession behind the loopback peer interface.
#include "moxphone/LoopbackPhone.h"

namespace moxphone {

LoopbackPhone::LoopbackPhone(const PhoneOptions& options, PhoneLog& log)
    : mOptions(options),
      mLog(log),
      mLink(nullptr),
      mConnections(0),
      mFlushing(false),
      mScheduler(mMutex, [this] { flush(); }) {}

LoopbackPhone::~LoopbackPhone() {}

void LoopbackPhone::onOpen(OstLinkAppPeerLink& link) {
    {
        std::unique_lock<std::mutex> lock(mMutex);
        waitForFlushLocked(lock);
        mOutbox.clear();
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
    flush();
}

void LoopbackPhone::onCommand(const uint8* frame, uint32 size) {
    {
        std::lock_guard<std::mutex> lock(mMutex);
        if (!mSession) {
            mLog.line("<- frame of " + std::to_string(size) +
                      " bytes before any connection ignored");
            return;
        }
        mSession->receiveFrame(frame, size);
    }
    flush();
}

void LoopbackPhone::onClose() {
    std::unique_lock<std::mutex> lock(mMutex);
    waitForFlushLocked(lock);
    mLink = nullptr;
    mOutbox.clear();
    if (mSession) {
        mSession->close();
    }
}

size_t LoopbackPhone::connections() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mConnections;
}

bool LoopbackPhone::send(const Bytes& bytes) {
    if (mLink == nullptr) {
        return false;
    }
    mOutbox.push_back(Outgoing{bytes, false});
    return true;
}

void LoopbackPhone::hangUp() {
    if (mLink != nullptr) {
        mOutbox.push_back(Outgoing{Bytes(), true});
    }
}

void LoopbackPhone::flush() {
    std::unique_lock<std::mutex> lock(mMutex);
    if (mFlushing) {
        return;
    }
    mFlushing = true;
    mFlusher = std::this_thread::get_id();
    while (!mOutbox.empty() && mLink != nullptr) {
        const Outgoing next = std::move(mOutbox.front());
        mOutbox.pop_front();
        OstLinkAppPeerLink* const link = mLink;
        if (next.hangUp) {
            mLink = nullptr;  // the link's onClose may come later, on another thread
        }
        lock.unlock();
        // The link may call onClose() from inside; it then finds this thread
        // flushing and does not wait for it.
        if (next.hangUp) {
            link->hangUp();
        } else {
            link->pushBytes(next.bytes.data(), next.bytes.size());
        }
        lock.lock();
    }
    mOutbox.clear();
    mFlushing = false;
    mFlusher = std::thread::id();
    mFlushed.notify_all();
}

void LoopbackPhone::waitForFlushLocked(std::unique_lock<std::mutex>& lock) {
    const std::thread::id self = std::this_thread::get_id();
    mFlushed.wait(lock, [this, self] { return !mFlushing || mFlusher == self; });
}

}  // namespace moxphone
