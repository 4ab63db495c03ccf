// One endpoint of the phone link, read from its text (host only):
// "loopback", "unix:PATH" or "tcp:HOST:PORT". HOST is "localhost", a numeric
// IPv4 address or a numeric IPv6 address (in brackets when followed by the
// port, "[::1]:7000"); names are not looked up, so opening a link never waits
// for a name service. A TCP host outside the loopback range (127.0.0.0/8,
// ::1, ::ffff:127.0.0.0/104) is refused unless remote hosts are allowed.
// Plain value; any thread.
#ifndef OSTLINKAPP_OSTLINKAPPENDPOINT_H
#define OSTLINKAPP_OSTLINKAPPENDPOINT_H

#include <string>

#include "HbFramework/HbTypes.h"

class OstLinkAppEndpoint {
public:
    enum EN_KIND {
        en_KIND_LOOPBACK = 0,
        en_KIND_UNIX = 1,
        en_KIND_TCP = 2,
    };

    OstLinkAppEndpoint();

    // Reads `text`. False, with the reason in `error` ("bad endpoint ..." or
    // "remote endpoint ... refused: ... is not a loopback address"), when it names no endpoint or a
    // remote host while `allowRemote` is false.
    static bool parse(const std::string& text, bool allowRemote, OstLinkAppEndpoint& out,
                      std::string& error);

    EN_KIND getKind() const { return mKind; }
    // The text it was read from.
    const std::string& getText() const { return mText; }
    // unix: the socket's path.
    const std::string& getPath() const { return mPath; }
    // tcp: the numeric address ("localhost" reads as 127.0.0.1), its family
    // (AF_INET or AF_INET6) and the port.
    const std::string& getHost() const { return mHost; }
    int getFamily() const { return mFamily; }
    uint16 getPort() const { return mPort; }

private:
    static bool parseUnix(const std::string& rest, OstLinkAppEndpoint& out, std::string& error);
    static bool parseTcp(const std::string& rest, bool allowRemote, OstLinkAppEndpoint& out,
                         std::string& error);
    static bool parsePort(const std::string& text, uint16& port);
    static bool isLoopbackAddress(int family, const std::string& host);

    EN_KIND mKind;
    std::string mText;
    std::string mPath;
    std::string mHost;
    int mFamily;
    uint16 mPort;
};

#endif  // OSTLINKAPP_OSTLINKAPPENDPOINT_H
