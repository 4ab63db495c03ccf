// One disc lookup request on its way from the caller's thread to the unit's
// worker thread (message 607). It is a serialisable framework message, so it
// can also travel as bytes:
//
// | Offset | Size | Field                                             |
// |--------|------|---------------------------------------------------|
// | 0      | 1    | lookupKind                                        |
// | 1      | 2    | lookupParam1 (in the archive's 16-bit byte order) |
// | 3      | 2    | lookupParam2                                      |
// | 5      | 2    | L = byte length of toc, low 16 bits only          |
// | 7      | L    | the first L bytes of toc, no terminator           |
//
// A toc of 65,536 bytes or more does not survive the trip: only the low 16
// bits of its length are written, so callers keep it shorter.
// One thread at a time: the object belongs to whoever holds the pointer.
#ifndef MOX_PRIVATE_MOXSEARCHINFO_H
#define MOX_PRIVATE_MOXSEARCHINFO_H

#include <string>

#include "HbFramework/HbSerialization.h"
#include "HbFramework/HbTypes.h"
#include "HbSMoxDef.h"

class MoxSearchInfo : public HbSerialization::HbSerializable {
public:
    MoxSearchInfo();
    // Takes over the caller's request field by field.
    explicit MoxSearchInfo(const HbSMoxDef::SearchInfo& info);
    ~MoxSearchInfo() override;

    // Appends the fields to the archive in the layout above; always true.
    bool serialize() override;
    // Appends `size` bytes of `data` to the archive and reads the fields back
    // from it; always true. A buffer shorter than 7 + L bytes is not detected:
    // the archive yields zero bytes for what is missing.
    bool unserialize(const void* data, uint32 size) override;

    uint8 lookupKind;
    uint16 lookupParam1;
    uint16 lookupParam2;
    std::string toc;
};

#endif  // MOX_PRIVATE_MOXSEARCHINFO_H
