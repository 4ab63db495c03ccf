#include "OstLinkAppTransport.h"

#include <utility>

#include "OstLinkApp/OstLinkAppEnvelope.h"

constexpr uint32 OstLinkAppTransport::MSG_DEVICE_INFO;
constexpr uint32 OstLinkAppTransport::MSG_DEVICE_STATUS;
constexpr uint32 OstLinkAppTransport::MSG_CMD_DATA;
constexpr uint8 OstLinkAppTransport::STATUS_NO_DEVICE;

OstLinkAppTransport::OstLinkAppTransport(const std::string& name, PostFunc post)
    : mName(name), mPost(std::move(post)) {}

OstLinkAppTransport::~OstLinkAppTransport() {}

void OstLinkAppTransport::postMessage(uint8 type, const uint8* payload, uint32 size) const {
    uint32 id = MSG_CMD_DATA;
    if (type == OstLinkAppEnvelope::en_TYPE_DEVICE_INFO) {
        id = MSG_DEVICE_INFO;
    } else if (type == OstLinkAppEnvelope::en_TYPE_DEVICE_STATUS) {
        id = MSG_DEVICE_STATUS;
    }
    if (mPost) {
        mPost(id, payload, size);
    }
}

void OstLinkAppTransport::postLinkLost() const {
    const uint8 status = STATUS_NO_DEVICE;
    if (mPost) {
        mPost(MSG_DEVICE_STATUS, &status, 1);
    }
}

bool OstLinkAppTransport::isNoDevice(uint8 type, const uint8* payload, uint32 size) {
    return type == OstLinkAppEnvelope::en_TYPE_DEVICE_STATUS && size == 1 &&
           payload[0] == STATUS_NO_DEVICE;
}
