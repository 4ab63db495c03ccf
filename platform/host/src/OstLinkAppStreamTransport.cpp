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
#include "OstLinkApp/OstLinkAppEnvelope.h"

namespace {

const char kSource[] = "platform/host/src/OstLinkAppStreamTransport.cpp";

// Bytes read from the socket at a time.
const size_t kReadChunk = 16u * 1024u;

std::string errorText(int error) {
    char buffer[128];
    return strerror_r(error, buffer, sizeof(buffer));
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
      mEnvelopes(),
      mEnded(false) {}

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
    if (!mConnected || mSocket < 0) {
        HbDbgOutput::DbgPrint(kSource, "send", __LINE__, en_TAG_ERROR,
                              "link not open, frame of %u bytes dropped\n", size);
        return false;
    }
    int error = 0;
    if (!writeAll(envelope.data(), envelope.size(), error)) {
        HbDbgOutput::DbgPrint(kSource, "send", __LINE__, en_TAG_ERROR,
                              "send failed on %s: %s, frame of %u bytes dropped\n",
                              getName().c_str(), errorText(error).c_str(), size);
        return false;
    }
    return true;
}

void OstLinkAppStreamTransport::readerMain() {
    pthread_setname_np(pthread_self(), READER_THREAD_NAME);
    if (!connectPeer()) {
        return;
    }
    readLoop();
}

bool OstLinkAppStreamTransport::connectPeer() {
    if (::connect(mSocket, reinterpret_cast<const sockaddr*>(&mAddress), mAddressLength) != 0) {
        if (errno != EINPROGRESS) {
            endLink("connectPeer", __LINE__,
                    "cannot connect to " + getName() + ": " + errorText(errno) + "\n");
            return false;
        }
        const EN_WAIT wait = waitFor(POLLOUT);
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
    std::lock_guard<std::mutex> sendLock(mSendMutex);
    // Sends block from here on; the reader itself only reads after poll().
    const int flags = ::fcntl(mSocket, F_GETFL);
    ::fcntl(mSocket, F_SETFL, flags & ~O_NONBLOCK);
    mConnected = true;
    return true;
}

void OstLinkAppStreamTransport::readLoop() {
    std::vector<uint8> buffer(kReadChunk);
    const OstLinkAppEnvelopeReader::Handler handler =
        [this](uint8 type, const uint8* payload, uint32 size) { deliver(type, payload, size); };
    for (;;) {
        const EN_WAIT wait = waitFor(POLLIN);
        if (wait == en_WAIT_WOKEN) {
            return;
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

OstLinkAppStreamTransport::EN_WAIT OstLinkAppStreamTransport::waitFor(short events) {
    pollfd fds[2];
    fds[0] = pollfd{mSocket, events, 0};
    fds[1] = pollfd{mWakeFd, POLLIN, 0};
    for (;;) {
        if (::poll(fds, 2, -1) >= 0) {
            break;
        }
        if (errno != EINTR) {
            return en_WAIT_FAILED;
        }
    }
    if (fds[1].revents != 0) {
        return en_WAIT_WOKEN;
    }
    return en_WAIT_READY;
}

// The phone's "no device" ends the link: it is the report of the end, so it
// clears mAlive before it is posted, and whatever follows it is dropped.
void OstLinkAppStreamTransport::deliver(uint8 type, const uint8* payload, uint32 size) {
    if (mEnded) {
        return;
    }
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
    postLinkLost();
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

bool OstLinkAppStreamTransport::writeAll(const uint8* data, size_t size, int& error) {
    size_t done = 0;
    while (done < size) {
        const ssize_t sent = ::send(mSocket, data + done, size - done, MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) {
            continue;
        }
        if (sent < 0) {
            error = errno;
            return false;
        }
        done += static_cast<size_t>(sent);
    }
    return true;
}
