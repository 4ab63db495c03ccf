// Observers receive the numbered notifications of an HbSubject.
// HbObserver<T> forwards each one to a member function of T:
//
//   HbObserver<Foo>* observer = new HbObserver<Foo>(this, &Foo::rcvNotify);
//   subject->AddObserver(observer);
//
// Update() runs on whichever thread raised the notification.
#ifndef HB_FOUNDATION_HBOBSERVER_H
#define HB_FOUNDATION_HBOBSERVER_H

#include "HbFramework/HbTypes.h"

class HbObserver_ {
public:
    virtual ~HbObserver_() {}
    virtual uint32 Update(uint32 id, void* data, uint32 size) {
        (void)id;
        (void)data;
        (void)size;
        return 0;
    }
};

template <class T>
class HbObserver : public HbObserver_ {
public:
    typedef uint32 (T::*Handler)(uint32 id, void* data, uint32 size);

    HbObserver(T* obj, Handler fn) : object(obj), handler(fn) {}
    ~HbObserver() override {}

    // Calls the bound member (virtually, when it is virtual) and returns its result.
    uint32 Update(uint32 id, void* data, uint32 size) override {
        return (object->*handler)(id, data, size);
    }

    T* object;  // not owned
    Handler handler;
};

#endif  // HB_FOUNDATION_HBOBSERVER_H
