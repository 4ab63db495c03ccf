// One module's socket, its queue and its deadlines.
#include "moxphone/PhoneConnection.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace moxphone {

namespace {

// Queued envelopes handed to the socket in one call at most.
constexpr size_t kMaxWriteParts = 64;

// "30 s", "1.5 s": a time of the limits as the log shows it.
std::string secondsText(uint32_t ms) {
    char text[32];
    std::snprintf(text, sizeof(text), "%g s", static_cast<double>(ms) / 1000.0);
    return text;
}

}  // namespace

PhoneConnection::Limits PhoneConnection::Limits::scaledBy(double timeScale) {
    Limits limits;
    const double idle = std::llround(static_cast<double>(kIdleMs) * timeScale);
    limits.idleMs = static_cast<uint32_t>(
        std::min(std::max(idle, static_cast<double>(kMinScaledIdleMs)), 4294967295.0));
    return limits;
}

PhoneConnection::SessionFactory PhoneConnection::simulator(const PhoneOptions& options) {
    return [options](LinkSession::Transport& transport, Scheduler& scheduler, PhoneLog& log) {
        return std::unique_ptr<LinkSession>(new PhoneSession(options, transport, scheduler, log));
    };
}

PhoneConnection::PhoneConnection(int fd, const PhoneOptions& options, const Limits& limits,
                                 PhoneLog& log, PollScheduler::Now now)
    : PhoneConnection(fd, simulator(options), limits, log, now) {}

PhoneConnection::PhoneConnection(int fd, const SessionFactory& makeSession, const Limits& limits,
                                 PhoneLog& log, PollScheduler::Now now)
    : mFd(fd),
      mLimits(limits),
      mLog(log),
      mNow(now),
      mTap(nullptr),
      mLink(0),
      mState(State::kOpen),
      mHangUp(false),
      mQueuedBytes(0),
      mFrontSent(0),
      mLastActivity(now()),
      mLastProgress(mLastActivity),
      mScheduler(now),
      mSession(makeSession(*this, mScheduler, log)) {
    const int flags = ::fcntl(mFd, F_GETFL);
    if (flags >= 0) {
        ::fcntl(mFd, F_SETFL, flags | O_NONBLOCK);
    }
}

PhoneConnection::~PhoneConnection() {
    if (mFd >= 0) {
        ::close(mFd);
    }
}

void PhoneConnection::setTap(OstLinkAppTap* tap, uint32_t link) {
    mTap = tap;
    mLink = link;
}

void PhoneConnection::open() {
    mSession->open();
    settle();
}

short PhoneConnection::events() const {
    switch (mState) {
        case State::kOpen:
            return static_cast<short>(POLLIN | (mQueue.empty() ? 0 : POLLOUT));
        case State::kDraining:
            return POLLOUT;
        case State::kFinished:
            break;
    }
    return 0;
}

void PhoneConnection::handle(short revents) {
    if (mState == State::kOpen && (revents & (POLLIN | POLLHUP | POLLERR)) != 0) {
        readOnce();
    }
    if (mState != State::kFinished && !mQueue.empty() &&
        (revents & (POLLOUT | POLLHUP | POLLERR)) != 0) {
        if (!flush() && mSession->isOpen()) {
            mLog.line("the module's end is gone");
            mSession->close();
        } else if (mState == State::kOpen && hasRoom()) {
            mSession->resume();
        }
    }
    settle();
}

void PhoneConnection::runDue() {
    if (mState == State::kOpen) {
        mScheduler.runDue();
        settle();
    }
    if (mState == State::kFinished) {
        return;
    }
    const Clock::time_point now = mNow();
    if (!mQueue.empty() && now >= sendDeadline()) {
        drop("the module has read nothing for " + secondsText(mLimits.sendTimeoutMs) +
             "; dropping the connection");
    } else if (now >= idleDeadline()) {
        drop("the module has been idle for " + secondsText(mLimits.idleMs) +
             " (nothing received or sent); dropping the connection");
    }
}

int PhoneConnection::timeoutMs() const {
    if (mState == State::kFinished) {
        return -1;
    }
    const int scheduled = mState == State::kOpen ? mScheduler.timeoutMs() : -1;
    const Clock::time_point deadline =
        mQueue.empty() ? idleDeadline() : std::min(idleDeadline(), sendDeadline());
    const Clock::time_point now = mNow();
    const long long wait =
        deadline <= now ? 0 : std::chrono::ceil<std::chrono::milliseconds>(deadline - now).count();
    const int untilDeadline = wait > INT_MAX ? INT_MAX : static_cast<int>(wait);
    return scheduled < 0 ? untilDeadline : std::min(scheduled, untilDeadline);
}

void PhoneConnection::drop(const std::string& reason) {
    if (mState == State::kFinished) {
        return;
    }
    mLog.line(reason);
    mQueue.clear();
    mQueuedBytes = 0;
    mHangUp = false;
    mSession->close();
    finish();
}

// ---- The session's transport ----

bool PhoneConnection::send(const Bytes& bytes) {
    if (mState != State::kOpen) {
        return false;
    }
    if (bytes.size() > mLimits.maxQueuedBytes - mQueuedBytes) {
        mLog.line("the module reads too little: " + std::to_string(mQueuedBytes + bytes.size()) +
                  " bytes would wait for it, more than " + std::to_string(mLimits.maxQueuedBytes) +
                  "; dropping the connection");
        mQueue.clear();
        mQueuedBytes = 0;
        return false;
    }
    if (bytes.empty()) {
        return true;
    }
    const bool wasEmpty = mQueue.empty();
    if (wasEmpty) {
        mFrontSent = 0;
        mLastProgress = mNow();
    }
    mQueue.push_back(bytes);
    mQueuedBytes += bytes.size();
    // A queue that was not empty waits for the socket to have room.
    return wasEmpty ? flush() : true;
}

void PhoneConnection::hangUp() {
    mHangUp = true;
}

bool PhoneConnection::hasRoom() const {
    return mQueuedBytes < mLimits.pauseBytes;
}

// ---- The socket ----

void PhoneConnection::readOnce() {
    uint8_t buffer[kReadSize];
    const ssize_t got = ::recv(mFd, buffer, sizeof(buffer), 0);
    if (got > 0) {
        if (mTap != nullptr) {
            mTap->onLinkBytes(mLink, OstLinkAppTap::en_DIRECTION_TO_PHONE, buffer,
                              static_cast<size_t>(got));
        }
        mLastActivity = mNow();
        mSession->receiveBytes(buffer, static_cast<size_t>(got));
        return;
    }
    if (got < 0 && (errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK)) {
        return;
    }
    if (got == 0) {
        mLog.line("the module hung up");
    } else if (errno == ECONNRESET) {
        mLog.line("the module hung up (connection reset)");
    } else {
        mLog.line("reading from the module failed: " + std::string(std::strerror(errno)));
    }
    mQueue.clear();  // nobody reads it any more
    mQueuedBytes = 0;
    mSession->close();
}

bool PhoneConnection::flush() {
    while (!mQueue.empty()) {
        iovec parts[kMaxWriteParts];
        size_t count = 0;
        for (auto it = mQueue.begin(); it != mQueue.end() && count < kMaxWriteParts; ++it) {
            const size_t skip = count == 0 ? mFrontSent : 0;
            parts[count].iov_base = const_cast<uint8_t*>(it->data() + skip);
            parts[count].iov_len = it->size() - skip;
            ++count;
        }
        msghdr message;
        std::memset(&message, 0, sizeof(message));
        message.msg_iov = parts;
        message.msg_iovlen = count;
        const ssize_t sent = ::sendmsg(mFd, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent > 0) {
            size_t left = static_cast<size_t>(sent);
            mQueuedBytes -= left;
            while (left > 0) {
                const size_t rest = mQueue.front().size() - mFrontSent;
                if (mTap != nullptr) {
                    mTap->onLinkBytes(mLink, OstLinkAppTap::en_DIRECTION_FROM_PHONE,
                                      mQueue.front().data() + mFrontSent, std::min(left, rest));
                }
                if (left < rest) {
                    mFrontSent += left;
                    break;
                }
                left -= rest;
                mQueue.pop_front();
                mFrontSent = 0;
            }
            mLastActivity = mNow();
            mLastProgress = mLastActivity;
            continue;
        }
        if (sent < 0 && errno == EINTR) {
            continue;
        }
        if (sent == 0 || errno == EAGAIN || errno == EWOULDBLOCK) {
            return true;  // the rest waits for room
        }
        if (errno != EPIPE && errno != ECONNRESET) {
            mLog.line("sending to the module failed: " + std::string(std::strerror(errno)));
        }
        mQueue.clear();
        mQueuedBytes = 0;
        mFrontSent = 0;
        return false;
    }
    return true;
}

void PhoneConnection::settle() {
    if (mState == State::kOpen && !mSession->isOpen()) {
        mState = State::kDraining;
    }
    // After a hang-up of the phone, what it sent before goes out first.
    if (mState == State::kDraining && (!mHangUp || mQueue.empty())) {
        finish();
    }
}

void PhoneConnection::finish() {
    if (mHangUp) {
        ::shutdown(mFd, SHUT_RDWR);
    }
    ::close(mFd);
    mFd = -1;
    mState = State::kFinished;
    if (mTap != nullptr) {
        mTap->onLinkEnd(mLink);
    }
    mQueue.clear();
    mQueuedBytes = 0;
    mScheduler.cancelAll();
}

PhoneConnection::Clock::time_point PhoneConnection::idleDeadline() const {
    return mLastActivity + std::chrono::milliseconds(mLimits.idleMs);
}

PhoneConnection::Clock::time_point PhoneConnection::sendDeadline() const {
    return mLastProgress + std::chrono::milliseconds(mLimits.sendTimeoutMs);
}

}  // namespace moxphone
