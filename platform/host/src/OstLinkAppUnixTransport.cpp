#include "OstLinkAppUnixTransport.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>

#include "OstLinkApp/OstLinkAppHost.h"

OstLinkAppUnixTransport::OstLinkAppUnixTransport(const std::string& path, PostFunc post)
    : OstLinkAppStreamTransport("unix:" + path, std::move(post)), mPath(path) {}

OstLinkAppUnixTransport::~OstLinkAppUnixTransport() {
    close();
}

bool OstLinkAppUnixTransport::makeAddress(sockaddr_storage& address, socklen_t& length,
                                          std::string& error) const {
    sockaddr_un unixAddress;
    std::memset(&unixAddress, 0, sizeof(unixAddress));
    if (mPath.empty() || mPath.size() >= sizeof(unixAddress.sun_path)) {
        error = "socket path must have 1 to " + std::to_string(sizeof(unixAddress.sun_path) - 1) +
                " bytes";
        return false;
    }
    unixAddress.sun_family = AF_UNIX;
    std::memcpy(unixAddress.sun_path, mPath.data(), mPath.size());
    std::memset(&address, 0, sizeof(address));
    std::memcpy(&address, &unixAddress, sizeof(unixAddress));
    length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + mPath.size() + 1);
    return true;
}

bool OstLinkAppUnixTransport::checkPeer(int socket, std::string& error) const {
    struct ucred peer;
    socklen_t length = sizeof(peer);
    if (::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &length) != 0) {
        error = std::string("its credentials cannot be read: ") + std::strerror(errno);
        return false;
    }
    if (peer.uid == ::geteuid() || OstLinkAppHost::getAllowOtherUsers()) {
        return true;
    }
    error = "it runs as uid " + std::to_string(peer.uid) + ", not as this user (uid " +
            std::to_string(::geteuid()) + ")";
    return false;
}
