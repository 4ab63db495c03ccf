// Fixed-width integer names used throughout the head-unit framework and the
// module. Every binary field of the module is declared with one of these.
#ifndef HB_FRAMEWORK_HBTYPES_H
#define HB_FRAMEWORK_HBTYPES_H

#include <cstdint>

typedef std::uint8_t uint8;
typedef std::uint16_t uint16;
typedef std::uint32_t uint32;
typedef std::uint64_t uint64;
typedef std::int8_t int8;
typedef std::int16_t int16;
typedef std::int32_t int32;
typedef std::int64_t int64;

#endif  // HB_FRAMEWORK_HBTYPES_H
