// Little-endian reads from a built database image for the writer's tests; a
// read outside the image fails the test and yields 0.
#ifndef MOX_TESTS_IMAGEREADS_H
#define MOX_TESTS_IMAGEREADS_H

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>

#include "MoxDbWriter.h"

using moxdb::Bytes;

inline uint32_t le32(const Bytes& b, size_t at) {
    EXPECT_LE(at + 4, b.size()) << "u32 at " << at << " lies outside the image";
    if (at + 4 > b.size()) {
        return 0;
    }
    return static_cast<uint32_t>(b[at]) | static_cast<uint32_t>(b[at + 1]) << 8 |
           static_cast<uint32_t>(b[at + 2]) << 16 | static_cast<uint32_t>(b[at + 3]) << 24;
}

inline uint16_t le16(const Bytes& b, size_t at) {
    EXPECT_LE(at + 2, b.size()) << "u16 at " << at << " lies outside the image";
    if (at + 2 > b.size()) {
        return 0;
    }
    return static_cast<uint16_t>(b[at] | b[at + 1] << 8);
}

#endif  // MOX_TESTS_IMAGEREADS_H
