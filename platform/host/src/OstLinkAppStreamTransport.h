// A link over a stream socket (host only): the common part of the Unix and
// TCP transports. The phone is the server; this side connects.
//
// open() creates the socket and starts one reader thread ("OstLinkAppRx"),
// which connects, checks the peer (checkPeer), then reads the stream through
// the envelope reader and posts what arrives. It waits in poll() on the
// socket and on a wake-up descriptor, with no timeout once the phone has
// greeted and nothing waits to be sent, so an idle link wakes nobody. The
// link ends by itself, logged and reported with 601 status 0, when the
// connection cannot be made or the peer is refused, the phone hangs up or
// the connection fails, on a protocol error, when the phone reports "no
// device", when the phone has not sent its device info and device status
// within OstLinkAppHost::GREETING_MS of the connection, or when it reads
// nothing that we send (below); the reader then shuts the socket down and
// returns. close() wakes the reader, joins it and closes the socket.
//
// Sends never wait on the phone: the socket is non-blocking. A send writes
// at once what the socket takes; what it does not take is queued (at most
// OstLinkAppHost::SEND_QUEUE_LIMIT bytes) and written by the reader thread
// as the phone reads. A send that would overflow the queue, or a queue that
// has not moved for OstLinkAppHost::SEND_STALL_MS, ends the link: a phone
// that stops reading is a broken link, as one that hangs up.
//
// Thread rules: sends are serialised by mSendMutex, which also guards the
// queue and the socket's descriptor and is never held across a wait;
// mStateMutex decides who reports the end of the link (the reader, or the
// caller of close()); close() must not run on the reader thread.
#ifndef OSTLINKAPP_OSTLINKAPPSTREAMTRANSPORT_H
#define OSTLINKAPP_OSTLINKAPPSTREAMTRANSPORT_H

#include <sys/socket.h>

#include <chrono>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

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
    // Whether the peer connected on `socket` may be the phone. False, with the
    // reason in `error`, refuses it (the link ends as if it were lost).
    virtual bool checkPeer(int socket, std::string& error) const;

private:
    enum EN_WAIT {
        en_WAIT_READY = 0,    // the socket is ready
        en_WAIT_WOKEN = 1,    // close() woke the reader
        en_WAIT_FAILED = 2,   // poll() failed (errno tells why)
        en_WAIT_NUDGED = 3,   // a send queued bytes or failed: look again
        en_WAIT_TIMEOUT = 4,  // `timeoutMs` passed
    };

    void readerMain();
    // Connects; false when the connection cannot be made or close() woke us
    // (mWoken then tells which).
    bool connectPeer();
    void readLoop();
    // One poll() on the socket (for `events`) and the wake-up descriptor,
    // for at most `timeoutMs` (-1: no limit); the socket's events in `revents`.
    EN_WAIT waitFor(short events, int timeoutMs, short* revents);
    // The reader's checks of the greeting and the send queue: "" while the
    // link may go on, else why it ends. `timeoutMs` gets the time to the
    // next deadline (-1 when there is none).
    std::string checkDeadlines(int* timeoutMs);
    // Writes what the queue holds and the socket takes; false with `error`
    // when the socket failed. Called with mSendMutex held.
    bool flushQueueLocked(int& error);
    // Wakes the reader without closing the link.
    void nudgeReader() const;
    void deliver(uint8 type, const uint8* payload, uint32 size);
    // The link ended by itself: logs `reason` unless close() is under way,
    // shuts the socket down and posts 601 status 0. Called on the reader.
    void endLink(const char* function, int line, const std::string& reason);
    // Posts 601 status 0, again while the unit's box is full (bounded).
    void reportEnd();
    static constexpr int REPORT_RETRY_MS = 10;
    static constexpr uint32 REPORT_TRIES = 1000;
    // Ends the connection; the descriptor stays until close().
    void shutDownSocket();
    // True when the reader may still post (close() has not begun).
    bool mayPost();
    void logError(const char* function, int line, const std::string& text) const;

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

    std::mutex mSendMutex;      // serialises sends; guards the members down to mSendFailure
    int mSocket;                // created by open(); closed by close() under mSendMutex
    bool mConnected;            // the reader has connected; sends may go out
    std::vector<uint8> mQueue;  // bytes that the socket has not taken yet
    std::chrono::steady_clock::time_point mQueueMoved;  // last time the queue got shorter or filled
    std::string mSendFailure;  // why sending broke the link ("" while it has not)

    OstLinkAppEnvelopeReader mEnvelopes;  // the reader thread's own
    bool mEnded;                          // the reader thread's own: the phone said "no device"
    bool mSawDeviceInfo;                  // the reader thread's own: the greeting so far
    bool mSawDeviceStatus;                // the reader thread's own
    std::chrono::steady_clock::time_point mGreetingDeadline;  // the reader thread's own
    uint32 mGreetingMs;   // set by the reader on connecting, before any send goes out
    uint32 mSendStallMs;  // set alike; read under mSendMutex afterwards
};

#endif  // OSTLINKAPP_OSTLINKAPPSTREAMTRANSPORT_H
