// A mutual-exclusion lock with a timeout.
// - Lock(0xFFFFFFFF) waits without limit; any other value gives up after that
//   many milliseconds. Returns whether the lock was taken.
// - Not recursive: the owner must not lock it again.
// Can be used from any thread.
#ifndef HB_FRAMEWORK_HBSYNC_H
#define HB_FRAMEWORK_HBSYNC_H

#include <mutex>

#include "HbFramework/HbTypes.h"

class HbSync {
public:
    static const uint32 WAIT_FOREVER = 0xFFFFFFFFu;

    HbSync();
    ~HbSync();
    HbSync(const HbSync&) = delete;
    HbSync& operator=(const HbSync&) = delete;

    bool Lock(uint32 timeoutMs);
    bool Unlock();

private:
    std::timed_mutex mMutex;
};

#endif  // HB_FRAMEWORK_HBSYNC_H
