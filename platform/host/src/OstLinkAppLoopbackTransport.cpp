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
    std::lock_guard<std::recursive_mutex> callbackLock(mCallbackMutex);
    if (mOpenCalled) {
        return mOpen.load();
    }
    mOpenCalled = true;
    {
        std::lock_guard<std::mutex> feedLock(mFeedMutex);
        mOpen.store(true);
    }
    mPeerOpen = true;
    mPeer->onOpen(*this);
    return true;
}

bool OstLinkAppLoopbackTransport::close() {
    bool wasOpen = false;
    {
        std::lock_guard<std::mutex> feedLock(mFeedMutex);
        wasOpen = mOpen.exchange(false);
    }
    notifyPeerClosed();
    return wasOpen;
}

bool OstLinkAppLoopbackTransport::isOpen() const {
    return mOpen.load();
}

bool OstLinkAppLoopbackTransport::send(const uint8* frame, uint32 size) {
    std::lock_guard<std::recursive_mutex> callbackLock(mCallbackMutex);
    if (!mPeerOpen || !mOpen.load()) {
        HbDbgOutput::DbgPrint(kSource, "send", __LINE__, en_TAG_ERROR,
                              "link not open, frame of %u bytes dropped\n", size);
        return false;
    }
    if (size > OstLinkAppEnvelope::MAX_PAYLOAD_SIZE) {
        HbDbgOutput::DbgPrint(kSource, "send", __LINE__, en_TAG_ERROR,
                              "frame of %u bytes over the envelope limit, dropped\n", size);
        return false;
    }
    tapCommand(frame, size);
    mPeer->onCommand(frame, size);
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
        notifyPeerClosed();
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
    notifyPeerClosed();
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
        notifyPeerClosed();
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

void OstLinkAppLoopbackTransport::notifyPeerClosed() {
    std::lock_guard<std::recursive_mutex> callbackLock(mCallbackMutex);
    if (!mPeerOpen) {
        return;
    }
    mPeerOpen = false;
    mPeer->onClose();
    tapEnd();
}
