// The phone link over a Unix stream socket (host only): connects to the
// phone's socket at a path ("unix:PATH"). The process at the other end must
// run as this user, unless OstLinkAppHost allows other users.
#ifndef OSTLINKAPP_OSTLINKAPPUNIXTRANSPORT_H
#define OSTLINKAPP_OSTLINKAPPUNIXTRANSPORT_H

#include <string>

#include "OstLinkAppStreamTransport.h"

class OstLinkAppUnixTransport : public OstLinkAppStreamTransport {
public:
    // `path` is the socket's path; the name in log messages is "unix:PATH".
    OstLinkAppUnixTransport(const std::string& path, PostFunc post);
    ~OstLinkAppUnixTransport() override;

protected:
    bool makeAddress(sockaddr_storage& address, socklen_t& length,
                     std::string& error) const override;
    bool checkPeer(int socket, std::string& error) const override;

private:
    const std::string mPath;
};

#endif  // OSTLINKAPP_OSTLINKAPPUNIXTRANSPORT_H
