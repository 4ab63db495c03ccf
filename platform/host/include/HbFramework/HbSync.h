// A mutual-exclusion lock with a timeout.
// - Lock(0xFFFFFFFF) waits without limit; any other value gives up after that
//   many milliseconds. Returns whether the lock was taken.
// - Unlock() releases it and wakes one waiter; false when it was not held.
// - Not recursive: the owner must not lock it again.
// Can be used from any thread.
#ifndef HB_FRAMEWORK_HBSYNC_H
#define HB_FRAMEWORK_HBSYNC_H

#include <condition_variable>
#include <mutex>

#include "HbFramework/HbTypes.h"

class HbSync {
public:
    static constexpr uint32 WAIT_FOREVER = 0xFFFFFFFFu;

    HbSync();
    ~HbSync();
    HbSync(const HbSync&) = delete;
    HbSync& operator=(const HbSync&) = delete;

    bool Lock(uint32 timeoutMs);
    bool Unlock();

private:
    // The lock is the flag mHeld, kept under a plain mutex that is held only
    // for a moment; waiters sleep on mReleased. (A timed mutex would do the
    // same, but its timed path is invisible to ThreadSanitizer on this libc.)
    std::mutex mMutex;                  // guards mHeld
    std::condition_variable mReleased;  // Lock() waits here for Unlock()
    bool mHeld;                         // guarded by mMutex
};

#endif  // HB_FRAMEWORK_HBSYNC_H
