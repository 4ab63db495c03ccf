// A link over a stream socket (host only): the common part of the Unix and
// TCP transports. The phone is the server; this side connects.
//
// open() creates the socket and starts one reader thread ("OstLinkAppRx"),
// which connects, then reads the stream through the envelope reader and
// posts what arrives. It waits in poll() on the socket and on a wake-up
// descriptor with no timeout, so an idle link wakes nobody. The link ends
// by itself, logged and reported with 601 status 0, when the connection
// cannot be made, the phone hangs up or the connection fails, on a protocol
// error, or when the phone reports "no device"; the reader then shuts the
// socket down and returns. close() wakes the reader, joins it and closes the
// socket.
//
// Thread rules: sends are serialised by mSendMutex, which also guards the
// socket's mode and descriptor; mStateMutex decides who reports the end of
// the link (the reader, or the caller of close()); close() must not run on
// the reader thread.
#ifndef OSTLINKAPP_OSTLINKAPPSTREAMTRANSPORT_H
#define OSTLINKAPP_OSTLINKAPPSTREAMTRANSPORT_H

#include <sys/socket.h>

#include <mutex>
#include <string>
#include <thread>

#include "OstLinkApp/OstLinkAppEnvelopeReader.h"
#include "OstLinkAppTransport.h"

class OstLinkAppStreamTransport : public OstLinkAppTransport {
public:
    // Name of the reader thread.
    static constexpr const char* READER_THREAD_NAME = "OstLinkAppRx";

    ~OstLinkAppStreamTransport() override;

    bool open() override;
    bool close() override;
    bool isOpen() const override;
    bool send(const uint8* frame, uint32 size) override;

protected:
    OstLinkAppStreamTransport(const std::string& name, PostFunc post);
    // The address to connect to. False, with the reason in `error`, when
    // there is none.
    virtual bool makeAddress(sockaddr_storage& address, socklen_t& length,
                             std::string& error) const = 0;

private:
    enum EN_WAIT {
        en_WAIT_READY = 0,   // the socket is ready
        en_WAIT_WOKEN = 1,   // close() woke the reader
        en_WAIT_FAILED = 2,  // poll() failed (errno tells why)
    };

    void readerMain();
    // Connects; false when the connection cannot be made or close() woke us
    // (mWoken then tells which).
    bool connectPeer();
    void readLoop();
    // One poll() on the socket (for `events`) and the wake-up descriptor.
    EN_WAIT waitFor(short events);
    void deliver(uint8 type, const uint8* payload, uint32 size);
    // The link ended by itself: logs `reason` unless close() is under way,
    // shuts the socket down and posts 601 status 0. Called on the reader.
    void endLink(const char* function, int line, const std::string& reason);
    // Ends the connection; the descriptor stays until close().
    void shutDownSocket();
    // True when the reader may still post (close() has not begun).
    bool mayPost();
    void logError(const char* function, int line, const std::string& text) const;
    bool writeAll(const uint8* data, size_t size, int& error);

    std::mutex mCloseMutex;  // serialises open() and close()
    bool mStarted;           // guarded by mCloseMutex: the reader was started
    bool mClosed;            // guarded by mCloseMutex: close() has run
    std::thread mReader;     // started by open(), joined by close()
    int mWakeFd;             // eventfd; written by close(), set before the reader starts

    sockaddr_storage mAddress;  // set by open() before the reader starts
    socklen_t mAddressLength;   // set by open() before the reader starts

    mutable std::mutex mStateMutex;  // guards the two flags below
    bool mAlive;                     // open, and the end of the link not yet reported
    bool mClosing;                   // close() has begun: the reader posts nothing more

    std::mutex mSendMutex;  // serialises sends; guards mSocket's mode and mConnected
    int mSocket;            // created by open(); closed by close() under mSendMutex
    bool mConnected;        // the reader has connected; sends may go out

    OstLinkAppEnvelopeReader mEnvelopes;  // the reader thread's own
    bool mEnded;                          // the reader thread's own: the phone said "no device"
};

#endif  // OSTLINKAPP_OSTLINKAPPSTREAMTRANSPORT_H
