// Where the simulator listens, as the phone link names its endpoints:
// "unix:PATH" or "tcp:HOST:PORT" (HOST may be a bracketed IPv6 address such
// as [::1]; PORT 0 lets the system choose).
#ifndef MOXPHONE_ENDPOINT_H
#define MOXPHONE_ENDPOINT_H

#include <cstdint>
#include <string>

namespace moxphone {

class Endpoint {
public:
    enum class Kind { kUnix, kTcp };

    // False, with a one-line reason, for anything else.
    static bool parse(const std::string& text, Endpoint* out, std::string* error);

    Kind kind() const { return mKind; }
    const std::string& path() const { return mPath; }  // kUnix
    const std::string& host() const { return mHost; }  // kTcp, without brackets
    uint16_t port() const { return mPort; }            // kTcp
    // "unix:PATH" or "tcp:HOST:PORT" (IPv6 hosts in brackets).
    std::string text() const;
    // The same endpoint on another port (once the system has chosen one).
    Endpoint withPort(uint16_t port) const;

private:
    Kind mKind = Kind::kUnix;
    std::string mPath;
    std::string mHost;
    uint16_t mPort = 0;
};

}  // namespace moxphone

#endif  // MOXPHONE_ENDPOINT_H
