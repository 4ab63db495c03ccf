#include "HbFramework/HbSync.h"

#include <chrono>

HbSync::HbSync() : mHeld(false) {}

HbSync::~HbSync() {}

bool HbSync::Lock(uint32 timeoutMs) {
    std::unique_lock<std::mutex> lock(mMutex);
    auto free = [this] { return !mHeld; };
    if (timeoutMs == WAIT_FOREVER) {
        mReleased.wait(lock, free);
    } else if (!mReleased.wait_for(lock, std::chrono::milliseconds(timeoutMs), free)) {
        return false;
    }
    mHeld = true;
    return true;
}

bool HbSync::Unlock() {
    {
        std::lock_guard<std::mutex> lock(mMutex);
        if (!mHeld) {
            return false;
        }
        mHeld = false;
    }
    mReleased.notify_one();
    return true;
}
