#include "HandOffThread.h"

HandOffThread::HandOffThread() : mThread(&HandOffThread::loop, this) {}

HandOffThread::~HandOffThread() {
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mEnd = true;
    }
    mToThread.notify_one();
    mThread.join();
}

bool HandOffThread::run(const std::function<bool()>& job) {
    std::unique_lock<std::mutex> lock(mMutex);
    mJob = &job;
    mDone = false;
    mToThread.notify_one();
    mToCaller.wait(lock, [this] { return mDone; });
    return mResult;
}

void HandOffThread::loop() {
    std::unique_lock<std::mutex> lock(mMutex);
    for (;;) {
        mToThread.wait(lock, [this] { return mEnd || mJob != nullptr; });
        if (mEnd) {
            return;
        }
        const std::function<bool()>* job = mJob;
        mJob = nullptr;
        lock.unlock();
        const bool result = (*job)();
        lock.lock();
        mResult = result;
        mDone = true;
        mToCaller.notify_one();
    }
}
