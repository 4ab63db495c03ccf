// A phone on the far side of a real socket, for link tests: listens on a Unix
// path or on a TCP loopback port, accepts the link's one connection, sends
// bytes and reads what the link sends. Every wait gives up after a generous
// guard time (and then reports failure), so a broken test fails instead of
// hanging. Used from the test thread only.
#ifndef MOX_TESTS_FRAMEWORK_LINKTESTSERVER_H
#define MOX_TESTS_FRAMEWORK_LINKTESTSERVER_H

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

class LinkTestServer {
public:
    static constexpr int kGuardMs = 60000;

    LinkTestServer() = default;
    ~LinkTestServer() {
        closeClient();
        if (mListener >= 0) {
            ::close(mListener);
        }
        if (!mPath.empty()) {
            ::unlink(mPath.c_str());
        }
    }
    LinkTestServer(const LinkTestServer&) = delete;
    LinkTestServer& operator=(const LinkTestServer&) = delete;

    bool listenUnix(const std::string& path) {
        sockaddr_un address;
        std::memset(&address, 0, sizeof(address));
        address.sun_family = AF_UNIX;
        if (path.size() >= sizeof(address.sun_path)) {
            return false;
        }
        std::memcpy(address.sun_path, path.data(), path.size());
        ::unlink(path.c_str());
        mListener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (mListener < 0 ||
            ::bind(mListener, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
            ::listen(mListener, 4) != 0) {
            return false;
        }
        mPath = path;
        mEndpoint = "unix:" + path;
        return true;
    }

    // Listens on 127.0.0.1 (or ::1) at a port the system picks.
    bool listenTcp(bool ipv6 = false) {
        sockaddr_storage storage;
        std::memset(&storage, 0, sizeof(storage));
        socklen_t length = 0;
        if (ipv6) {
            sockaddr_in6* v6 = reinterpret_cast<sockaddr_in6*>(&storage);
            v6->sin6_family = AF_INET6;
            v6->sin6_addr = in6addr_loopback;
            length = sizeof(sockaddr_in6);
        } else {
            sockaddr_in* v4 = reinterpret_cast<sockaddr_in*>(&storage);
            v4->sin_family = AF_INET;
            v4->sin_addr.s_addr = htonl(INADDR_LOOPBACK);
            length = sizeof(sockaddr_in);
        }
        mListener = ::socket(storage.ss_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (mListener < 0 ||
            ::bind(mListener, reinterpret_cast<sockaddr*>(&storage), length) != 0 ||
            ::listen(mListener, 4) != 0 ||
            ::getsockname(mListener, reinterpret_cast<sockaddr*>(&storage), &length) != 0) {
            return false;
        }
        const uint16_t port = ipv6 ? ntohs(reinterpret_cast<sockaddr_in6*>(&storage)->sin6_port)
                                   : ntohs(reinterpret_cast<sockaddr_in*>(&storage)->sin_port);
        mPort = port;
        mEndpoint = (ipv6 ? "tcp:[::1]:" : "tcp:127.0.0.1:") + std::to_string(port);
        return true;
    }

    const std::string& endpoint() const { return mEndpoint; }
    uint16_t port() const { return mPort; }

    // Waits for the link to connect.
    bool accept() {
        if (!waitReadable(mListener)) {
            return false;
        }
        mClient = ::accept4(mListener, nullptr, nullptr, SOCK_CLOEXEC);
        return mClient >= 0;
    }

    // Whether a connection waits to be accepted now (does not wait).
    bool hasPendingConnection() const {
        pollfd entry{mListener, POLLIN, 0};
        return ::poll(&entry, 1, 0) > 0;
    }

    bool sendBytes(const std::vector<uint8_t>& bytes) {
        size_t done = 0;
        while (done < bytes.size()) {
            const ssize_t sent =
                ::send(mClient, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
            if (sent <= 0) {
                return false;
            }
            done += static_cast<size_t>(sent);
        }
        return true;
    }

    // Reads exactly `count` bytes.
    bool readExactly(size_t count, std::vector<uint8_t>& out) {
        out.clear();
        while (out.size() < count) {
            uint8_t buffer[4096];
            if (!waitReadable(mClient)) {
                return false;
            }
            const size_t want = std::min(sizeof(buffer), count - out.size());
            const ssize_t got = ::recv(mClient, buffer, want, 0);
            if (got <= 0) {
                return false;
            }
            out.insert(out.end(), buffer, buffer + got);
        }
        return true;
    }

    // Reads until the link closes its end; true when it did, with every byte
    // read before in `rest`.
    bool waitForEof(std::vector<uint8_t>* rest = nullptr) {
        for (;;) {
            uint8_t buffer[4096];
            if (!waitReadable(mClient)) {
                return false;
            }
            const ssize_t got = ::recv(mClient, buffer, sizeof(buffer), 0);
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

    // Hangs up on the link.
    void closeClient() {
        if (mClient >= 0) {
            ::close(mClient);
            mClient = -1;
        }
    }

private:
    static bool waitReadable(int fd) {
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

    int mListener = -1;
    int mClient = -1;
    std::string mPath;
    std::string mEndpoint;
    uint16_t mPort = 0;
};

#endif  // MOX_TESTS_FRAMEWORK_LINKTESTSERVER_H
