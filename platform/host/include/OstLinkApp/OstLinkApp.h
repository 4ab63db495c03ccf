// The phone-application link as its user sees it (host edition): start and
// stop the link on top of the command channel.
// - startLink() opens the transport unless it is open; the rest follows from
//   the phone's device info and status (see OstLinkAppLinkAppComm). A link
//   that cannot be opened is logged and reported as the device gone.
// - stopLink() sends the protocol's disconnect (even when no link is open, so
//   the protocol resets its state), then closes the transport; a close by our
//   side posts nothing.
// - notifyObserverAppActivated() acknowledges a change of the application
//   state that the user has handled; the host has no application manager to
//   tell, so it is only counted.
// The user calls them on its worker thread, like the handlers; they are safe
// from any thread.
#ifndef OSTLINKAPP_OSTLINKAPP_H
#define OSTLINKAPP_OSTLINKAPP_H

#include <atomic>

#include "HbFramework/HbTypes.h"
#include "OstLinkApp/OstLinkAppLinkAppComm.h"

class OstLinkApp : public OstLinkAppLinkAppComm {
public:
    // `mode` selects the link's role on the head unit; the host accepts any.
    explicit OstLinkApp(int mode);
    ~OstLinkApp() override;

    void startLink();
    void stopLink();
    void notifyObserverAppActivated();

    // Host only: the mode given at construction.
    int getMode() const { return mMode; }
    // Host only: how many times notifyObserverAppActivated() was called.
    uint32 getAppActivatedCount() const { return mAppActivated.load(); }

private:
    const int mMode;
    std::atomic<uint32> mAppActivated;
};

#endif  // OSTLINKAPP_OSTLINKAPP_H
