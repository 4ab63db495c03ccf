// mox lookup (--toc TEXT | --offsets N... | --cue FILE | --image FILE | --device [PATH])
//            [--phone builtin|unix:PATH|tcp:HOST:PORT] [--allow-remote]
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
// so once) while another run holds it, within --timeout. A directory or
// result file that the host edition refuses ends the run with the refusal in
// words.
//
// Every failure is one line on stderr, "mox lookup: <message>", of one kind
// of LookupFailure.h (bad usage, no phone, link lost, not found, phone
// failed, refused, timed out, cancelled, cannot store).
//
// Ctrl-C or SIGTERM cancels: the waits end, the link is stopped as stopLink
// does (the phone is told), a partial result file in a shared directory is
// removed, the progress line is cleared, and the run ends "cancelled" with
// status 130 or 143. A second signal ends it at once.
//
// Output: a table per album (as mox search prints it), or with --json one
// object {"ok", "state", "states", "albums", "log", "result_dir", "error"}
// (docs/schemas/mox-lookup.schema.json). On a terminal, a progress line on
// stderr (not with --json). "state" is the last result state notified (100,
// idle, before any). The log holds the module's first 1000 debug messages;
// when there were more, its last line is "N more messages left out".
// "states" holds the first 1000 result states; when there were more,
// "states_left_out" counts the rest. So a phone that makes the module log or
// change state without end cannot make the lookup grow without end.
// Exit status: 0 at least one album found ("ok": true); 1 the lookup failed or
// found nothing; 2 bad usage; 130 or 143 cancelled by SIGINT or SIGTERM.
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <list>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "AlbumOutput.h"
#include "BuiltinPhone.h"
#include "CommandLine.h"
#include "Commands.h"
#include "HbFramework/HbFileSysHost.h"
#include "HbFramework/HbSingletonFinalizer.h"
#include "HbSMox.h"
#include "HostCapture.h"
#include "InterruptSignals.h"
#include "LookupFailure.h"
#include "LookupLog.h"
#include "LookupWatch.h"
#include "OstLinkApp/OstLinkAppHost.h"
#include "ResultDirLock.h"
#include "ResultState.h"
#include "TocSource.h"
#include "TocSourceOptions.h"

namespace {

const char* const PREFIX = "mox lookup: ";

using Json = nlohmann::ordered_json;

struct LookupOptions {
    std::string toc;
    TocSourceOptions source;  // --offsets, --cue, --image, --device
    bool verbose = false;
    std::string phone = "builtin";
    bool allowRemote = false;
    std::string catalog;
    std::vector<std::string> faults;
    moxphone::PhoneSourceOptions phoneSource;  // --source and its companions
    unsigned int kind = 0;
    unsigned int param1 = 0;
    unsigned int param2 = 0;
    bool json = false;
    double timeoutSeconds = 60.0;
    std::string capture;  // --capture FILE: the link's envelopes as a pcap file
};

using Clock = LookupWatch::Clock;

struct LookupOutcome {
    int32 state = ResultState::kIdle;  // the last result state notified
    std::list<HbSMoxDef::AlbumInfo> albums;
    LookupFailure failure;
};

// Looks `toc` up once the link is up; the outcome's failure says why there
// are no albums.
void searchDisc(const LookupOptions& options, const std::string& toc, Clock::time_point deadline,
                LookupWatch& watch, LookupOutcome* outcome) {
    HbSMox* mox = HbSMox::GetInstance();
    HbSMoxDef::SearchInfo info;
    info.lookupKind = static_cast<uint8>(options.kind);
    info.lookupParam1 = static_cast<uint16>(options.param1);
    info.lookupParam2 = static_cast<uint16>(options.param2);
    info.toc = toc;
    watch.markSearching();
    mox->search(info);
    const int32 end = watch.waitForEnd(deadline);
    if (end != 0) {
        outcome->failure = watch.failure(end);
        return;
    }
    if (!mox->getSearchResult(toc, &outcome->albums)) {
        outcome->failure = LookupFailure(LookupFailure::kRefused, "the album search failed");
    } else if (outcome->albums.empty()) {
        outcome->failure = LookupFailure(LookupFailure::kNotFound, "no album found for this disc");
    }
}

LookupOutcome lookUp(const LookupOptions& options, const std::string& toc,
                     Clock::time_point deadline, LookupWatch& watch) {
    LookupOutcome outcome;
    HbSMox* mox = HbSMox::GetInstance();
    HbObserver<LookupWatch> observer(&watch, &LookupWatch::onMox);
    mox->AddObserver(&observer);
    watch.drawProgress();
    mox->startLink();
    if (watch.waitForLink(deadline, &outcome.failure)) {
        searchDisc(options, toc, deadline, watch, &outcome);
    }
    outcome.state = watch.lastState();
    // Stopping tells the phone (a disconnect) before the link closes, also
    // after a cancel.
    watch.markStopping();
    if (watch.linked()) {
        mox->stopLink();
        watch.waitForUnlink(Clock::now() + std::chrono::seconds(2));
    }
    mox->Terminate();
    mox->RemoveObserver(&observer);
    HbSingletonFinalizer::finalize();
    return outcome;
}

// A result directory given on purpose (MOX_RESULT_DIR) may be another run's
// too: it is checked, made when missing and locked for the whole lookup,
// within the run's deadline. A private one needs none of that.
LookupFailure lockSharedResultDirectory(const std::string& resultDir, Clock::time_point deadline,
                                        std::unique_ptr<ResultDirLock>* lock) {
    if (HbFileSysHost::getResultDirectoryOrigin() == HbFileSysHost::en_ORIGIN_PRIVATE) {
        return LookupFailure();
    }
    std::string why;
    if (!HbFileSysHost::checkDirectory(resultDir, &why) || !makeResultDirectory(resultDir, &why)) {
        return LookupFailure(LookupFailure::kCannotStore, "cannot store the answer: " + why);
    }
    lock->reset(
        new ResultDirLock(resultDir, std::cerr, PREFIX, deadline, &InterruptSignals::flag()));
    if ((*lock)->interrupted()) {
        return LookupFailure::cancelled(InterruptSignals::received());
    }
    if ((*lock)->timedOut()) {
        return LookupFailure(LookupFailure::kTimedOut, (*lock)->error());
    }
    if (!(*lock)->locked()) {
        return LookupFailure(LookupFailure::kCannotStore,
                             "cannot store the answer: " + (*lock)->error());
    }
    return LookupFailure();
}

// Why the answer could not be stored: the system's reason when the result
// directory cannot be written, else the module's message.
std::string storeFailure(const std::string& resultDir, const std::string& moduleMessage) {
    if (::access(resultDir.c_str(), W_OK | X_OK) != 0) {
        return "cannot store the answer in " + resultDir + ": " + std::strerror(errno);
    }
    return "cannot store the answer in " + resultDir + ": " + moduleMessage;
}

// The watch tells what the application saw; the log tells the causes behind
// it that only the module and the host edition know.
void explainFailure(const LookupLog& log, const std::string& resultDir, LookupFailure* failure) {
    const LookupFailure::Kind kind = failure->kind();
    if (kind == LookupFailure::kCancelled || kind == LookupFailure::kNone) {
        return;
    }
    if (!log.refusal().empty()) {
        *failure =
            LookupFailure(LookupFailure::kCannotStore, "cannot store the answer: " + log.refusal());
    } else if (!log.storeError().empty()) {
        // A disk that is full or a file-size limit (SIGXFSZ is ignored) makes
        // the module fail its write; that is the cause, not the phone.
        *failure =
            LookupFailure(LookupFailure::kCannotStore, storeFailure(resultDir, log.storeError()));
    } else if (kind == LookupFailure::kNoPhone && !log.linkError().empty()) {
        *failure = LookupFailure(kind, "no phone: " + log.linkError());
    } else if (kind == LookupFailure::kRefused && !log.moduleError().empty()) {
        *failure = LookupFailure(kind, failure->message() + ": " + log.moduleError());
    }
}

void printJson(const LookupOutcome& outcome, const LookupWatch* watch, const LookupLog* log,
               const std::string& resultDir) {
    Json out = Json::object();
    out["ok"] = !outcome.failure.failed();
    out["state"] = outcome.state;
    out["states"] = watch != nullptr ? watch->states() : std::vector<int32>();
    if (watch != nullptr && watch->statesLeftOut() > 0) {
        out["states_left_out"] = watch->statesLeftOut();
    }
    out["albums"] = albumsToJson(outcome.albums);
    out["log"] = log != nullptr ? log->lines() : std::vector<std::string>();
    if (!resultDir.empty()) {
        out["result_dir"] = resultDir;
    }
    if (outcome.failure.failed()) {
        out["error"] = outcome.failure.toJson();
    }
    std::cout << out.dump(-1, ' ', false, Json::error_handler_t::replace) << "\n";
}

// The end of every run: the output, the one line of a failure, the status.
int finish(const LookupOptions& options, const LookupOutcome& outcome, const LookupWatch* watch,
           const LookupLog* log, const std::string& resultDir) {
    if (options.json) {
        printJson(outcome, watch, log, resultDir);
    } else if (!outcome.failure.failed()) {
        printAlbumTable(outcome.albums, std::cout);
    }
    std::cout.flush();
    if (outcome.failure.failed()) {
        std::cerr << PREFIX << outcome.failure.message() << "\n";
    }
    return outcome.failure.exitStatus();
}

int usageFailure(const LookupOptions& options, const std::string& why) {
    LookupOutcome outcome;
    outcome.failure = LookupFailure(LookupFailure::kBadUsage, why);
    return finish(options, outcome, nullptr, nullptr, std::string());
}

// The phone: the simulator in this process, or an endpoint that must at
// least be well formed (a malformed one is bad usage, not a missing phone).
bool choosePhone(const LookupOptions& options, std::unique_ptr<BuiltinPhone>* builtin,
                 std::string* why) {
    if (options.phone == "builtin") {
        *builtin =
            BuiltinPhone::create(options.catalog, options.faults,
                                 options.verbose ? &std::cerr : nullptr, why, &options.phoneSource);
        if (!*builtin) {
            return false;
        }
        OstLinkAppHost::setLoopbackPeer((*builtin)->peer());
        OstLinkAppHost::setEndpoint("loopback");
        return true;
    }
    if (!options.faults.empty() || !options.catalog.empty()) {
        *why = "--fault and --catalog need --phone builtin";
        return false;
    }
    if (!options.phoneSource.isCatalogue()) {
        *why = "--source needs --phone builtin";
        return false;
    }
    OstLinkAppHost::setAllowRemote(options.allowRemote);
    bool remote = false;
    if (!OstLinkAppHost::checkEndpoint(options.phone, why, &remote)) {
        if (remote) {
            *why += " (allow it with --allow-remote)";
        }
        return false;
    }
    OstLinkAppHost::setEndpoint(options.phone);
    return true;
}

// A cancelled or failed lookup leaves no partial answer in a directory that
// outlives the run (a private one goes with the run).
void removePartialAnswer(const LookupOutcome& outcome) {
    if (!outcome.failure.failed() ||
        HbFileSysHost::getResultDirectoryOrigin() == HbFileSysHost::en_ORIGIN_PRIVATE) {
        return;
    }
    if (outcome.failure.kind() == LookupFailure::kCancelled) {
        ::unlink(HbFileSysHost::getResultFilePath().c_str());
    }
}

int runLookup(const LookupOptions& options) {
    const Clock::time_point deadline =
        Clock::now() +
        std::chrono::milliseconds(static_cast<long long>(options.timeoutSeconds * 1000));
    std::string toc = options.toc;
    std::string why;
    if (options.source.given()) {
        DiscToc disc;
        if (!readDiscToc(options.source.request(), &disc, &why)) {
            return usageFailure(options, why);
        }
        toc = disc.toc;
    }
    std::unique_ptr<BuiltinPhone> builtin;
    if (!choosePhone(options, &builtin, &why)) {
        return usageFailure(options, why);
    }
    LookupOutcome outcome;
    const std::string resultDir = HbFileSysHost::getResultDirectory();
    if (resultDir.empty()) {
        outcome.failure =
            LookupFailure(LookupFailure::kCannotStore,
                          "cannot store the answer: cannot make a private result directory");
        return finish(options, outcome, nullptr, nullptr, resultDir);
    }
    HostCapture capture;
    if (!capture.start(options.capture, &why)) {
        outcome.failure = LookupFailure(LookupFailure::kCannotStore, why);
        return finish(options, outcome, nullptr, nullptr, resultDir);
    }
    const bool progress = !options.json && isatty(STDERR_FILENO) != 0;
    const InterruptSignals signals(progress);
    std::unique_ptr<ResultDirLock> lock;
    outcome.failure = lockSharedResultDirectory(resultDir, deadline, &lock);
    if (outcome.failure.failed()) {
        return finish(options, outcome, nullptr, nullptr, resultDir);
    }
    LookupLog log(options.verbose);
    LookupWatch watch(progress);
    watch.setInterruptFlag(&InterruptSignals::flag());
    outcome = lookUp(options, toc, deadline, watch);
    OstLinkAppHost::setLoopbackPeer(nullptr);
    if (progress) {
        std::fprintf(stderr, "\r\033[K");
    }
    explainFailure(log, resultDir, &outcome.failure);
    removePartialAnswer(outcome);
    return finish(options, outcome, &watch, &log, resultDir);
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
    lookup->add_flag("--allow-remote", options->allowRemote,
                     "allow a tcp: phone outside this machine (127.0.0.0/8, ::1)");
    lookup->add_option("--catalog", options->catalog,
                       "catalogue of the built-in phone (default: the bundled sample)");
    lookup->add_option("--fault", options->faults, "fault of the built-in phone (repeatable)");
    options->phoneSource.addTo(*lookup);
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
                     "print one JSON object: ok, state, states, albums, log, result_dir, error");
    lookup
        ->add_option("--timeout", options->timeoutSeconds,
                     "bound on the whole run, the wait for another run's lock included, seconds "
                     "(default 60)")
        ->check(CommandLine::positiveNumber())
        ->capture_default_str();
    lookup->add_flag("--verbose", options->verbose,
                     "the module's debug messages and the built-in phone's frames on stderr");
    lookup->add_option("--capture", options->capture,
                       "record the link's envelopes into a pcap file (Wireshark: moxlink.lua)");
    lookup->footer(BuiltinPhone::faultsHelp());
    return Command{lookup, [options]() { return runLookup(*options); }};
}
