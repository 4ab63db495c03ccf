// mox lookup (--toc TEXT | --offsets N... | --cue FILE | --image FILE | --device [PATH])
//            [--phone builtin|unix:PATH|tcp:HOST:PORT]
//            [--catalog FILE] [--fault NAME...] [--kind N --param1 N --param2 N]
//            [--json] [--timeout SEC]
//
// Looks a disc up through the module, driving it through HbSMox alone: an
// observer for notifications 1, 2 and 3, startLink, a wait for the link,
// search, a wait until the result state settles, getSearchResult, stopLink,
// Terminate and the framework's finalize().
//
// When the result state has settled, and how a lost link ends the lookup at
// any point with "link lost", is LookupWatch's to say (LookupWatch.h).
//
// The module keeps the phone's answer in the result directory that the host
// edition gives this process (HbFileSysHost.h): MOX_RESULT_DIR, or else a
// private directory removed when the run ends. A directory given on purpose
// may be shared: the run then takes the directory's lock, and waits (saying
// so once) while another run holds it. A directory or result file that the
// host edition refuses ends the run with the refusal in words.
//
// Output: a table per album (as mox search prints it), or with --json one
// object {"ok", "state", "states", "albums", "log", "result_dir"}. On a
// terminal, a progress line on stderr (not with --json). The log holds the
// module's first 1000 debug messages; when there were more, its last line is
// "N more messages left out". "states" holds the first 1000 result states;
// when there were more, "states_left_out" counts the rest ("state" is always
// the last). So a phone that makes the module log or change state without end
// cannot make the lookup grow without end.
// Exit status: 0 ok with at least one album; 1 the lookup failed, the search
// failed or found nothing (one line on stderr says which); 2 bad usage.
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <list>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "AlbumOutput.h"
#include "BuiltinPhone.h"
#include "CommandLine.h"
#include "Commands.h"
#include "HbFramework/HbDbgOutput.h"
#include "HbFramework/HbFileSys.h"
#include "HbFramework/HbFileSysHost.h"
#include "HbFramework/HbSingletonFinalizer.h"
#include "HbSMox.h"
#include "LookupWatch.h"
#include "OstLinkApp/OstLinkAppHost.h"
#include "ResultDirLock.h"
#include "TocSource.h"
#include "TocSourceOptions.h"

namespace {

const char* const PREFIX = "mox lookup: ";

const int EXIT_FOUND = 0;
const int EXIT_FAILED = 1;
const int EXIT_BAD_USAGE = 2;

using Json = nlohmann::ordered_json;

struct LookupOptions {
    std::string toc;
    TocSourceOptions source;  // --offsets, --cue, --image, --device
    bool verbose = false;
    std::string phone = "builtin";
    std::string catalog;
    std::vector<std::string> faults;
    unsigned int kind = 0;
    unsigned int param1 = 0;
    unsigned int param2 = 0;
    bool json = false;
    double timeoutSeconds = 60.0;
};

// The module's debug messages, in order, each without its final line feed.
// A phone can make the module log without end (every unknown frame is one
// message), so only the first kLogLinesKept messages are kept and the rest
// are counted; lines() then ends with one line saying how many were left out.
class LogCapture {
public:
    static const size_t kLogLinesKept = 1000;
    // How the module's messages about storing the answer begin.
    const std::string kStoreErrorStart = "search result file ";

    // With `echo`, every message also goes to stderr as it comes.
    explicit LogCapture(bool echo) {
        mPrevious = HbDbgOutput::SetSink([this, echo](const HbDbgRecord& record) {
            if (echo) {
                std::cerr << HbDbgOutput::Render(record);
            }
            std::lock_guard<std::mutex> lock(mMutex);
            const bool refusal = mRefusal.empty() && record.file == HbFileSysHost::SOURCE;
            const bool storeError =
                mStoreError.empty() &&
                record.text.compare(0, kStoreErrorStart.size(), kStoreErrorStart) == 0;
            const bool kept = mLines.size() < kLogLinesKept;
            if (!kept) {
                ++mLeftOut;
            }
            if (!kept && !refusal && !storeError) {
                return;
            }
            std::string text = record.text;
            if (!text.empty() && text.back() == '\n') {
                text.pop_back();
            }
            if (refusal) {
                mRefusal = text;
            }
            if (storeError) {
                mStoreError = text;
            }
            if (kept) {
                mLines.push_back(text);
            }
        });
    }
    ~LogCapture() { HbDbgOutput::SetSink(mPrevious); }
    // The kept messages, then "N more messages left out" when there were more.
    std::vector<std::string> lines() const {
        std::lock_guard<std::mutex> lock(mMutex);
        std::vector<std::string> lines = mLines;
        if (mLeftOut > 0) {
            lines.push_back(std::to_string(mLeftOut) + " more messages left out");
        }
        return lines;
    }
    // The host edition's first refusal of the result directory or file, "" if
    // none; taken even when the log was already full.
    std::string refusal() const {
        std::lock_guard<std::mutex> lock(mMutex);
        return mRefusal;
    }
    // The module's first failure to store the phone's answer ("search result
    // file write error.", its size limit, ...), "" if none.
    std::string storeError() const {
        std::lock_guard<std::mutex> lock(mMutex);
        return mStoreError;
    }

private:
    mutable std::mutex mMutex;
    std::vector<std::string> mLines;  // at most kLogLinesKept
    uint64_t mLeftOut = 0;
    std::string mRefusal;
    std::string mStoreError;
    HbDbgOutput::Sink mPrevious;
};

struct LookupOutcome {
    bool linked = false;
    int32 state = -1;
    bool found = false;
    std::string why;
    std::list<HbSMoxDef::AlbumInfo> albums;
};

LookupOutcome lookUp(const LookupOptions& options, const std::string& toc, LookupWatch& watch) {
    LookupOutcome outcome;
    const LookupWatch::Clock::time_point deadline =
        LookupWatch::Clock::now() +
        std::chrono::milliseconds(static_cast<long>(options.timeoutSeconds * 1000));
    HbSMox* mox = HbSMox::GetInstance();
    HbObserver<LookupWatch> observer(&watch, &LookupWatch::onMox);
    mox->AddObserver(&observer);
    watch.drawProgress();
    mox->startLink();
    outcome.linked = watch.waitForLink(deadline, &outcome.why);
    if (outcome.linked) {
        HbSMoxDef::SearchInfo info;
        info.lookupKind = static_cast<uint8>(options.kind);
        info.lookupParam1 = static_cast<uint16>(options.param1);
        info.lookupParam2 = static_cast<uint16>(options.param2);
        info.toc = toc;
        watch.markSearching();
        mox->search(info);
        outcome.state = watch.waitForEnd(deadline);
        if (outcome.state == 0) {
            outcome.found = mox->getSearchResult(toc, &outcome.albums);
            if (!outcome.found) {
                outcome.why = "the album search failed";
            } else if (outcome.albums.empty()) {
                outcome.why = "no album found for this disc";
            }
        } else {
            outcome.why = watch.failure(outcome.state);
        }
    } else {
        outcome.state = watch.lastState();
    }
    watch.markStopping();
    if (watch.linked()) {
        mox->stopLink();
        watch.waitForUnlink(LookupWatch::Clock::now() + std::chrono::seconds(2));
    }
    mox->Terminate();
    mox->RemoveObserver(&observer);
    HbSingletonFinalizer::finalize();
    return outcome;
}

// A result directory given on purpose (MOX_RESULT_DIR) may be another run's
// too: it is checked, made when missing and locked for the whole lookup. A
// private one needs none of that. False with a one-line reason.
bool lockSharedResultDirectory(const std::string& resultDir, std::unique_ptr<ResultDirLock>* lock,
                               std::string* why) {
    if (HbFileSysHost::getResultDirectoryOrigin() == HbFileSysHost::en_ORIGIN_PRIVATE) {
        return true;
    }
    if (!HbFileSysHost::checkDirectory(resultDir, why)) {
        return false;
    }
    if (!makeResultDirectory(resultDir, why)) {
        return false;
    }
    lock->reset(new ResultDirLock(resultDir, std::cerr, PREFIX));
    if (!(*lock)->locked()) {
        *why = (*lock)->error();
        return false;
    }
    return true;
}

int runLookup(const LookupOptions& options) {
    std::string toc = options.toc;
    std::string why;
    if (options.source.given()) {
        DiscToc disc;
        if (!readDiscToc(options.source.request(), &disc, &why)) {
            std::cerr << PREFIX << why << "\n";
            return EXIT_BAD_USAGE;
        }
        toc = disc.toc;
    }
    std::unique_ptr<BuiltinPhone> builtin;
    if (options.phone == "builtin") {
        builtin = BuiltinPhone::create(options.catalog, options.faults,
                                       options.verbose ? &std::cerr : nullptr, &why);
        if (!builtin) {
            std::cerr << PREFIX << why << "\n";
            return EXIT_BAD_USAGE;
        }
        OstLinkAppHost::setLoopbackPeer(builtin->peer());
        OstLinkAppHost::setEndpoint("loopback");
    } else {
        if (!options.faults.empty() || !options.catalog.empty()) {
            std::cerr << PREFIX << "--fault and --catalog need --phone builtin\n";
            return EXIT_BAD_USAGE;
        }
        OstLinkAppHost::setEndpoint(options.phone);
    }

    const std::string resultDir = HbFileSysHost::getResultDirectory();
    if (resultDir.empty()) {
        std::cerr << PREFIX << "cannot make a private result directory\n";
        return EXIT_FAILED;
    }
    std::unique_ptr<ResultDirLock> lock;
    if (!lockSharedResultDirectory(resultDir, &lock, &why)) {
        std::cerr << PREFIX << why << "\n";
        return EXIT_FAILED;
    }
    const bool progress = !options.json && isatty(STDERR_FILENO) != 0;
    LogCapture log(options.verbose);
    LookupWatch watch(progress);
    LookupOutcome outcome = lookUp(options, toc, watch);
    OstLinkAppHost::setLoopbackPeer(nullptr);
    if (progress) {
        std::fprintf(stderr, "\r\033[K");
    }

    if (!log.refusal().empty()) {
        outcome.why = log.refusal();
    } else if (outcome.state != 0 && !log.storeError().empty()) {
        // A disk that is full or a file-size limit (SIGXFSZ is ignored) makes
        // the module fail its write; that is the cause, not the phone.
        outcome.why = "error: " + log.storeError();
    }
    const bool ok = outcome.state == 0 && outcome.found;
    if (options.json) {
        Json out = Json::object();
        out["ok"] = ok;
        out["state"] = outcome.state;
        out["states"] = watch.states();
        if (watch.statesLeftOut() > 0) {
            out["states_left_out"] = watch.statesLeftOut();
        }
        out["albums"] = albumsToJson(outcome.albums);
        out["log"] = log.lines();
        out["result_dir"] = resultDir;
        std::cout << out.dump(-1, ' ', false, Json::error_handler_t::replace) << "\n";
    } else if (ok) {
        printAlbumTable(outcome.albums, std::cout);
    }
    std::cout.flush();
    if (ok && !outcome.albums.empty()) {
        return EXIT_FOUND;
    }
    std::cerr << PREFIX << outcome.why << "\n";
    return EXIT_FAILED;
}

}  // namespace

Command addLookupCommand(CLI::App& app) {
    std::shared_ptr<LookupOptions> options = std::make_shared<LookupOptions>();
    CLI::App* lookup =
        app.add_subcommand("lookup", "Look a disc up through the module and a phone");
    CLI::Option_group* disc = options->source.addTo(*lookup);
    disc->add_option("--toc", options->toc,
                     "the disc's TOC text (six upper-case hexadecimal digits per track, then "
                     "for the lead-out), checked, then sent as it is")
        ->check(TocSourceOptions::tocTextCheck());
    disc->add_option("--raw-toc", options->toc, "any text, sent unchanged as the TOC text")
        ->type_name("TEXT");
    lookup
        ->add_option("--phone", options->phone,
                     "builtin (the simulator in this process), unix:PATH or tcp:HOST:PORT")
        ->capture_default_str();
    lookup->add_option("--catalog", options->catalog,
                       "catalogue of the built-in phone (default: the bundled sample)");
    lookup->add_option("--fault", options->faults, "fault of the built-in phone (repeatable)");
    lookup->add_option("--kind", options->kind, "lookup kind (0-255)")
        ->check(CommandLine::wholeNumber(0, 255))
        ->capture_default_str();
    lookup->add_option("--param1", options->param1, "first lookup parameter (0-65535)")
        ->check(CommandLine::wholeNumber(0, 65535))
        ->capture_default_str();
    lookup->add_option("--param2", options->param2, "second lookup parameter (0-65535)")
        ->check(CommandLine::wholeNumber(0, 65535))
        ->capture_default_str();
    lookup->add_flag("--json", options->json,
                     "print one JSON object: ok, state, states, albums, log, result_dir");
    lookup
        ->add_option("--timeout", options->timeoutSeconds,
                     "bound on the whole wait, seconds (default 60)")
        ->check(CommandLine::positiveNumber())
        ->capture_default_str();
    lookup->add_flag("--verbose", options->verbose,
                     "the module's debug messages and the built-in phone's frames on stderr");
    lookup->footer(BuiltinPhone::faultsHelp());
    return Command{lookup, [options]() { return runLookup(*options); }};
}
