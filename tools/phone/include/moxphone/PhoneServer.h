// The simulated phone on a socket: listens on a Unix or TCP endpoint and
// serves one connection after another (a second module waits in the backlog
// until the first has gone), each with a fresh PhoneSession, until stopped.
//
//   moxphone::PhoneServer server(options, log);
//   if (!server.listen("unix:/tmp/phone.sock", false, &error)) { ... }
//   server.run();            // returns after requestStop()
//
// TCP endpoints must be loopback addresses (127.0.0.0/8, ::1, localhost)
// unless `allowRemote`. A Unix socket file left by a dead server is
// replaced; one that a live server answers on, or any other file, is
// refused. The socket file is removed when the server stops or is
// destroyed. A module that stops reading for 10 s loses its connection.
//
// run() and everything else but requestStop() belong to one thread.
//
// A program stops its server on SIGINT and SIGTERM with stopOnSignals():
// the signals are blocked and read from a descriptor that run() watches
// beside the connection, so none is lost between two waits and no signal
// handler runs at all.
#ifndef MOXPHONE_PHONESERVER_H
#define MOXPHONE_PHONESERVER_H

#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <initializer_list>
#include <string>

#include "moxphone/Endpoint.h"
#include "moxphone/PhoneLog.h"
#include "moxphone/PhoneOptions.h"
#include "moxphone/PhoneSession.h"
#include "moxphone/PollScheduler.h"

namespace moxphone {

class PhoneServer : private PhoneSession::Transport {
public:
    // `options` must be valid (PhoneOptions::validate). `log` must outlive the server.
    PhoneServer(const PhoneOptions& options, PhoneLog& log);
    ~PhoneServer() override;
    PhoneServer(const PhoneServer&) = delete;
    PhoneServer& operator=(const PhoneServer&) = delete;

    // Binds and listens. False with a one-line reason.
    bool listen(const std::string& endpoint, bool allowRemote, std::string* error);
    // The endpoint as bound ("tcp:127.0.0.1:40123" when port 0 was asked for).
    std::string endpoint() const { return mEndpoint.text(); }
    // Serves connections until requestStop(); then stops listening and
    // removes the socket file.
    void run();
    // Makes run() return soon, a connection in progress included, even a
    // send that waits for a module that reads nothing. Safe from a signal
    // handler and from any thread, before or during run().
    void requestStop();
    // From now on, any of `signals` sent to the process acts as
    // requestStop(). Blocks them in the calling thread. Every thread of the
    // process must block them, or it could take one, so call this before
    // the process starts any other thread: new threads inherit the mask.
    // They stay blocked afterwards. False with a one-line reason.
    bool stopOnSignals(std::initializer_list<int> signals, std::string* error);
    // Connections accepted so far.
    size_t connections() const { return mConnections.load(); }

    // A connection whose module reads nothing for this long is dropped.
    static constexpr int kSendTimeoutSeconds = 10;

private:
    bool send(const Bytes& bytes) override;
    void hangUp() override;

    bool listenUnix(const Endpoint& endpoint, std::string* error);
    bool listenTcp(const Endpoint& endpoint, bool allowRemote, std::string* error);
    void serve(int fd);
    bool readFrom(int fd, PhoneSession& session);
    // What ended a wait.
    enum class Wake { kReady, kStop, kTimeout, kInterrupted, kFailed };
    // Waits until `fd` has one of `events` (or an error or hang-up), a stop
    // is requested, or `timeoutMs` (-1: no limit) has passed.
    Wake waitFor(int fd, short events, int timeoutMs);
    // After a send found the socket full: true once there is room; false
    // (logged unless stopping) on a stop, a failure or 10 s without room.
    bool waitForRoom();
    void closeListener();
    bool stopRequested() const { return mStop.load(); }

    const PhoneOptions mOptions;
    PhoneLog& mLog;
    Endpoint mEndpoint;
    int mListenFd;
    int mStopRead;   // self-pipe: requestStop() writes, run() polls
    int mStopWrite;  //
    int mSignalFd;   // the stop signals, once stopOnSignals() has run; else -1
    std::atomic<bool> mStop;
    std::atomic<size_t> mConnections;
    int mClientFd;             // the connection being served, or -1
    std::string mSocketPath;   // the socket file this server made, or empty
    dev_t mSocketDevice;       // identity of that file, so a replacement is never removed
    ino_t mSocketInode;        //
    PollScheduler mScheduler;  // delayed sends of the connection being served
};

}  // namespace moxphone

#endif  // MOXPHONE_PHONESERVER_H
