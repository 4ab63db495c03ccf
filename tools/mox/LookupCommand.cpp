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
// The result state has settled when it is 0 (a result is stored), or when the
// module has finished handling a failure: idle again (100) after the search
// began (a cancel answered or timed out, the link lost), or a failure code
// of the phone (which nothing follows), or an error (20) that no cancel
// follows.
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
// "N more messages left out", so a phone that makes the module log without end
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
#include "Commands.h"
#include "HbFramework/HbDbgOutput.h"
#include "HbFramework/HbFileSys.h"
#include "HbFramework/HbFileSysHost.h"
#include "HbFramework/HbSingletonFinalizer.h"
#include "HbSMox.h"
#include "OstLinkApp/OstLinkAppHost.h"
#include "ResultDirLock.h"
#include "TocSource.h"
#include "TocSourceOptions.h"

namespace {

const char* const PREFIX = "mox lookup: ";

const int EXIT_FOUND = 0;
const int EXIT_FAILED = 1;
const int EXIT_BAD_USAGE = 2;

// An error (20) that is not followed by a cancel within this time is final:
// the module raises the cancel right after the error, on the same thread.
const std::chrono::milliseconds kErrorGrace(500);

using Json = nlohmann::ordered_json;
using Clock = std::chrono::steady_clock;

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

bool isFailureCode(int32 state) {
    return state != 0 && state != 4 && state != 20 && (state < 100 || state > 104);
}

// The state by name, for the progress line and the failure reason.
std::string stateName(int32 state) {
    switch (state) {
        case 0:
            return "complete";
        case 4:
            return "timed out";
        case 20:
            return "error";
        case 100:
            return "idle";
        case 101:
            return "connecting";
        case 102:
            return "connected";
        case 103:
            return "searching";
        case 104:
            return "cancelling";
        default:
            return "phone status " + std::to_string(state);
    }
}

// What the application sees of the module during one lookup. Its callback
// runs on the module's threads; the waits run on the command's thread.
class LookupWatch {
public:
    explicit LookupWatch(bool progress) : mProgress(progress), mStarted(Clock::now()) {}

    uint32 onMox(uint32 id, void* data, uint32 size) {
        std::lock_guard<std::mutex> lock(mMutex);
        if ((id == 1 || id == 2) && size == sizeof(int32)) {
            int32 value = 0;
            std::memcpy(&value, data, sizeof(value));
            if (id == 1) {
                mLinkLost = mLinkLost || (mLinked && value == 0 && mSearching);
                mLinked = value != 0;
            } else if (!mSettled) {
                mStates.push_back(value);
                mLastChange = Clock::now();
            }
        } else if (id == 3 && size == 1) {
            const uint8 status = *static_cast<const uint8*>(data);
            mDeviceGone = status == 0 || status == 3;
        }
        mChanged.notify_all();
        return 1;
    }

    // Waits for the link; false when the link failed or `deadline` passed.
    bool waitForLink(Clock::time_point deadline, std::string* why) {
        std::unique_lock<std::mutex> lock(mMutex);
        for (;;) {
            if (mLinked) {
                return true;
            }
            if (mDeviceGone) {
                *why = "link lost: the phone could not be reached";
                return false;
            }
            const int32 state = mStates.empty() ? 100 : mStates.back();
            if (state == 20) {
                *why = "error: the phone did not answer the connect";
                return false;
            }
            if (isFailureCode(state)) {
                *why = "phone status " + std::to_string(state) + " on the connect";
                return false;
            }
            if (state == 100 && mStates.size() > 1) {
                *why = "the connect ended without a link";
                return false;
            }
            if (!waitTick(lock, deadline)) {
                *why = "timed out waiting for the phone link";
                return false;
            }
        }
    }

    // Shows the progress line at once, before anything is asked of the
    // module: a lookup always starts by connecting.
    void drawProgress() const {
        std::lock_guard<std::mutex> lock(mMutex);
        drawProgressLocked();
    }

    void markSearching() {
        std::lock_guard<std::mutex> lock(mMutex);
        mSearching = true;
        mSearchFrom = mStates.size();
    }

    // Waits until the result state settles; returns it, or -1 when
    // `deadline` passed first.
    int32 waitForEnd(Clock::time_point deadline) {
        std::unique_lock<std::mutex> lock(mMutex);
        for (;;) {
            if (settledLocked()) {
                mSettled = true;
                return mStates.back();
            }
            if (!waitTick(lock, deadline)) {
                mSettled = true;
                return -1;
            }
        }
    }

    // Waits (bounded) until the link is down after stopLink.
    void waitForUnlink(Clock::time_point deadline) {
        std::unique_lock<std::mutex> lock(mMutex);
        while (mLinked && waitTick(lock, deadline)) {
        }
    }

    std::vector<int32> states() const {
        std::lock_guard<std::mutex> lock(mMutex);
        return mStates;
    }
    bool linked() const {
        std::lock_guard<std::mutex> lock(mMutex);
        return mLinked;
    }

    // The failure in words, from what was notified.
    std::string failure(int32 state) const {
        std::lock_guard<std::mutex> lock(mMutex);
        if (state < 0) {
            return "timed out waiting for the lookup to end (result state " +
                   (mStates.empty() ? std::string("100") : std::to_string(mStates.back())) + ")";
        }
        for (size_t i = mSearchFrom; i < mStates.size(); ++i) {
            if (isFailureCode(mStates[i])) {
                return "phone status " + std::to_string(mStates[i]);
            }
        }
        if (mLinkLost || mDeviceGone) {
            return "link lost";
        }
        for (size_t i = mSearchFrom; i < mStates.size(); ++i) {
            if (mStates[i] == 4) {
                return "timed out: the phone did not answer in time";
            }
            if (mStates[i] == 20) {
                return "error: the phone's answer was refused";
            }
        }
        return "cancelled";
    }

private:
    bool settledLocked() const {
        if (!mSearching || mStates.size() <= mSearchFrom) {
            return false;
        }
        const int32 state = mStates.back();
        if (state == 0 || state == 100 || isFailureCode(state)) {
            return true;
        }
        return state == 20 && Clock::now() - mLastChange >= kErrorGrace;
    }

    // One bounded wait; redraws the progress line. False once `deadline` passed.
    bool waitTick(std::unique_lock<std::mutex>& lock, Clock::time_point deadline) {
        drawProgressLocked();
        const Clock::time_point now = Clock::now();
        if (now >= deadline) {
            return false;
        }
        const Clock::time_point next = now + std::chrono::milliseconds(100);
        mChanged.wait_until(lock, next < deadline ? next : deadline);
        return true;
    }

    void drawProgressLocked() const {
        if (!mProgress) {
            return;
        }
        const double elapsed = std::chrono::duration<double>(Clock::now() - mStarted).count();
        std::string name = mLinked ? "connected" : "connecting";
        if (mSearching && mStates.size() > mSearchFrom) {
            name = stateName(mStates.back());
        } else if (mSearching) {
            name = "searching";
        }
        if (mLinkLost) {
            name = "link lost";
        }
        std::fprintf(stderr, "\r\033[K%s  %.1f s", name.c_str(), elapsed);
        std::fflush(stderr);
    }

    const bool mProgress;
    const Clock::time_point mStarted;
    mutable std::mutex mMutex;
    std::condition_variable mChanged;
    std::vector<int32> mStates;  // every result state notified, until settled
    size_t mSearchFrom = 0;      // index of the first state after search()
    Clock::time_point mLastChange = Clock::now();
    bool mLinked = false;
    bool mLinkLost = false;
    bool mDeviceGone = false;
    bool mSearching = false;
    bool mSettled = false;
};

// The module's debug messages, in order, each without its final line feed.
// A phone can make the module log without end (every unknown frame is one
// message), so only the first kLogLinesKept messages are kept and the rest
// are counted; lines() then ends with one line saying how many were left out.
class LogCapture {
public:
    static const size_t kLogLinesKept = 1000;

    // With `echo`, every message also goes to stderr as it comes.
    explicit LogCapture(bool echo) {
        mPrevious = HbDbgOutput::SetSink([this, echo](const HbDbgRecord& record) {
            if (echo) {
                std::cerr << HbDbgOutput::Render(record);
            }
            std::lock_guard<std::mutex> lock(mMutex);
            const bool refusal = mRefusal.empty() && record.file == HbFileSysHost::SOURCE;
            const bool kept = mLines.size() < kLogLinesKept;
            if (!kept) {
                ++mLeftOut;
            }
            if (!kept && !refusal) {
                return;
            }
            std::string text = record.text;
            if (!text.empty() && text.back() == '\n') {
                text.pop_back();
            }
            if (refusal) {
                mRefusal = text;
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

private:
    mutable std::mutex mMutex;
    std::vector<std::string> mLines;  // at most kLogLinesKept
    uint64_t mLeftOut = 0;
    std::string mRefusal;
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
    const Clock::time_point deadline =
        Clock::now() + std::chrono::milliseconds(static_cast<long>(options.timeoutSeconds * 1000));
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
        const std::vector<int32> states = watch.states();
        outcome.state = states.empty() ? 100 : states.back();
    }
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
    }
    const bool ok = outcome.state == 0 && outcome.found;
    if (options.json) {
        Json out = Json::object();
        out["ok"] = ok;
        out["state"] = outcome.state;
        out["states"] = watch.states();
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
    disc->add_option("--toc", options->toc, "the disc's TOC text, sent as it is");
    lookup
        ->add_option("--phone", options->phone,
                     "builtin (the simulator in this process), unix:PATH or tcp:HOST:PORT")
        ->capture_default_str();
    lookup->add_option("--catalog", options->catalog,
                       "catalogue of the built-in phone (default: the bundled sample)");
    lookup->add_option("--fault", options->faults, "fault of the built-in phone (repeatable)");
    lookup->add_option("--kind", options->kind, "lookup kind (0-255)")
        ->check(CLI::Range(0, 255))
        ->capture_default_str();
    lookup->add_option("--param1", options->param1, "first lookup parameter (0-65535)")
        ->check(CLI::Range(0, 65535))
        ->capture_default_str();
    lookup->add_option("--param2", options->param2, "second lookup parameter (0-65535)")
        ->check(CLI::Range(0, 65535))
        ->capture_default_str();
    lookup->add_flag("--json", options->json,
                     "print one JSON object: ok, state, states, albums, log, result_dir");
    lookup->add_option("--timeout", options->timeoutSeconds, "bound on the whole wait, seconds")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    lookup->add_flag("--verbose", options->verbose,
                     "the module's debug messages and the built-in phone's frames on stderr");
    return Command{lookup, [options]() { return runLookup(*options); }};
}
