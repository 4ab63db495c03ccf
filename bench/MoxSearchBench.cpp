// Cost of one album search (MoxDapDatabase::getSearchResult) on databases made
// by the writer library: N candidate albums of T tracks, every one matching
// the TOC text, so each search assembles all N albums.
//
// Besides the time, each case reports what one search costs the kernel, taken
// from /proc/self/io around one extra search before the timed loop (less
// what reading /proc/self/io itself costs):
//   read_calls  read system calls of the process during that search
//   read_bytes  bytes those calls returned
//   file_bytes  size of the stored database
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <list>
#include <string>
#include <vector>

#include "HbFramework/HbDbgOutput.h"
#include "HbFramework/HbFileSys.h"
#include "MoxDbWriter.h"
#include "private/MoxDapDatabase.h"
#include "private/MoxResultFile.h"

namespace {

// Read counters of this process ("syscr" and "rchar" of /proc/self/io); both
// 0 when the file cannot be read.
struct ReadCounters {
    uint64_t calls = 0;
    uint64_t bytes = 0;
};

ReadCounters readCounters() {
    ReadCounters counters;
    std::ifstream in("/proc/self/io");
    std::string key;
    uint64_t value = 0;
    while (in >> key >> value) {
        if (key == "syscr:") {
            counters.calls = value;
        } else if (key == "rchar:") {
            counters.bytes = value;
        }
    }
    return counters;
}

void BM_GetSearchResult(benchmark::State& state) {
    const int albums = static_cast<int>(state.range(0));
    const int tracks = static_cast<int>(state.range(1));
    const std::string toc = moxdb::makeTocTextOfTracks(tracks);
    const moxdb::CatalogueBuilder cat = moxdb::CatalogueBuilder::makeUniform(toc, albums, tracks);
    HbFileSys::CreateDirectory(MoxResultFile::DIRECTORY.c_str(), true);
    std::string error;
    if (!cat.writeFile(MoxResultFile::FULL_PATH, &error)) {
        state.SkipWithError(error.c_str());
        return;
    }
    HbDbgOutput::SetSink([](const HbDbgRecord&) {});

    MoxDapDatabase* database = MoxDapDatabase::GetInstance();
    std::list<HbSMoxDef::AlbumInfo> result;

    // Reading the counters costs reads of its own: measure that once.
    const ReadCounters probe0 = readCounters();
    const ReadCounters probe1 = readCounters();
    const ReadCounters before = readCounters();
    const bool found = database->getSearchResult(toc, &result);
    const ReadCounters after = readCounters();
    if (!found || result.size() != static_cast<size_t>(albums)) {
        state.SkipWithError("the search did not find every album");
        return;
    }

    for (auto _ : state) {
        const bool ok = database->getSearchResult(toc, &result);
        benchmark::DoNotOptimize(ok);
        benchmark::DoNotOptimize(result);
    }
    const uint64_t probeCalls = probe1.calls - probe0.calls;
    const uint64_t probeBytes = probe1.bytes - probe0.bytes;
    state.counters["read_calls"] = static_cast<double>(after.calls - before.calls - probeCalls);
    state.counters["read_bytes"] = static_cast<double>(after.bytes - before.bytes - probeBytes);
    state.counters["file_bytes"] = static_cast<double>(cat.build().size());
    state.SetItemsProcessed(state.iterations() * albums);
}

BENCHMARK(BM_GetSearchResult)
    ->ArgNames({"albums", "tracks"})
    ->Args({1, 12})
    ->Args({8, 12})
    ->Args({64, 12})
    ->Args({64, 40})
    ->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
