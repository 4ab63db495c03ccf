// A small user of the phone link for tests, built like the module's unit:
// an HbUnitFrame with its own worker ("HbWorker") whose dispatch table sends
// 600, 601 and 602 to the channel's handlers, an HbSubject, and the link
// (OstLinkApp). It owns a real OstLinkAppState and a FakeLinkProtocol.
//
// Journal (`log`), in the order things happen on the worker:
//   "state 7 [02]"         a state notification (id, bytes)
//   "AppOpen 2"            a hook with its status byte
//   "connect", "frame ..." the protocol's calls (FakeLinkProtocol)
//   "handled 601 [02]"     a handler has returned (id, bytes)
// Posts (`posts`), on the posting thread: "601 [00] @thread".
#ifndef MOX_TESTS_FRAMEWORK_LINKTESTUNIT_H
#define MOX_TESTS_FRAMEWORK_LINKTESTUNIT_H

#include <atomic>
#include <functional>
#include <initializer_list>
#include <memory>
#include <string>

#include "ByteText.h"
#include "CallLog.h"
#include "FakeLinkProtocol.h"
#include "HbFramework/Foundation/HbObserver.h"
#include "HbFramework/Foundation/HbUnitFrame.h"
#include "HbFramework/HbDbgOutput.h"
#include "HbFramework/HbSubject.h"
#include "HbFramework/HbWorker.h"
#include "OstLinkApp/OstLinkApp.h"
#include "OstLinkApp/OstLinkAppState.h"
#include "ThreadName.h"

class LinkTestUnit : public HbUnitFrame, public HbSubject, public OstLinkApp {
public:
    static constexpr const char* kSource = "tests/framework/LinkTestUnit.h";

    explicit LinkTestUnit(uint32 capacity = 4000)
        : OstLinkApp(1),
          log(),
          posts(),
          state(),
          protocol(&log),
          mWorker(new HbWorker(0, capacity, 0)),
          mStateObserver(this, &LinkTestUnit::onStateNotify) {
        SetMsgRange(this, 3, 600);
        RegstMsgBox(mWorker.get());
        mWorker->Start("HbWorker");
        state.AddObserver(&mStateObserver);
        protocol.setSender(this);
        InitData init = {&state, &protocol};
        initialize(init);
    }

    ~LinkTestUnit() override {
        Terminate();
        state.RemoveObserver(&mStateObserver);
        UnregistMsgBox();
        mWorker->Stop();
    }

    void SetMsgDispatchTbl(HbDispatcher<LinkTestUnit>* table) {
        table->MapMessage(600, &LinkTestUnit::onDeviceInfo, kSource, __LINE__);
        table->MapMessage(601, &LinkTestUnit::onDeviceStatus, kSource, __LINE__);
        table->MapMessage(602, &LinkTestUnit::onCmdData, kSource, __LINE__);
    }

    void comSendMsgSelf(uint32 id, const void* data, uint32 size) override {
        posts.add(std::to_string(id) + " " + byteText(data, size) + " @" + currentThreadName());
        const int32 rc = SendMsgSelf(id, en_MSG_ID_MESSAGE, data, size);
        if (rc != 0) {
            ++postFailures;
            HbDbgOutput::DbgPrint(kSource, "comSendMsgSelf", __LINE__, en_TAG_ERROR,
                                  "SendMsgSelf return error=%d.\n", rc);
        }
    }
    void comNotifyObserver(uint32 id, void* data, uint32 size) override {
        NotifyObserver(id, data, size, en_NTF_TYPE_SYNC);
    }
    void LinkAppCommIFImplAppConnect(const DeviceStatus* status) override {
        hook("AppConnect", status);
    }
    void LinkAppCommIFImplAppDisconnect(const DeviceStatus* status) override {
        hook("AppDisconnect", status);
    }
    void LinkAppCommIFImplAppOpen(const DeviceStatus* status) override { hook("AppOpen", status); }
    void LinkAppCommIFImplAppClose(const DeviceStatus* status) override {
        hook("AppClose", status);
    }

    // Posts a message to the unit itself, as a transport would.
    void post(uint32 id, std::initializer_list<uint8> bytes) {
        const std::vector<uint8> data(bytes);
        comSendMsgSelf(id, data.data(), static_cast<uint32>(data.size()));
    }
    HbWorker* worker() { return mWorker.get(); }

    CallLog log;
    CallLog posts;
    OstLinkAppState state;
    FakeLinkProtocol protocol;
    std::atomic<int> postFailures{0};
    // Runs on the worker after each handler; set before the first message.
    std::function<void(uint32 id)> onHandled;

private:
    uint32 onDeviceInfo(uint32 id, void* data, uint32 size) {
        LinkAppCommIFMsgOnNotifyDeviceInfoUpdate(id, data, size);
        return handled(id, data, size);
    }
    uint32 onDeviceStatus(uint32 id, void* data, uint32 size) {
        LinkAppCommIFMsgOnNotifyDeviceStatus(id, data, size);
        return handled(id, data, size);
    }
    uint32 onCmdData(uint32 id, void* data, uint32 size) {
        LinkAppCommIFMsgOnNotifyCmdData(id, data, size);
        return handled(id, data, size);
    }
    uint32 handled(uint32 id, const void* data, uint32 size) {
        log.add("handled " + std::to_string(id) + " " + byteText(data, size));
        if (onHandled) {
            onHandled(id);
        }
        return 1;
    }
    uint32 onStateNotify(uint32 id, void* data, uint32 size) {
        log.add("state " + std::to_string(id) + " " + byteText(data, size));
        return 1;
    }
    void hook(const char* name, const DeviceStatus* status) {
        log.add(std::string(name) + " " + std::to_string(status->status));
    }

    std::unique_ptr<HbWorker> mWorker;
    HbObserver<LinkTestUnit> mStateObserver;
};

#endif  // MOX_TESTS_FRAMEWORK_LINKTESTUNIT_H
