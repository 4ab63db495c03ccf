// The simulated phone on a socket: listens on a Unix or TCP endpoint and
// serves many modules at once, each connection with a PhoneSession of its
// own, until stopped.
//
//   moxphone::PhoneServer server(options, log);
//   server.allowUid(1001);   // a Unix socket serves only this user otherwise
//   if (!server.listen("unix:/tmp/phone.sock", false, &error)) { ... }
//   server.run();            // returns after requestStop()
//
// TCP endpoints must be loopback addresses (127.0.0.0/8, ::1, localhost)
// unless `allowRemote`. A Unix socket file left by a dead server is
// replaced; one that a live server answers on, or any other file, is
// refused. The socket file is removed when the server stops or is
// destroyed.
//
// Connections, with one log line for each one refused or dropped:
// - On a Unix socket only processes of the server's own user (its effective
//   uid, as the kernel reports the peer) are served, unless allowUid() or
//   allowOtherUsers() says otherwise; others are closed at once.
// - At most Limits::maxConnections (64) are served at once; a module that
//   comes when that many are open is closed at once. The listen backlog is
//   the system's largest (SOMAXCONN), so a crowd is answered, not refused
//   by the kernel.
// - Each connection is served apart from the others (see
//   PhoneConnection.h): one poll loop serves them all without ever waiting
//   on one module, and a module that is idle, reads nothing or lets its
//   answers pile up is dropped.
//
// run() and everything else but requestStop() and the counters belong to
// one thread.
//
// A program stops its server on SIGINT and SIGTERM with stopOnSignals():
// the signals are blocked and read from a descriptor that run() watches
// beside the connections, so none is lost between two waits and no signal
// handler runs at all.
#ifndef MOXPHONE_PHONESERVER_H
#define MOXPHONE_PHONESERVER_H

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <initializer_list>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "moxphone/Endpoint.h"
#include "moxphone/PhoneConnection.h"
#include "moxphone/PhoneLog.h"
#include "moxphone/PhoneOptions.h"

namespace moxphone {

class PhoneServer {
public:
    // What the server takes on: how many connections at once, and what
    // each one may cost before it is dropped.
    struct Limits {
        static constexpr size_t kMaxConnections = 64;

        size_t maxConnections = kMaxConnections;  // served at once
        PhoneConnection::Limits connection;       // of each one
    };

    // `options` must be valid (PhoneOptions::validate). `log` must outlive
    // the server. Without `limits`, the defaults.
    PhoneServer(const PhoneOptions& options, PhoneLog& log);
    PhoneServer(const PhoneOptions& options, PhoneLog& log, const Limits& limits);
    ~PhoneServer();
    PhoneServer(const PhoneServer&) = delete;
    PhoneServer& operator=(const PhoneServer&) = delete;

    // Binds and listens. False with a one-line reason.
    bool listen(const std::string& endpoint, bool allowRemote, std::string* error);
    // The endpoint as bound ("tcp:127.0.0.1:40123" when port 0 was asked for).
    std::string endpoint() const { return mEndpoint.text(); }
    // On a Unix socket, processes of `uid` are served too. Before run().
    void allowUid(uid_t uid);
    // On a Unix socket, processes of any user are served. Before run().
    void allowOtherUsers();
    // Hands the bytes of every connection admitted later to `tap` (not
    // owned; it must outlive the server), each connection as a link of its own.
    void setTap(OstLinkAppTap* tap) { mTap = tap; }
    // Serves the connections admitted later with the sessions that
    // `makeSession` makes (a replay) instead of the simulated application.
    void setSessionFactory(const PhoneConnection::SessionFactory& makeSession) {
        mMakeSession = makeSession;
    }
    // Serves connections until requestStop(); then drops those still open,
    // stops listening and removes the socket file.
    void run();
    // Makes run() return soon, with every connection dropped, even one
    // whose module reads nothing. Safe from a signal handler and from any
    // thread, before or during run().
    void requestStop();
    // From now on, any of `signals` sent to the process acts as
    // requestStop(). Blocks them in the calling thread. Every thread of the
    // process must block them, or it could take one, so call this before
    // the process starts any other thread: new threads inherit the mask.
    // They stay blocked afterwards. False with a one-line reason.
    bool stopOnSignals(std::initializer_list<int> signals, std::string* error);
    // Connections served so far (the refused ones not counted). Any thread.
    size_t connections() const { return mConnections.load(); }
    // Connections refused so far: of another user, or over the limit. Any thread.
    size_t refusals() const { return mRefusals.load(); }

    // A connection whose module reads nothing for this long is dropped.
    static constexpr int kSendTimeoutSeconds = PhoneConnection::Limits::kSendTimeoutMs / 1000;

private:
    bool listenUnix(const Endpoint& endpoint, std::string* error);
    bool listenTcp(const Endpoint& endpoint, bool allowRemote, std::string* error);
    // Takes one connection that waits, if any.
    void acceptOne();
    void admit(int fd);
    // True when the peer of the Unix socket `fd` may be served; else false
    // with the log line that says why.
    bool peerAllowed(int fd, std::string* refusal) const;
    // The poll timeout: until the next connection's deadline or delayed
    // send, or the end of a pause in accepting; -1 for none.
    int timeoutMs() const;
    void removeFinished();
    void closeListener();
    bool stopRequested() const { return mStop.load(); }

    const PhoneOptions mOptions;
    const Limits mLimits;
    PhoneLog& mLog;
    Endpoint mEndpoint;
    int mListenFd;
    int mStopRead;   // self-pipe: requestStop() writes, run() polls
    int mStopWrite;  //
    int mSignalFd;   // the stop signals, once stopOnSignals() has run; else -1
    std::atomic<bool> mStop;
    std::atomic<size_t> mConnections;
    std::atomic<size_t> mRefusals;
    bool mAnyUser;                                 // allowOtherUsers()
    std::set<uid_t> mUids;                         // allowUid()
    OstLinkAppTap* mTap = nullptr;                 // setTap()
    PhoneConnection::SessionFactory mMakeSession;  // setSessionFactory(), or empty
    std::string mSocketPath;                       // the socket file this server made, or empty
    dev_t mSocketDevice;  // identity of that file, so a replacement is never removed
    ino_t mSocketInode;   //
    std::vector<std::unique_ptr<PhoneConnection>> mOpen;  // the connections being served
    // When accepting failed for want of descriptors or memory: no new
    // connection is taken before this time.
    std::chrono::steady_clock::time_point mAcceptPausedUntil;
};

}  // namespace moxphone

#endif  // MOXPHONE_PHONESERVER_H
