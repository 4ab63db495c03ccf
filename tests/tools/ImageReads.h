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

// The `width` bytes at `at`, through the tools' reader; none (and a failed
// test) when they lie outside the image.
inline Bytes bytesAt(const Bytes& b, size_t at, size_t width) {
    Bytes bytes;
    moxdb::ImageFault fault;
    if (!moxdb::DbImageReader(b).read("value", at, width, &bytes, &fault)) {
        ADD_FAILURE() << fault.line();
    }
    return bytes;
}

inline uint32_t le32(const Bytes& b, size_t at) {
    return moxdb::getU32Le(bytesAt(b, at, 4), 0);
}

inline uint16_t le16(const Bytes& b, size_t at) {
    return moxdb::getU16Le(bytesAt(b, at, 2), 0);
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
