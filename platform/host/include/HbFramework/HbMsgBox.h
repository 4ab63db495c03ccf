// The message box of a worker thread.
// - Units register their dispatcher and get an id; messages posted for that id
//   are handed to the dispatcher on the worker thread, one at a time, in
//   arrival order.
// - At most `capacity` messages wait at once; a post beyond that is refused.
// - Unregist() called on another thread returns only after a running handler
//   of that unit has finished; messages still queued for it are dropped.
// Can be used from any thread; handlers run with no lock held.
#ifndef HB_FRAMEWORK_HBMSGBOX_H
#define HB_FRAMEWORK_HBMSGBOX_H

#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

#include "HbFramework/Foundation/HbIDispatcher.h"
#include "HbFramework/HbTypes.h"

// Kind of a posted message: events go to Dispatch(id), messages to
// Dispatch(id, data, size).
enum EN_MSG_ID {
    en_MSG_ID_SYSTEM = 0,
    en_MSG_ID_EVENT = 1,
    en_MSG_ID_MESSAGE = 2,
};

// Error numbers of the framework's unit and message-box operations.
enum EN_HB_ERROR {
    en_ERROR_REGIST = -1,
    en_ERROR_NONE = 0,
    en_ERROR_PARAM = 1,
    en_ERROR_NO_DISPATCHER = 2,
    en_ERROR_NONMATCHING_TRAIL = 3,
    en_ERROR_NO_MSGBOX = 4,
    en_ERROR_MSGBOX_FULL = 5,
    en_ERROR_NOT_REGISTERED = 6,
    en_ERROR_STOPPED = 7,
};

class HbMsgBox {
public:
    static constexpr uint32 HOST_TRAIL = 0;  // the only trail the host box accepts
    static constexpr uint32 MAX_UNITS = 16;  // most units registered at once

    explicit HbMsgBox(uint32 capacity);
    ~HbMsgBox();
    HbMsgBox(const HbMsgBox&) = delete;
    HbMsgBox& operator=(const HbMsgBox&) = delete;

    bool AcceptTrail(uint32 trail) const;
    // Returns the unit's id, or -1 for a null dispatcher or a full box.
    int32 Regist(HbIDispatcher* dispatcher);
    // Returns false for an unknown id.
    bool Unregist(int32 id);
    // Copies `size` bytes of `data`; returns an EN_HB_ERROR value.
    int32 Post(int32 id, uint32 msgId, EN_MSG_ID kind, const void* data, uint32 size);

    uint32 Capacity() const { return mCapacity; }
    uint32 Count();

    // Host only: the result of the last Post() made on the calling thread
    // (en_ERROR_NONE before any). A poster that cannot read the result of
    // its post (through a handler that swallows it) asks here whether the
    // box refused it.
    static int32 LastPostResultOnThisThread();
    static void ForgetLastPostResultOnThisThread();

    // Worker side: runs messages until Close(). Called on the worker thread.
    void Run();
    // Stops Run() after the handler that runs now; queued messages are dropped.
    void Close();

    // Host only, for tests: `hook` runs each time Unregist() starts waiting for
    // a running handler, with the box's lock held (it must not call the box).
    void SetUnregistWaitHook(std::function<void()> hook);

private:
    // Post() without recording its result; takes the box's lock.
    int32 PostLocked(int32 id, uint32 msgId, EN_MSG_ID kind, const void* data, uint32 size);

    struct Message {
        int32 id;
        uint32 msgId;
        EN_MSG_ID kind;
        std::vector<uint8> data;
    };

    const uint32 mCapacity;                   // fixed at construction
    std::mutex mMutex;                        // guards every member below
    std::condition_variable mArrived;         // Run() waits here for a message or Close()
    std::condition_variable mHandlerDone;     // Unregist() waits here for a running handler
    std::deque<Message> mQueue;               // guarded by mMutex; oldest first
    std::map<int32, HbIDispatcher*> mUnits;   // guarded by mMutex; dispatchers not owned
    int32 mNextId;                            // guarded by mMutex
    int32 mRunningId;                         // guarded by mMutex; unit in a handler, -1 when none
    bool mClosed;                             // guarded by mMutex
    std::thread::id mWorkerThread;            // guarded by mMutex; set when Run() starts
    std::function<void()> mUnregistWaitHook;  // guarded by mMutex
};

#endif  // HB_FRAMEWORK_HBMSGBOX_H
