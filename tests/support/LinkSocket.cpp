#include "LinkSocket.h"

#include <arpa/inet.h>
#include <limits.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace {

// False when `path` does not fit.
bool unixAddress(const std::string& path, sockaddr_un* address) {
    std::memset(address, 0, sizeof(*address));
    address->sun_family = AF_UNIX;
    if (path.size() >= sizeof(address->sun_path)) {
        return false;
    }
    std::memcpy(address->sun_path, path.data(), path.size());
    return true;
}

// Closes `fd` and gives -1.
int failed(int fd) {
    if (fd >= 0) {
        ::close(fd);
    }
    return -1;
}

}  // namespace

int LinkSocket::listenUnix(const std::string& path) {
    sockaddr_un address;
    if (!unixAddress(path, &address)) {
        return -1;
    }
    ::unlink(path.c_str());
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0 || ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
        ::listen(fd, 4) != 0) {
        return failed(fd);
    }
    return fd;
}

int LinkSocket::listenTcp(bool ipv6, uint16_t* port) {
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
    const int fd = ::socket(storage.ss_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0 || ::bind(fd, reinterpret_cast<sockaddr*>(&storage), length) != 0 ||
        ::listen(fd, 4) != 0 ||
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&storage), &length) != 0) {
        return failed(fd);
    }
    *port = ipv6 ? ntohs(reinterpret_cast<sockaddr_in6*>(&storage)->sin6_port)
                 : ntohs(reinterpret_cast<sockaddr_in*>(&storage)->sin_port);
    return fd;
}

int LinkSocket::connectUnix(const std::string& path) {
    sockaddr_un address;
    if (!unixAddress(path, &address)) {
        return -1;
    }
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0 ||
        ::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        return failed(fd);
    }
    return fd;
}

bool LinkSocket::sendAll(int fd, const uint8_t* data, size_t size) {
    size_t done = 0;
    while (done < size) {
        const ssize_t sent = ::send(fd, data + done, size - done, MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) {
            continue;
        }
        if (sent <= 0) {
            return false;
        }
        done += static_cast<size_t>(sent);
    }
    return true;
}

bool LinkSocket::sendAll(int fd, iovec* parts, size_t count) {
    while (count > 0) {
        msghdr message{};
        message.msg_iov = parts;
        message.msg_iovlen = std::min<size_t>(count, IOV_MAX);
        const ssize_t sent = ::sendmsg(fd, &message, MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) {
            continue;
        }
        if (sent <= 0) {
            return false;
        }
        size_t left = static_cast<size_t>(sent);
        while (count > 0 && left >= parts->iov_len) {
            left -= parts->iov_len;
            ++parts;
            --count;
        }
        if (count > 0) {
            parts->iov_base = static_cast<uint8_t*>(parts->iov_base) + left;
            parts->iov_len -= left;
        }
    }
    return true;
}
