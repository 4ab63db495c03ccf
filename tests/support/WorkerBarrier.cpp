#include "WorkerBarrier.h"

WorkerBarrier::WorkerBarrier(HbMsgBox* box)
    : mBox(box), mId(-1), mPosted(0), mDone(0), mLeftBehind(0) {
    mId = mBox->Regist(this);
}

WorkerBarrier::~WorkerBarrier() {
    if (mId >= 0) {
        mBox->Unregist(mId);
    }
}

bool WorkerBarrier::drain(std::chrono::milliseconds limit) {
    if (mId < 0) {
        return false;
    }
    const auto deadline = std::chrono::steady_clock::now() + limit;
    for (;;) {
        uint64_t ticket = 0;
        {
            std::lock_guard<std::mutex> lock(mMutex);
            ticket = ++mPosted;
        }
        if (mBox->Post(mId, 1, en_MSG_ID_EVENT, nullptr, 0) != en_ERROR_NONE) {
            return false;
        }
        std::unique_lock<std::mutex> lock(mMutex);
        if (!mHandled.wait_until(lock, deadline, [this, ticket] { return mDone >= ticket; })) {
            return false;
        }
        if (mLeftBehind == 0) {
            return true;
        }
    }
}

uint64_t WorkerBarrier::rounds() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mPosted;
}

uint32 WorkerBarrier::Dispatch(uint32 id, void* data, uint32 size) {
    (void)data;
    (void)size;
    return Dispatch(id);
}

// Runs on the worker: what is still queued now arrived after the event.
uint32 WorkerBarrier::Dispatch(uint32 id) {
    (void)id;
    const uint32 left = mBox->Count();
    std::lock_guard<std::mutex> lock(mMutex);
    ++mDone;
    mLeftBehind = left;
    mHandled.notify_all();
    return 1;
}

void WorkerBarrier::SetFunctionName(const wchar_t* name) {
    (void)name;
}

const wchar_t* WorkerBarrier::GetFunctionName() {
    return L"WorkerBarrier";
}
