// Reads from a built database image for the writer's tests, through the
// tools' image reader; a read outside the image fails the test and yields 0
// (or no units).
#ifndef MOX_TESTS_IMAGEREADS_H
#define MOX_TESTS_IMAGEREADS_H

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "MoxDbWriter.h"

using moxdb::Bytes;

inline uint32_t le32(const Bytes& b, size_t at) {
    Bytes bytes;
    moxdb::ImageFault fault;
    if (!moxdb::DbImageReader(b).read("u32", at, 4, &bytes, &fault)) {
        ADD_FAILURE() << fault.line();
        return 0;
    }
    return moxdb::getU32Le(bytes, 0);
}

inline uint16_t le16(const Bytes& b, size_t at) {
    Bytes bytes;
    moxdb::ImageFault fault;
    if (!moxdb::DbImageReader(b).read("u16", at, 2, &bytes, &fault)) {
        ADD_FAILURE() << fault.line();
        return 0;
    }
    return moxdb::getU16Le(bytes, 0);
}

// Table word `index` (file offset 64 + 4 * index; word 0 is the table's size).
inline uint32_t tableWord(const Bytes& b, uint32_t index) {
    return le32(b, 64 + 4 * index);
}

inline uint32_t tableWord(const Bytes& b, moxdb::Section section) {
    return tableWord(b, static_cast<uint32_t>(section));
}

// Every UTF-16 unit of the string entry at string offset `offset`.
inline std::u16string stringAt(const Bytes& b, uint32_t offset) {
    std::u16string units;
    moxdb::ImageFault fault;
    if (!moxdb::DbImageReader(b).string("string", offset, &units, &fault)) {
        ADD_FAILURE() << fault.line();
    }
    return units;
}

#endif  // MOX_TESTS_IMAGEREADS_H
