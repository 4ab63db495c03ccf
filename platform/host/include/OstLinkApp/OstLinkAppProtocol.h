// The command protocol spoken with the phone application, as the link layer
// sees it (host edition). The module's protocol class implements it; the link
// layer calls it:
// - analysisProtocolCmd() with every command frame the phone sends, on the
//   thread that handles the link's command data (the module's worker);
// - sendCmdConnect() when the phone application has opened, and
//   sendCmdDisconnect() when the link is being stopped, on that same thread.
// The frames to send leave through the implementation's own channel.
//
// Every frame from the phone starts with an 8-byte header, big-endian:
//   offset 0: command ID (16 bits)   offset 2: status (16 bits, 0 normal)
//   offset 4: chunk index (16 bits)  offset 6: chunk count (16 bits)
// getBasicResponse() reads it.
#ifndef OSTLINKAPP_OSTLINKAPPPROTOCOL_H
#define OSTLINKAPP_OSTLINKAPPPROTOCOL_H

#include "HbFramework/HbTypes.h"

class OstLinkAppProtocol {
public:
    // The header fields of one received frame.
    struct BasicResponseData {
        uint16 commandId;  // the received command
        uint32 status;     // 0 normal, otherwise the phone's failure code
        uint32 index;      // this chunk of a multi-frame answer, from 0
        uint32 count;      // number of chunks of the answer
    };

    virtual ~OstLinkAppProtocol() {}
    // One frame received from the phone; `frame` holds exactly `size` bytes.
    virtual void analysisProtocolCmd(unsigned char* frame, unsigned int size) = 0;
    virtual void sendCmdConnect() = 0;
    virtual void sendCmdDisconnect() = 0;
    virtual void sendCmdNotifyRunningState(unsigned int state) = 0;
    // True when `frame` is a log command of the phone (the link layer then
    // handles it itself).
    virtual bool isLogvCmd(unsigned char* frame, unsigned int size) = 0;

    // Fills `data` from the header of `frame`, which holds `size` bytes. A
    // field the frame does not hold completely is 0; nothing past `size` is
    // read. False (and `data` zeroed, when given) for a null frame or null
    // `data` or fewer than 2 bytes. Can be called on any thread.
    static bool getBasicResponse(const unsigned char* frame, unsigned int size,
                                 BasicResponseData* data);
};

#endif  // OSTLINKAPP_OSTLINKAPPPROTOCOL_H
