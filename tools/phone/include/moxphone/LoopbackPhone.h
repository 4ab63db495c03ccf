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
// Thread rules: the session runs under mMutex, and what it sends is queued
// there; the queue goes to the link in order, with no lock held, from the
// thread that made it (the link's thread in onOpen and onCommand, the
// phone's own thread after a delayed send), one thread at a time. The link
// may call onClose from inside pushBytes or hangUp. After onClose has
// returned the phone no longer touches the link.
#ifndef MOXPHONE_LOOPBACKPHONE_H
#define MOXPHONE_LOOPBACKPHONE_H

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>

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
    // One thing for the link: envelope bytes, or the hang-up.
    struct Outgoing {
        Bytes bytes;
        bool hangUp;
    };

    // Called by the session, with mMutex held: they queue.
    bool send(const Bytes& bytes) override;
    void hangUp() override;
    // Hands the queue to the link with mMutex released, unless another
    // thread does so already (it then takes what was queued here too).
    void flush();
    // Waits until no other thread hands the queue to the link.
    void waitForFlushLocked(std::unique_lock<std::mutex>& lock);

    const PhoneOptions mOptions;
    PhoneLog& mLog;
    mutable std::mutex mMutex;         // guards everything down to mFlusher
    std::condition_variable mFlushed;  // a thread has stopped handing the queue to the link
    OstLinkAppPeerLink* mLink;         // between onOpen and onClose or a hang-up
    std::unique_ptr<PhoneSession> mSession;
    size_t mConnections;
    std::deque<Outgoing> mOutbox;  // queued for mLink, not yet handed to it
    bool mFlushing;                // a thread hands the queue to the link now
    std::thread::id mFlusher;      // that thread
    ThreadScheduler mScheduler;    // last: stopped first, while the session still exists
};

}  // namespace moxphone

#endif  // MOXPHONE_LOOPBACKPHONE_H
