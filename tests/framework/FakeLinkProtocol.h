// A stand-in for the module's protocol in link tests: journals every call
// ("connect", "disconnect", "frame [..] @thread") and, like the module's
// protocol, sends 00 01 01 on connect and 00 02 on disconnect through the
// channel it is given.
#ifndef MOX_TESTS_FRAMEWORK_FAKELINKPROTOCOL_H
#define MOX_TESTS_FRAMEWORK_FAKELINKPROTOCOL_H

#include <vector>

#include "ByteText.h"
#include "CallLog.h"
#include "LinkWire.h"
#include "OstLinkApp/OstLinkAppLinkAppComm.h"
#include "OstLinkApp/OstLinkAppProtocol.h"
#include "ThreadName.h"

class FakeLinkProtocol : public OstLinkAppProtocol {
public:
    explicit FakeLinkProtocol(CallLog* log) : mLog(log), mSender(nullptr) {}

    // Where connect and disconnect frames go; null sends nothing.
    void setSender(OstLinkAppLinkAppComm* sender) { mSender = sender; }

    void analysisProtocolCmd(unsigned char* frame, unsigned int size) override {
        mLog->add("frame " + byteText(frame, size) + " @" + currentThreadName());
    }
    void sendCmdConnect() override {
        mLog->add("connect");
        send(linkwire::kConnect);
    }
    void sendCmdDisconnect() override {
        mLog->add("disconnect");
        send(linkwire::kDisconnect);
    }
    void sendCmdNotifyRunningState(unsigned int) override {}
    bool isLogvCmd(unsigned char*, unsigned int) override { return false; }

private:
    void send(std::vector<unsigned char> frame) {
        if (mSender != nullptr) {
            mSender->LinkAppCommIFSendCommand(frame.data(), static_cast<uint32>(frame.size()));
        }
    }

    CallLog* mLog;
    OstLinkAppLinkAppComm* mSender;
};

#endif  // MOX_TESTS_FRAMEWORK_FAKELINKPROTOCOL_H
