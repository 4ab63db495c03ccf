// Records that the phone-link layer hands to its user's hooks (host edition).
#ifndef OSTLINKAPP_OSTLINKAPPLINKAPPCOMMIFDEF_H
#define OSTLINKAPP_OSTLINKAPPLINKAPPCOMMIFDEF_H

#include "HbFramework/HbTypes.h"

namespace OstLinkAppLinkAppCommIFDef {

// The device status that the phone reported (or that the link layer
// concluded): 0 no device, 1 device connected, 2 application open, 3 closed.
// The values are OstLinkAppState::EN_DEVICE_STATUS.
struct DeviceStatus {
    uint8 status;
};

}  // namespace OstLinkAppLinkAppCommIFDef

#endif  // OSTLINKAPP_OSTLINKAPPLINKAPPCOMMIFDEF_H
