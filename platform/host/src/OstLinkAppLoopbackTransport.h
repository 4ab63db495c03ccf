// The loopback link: a phone in the same process (OstLinkAppPeer), reached
// without a socket (host only).
//
// - open() calls the peer's onOpen() with this object as its end of the link.
// - send() calls the peer's onCommand() on the sending thread.
// - The peer's pushes are written as envelopes and read by the same envelope
//   reader as a socket's stream, on the pushing thread, which posts what
//   they carry; a bad envelope ends the link as it would end a socket.
// - hangUp(), a protocol error and the phone's "no device" status end the
//   link: 601 with status 0 is posted and the peer's onClose() is called.
//   close() ends it from our side: onClose() and nothing posted.
//
// Thread rules: the peer is called with no lock held, by one thread at a
// time, in the order the calls were asked for: onOpen(), the frames of
// send() in order, then onClose(), after which nothing. A call asked for
// from inside one of the peer's callbacks (a hang-up inside onCommand())
// runs on that thread once the callback has returned. open(), send() and
// close() return once their call has run (close() once no call runs at
// all); a push that ends the link never waits for the peer: its onClose()
// runs on the pushing thread, or on the thread that is calling the peer.
// Pushes may come from any thread, also from inside the peer's callbacks;
// they are serialised by mFeedMutex, which is held while they post, so a
// push either posts before close() returns or is refused.
#ifndef OSTLINKAPP_OSTLINKAPPLOOPBACKTRANSPORT_H
#define OSTLINKAPP_OSTLINKAPPLOOPBACKTRANSPORT_H

#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "OstLinkApp/OstLinkAppEnvelopeReader.h"
#include "OstLinkApp/OstLinkAppHost.h"
#include "OstLinkAppTransport.h"

class OstLinkAppLoopbackTransport : public OstLinkAppTransport, public OstLinkAppPeerLink {
public:
    // `peer` is not owned and may be null (open() then fails).
    OstLinkAppLoopbackTransport(OstLinkAppPeer* peer, PostFunc post);
    ~OstLinkAppLoopbackTransport() override;

    bool open() override;
    bool close() override;
    bool isOpen() const override;
    bool send(const uint8* frame, uint32 size) override;

    bool pushDeviceInfo(uint8 osType, const std::string& name) override;
    bool pushDeviceStatus(uint8 status) override;
    bool pushCommand(const uint8* frame, uint32 size) override;
    bool pushBytes(const uint8* data, size_t size) override;
    void hangUp() override;

private:
    enum EN_CALL { en_CALL_OPEN, en_CALL_COMMAND, en_CALL_CLOSE };
    // One call of the peer, asked for and not yet made.
    struct PeerCall {
        EN_CALL call;
        std::vector<uint8> frame;  // en_CALL_COMMAND: the frame, copied
        std::thread::id caller;    // makes the call; a default id: whoever is first free
    };

    // One envelope from a header, a lead part and the rest, read as one push.
    bool pushEnvelope(uint8 type, const uint8* lead, size_t leadSize, const uint8* rest,
                      size_t restSize);
    // Reads `size` bytes under mFeedMutex (held by the caller); false when
    // the link has ended (protocol error or "no device").
    bool feedLocked(const uint8* data, size_t size);
    void deliver(uint8 type, const uint8* payload, uint32 size);
    // Tells the peer that the link is closed, once; `wait`: returns only
    // when no call of the peer runs any more (close()), otherwise never
    // waits for the peer (the link ended by itself).
    void notifyPeerClosed(bool wait);
    // Queues `call` (under mPeerMutex, held by `lock`) and makes the calls
    // that fall to this thread, each with the lock released.
    void callPeerLocked(std::unique_lock<std::mutex>& lock, PeerCall call);
    // Makes, in queue order, this thread's calls and the calls that nobody
    // waits for, as long as they come first; returns once none of this
    // thread's calls is left.
    void runPeerCallsLocked(std::unique_lock<std::mutex>& lock);
    bool hasCallOfLocked(std::thread::id caller) const;
    void makePeerCall(const PeerCall& call);

    OstLinkAppPeer* const mPeer;
    std::mutex mPeerMutex;  // guards everything down to mCaller; never held while the peer runs
    std::condition_variable mPeerIdle;  // a call of the peer has returned
    bool mPeerOpen;                     // onOpen() asked for, onClose() not yet
    bool mOpenCalled;                   // open() has run
    std::deque<PeerCall> mPeerCalls;    // asked for, not yet made, in order
    bool mCalling;                      // a call of the peer runs now
    std::thread::id mCaller;            // the thread that runs it
    std::mutex mFeedMutex;              // guards mReader; held while pushes post
    OstLinkAppEnvelopeReader mReader;   // guarded by mFeedMutex
    std::atomic<bool> mOpen;            // changed under mFeedMutex; read anywhere
};

#endif  // OSTLINKAPP_OSTLINKAPPLOOPBACKTRANSPORT_H
