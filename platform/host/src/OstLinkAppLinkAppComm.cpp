#include "OstLinkApp/OstLinkAppLinkAppComm.h"

#include <set>

#include "HbFramework/HbDbgOutput.h"
#include "HbFramework/HbSingletonFinalizer.h"
#include "OstLinkApp/OstLinkAppHost.h"
#include "OstLinkAppEndpoint.h"
#include "OstLinkAppLoopbackTransport.h"
#include "OstLinkAppTcpTransport.h"
#include "OstLinkAppTransport.h"
#include "OstLinkAppUnixTransport.h"

namespace {

const char kSource[] = "platform/host/src/OstLinkAppLinkAppComm.cpp";

// Every live channel, so that finalize() can end every link before the
// singletons go. `mutex` guards both members and is held while the hook
// terminates the channels, so a channel being destroyed waits for it.
struct ChannelRegistry {
    std::mutex mutex;
    std::set<OstLinkAppLinkAppComm*> channels;
    bool hookArmed = false;  // a shutdown hook is registered and has not run
};

// Created on first use and never destroyed: the hook may run at process exit.
ChannelRegistry& registry() {
    static ChannelRegistry* r = new ChannelRegistry();
    return *r;
}

void terminateAllChannels() {
    ChannelRegistry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    r.hookArmed = false;
    for (OstLinkAppLinkAppComm* channel : r.channels) {
        channel->Terminate();
    }
}

void registerChannel(OstLinkAppLinkAppComm* channel) {
    ChannelRegistry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    r.channels.insert(channel);
    if (!r.hookArmed) {
        r.hookArmed = true;
        HbSingletonFinalizer::addShutdownHook(&terminateAllChannels);
    }
}

void unregisterChannel(OstLinkAppLinkAppComm* channel) {
    ChannelRegistry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    r.channels.erase(channel);
}

}  // namespace

OstLinkAppLinkAppComm::OstLinkAppLinkAppComm()
    : mpLinkState(nullptr),
      mpLinkProtocol(nullptr),
      mTransportMutex(),
      mTransport(),
      mDeviceName(),
      mTerminated(false) {
    registerChannel(this);
}

OstLinkAppLinkAppComm::~OstLinkAppLinkAppComm() {
    unregisterChannel(this);
    Terminate();
}

void OstLinkAppLinkAppComm::initialize(InitData& data) {
    mpLinkState = data.state;
    mpLinkProtocol = data.protocol;
}

void OstLinkAppLinkAppComm::Terminate() {
    std::shared_ptr<OstLinkAppTransport> transport;
    {
        std::lock_guard<std::mutex> lock(mTransportMutex);
        mTerminated = true;
        transport = mTransport;
    }
    if (transport) {
        transport->close();
    }
}

void OstLinkAppLinkAppComm::requestDeviceConnect() {
    openTransport();
}

// The transport is closed first, so it reports nothing; the "device gone"
// status is then posted from here, once, if the link was still up.
void OstLinkAppLinkAppComm::requestDeviceDisconnect() {
    std::shared_ptr<OstLinkAppTransport> transport = currentTransport();
    if (!transport || !transport->close()) {
        return;
    }
    postDeviceGone();
}

void OstLinkAppLinkAppComm::LinkAppCommIFSendCommand(void* data, uint32 size) {
    if (data == nullptr && size != 0) {
        HbDbgOutput::DbgPrint(kSource, "LinkAppCommIFSendCommand", __LINE__, en_TAG_ERROR,
                              "null frame of %u bytes, dropped\n", size);
        return;
    }
    std::shared_ptr<OstLinkAppTransport> transport = currentTransport();
    if (!transport || !transport->isOpen()) {
        HbDbgOutput::DbgPrint(kSource, "LinkAppCommIFSendCommand", __LINE__, en_TAG_ERROR,
                              "link not open, frame of %u bytes dropped\n", size);
        return;
    }
    transport->send(static_cast<const uint8*>(data), size);
}

uint32 OstLinkAppLinkAppComm::LinkAppCommIFMsgOnNotifyDeviceInfoUpdate(uint32 id, void* data,
                                                                       uint32 size) {
    (void)id;
    if (data == nullptr || size < 1) {
        HbDbgOutput::DbgPrint(kSource, "LinkAppCommIFMsgOnNotifyDeviceInfoUpdate", __LINE__,
                              en_TAG_ERROR, "device info without an OS type, ignored\n");
        return 1;
    }
    const uint8* bytes = static_cast<const uint8*>(data);
    if (mpLinkState != nullptr) {
        mpLinkState->setOsType(bytes[0]);
    } else {
        logNotInitialized("LinkAppCommIFMsgOnNotifyDeviceInfoUpdate", __LINE__, id);
    }
    std::lock_guard<std::mutex> lock(mDeviceNameMutex);
    mDeviceName.assign(reinterpret_cast<const char*>(bytes + 1), size - 1);
    return 1;
}

uint32 OstLinkAppLinkAppComm::LinkAppCommIFMsgOnNotifyDeviceStatus(uint32 id, void* data,
                                                                   uint32 size) {
    if (data == nullptr || size != 1) {
        HbDbgOutput::DbgPrint(kSource, "LinkAppCommIFMsgOnNotifyDeviceStatus", __LINE__,
                              en_TAG_ERROR, "device status of %u bytes, ignored\n", size);
        return 1;
    }
    if (mpLinkState == nullptr) {
        logNotInitialized("LinkAppCommIFMsgOnNotifyDeviceStatus", __LINE__, id);
    }
    const uint8 status = *static_cast<const uint8*>(data);
    switch (status) {
        case OstLinkAppState::en_DEVICE_STATUS_NONE:
            onDeviceGone();
            break;
        case OstLinkAppState::en_DEVICE_STATUS_CONNECTED:
            onDeviceConnected();
            break;
        case OstLinkAppState::en_DEVICE_STATUS_APP_OPEN:
            onAppOpen();
            break;
        case OstLinkAppState::en_DEVICE_STATUS_CLOSED:
            onAppClosed();
            break;
        default:
            HbDbgOutput::DbgPrint(kSource, "LinkAppCommIFMsgOnNotifyDeviceStatus", __LINE__,
                                  en_TAG_ERROR, "unknown device status %u, ignored\n",
                                  static_cast<unsigned>(status));
            break;
    }
    return 1;
}

uint32 OstLinkAppLinkAppComm::LinkAppCommIFMsgOnNotifyCmdData(uint32 id, void* data, uint32 size) {
    if (data == nullptr && size != 0) {
        HbDbgOutput::DbgPrint(kSource, "LinkAppCommIFMsgOnNotifyCmdData", __LINE__, en_TAG_ERROR,
                              "null command data of %u bytes, ignored\n", size);
        return 1;
    }
    if (mpLinkProtocol == nullptr) {
        logNotInitialized("LinkAppCommIFMsgOnNotifyCmdData", __LINE__, id);
        return 1;
    }
    mpLinkProtocol->analysisProtocolCmd(static_cast<unsigned char*>(data), size);
    return 1;
}

void OstLinkAppLinkAppComm::comSendMsgSelf(uint32 id, const void* data, uint32 size) {
    (void)id;
    (void)data;
    (void)size;
}

void OstLinkAppLinkAppComm::comNotifyObserver(uint32 id, void* data, uint32 size) {
    (void)id;
    (void)data;
    (void)size;
}

void OstLinkAppLinkAppComm::LinkAppCommIFImplAppConnect(const DeviceStatus* status) {
    (void)status;
}

void OstLinkAppLinkAppComm::LinkAppCommIFImplAppDisconnect(const DeviceStatus* status) {
    (void)status;
}

void OstLinkAppLinkAppComm::LinkAppCommIFImplAppOpen(const DeviceStatus* status) {
    (void)status;
}

void OstLinkAppLinkAppComm::LinkAppCommIFImplAppClose(const DeviceStatus* status) {
    (void)status;
}

std::string OstLinkAppLinkAppComm::getDeviceName() const {
    std::lock_guard<std::mutex> lock(mDeviceNameMutex);
    return mDeviceName;
}

bool OstLinkAppLinkAppComm::isTransportOpen() const {
    std::shared_ptr<OstLinkAppTransport> transport = currentTransport();
    return transport && transport->isOpen();
}

// Holds mTransportMutex throughout, so that Terminate() either sees the new
// transport or keeps it from being opened. A transport that has ended by
// itself is closed (its thread joined) and replaced.
bool OstLinkAppLinkAppComm::openTransport() {
    std::unique_lock<std::mutex> lock(mTransportMutex);
    if (mTerminated) {
        HbDbgOutput::DbgPrint(kSource, "openTransport", __LINE__, en_TAG_ERROR,
                              "link terminated, open refused\n");
        return false;
    }
    if (mTransport && mTransport->isOpen()) {
        return true;
    }
    if (mTransport) {
        mTransport->close();
        mTransport.reset();
    }
    std::shared_ptr<OstLinkAppTransport> transport = makeTransport();
    if (!transport || !transport->open()) {
        lock.unlock();
        postDeviceGone();
        return false;
    }
    mTransport = transport;
    return true;
}

void OstLinkAppLinkAppComm::closeTransport() {
    std::shared_ptr<OstLinkAppTransport> transport = currentTransport();
    if (transport) {
        transport->close();
    }
}

std::shared_ptr<OstLinkAppTransport> OstLinkAppLinkAppComm::makeTransport() {
    const std::string text = OstLinkAppHost::getEndpoint();
    OstLinkAppEndpoint endpoint;
    std::string error;
    if (!OstLinkAppEndpoint::parse(text, OstLinkAppHost::getAllowRemote(), endpoint, error)) {
        bool remote = false;
        OstLinkAppHost::checkEndpoint(text, nullptr, &remote);
        const char* hint =
            remote ? " (allow remote hosts with OstLinkAppHost::setAllowRemote(true))" : "";
        HbDbgOutput::DbgPrint(kSource, "openTransport", __LINE__, en_TAG_ERROR,
                              "cannot open the link: %s%s\n", error.c_str(), hint);
        return nullptr;
    }
    OstLinkAppTransport::PostFunc post = [this](uint32 id, const void* data, uint32 size) {
        comSendMsgSelf(id, data, size);
    };
    switch (endpoint.getKind()) {
        case OstLinkAppEndpoint::en_KIND_UNIX:
            return std::make_shared<OstLinkAppUnixTransport>(endpoint.getPath(), post);
        case OstLinkAppEndpoint::en_KIND_TCP:
            return std::make_shared<OstLinkAppTcpTransport>(
                endpoint.getText(), endpoint.getFamily(), endpoint.getHost(), endpoint.getPort(),
                post);
        case OstLinkAppEndpoint::en_KIND_LOOPBACK:
        default:
            return std::make_shared<OstLinkAppLoopbackTransport>(OstLinkAppHost::getLoopbackPeer(),
                                                                 post);
    }
}

std::shared_ptr<OstLinkAppTransport> OstLinkAppLinkAppComm::currentTransport() const {
    std::lock_guard<std::mutex> lock(mTransportMutex);
    return mTransport;
}

// A transport that has ended by itself has posted this status as its last
// message; its thread is joined here. A newer transport that is open is left
// alone.
void OstLinkAppLinkAppComm::releaseEndedTransport() {
    std::shared_ptr<OstLinkAppTransport> transport = currentTransport();
    if (transport && !transport->isOpen()) {
        transport->close();
    }
}

void OstLinkAppLinkAppComm::postDeviceGone() {
    const uint8 status = OstLinkAppState::en_DEVICE_STATUS_NONE;
    comSendMsgSelf(en_MSG_DEVICE_STATUS, &status, 1);
}

void OstLinkAppLinkAppComm::onDeviceGone() {
    DeviceStatus status = {OstLinkAppState::en_DEVICE_STATUS_NONE};
    notifyDeviceStatus(status.status);
    notifyAppState(OstLinkAppState::en_APP_STATE_LOST);
    LinkAppCommIFImplAppClose(&status);
    LinkAppCommIFImplAppDisconnect(&status);
    releaseEndedTransport();
}

void OstLinkAppLinkAppComm::onDeviceConnected() {
    DeviceStatus status = {OstLinkAppState::en_DEVICE_STATUS_CONNECTED};
    notifyDeviceStatus(status.status);
    LinkAppCommIFImplAppConnect(&status);
}

void OstLinkAppLinkAppComm::onAppOpen() {
    DeviceStatus status = {OstLinkAppState::en_DEVICE_STATUS_APP_OPEN};
    notifyDeviceStatus(status.status);
    notifyAppState(OstLinkAppState::en_APP_STATE_RUNNING);
    LinkAppCommIFImplAppOpen(&status);
    if (mpLinkProtocol != nullptr) {
        mpLinkProtocol->sendCmdConnect();
    }
}

void OstLinkAppLinkAppComm::onAppClosed() {
    DeviceStatus status = {OstLinkAppState::en_DEVICE_STATUS_CLOSED};
    notifyDeviceStatus(status.status);
    notifyAppState(OstLinkAppState::en_APP_STATE_LOST);
    LinkAppCommIFImplAppClose(&status);
}

void OstLinkAppLinkAppComm::notifyDeviceStatus(uint8 status) {
    if (mpLinkState != nullptr) {
        mpLinkState->notifyObserverDeviceStatus(status);
    }
}

void OstLinkAppLinkAppComm::notifyAppState(uint8 appState) {
    if (mpLinkState != nullptr) {
        mpLinkState->notifyObserverAppState(appState);
    }
}

void OstLinkAppLinkAppComm::logNotInitialized(const char* function, int line, uint32 id) {
    HbDbgOutput::DbgPrint(kSource, function, line, en_TAG_ERROR,
                          "message %u before initialize: state or protocol missing\n", id);
}
