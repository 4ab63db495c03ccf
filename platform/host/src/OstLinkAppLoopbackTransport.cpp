#include "OstLinkAppLoopbackTransport.h"

#include "HbFramework/HbDbgOutput.h"
#include "OstLinkApp/OstLinkAppEnvelope.h"

namespace {

const char kSource[] = "platform/host/src/OstLinkAppLoopbackTransport.cpp";

}  // namespace

OstLinkAppLoopbackTransport::OstLinkAppLoopbackTransport(OstLinkAppPeer* peer, PostFunc post)
    : OstLinkAppTransport("loopback", std::move(post)),
      mPeer(peer),
      mPeerOpen(false),
      mOpenCalled(false),
      mCalling(false),
      mReader(),
      mOpen(false) {}

OstLinkAppLoopbackTransport::~OstLinkAppLoopbackTransport() {
    close();
}

bool OstLinkAppLoopbackTransport::open() {
    if (mPeer == nullptr) {
        HbDbgOutput::DbgPrint(kSource, "open", __LINE__, en_TAG_ERROR,
                              "cannot open loopback: no loopback peer installed\n");
        return false;
    }
    std::unique_lock<std::mutex> lock(mPeerMutex);
    if (mOpenCalled) {
        return mOpen.load();
    }
    mOpenCalled = true;
    {
        std::lock_guard<std::mutex> feedLock(mFeedMutex);
        mOpen.store(true);
    }
    mPeerOpen = true;
    callPeerLocked(lock, PeerCall{en_CALL_OPEN, {}, std::this_thread::get_id()});
    return true;
}

bool OstLinkAppLoopbackTransport::close() {
    bool wasOpen = false;
    {
        std::lock_guard<std::mutex> feedLock(mFeedMutex);
        wasOpen = mOpen.exchange(false);
    }
    notifyPeerClosed(true);
    return wasOpen;
}

bool OstLinkAppLoopbackTransport::isOpen() const {
    return mOpen.load();
}

bool OstLinkAppLoopbackTransport::send(const uint8* frame, uint32 size) {
    std::unique_lock<std::mutex> lock(mPeerMutex);
    if (!mPeerOpen || !mOpen.load()) {
        lock.unlock();
        HbDbgOutput::DbgPrint(kSource, "send", __LINE__, en_TAG_ERROR,
                              "link not open, frame of %u bytes dropped\n", size);
        return false;
    }
    if (size > OstLinkAppEnvelope::MAX_PAYLOAD_SIZE) {
        lock.unlock();
        HbDbgOutput::DbgPrint(kSource, "send", __LINE__, en_TAG_ERROR,
                              "frame of %u bytes over the envelope limit, dropped\n", size);
        return false;
    }
    callPeerLocked(lock, PeerCall{en_CALL_COMMAND, std::vector<uint8>(frame, frame + size),
                                  std::this_thread::get_id()});
    return true;
}

bool OstLinkAppLoopbackTransport::pushDeviceInfo(uint8 osType, const std::string& name) {
    return pushEnvelope(OstLinkAppEnvelope::en_TYPE_DEVICE_INFO, &osType, 1,
                        reinterpret_cast<const uint8*>(name.data()), name.size());
}

bool OstLinkAppLoopbackTransport::pushDeviceStatus(uint8 status) {
    return pushEnvelope(OstLinkAppEnvelope::en_TYPE_DEVICE_STATUS, &status, 1, nullptr, 0);
}

bool OstLinkAppLoopbackTransport::pushCommand(const uint8* frame, uint32 size) {
    if (frame == nullptr && size != 0) {
        return false;
    }
    return pushEnvelope(OstLinkAppEnvelope::en_TYPE_COMMAND, frame, size, nullptr, 0);
}

bool OstLinkAppLoopbackTransport::pushBytes(const uint8* data, size_t size) {
    if (data == nullptr && size != 0) {
        return false;
    }
    bool alive = true;
    {
        std::lock_guard<std::mutex> feedLock(mFeedMutex);
        if (!mOpen.load()) {
            return false;
        }
        alive = feedLocked(data, size);
    }
    if (!alive) {
        notifyPeerClosed(false);
    }
    return true;
}

void OstLinkAppLoopbackTransport::hangUp() {
    {
        std::lock_guard<std::mutex> feedLock(mFeedMutex);
        if (!mOpen.exchange(false)) {
            return;
        }
        if (!mReader.finish()) {
            HbDbgOutput::DbgPrint(kSource, "hangUp", __LINE__, en_TAG_ERROR,
                                  "protocol error on loopback: %s, closing the link\n",
                                  mReader.getErrorText().c_str());
        } else {
            HbDbgOutput::DbgPrint(kSource, "hangUp", __LINE__, en_TAG_ERROR,
                                  "link closed by the phone on loopback\n");
        }
        postLinkLost();
    }
    notifyPeerClosed(false);
}

bool OstLinkAppLoopbackTransport::pushEnvelope(uint8 type, const uint8* lead, size_t leadSize,
                                               const uint8* rest, size_t restSize) {
    uint8 header[OstLinkAppEnvelope::HEADER_SIZE];
    OstLinkAppEnvelope::writeHeader(header, type, leadSize + restSize);
    bool alive = true;
    {
        std::lock_guard<std::mutex> feedLock(mFeedMutex);
        if (!mOpen.load()) {
            return false;
        }
        alive = feedLocked(header, sizeof(header)) && feedLocked(lead, leadSize) &&
                feedLocked(rest, restSize);
    }
    if (!alive) {
        notifyPeerClosed(false);
    }
    return true;
}

bool OstLinkAppLoopbackTransport::feedLocked(const uint8* data, size_t size) {
    if (!mOpen.load()) {
        return false;
    }
    tapBytes(OstLinkAppTap::en_DIRECTION_FROM_PHONE, data, size);
    const bool ok =
        mReader.feed(data, size, [this](uint8 type, const uint8* payload, uint32 payloadSize) {
            deliver(type, payload, payloadSize);
        });
    if (!ok) {
        HbDbgOutput::DbgPrint(kSource, "pushBytes", __LINE__, en_TAG_ERROR,
                              "protocol error on loopback: %s, closing the link\n",
                              mReader.getErrorText().c_str());
        mOpen.store(false);
        postLinkLost();
        return false;
    }
    return mOpen.load();
}

// Runs under mFeedMutex. After the phone's "no device" the link has ended and
// the rest of the push is dropped.
void OstLinkAppLoopbackTransport::deliver(uint8 type, const uint8* payload, uint32 size) {
    if (!mOpen.load()) {
        return;
    }
    if (isNoDevice(type, payload, size)) {
        HbDbgOutput::DbgPrint(kSource, "deliver", __LINE__, en_TAG_ERROR,
                              "the phone reported no device on loopback, closing the link\n");
        mOpen.store(false);
    }
    postMessage(type, payload, size);
}

void OstLinkAppLoopbackTransport::notifyPeerClosed(bool wait) {
    std::unique_lock<std::mutex> lock(mPeerMutex);
    if (mPeerOpen) {
        mPeerOpen = false;
        const std::thread::id caller = wait ? std::this_thread::get_id() : std::thread::id();
        callPeerLocked(lock, PeerCall{en_CALL_CLOSE, {}, caller});
    }
    const bool insideCallback = mCalling && mCaller == std::this_thread::get_id();
    if (!wait || insideCallback) {
        return;
    }
    mPeerIdle.wait(lock, [this] { return !mCalling && mPeerCalls.empty(); });
}

void OstLinkAppLoopbackTransport::callPeerLocked(std::unique_lock<std::mutex>& lock,
                                                 PeerCall call) {
    const bool insideCallback = mCalling && mCaller == std::this_thread::get_id();
    const bool anyCaller = call.caller == std::thread::id();
    mPeerCalls.push_back(std::move(call));
    if (insideCallback) {
        // Made by this thread once its callback has returned.
        mPeerCalls.back().caller = std::this_thread::get_id();
        return;
    }
    if (anyCaller && (mCalling || mPeerCalls.size() > 1)) {
        return;  // the thread that makes the calls before it makes this one too
    }
    runPeerCallsLocked(lock);
}

void OstLinkAppLoopbackTransport::runPeerCallsLocked(std::unique_lock<std::mutex>& lock) {
    const std::thread::id self = std::this_thread::get_id();
    for (;;) {
        if (!mCalling && !mPeerCalls.empty() &&
            (mPeerCalls.front().caller == self || mPeerCalls.front().caller == std::thread::id())) {
            const PeerCall call = std::move(mPeerCalls.front());
            mPeerCalls.pop_front();
            mCalling = true;
            mCaller = self;
            lock.unlock();
            makePeerCall(call);
            lock.lock();
            mCalling = false;
            mCaller = std::thread::id();
            mPeerIdle.notify_all();
            continue;
        }
        if (!hasCallOfLocked(self)) {
            return;
        }
        mPeerIdle.wait(lock);
    }
}

bool OstLinkAppLoopbackTransport::hasCallOfLocked(std::thread::id caller) const {
    for (const PeerCall& call : mPeerCalls) {
        if (call.caller == caller) {
            return true;
        }
    }
    return false;
}

// Runs with no lock held.
void OstLinkAppLoopbackTransport::makePeerCall(const PeerCall& call) {
    switch (call.call) {
        case en_CALL_OPEN:
            mPeer->onOpen(*this);
            break;
        case en_CALL_COMMAND: {
            const uint32 size = static_cast<uint32>(call.frame.size());
            tapCommand(call.frame.data(), size);
            mPeer->onCommand(call.frame.data(), size);
            break;
        }
        case en_CALL_CLOSE:
            mPeer->onClose();
            tapEnd();
            break;
    }
}
