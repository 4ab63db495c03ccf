// Sockets, the accept loop and one connection at a time.
#include "moxphone/PhoneServer.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace moxphone {

namespace {

constexpr int kBacklog = 8;
constexpr size_t kReadSize = 64 * 1024;

std::string errorText(int code) {
    return std::strerror(code);
}

bool fail(std::string* error, const std::string& reason) {
    *error = reason;
    return false;
}

bool isLoopback(const sockaddr* address) {
    if (address->sa_family == AF_INET) {
        const sockaddr_in* v4 = reinterpret_cast<const sockaddr_in*>(address);
        return (ntohl(v4->sin_addr.s_addr) >> 24) == 127;
    }
    if (address->sa_family == AF_INET6) {
        const in6_addr& v6 = reinterpret_cast<const sockaddr_in6*>(address)->sin6_addr;
        if (IN6_IS_ADDR_LOOPBACK(&v6)) {
            return true;
        }
        return IN6_IS_ADDR_V4MAPPED(&v6) && v6.s6_addr[12] == 127;
    }
    return false;
}

sockaddr_un unixAddress(const std::string& path) {
    sockaddr_un address;
    std::memset(&address, 0, sizeof(address));
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.data(), path.size());
    return address;
}

// True when a server answers on the Unix socket at `path`.
bool unixSocketAnswers(const std::string& path) {
    const int probe = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (probe < 0) {
        return false;
    }
    const sockaddr_un address = unixAddress(path);
    const bool answers =
        ::connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
    ::close(probe);
    return answers;
}

uint16_t boundPort(int fd) {
    sockaddr_storage address;
    socklen_t length = sizeof(address);
    if (::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        return 0;
    }
    if (address.ss_family == AF_INET) {
        return ntohs(reinterpret_cast<const sockaddr_in*>(&address)->sin_port);
    }
    return ntohs(reinterpret_cast<const sockaddr_in6*>(&address)->sin6_port);
}

}  // namespace

PhoneServer::PhoneServer(const PhoneOptions& options, PhoneLog& log)
    : mOptions(options),
      mLog(log),
      mListenFd(-1),
      mStopRead(-1),
      mStopWrite(-1),
      mSignalFd(-1),
      mStop(false),
      mConnections(0),
      mClientFd(-1),
      mSocketDevice(0),
      mSocketInode(0) {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC | O_NONBLOCK) == 0) {
        mStopRead = fds[0];
        mStopWrite = fds[1];
    }
}

PhoneServer::~PhoneServer() {
    closeListener();
    if (mStopRead >= 0) {
        ::close(mStopRead);
    }
    if (mStopWrite >= 0) {
        ::close(mStopWrite);
    }
    if (mSignalFd >= 0) {
        ::close(mSignalFd);
    }
}

bool PhoneServer::stopOnSignals(std::initializer_list<int> signals, std::string* error) {
    if (mSignalFd >= 0) {
        return fail(error, "the stop signals are already set");
    }
    sigset_t set;
    sigemptyset(&set);
    for (const int number : signals) {
        if (sigaddset(&set, number) != 0) {
            return fail(error, "signal " + std::to_string(number) + " cannot stop the server");
        }
    }
    const int code = ::pthread_sigmask(SIG_BLOCK, &set, nullptr);
    if (code != 0) {
        return fail(error, "cannot block the stop signals: " + errorText(code));
    }
    const int fd = ::signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
    if (fd < 0) {
        return fail(error, "cannot watch the stop signals: " + errorText(errno));
    }
    mSignalFd = fd;
    return true;
}

bool PhoneServer::listen(const std::string& endpoint, bool allowRemote, std::string* error) {
    if (mStopRead < 0) {
        return fail(error, "cannot create the stop pipe");
    }
    if (mListenFd >= 0) {
        return fail(error, "already listening on " + mEndpoint.text());
    }
    Endpoint parsed;
    if (!Endpoint::parse(endpoint, &parsed, error)) {
        return false;
    }
    if (parsed.kind() == Endpoint::Kind::kUnix) {
        return listenUnix(parsed, error);
    }
    return listenTcp(parsed, allowRemote, error);
}

bool PhoneServer::listenUnix(const Endpoint& endpoint, std::string* error) {
    const std::string& path = endpoint.path();
    struct stat existing;
    if (::lstat(path.c_str(), &existing) == 0) {
        if (!S_ISSOCK(existing.st_mode)) {
            return fail(error, path + " exists and is not a socket");
        }
        if (unixSocketAnswers(path)) {
            return fail(error, path + " is in use by another server");
        }
        ::unlink(path.c_str());  // left by a server that is gone
    }
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return fail(error, "cannot create a Unix socket: " + errorText(errno));
    }
    const sockaddr_un address = unixAddress(path);
    if (::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        ::listen(fd, kBacklog) != 0) {
        const int code = errno;
        ::close(fd);
        return fail(error, "cannot listen on " + path + ": " + errorText(code));
    }
    struct stat made;
    if (::stat(path.c_str(), &made) == 0) {
        mSocketDevice = made.st_dev;
        mSocketInode = made.st_ino;
    }
    mSocketPath = path;
    mListenFd = fd;
    mEndpoint = endpoint;
    return true;
}

bool PhoneServer::listenTcp(const Endpoint& endpoint, bool allowRemote, std::string* error) {
    addrinfo hints;
    std::memset(&hints, 0, sizeof(hints));
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_PASSIVE | AI_NUMERICSERV;
    addrinfo* found = nullptr;
    const std::string port = std::to_string(endpoint.port());
    const int code = ::getaddrinfo(endpoint.host().c_str(), port.c_str(), &hints, &found);
    if (code != 0 || found == nullptr) {
        return fail(error, "cannot resolve " + endpoint.host() + ": " + ::gai_strerror(code));
    }
    const addrinfo first = *found;
    if (!allowRemote && !isLoopback(first.ai_addr)) {
        ::freeaddrinfo(found);
        return fail(error, endpoint.host() +
                               " is not a loopback address; listening there needs allow-remote "
                               "(--allow-remote)");
    }
    const int fd = ::socket(first.ai_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    const bool ok = fd >= 0 && ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) == 0 &&
                    ::bind(fd, first.ai_addr, first.ai_addrlen) == 0 && ::listen(fd, kBacklog) == 0;
    const int saved = errno;
    ::freeaddrinfo(found);
    if (!ok) {
        if (fd >= 0) {
            ::close(fd);
        }
        return fail(error, "cannot listen on " + endpoint.text() + ": " + errorText(saved));
    }
    mListenFd = fd;
    mEndpoint = endpoint.withPort(boundPort(fd));
    return true;
}

void PhoneServer::run() {
    if (mListenFd < 0) {
        return;
    }
    mLog.line("listening on " + mEndpoint.text());
    while (!stopRequested()) {
        const Wake wake = waitFor(mListenFd, POLLIN, -1);
        if (wake == Wake::kFailed) {
            mLog.line("waiting for a connection failed: " + errorText(errno));
            break;
        }
        if (wake == Wake::kStop) {
            break;
        }
        if (wake != Wake::kReady) {
            continue;
        }
        const int fd = ::accept4(mListenFd, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd >= 0) {
            serve(fd);
        } else if (errno != EINTR && errno != EAGAIN && errno != ECONNABORTED) {
            mLog.line("accepting a connection failed: " + errorText(errno));
        }
    }
    mLog.line("stopped");
    closeListener();
}

void PhoneServer::requestStop() {
    mStop.store(true);
    if (mStopWrite >= 0) {
        const char byte = 1;
        const ssize_t ignored = ::write(mStopWrite, &byte, 1);  // full pipe: already woken
        (void)ignored;
    }
}

PhoneServer::Wake PhoneServer::waitFor(int fd, short events, int timeoutMs) {
    // poll() skips an entry whose descriptor is negative.
    pollfd fds[3] = {{mStopRead, POLLIN, 0}, {mSignalFd, POLLIN, 0}, {fd, events, 0}};
    const int ready = ::poll(fds, 3, timeoutMs);
    if (ready < 0) {
        return errno == EINTR ? Wake::kInterrupted : Wake::kFailed;
    }
    if (ready == 0) {
        return Wake::kTimeout;
    }
    if (fds[1].revents != 0) {
        signalfd_siginfo taken;
        const ssize_t ignored = ::read(mSignalFd, &taken, sizeof(taken));
        (void)ignored;
        requestStop();
    }
    if (fds[0].revents != 0 || fds[1].revents != 0) {
        return Wake::kStop;
    }
    return Wake::kReady;
}

void PhoneServer::serve(int fd) {
    // Each answer goes out at once, not after the module's acknowledgement
    // of the previous one (Nagle); fails harmlessly on a Unix socket.
    const int on = 1;
    ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
    mClientFd = fd;
    mLog.line("the module connected (connection " + std::to_string(++mConnections) + ")");
    PhoneSession session(mOptions, *this, mScheduler, mLog);
    session.open();
    while (session.isOpen() && !stopRequested()) {
        const Wake wake = waitFor(fd, POLLIN, mScheduler.timeoutMs());
        if (wake == Wake::kFailed) {
            mLog.line("waiting for the module failed: " + errorText(errno));
            break;
        }
        if (wake == Wake::kStop) {
            break;
        }
        if (wake == Wake::kReady && !readFrom(fd, session)) {
            break;
        }
        mScheduler.runDue();
    }
    if (stopRequested()) {
        mLog.line("stopping: the connection is dropped");
    }
    session.close();
    mScheduler.cancelAll();
    mClientFd = -1;
    ::close(fd);
}

bool PhoneServer::readFrom(int fd, PhoneSession& session) {
    uint8_t buffer[kReadSize];
    const ssize_t got = ::recv(fd, buffer, sizeof(buffer), 0);
    if (got > 0) {
        session.receiveBytes(buffer, static_cast<size_t>(got));
        return true;
    }
    if (got < 0 && (errno == EINTR || errno == EAGAIN)) {
        return true;
    }
    if (got == 0) {
        mLog.line("the module hung up");
    } else if (errno == ECONNRESET) {
        mLog.line("the module hung up (connection reset)");
    } else {
        mLog.line("reading from the module failed: " + errorText(errno));
    }
    return false;
}

// Sends without blocking and waits for room in between, so that a stop
// ends even a send to a module that reads nothing.
bool PhoneServer::send(const Bytes& bytes) {
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t sent = ::send(mClientFd, bytes.data() + done, bytes.size() - done,
                                    MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent > 0) {
            done += static_cast<size_t>(sent);
            continue;
        }
        if (sent < 0 && errno == EINTR) {
            continue;
        }
        if (sent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            if (!waitForRoom()) {
                return false;
            }
            continue;
        }
        if (sent < 0 && errno != EPIPE && errno != ECONNRESET) {
            mLog.line("sending to the module failed: " + errorText(errno));
        }
        return false;
    }
    return true;
}

bool PhoneServer::waitForRoom() {
    Wake wake = Wake::kInterrupted;
    while (wake == Wake::kInterrupted) {
        wake = waitFor(mClientFd, POLLOUT, kSendTimeoutSeconds * 1000);
    }
    if (wake == Wake::kTimeout) {
        mLog.line("the module has read nothing for " + std::to_string(kSendTimeoutSeconds) +
                  " s; dropping the connection");
    } else if (wake == Wake::kFailed) {
        mLog.line("sending to the module failed: " + errorText(errno));
    }
    return wake == Wake::kReady;
}

void PhoneServer::hangUp() {
    if (mClientFd >= 0) {
        ::shutdown(mClientFd, SHUT_RDWR);
    }
}

void PhoneServer::closeListener() {
    if (mListenFd >= 0) {
        ::close(mListenFd);
        mListenFd = -1;
    }
    if (mSocketPath.empty()) {
        return;
    }
    struct stat current;
    if (::lstat(mSocketPath.c_str(), &current) == 0 && current.st_dev == mSocketDevice &&
        current.st_ino == mSocketInode) {
        ::unlink(mSocketPath.c_str());
    }
    mSocketPath.clear();
}

}  // namespace moxphone
