// Byte helpers of the tools: little-endian placement for the response
// database, big-endian placement for the command frames of the phone
// protocol, text conversion, and the damage operations that tests apply to a
// built image. The byte order is in each helper's name.
#ifndef MOXDB_DBBYTES_H
#define MOXDB_DBBYTES_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace moxdb {

using Bytes = std::vector<uint8_t>;

// Appends the value at the end of `out`, low byte first.
void appendU16Le(Bytes& out, uint16_t value);
void appendU32Le(Bytes& out, uint32_t value);

// Overwrites the bytes at `offset`, low byte first. Returns false (and writes
// nothing) when the value would not fit inside `out`.
bool putU16Le(Bytes& out, size_t offset, uint16_t value);
bool putU32Le(Bytes& out, size_t offset, uint32_t value);

// Reads a little-endian value at `offset`; 0 when it lies (partly) outside.
uint16_t getU16Le(const Bytes& in, size_t offset);
uint32_t getU32Le(const Bytes& in, size_t offset);

// Big-endian (most significant byte first), as in the command frames and the
// envelope lengths of the phone link. Same rules as the little-endian ones.
void appendU16Be(Bytes& out, uint16_t value);
void appendU32Be(Bytes& out, uint32_t value);
bool putU16Be(Bytes& out, size_t offset, uint16_t value);
bool putU32Be(Bytes& out, size_t offset, uint32_t value);
uint16_t getU16Be(const Bytes& in, size_t offset);
uint32_t getU32Be(const Bytes& in, size_t offset);

// UTF-8 to UTF-16 code units. Characters outside the basic plane become a
// surrogate pair; every byte that does not start a well-formed sequence
// (stray continuation, truncated or overlong sequence, encoded surrogate,
// value above U+10FFFF) becomes U+FFFD.
std::u16string utf8ToUtf16(const std::string& utf8);

// Damage for tests. Each returns false and leaves `image` unchanged when the
// offset or length lies outside the image.
bool cutTo(Bytes& image, size_t length);                          // keep the first `length` bytes
bool setByte(Bytes& image, size_t offset, uint8_t value);         // overwrite one byte
bool flipByte(Bytes& image, size_t offset, uint8_t mask = 0xFF);  // XOR one byte with `mask`

}  // namespace moxdb

#endif  // MOXDB_DBBYTES_H
