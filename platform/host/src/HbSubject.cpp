#include "HbFramework/HbSubject.h"

#include <algorithm>
#include <thread>

// One registered observer. `callers` lists the threads that are inside its
// Update() right now; `removed` is set when it leaves the list.
struct HbSubject::Entry {
    HbObserver_* observer;
    bool removed;
    std::vector<std::thread::id> callers;
};

HbSubject::HbSubject() {}

HbSubject::~HbSubject() {
    std::lock_guard<std::mutex> lock(mMutex);
    for (const std::shared_ptr<Entry>& entry : mEntries) {
        entry->removed = true;
    }
    mEntries.clear();
}

void HbSubject::AddObserver(HbObserver_* observer) {
    if (observer == nullptr) {
        return;
    }
    std::lock_guard<std::mutex> lock(mMutex);
    for (const std::shared_ptr<Entry>& entry : mEntries) {
        if (entry->observer == observer) {
            return;
        }
    }
    mEntries.push_back(std::make_shared<Entry>(Entry{observer, false, {}}));
}

void HbSubject::RemoveObserver(HbObserver_* observer) {
    std::unique_lock<std::mutex> lock(mMutex);
    auto it = std::find_if(
        mEntries.begin(), mEntries.end(),
        [observer](const std::shared_ptr<Entry>& e) { return e->observer == observer; });
    if (it == mEntries.end()) {
        return;
    }
    std::shared_ptr<Entry> entry = *it;
    entry->removed = true;
    mEntries.erase(it);
    // Wait for calls on other threads; a call on this thread is the one that
    // is removing the observer and must not wait for itself.
    const std::thread::id self = std::this_thread::get_id();
    auto idle = [&entry, self] {
        return std::all_of(entry->callers.begin(), entry->callers.end(),
                           [self](std::thread::id caller) { return caller == self; });
    };
    if (idle()) {
        return;
    }
    if (mRemoveWaitHook) {
        mRemoveWaitHook();
    }
    mIdle.wait(lock, idle);
}

void HbSubject::SetRemoveWaitHook(std::function<void()> hook) {
    std::lock_guard<std::mutex> lock(mMutex);
    mRemoveWaitHook = std::move(hook);
}

void HbSubject::NotifyObserver(uint32 id, void* data, uint32 size, EN_NTF_TYPE type) {
    (void)type;  // every notification is delivered on the calling thread
    std::vector<std::shared_ptr<Entry>> snapshot;
    {
        std::lock_guard<std::mutex> lock(mMutex);
        snapshot = mEntries;
    }
    const std::thread::id self = std::this_thread::get_id();
    for (const std::shared_ptr<Entry>& entry : snapshot) {
        {
            std::lock_guard<std::mutex> lock(mMutex);
            if (entry->removed) {
                continue;
            }
            entry->callers.push_back(self);
        }
        entry->observer->Update(id, data, size);
        {
            std::lock_guard<std::mutex> lock(mMutex);
            auto caller = std::find(entry->callers.begin(), entry->callers.end(), self);
            if (caller != entry->callers.end()) {
                entry->callers.erase(caller);
            }
        }
        mIdle.notify_all();
    }
}

size_t HbSubject::ObserverCount() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mEntries.size();
}
