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
// Thread rules: pushes may come from any thread, also from inside the peer's
// callbacks; they are serialised by mFeedMutex, which is held while they
// post, so a push either posts before close() returns or is refused. The
// peer's callbacks run under mCallbackMutex (recursive, so that a peer may
// hang up from inside onCommand()); no thread takes mCallbackMutex while it
// holds mFeedMutex.
#ifndef OSTLINKAPP_OSTLINKAPPLOOPBACKTRANSPORT_H
#define OSTLINKAPP_OSTLINKAPPLOOPBACKTRANSPORT_H

#include <atomic>
#include <mutex>
#include <string>

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
    // One envelope from a header, a lead part and the rest, read as one push.
    bool pushEnvelope(uint8 type, const uint8* lead, size_t leadSize, const uint8* rest,
                      size_t restSize);
    // Reads `size` bytes under mFeedMutex (held by the caller); false when
    // the link has ended (protocol error or "no device").
    bool feedLocked(const uint8* data, size_t size);
    void deliver(uint8 type, const uint8* payload, uint32 size);
    // Tells the peer that the link is closed, once.
    void notifyPeerClosed();

    OstLinkAppPeer* const mPeer;
    std::recursive_mutex mCallbackMutex;  // held while the peer is called
    bool mPeerOpen;                       // guarded by mCallbackMutex: onOpen() done, onClose() due
    bool mOpenCalled;                     // guarded by mCallbackMutex: open() has run
    std::mutex mFeedMutex;                // guards mReader; held while pushes post
    OstLinkAppEnvelopeReader mReader;     // guarded by mFeedMutex
    std::atomic<bool> mOpen;              // changed under mFeedMutex; read anywhere
};

#endif  // OSTLINKAPP_OSTLINKAPPLOOPBACKTRANSPORT_H
