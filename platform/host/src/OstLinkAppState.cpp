#include "OstLinkApp/OstLinkAppState.h"

OstLinkAppState::OstLinkAppState() : mOsType(en_OS_TYPE_ANDROID), mIsAppLinkState(false) {}

OstLinkAppState::~OstLinkAppState() {}

uint8 OstLinkAppState::getOsType() const {
    return mOsType.load();
}

void OstLinkAppState::setOsType(uint8 osType) {
    mOsType.store(osType);
}

bool OstLinkAppState::getIsAppLinkState() const {
    return mIsAppLinkState.load();
}

void OstLinkAppState::setIsAppLinkState(bool linked) {
    // exchange() makes the change test and the store one step, so two threads
    // setting the same value raise one notification between them.
    if (mIsAppLinkState.exchange(linked) == linked) {
        return;
    }
    notifyByte(en_NTF_LINK_STATE, linked ? 1 : 0);
}

void OstLinkAppState::notifyObserverAppState(uint8 appState) {
    notifyByte(en_NTF_APP_STATE, appState);
}

void OstLinkAppState::notifyObserverDeviceStatus(uint8 status) {
    notifyByte(en_NTF_DEVICE_STATUS, status);
}

void OstLinkAppState::notifyByte(uint32 id, uint8 value) {
    uint8 data = value;
    NotifyObserver(id, &data, 1, en_NTF_TYPE_SYNC);
}
