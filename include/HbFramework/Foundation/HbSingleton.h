// Process-wide single instance of T, created on first use.
//
//   class Foo : public HbSingleton<Foo> {
//       friend class HbSingleton<Foo>;
//       Foo();
//   };
//   Foo* foo = Foo::GetInstance();
//
// - GetInstance() may be called from any thread: the instance is tested
//   without the lock, then again under Sync_, and created at most once; its
//   destroy() is then handed to the singleton finalizer, which alone ends it.
// - pInstance_ is written only under Sync_ (release) and read with acquire, so
//   the unlocked first test sees a completely constructed object.
#ifndef HB_FOUNDATION_HBSINGLETON_H
#define HB_FOUNDATION_HBSINGLETON_H

#include <atomic>

#include "HbFramework/Foundation/HbUncopyable.h"
#include "HbFramework/HbSingletonFinalizer.h"
#include "HbFramework/HbSync.h"

template <class T>
class HbSingleton : private HbUncopyable {
public:
    static T* GetInstance() {
        T* instance = pInstance_.load(std::memory_order_acquire);
        if (instance != nullptr) {
            return instance;
        }
        Sync_.Lock(HbSync::WAIT_FOREVER);
        if (pInstance_.load(std::memory_order_relaxed) == nullptr) {
            pInstance_.store(new T, std::memory_order_release);
            HbSingletonFinalizer::addDestroyFunc(&HbSingleton<T>::destroy);
        }
        instance = pInstance_.load(std::memory_order_relaxed);
        Sync_.Unlock();
        return instance;
    }

    // Deletes the instance, if any, through its virtual destructor; the
    // pointer is null afterwards.
    static void destroy() {
        T* instance = pInstance_.load(std::memory_order_acquire);
        if (instance != nullptr) {
            delete instance;
        }
        pInstance_.store(nullptr, std::memory_order_release);
    }

    virtual ~HbSingleton() {}

protected:
    HbSingleton() {}

    // Written under Sync_ by GetInstance() and, at teardown, by destroy() from
    // the finalizer; read by any thread (acquire).
    static std::atomic<T*> pInstance_;
    static HbSync Sync_;  // held only while the instance is created
};

template <class T>
std::atomic<T*> HbSingleton<T>::pInstance_{nullptr};

template <class T>
HbSync HbSingleton<T>::Sync_;

#endif  // HB_FOUNDATION_HBSINGLETON_H
