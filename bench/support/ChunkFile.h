// The bare client's result file: emptied when a lookup starts, then every
// chunk appended with its own open, write and close, as the head unit
// stores a phone's answer (C streams, "ab" then fclose).
#ifndef MOX_BENCH_CHUNKFILE_H
#define MOX_BENCH_CHUNKFILE_H

#include <cstddef>
#include <cstdint>
#include <string>

class ChunkFile {
public:
    explicit ChunkFile(std::string path) : mPath(std::move(path)) {}

    // Truncates the file to zero length (creating it); false on failure.
    bool clear() const;
    // Appends `size` bytes with one open-append-close; false unless all were
    // written and the file closed cleanly.
    bool append(const uint8_t* data, size_t size) const;
    const std::string& path() const { return mPath; }

private:
    const std::string mPath;
};

#endif  // MOX_BENCH_CHUNKFILE_H
