// Envelope encoding.
#include "moxphone/Envelope.h"

namespace moxphone {

Bytes Envelope::encode(uint8_t type, const Bytes& payload) {
    Bytes out;
    out.reserve(kLengthSize + 1 + payload.size());
    moxdb::appendU32Be(out, static_cast<uint32_t>(1 + payload.size()));
    out.push_back(type);
    out.insert(out.end(), payload.begin(), payload.end());
    return out;
}

Bytes Envelope::deviceInfo(uint8_t osType, const std::string& name) {
    Bytes payload;
    payload.push_back(osType);
    payload.insert(payload.end(), name.begin(), name.end());
    return encode(kDeviceInfo, payload);
}

Bytes Envelope::deviceStatus(uint8_t status) {
    return encode(kDeviceStatus, Bytes{status});
}

Bytes Envelope::command(const Bytes& frame) {
    return encode(kCommand, frame);
}

bool Envelope::isKnownType(uint8_t type) {
    return type == kDeviceInfo || type == kDeviceStatus || type == kCommand;
}

}  // namespace moxphone
