#include "private/MoxSearchInfo.h"

MoxSearchInfo::MoxSearchInfo() : lookupKind(0), lookupParam1(0), lookupParam2(0), toc("") {}

MoxSearchInfo::MoxSearchInfo(const HbSMoxDef::SearchInfo& info)
    : lookupKind(info.lookupKind),
      lookupParam1(info.lookupParam1),
      lookupParam2(info.lookupParam2),
      toc(info.toc) {}

MoxSearchInfo::~MoxSearchInfo() {}

bool MoxSearchInfo::serialize() {
    mArchive.write(lookupKind);
    mArchive.write(lookupParam1);
    mArchive.write(lookupParam2);
    // The length field holds 16 bits; a longer toc loses its text here.
    const uint16 length = static_cast<uint16>(toc.size() & 0xFFFFu);
    mArchive.write(length);
    for (uint32 i = 0; i < length; ++i) {
        mArchive.write(&toc[i], 1);
    }
    return true;
}

bool MoxSearchInfo::unserialize(const void* data, uint32 size) {
    mArchive.write(data, size);
    mArchive.read(lookupKind);
    mArchive.read(lookupParam1);
    mArchive.read(lookupParam2);
    uint16 length = 0;
    mArchive.read(length);
    // Byte by byte, so zero bytes inside the text come back as they were.
    toc.clear();
    for (uint32 i = 0; i < length; ++i) {
        char byte = 0;
        mArchive.read(&byte, 1);
        toc.push_back(byte);
    }
    return true;
}
