#include "CuttingProxy.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

namespace {

const size_t kBufferSize = 16 * 1024;

sockaddr_un unixAddress(const std::string& path) {
    sockaddr_un address;
    std::memset(&address, 0, sizeof(address));
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
    return address;
}

int connectUnix(const std::string& path) {
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_un address = unixAddress(path);
    if (fd >= 0 &&
        ::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        ::close(fd);
        return -1;
    }
    return fd;
}

bool sendAll(int fd, const unsigned char* data, size_t size) {
    size_t done = 0;
    while (done < size) {
        const ssize_t sent = ::send(fd, data + done, size - done, MSG_NOSIGNAL);
        if (sent <= 0) {
            return false;
        }
        done += static_cast<size_t>(sent);
    }
    return true;
}

}  // namespace

CuttingProxy::CuttingProxy(const std::string& path)
    : mPath(path),
      mListener(-1),
      mWake(::eventfd(0, EFD_CLOEXEC)),
      mCutAfter(0),
      mToModule(0),
      mTraffic(0),
      mConnections(0) {
    ::unlink(path.c_str());
    mListener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_un address = unixAddress(path);
    if (::bind(mListener, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0 &&
        ::listen(mListener, 4) == 0) {
        mThread = std::thread(&CuttingProxy::run, this);
    }
}

CuttingProxy::~CuttingProxy() {
    const uint64_t one = 1;
    (void)!::write(mWake, &one, sizeof(one));
    if (mThread.joinable()) {
        mThread.join();
    }
    ::close(mListener);
    ::close(mWake);
    ::unlink(mPath.c_str());
}

void CuttingProxy::setNext(const std::string& phonePath, uint64_t cutAfter) {
    std::lock_guard<std::mutex> lock(mMutex);
    mPhonePath = phonePath;
    mCutAfter = cutAfter;
}

void CuttingProxy::run() {
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
        serve(module, phonePath, cutAfter);
        ::close(module);
    }
}

// Ends when either side ends, the cut is reached or the proxy stops; both
// connections are then closed, so each side sees the other hang up.
void CuttingProxy::serve(int module, const std::string& phonePath, uint64_t cutAfter) {
    const int phone = connectUnix(phonePath);
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

bool CuttingProxy::copy(int from, int to, uint64_t limit, uint64_t* copied) {
    unsigned char buffer[kBufferSize];
    const size_t want = limit == 0 ? sizeof(buffer) : std::min<uint64_t>(sizeof(buffer), limit);
    const ssize_t count = ::recv(from, buffer, want, 0);
    if (count <= 0) {
        return false;
    }
    *copied += static_cast<uint64_t>(count);
    mTraffic += static_cast<uint64_t>(count);
    return sendAll(to, buffer, static_cast<size_t>(count));
}
