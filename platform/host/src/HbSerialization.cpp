#include "HbFramework/HbSerialization.h"

#include <cstring>

#include "HbByteOrder.h"

namespace HbSerialization {

Archive::Archive() : mBytes(), mReadPos(0) {}

Archive::~Archive() {}

bool Archive::write(uint8 value) {
    mBytes.push_back(value);
    return true;
}

// 16-bit values travel most significant byte first.
bool Archive::write(uint16 value) {
    mBytes.push_back(static_cast<uint8>(value >> 8));
    mBytes.push_back(static_cast<uint8>(value & 0xFF));
    return true;
}

bool Archive::write(const void* data, uint32 size) {
    if (size == 0) {
        return true;
    }
    if (data == nullptr) {
        return false;
    }
    const uint8* bytes = static_cast<const uint8*>(data);
    mBytes.insert(mBytes.end(), bytes, bytes + size);
    return true;
}

bool Archive::read(uint8& value) {
    return read(&value, 1);
}

bool Archive::read(uint16& value) {
    uint8 bytes[2];
    bool ok = read(bytes, 2);
    value = HbByteOrder::getU16Be(bytes);
    return ok;
}

// Copies what is left, zero-fills the rest; false when the archive ran out.
bool Archive::read(void* data, uint32 size) {
    if (size == 0) {
        return true;
    }
    if (data == nullptr) {
        return false;
    }
    uint8* out = static_cast<uint8*>(data);
    size_t available = mBytes.size() - mReadPos;
    size_t take = size < available ? size : available;
    if (take > 0) {
        std::memcpy(out, mBytes.data() + mReadPos, take);
        mReadPos += take;
    }
    if (take < size) {
        std::memset(out + take, 0, size - take);
        return false;
    }
    return true;
}

HbSerializable::HbSerializable() : mArchive() {}

HbSerializable::~HbSerializable() {}

}  // namespace HbSerialization
