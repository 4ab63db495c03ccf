#include "OstLinkApp/OstLinkApp.h"

OstLinkApp::OstLinkApp(int mode) : OstLinkAppLinkAppComm(), mMode(mode), mAppActivated(0) {}

// The link ends before this part goes: the transport posts through hooks of
// the derived user, so it must not outlive the user's parts.
OstLinkApp::~OstLinkApp() {
    Terminate();
}

void OstLinkApp::startLink() {
    openTransport();
}

void OstLinkApp::stopLink() {
    if (mpLinkProtocol != nullptr) {
        mpLinkProtocol->sendCmdDisconnect();
    }
    closeTransport();
}

// The host has no application manager to tell; the acknowledgement is only
// counted, for tests and tools.
void OstLinkApp::notifyObserverAppActivated() {
    ++mAppActivated;
}
