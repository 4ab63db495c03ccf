// The simulated phone in the module's own process: the peer of the phone
// link's "loopback" endpoint. Install it before the module starts its link:
//
//   moxphone::PhoneLog log(&std::cerr);          // or PhoneLog(nullptr): quiet
//   moxphone::PhoneOptions options;
//   options.catalogue = catalogue;               // a loaded moxphone::Catalogue
//   options.faults.add("silent-after-lookup", &error);
//   options.timeScale = HbLTimerMng::GetTimerMng()->GetTimeScale();
//   moxphone::LoopbackPhone phone(options, log);
//   OstLinkAppHost::setLoopbackPeer(&phone);
//   OstLinkAppHost::setEndpoint("loopback");
//   ... HbSMox::GetInstance()->startLink(); ...
//   OstLinkAppHost::setLoopbackPeer(nullptr);    // before the phone goes
//
// Each opening of the link starts a fresh PhoneSession. Everything the phone
// sends goes through OstLinkAppPeerLink::pushBytes as envelope bytes, so the
// module reads them exactly as from a socket and the envelope faults work
// in-process too; the drop fault uses hangUp(). Answers are pushed from
// inside onCommand (on the module's thread that sends); delayed chunks are
// pushed from the phone's own thread.
//
// Locking: one recursive lock guards the session. onOpen, onCommand,
// onClose and the delayed sends take it, and pushBytes/hangUp are called
// with it held. So the link must not hold, while it calls onOpen, onCommand
// or onClose, a lock that its pushBytes or hangUp also takes (the delayed
// sends would otherwise deadlock with it). onClose may come from inside
// pushBytes or hangUp on the same thread: the lock is recursive for that.
// After onClose has returned the phone no longer touches the link.
#ifndef MOXPHONE_LOOPBACKPHONE_H
#define MOXPHONE_LOOPBACKPHONE_H

#include <cstddef>
#include <memory>
#include <mutex>

#include "OstLinkApp/OstLinkAppHost.h"
#include "moxphone/PhoneLog.h"
#include "moxphone/PhoneOptions.h"
#include "moxphone/PhoneSession.h"
#include "moxphone/ThreadScheduler.h"

namespace moxphone {

class LoopbackPhone : public OstLinkAppPeer, private PhoneSession::Transport {
public:
    // `options` must be valid (PhoneOptions::validate). `log` must outlive the phone.
    LoopbackPhone(const PhoneOptions& options, PhoneLog& log);
    // Must not run while the link still uses the phone.
    ~LoopbackPhone() override;
    LoopbackPhone(const LoopbackPhone&) = delete;
    LoopbackPhone& operator=(const LoopbackPhone&) = delete;

    void onOpen(OstLinkAppPeerLink& link) override;
    void onCommand(const uint8* frame, uint32 size) override;
    void onClose() override;

    // How many times the link was opened.
    size_t connections() const;

private:
    bool send(const Bytes& bytes) override;
    void hangUp() override;

    const PhoneOptions mOptions;
    PhoneLog& mLog;
    mutable std::recursive_mutex mMutex;  // guards everything below
    OstLinkAppPeerLink* mLink;            // between onOpen and onClose or a hang-up
    std::unique_ptr<PhoneSession> mSession;
    size_t mConnections;
    ThreadScheduler mScheduler;  // last: stopped first, while the session still exists
};

}  // namespace moxphone

#endif  // MOXPHONE_LOOPBACKPHONE_H
