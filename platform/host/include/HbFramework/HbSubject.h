// A list of observers that are told of numbered notifications.
// - NotifyObserver() takes a snapshot of the list and calls Update() on each
//   observer on the calling thread, with no lock held, so an observer may add
//   or remove observers (itself included) while it is being notified.
// - An observer removed during a notification is not called after its removal;
//   one added during a notification is first called by the next notification.
// - RemoveObserver() called on another thread waits until a running Update()
//   of that observer has returned, so the observer may be deleted right after.
// Can be used from any thread.
#ifndef HB_FRAMEWORK_HBSUBJECT_H
#define HB_FRAMEWORK_HBSUBJECT_H

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "HbFramework/Foundation/HbObserver.h"
#include "HbFramework/HbTypes.h"

enum EN_NTF_TYPE {
    en_NTF_TYPE_SYNC = 0,  // delivered on the calling thread before NotifyObserver returns
};

class HbSubject {
public:
    HbSubject();
    virtual ~HbSubject();
    HbSubject(const HbSubject&) = delete;
    HbSubject& operator=(const HbSubject&) = delete;

    // Adding an observer twice has no effect. Null is ignored.
    void AddObserver(HbObserver_* observer);
    void RemoveObserver(HbObserver_* observer);
    void NotifyObserver(uint32 id, void* data, uint32 size, EN_NTF_TYPE type);

    // Host only: number of registered observers.
    size_t ObserverCount() const;
    // Host only, for tests: `hook` runs each time RemoveObserver() starts
    // waiting for an Update() on another thread, with the subject's lock held
    // (it must not call the subject).
    void SetRemoveWaitHook(std::function<void()> hook);

private:
    struct Entry;

    mutable std::mutex mMutex;      // guards mEntries and every Entry's state
    std::condition_variable mIdle;  // RemoveObserver() waits here for Update() on other threads
    std::vector<std::shared_ptr<Entry>> mEntries;  // guarded by mMutex; in order of adding
    std::function<void()> mRemoveWaitHook;         // guarded by mMutex
};

#endif  // HB_FRAMEWORK_HBSUBJECT_H
