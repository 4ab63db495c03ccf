// The phone link over TCP (host only): connects to the phone at a numeric
// address and port ("tcp:HOST:PORT"). Whether the address may be a remote
// one is decided before (OstLinkAppEndpoint); this class connects to what
// it is given.
#ifndef OSTLINKAPP_OSTLINKAPPTCPTRANSPORT_H
#define OSTLINKAPP_OSTLINKAPPTCPTRANSPORT_H

#include <string>

#include "HbFramework/HbTypes.h"
#include "OstLinkAppStreamTransport.h"

class OstLinkAppTcpTransport : public OstLinkAppStreamTransport {
public:
    // `family` is AF_INET or AF_INET6, `host` a numeric address of it; `name`
    // is the endpoint's text for log messages.
    OstLinkAppTcpTransport(const std::string& name, int family, const std::string& host,
                           uint16 port, PostFunc post);
    ~OstLinkAppTcpTransport() override;

protected:
    bool makeAddress(sockaddr_storage& address, socklen_t& length,
                     std::string& error) const override;

private:
    const int mFamily;
    const std::string mHost;
    const uint16 mPort;
};

#endif  // OSTLINKAPP_OSTLINKAPPTCPTRANSPORT_H
