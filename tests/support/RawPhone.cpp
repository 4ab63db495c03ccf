#include "RawPhone.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "LinkSocket.h"
#include "moxdb/DbBytes.h"

namespace {

const size_t kBufferSize = 16 * 1024;

}  // namespace

RawPhone::RawPhone() = default;

RawPhone::RawPhone(const std::string& path) {
    listenUnix(path);
}

RawPhone::~RawPhone() {
    if (mRelay.joinable()) {
        const uint64_t one = 1;
        (void)!::write(mWake, &one, sizeof(one));
        mRelay.join();
    }
    if (mWake >= 0) {
        ::close(mWake);
    }
    hangUp();
    if (mListener >= 0) {
        ::close(mListener);
    }
    if (!mPath.empty()) {
        ::unlink(mPath.c_str());
    }
}

bool RawPhone::listenUnix(const std::string& path) {
    mListener = LinkSocket::listenUnix(path);
    if (mListener < 0) {
        return false;
    }
    mPath = path;
    mEndpoint = "unix:" + path;
    return true;
}

bool RawPhone::listenTcp(bool ipv6) {
    mListener = LinkSocket::listenTcp(ipv6, &mPort);
    if (mListener < 0) {
        return false;
    }
    mEndpoint = (ipv6 ? "tcp:[::1]:" : "tcp:127.0.0.1:") + std::to_string(mPort);
    return true;
}

bool RawPhone::accept() {
    hangUp();
    if (!waitReadable(mListener)) {
        return false;
    }
    mConnection = ::accept4(mListener, nullptr, nullptr, SOCK_CLOEXEC);
    return mConnection >= 0;
}

bool RawPhone::hasPendingConnection() const {
    pollfd entry{mListener, POLLIN, 0};
    return ::poll(&entry, 1, 0) > 0;
}

bool RawPhone::acceptAndOpen(const std::string& name) {
    if (!accept()) {
        return false;
    }
    for (const linkwire::Message& message : linkwire::greeting(name)) {
        if (!send(linkwire::envelope(message))) {
            return false;
        }
    }
    return true;
}

void RawPhone::hangUp() {
    if (mConnection >= 0) {
        ::close(mConnection);
        mConnection = -1;
    }
}

bool RawPhone::send(const Bytes& bytes) {
    return LinkSocket::sendAll(mConnection, bytes.data(), bytes.size());
}

bool RawPhone::readExactly(size_t count, Bytes& out) {
    out.clear();
    while (out.size() < count) {
        unsigned char buffer[4096];
        if (!waitReadable(mConnection)) {
            return false;
        }
        const size_t want = std::min(sizeof(buffer), count - out.size());
        const ssize_t got = ::recv(mConnection, buffer, want, 0);
        if (got <= 0) {
            return false;
        }
        out.insert(out.end(), buffer, buffer + got);
    }
    return true;
}

RawPhone::Bytes RawPhone::readFrame() {
    Bytes head;
    if (!readExactly(OstLinkAppEnvelope::LENGTH_SIZE, head)) {
        return Bytes();
    }
    const uint32_t length = moxdb::getU32Be(head, 0);
    Bytes body;
    if (length == 0 || !readExactly(length, body)) {
        return Bytes();
    }
    return Bytes(body.begin() + 1, body.end());
}

bool RawPhone::seesHangUp() {
    unsigned char byte = 0;
    return waitReadable(mConnection) && ::recv(mConnection, &byte, 1, 0) == 0;
}

bool RawPhone::waitForEof(Bytes* rest) {
    for (;;) {
        unsigned char buffer[4096];
        if (!waitReadable(mConnection)) {
            return false;
        }
        const ssize_t got = ::recv(mConnection, buffer, sizeof(buffer), 0);
        if (got == 0) {
            return true;
        }
        if (got < 0) {
            return errno == ECONNRESET;
        }
        if (rest != nullptr) {
            rest->insert(rest->end(), buffer, buffer + got);
        }
    }
}

bool RawPhone::waitReadable(int fd) {
    pollfd entry{fd, POLLIN, 0};
    for (;;) {
        const int rc = ::poll(&entry, 1, kGuardMs);
        if (rc > 0) {
            return true;
        }
        if (rc == 0 || errno != EINTR) {
            return false;
        }
    }
}

void RawPhone::relay(const std::string& phonePath, uint64_t cutAfter) {
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mPhonePath = phonePath;
        mCutAfter = cutAfter;
    }
    if (mRelay.joinable() || mListener < 0) {
        return;
    }
    mWake = ::eventfd(0, EFD_CLOEXEC);
    mRelay = std::thread(&RawPhone::runRelay, this);
}

void RawPhone::runRelay() {
    for (;;) {
        pollfd fds[2] = {{mListener, POLLIN, 0}, {mWake, POLLIN, 0}};
        if (::poll(fds, 2, -1) < 0 || fds[1].revents != 0) {
            return;
        }
        const int module = ::accept4(mListener, nullptr, nullptr, SOCK_CLOEXEC);
        if (module < 0) {
            continue;
        }
        std::string phonePath;
        uint64_t cutAfter = 0;
        {
            std::lock_guard<std::mutex> lock(mMutex);
            phonePath = mPhonePath;
            cutAfter = mCutAfter;
        }
        ++mConnections;
        mToModule = 0;
        serveRelay(module, phonePath, cutAfter);
        ::close(module);
    }
}

// Ends when either side ends, the cut is reached or the relay stops; both
// connections are then closed, so each side sees the other hang up.
void RawPhone::serveRelay(int module, const std::string& phonePath, uint64_t cutAfter) {
    const int phone = LinkSocket::connectUnix(phonePath);
    if (phone < 0) {
        return;
    }
    uint64_t toModule = 0;
    uint64_t toPhone = 0;
    for (;;) {
        pollfd fds[3] = {{phone, POLLIN, 0}, {module, POLLIN, 0}, {mWake, POLLIN, 0}};
        if (::poll(fds, 3, -1) < 0 || fds[2].revents != 0) {
            break;
        }
        if (fds[0].revents != 0) {
            const uint64_t limit = cutAfter == 0 ? 0 : cutAfter - toModule;
            const bool alive = copy(phone, module, limit, &toModule);
            mToModule = toModule;
            if (!alive || (cutAfter != 0 && toModule >= cutAfter)) {
                break;
            }
        }
        if (fds[1].revents != 0 && !copy(module, phone, 0, &toPhone)) {
            break;
        }
    }
    ::shutdown(module, SHUT_RDWR);
    ::close(phone);
}

bool RawPhone::copy(int from, int to, uint64_t limit, uint64_t* copied) {
    unsigned char buffer[kBufferSize];
    const size_t want = limit == 0 ? sizeof(buffer) : std::min<uint64_t>(sizeof(buffer), limit);
    const ssize_t count = ::recv(from, buffer, want, 0);
    if (count <= 0) {
        return false;
    }
    *copied += static_cast<uint64_t>(count);
    mTraffic += static_cast<uint64_t>(count);
    return LinkSocket::sendAll(to, buffer, static_cast<size_t>(count));
}
