// The module's unit: it owns the worker thread ("HbWorker") on which every
// request runs, drives the link to the phone application through its
// OstLinkApp base, relays the protocol's outgoing frames to the link and turns
// changes of the module state into notifications for the facade.
//
// Messages (each handler returns 1 whatever happened):
//
// | Id  | Handler                                        | Posted by                   |
// |-----|------------------------------------------------|-----------------------------|
// | 600 | LinkAppCommIFMsgOnNotifyDeviceInfoUpdate       | the link, comSendMsgSelf    |
// | 601 | LinkAppCommIFMsgOnNotifyDeviceStatus           | the link, comSendMsgSelf    |
// | 602 | LinkAppCommIFMsgOnNotifyCmdData                | the link, comSendMsgSelf    |
// | 603 | moxMsgRequestDeviceConnect                     | moxRequestDeviceConnect     |
// | 604 | moxMsgRequestDeviceDisconnect                  | moxRequestDeviceDisconnect  |
// | 605 | moxMsgStartLink                                | moxStartLink                |
// | 606 | moxMsgStopLink                                 | moxStopLink                 |
// | 607 | moxMsgSearch                                   | moxSearch                   |
//
// Notifications to the unit's own observers (the facade), all type 0:
// 1 the link state (int32), 2 the result state (int32), 3 the device status
// byte of the state's notification 7 (uint8).
//
// Thread rules:
// - Caller threads: the mox... requests (they only post), moxGetSearchResult,
//   moxGetSearchStatus and the link's Terminate().
// - The worker thread runs every message handler.
// - rcvMoxProtocolNotify and rcvMoxStateNotify run on whichever thread made
//   the protocol or the state notify: the worker, or the timer manager's
//   thread for a command-timer expiry.
// The unit takes no lock of its own; the state guards its values, and every
// member below is written only while the unit is built or torn down.
#ifndef MOX_PRIVATE_MOX_H
#define MOX_PRIVATE_MOX_H

#include <list>
#include <string>

#include "HbFramework/Foundation/HbIDispatcher.h"
#include "HbFramework/Foundation/HbObserver.h"
#include "HbFramework/Foundation/HbSingleton.h"
#include "HbFramework/Foundation/HbUnitFrame.h"
#include "HbFramework/HbSubject.h"
#include "HbFramework/HbTypes.h"
#include "HbFramework/HbWorker.h"
#include "HbSMoxDef.h"
#include "OstLinkApp/OstLinkApp.h"

class MoxDapDatabase;
class MoxProtocol;
class MoxState;

class Mox : public HbSingleton<Mox>, public HbUnitFrame, public HbSubject, public OstLinkApp {
    friend class HbSingleton<Mox>;

public:
    // Message ids of the unit: 8 from 600; one event id from 1000.
    enum EN_MOX_MSG_ID {
        en_MSG_BASE = 600,
        en_MSG_COUNT = 8,
        en_MSG_REQUEST_DEVICE_CONNECT = 603,
        en_MSG_REQUEST_DEVICE_DISCONNECT = 604,
        en_MSG_START_LINK = 605,
        en_MSG_STOP_LINK = 606,
        en_MSG_SEARCH = 607,
        en_EVT_BASE = 1000,
        en_EVT_COUNT = 1,
    };
    // Notification ids raised to the unit's observers.
    enum EN_MOX_NTF_ID {
        en_NTF_LINK_STATE = 1,
        en_NTF_SEARCH_RESULT = 2,
        en_NTF_DEVICE_STATUS = 3,
    };

    // Does nothing: the unit lives until the singleton finalizer ends it.
    static void DelInstance();
    ~Mox() override;

    MoxDapDatabase* getMoxDapDatabase();
    MoxProtocol* getMoxProtocol();
    MoxState* getMoxState();

    // --- Requests: each posts its message and returns at once ---------------
    void moxRequestDeviceConnect();
    void moxRequestDeviceDisconnect();
    void moxStartLink();
    void moxStopLink();
    // Copies `info` into a new MoxSearchInfo and posts its pointer; the
    // handler takes the object over.
    void moxSearch(HbSMoxDef::SearchInfo& info);

    // --- Synchronous reads, on the caller's thread ------------------------------
    // The albums of the stored answer for `toc`; false (with a message) for a
    // null list or while the result state is not 0 (complete).
    bool moxGetSearchResult(std::string toc, std::list<HbSMoxDef::AlbumInfo>* albums);
    int32 moxGetSearchStatus();

    // --- Message handlers (worker thread) ------------------------------------
    uint32 moxMsgRequestDeviceConnect(uint32 id, void* data, uint32 size);
    uint32 moxMsgRequestDeviceDisconnect(uint32 id, void* data, uint32 size);
    uint32 moxMsgStartLink(uint32 id, void* data, uint32 size);
    uint32 moxMsgStopLink(uint32 id, void* data, uint32 size);
    uint32 moxMsgSearch(uint32 id, void* data, uint32 size);

    // --- Observer callbacks -------------------------------------------------------
    // The protocol's outgoing frames (id 0) go straight to the link.
    uint32 rcvMoxProtocolNotify(uint32 id, void* data, uint32 size);
    // Link and result-state changes of the module state.
    uint32 rcvMoxStateNotify(uint32 id, void* data, uint32 size);

    void moxNotifyObserverLinkState();
    void moxNotifyObserverSearchResult();

    // --- Hooks of the link-app base ---------------------------------------------------
    void comSendMsgSelf(uint32 id, const void* data, uint32 size) override;
    void comNotifyObserver(uint32 id, void* data, uint32 size) override;
    // Deliberately empty: the unit follows link changes through the state's
    // notifications instead.
    void LinkAppCommIFImplAppConnect(const DeviceStatus* status) override;
    void LinkAppCommIFImplAppDisconnect(const DeviceStatus* status) override;
    void LinkAppCommIFImplAppOpen(const DeviceStatus* status) override;
    void LinkAppCommIFImplAppClose(const DeviceStatus* status) override;

    // Fills the dispatcher with the eight message handlers, 600 to 607.
    void SetMsgDispatchTbl(HbIDispatcher* dispatcher);

    // Host only, for tests: the unit's worker (null once the unit is withdrawn).
    HbWorker* getWorker() const { return worker; }

private:
    Mox();

    MoxDapDatabase* dapDatabase;        // not owned (singleton)
    MoxProtocol* protocol;              // not owned (singleton)
    MoxState* state;                    // not owned (singleton)
    HbObserver<Mox>* protocolObserver;  // owned; on the protocol's subject
    HbObserver<Mox>* stateObserver;     // owned; on the state's subject
    HbWorker* worker;                   // the unit's thread; never stopped or deleted by the unit
};

#endif  // MOX_PRIVATE_MOX_H
