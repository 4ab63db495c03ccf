// Records the notifications of a subject (id, data bytes, thread name) so a
// test can wait for them and compare them exactly.
//
//   NotificationLog log;
//   subject->AddObserver(log.observer());
//   ... ASSERT_TRUE(log.waitFor([](const auto& n) { return n.size() == 2; }));
//   subject->RemoveObserver(log.observer());
#ifndef MOX_TESTS_NOTIFICATIONLOG_H
#define MOX_TESTS_NOTIFICATIONLOG_H

#include <pthread.h>

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "HbFramework/Foundation/HbObserver.h"
#include "HbFramework/HbTypes.h"

struct Notification {
    uint32 id;
    std::vector<unsigned char> data;
    std::string thread;

    // The data as an int32 (the link and result states travel this way).
    int32 asInt32() const {
        int32 value = 0;
        if (data.size() == sizeof(value)) {
            std::memcpy(&value, data.data(), sizeof(value));
        }
        return value;
    }
};

class NotificationLog {
public:
    NotificationLog() : mObserver(this, &NotificationLog::onNotify) {}
    NotificationLog(const NotificationLog&) = delete;
    NotificationLog& operator=(const NotificationLog&) = delete;

    HbObserver<NotificationLog>* observer() { return &mObserver; }

    uint32 onNotify(uint32 id, void* data, uint32 size) {
        Notification notification;
        notification.id = id;
        if (data != nullptr && size != 0) {
            const unsigned char* bytes = static_cast<const unsigned char*>(data);
            notification.data.assign(bytes, bytes + size);
        }
        char name[32] = {0};
        pthread_getname_np(pthread_self(), name, sizeof(name));
        notification.thread = name;
        std::function<void(const Notification&)> hook;
        {
            std::lock_guard<std::mutex> lock(mMutex);
            mNotifications.push_back(notification);
            hook = mHook;
            mArrived.notify_all();
        }
        if (hook) {
            hook(notification);
        }
        return 1;
    }

    std::vector<Notification> all() const {
        std::lock_guard<std::mutex> lock(mMutex);
        return mNotifications;
    }

    // The int32 values of every notification `id`, in order.
    std::vector<int32> valuesOf(uint32 id) const {
        std::vector<int32> out;
        for (const Notification& n : all()) {
            if (n.id == id) {
                out.push_back(n.asInt32());
            }
        }
        return out;
    }

    void clear() {
        std::lock_guard<std::mutex> lock(mMutex);
        mNotifications.clear();
    }

    // Runs on the notifying thread after each notification is recorded.
    void setHook(std::function<void(const Notification&)> hook) {
        std::lock_guard<std::mutex> lock(mMutex);
        mHook = std::move(hook);
    }

    // Waits until `done` holds for what was recorded; false when `limit`
    // passes first (a guard for broken tests only).
    bool waitFor(const std::function<bool(const std::vector<Notification>&)>& done,
                 std::chrono::milliseconds limit = std::chrono::seconds(30)) {
        std::unique_lock<std::mutex> lock(mMutex);
        return mArrived.wait_for(lock, limit, [this, &done] { return done(mNotifications); });
    }

    // Waits until notification `id` has carried the int32 `value`.
    bool waitForValue(uint32 id, int32 value,
                      std::chrono::milliseconds limit = std::chrono::seconds(30)) {
        return waitFor(
            [id, value](const std::vector<Notification>& all) {
                for (const Notification& n : all) {
                    if (n.id == id && n.asInt32() == value) {
                        return true;
                    }
                }
                return false;
            },
            limit);
    }

private:
    mutable std::mutex mMutex;
    std::condition_variable mArrived;
    std::vector<Notification> mNotifications;
    std::function<void(const Notification&)> mHook;
    HbObserver<NotificationLog> mObserver;
};

#endif  // MOX_TESTS_NOTIFICATIONLOG_H
