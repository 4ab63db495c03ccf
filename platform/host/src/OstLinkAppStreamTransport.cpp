#include "OstLinkAppStreamTransport.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <system_error>
#include <vector>

#include "HbFramework/HbDbgOutput.h"
#include "HbFramework/HbMsgBox.h"
#include "OstLinkApp/OstLinkAppEnvelope.h"
#include "OstLinkApp/OstLinkAppHost.h"

namespace {

const char kSource[] = "platform/host/src/OstLinkAppStreamTransport.cpp";

// Bytes read from the socket at a time.
const size_t kReadChunk = 16u * 1024u;

std::string errorText(int error) {
    char buffer[128];
    return strerror_r(error, buffer, sizeof(buffer));
}

using Clock = std::chrono::steady_clock;

// Milliseconds from now to `deadline`, rounded up, at least 0.
int msUntil(Clock::time_point deadline, Clock::time_point now) {
    if (deadline <= now) {
        return 0;
    }
    const auto left = std::chrono::duration_cast<std::chrono::microseconds>(deadline - now);
    return static_cast<int>((left.count() + 999) / 1000);
}

}  // namespace

OstLinkAppStreamTransport::OstLinkAppStreamTransport(const std::string& name, PostFunc post)
    : OstLinkAppTransport(name, std::move(post)),
      mStarted(false),
      mClosed(false),
      mReader(),
      mWakeFd(-1),
      mAddress(),
      mAddressLength(0),
      mAlive(false),
      mClosing(false),
      mSocket(-1),
      mConnected(false),
      mQueue(),
      mQueueMoved(),
      mSendFailure(),
      mEnvelopes(),
      mEnded(false),
      mSawDeviceInfo(false),
      mSawDeviceStatus(false),
      mGreetingDeadline(),
      mGreetingMs(0),
      mSendStallMs(0) {}

OstLinkAppStreamTransport::~OstLinkAppStreamTransport() {
    close();
}

bool OstLinkAppStreamTransport::open() {
    std::lock_guard<std::mutex> closeLock(mCloseMutex);
    if (mStarted || mClosed) {
        return isOpen();
    }
    std::string error;
    if (!makeAddress(mAddress, mAddressLength, error)) {
        logError("open", __LINE__, "cannot open " + getName() + ": " + error + "\n");
        return false;
    }
    mSocket = ::socket(mAddress.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (mSocket < 0) {
        logError("open", __LINE__, "cannot open " + getName() + ": " + errorText(errno) + "\n");
        return false;
    }
    if (mAddress.ss_family == AF_INET || mAddress.ss_family == AF_INET6) {
        // Frames are small and answered one by one: send each at once rather
        // than wait for the peer's acknowledgement (Nagle), which would add
        // tens of milliseconds to every answer.
        const int on = 1;
        ::setsockopt(mSocket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
    }
    mWakeFd = ::eventfd(0, EFD_CLOEXEC);
    if (mWakeFd < 0) {
        logError("open", __LINE__, "cannot open " + getName() + ": " + errorText(errno) + "\n");
        ::close(mSocket);
        mSocket = -1;
        return false;
    }
    {
        std::lock_guard<std::mutex> stateLock(mStateMutex);
        mAlive = true;
    }
    try {
        mReader = std::thread(&OstLinkAppStreamTransport::readerMain, this);
    } catch (const std::system_error& e) {
        logError("open", __LINE__, "cannot open " + getName() + ": " + e.what() + "\n");
        std::lock_guard<std::mutex> stateLock(mStateMutex);
        mAlive = false;
        ::close(mWakeFd);
        ::close(mSocket);
        mWakeFd = -1;
        mSocket = -1;
        return false;
    }
    mStarted = true;
    return true;
}

bool OstLinkAppStreamTransport::close() {
    std::lock_guard<std::mutex> closeLock(mCloseMutex);
    if (mClosed) {
        return false;
    }
    if (mStarted && mReader.get_id() == std::this_thread::get_id()) {
        logError("close", __LINE__,
                 "close of " + getName() + " on its own reader thread refused\n");
        return false;
    }
    mClosed = true;
    bool wasAlive = false;
    {
        std::lock_guard<std::mutex> stateLock(mStateMutex);
        mClosing = true;
        wasAlive = mAlive;
        mAlive = false;
    }
    if (!mStarted) {
        return false;
    }
    const uint64_t one = 1;
    // The reader wakes from poll(); a send blocked on a full socket fails.
    (void)!::write(mWakeFd, &one, sizeof(one));
    ::shutdown(mSocket, SHUT_RDWR);
    mReader.join();
    {
        std::lock_guard<std::mutex> sendLock(mSendMutex);
        ::close(mSocket);
        mSocket = -1;
        mConnected = false;
    }
    ::close(mWakeFd);
    mWakeFd = -1;
    return wasAlive;
}

bool OstLinkAppStreamTransport::isOpen() const {
    std::lock_guard<std::mutex> stateLock(mStateMutex);
    return mAlive;
}

bool OstLinkAppStreamTransport::send(const uint8* frame, uint32 size) {
    if (size > OstLinkAppEnvelope::MAX_PAYLOAD_SIZE) {
        HbDbgOutput::DbgPrint(kSource, "send", __LINE__, en_TAG_ERROR,
                              "frame of %u bytes over the envelope limit, dropped\n", size);
        return false;
    }
    const std::vector<uint8> envelope =
        OstLinkAppEnvelope::encode(OstLinkAppEnvelope::en_TYPE_COMMAND, frame, size);
    std::lock_guard<std::mutex> sendLock(mSendMutex);
    if (!mConnected || mSocket < 0 || !mSendFailure.empty()) {
        HbDbgOutput::DbgPrint(kSource, "send", __LINE__, en_TAG_ERROR,
                              "link not open, frame of %u bytes dropped\n", size);
        return false;
    }
    if (mQueue.size() + envelope.size() > OstLinkAppHost::SEND_QUEUE_LIMIT) {
        mSendFailure =
            "the phone reads nothing, " + std::to_string(mQueue.size()) + " bytes wait to be sent";
        nudgeReader();
        HbDbgOutput::DbgPrint(kSource, "send", __LINE__, en_TAG_ERROR,
                              "send queue of %s full, frame of %u bytes dropped\n",
                              getName().c_str(), size);
        return false;
    }
    const bool wasEmpty = mQueue.empty();
    mQueue.insert(mQueue.end(), envelope.begin(), envelope.end());
    // Recorded before it can go out, so that a listener never hears the
    // phone's answer before the request.
    tapBytes(OstLinkAppTap::en_DIRECTION_TO_PHONE, envelope.data(), envelope.size());
    if (wasEmpty) {
        mQueueMoved = Clock::now();
    }
    int error = 0;
    if (!flushQueueLocked(error)) {
        mSendFailure = "send failed: " + errorText(error);
        nudgeReader();
        HbDbgOutput::DbgPrint(kSource, "send", __LINE__, en_TAG_ERROR,
                              "send failed on %s: %s, frame of %u bytes dropped\n",
                              getName().c_str(), errorText(error).c_str(), size);
        return false;
    }
    if (!mQueue.empty() && wasEmpty) {
        nudgeReader();  // the reader now waits until the socket takes the rest
    }
    return true;
}

bool OstLinkAppStreamTransport::flushQueueLocked(int& error) {
    size_t done = 0;
    while (done < mQueue.size()) {
        const ssize_t sent = ::send(mSocket, mQueue.data() + done, mQueue.size() - done,
                                    MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent < 0 && errno == EINTR) {
            continue;
        }
        if (sent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            break;
        }
        if (sent < 0) {
            error = errno;
            return false;
        }
        done += static_cast<size_t>(sent);
    }
    if (done > 0) {
        mQueue.erase(mQueue.begin(), mQueue.begin() + static_cast<std::ptrdiff_t>(done));
        mQueueMoved = Clock::now();
    }
    return true;
}

void OstLinkAppStreamTransport::nudgeReader() const {
    const uint64_t one = 1;
    (void)!::write(mWakeFd, &one, sizeof(one));
}

bool OstLinkAppStreamTransport::checkPeer(int socket, std::string& error) const {
    (void)socket;
    (void)error;
    return true;
}

void OstLinkAppStreamTransport::readerMain() {
    pthread_setname_np(pthread_self(), READER_THREAD_NAME);
    if (connectPeer()) {
        readLoop();
    }
    tapEnd();
}

bool OstLinkAppStreamTransport::connectPeer() {
    if (::connect(mSocket, reinterpret_cast<const sockaddr*>(&mAddress), mAddressLength) != 0) {
        if (errno != EINPROGRESS) {
            endLink("connectPeer", __LINE__,
                    "cannot connect to " + getName() + ": " + errorText(errno) + "\n");
            return false;
        }
        short revents = 0;
        EN_WAIT wait = en_WAIT_NUDGED;
        while (wait == en_WAIT_NUDGED) {
            wait = waitFor(POLLOUT, -1, &revents);
        }
        if (wait == en_WAIT_WOKEN) {
            return false;
        }
        int error = (wait == en_WAIT_FAILED) ? errno : 0;
        socklen_t length = sizeof(error);
        if (error == 0 && ::getsockopt(mSocket, SOL_SOCKET, SO_ERROR, &error, &length) != 0) {
            error = errno;
        }
        if (error != 0) {
            endLink("connectPeer", __LINE__,
                    "cannot connect to " + getName() + ": " + errorText(error) + "\n");
            return false;
        }
    }
    std::string refusal;
    if (!checkPeer(mSocket, refusal)) {
        endLink("connectPeer", __LINE__,
                "refused the phone at " + getName() + ": " + refusal + "\n");
        return false;
    }
    mGreetingMs = OstLinkAppHost::getGreetingMs();
    mSendStallMs = OstLinkAppHost::getSendStallMs();
    mGreetingDeadline = Clock::now() + std::chrono::milliseconds(mGreetingMs);
    // The socket stays non-blocking: no send ever waits on the phone.
    std::lock_guard<std::mutex> sendLock(mSendMutex);
    mConnected = true;
    return true;
}

void OstLinkAppStreamTransport::readLoop() {
    std::vector<uint8> buffer(kReadChunk);
    const OstLinkAppEnvelopeReader::Handler handler =
        [this](uint8 type, const uint8* payload, uint32 size) { deliver(type, payload, size); };
    for (;;) {
        int timeoutMs = -1;
        const std::string broken = checkDeadlines(&timeoutMs);
        if (!broken.empty()) {
            endLink("readLoop", __LINE__, broken + "\n");
            return;
        }
        bool pending = false;
        {
            std::lock_guard<std::mutex> sendLock(mSendMutex);
            pending = !mQueue.empty();
        }
        short revents = 0;
        const EN_WAIT wait =
            waitFor(static_cast<short>(POLLIN | (pending ? POLLOUT : 0)), timeoutMs, &revents);
        if (wait == en_WAIT_WOKEN) {
            return;
        }
        if (wait == en_WAIT_NUDGED || wait == en_WAIT_TIMEOUT) {
            continue;
        }
        if (wait == en_WAIT_READY && (revents & POLLOUT) != 0) {
            std::lock_guard<std::mutex> sendLock(mSendMutex);
            int error = 0;
            if (!flushQueueLocked(error) && mSendFailure.empty()) {
                mSendFailure = "send failed: " + errorText(error);
            }
        }
        if (wait == en_WAIT_READY && (revents & (POLLIN | POLLHUP | POLLERR)) == 0) {
            continue;
        }
        const ssize_t count =
            (wait == en_WAIT_READY) ? ::recv(mSocket, buffer.data(), buffer.size(), 0) : -1;
        if (count < 0 && (errno == EINTR || errno == EAGAIN)) {
            continue;
        }
        if (count < 0) {
            endLink("readLoop", __LINE__,
                    "link lost on " + getName() + ": " + errorText(errno) + "\n");
            return;
        }
        if (count == 0) {
            if (!mEnvelopes.finish()) {
                endLink("readLoop", __LINE__,
                        "protocol error on " + getName() + ": " + mEnvelopes.getErrorText() +
                            ", closing the link\n");
            } else {
                endLink("readLoop", __LINE__, "link closed by the phone on " + getName() + "\n");
            }
            return;
        }
        tapBytes(OstLinkAppTap::en_DIRECTION_FROM_PHONE, buffer.data(), static_cast<size_t>(count));
        if (!mEnvelopes.feed(buffer.data(), static_cast<size_t>(count), handler)) {
            endLink("readLoop", __LINE__,
                    "protocol error on " + getName() + ": " + mEnvelopes.getErrorText() +
                        ", closing the link\n");
            return;
        }
        if (mEnded) {
            shutDownSocket();
            return;
        }
    }
}

std::string OstLinkAppStreamTransport::checkDeadlines(int* timeoutMs) {
    const Clock::time_point now = Clock::now();
    *timeoutMs = -1;
    if (!mSawDeviceInfo || !mSawDeviceStatus) {
        if (now >= mGreetingDeadline) {
            return "the phone at " + getName() +
                   " did not send its device info and status within " +
                   std::to_string(mGreetingMs) + " ms, closing the link";
        }
        *timeoutMs = msUntil(mGreetingDeadline, now);
    }
    std::lock_guard<std::mutex> sendLock(mSendMutex);
    if (!mSendFailure.empty()) {
        return "link lost on " + getName() + ": " + mSendFailure;
    }
    if (mQueue.empty()) {
        return std::string();
    }
    const Clock::time_point stalled = mQueueMoved + std::chrono::milliseconds(mSendStallMs);
    if (now >= stalled) {
        return "link lost on " + getName() + ": the phone read nothing for " +
               std::to_string(mSendStallMs) + " ms, " + std::to_string(mQueue.size()) +
               " bytes unsent";
    }
    const int untilStalled = msUntil(stalled, now);
    if (*timeoutMs < 0 || untilStalled < *timeoutMs) {
        *timeoutMs = untilStalled;
    }
    return std::string();
}

OstLinkAppStreamTransport::EN_WAIT OstLinkAppStreamTransport::waitFor(short events, int timeoutMs,
                                                                      short* revents) {
    pollfd fds[2];
    fds[0] = pollfd{mSocket, events, 0};
    fds[1] = pollfd{mWakeFd, POLLIN, 0};
    int ready = 0;
    for (;;) {
        ready = ::poll(fds, 2, timeoutMs);
        if (ready >= 0) {
            break;
        }
        if (errno != EINTR) {
            return en_WAIT_FAILED;
        }
    }
    *revents = fds[0].revents;
    if (fds[1].revents != 0) {
        uint64_t count = 0;
        (void)!::read(mWakeFd, &count, sizeof(count));
        if (!mayPost()) {
            return en_WAIT_WOKEN;
        }
        return fds[0].revents != 0 ? en_WAIT_READY : en_WAIT_NUDGED;
    }
    return ready == 0 ? en_WAIT_TIMEOUT : en_WAIT_READY;
}

// The phone's "no device" ends the link: it is the report of the end, so it
// clears mAlive before it is posted, and whatever follows it is dropped.
void OstLinkAppStreamTransport::deliver(uint8 type, const uint8* payload, uint32 size) {
    if (mEnded) {
        return;
    }
    mSawDeviceInfo = mSawDeviceInfo || type == OstLinkAppEnvelope::en_TYPE_DEVICE_INFO;
    mSawDeviceStatus = mSawDeviceStatus || type == OstLinkAppEnvelope::en_TYPE_DEVICE_STATUS;
    if (!isNoDevice(type, payload, size)) {
        if (mayPost()) {
            postMessage(type, payload, size);
        }
        return;
    }
    mEnded = true;
    {
        std::lock_guard<std::mutex> stateLock(mStateMutex);
        if (mClosing) {
            return;
        }
        mAlive = false;
    }
    logError("deliver", __LINE__,
             "the phone reported no device on " + getName() + ", closing the link\n");
    postMessage(type, payload, size);
}

void OstLinkAppStreamTransport::endLink(const char* function, int line, const std::string& reason) {
    {
        std::lock_guard<std::mutex> stateLock(mStateMutex);
        if (mClosing) {
            return;
        }
        mAlive = false;
    }
    logError(function, line, reason);
    shutDownSocket();
    reportEnd();
}

// The end of the link must reach the unit even when a flood has filled its
// box: the report is posted again, every REPORT_RETRY_MS, while the box
// refuses it for being full, until it is taken, close() begins, or
// REPORT_TRIES posts have been refused (then it is logged).
void OstLinkAppStreamTransport::reportEnd() {
    for (uint32 tries = 1;; ++tries) {
        HbMsgBox::ForgetLastPostResultOnThisThread();
        postLinkLost();
        if (HbMsgBox::LastPostResultOnThisThread() != en_ERROR_MSGBOX_FULL) {
            return;
        }
        pollfd wake = {mWakeFd, POLLIN, 0};
        if (::poll(&wake, 1, REPORT_RETRY_MS) > 0) {
            uint64_t count = 0;
            (void)!::read(mWakeFd, &count, sizeof(count));
        }
        if (!mayPost()) {
            return;  // close() has begun: nobody waits for the report any more
        }
        if (tries == REPORT_TRIES) {
            logError("reportEnd", __LINE__,
                     "the end of the link on " + getName() + " could not be reported: box full\n");
            return;
        }
    }
}

// Shuts down first: a send blocked on the socket then fails and frees
// mSendMutex. Later sends are dropped as on a closed link.
void OstLinkAppStreamTransport::shutDownSocket() {
    ::shutdown(mSocket, SHUT_RDWR);
    std::lock_guard<std::mutex> sendLock(mSendMutex);
    mConnected = false;
}

bool OstLinkAppStreamTransport::mayPost() {
    std::lock_guard<std::mutex> stateLock(mStateMutex);
    return !mClosing;
}

void OstLinkAppStreamTransport::logError(const char* function, int line,
                                         const std::string& text) const {
    HbDbgOutput::DbgPrint(kSource, function, line, en_TAG_ERROR, "%s", text.c_str());
}
