#include "OstLinkApp/OstLinkAppProtocol.h"

#include "HbByteOrder.h"

namespace {

// Header of a received frame: four 16-bit big-endian fields.
const unsigned int kCommandIdOffset = 0;
const unsigned int kStatusOffset = 2;
const unsigned int kIndexOffset = 4;
const unsigned int kCountOffset = 6;

// The 16-bit big-endian field at `offset`, or 0 when the frame ends before it does.
uint16 readU16BeOrZero(const unsigned char* frame, unsigned int size, unsigned int offset) {
    if (size < offset + 2) {
        return 0;
    }
    return HbByteOrder::getU16Be(frame + offset);
}

}  // namespace

bool OstLinkAppProtocol::getBasicResponse(const unsigned char* frame, unsigned int size,
                                          BasicResponseData* data) {
    if (data == nullptr) {
        return false;
    }
    data->commandId = 0;
    data->status = 0;
    data->index = 0;
    data->count = 0;
    if (frame == nullptr || size < 2) {
        return false;
    }
    data->commandId = readU16BeOrZero(frame, size, kCommandIdOffset);
    data->status = readU16BeOrZero(frame, size, kStatusOffset);
    data->index = readU16BeOrZero(frame, size, kIndexOffset);
    data->count = readU16BeOrZero(frame, size, kCountOffset);
    return true;
}
