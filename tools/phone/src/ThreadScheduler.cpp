// Delayed tasks on a thread of their own, run under the owner's lock.
#include "moxphone/ThreadScheduler.h"

#include <pthread.h>

namespace moxphone {

ThreadScheduler::ThreadScheduler(std::mutex& guard, Task afterTask)
    : mGuard(guard),
      mAfterTask(std::move(afterTask)),
      mNextOrder(0),
      mStopping(false),
      mGeneration(0) {}

ThreadScheduler::~ThreadScheduler() {
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mStopping = true;
        mTasks.clear();
    }
    mWake.notify_all();
    if (mThread.joinable()) {
        mThread.join();
    }
}

void ThreadScheduler::schedule(uint32_t delayMs, Task task) {
    std::lock_guard<std::mutex> lock(mMutex);
    if (mStopping) {
        return;
    }
    const Key key(Clock::now() + std::chrono::milliseconds(delayMs), mNextOrder++);
    mTasks.emplace(key, Entry{mGeneration.load(), std::move(task)});
    if (!mThread.joinable()) {
        mThread = std::thread(&ThreadScheduler::run, this);
    }
    mWake.notify_all();
}

void ThreadScheduler::cancelAll() {
    std::lock_guard<std::mutex> lock(mMutex);
    mTasks.clear();
    ++mGeneration;
}

void ThreadScheduler::run() {
    // A new thread takes its creator's name, and tasks are first scheduled
    // from the module's worker: without a name of its own this thread would
    // be listed as a second "HbWorker".
    pthread_setname_np(pthread_self(), kThreadName);
    std::unique_lock<std::mutex> lock(mMutex);
    while (!mStopping) {
        if (mTasks.empty()) {
            mWake.wait(lock);
            continue;
        }
        const Clock::time_point due = mTasks.begin()->first.first;
        if (Clock::now() < due) {
            mWake.wait_until(lock, due);
            continue;
        }
        Entry entry = std::move(mTasks.begin()->second);
        mTasks.erase(mTasks.begin());
        lock.unlock();
        bool ran = false;
        {
            // The generation is changed only under the guard, so a task that
            // cancelAll() dropped while this thread waited for it is seen here.
            std::lock_guard<std::mutex> guard(mGuard);
            if (!mStopping && entry.generation == mGeneration.load()) {
                entry.task();
                ran = true;
            }
        }
        if (ran && mAfterTask) {
            mAfterTask();
        }
        lock.lock();
    }
}

}  // namespace moxphone
