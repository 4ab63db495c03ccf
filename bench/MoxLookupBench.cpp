// Cost of whole lookups through the module, each beside its floor: the same
// exchange made by a bare client with nothing of the module.
//
// lookup_64KiB/...: one lookup as an application makes it, from
//   HbSMox::search() to notification 2 with result state 0, then
//   getSearchResult(): a 64 KiB response database in 16 chunks of 4 KiB.
//   The floor (".../floor") exchanges the same frames with the same phone
//   over the same kind of link (request, the two answers, the get request,
//   the chunks; both sides' bytes are compared once per run) and stores the
//   chunks with the same file operations (the file emptied, then one
//   open-append-close per chunk), on one thread, with no queue, timer or
//   notification, and no search of the stored database.
//   ".../floor_handed_off" is that floor with each lookup handed to a second
//   thread while the caller sleeps: the two hand-offs of the module's design
//   (search() posts to the worker, the outcome wakes the application) and
//   nothing else of the module. ".../floor_with_search" is the floor of the
//   whole lookup's work: the bare exchange, then the albums got from the
//   stored file by the floor of the search (bench/support/BareAlbumSearch:
//   the file read whole, the same lookups made in memory), beside
//   "getSearchResult_floor", that search alone. ".../floor_required" is the
//   floor of what the module's design requires: the hand-offs of
//   ".../floor_handed_off", then the same lookups made through a C stream
//   with a seek and a read per record, as the module's reader must make them
//   (beside "getSearchResult_stream_floor", that search alone).
// reception_4MiB/...: 4 MiB of response database in 4 KiB chunks, received
//   and stored, as four consecutive lookups of a 1 MiB database (256 chunks
//   each): the module refuses a single answer over 1 MiB (MoxLimits), so 4
//   MiB can only arrive this way. Timed from search() to result state 0, no
//   search of the database. Floors: the same chunks written to a file with
//   the same emptying and open-append-close per chunk and nothing else
//   ("file_floor"), and the whole bare exchange as above ("bare_exchange").
//
// Links: "unix" is a Unix stream socket to a phone thread in this process;
// "in-process" is the link's loopback endpoint, whose phone answers from
// inside the call that sends to it. The phone (tests/support/ScriptedPhone
// playing bench/support/BareAnswers) answers from frames built in advance,
// the same for the module and the floor.
//
// Wall time (the lookups wait on other threads) and the CPU time of the whole
// process. For medians and ratios run with repetitions, for example:
//   MoxLookupBench --benchmark_repetitions=10 --benchmark_report_aggregates_only=true
//                  --benchmark_enable_random_interleaving=true
// The last lines printed give each median, its floor's, and their ratio.
#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <functional>
#include <iterator>
#include <list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "BareAlbumSearch.h"
#include "BareAnswers.h"
#include "BareLookupClient.h"
#include "BareLoopbackClient.h"
#include "BareSocketClient.h"
#include "FacadeLookup.h"
#include "HandOffThread.h"
#include "HbFramework/HbFileSys.h"
#include "HbFramework/HbFileSysHost.h"
#include "HbFramework/HbSingletonFinalizer.h"
#include "LinkWire.h"
#include "MoxDbWriter.h"
#include "OstLinkApp/OstLinkAppHost.h"
#include "RatioReporter.h"
#include "ScriptedPhone.h"

namespace {

const size_t kChunkSize = 4096;
const size_t kSmallDatabase = 64u * 1024u;
const size_t kLargeDatabase = 1024u * 1024u;  // the largest answer the module stores
const int kLargeLookups = 4;                  // 4 x 1 MiB = 4 MiB
const int kAlbums = 4;
const int kTracks = 12;
// What the phones say when the link comes up.
const std::vector<linkwire::Message> kGreeting = linkwire::greeting("Bench");

// What the benchmarks share; made in main() before any benchmark runs.
struct Shared {
    std::string toc;
    std::string socketDirectory;
    std::unique_ptr<BareAnswers> small;
    std::unique_ptr<BareAnswers> large;
    std::atomic<const BareAnswers*> answers{nullptr};  // what the module's phones say
    std::unique_ptr<ScriptedPhone> socketPhone;
    std::unique_ptr<ScriptedPhone> loopbackPhone;
    std::unique_ptr<FacadeLookup> module;
};
Shared* shared = nullptr;

moxdb::Bytes paddedDatabase(const std::string& toc, size_t padding) {
    moxdb::CatalogueBuilder cat = moxdb::CatalogueBuilder::makeUniform(toc, kAlbums, kTracks);
    cat.text(std::string(padding, 'x'));
    return cat.build();
}

// A valid database of kAlbums albums of kTracks tracks that all match the
// TOC, brought to exactly `size` bytes by one long text in the string area;
// empty when that size cannot be reached.
moxdb::Bytes databaseOfSize(const std::string& toc, size_t size) {
    const size_t a = 1000;
    const size_t b = 2000;
    const size_t sizeA = paddedDatabase(toc, a).size();
    const size_t perChar = (paddedDatabase(toc, b).size() - sizeA) / (b - a);
    if (perChar == 0 || size < sizeA) {
        return moxdb::Bytes();
    }
    const size_t guess = a + (size - sizeA) / perChar;
    for (size_t padding = guess > 4 ? guess - 4 : 0; padding <= guess + 4; ++padding) {
        moxdb::Bytes image = paddedDatabase(toc, padding);
        if (image.size() == size) {
            return image;
        }
    }
    return moxdb::Bytes();
}

moxdb::Bytes fileBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return moxdb::Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::string floorFile() {
    return HbFileSysHost::getResultDirectory() + "floor.dap3";
}

// The frames a lookup sends, as both sides must send them.
std::vector<moxdb::Bytes> expectedRequests() {
    return {linkwire::lookupFrame(shared->toc), linkwire::kGetCdMetaInfo};
}

// After one lookup of the benchmark, outside the timed loop: same requests,
// the whole database stored.
bool checkExchange(benchmark::State& state, ScriptedPhone& phone, const std::string& storedPath,
                   const BareAnswers& answers) {
    if (phone.takeReceived() != expectedRequests()) {
        state.SkipWithError("the phone did not receive the expected request frames");
        return false;
    }
    if (fileBytes(storedPath) != answers.database()) {
        state.SkipWithError("the stored file differs from the database sent");
        return false;
    }
    return true;
}

// --- The module ------------------------------------------------------------------

bool linkModule(benchmark::State& state, bool unix, const BareAnswers& answers) {
    shared->answers.store(&answers);
    const std::string endpoint = unix ? shared->socketPhone->endpoint() : "loopback";
    if (!shared->module->linkTo(endpoint)) {
        state.SkipWithError("the link did not come up");
        return false;
    }
    return true;
}

ScriptedPhone& modulePhone(bool unix) {
    return unix ? *shared->socketPhone : *shared->loopbackPhone;
}

void BM_ModuleLookup(benchmark::State& state, bool unix) {
    if (!linkModule(state, unix, *shared->small)) {
        return;
    }
    modulePhone(unix).takeReceived();
    std::list<HbSMoxDef::AlbumInfo> albums;
    if (!shared->module->lookup(shared->toc, &albums) || albums.size() != kAlbums) {
        state.SkipWithError("the lookup did not find every album");
    } else if (checkExchange(state, modulePhone(unix), HbFileSysHost::getResultFilePath(),
                             *shared->small)) {
        for (auto _ : state) {
            if (!shared->module->lookup(shared->toc, &albums)) {
                state.SkipWithError("a lookup failed");
                break;
            }
        }
    }
    shared->module->unlink();
}

void BM_ModuleReception(benchmark::State& state, bool unix) {
    if (!linkModule(state, unix, *shared->large)) {
        return;
    }
    modulePhone(unix).takeReceived();
    if (shared->module->receive(shared->toc) != 0) {
        state.SkipWithError("the 1 MiB answer was not received");
    } else if (checkExchange(state, modulePhone(unix), HbFileSysHost::getResultFilePath(),
                             *shared->large)) {
        for (auto _ : state) {
            for (int i = 0; i < kLargeLookups; ++i) {
                if (shared->module->receive(shared->toc) != 0) {
                    state.SkipWithError("a reception failed");
                    break;
                }
            }
        }
        state.SetBytesProcessed(state.iterations() * kLargeLookups *
                                static_cast<int64_t>(kLargeDatabase));
    }
    shared->module->unlink();
}

// The two parts of a module lookup, for the breakdown: search() to result
// state 0 alone, and getSearchResult() alone on the stored database.
void BM_ModuleLookupReception(benchmark::State& state, bool unix) {
    if (!linkModule(state, unix, *shared->small)) {
        return;
    }
    for (auto _ : state) {
        if (shared->module->receive(shared->toc) != 0) {
            state.SkipWithError("a reception failed");
            break;
        }
    }
    shared->module->unlink();
}

void BM_ModuleSearchOnly(benchmark::State& state) {
    if (!linkModule(state, true, *shared->small) || shared->module->receive(shared->toc) != 0) {
        state.SkipWithError("the lookup failed");
        return;
    }
    std::list<HbSMoxDef::AlbumInfo> albums;
    for (auto _ : state) {
        if (!shared->module->facade()->getSearchResult(shared->toc, &albums) ||
            albums.size() != kAlbums) {
            state.SkipWithError("the search did not find every album");
            break;
        }
    }
    shared->module->unlink();
}

// --- The floors ------------------------------------------------------------------

// The floors of getSearchResult: the same albums from the module's stored
// database, the file read whole and searched in memory ("floor"), or
// searched through a C stream as the module's reader must ("stream_floor");
// checked against the module's own result first.
void BM_SearchFloorOnly(benchmark::State& state, BareAlbumSearch::Search search) {
    if (!linkModule(state, true, *shared->small) || shared->module->receive(shared->toc) != 0) {
        state.SkipWithError("the lookup failed");
        return;
    }
    std::list<HbSMoxDef::AlbumInfo> module;
    std::list<HbSMoxDef::AlbumInfo> albums;
    if (!shared->module->facade()->getSearchResult(shared->toc, &module) ||
        !search(HbFileSysHost::getResultFilePath(), shared->toc, &albums) ||
        albums.size() != kAlbums || !BareAlbumSearch::same(albums, module)) {
        state.SkipWithError("the floor did not find the module's albums");
    } else {
        for (auto _ : state) {
            if (!search(HbFileSysHost::getResultFilePath(), shared->toc, &albums)) {
                state.SkipWithError("the floor's search failed");
                break;
            }
        }
    }
    shared->module->unlink();
}

// How a floor runs its bare lookups: how many per iteration; with a
// `thread`, each is handed to it while the caller sleeps until it is done
// (without, they run on the caller's thread); with a `search`, the caller
// then gets the albums from the stored file with it.
struct BareRun {
    int lookups = 1;
    HandOffThread* thread = nullptr;
    BareAlbumSearch::Search search = nullptr;
};

// Runs the bare lookups over the link asked for, each with its own phone
// (same class, same answers as the module's).
void bareExchange(benchmark::State& state, bool unix, const BareAnswers& answers,
                  const BareRun& run) {
    const ScriptedPhone::Script script = [&answers](const uint8_t* frame, size_t size,
                                                    ScriptedPhone::Answer& answer) {
        answers.play(frame, size, answer);
    };
    ScriptedPhone socketPhone(script, kGreeting);
    socketPhone.listenUnix(shared->socketDirectory + "/floor.sock");
    ScriptedPhone loopbackPhone(script, kGreeting);
    BareSocketClient socketClient{ChunkFile(floorFile())};
    BareLoopbackClient loopbackClient(loopbackPhone, ChunkFile(floorFile()));
    ScriptedPhone& received = unix ? socketPhone : loopbackPhone;
    const std::function<bool()> bareLookup = [&]() {
        return unix ? socketClient.lookup(shared->toc) : loopbackClient.lookup(shared->toc);
    };
    std::list<HbSMoxDef::AlbumInfo> albums;
    auto lookup = [&]() {
        const bool stored = run.thread != nullptr ? run.thread->run(bareLookup) : bareLookup();
        if (!stored || run.search == nullptr) {
            return stored;
        }
        return run.search(floorFile(), shared->toc, &albums) && albums.size() == kAlbums;
    };
    const bool connected =
        unix ? socketClient.connect(socketPhone.path()) : loopbackClient.connect();
    received.takeReceived();
    if (!connected || !lookup()) {
        state.SkipWithError("the bare exchange failed");
        return;
    }
    if (!checkExchange(state, received, floorFile(), answers)) {
        return;
    }
    for (auto _ : state) {
        for (int i = 0; i < run.lookups; ++i) {
            if (!lookup()) {
                state.SkipWithError("a bare exchange failed");
                break;
            }
        }
    }
}

void BM_FloorLookup(benchmark::State& state, bool unix) {
    bareExchange(state, unix, *shared->small, BareRun());
}

// The floor plus the two thread hand-offs of the module's design (the call
// goes to the worker, the outcome comes back to the sleeping caller): what
// of the module's time is the hand-off itself, and what is the module.
void BM_FloorLookupHandedOff(benchmark::State& state, bool unix) {
    HandOffThread thread;
    BareRun run;
    run.thread = &thread;
    bareExchange(state, unix, *shared->small, run);
}

// The floor of the whole lookup's work: the bare exchange, then the albums
// got from the stored file by the floor of the search.
void BM_FloorLookupWithSearch(benchmark::State& state, bool unix) {
    BareRun run;
    run.search = &BareAlbumSearch::search;
    bareExchange(state, unix, *shared->small, run);
}

// The floor of what the module's design requires of a lookup: the bare
// exchange handed to a second thread and back, then the albums got through
// a C stream with a seek and a read per record, as the module's reader must.
void BM_FloorLookupRequired(benchmark::State& state, bool unix) {
    HandOffThread thread;
    BareRun run;
    run.thread = &thread;
    run.search = &BareAlbumSearch::searchThroughStream;
    bareExchange(state, unix, *shared->small, run);
}

void BM_FloorReception(benchmark::State& state, bool unix) {
    BareRun run;
    run.lookups = kLargeLookups;
    bareExchange(state, unix, *shared->large, run);
    state.SetBytesProcessed(state.iterations() * kLargeLookups *
                            static_cast<int64_t>(kLargeDatabase));
}

// Only the file work of the reception: emptied, then each chunk's payload
// appended with one open-append-close.
void BM_FileFloorReception(benchmark::State& state) {
    const ChunkFile file(floorFile());
    const moxdb::Bytes& database = shared->large->database();
    for (auto _ : state) {
        for (int i = 0; i < kLargeLookups; ++i) {
            bool ok = file.clear();
            for (size_t at = 0; ok && at < database.size(); at += kChunkSize) {
                const size_t size = std::min(kChunkSize, database.size() - at);
                ok = file.append(database.data() + at, size);
            }
            if (!ok) {
                state.SkipWithError("writing the file failed");
                break;
            }
        }
    }
    if (fileBytes(floorFile()) != database) {
        state.SkipWithError("the stored file differs from the database");
    }
    state.SetBytesProcessed(state.iterations() * kLargeLookups *
                            static_cast<int64_t>(kLargeDatabase));
}

// Wall time per iteration (the lookups wait on other threads), and the CPU
// time of the whole process: the module's worker and the phone's thread
// work for the caller.
template <class... Args>
void registerTimed(const std::string& name, benchmark::TimeUnit unit, Args&&... args) {
    benchmark::RegisterBenchmark(name.c_str(), std::forward<Args>(args)...)
        ->UseRealTime()
        ->MeasureProcessCPUTime()
        ->Unit(unit);
}

void registerBenchmarks(RatioReporter& reporter) {
    const uint64_t receptionBytes = kLargeLookups * static_cast<uint64_t>(kLargeDatabase);
    const benchmark::TimeUnit us = benchmark::kMicrosecond;
    const benchmark::TimeUnit ms = benchmark::kMillisecond;
    for (const bool unix : {true, false}) {
        const std::string link = unix ? "unix" : "in-process";
        const std::string lookup = "lookup_64KiB/" + link;
        const std::string reception = "reception_4MiB/" + link;
        registerTimed(lookup + "/module", us, BM_ModuleLookup, unix);
        registerTimed(lookup + "/module_reception_only", us, BM_ModuleLookupReception, unix);
        registerTimed(lookup + "/floor", us, BM_FloorLookup, unix);
        registerTimed(lookup + "/floor_handed_off", us, BM_FloorLookupHandedOff, unix);
        registerTimed(lookup + "/floor_with_search", us, BM_FloorLookupWithSearch, unix);
        registerTimed(lookup + "/floor_required", us, BM_FloorLookupRequired, unix);
        registerTimed(reception + "/module", ms, BM_ModuleReception, unix);
        registerTimed(reception + "/bare_exchange", ms, BM_FloorReception, unix);
        reporter.addPair(lookup + ", module vs bare exchange", lookup + "/module",
                         lookup + "/floor");
        reporter.addPair(lookup + ", module vs bare exchange and search floor", lookup + "/module",
                         lookup + "/floor_with_search");
        reporter.addPair(lookup + ", module vs the floor of what its design requires",
                         lookup + "/module", lookup + "/floor_required");
        reporter.addPair(lookup + ", floor of what the design requires vs bare exchange",
                         lookup + "/floor_required", lookup + "/floor");
        reporter.addPair(lookup + ", module without getSearchResult vs bare exchange",
                         lookup + "/module_reception_only", lookup + "/floor");
        reporter.addPair(lookup + ", module without getSearchResult vs bare exchange handed off",
                         lookup + "/module_reception_only", lookup + "/floor_handed_off");
        reporter.addPair(lookup + ", bare exchange handed off vs on one thread",
                         lookup + "/floor_handed_off", lookup + "/floor");
        reporter.addPair(reception + ", module vs file writes alone", reception + "/module",
                         "reception_4MiB/file_floor", receptionBytes);
        reporter.addPair(reception + ", module vs bare exchange", reception + "/module",
                         reception + "/bare_exchange", receptionBytes);
    }
    registerTimed("lookup_64KiB/getSearchResult_only", us, BM_ModuleSearchOnly);
    registerTimed("lookup_64KiB/getSearchResult_floor", us, BM_SearchFloorOnly,
                  &BareAlbumSearch::search);
    registerTimed("lookup_64KiB/getSearchResult_stream_floor", us, BM_SearchFloorOnly,
                  &BareAlbumSearch::searchThroughStream);
    reporter.addPair("lookup_64KiB, getSearchResult vs the file read whole and searched in memory",
                     "lookup_64KiB/getSearchResult_only", "lookup_64KiB/getSearchResult_floor");
    reporter.addPair("lookup_64KiB, getSearchResult vs the same lookups through the stream",
                     "lookup_64KiB/getSearchResult_only",
                     "lookup_64KiB/getSearchResult_stream_floor");
    registerTimed("reception_4MiB/file_floor", ms, BM_FileFloorReception);
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    Shared state;
    shared = &state;
    state.toc = moxdb::makeTocTextOfTracks(kTracks);
    state.small.reset(new BareAnswers(databaseOfSize(state.toc, kSmallDatabase), kChunkSize));
    state.large.reset(new BareAnswers(databaseOfSize(state.toc, kLargeDatabase), kChunkSize));
    if (state.small->database().size() != kSmallDatabase ||
        state.large->database().size() != kLargeDatabase) {
        std::fprintf(stderr, "MoxLookupBench: cannot build the databases\n");
        return 1;
    }
    char directory[] = "/tmp/mox-lookup-bench-XXXXXX";
    if (mkdtemp(directory) == nullptr) {
        std::perror("MoxLookupBench: mkdtemp");
        return 1;
    }
    state.socketDirectory = directory;
    HbFileSys::CreateDirectory(HbFileSysHost::getResultDirectory().c_str(), true);
    state.answers.store(state.small.get());
    const ScriptedPhone::Script script = [](const uint8_t* frame, size_t size,
                                            ScriptedPhone::Answer& answer) {
        shared->answers.load()->play(frame, size, answer);
    };
    state.socketPhone.reset(new ScriptedPhone(script, kGreeting));
    state.socketPhone->listenUnix(state.socketDirectory + "/phone.sock");
    state.loopbackPhone.reset(new ScriptedPhone(script, kGreeting));
    OstLinkAppHost::setLoopbackPeer(state.loopbackPhone.get());
    state.module.reset(new FacadeLookup());

    RatioReporter reporter;
    registerBenchmarks(reporter);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();

    // The link goes first, then the phones it used.
    state.module->facade()->Terminate();
    state.module.reset();
    HbSingletonFinalizer::finalize();
    OstLinkAppHost::setLoopbackPeer(nullptr);
    state.loopbackPhone.reset();
    state.socketPhone.reset();
    std::remove(floorFile().c_str());
    rmdir(directory);
    shared = nullptr;
    return reporter.anyError() ? 1 : 0;
}
