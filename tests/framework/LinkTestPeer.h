// An in-process phone for loopback tests. Journals its callbacks
// ("open", "command [..] @thread", "close") and runs a test action in each,
// with the link, on the module's thread that calls it.
#ifndef MOX_TESTS_FRAMEWORK_LINKTESTPEER_H
#define MOX_TESTS_FRAMEWORK_LINKTESTPEER_H

#include <atomic>
#include <functional>

#include "ByteText.h"
#include "CallLog.h"
#include "OstLinkApp/OstLinkAppHost.h"
#include "ThreadName.h"

class LinkTestPeer : public OstLinkAppPeer {
public:
    void onOpen(OstLinkAppPeerLink& opened) override {
        link.store(&opened);
        log.add("open");
        if (onOpenAction) {
            onOpenAction(opened);
        }
    }
    void onCommand(const uint8* frame, uint32 size) override {
        log.add("command " + byteText(frame, size) + " @" + currentThreadName());
        if (onCommandAction) {
            onCommandAction(*link.load());
        }
    }
    void onClose() override {
        log.add("close");
        link.store(nullptr);
    }

    CallLog log;
    std::atomic<OstLinkAppPeerLink*> link{nullptr};
    std::function<void(OstLinkAppPeerLink&)> onOpenAction;
    std::function<void(OstLinkAppPeerLink&)> onCommandAction;
};

#endif  // MOX_TESTS_FRAMEWORK_LINKTESTPEER_H
