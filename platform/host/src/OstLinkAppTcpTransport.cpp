#include "OstLinkAppTcpTransport.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <cstring>

OstLinkAppTcpTransport::OstLinkAppTcpTransport(const std::string& name, int family,
                                               const std::string& host, uint16 port, PostFunc post)
    : OstLinkAppStreamTransport(name, std::move(post)), mFamily(family), mHost(host), mPort(port) {}

OstLinkAppTcpTransport::~OstLinkAppTcpTransport() {
    close();
}

bool OstLinkAppTcpTransport::makeAddress(sockaddr_storage& address, socklen_t& length,
                                         std::string& error) const {
    std::memset(&address, 0, sizeof(address));
    if (mFamily == AF_INET) {
        sockaddr_in v4;
        std::memset(&v4, 0, sizeof(v4));
        v4.sin_family = AF_INET;
        v4.sin_port = htons(mPort);
        if (inet_pton(AF_INET, mHost.c_str(), &v4.sin_addr) == 1) {
            std::memcpy(&address, &v4, sizeof(v4));
            length = sizeof(v4);
            return true;
        }
    } else if (mFamily == AF_INET6) {
        sockaddr_in6 v6;
        std::memset(&v6, 0, sizeof(v6));
        v6.sin6_family = AF_INET6;
        v6.sin6_port = htons(mPort);
        if (inet_pton(AF_INET6, mHost.c_str(), &v6.sin6_addr) == 1) {
            std::memcpy(&address, &v6, sizeof(v6));
            length = sizeof(v6);
            return true;
        }
    }
    error = "'" + mHost + "' is not a numeric address";
    return false;
}
