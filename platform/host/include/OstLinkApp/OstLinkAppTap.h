// A listener on the phone link's byte stream (host only): sees every byte
// that goes over a link, in both directions, as the transport writes and
// reads it. Tools record captures with it (mox lookup --capture); the link
// works the same with or without one.
//
// Install it with OstLinkAppHost::setTap() before startLink() and remove it
// (setTap(nullptr)) only once no link runs any more (after the framework's
// finalize()). The phone simulator calls the same interface from its own
// connections, so one recorder serves both ends of the link.
//
// Each link (one connection, from its opening to its end) has a number of
// its own, so that a listener that hears several links at once keeps their
// streams apart. Bytes arrive in pieces of any size: whole envelopes, parts
// of one, or several at once, in the order they go over the link in each
// direction. The bytes are valid only during the call.
//
// Thread rules: called on the link's threads (the sender's and the reader's),
// concurrently for different links and directions; the listener serialises
// what it needs and must not block or call back into the link.
#ifndef OSTLINKAPP_OSTLINKAPPTAP_H
#define OSTLINKAPP_OSTLINKAPPTAP_H

#include <cstddef>

#include "HbFramework/HbTypes.h"

class OstLinkAppTap {
public:
    enum EN_DIRECTION {
        en_DIRECTION_TO_PHONE = 0,    // the module's commands
        en_DIRECTION_FROM_PHONE = 1,  // the phone's device info, status and answers
    };

    virtual ~OstLinkAppTap() {}
    // Bytes of link `link` in `direction`.
    virtual void onLinkBytes(uint32 link, EN_DIRECTION direction, const uint8* data,
                             size_t size) = 0;
    // Link `link` has ended (either side closed it, or it broke); no more
    // bytes of it follow.
    virtual void onLinkEnd(uint32 link) = 0;
};

#endif  // OSTLINKAPP_OSTLINKAPPTAP_H
