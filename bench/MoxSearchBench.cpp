// Cost of one album search (HbSMox::getSearchResult) on databases made by the
// writer library: N candidate albums of T tracks, every one matching the TOC
// text, so each search assembles all N albums. The module stores each case's
// database as an application's lookup makes it store an answer: one whole
// lookup through the facade, answered in this process by the scripted phone
// of the tests (tests/support/ScriptedPhone) playing that database; every search after it
// reads the stored file again. Beside each case
// (".../module"), its floor (".../floor"): the same albums from the same file
// by the simplest program, the file read whole and searched in memory with
// the same lookups, and (".../stream_floor") the same lookups made through a
// C stream with a seek and a read per record, as the module's reader must
// (bench/support/BareAlbumSearch). The last lines printed
// give each pair's medians and ratio (run with --benchmark_repetitions).
//
// Besides the time, each module case reports what one search costs the kernel, taken
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

#include <memory>

#include "BareAlbumSearch.h"
#include "BareAnswers.h"
#include "FacadeLookup.h"
#include "HbFramework/HbDbgOutput.h"
#include "HbFramework/HbFileSys.h"
#include "HbFramework/HbFileSysHost.h"
#include "HbFramework/HbSingletonFinalizer.h"
#include "HbSMox.h"
#include "MoxDbWriter.h"
#include "OstLinkApp/OstLinkAppHost.h"
#include "RatioReporter.h"
#include "ScriptedPhone.h"

namespace {

// Bytes of one chunk of the phone's answer.
const size_t kChunkSize = 4096;

// The bare phone of this process and the module linked to it, for every case.
struct Shared {
    std::vector<std::unique_ptr<BareAnswers>> answers;  // each case's; outlive the phone's use
    const BareAnswers* current = nullptr;               // what the phone answers now
    std::unique_ptr<ScriptedPhone> phone;
    std::unique_ptr<FacadeLookup> module;
};
Shared* shared = nullptr;

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

// Makes the module store the case's database with one whole lookup that the
// bare phone answers with it (the debug output silenced); the size of the
// database, or 0 (the case skipped) when the lookup does not find every album.
size_t storeDatabase(benchmark::State& state, const std::string& toc, int albums, int tracks) {
    HbDbgOutput::SetSink([](const HbDbgRecord&) {});
    const moxdb::Bytes database = moxdb::CatalogueBuilder::makeUniform(toc, albums, tracks).build();
    shared->answers.push_back(std::make_unique<BareAnswers>(database, kChunkSize));
    shared->current = shared->answers.back().get();
    std::list<HbSMoxDef::AlbumInfo> found;
    if (!shared->module->lookup(toc, &found) || found.size() != static_cast<size_t>(albums)) {
        state.SkipWithError("the lookup did not store the database");
        return 0;
    }
    return database.size();
}

void BM_GetSearchResult(benchmark::State& state, int albums, int tracks) {
    const std::string toc = moxdb::makeTocTextOfTracks(tracks);
    const size_t fileBytes = storeDatabase(state, toc, albums, tracks);
    if (fileBytes == 0) {
        return;
    }

    HbSMox* database = shared->module->facade();
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
    state.counters["file_bytes"] = static_cast<double>(fileBytes);
    state.SetItemsProcessed(state.iterations() * albums);
}

// The floors: the same albums from the same file by the simplest programs
// (bench/support/BareAlbumSearch): "floor", the file read whole and the same
// lookups made in memory; "stream_floor", the same lookups through a C
// stream with a seek and a read per record, as the module's reader must
// make them. Each is checked once against the module's result before the
// timed loop.

void BM_SearchFloor(benchmark::State& state, BareAlbumSearch::Search search, int albums,
                    int tracks) {
    const std::string toc = moxdb::makeTocTextOfTracks(tracks);
    if (storeDatabase(state, toc, albums, tracks) == 0) {
        return;
    }
    std::list<HbSMoxDef::AlbumInfo> module;
    std::list<HbSMoxDef::AlbumInfo> result;
    if (!shared->module->facade()->getSearchResult(toc, &module) ||
        !search(HbFileSysHost::getResultFilePath(), toc, &result) ||
        result.size() != static_cast<size_t>(albums) || !BareAlbumSearch::same(result, module)) {
        state.SkipWithError("the floor did not find the module's albums");
        return;
    }
    for (auto _ : state) {
        const bool ok = search(HbFileSysHost::getResultFilePath(), toc, &result);
        benchmark::DoNotOptimize(ok);
        benchmark::DoNotOptimize(result);
    }
    state.SetItemsProcessed(state.iterations() * albums);
}

// Per database: "albums:N/tracks:T/module", ".../floor" and ".../stream_floor".
void registerBenchmarks(RatioReporter& reporter) {
    const int cases[][2] = {{1, 12}, {8, 12}, {64, 12}, {64, 40}};
    for (const auto& size : cases) {
        const std::string name =
            "albums:" + std::to_string(size[0]) + "/tracks:" + std::to_string(size[1]);
        benchmark::RegisterBenchmark((name + "/module").c_str(), BM_GetSearchResult, size[0],
                                     size[1])
            ->Unit(benchmark::kMicrosecond);
        benchmark::RegisterBenchmark((name + "/floor").c_str(), BM_SearchFloor,
                                     &BareAlbumSearch::search, size[0], size[1])
            ->Unit(benchmark::kMicrosecond);
        benchmark::RegisterBenchmark((name + "/stream_floor").c_str(), BM_SearchFloor,
                                     &BareAlbumSearch::searchThroughStream, size[0], size[1])
            ->Unit(benchmark::kMicrosecond);
        reporter.addPair(name + ", getSearchResult vs the file read whole and searched in memory",
                         name + "/module", name + "/floor");
        reporter.addPair(name + ", getSearchResult vs the same lookups through the stream",
                         name + "/module", name + "/stream_floor");
    }
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    Shared state;
    shared = &state;
    HbFileSys::CreateDirectory(HbFileSysHost::getResultDirectory().c_str(), true);
    state.answers.push_back(std::make_unique<BareAnswers>(moxdb::Bytes(), kChunkSize));
    state.current = state.answers.back().get();
    state.phone = std::make_unique<ScriptedPhone>(
        [](const uint8_t* frame, size_t size, ScriptedPhone::Answer& answer) {
            shared->current->play(frame, size, answer);
        },
        linkwire::greeting("Bench"));
    OstLinkAppHost::setLoopbackPeer(state.phone.get());
    state.module = std::make_unique<FacadeLookup>();
    if (!state.module->linkTo("loopback")) {
        std::fprintf(stderr, "MoxSearchBench: the link did not come up\n");
        return 1;
    }

    RatioReporter reporter;
    registerBenchmarks(reporter);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();

    // The link goes first, then the phone it used.
    state.module->facade()->Terminate();
    state.module.reset();
    HbSingletonFinalizer::finalize();
    OstLinkAppHost::setLoopbackPeer(nullptr);
    state.phone.reset();
    shared = nullptr;
    return reporter.anyError() ? 1 : 0;
}
