// The frames a bare phone of the benchmarks received, kept so that a
// benchmark can check that the module and the bare client sent the same
// bytes. Thread-safe.
#ifndef MOX_BENCH_FRAMELOG_H
#define MOX_BENCH_FRAMELOG_H

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <vector>

#include "moxdb/DbBytes.h"

class FrameLog {
public:
    void add(const uint8_t* frame, size_t size) {
        std::lock_guard<std::mutex> lock(mMutex);
        mFrames.emplace_back(frame, frame + size);
    }
    std::vector<moxdb::Bytes> take() {
        std::lock_guard<std::mutex> lock(mMutex);
        std::vector<moxdb::Bytes> frames;
        frames.swap(mFrames);
        return frames;
    }

private:
    std::mutex mMutex;
    std::vector<moxdb::Bytes> mFrames;
};

#endif  // MOX_BENCH_FRAMELOG_H
