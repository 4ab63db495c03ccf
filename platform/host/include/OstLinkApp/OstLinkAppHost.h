// Host-only settings and the in-process peer of the phone link.
//
// The endpoint is chosen before startLink(): setEndpoint(), or else the
// environment variable OST_LINKAPP_ENDPOINT, or else "loopback":
// - "loopback": the peer installed with setLoopbackPeer(), in this process;
// - "unix:/path/to.sock": a Unix stream socket;
// - "tcp:HOST:PORT": TCP; HOST is "localhost" or a numeric address ("[::1]"
//   for IPv6) and must be a loopback address (127.0.0.0/8, ::1) unless
//   setAllowRemote(true). Host names are not looked up.
// - on "unix:", the process at the other end must run as this user
//   (SO_PEERCRED) unless setAllowOtherUsers(true) or the environment variable
//   OST_LINKAPP_ALLOW_OTHER_USERS=1 allows any user: a socket that another
//   user bound first must not feed or freeze this user's lookups.
// An endpoint that cannot be used is logged and reported as the device gone.
// On a stream, the phone must greet (device info and device status) within
// GREETING_MS of the connection, and must read what the module sends: sends
// never wait, they queue at most SEND_QUEUE_LIMIT bytes, and a queue that
// overflows or does not move for SEND_STALL_MS ends the link. Both times run
// on the real clock, whatever HB_TIMER_SCALE says (a phone process needs
// real time to answer); tests may shorten them with setLinkTimes().
// On a stream every message is a 32-bit big-endian length N, then N bytes:
// one type byte (0x01 device info, 0x02 device status, 0x03 command) and its
// payload.
//
//   class Phone : public OstLinkAppPeer { ... };
//   Phone phone;
//   OstLinkAppHost::setLoopbackPeer(&phone);
//   OstLinkAppHost::setEndpoint("loopback");
//   HbSMox::GetInstance()->startLink();
//
// Every function here can be called from any thread.
#ifndef OSTLINKAPP_OSTLINKAPPHOST_H
#define OSTLINKAPP_OSTLINKAPPHOST_H

#include <cstddef>
#include <string>

#include "HbFramework/HbTypes.h"
#include "OstLinkApp/OstLinkAppTap.h"

// The module's end of a loopback link, as the peer sees it. Valid from
// OstLinkAppPeer::onOpen() until onClose() returns (in practice until the
// channel that opened it opens another link or is destroyed). Every push
// returns false when the link is already closed (nothing is delivered then);
// a push that ends the link (a bad envelope, status 0) returns true. A push
// racing with the module's close either is delivered before the close
// returns or is refused. Pushes may come from any thread, also from inside
// onOpen() and onCommand(). Status 0 (no device) ends the link after it is
// delivered, as does hangUp().
class OstLinkAppPeerLink {
public:
    virtual ~OstLinkAppPeerLink() {}
    // A device-info message: OS type (0 iOS, 1 Android), then the name.
    virtual bool pushDeviceInfo(uint8 osType, const std::string& name) = 0;
    // A device-status message (0 no device, 1 connected, 2 open, 3 closed).
    virtual bool pushDeviceStatus(uint8 status) = 0;
    // A command frame from the phone.
    virtual bool pushCommand(const uint8* frame, uint32 size) = 0;
    // Raw stream bytes, read by the same envelope reader as a socket's: a
    // message may be split over several pushes, and a bad envelope closes the
    // link as it would close a socket.
    virtual bool pushBytes(const uint8* data, size_t size) = 0;
    // The phone hangs up: the module sees the link closed.
    virtual void hangUp() = 0;
};

// A phone in the same process. Its callbacks run one at a time, in order,
// with no lock of the link held, on the module's threads (the one that
// opens, sends or closes) or, when a push ends the link, on the thread of
// that push; they must not block and must not call back into the module
// other than through OstLinkAppPeerLink.
class OstLinkAppPeer {
public:
    virtual ~OstLinkAppPeer() {}
    // The module opened the link.
    virtual void onOpen(OstLinkAppPeerLink& link) = 0;
    // One command frame that the module sends.
    virtual void onCommand(const uint8* frame, uint32 size) = 0;
    // The link is closed (by either side); `link` is no longer valid after
    // this returns.
    virtual void onClose() = 0;
};

class OstLinkAppHost {
public:
    // Largest envelope length accepted (type byte and payload), 1 MiB.
    static constexpr uint32 MAX_ENVELOPE_LENGTH = 1024u * 1024u;
    // Time for the phone's device info and device status after connecting.
    static constexpr uint32 GREETING_MS = 5000;
    // Bytes of command envelopes that may wait for a phone that reads slowly:
    // four of the largest envelopes.
    static constexpr uint32 SEND_QUEUE_LIMIT = 4u * (MAX_ENVELOPE_LENGTH + 4u);
    // Time a non-empty send queue may go without the phone reading any of it.
    static constexpr uint32 SEND_STALL_MS = 5000;

    // An empty text removes the setting.
    static void setEndpoint(const std::string& endpoint);
    // The endpoint in force: the setter's, else OST_LINKAPP_ENDPOINT, else "loopback".
    static std::string getEndpoint();
    // Whether `endpoint` names an endpoint that a link can be opened to with
    // the settings in force; false with the reason ("bad endpoint 'foo':
    // expected loopback, unix:PATH or tcp:HOST:PORT", "remote endpoint ...
    // refused: ... is not a loopback address"), and in `remoteRefused`
    // whether only the remote-host setting refuses it. Either may be null.
    static bool checkEndpoint(const std::string& endpoint, std::string* error,
                              bool* remoteRefused = nullptr);
    static void setAllowRemote(bool allow);
    static bool getAllowRemote();
    // Host only, for tests: the greeting and stall times of links opened
    // later; 0 puts the default back.
    static void setLinkTimes(uint32 greetingMs, uint32 sendStallMs);
    static uint32 getGreetingMs();
    static uint32 getSendStallMs();
    // Allows a phone on a Unix socket that runs as another user.
    static void setAllowOtherUsers(bool allow);
    // The setter's choice, or OST_LINKAPP_ALLOW_OTHER_USERS=1.
    static bool getAllowOtherUsers();
    // Not owned; must outlive every link that uses it. Null removes it (a
    // loopback link then cannot be opened).
    static void setLoopbackPeer(OstLinkAppPeer* peer);
    static OstLinkAppPeer* getLoopbackPeer();
    // Not owned; hears every link opened later, on every endpoint, until it
    // is removed (null). It must outlive every link that uses it.
    static void setTap(OstLinkAppTap* tap);
    static OstLinkAppTap* getTap();
};

#endif  // OSTLINKAPP_OSTLINKAPPHOST_H
