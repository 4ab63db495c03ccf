// mox-phone: the phone application simulator. Listens on a Unix or TCP
// endpoint and answers the module's lookups from a catalogue, with faults.
#include <sys/types.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <csignal>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "moxcapture/CaptureReader.h"
#include "moxcapture/LinkCapture.h"
#include "moxphone/Catalogue.h"
#include "moxphone/Endpoint.h"
#include "moxphone/Faults.h"
#include "moxphone/PhoneConnection.h"
#include "moxphone/PhoneLog.h"
#include "moxphone/PhoneOptions.h"
#include "moxphone/PhoneServer.h"
#include "moxphone/PhoneSourceOptions.h"
#include "moxphone/ReplaySession.h"

namespace {

enum ExitCode { kOk = 0, kFailed = 1, kBadUsage = 2 };

int usageError(const std::string& reason) {
    std::cerr << "mox-phone: " << reason << "\n";
    return kBadUsage;
}

// Reads the capture that --replay names and makes every connection replay
// it, its gaps multiplied by `timeScale`. False with a one-line reason.
bool setUpReplay(const std::string& path, double timeScale, moxphone::PhoneServer* server,
                 std::string* error) {
    auto capture = std::make_shared<moxcapture::CaptureReader::Capture>();
    if (!moxcapture::CaptureReader::readFile(path, capture.get(), error)) {
        return false;
    }
    const std::string problem = moxphone::ReplaySession::problem(*capture);
    if (!problem.empty()) {
        *error = "cannot replay " + path + ": " + problem;
        return false;
    }
    server->setSessionFactory([capture, timeScale](moxphone::LinkSession::Transport& transport,
                                                   moxphone::Scheduler& scheduler,
                                                   moxphone::PhoneLog& log) {
        return std::unique_ptr<moxphone::LinkSession>(
            new moxphone::ReplaySession(*capture, timeScale, transport, scheduler, log));
    });
    return true;
}

// A user ID as --allow-uid takes it: decimal digits, 0 to 4294967294
// ((uid_t)-1 names no user).
bool parseUid(const std::string& text, uid_t* uid) {
    if (text.empty() || text.size() > 10 ||
        !std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; })) {
        return false;
    }
    const unsigned long long value = std::stoull(text);
    if (value >= 4294967295ULL) {
        return false;
    }
    *uid = static_cast<uid_t>(value);
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{
        "mox-phone - the phone application simulator: answers the music-information module's "
        "lookups from a catalogue, with faults on demand"};
    std::string listen;
    std::string catalogPath = moxphone::Catalogue::bundledPath();
    uint32_t chunkSize = moxphone::PhoneOptions::kDefaultChunkSize;
    uint32_t notFoundStatus = moxphone::PhoneOptions::kDefaultNotFoundStatus;
    std::string os = "android";
    std::vector<std::string> faultTexts;
    std::vector<std::string> allowedUids;
    bool allowOtherUsers = false;
    bool quiet = false;
    bool allowRemote = false;
    bool listFaults = false;
    std::string capturePath;
    std::string replayPath;
    double replaySpeed = 1.0;
    app.add_option("--listen", listen,
                   "Endpoint: unix:PATH or tcp:127.0.0.1:PORT; up to 64 modules are served at "
                   "once, each dropped after 30 s without traffic");
    app.add_option("--catalog", catalogPath, "Catalogue JSON file (default: the bundled sample)");
    moxphone::PhoneSourceOptions sourceOptions;
    sourceOptions.addTo(app);
    app.add_option("--chunk-size", chunkSize, "Payload bytes per database chunk (default 4096)")
        ->type_name("N");
    app.add_option("--not-found-status", notFoundStatus,
                   "Status answered for a disc that is not in the catalogue (default 404)")
        ->type_name("N");
    app.add_option("--os", os, "OS type of the device info: android (default) or ios");
    app.add_option("--fault", faultTexts, "Fault NAME or NAME=VALUE; repeatable (--list-faults)");
    app.add_flag("--quiet", quiet, "Log nothing");
    app.add_flag("--allow-remote", allowRemote, "Allow a TCP address that is not a loopback one");
    app.add_option("--allow-uid", allowedUids,
                   "On a unix: endpoint, serve the processes of this user ID too (only those of "
                   "the user running mox-phone otherwise); repeatable")
        ->type_name("UID");
    app.add_flag("--allow-other-users", allowOtherUsers,
                 "On a unix: endpoint, serve the processes of every user");
    app.add_flag("--list-faults", listFaults, "List the faults and what each leads to, then exit");
    app.add_option("--capture", capturePath,
                   "Record every connection's envelopes into a pcap file (Wireshark: moxlink.lua)")
        ->type_name("FILE");
    app.add_option("--replay", replayPath,
                   "Play the phone side of a capture to every module that connects: the "
                   "recorded answers with their gaps; each request that differs from the "
                   "recorded one is logged")
        ->option_text("FILE");
    app.add_option("--replay-speed", replaySpeed,
                   "Replay X times as fast as recorded (default 1; HB_TIMER_SCALE applies too)")
        ->option_text("X");
    app.set_version_flag("--version", std::string("mox-phone ") + MOX_VERSION);
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForVersion& e) {
        return app.exit(e);
    } catch (const CLI::ParseError& e) {
        app.exit(e);
        return kBadUsage;
    }
    if (listFaults) {
        std::cout << moxphone::Faults::listText();
        return kOk;
    }
    if (!(replaySpeed > 0 && replaySpeed <= 1000000)) {
        return usageError("--replay-speed must be above 0");
    }
    if (!replayPath.empty() && !faultTexts.empty()) {
        return usageError("--fault does not go with --replay: the capture holds the answers");
    }
    if (listen.empty()) {
        return usageError("--listen is required (unix:PATH or tcp:127.0.0.1:PORT)");
    }
    std::string error;
    moxphone::Endpoint endpoint;
    if (!moxphone::Endpoint::parse(listen, &endpoint, &error)) {
        return usageError(error);
    }
    std::vector<uid_t> uids;
    for (const std::string& text : allowedUids) {
        uid_t uid = 0;
        if (!parseUid(text, &uid)) {
            return usageError("--allow-uid takes a numeric user ID, not '" + text + "'");
        }
        uids.push_back(uid);
    }
    if ((!uids.empty() || allowOtherUsers) && endpoint.kind() != moxphone::Endpoint::Kind::kUnix) {
        return usageError(
            "--allow-uid and --allow-other-users are for unix: endpoints (on TCP every local "
            "user can connect)");
    }

    moxphone::PhoneOptions options;
    if (!moxphone::PhoneOptions::parseOs(os, &options.osType)) {
        return usageError("--os must be android or ios, not '" + os + "'");
    }
    if (notFoundStatus < 1 || notFoundStatus > 65535) {
        return usageError("--not-found-status must be from 1 to 65535");
    }
    options.notFoundStatus = static_cast<uint16_t>(notFoundStatus);
    options.chunkSize = chunkSize;
    for (const std::string& fault : faultTexts) {
        if (!options.faults.add(fault, &error)) {
            return usageError(error);
        }
    }
    auto catalogue = std::make_shared<moxphone::Catalogue>();
    moxphone::CatalogueProblem problem;
    if (!moxphone::Catalogue::loadFile(catalogPath, catalogue.get(), &problem)) {
        return usageError("cannot load the catalogue " + catalogPath + ": " + problem.text());
    }
    options.catalogue = catalogue;
    options.timeScale = moxphone::PhoneOptions::timeScaleFromEnvironment();
    if (!sourceOptions.makeSource("mox-phone", MOX_VERSION, options.timeScale, &options.source,
                                  &error) ||
        !options.validate(&error)) {
        return usageError(error);
    }

    moxphone::PhoneLog log(quiet ? nullptr : &std::cerr);
    // The idle time follows the phone's delays under HB_TIMER_SCALE.
    moxphone::PhoneServer::Limits limits;
    limits.connection = moxphone::PhoneConnection::Limits::scaledBy(options.timeScale);
    // Declared before the server, which hands it bytes until it is gone.
    moxcapture::LinkCapture capture;
    if (!capturePath.empty() && !capture.open(capturePath, &error)) {
        std::cerr << "mox-phone: " << error << "\n";
        return kFailed;
    }
    moxphone::PhoneServer server(options, log, limits);
    if (!capturePath.empty()) {
        server.setTap(&capture);
    }
    if (!replayPath.empty() &&
        !setUpReplay(replayPath, options.timeScale / replaySpeed, &server, &error)) {
        std::cerr << "mox-phone: " << error << "\n";
        return kFailed;
    }
    for (const uid_t uid : uids) {
        server.allowUid(uid);
    }
    if (allowOtherUsers) {
        server.allowOtherUsers();
    }
    // A module that hangs up is seen as a failed send, not a signal.
    std::signal(SIGPIPE, SIG_IGN);
    // Before the socket exists: a signal that comes once it does always
    // ends the server cleanly. No other thread runs yet, so the signals are
    // blocked in every thread the process will have.
    if (!server.stopOnSignals({SIGINT, SIGTERM}, &error)) {
        std::cerr << "mox-phone: " << error << "\n";
        return kFailed;
    }
    if (!server.listen(listen, allowRemote, &error)) {
        std::cerr << "mox-phone: " << error << "\n";
        return error.find("allow-remote") != std::string::npos ? kBadUsage : kFailed;
    }
    log.line("catalogue " + catalogPath + ": " + std::to_string(catalogue->discs().size()) +
             " discs");
    if (!sourceOptions.isCatalogue()) {
        log.line("discs are looked up in " + sourceOptions.describe());
    }
    for (const std::string& fault : options.faults.given()) {
        log.line("fault in force: " + fault);
    }
    server.run();
    return kOk;
}
