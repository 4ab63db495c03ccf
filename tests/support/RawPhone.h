// A phone that the test itself plays, byte by byte, at the other end of the
// link's Unix socket: it listens, the test thread accepts, writes whatever
// bytes it likes (envelopes or not) and reads the module's frames.
//
//   RawPhone phone(dir.file("phone.sock"));
//   OstLinkAppHost::setEndpoint(phone.endpoint());
//   facade->startLink();
//   ASSERT_TRUE(phone.accept());
//   phone.send(RawPhone::envelope(2, {2}));
//   ASSERT_EQ(phone.readFrame(), connectFrame);
//
// Every wait gives up after 30 s (a guard for broken tests only). One thread.
#ifndef MOX_TESTS_RAWPHONE_H
#define MOX_TESTS_RAWPHONE_H

#include <cstdint>
#include <string>
#include <vector>

class RawPhone {
public:
    typedef std::vector<unsigned char> Bytes;

    // Listens on a Unix socket at `path` (replacing a stale file).
    explicit RawPhone(const std::string& path);
    ~RawPhone();
    RawPhone(const RawPhone&) = delete;
    RawPhone& operator=(const RawPhone&) = delete;

    // One message of the link's stream: 32-bit big-endian length, type, payload.
    static Bytes envelope(uint8_t type, const Bytes& payload);

    std::string endpoint() const { return "unix:" + mPath; }
    bool listening() const { return mListening; }

    // Takes the module's next connection (hanging up the one before).
    bool accept();
    // Takes the next connection and opens the application on it, as a phone
    // does: DEVICE_INFO (OS type 1, the device `name`), then DEVICE_STATUS
    // "application open". The module answers with its connect command.
    bool acceptAndOpen(const std::string& name);
    void hangUp();
    bool send(const Bytes& bytes);
    bool sendCommand(const Bytes& frame) { return send(envelope(3, frame)); }
    // The next command frame of the module; empty when the module hung up.
    Bytes readFrame();
    // True when the module has closed its end (a read gives end of stream).
    bool seesHangUp();

private:
    static bool waitReadable(int fd);
    bool readExactly(Bytes& out);

    std::string mPath;
    int mListener;
    int mConnection;
    bool mListening;
};

#endif  // MOX_TESTS_RAWPHONE_H
