// The bare phone as an in-process peer of the phone link ("loopback"): on
// opening it says "Android phone, application open"; each command frame is
// answered at once, from inside onCommand, with the frames of BareAnswers
// pushed one by one. The module's loopback link and the bare in-process
// client (BareLoopbackClient) both talk to it.
//
// The answers in use can be swapped between lookups (use()); they must
// outlive the phone's use of them.
#ifndef MOX_BENCH_BARELOOPBACKPHONE_H
#define MOX_BENCH_BARELOOPBACKPHONE_H

#include <atomic>
#include <mutex>

#include "BareAnswers.h"
#include "FrameLog.h"
#include "OstLinkApp/OstLinkAppHost.h"

class BareLoopbackPhone : public OstLinkAppPeer {
public:
    explicit BareLoopbackPhone(const BareAnswers& answers) : mAnswers(&answers) {}

    void use(const BareAnswers& answers) { mAnswers.store(&answers); }
    FrameLog& received() { return mReceived; }

    void onOpen(OstLinkAppPeerLink& link) override;
    void onCommand(const uint8* frame, uint32 size) override;
    void onClose() override;

private:
    std::atomic<const BareAnswers*> mAnswers;
    FrameLog mReceived;
    std::mutex mMutex;
    OstLinkAppPeerLink* mLink = nullptr;  // guarded by mMutex; between onOpen and onClose
};

#endif  // MOX_BENCH_BARELOOPBACKPHONE_H
