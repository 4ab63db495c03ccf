// One connection of the phone link to a phone (host only): loopback, Unix
// socket or TCP. The channel (OstLinkAppLinkAppComm) owns one at a time.
//
// What the phone sends is posted through the post function, never handled
// here: 600 (OS type byte, then the name), 601 (one status byte), 602 (one
// command frame). When the link ends by itself (the phone hangs up, a
// protocol error, a failed connection, the phone's "no device" status) the
// transport logs why and posts 601 with status 0, exactly once, as its last
// post. A close by our side (close()) posts nothing.
//
// Thread rules: open() and close() on any thread but the transport's own;
// send() on any thread; the post function is called on the transport's
// reader thread (or, for loopback, on the thread of the phone's push).
// After close() returns the transport posts nothing more.
#ifndef OSTLINKAPP_OSTLINKAPPTRANSPORT_H
#define OSTLINKAPP_OSTLINKAPPTRANSPORT_H

#include <functional>
#include <string>

#include "HbFramework/HbTypes.h"
#include "OstLinkApp/OstLinkAppTap.h"

class OstLinkAppTransport {
public:
    // Posts one message (id, bytes, size) to the channel's user; the bytes
    // are valid only during the call.
    typedef std::function<void(uint32 id, const void* data, uint32 size)> PostFunc;

    // Message ids posted (the channel's handlers).
    static constexpr uint32 MSG_DEVICE_INFO = 600;
    static constexpr uint32 MSG_DEVICE_STATUS = 601;
    static constexpr uint32 MSG_CMD_DATA = 602;
    // The status that reports the device gone.
    static constexpr uint8 STATUS_NO_DEVICE = 0;

    OstLinkAppTransport(const std::string& name, PostFunc post);
    virtual ~OstLinkAppTransport();
    OstLinkAppTransport(const OstLinkAppTransport&) = delete;
    OstLinkAppTransport& operator=(const OstLinkAppTransport&) = delete;

    // Starts the link. False, after a logged reason, when it cannot start at
    // all (nothing is posted then); a connection that fails later is
    // reported like a lost link.
    virtual bool open() = 0;
    // Ends the link from our side and waits for the transport's thread.
    // True when the link was still alive, i.e. nobody has reported its end
    // (the caller may then report it); false when it had ended by itself or
    // was closed before. Calling it again does nothing.
    virtual bool close() = 0;
    // Opened, and neither closed nor ended by itself.
    virtual bool isOpen() const = 0;
    // Sends one command frame. False, after a logged reason, when the link
    // is not open or the frame cannot be sent.
    virtual bool send(const uint8* frame, uint32 size) = 0;

    // The endpoint's text, for log messages.
    const std::string& getName() const { return mName; }

protected:
    // Posts one message from the phone: 600, 601 or 602 by its envelope type.
    void postMessage(uint8 type, const uint8* payload, uint32 size) const;
    // Posts 601 with status 0: the link has ended.
    void postLinkLost() const;
    // Whether a message ends the link: the phone's own "no device" status.
    static bool isNoDevice(uint8 type, const uint8* payload, uint32 size);
    // Hands bytes of the stream to the link's listener (OstLinkAppHost::setTap),
    // if one is installed; the envelope of a command frame with tapCommand.
    void tapBytes(OstLinkAppTap::EN_DIRECTION direction, const uint8* data, size_t size) const;
    void tapCommand(const uint8* frame, uint32 size) const;
    // Tells the listener that this link has ended.
    void tapEnd() const;

private:
    const std::string mName;
    const PostFunc mPost;
    const uint32 mLinkNumber;  // this link's number for the listener
};

#endif  // OSTLINKAPP_OSTLINKAPPTRANSPORT_H
