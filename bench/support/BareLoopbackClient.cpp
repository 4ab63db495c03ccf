#include "BareLoopbackClient.h"

BareLoopbackClient::BareLoopbackClient(OstLinkAppPeer& peer, ChunkFile file)
    : mPeer(peer),
      mClient(
          [this](const uint8_t* frame, size_t size) {
              if (!mOpen) {
                  return false;
              }
              mPeer.onCommand(frame, static_cast<uint32>(size));
              return true;
          },
          std::move(file)) {}

BareLoopbackClient::~BareLoopbackClient() {
    hangUp();
}

bool BareLoopbackClient::connect() {
    mOpen = true;
    mPeer.onOpen(*this);
    return mClient.connect() && runUntilDone();
}

bool BareLoopbackClient::lookup(const std::string& toc) {
    return mClient.begin(toc) && runUntilDone();
}

bool BareLoopbackClient::pushDeviceInfo(uint8 osType, const std::string& name) {
    (void)osType;
    (void)name;
    return mOpen;
}

bool BareLoopbackClient::pushDeviceStatus(uint8 status) {
    (void)status;
    return mOpen;
}

bool BareLoopbackClient::pushCommand(const uint8* frame, uint32 size) {
    if (!mOpen) {
        return false;
    }
    mQueue.emplace_back(frame, frame + size);
    return true;
}

bool BareLoopbackClient::pushBytes(const uint8* data, size_t size) {
    (void)data;
    (void)size;
    return false;
}

void BareLoopbackClient::hangUp() {
    if (!mOpen) {
        return;
    }
    mOpen = false;
    mQueue.clear();
    mPeer.onClose();
}

bool BareLoopbackClient::runUntilDone() {
    BareLookupClient::Progress progress = BareLookupClient::WAITING;
    while (progress == BareLookupClient::WAITING && !mQueue.empty()) {
        const BareAnswers::Bytes frame = std::move(mQueue.front());
        mQueue.pop_front();
        progress = mClient.onFrame(frame.data(), frame.size());
    }
    mQueue.clear();
    return progress == BareLookupClient::COMPLETE;
}
