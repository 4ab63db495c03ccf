// A one-shot event for ordering test threads without sleeping: wait() returns
// once set() has been called (before or after). Can be used from any thread.
#ifndef MOX_TESTS_TESTEVENT_H
#define MOX_TESTS_TESTEVENT_H

#include <condition_variable>
#include <mutex>

class TestEvent {
public:
    void set() {
        std::lock_guard<std::mutex> lock(mMutex);
        mSet = true;
        mChanged.notify_all();
    }

    void wait() {
        std::unique_lock<std::mutex> lock(mMutex);
        mChanged.wait(lock, [this] { return mSet; });
    }

    bool isSet() const {
        std::lock_guard<std::mutex> lock(mMutex);
        return mSet;
    }

private:
    mutable std::mutex mMutex;         // guards mSet
    std::condition_variable mChanged;  // wait() sleeps here
    bool mSet = false;
};

#endif  // MOX_TESTS_TESTEVENT_H
