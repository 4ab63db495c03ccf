#include "OstLinkApp/OstLinkAppEnvelope.h"

#include <cstring>
#include <limits>

#include "HbByteOrder.h"

void OstLinkAppEnvelope::writeHeader(uint8 (&out)[HEADER_SIZE], uint8 type, size_t payloadSize) {
    const uint64 wanted = static_cast<uint64>(payloadSize) + 1u;
    const uint32 length = wanted > std::numeric_limits<uint32>::max()
                              ? std::numeric_limits<uint32>::max()
                              : static_cast<uint32>(wanted);
    HbByteOrder::putU32Be(out, length);
    out[4] = type;
}

std::vector<uint8> OstLinkAppEnvelope::encode(uint8 type, const uint8* payload, size_t size) {
    const size_t carried = (payload != nullptr) ? size : 0;
    uint8 header[HEADER_SIZE];
    writeHeader(header, type, size);
    // Sized once and filled in place (an insert after the header makes
    // g++ 12 for ARM warn about bounds it cannot see).
    std::vector<uint8> bytes(HEADER_SIZE + carried);
    std::memcpy(bytes.data(), header, HEADER_SIZE);
    if (carried != 0) {
        std::memcpy(bytes.data() + HEADER_SIZE, payload, carried);
    }
    return bytes;
}

uint32 OstLinkAppEnvelope::readLength(const uint8* bytes) {
    return HbByteOrder::getU32Be(bytes);
}
