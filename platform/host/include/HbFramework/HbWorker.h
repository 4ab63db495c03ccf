// A worker thread with a message box.
// - Start(name) launches the thread, named with `name` (cut to 15 bytes); the
//   thread hands each message of its box to the registered unit's dispatcher.
// - `capacity` bounds the box (messages waiting at once); `stackSize` 0 means
//   the system default; `priority` is accepted and ignored on the host.
// - The host framework stops every started worker in finalize(); a worker
//   that is destroyed stops and joins its thread first.
// Can be used from any thread, except that the worker thread itself must not
// Stop() or destroy its own worker.
#ifndef HB_FRAMEWORK_HBWORKER_H
#define HB_FRAMEWORK_HBWORKER_H

#include <pthread.h>

#include <memory>
#include <mutex>
#include <string>

#include "HbFramework/HbMsgBox.h"
#include "HbFramework/HbTypes.h"

class HbWorker {
public:
    HbWorker(int priority, uint32 capacity, uint32 stackSize);
    virtual ~HbWorker();
    HbWorker(const HbWorker&) = delete;
    HbWorker& operator=(const HbWorker&) = delete;

    // Returns false when the thread could not be started or runs already.
    bool Start(const char* name);
    virtual HbMsgBox* GetMsgBox() const;
    // Host only: closes the box and joins the thread. Not from the worker itself.
    void Stop();

private:
    static void* threadMain(void* self);

    std::unique_ptr<HbMsgBox> mMsgBox;  // set by the constructor, never replaced
    uint32 mStackSize;                  // set by the constructor
    std::mutex mJoinMutex;              // held by Stop() while it joins; never by the thread
    std::mutex mMutex;                  // guards every member below
    bool mStarted;                      // Start() has launched the thread
    bool mJoined;                       // Stop() has joined it
    std::string mName;                  // thread name, read by the thread when it starts
    pthread_t mThread;                  // valid once mStarted
};

#endif  // HB_FRAMEWORK_HBWORKER_H
