#include "ChunkFile.h"

#include <cstdio>

bool ChunkFile::clear() const {
    std::FILE* file = std::fopen(mPath.c_str(), "w");
    if (file == nullptr) {
        return false;
    }
    return std::fclose(file) == 0;
}

bool ChunkFile::append(const uint8_t* data, size_t size) const {
    std::FILE* file = std::fopen(mPath.c_str(), "ab");
    if (file == nullptr) {
        return false;
    }
    const bool complete = std::fwrite(data, 1, size, file) == size;
    return std::fclose(file) == 0 && complete;
}
