// A phone that the test itself plays, byte by byte, at the far end of the
// link's socket: it listens on a Unix path or a TCP loopback port, the test
// thread accepts, writes whatever bytes it likes (envelopes or not) and reads
// what the module sends.
//
//   RawPhone phone(dir.file("phone.sock"));
//   OstLinkAppHost::setEndpoint(phone.endpoint());
//   facade->startLink();
//   ASSERT_TRUE(phone.acceptAndOpen("Test"));
//   ASSERT_EQ(phone.readFrame(), linkwire::kConnect);
//
// Relay mode, for fault tests: relay() makes it a man in the middle instead.
// A thread of its own then accepts the module's connections one after
// another, connects each to a phone's socket and copies the bytes both ways,
// and can hang up on the module after a chosen number of bytes from the
// phone, wherever that falls (inside an envelope, inside the length field...).
//
//   RawPhone proxy(dir.file("proxy.sock"));
//   proxy.relay(phoneSocketPath, 1234);  // the next connection ends after 1234 bytes
//
// Thread rules: played by hand, it is used from the test thread only; in
// relay mode only relay() and the counters are used, from any thread. Every
// wait gives up after kGuardMs (a guard for broken tests only).
#ifndef MOX_TESTS_RAWPHONE_H
#define MOX_TESTS_RAWPHONE_H

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "LinkWire.h"

class RawPhone {
public:
    typedef std::vector<unsigned char> Bytes;

    static constexpr int kGuardMs = 60000;

    // Not listening yet: see listenUnix() and listenTcp().
    RawPhone();
    // Listens on a Unix socket at `path` (replacing a stale file).
    explicit RawPhone(const std::string& path);
    ~RawPhone();
    RawPhone(const RawPhone&) = delete;
    RawPhone& operator=(const RawPhone&) = delete;

    // Listens on a Unix socket at `path` (replacing a stale file).
    bool listenUnix(const std::string& path);
    // Listens on 127.0.0.1 (or ::1) at a port the system picks.
    bool listenTcp(bool ipv6 = false);

    // "unix:PATH" or "tcp:127.0.0.1:PORT", for the link's endpoint setting.
    const std::string& endpoint() const { return mEndpoint; }
    uint16_t port() const { return mPort; }
    bool listening() const { return mListener >= 0; }

    // Takes the module's next connection (hanging up the one before).
    bool accept();
    // Whether a connection waits to be accepted now (does not wait).
    bool hasPendingConnection() const;
    // Takes the next connection and opens the application on it, as a phone
    // does: DEVICE_INFO (Android, the device `name`), then DEVICE_STATUS
    // "application open". The module answers with its connect command.
    bool acceptAndOpen(const std::string& name);
    // Hangs up on the module.
    void hangUp();
    bool send(const Bytes& bytes);
    bool sendCommand(const Bytes& frame) { return send(linkwire::command(frame)); }
    // Reads exactly `count` bytes into `out`.
    bool readExactly(size_t count, Bytes& out);
    // The next command frame of the module; empty when the module hung up.
    Bytes readFrame();
    // True when the module has closed its end (the next read gives end of
    // stream; a byte read instead makes it false).
    bool seesHangUp();
    // Reads until the module closes its end; true when it did, with every
    // byte read before in `rest`.
    bool waitForEof(Bytes* rest = nullptr);

    // Relay mode: connections accepted from now on go to the phone listening
    // at `phonePath`, and each is cut after `cutAfter` bytes of the phone's
    // stream (0: never). Starts the relay's thread on the first call.
    void relay(const std::string& phonePath, uint64_t cutAfter);
    // Bytes copied from the phone to the module on the last relayed connection.
    uint64_t bytesToModule() const { return mToModule.load(); }
    // Bytes copied either way on every relayed connection so far.
    uint64_t traffic() const { return mTraffic.load(); }
    // Connections relayed so far.
    uint64_t connections() const { return mConnections.load(); }

private:
    static bool waitReadable(int fd);
    void runRelay();
    void serveRelay(int module, const std::string& phonePath, uint64_t cutAfter);
    // Copies what `from` has to `to`, at most `limit` bytes (0: no limit);
    // false when `from` has ended or `to` failed.
    bool copy(int from, int to, uint64_t limit, uint64_t* copied);

    std::string mPath;
    std::string mEndpoint;
    uint16_t mPort = 0;
    int mListener = -1;
    int mConnection = -1;
    // Relay mode.
    int mWake = -1;  // eventfd: the destructor stops the relay's thread
    std::mutex mMutex;
    std::string mPhonePath;  // guarded by mMutex
    uint64_t mCutAfter = 0;  // guarded by mMutex
    std::atomic<uint64_t> mToModule{0};
    std::atomic<uint64_t> mTraffic{0};
    std::atomic<uint64_t> mConnections{0};
    std::thread mRelay;
};

#endif  // MOX_TESTS_RAWPHONE_H
