// Connection state of the phone application link (host edition).
//
// It is the subject on which the link layer and its users learn of changes:
//
// | Id | Data (one byte)                               | Raised by                    |
// |----|-----------------------------------------------|------------------------------|
// | 0  | application state: 0 lost, 1 running          | notifyObserverAppState()     |
// | 3  | the new application-link flag (0 or 1)        | setIsAppLinkState(), changes |
// | 7  | device status: 0 none, 1 connected, 2 open, 3 closed | notifyObserverDeviceStatus() |
//
// Every notification is delivered on the thread that raises it (type 0).
// Thread rules: the OS type and the link flag are atomics, so every member may
// be called from any thread; no lock is held while observers are notified.
#ifndef OSTLINKAPP_OSTLINKAPPSTATE_H
#define OSTLINKAPP_OSTLINKAPPSTATE_H

#include <atomic>

#include "HbFramework/HbSubject.h"
#include "HbFramework/HbTypes.h"

class OstLinkAppState : public HbSubject {
public:
    // Notification ids raised on this subject.
    enum EN_NTF_ID {
        en_NTF_APP_STATE = 0,
        en_NTF_LINK_STATE = 3,
        en_NTF_DEVICE_STATUS = 7,
    };
    // Operating system of the connected phone.
    enum EN_OS_TYPE {
        en_OS_TYPE_IOS = 0,
        en_OS_TYPE_ANDROID = 1,
    };
    // Application state byte of notification 0.
    enum EN_APP_STATE {
        en_APP_STATE_LOST = 0,
        en_APP_STATE_RUNNING = 1,
    };
    // Device status byte of notification 7.
    enum EN_DEVICE_STATUS {
        en_DEVICE_STATUS_NONE = 0,
        en_DEVICE_STATUS_CONNECTED = 1,
        en_DEVICE_STATUS_APP_OPEN = 2,
        en_DEVICE_STATUS_CLOSED = 3,
    };

    // Until the phone reports its type the link counts as Android, the type
    // for which every connect command is really sent.
    OstLinkAppState();
    ~OstLinkAppState() override;

    uint8 getOsType() const;
    // Host only: stored by the link layer when the phone's device info arrives.
    void setOsType(uint8 osType);

    bool getIsAppLinkState() const;
    // Stores the flag; when it changes, raises notification 3 with the new
    // value as one byte. Setting the value it already has raises nothing.
    void setIsAppLinkState(bool linked);

    // Host only, called by the link layer: raises notification 0 with `appState`.
    void notifyObserverAppState(uint8 appState);
    // Host only, called by the link layer: raises notification 7 with `status`.
    void notifyObserverDeviceStatus(uint8 status);

private:
    void notifyByte(uint32 id, uint8 value);

    std::atomic<uint8> mOsType;         // any thread
    std::atomic<bool> mIsAppLinkState;  // any thread
};

#endif  // OSTLINKAPP_OSTLINKAPPSTATE_H
