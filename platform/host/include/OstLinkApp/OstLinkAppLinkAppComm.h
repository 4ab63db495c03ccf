// The command channel to the phone application (host edition).
//
// It owns the transport to the phone and turns what the phone sends into
// messages for its user's worker thread:
//
// | Message | Handler                                   | Payload                         |
// |---------|-------------------------------------------|---------------------------------|
// | 600     | LinkAppCommIFMsgOnNotifyDeviceInfoUpdate  | OS type byte, then device name  |
// | 601     | LinkAppCommIFMsgOnNotifyDeviceStatus      | one device status byte          |
// | 602     | LinkAppCommIFMsgOnNotifyCmdData           | one command frame               |
//
// The user (the module's unit) derives from OstLinkApp, registers the three
// handlers in its dispatch table under these ids and implements the hooks:
// comSendMsgSelf() posts to its own message box, comNotifyObserver() tells its
// observers, and the LinkAppCommIFImplApp... hooks learn of device changes.
//
// Sequence of a link:
// 1. The transport opens (startLink() or requestDeviceConnect()); the phone
//    sends its device info (600: the OS type is stored in the state) and its
//    device status.
// 2. Status "application open" (601): state notification 7 with the status,
//    state notification 0 with 1, LinkAppCommIFImplAppOpen, then the
//    protocol's sendCmdConnect().
// 3. Command frames (602) go to the protocol's analysisProtocolCmd().
// 4. Status "closed" (601 with 3): notification 7, notification 0 with 0,
//    LinkAppCommIFImplAppClose. The device gone (601 with 0: the phone's own
//    "no device", a hang-up, a connection that failed or broke, a protocol
//    error, requestDeviceDisconnect()): notification 7, notification 0 with
//    0, LinkAppCommIFImplAppClose, LinkAppCommIFImplAppDisconnect; a
//    transport that has ended is released (its thread joined). Each of these
//    ends of the link is logged with its reason and posted exactly once.
// 5. stopLink() sends the protocol's disconnect, then closes the transport;
//    a close by our side posts nothing.
// Status 1 (device connected): notification 7, LinkAppCommIFImplAppConnect.
// A message with a wrong payload size or an unknown status is logged and
// ignored.
//
// Thread rules:
// - The transport's reader thread never calls the user: every event is posted
//   with comSendMsgSelf() (bytes copied); the handlers run on the worker.
// - LinkAppCommIFSendCommand() may be called on any thread; sends are
//   serialised by the transport. A send on a closed link is logged and dropped.
// - Terminate() closes the transport and joins its thread; after it returns
//   no link-layer thread touches the user, and no transport is opened again.
//   It must not be called on the transport's own thread. The user calls it
//   before it destroys its own parts (the transport posts through the
//   virtual comSendMsgSelf()); HbSingletonFinalizer::finalize() terminates
//   every channel first, and ~OstLinkAppLinkAppComm() terminates too.
#ifndef OSTLINKAPP_OSTLINKAPPLINKAPPCOMM_H
#define OSTLINKAPP_OSTLINKAPPLINKAPPCOMM_H

#include <memory>
#include <mutex>
#include <string>

#include "HbFramework/HbTypes.h"
#include "OstLinkApp/OstLinkAppLinkAppCommIFDef.h"
#include "OstLinkApp/OstLinkAppProtocol.h"
#include "OstLinkApp/OstLinkAppState.h"

class OstLinkAppTransport;

class OstLinkAppLinkAppComm {
public:
    typedef OstLinkAppLinkAppCommIFDef::DeviceStatus DeviceStatus;

    // The two objects the channel works with; neither is owned.
    struct InitData {
        OstLinkAppState* state;        // connection state, told of every change
        OstLinkAppProtocol* protocol;  // receives the phone's command frames
    };

    // Message ids that the channel posts to its user.
    enum EN_LINK_MSG_ID {
        en_MSG_DEVICE_INFO = 600,
        en_MSG_DEVICE_STATUS = 601,
        en_MSG_CMD_DATA = 602,
    };

    OstLinkAppLinkAppComm();
    virtual ~OstLinkAppLinkAppComm();
    OstLinkAppLinkAppComm(const OstLinkAppLinkAppComm&) = delete;
    OstLinkAppLinkAppComm& operator=(const OstLinkAppLinkAppComm&) = delete;

    void initialize(InitData& data);
    // Closes the transport and joins its thread; later opens are refused
    // (logged, nothing posted). Can be called on any thread but the
    // transport's own; calling it again does nothing.
    void Terminate();
    // Opens the transport to the device when it is not open.
    void requestDeviceConnect();
    // Closes the transport (nothing is posted by it), then, when the link was
    // up until then, posts 601 with status 0 itself before returning, so the
    // user sees the device gone (step 4). A link that was not up posts nothing.
    void requestDeviceDisconnect();
    // Sends one command frame to the phone. Any thread.
    void LinkAppCommIFSendCommand(void* data, uint32 size);

    // Message handlers, run on the user's worker thread. Each returns 1.
    uint32 LinkAppCommIFMsgOnNotifyDeviceInfoUpdate(uint32 id, void* data, uint32 size);
    uint32 LinkAppCommIFMsgOnNotifyDeviceStatus(uint32 id, void* data, uint32 size);
    uint32 LinkAppCommIFMsgOnNotifyCmdData(uint32 id, void* data, uint32 size);

    // Hooks implemented by the user. The defaults drop the message, raise
    // nothing and ignore the device change.
    virtual void comSendMsgSelf(uint32 id, const void* data, uint32 size);
    virtual void comNotifyObserver(uint32 id, void* data, uint32 size);
    virtual void LinkAppCommIFImplAppConnect(const DeviceStatus* status);
    virtual void LinkAppCommIFImplAppDisconnect(const DeviceStatus* status);
    virtual void LinkAppCommIFImplAppOpen(const DeviceStatus* status);
    virtual void LinkAppCommIFImplAppClose(const DeviceStatus* status);

    // Host only: the name the phone gave in its device info ("" until then).
    std::string getDeviceName() const;
    // Host only: whether a transport is open now.
    bool isTransportOpen() const;

protected:
    // Opens the transport selected by the host settings (OstLinkAppHost)
    // unless one is open; false, after a logged reason and a "device gone"
    // status (601 with 0, posted from the calling thread), when it cannot
    // start. A connection that fails later is reported the same way by the
    // transport's thread. After Terminate(): false, logged, nothing posted.
    bool openTransport();
    // Closes the transport and joins its thread; nothing is reported.
    void closeTransport();

    OstLinkAppState* mpLinkState;        // from initialize(); not owned
    OstLinkAppProtocol* mpLinkProtocol;  // from initialize(); not owned

private:
    std::shared_ptr<OstLinkAppTransport> makeTransport();
    std::shared_ptr<OstLinkAppTransport> currentTransport() const;
    void releaseEndedTransport();
    // Posts 601 with status 0 (no device) to the user.
    void postDeviceGone();
    void onDeviceGone();
    void onDeviceConnected();
    void onAppOpen();
    void onAppClosed();
    void notifyDeviceStatus(uint8 status);
    void notifyAppState(uint8 appState);
    static void logNotInitialized(const char* function, int line, uint32 id);

    // Lock order: mTransportMutex, then a transport's own locks; transports
    // and their threads never take mTransportMutex.
    mutable std::mutex mTransportMutex;               // guards mTransport and mTerminated
    std::shared_ptr<OstLinkAppTransport> mTransport;  // null until the first open; the last
                                                      // one is kept (closed) until replaced
    mutable std::mutex mDeviceNameMutex;              // guards mDeviceName
    std::string mDeviceName;
    bool mTerminated;  // Terminate() has run: no transport is opened again
};

#endif  // OSTLINKAPP_OSTLINKAPPLINKAPPCOMM_H
