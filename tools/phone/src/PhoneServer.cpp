// Sockets, the access rules and the poll loop that serves every connection.
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

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace moxphone {

namespace {

// The kernel caps it at its own maximum (net.core.somaxconn).
constexpr int kBacklog = SOMAXCONN;
// How long accepting pauses after it failed for want of descriptors or memory.
constexpr std::chrono::seconds kAcceptPause(1);

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
    : PhoneServer(options, log, Limits()) {}

PhoneServer::PhoneServer(const PhoneOptions& options, PhoneLog& log, const Limits& limits)
    : mOptions(options),
      mLimits(limits),
      mLog(log),
      mListenFd(-1),
      mStopRead(-1),
      mStopWrite(-1),
      mSignalFd(-1),
      mStop(false),
      mConnections(0),
      mRefusals(0),
      mAnyUser(false),
      mSocketDevice(0),
      mSocketInode(0) {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC | O_NONBLOCK) == 0) {
        mStopRead = fds[0];
        mStopWrite = fds[1];
    }
}

PhoneServer::~PhoneServer() {
    mOpen.clear();
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
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
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
    const int fd = ::socket(first.ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
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

void PhoneServer::allowUid(uid_t uid) {
    mUids.insert(uid);
}

void PhoneServer::allowOtherUsers() {
    mAnyUser = true;
}

void PhoneServer::run() {
    if (mListenFd < 0) {
        return;
    }
    mLog.line("listening on " + mEndpoint.text());
    std::vector<pollfd> fds;
    while (!stopRequested()) {
        // The listener comes before the connections: a poll that reports a
        // new connection has then seen the ends of those that came before
        // it too, and they are handled first, in the order they happened.
        // poll() skips an entry whose descriptor is negative.
        const bool accepting = std::chrono::steady_clock::now() >= mAcceptPausedUntil;
        fds.assign({{mStopRead, POLLIN, 0},
                    {mSignalFd, POLLIN, 0},
                    {accepting ? mListenFd : -1, POLLIN, 0}});
        for (const std::unique_ptr<PhoneConnection>& connection : mOpen) {
            fds.push_back({connection->fd(), connection->events(), 0});
        }
        const int ready = ::poll(fds.data(), fds.size(), timeoutMs());
        if (ready < 0 && errno != EINTR) {
            mLog.line("waiting for the modules failed: " + errorText(errno));
            break;
        }
        if (fds[1].revents != 0) {
            signalfd_siginfo taken;
            const ssize_t ignored = ::read(mSignalFd, &taken, sizeof(taken));
            (void)ignored;
            requestStop();
        }
        if (fds[0].revents != 0 || fds[1].revents != 0) {
            break;
        }
        for (size_t i = 0; ready > 0 && i < mOpen.size(); ++i) {
            if (fds[3 + i].revents != 0) {
                mOpen[i]->handle(fds[3 + i].revents);
            }
        }
        for (const std::unique_ptr<PhoneConnection>& connection : mOpen) {
            connection->runDue();
        }
        removeFinished();
        if (fds[2].revents != 0) {
            acceptOne();
            removeFinished();
        }
    }
    for (const std::unique_ptr<PhoneConnection>& connection : mOpen) {
        connection->drop("stopping: the connection is dropped");
    }
    mOpen.clear();
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

// One connection per round of the loop: before the next one is taken, the
// loop has seen what the open connections did until then (a module that
// hung up has freed its place), and a crowd at the door never holds up the
// modules being served for more than one accept.
void PhoneServer::acceptOne() {
    const int fd = ::accept4(mListenFd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (fd >= 0) {
        admit(fd);
        return;
    }
    if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
        mLog.line("accepting a connection failed: " + errorText(errno) +
                  "; no new connection for a second");
        mAcceptPausedUntil = std::chrono::steady_clock::now() + kAcceptPause;
    } else if (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR && errno != ECONNABORTED) {
        mLog.line("accepting a connection failed: " + errorText(errno));
    }
}

void PhoneServer::admit(int fd) {
    std::string refusal;
    if (mEndpoint.kind() == Endpoint::Kind::kUnix && !peerAllowed(fd, &refusal)) {
        mLog.line(refusal);
        ::close(fd);
        ++mRefusals;
        return;
    }
    if (mOpen.size() >= mLimits.maxConnections) {
        mLog.line("refused a client: " + std::to_string(mOpen.size()) +
                  " connections are open, the most this phone serves at once");
        ::close(fd);
        ++mRefusals;
        return;
    }
    // Each answer goes out at once, not after the module's acknowledgement
    // of the previous one (Nagle); fails harmlessly on a Unix socket.
    const int on = 1;
    ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
    const PhoneConnection::SessionFactory makeSession =
        mMakeSession ? mMakeSession : PhoneConnection::simulator(mOptions);
    mOpen.push_back(std::make_unique<PhoneConnection>(fd, makeSession, mLimits.connection, mLog));
    mLog.line("the module connected (connection " + std::to_string(++mConnections) + ")");
    mOpen.back()->setTap(mTap, static_cast<uint32_t>(mConnections.load()));
    mOpen.back()->open();
}

bool PhoneServer::peerAllowed(int fd, std::string* refusal) const {
    ucred peer;
    socklen_t size = sizeof(peer);
    if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) {
        *refusal = "refused a client whose user cannot be told: " + errorText(errno);
        return false;
    }
    if (mAnyUser || peer.uid == ::geteuid() || mUids.count(peer.uid) != 0) {
        return true;
    }
    *refusal = "refused a client of uid " + std::to_string(peer.uid) + ": not this user's";
    return false;
}

int PhoneServer::timeoutMs() const {
    int timeout = -1;
    for (const std::unique_ptr<PhoneConnection>& connection : mOpen) {
        const int next = connection->timeoutMs();
        if (next >= 0 && (timeout < 0 || next < timeout)) {
            timeout = next;
        }
    }
    const auto now = std::chrono::steady_clock::now();
    if (now < mAcceptPausedUntil) {
        const auto pause = std::chrono::ceil<std::chrono::milliseconds>(mAcceptPausedUntil - now);
        const int untilAccepting = static_cast<int>(pause.count());
        if (timeout < 0 || untilAccepting < timeout) {
            timeout = untilAccepting;
        }
    }
    return timeout;
}

void PhoneServer::removeFinished() {
    mOpen.erase(std::remove_if(mOpen.begin(), mOpen.end(),
                               [](const std::unique_ptr<PhoneConnection>& connection) {
                                   return connection->finished();
                               }),
                mOpen.end());
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
