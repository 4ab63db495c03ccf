// Byte archives for serialisable messages.
// - write() appends at the end; read() consumes from the front.
// - 16-bit values are stored big-endian.
// - A read past the end yields zeros for the missing bytes and returns false.
// One thread at a time: an archive belongs to the message that holds it.
#ifndef HB_FRAMEWORK_HBSERIALIZATION_H
#define HB_FRAMEWORK_HBSERIALIZATION_H

#include <cstddef>
#include <vector>

#include "HbFramework/HbTypes.h"

namespace HbSerialization {

class Archive {
public:
    Archive();
    ~Archive();

    bool write(uint8 value);
    bool write(uint16 value);
    bool write(const void* data, uint32 size);

    bool read(uint8& value);
    bool read(uint16& value);
    bool read(void* data, uint32 size);

    // Host only: the bytes written so far, and how many are left to read.
    const uint8* data() const { return mBytes.data(); }
    uint32 size() const { return static_cast<uint32>(mBytes.size()); }
    uint32 remaining() const { return static_cast<uint32>(mBytes.size() - mReadPos); }

private:
    std::vector<uint8> mBytes;  // everything written, oldest first
    std::size_t mReadPos;       // index of the next byte to read, <= mBytes.size()
};

class HbSerializable {
public:
    HbSerializable();
    virtual ~HbSerializable();
    virtual bool serialize() = 0;
    virtual bool unserialize(const void* data, uint32 size) = 0;

    Archive& getArchive() { return mArchive; }

protected:
    Archive mArchive;
};

}  // namespace HbSerialization

#endif  // HB_FRAMEWORK_HBSERIALIZATION_H
