#include "HbFramework/HbSync.h"

#include <chrono>

HbSync::HbSync() {}

HbSync::~HbSync() {}

bool HbSync::Lock(uint32 timeoutMs) {
    if (timeoutMs == WAIT_FOREVER) {
        mMutex.lock();
        return true;
    }
    return mMutex.try_lock_for(std::chrono::milliseconds(timeoutMs));
}

bool HbSync::Unlock() {
    mMutex.unlock();
    return true;
}
