// One module connected to the PhoneServer: its socket, its session (the
// simulated application, PhoneSession, or a replay, ReplaySession), the
// session's delayed sends, the bytes that wait to go out, and the deadlines
// that end a connection which makes no progress. The server's poll loop
// drives many of them side by side:
//
//   moxphone::PhoneConnection connection(fd, options, limits, log);
//   connection.open();                          // the device info and status
//   pollfd entry = {connection.fd(), connection.events(), 0};
//   ::poll(&entry, 1, connection.timeoutMs());
//   connection.handle(entry.revents);           // reads and writes
//   connection.runDue();                        // delayed sends and deadlines
//   if (connection.finished()) { ... destroy it ... }
//
// Guarantees:
// - Nothing waits on the module: the socket is non-blocking, one call reads
//   at most kReadSize bytes, and what the socket does not take waits in the
//   connection's queue.
// - The chunks of a transfer wait while the queue holds Limits::pauseBytes
//   or more, so a module that reads slowly still gets a database of any size.
// - The connection is dropped, with one log line, when its queue would grow
//   past Limits::maxQueuedBytes (the module sends requests and reads none of
//   the answers), when queued bytes find no room for Limits::sendTimeoutMs,
//   or when nothing was received from the module or taken by its socket for
//   Limits::idleMs (an idle or half-open module).
// - When the phone hangs up, what is queued goes out first; then the socket
//   is shut down.
//
// Not thread-safe: every call comes from the server's thread.
#ifndef MOXPHONE_PHONECONNECTION_H
#define MOXPHONE_PHONECONNECTION_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>

#include "OstLinkApp/OstLinkAppTap.h"
#include "moxphone/LinkSession.h"
#include "moxphone/PhoneLog.h"
#include "moxphone/PhoneOptions.h"
#include "moxphone/PhoneSession.h"
#include "moxphone/PollScheduler.h"

namespace moxphone {

class PhoneConnection : private LinkSession::Transport {
public:
    using Clock = PollScheduler::Clock;
    // Makes the phone's side of a connection: the simulated application or
    // a replay. What it is given outlives the session.
    using SessionFactory = std::function<std::unique_ptr<LinkSession>(
        LinkSession::Transport& transport, Scheduler& scheduler, PhoneLog& log)>;
    // The factory of the simulated application with `options`.
    static SessionFactory simulator(const PhoneOptions& options);

    // What one connection may cost before it is dropped.
    struct Limits {
        static constexpr uint32_t kIdleMs = 30 * 1000;
        static constexpr uint32_t kSendTimeoutMs = 10 * 1000;
        static constexpr size_t kMaxQueuedBytes = 2 * 1024 * 1024;
        static constexpr size_t kPauseBytes = 64 * 1024;
        // The shortest idle time that scaling leaves, so that a module that
        // pauses between two requests of one lookup is never taken for idle.
        static constexpr uint32_t kMinScaledIdleMs = 1000;

        uint32_t idleMs = kIdleMs;                // nothing received or sent for this long
        uint32_t sendTimeoutMs = kSendTimeoutMs;  // queued bytes find no room for this long
        size_t maxQueuedBytes = kMaxQueuedBytes;  // the queue never holds more
        size_t pauseBytes = kPauseBytes;          // a transfer waits while the queue holds this

        // The defaults with the idle time multiplied by `timeScale` (the
        // rule of the phone's delays, HB_TIMER_SCALE), but not below
        // kMinScaledIdleMs; the rest is not scaled.
        static Limits scaledBy(double timeScale);
    };

    // Bytes read from the socket at most per handle().
    static constexpr size_t kReadSize = 64 * 1024;

    // Takes `fd`, a connected stream socket, and makes it non-blocking; the
    // connection closes it. `options` must be valid; `log` must outlive the
    // connection. `now` gives the time of the deadlines and of the
    // session's delayed sends (tests pass a clock of their own).
    PhoneConnection(int fd, const PhoneOptions& options, const Limits& limits, PhoneLog& log,
                    PollScheduler::Now now = Clock::now);
    // The same with the session that `makeSession` makes.
    PhoneConnection(int fd, const SessionFactory& makeSession, const Limits& limits, PhoneLog& log,
                    PollScheduler::Now now = Clock::now);
    ~PhoneConnection() override;
    PhoneConnection(const PhoneConnection&) = delete;
    PhoneConnection& operator=(const PhoneConnection&) = delete;

    // Starts the session: the device info and status go out.
    void open();
    // The socket while the connection lasts, else -1 (poll skips it).
    int fd() const { return mFd; }
    // What to poll the socket for.
    short events() const;
    // After a poll: reads what came (once) and sends what waits.
    void handle(short revents);
    // Runs the session's delayed sends that are due and ends the
    // connection when a deadline has passed.
    void runDue();
    // Milliseconds until runDue() has something to do, or -1.
    int timeoutMs() const;
    // Logs `reason`, closes the session and the socket (the server stops).
    void drop(const std::string& reason);
    // True once the socket is closed: the owner destroys the connection.
    bool finished() const { return mState == State::kFinished; }
    // Bytes that wait for the socket.
    size_t queuedBytes() const { return mQueuedBytes; }
    // Hands every byte received and sent to `tap` (not owned; it must
    // outlive the connection) as link number `link`, and tells it when the
    // connection ends. Null stops that.
    void setTap(OstLinkAppTap* tap, uint32_t link);

private:
    enum class State {
        kOpen,      // the session runs
        kDraining,  // the phone hung up; the queue goes out, then the end
        kFinished,  // the socket is closed
    };

    bool send(const Bytes& bytes) override;
    void hangUp() override;
    bool hasRoom() const override;

    void readOnce();
    // Writes as much of the queue as the socket takes; false when the
    // module's end is gone (a failure other than that is logged).
    bool flush();
    // Ends what the session's state and the queue say has ended.
    void settle();
    void finish();
    Clock::time_point idleDeadline() const;
    Clock::time_point sendDeadline() const;

    int mFd;
    const Limits mLimits;
    PhoneLog& mLog;
    PollScheduler::Now mNow;
    OstLinkAppTap* mTap;  // hears the connection's bytes, or null
    uint32_t mLink;       // the connection's number for mTap
    State mState;
    bool mHangUp;  // the phone hung up: shut the socket down once the queue is out
    std::deque<Bytes> mQueue;
    size_t mQueuedBytes;
    size_t mFrontSent;                // bytes of mQueue.front() already sent
    Clock::time_point mLastActivity;  // last byte received or taken by the socket
    Clock::time_point mLastProgress;  // last byte taken, or when the queue filled from empty
    PollScheduler mScheduler;         // before the session, which holds on to it
    std::unique_ptr<LinkSession> mSession;
};

}  // namespace moxphone

#endif  // MOXPHONE_PHONECONNECTION_H
