// The stream sockets of the test phones (RawPhone, ScriptedPhone) and of the
// benchmarks' bare client: listening, connecting and writing whole buffers.
// Every function can be called from any thread.
#ifndef MOX_TESTS_LINKSOCKET_H
#define MOX_TESTS_LINKSOCKET_H

#include <sys/uio.h>

#include <cstddef>
#include <cstdint>
#include <string>

class LinkSocket {
public:
    // A Unix stream socket listening at `path` (a stale file there is
    // replaced); -1 when `path` is too long or the socket cannot listen.
    static int listenUnix(const std::string& path);
    // A TCP socket listening on 127.0.0.1 (or ::1) at a port the system
    // picks, written to `port`; -1 on failure.
    static int listenTcp(bool ipv6, uint16_t* port);
    // A socket connected to the Unix socket at `path`; -1 on failure.
    static int connectUnix(const std::string& path);
    // Writes all of `data` to `fd`; false when the peer has gone.
    static bool sendAll(int fd, const uint8_t* data, size_t size);
    // Writes all of the `count` parts to `fd`, in as few writes as it can;
    // false when the peer has gone. The parts are used up.
    static bool sendAll(int fd, iovec* parts, size_t count);
};

#endif  // MOX_TESTS_LINKSOCKET_H
