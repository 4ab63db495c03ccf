#include "private/Mox.h"

#include <cstring>

#include "HbFramework/HbDbgOutput.h"
#include "private/MoxDapDatabase.h"
#include "private/MoxProtocol.h"
#include "private/MoxSearchInfo.h"
#include "private/MoxState.h"

namespace {

// Every message of the unit names this source, with the line numbers that
// integrators' log filters know.
const char* const kSource = "private/Mox";

const int LINE_REGST_MSG_BOX = 53;
const int LINE_SEND_MSG_SELF = 155;
const int LINE_DISPATCH_TBL_FIRST = 169;  // 600; one line per id up to 607 at 176
const int LINE_SEARCH_NOT_LINKED = 287;
const int LINE_RESULT_PARAM = 310;
const int LINE_RESULT_NOT_READY = 316;
const int LINE_PROTOCOL_UNKNOWN = 354;

// Ids of the module state's notifications that the unit reacts to.
const uint32 STATE_NTF_APP_STATE = 0;
const uint32 STATE_NTF_LINK_STATE = 3;
const uint32 STATE_NTF_DEVICE_STATUS = 7;
const uint32 STATE_NTF_RESULT_STATE = 8;

}  // namespace

Mox::Mox()
    : HbSingleton<Mox>(),
      HbUnitFrame(),
      HbSubject(),
      OstLinkApp(1),
      dapDatabase(nullptr),
      protocol(nullptr),
      state(nullptr),
      protocolObserver(nullptr),
      stateObserver(nullptr),
      worker(nullptr) {
    dapDatabase = MoxDapDatabase::GetInstance();
    protocol = MoxProtocol::GetInstance();
    state = MoxState::GetInstance();
    protocolObserver = new HbObserver<Mox>(this, &Mox::rcvMoxProtocolNotify);
    stateObserver = new HbObserver<Mox>(this, &Mox::rcvMoxStateNotify);
    worker = new HbWorker(0, 4000, 0);
    SetMsgRange(this, en_MSG_COUNT, en_MSG_BASE);
    SetEvtRange(this, en_EVT_COUNT, en_EVT_BASE);
    const int32 registered = RegstMsgBox(worker, L"Mox");
    if (registered != 0) {
        HbDbgOutput::DbgPrint(kSource, "Mox", LINE_REGST_MSG_BOX, en_TAG_ERROR,
                              "RegstMsgBox return=%d.\n", static_cast<int>(registered));
    }
    worker->Start("HbWorker");
    protocol->AddObserver(protocolObserver);
    state->AddObserver(stateObserver);
    InitData init = {state, protocol};
    initialize(init);
}

Mox::~Mox() {
    getMoxProtocol()->RemoveObserver(protocolObserver);
    delete protocolObserver;
    protocolObserver = nullptr;
    getMoxState()->RemoveObserver(stateObserver);
    delete stateObserver;
    stateObserver = nullptr;
    UnregistMsgBox();
    // The worker outlives the unit on purpose: the framework stops its
    // thread when the process's singletons are torn down.
    worker = nullptr;
}

void Mox::DelInstance() {}

MoxDapDatabase* Mox::getMoxDapDatabase() {
    if (dapDatabase == nullptr) {
        dapDatabase = MoxDapDatabase::GetInstance();
    }
    return dapDatabase;
}

MoxProtocol* Mox::getMoxProtocol() {
    if (protocol == nullptr) {
        protocol = MoxProtocol::GetInstance();
    }
    return protocol;
}

MoxState* Mox::getMoxState() {
    if (state == nullptr) {
        state = MoxState::GetInstance();
    }
    return state;
}

void Mox::SetMsgDispatchTbl(HbIDispatcher* dispatcher) {
    HbDispatcher<Mox>* table = static_cast<HbDispatcher<Mox>*>(dispatcher);
    table->SetFunctionName(L"Mox");
    int line = LINE_DISPATCH_TBL_FIRST;
    table->MapMessage(en_MSG_DEVICE_INFO, &Mox::LinkAppCommIFMsgOnNotifyDeviceInfoUpdate, kSource,
                      line++);
    table->MapMessage(en_MSG_DEVICE_STATUS, &Mox::LinkAppCommIFMsgOnNotifyDeviceStatus, kSource,
                      line++);
    table->MapMessage(en_MSG_CMD_DATA, &Mox::LinkAppCommIFMsgOnNotifyCmdData, kSource, line++);
    table->MapMessage(en_MSG_REQUEST_DEVICE_CONNECT, &Mox::moxMsgRequestDeviceConnect, kSource,
                      line++);
    table->MapMessage(en_MSG_REQUEST_DEVICE_DISCONNECT, &Mox::moxMsgRequestDeviceDisconnect,
                      kSource, line++);
    table->MapMessage(en_MSG_START_LINK, &Mox::moxMsgStartLink, kSource, line++);
    table->MapMessage(en_MSG_STOP_LINK, &Mox::moxMsgStopLink, kSource, line++);
    table->MapMessage(en_MSG_SEARCH, &Mox::moxMsgSearch, kSource, line);
}

// --- Requests -------------------------------------------------------------------

void Mox::moxRequestDeviceConnect() {
    comSendMsgSelf(en_MSG_REQUEST_DEVICE_CONNECT, nullptr, 0);
}

void Mox::moxRequestDeviceDisconnect() {
    comSendMsgSelf(en_MSG_REQUEST_DEVICE_DISCONNECT, nullptr, 0);
}

void Mox::moxStartLink() {
    comSendMsgSelf(en_MSG_START_LINK, nullptr, 0);
}

void Mox::moxStopLink() {
    comSendMsgSelf(en_MSG_STOP_LINK, nullptr, 0);
}

void Mox::moxSearch(HbSMoxDef::SearchInfo& info) {
    MoxSearchInfo* request = new MoxSearchInfo();
    request->lookupKind = info.lookupKind;
    request->lookupParam1 = info.lookupParam1;
    request->lookupParam2 = info.lookupParam2;
    request->toc = info.toc;
    // The message carries the pointer value itself (4 bytes on the head
    // unit); the handler owns the object from here on.
    comSendMsgSelf(en_MSG_SEARCH, &request, sizeof(request));
}

// --- Synchronous reads -------------------------------------------------------------

bool Mox::moxGetSearchResult(std::string toc, std::list<HbSMoxDef::AlbumInfo>* albums) {
    if (albums == nullptr) {
        HbDbgOutput::DbgPrint(kSource, "moxGetSearchResult", LINE_RESULT_PARAM, en_TAG_ERROR,
                              "param error(null).\n");
        return false;
    }
    if (getMoxState()->getResultState() != MoxState::en_RESULT_COMPLETE) {
        HbDbgOutput::DbgPrint(kSource, "moxGetSearchResult", LINE_RESULT_NOT_READY, en_TAG_ERROR,
                              "not yet get result.\n");
        return false;
    }
    return getMoxDapDatabase()->getSearchResult(toc, albums);
}

int32 Mox::moxGetSearchStatus() {
    return static_cast<int32>(getMoxState()->getResultState());
}

// --- Message handlers --------------------------------------------------------------

uint32 Mox::moxMsgRequestDeviceConnect(uint32 id, void* data, uint32 size) {
    (void)id;
    (void)data;
    (void)size;
    requestDeviceConnect();
    return 1;
}

uint32 Mox::moxMsgRequestDeviceDisconnect(uint32 id, void* data, uint32 size) {
    (void)id;
    (void)data;
    (void)size;
    requestDeviceDisconnect();
    return 1;
}

uint32 Mox::moxMsgStartLink(uint32 id, void* data, uint32 size) {
    (void)id;
    (void)data;
    (void)size;
    startLink();
    return 1;
}

uint32 Mox::moxMsgStopLink(uint32 id, void* data, uint32 size) {
    (void)id;
    (void)data;
    (void)size;
    stopLink();
    return 1;
}

uint32 Mox::moxMsgSearch(uint32 id, void* data, uint32 size) {
    (void)id;
    if (!getMoxState()->getIsAppLinkState()) {
        // The request is dropped and its MoxSearchInfo abandoned, not
        // deleted: the head unit's behaviour, kept as it is.
        HbDbgOutput::DbgPrint(kSource, "moxMsgSearch", LINE_SEARCH_NOT_LINKED, en_TAG_ERROR,
                              "not yet link connect.\n");
        return 1;
    }
    MoxSearchInfo* request = nullptr;
    if (data == nullptr || size < sizeof(request)) {
        return 1;
    }
    std::memcpy(&request, data, sizeof(request));
    if (request == nullptr) {
        return 1;
    }
    HbSMoxDef::SearchInfo info;
    info.lookupKind = request->lookupKind;
    info.lookupParam1 = request->lookupParam1;
    info.lookupParam2 = request->lookupParam2;
    info.toc = request->toc;
    getMoxProtocol()->sendCmdEventCdTocLookup(info);
    delete request;
    return 1;
}

// --- Observer callbacks --------------------------------------------------------------

uint32 Mox::rcvMoxProtocolNotify(uint32 id, void* data, uint32 size) {
    if (id != 0) {
        HbDbgOutput::DbgPrint(kSource, "rcvMoxProtocolNotify", LINE_PROTOCOL_UNKNOWN, en_TAG_ERROR,
                              "receive unknown id=%d\n", static_cast<int>(id));
        return 1;
    }
    LinkAppCommIFSendCommand(data, size);
    return 1;
}

uint32 Mox::rcvMoxStateNotify(uint32 id, void* data, uint32 size) {
    switch (id) {
        case STATE_NTF_APP_STATE: {
            if (data == nullptr || size < 1) {
                return 1;
            }
            const uint8 appState = *static_cast<const uint8*>(data);
            if (appState == 0) {
                // The phone application is gone: the link and the iOS
                // session with it.
                getMoxState()->setIsAppLinkState(false);
                getMoxState()->setIosConnect(false);
            }
            notifyObserverAppActivated();
            break;
        }
        case STATE_NTF_LINK_STATE:
            moxNotifyObserverLinkState();
            break;
        case STATE_NTF_DEVICE_STATUS: {
            if (data == nullptr || size < 1) {
                return 1;
            }
            uint8 status = *static_cast<const uint8*>(data);
            comNotifyObserver(en_NTF_DEVICE_STATUS, &status, 1);
            break;
        }
        case STATE_NTF_RESULT_STATE:
            moxNotifyObserverSearchResult();
            break;
        default:
            break;
    }
    return 1;
}

void Mox::moxNotifyObserverLinkState() {
    int32 value = getMoxState()->getIsAppLinkState() ? 1 : 0;
    NotifyObserver(en_NTF_LINK_STATE, &value, sizeof(value), en_NTF_TYPE_SYNC);
}

void Mox::moxNotifyObserverSearchResult() {
    int32 value = static_cast<int32>(getMoxState()->getResultState());
    NotifyObserver(en_NTF_SEARCH_RESULT, &value, sizeof(value), en_NTF_TYPE_SYNC);
}

// --- Hooks of the link-app base --------------------------------------------------------

void Mox::comSendMsgSelf(uint32 id, const void* data, uint32 size) {
    const int32 error = SendMsgSelf(id, en_MSG_ID_MESSAGE, data, size);
    if (error != 0) {
        HbDbgOutput::DbgPrint(kSource, "comSendMsgSelf", LINE_SEND_MSG_SELF, en_TAG_ERROR,
                              "SendMsgSelf return error=%d.\n", static_cast<int>(error));
    }
}

void Mox::comNotifyObserver(uint32 id, void* data, uint32 size) {
    NotifyObserver(id, data, size, en_NTF_TYPE_SYNC);
}

void Mox::LinkAppCommIFImplAppConnect(const DeviceStatus* status) {
    (void)status;
}

void Mox::LinkAppCommIFImplAppDisconnect(const DeviceStatus* status) {
    (void)status;
}

void Mox::LinkAppCommIFImplAppOpen(const DeviceStatus* status) {
    (void)status;
}

void Mox::LinkAppCommIFImplAppClose(const DeviceStatus* status) {
    (void)status;
}
