// HbSMox: the music-information module as the head unit's application uses it.
//
//   class App {
//   public:
//       uint32 onMox(uint32 id, void* data, uint32 size);  // 1, 2 or 3, see below
//   };
//   App app;
//   HbObserver<App> observer(&app, &App::onMox);
//   HbSMox* mox = HbSMox::GetInstance();
//   mox->AddObserver(&observer);
//   mox->startLink();                 // later: notification 1 with 1
//   mox->search(info);                // later: notification 2 with 103 ... 0
//   std::list<HbSMoxDef::AlbumInfo> albums;
//   mox->getSearchResult(info.toc, &albums);  // once notification 2 said 0
//
// Notifications (type 0), on the thread that raised them (the module's worker
// thread "HbWorker", or the timer thread "HbLTimerMng" for a timeout):
//
// | Id | Data                                             | Size |
// |----|--------------------------------------------------|------|
// | 1  | int32 link state, non-zero while the phone is linked | 4 |
// | 2  | int32 result state: 0 complete, 4 timeout, 20 error, 100 idle, 101 connecting, 102
// connected, 103 searching, 104 cancelling, any other value a failure code of the phone | 4 | | 3
// | uint8 device status: 0 none, 1 connected, 2 application open, 3 closed | 1 |
//
// - The posting operations (startLink, stopLink, search, requestDevice...)
//   may be called on any thread; they only queue the request and return.
// - getSearchResult and getSearchStatus run on the caller's thread; two
//   getSearchResult calls must not overlap.
// - An observer must not block: it runs on the module's threads.
// - The instance lives until the framework's singleton finalizer ends it;
//   DelInstance() does nothing.
#ifndef HBSMOX_H
#define HBSMOX_H

#include <list>
#include <string>

#include "HbFramework/Foundation/HbObserver.h"
#include "HbFramework/Foundation/HbSingleton.h"
#include "HbFramework/HbSubject.h"
#include "HbFramework/HbTypes.h"
#include "HbSMoxDef.h"

#define HBSMOX_EXPORT __attribute__((visibility("default")))

class Mox;
class HbSMox;

// One instance across the library boundary: the singleton machinery of
// HbSMox is instantiated once, inside the module, and exported from it. An
// application that includes this header uses that copy instead of making its
// own, so its GetInstance() and the module's return the same object.
extern template class HBSMOX_EXPORT HbSingleton<HbSMox>;

class HBSMOX_EXPORT HbSMox : public HbSubject, public HbSingleton<HbSMox> {
    friend class HbSingleton<HbSMox>;

public:
    ~HbSMox() override;

    // Does nothing: the instance lives until the singleton finalizer ends it.
    static void DelInstance();

    // Shuts the link to the phone down (closes its transport), on the
    // caller's thread; the facade and the module stay in place.
    void Terminate();
    // Starts the link to the phone application (posts the request).
    void startLink();
    // Stops the link: tells the phone, then closes the transport (posts).
    void stopLink();
    // Looks a disc up (posts a copy of `info`); the outcome arrives as
    // notification 2. Keep info.toc shorter than 65,536 bytes.
    void search(HbSMoxDef::SearchInfo& info);
    void requestDeviceConnect();
    void requestDeviceDisconnect();
    // Fills `albums` with the candidates for `toc`, best first, once the
    // result state is 0; false (nothing changed) otherwise.
    bool getSearchResult(std::string toc, std::list<HbSMoxDef::AlbumInfo>* albums);
    // The result state (see notification 2).
    int32 getSearchStatus();

    // The module's unit, created on first use.
    Mox* getMox();
    // Passes a notification of the unit on to the application's observers.
    uint32 rcvMoxNotify(uint32 id, void* data, uint32 size);

private:
    HbSMox();

    Mox* mox;                      // not owned (singleton); cached by getMox()
    HbObserver<HbSMox>* observer;  // owned; on the unit's subject
};

#endif  // HBSMOX_H
