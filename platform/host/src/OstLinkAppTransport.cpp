#include "OstLinkAppTransport.h"

#include <atomic>
#include <utility>

#include "OstLinkApp/OstLinkAppEnvelope.h"

constexpr uint32 OstLinkAppTransport::MSG_DEVICE_INFO;
constexpr uint32 OstLinkAppTransport::MSG_DEVICE_STATUS;
constexpr uint32 OstLinkAppTransport::MSG_CMD_DATA;
constexpr uint8 OstLinkAppTransport::STATUS_NO_DEVICE;

namespace {

// Numbers of the links of this process, for the listener: 1, 2, ...
uint32 nextLinkNumber() {
    static std::atomic<uint32> last(0);
    return ++last;
}

}  // namespace

OstLinkAppTransport::OstLinkAppTransport(const std::string& name, PostFunc post)
    : mName(name), mPost(std::move(post)), mLinkNumber(nextLinkNumber()) {}

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

void OstLinkAppTransport::tapBytes(OstLinkAppTap::EN_DIRECTION direction, const uint8* data,
                                   size_t size) const {
    OstLinkAppTap* const tap = OstLinkAppHost::getTap();
    if (tap != nullptr && size != 0) {
        tap->onLinkBytes(mLinkNumber, direction, data, size);
    }
}

void OstLinkAppTransport::tapCommand(const uint8* frame, uint32 size) const {
    OstLinkAppTap* const tap = OstLinkAppHost::getTap();
    if (tap == nullptr) {
        return;
    }
    uint8 header[OstLinkAppEnvelope::HEADER_SIZE];
    OstLinkAppEnvelope::writeHeader(header, OstLinkAppEnvelope::en_TYPE_COMMAND, size);
    tap->onLinkBytes(mLinkNumber, OstLinkAppTap::en_DIRECTION_TO_PHONE, header, sizeof(header));
    if (size != 0) {
        tap->onLinkBytes(mLinkNumber, OstLinkAppTap::en_DIRECTION_TO_PHONE, frame, size);
    }
}

void OstLinkAppTransport::tapEnd() const {
    OstLinkAppTap* const tap = OstLinkAppHost::getTap();
    if (tap != nullptr) {
        tap->onLinkEnd(mLinkNumber);
    }
}
