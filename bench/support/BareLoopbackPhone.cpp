#include "BareLoopbackPhone.h"

void BareLoopbackPhone::onOpen(OstLinkAppPeerLink& link) {
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mLink = &link;
    }
    link.pushDeviceInfo(1, "Bench");  // Android
    link.pushDeviceStatus(2);         // application open
}

void BareLoopbackPhone::onCommand(const uint8* frame, uint32 size) {
    mReceived.add(frame, size);
    OstLinkAppPeerLink* link = nullptr;
    {
        std::lock_guard<std::mutex> lock(mMutex);
        link = mLink;
    }
    if (link == nullptr) {
        return;
    }
    for (const BareAnswers::Bytes& answer : mAnswers.load()->answerTo(frame, size)) {
        link->pushCommand(answer.data(), static_cast<uint32>(answer.size()));
    }
}

void BareLoopbackPhone::onClose() {
    std::lock_guard<std::mutex> lock(mMutex);
    mLink = nullptr;
}
