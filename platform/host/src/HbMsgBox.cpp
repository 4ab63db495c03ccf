#include "HbFramework/HbMsgBox.h"

#include <cstring>

HbMsgBox::HbMsgBox(uint32 capacity)
    : mCapacity(capacity), mNextId(0), mRunningId(-1), mClosed(false) {}

HbMsgBox::~HbMsgBox() {
    Close();
}

bool HbMsgBox::AcceptTrail(uint32 trail) const {
    return trail == HOST_TRAIL;
}

int32 HbMsgBox::Regist(HbIDispatcher* dispatcher) {
    if (dispatcher == nullptr) {
        return -1;
    }
    std::lock_guard<std::mutex> lock(mMutex);
    if (mUnits.size() >= MAX_UNITS) {
        return -1;
    }
    int32 id = mNextId++;
    mUnits[id] = dispatcher;
    return id;
}

bool HbMsgBox::Unregist(int32 id) {
    std::unique_lock<std::mutex> lock(mMutex);
    if (mUnits.erase(id) == 0) {
        return false;
    }
    for (auto it = mQueue.begin(); it != mQueue.end();) {
        it = (it->id == id) ? mQueue.erase(it) : it + 1;
    }
    // The worker itself may withdraw a unit from inside its handler; it must
    // not wait for itself.
    if (std::this_thread::get_id() != mWorkerThread && mRunningId == id) {
        if (mUnregistWaitHook) {
            mUnregistWaitHook();
        }
        mHandlerDone.wait(lock, [this, id] { return mRunningId != id; });
    }
    return true;
}

void HbMsgBox::SetUnregistWaitHook(std::function<void()> hook) {
    std::lock_guard<std::mutex> lock(mMutex);
    mUnregistWaitHook = std::move(hook);
}

namespace {
thread_local int32 tLastPostResult = en_ERROR_NONE;
}  // namespace

int32 HbMsgBox::LastPostResultOnThisThread() {
    return tLastPostResult;
}

void HbMsgBox::ForgetLastPostResultOnThisThread() {
    tLastPostResult = en_ERROR_NONE;
}

int32 HbMsgBox::Post(int32 id, uint32 msgId, EN_MSG_ID kind, const void* data, uint32 size) {
    tLastPostResult = PostLocked(id, msgId, kind, data, size);
    return tLastPostResult;
}

int32 HbMsgBox::PostLocked(int32 id, uint32 msgId, EN_MSG_ID kind, const void* data, uint32 size) {
    if (size != 0 && data == nullptr) {
        return en_ERROR_PARAM;
    }
    std::lock_guard<std::mutex> lock(mMutex);
    if (mClosed) {
        return en_ERROR_STOPPED;
    }
    if (mUnits.find(id) == mUnits.end()) {
        return en_ERROR_NOT_REGISTERED;
    }
    if (mQueue.size() >= mCapacity) {
        return en_ERROR_MSGBOX_FULL;
    }
    Message message{id, msgId, kind, std::vector<uint8>(size)};
    if (size != 0) {
        std::memcpy(message.data.data(), data, size);
    }
    mQueue.push_back(std::move(message));
    mArrived.notify_one();
    return en_ERROR_NONE;
}

uint32 HbMsgBox::Count() {
    std::lock_guard<std::mutex> lock(mMutex);
    return static_cast<uint32>(mQueue.size());
}

void HbMsgBox::Run() {
    std::unique_lock<std::mutex> lock(mMutex);
    mWorkerThread = std::this_thread::get_id();
    for (;;) {
        mArrived.wait(lock, [this] { return mClosed || !mQueue.empty(); });
        if (mClosed) {
            return;
        }
        Message message = std::move(mQueue.front());
        mQueue.pop_front();
        auto unit = mUnits.find(message.id);
        if (unit == mUnits.end()) {
            continue;
        }
        HbIDispatcher* dispatcher = unit->second;
        mRunningId = message.id;
        lock.unlock();
        if (message.kind == en_MSG_ID_EVENT) {
            dispatcher->Dispatch(message.msgId);
        } else {
            void* data = message.data.empty() ? nullptr : message.data.data();
            dispatcher->Dispatch(message.msgId, data, static_cast<uint32>(message.data.size()));
        }
        lock.lock();
        mRunningId = -1;
        mHandlerDone.notify_all();
    }
}

void HbMsgBox::Close() {
    std::lock_guard<std::mutex> lock(mMutex);
    mClosed = true;
    mQueue.clear();
    mArrived.notify_all();
}
