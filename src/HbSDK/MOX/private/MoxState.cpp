#include "private/MoxState.h"

MoxState::MoxState() : mResultState(en_RESULT_IDLE), mIosConnect(false), mpSync(new HbSync()) {}

MoxState::~MoxState() {
    delete mpSync;
    mpSync = nullptr;
}

void MoxState::DelInstance() {}

unsigned int MoxState::getResultState() {
    mpSync->Lock(HbSync::WAIT_FOREVER);
    unsigned int value = mResultState;
    mpSync->Unlock();
    return value;
}

void MoxState::setResultState(unsigned int value) {
    if (getResultState() == value) {
        return;
    }
    mpSync->Lock(HbSync::WAIT_FOREVER);
    mResultState = value;
    mpSync->Unlock();
    // Observers get their own copy, after the lock is released.
    unsigned int notified = value;
    NotifyObserver(en_NTF_RESULT_STATE, &notified, sizeof(notified), en_NTF_TYPE_SYNC);
}

bool MoxState::getIosConnect() {
    return mIosConnect.load();
}

void MoxState::setIosConnect(bool value) {
    if (mIosConnect.load() == value) {
        return;
    }
    mIosConnect.store(value);
    uint8 notified = value ? 1 : 0;
    NotifyObserver(en_NTF_IOS_CONNECT, &notified, 1, en_NTF_TYPE_SYNC);
}
