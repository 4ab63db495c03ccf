// mox lookup end to end: the module, the phone link and the phone simulator,
// in-process (builtin), over a Unix socket and over TCP, for every disc of
// the sample catalogue and every fault of the simulator. The example program
// is run against the simulator too.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <signal.h>
#include <spawn.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <nlohmann/json.hpp>
#include <ostream>
#include <string>
#include <tuple>
#include <vector>

#include "AlbumIds.h"
#include "ChildProgram.h"
#include "CliRun.h"
#include "DiscImageFiles.h"
#include "FaultStates.h"
#include "HbFramework/HbFileSysHost.h"
#include "JsonSchemaCheck.h"
#include "LinkWire.h"
#include "MeasuredRun.h"
#include "PhoneProcess.h"
#include "RawPhone.h"
#include "TerminalProgram.h"
#include "TestDir.h"
#include "moxphone/Faults.h"

extern char** environ;

namespace {

using Json = nlohmann::json;
using States = std::vector<int>;

const std::string kMox = MOX_CLI_PATH;
const std::string kPhone = MOX_PHONE_PATH;
const std::string kExample = MOX_EXAMPLE_PATH;
const std::string kDisc1 = "0000960046E6008D3600D386";

class MoxLookupTest : public ::testing::Test {
protected:
    void SetUp() override {
        // Every command timer of the module and every delay of the phone
        // runs at 1/50 of its time: a silent phone costs 200 ms, not 10 s.
        setenv("HB_TIMER_SCALE", "0.02", 1);
        // The module's messages are kept in the JSON's log; with
        // HB_DBG_OUTPUT set they would also be written out.
        setenv("HB_DBG_OUTPUT", "off", 1);
    }

    CliResult lookup(const std::vector<std::string>& args) {
        std::vector<std::string> all = {"lookup"};
        all.insert(all.end(), args.begin(), args.end());
        return runCli(kMox, all, dir);
    }

    // Runs a JSON lookup and parses its one object.
    Json lookupJson(const std::vector<std::string>& args, int expectedStatus) {
        std::vector<std::string> all = args;
        all.push_back("--json");
        const CliResult result = lookup(all);
        EXPECT_EQ(result.status, expectedStatus) << result.err;
        return checkedJson(result.out, result.status, result.err);
    }

    // The one object of `mox lookup --json`, valid against its published
    // schema, its "ok" true exactly when the status is 0, and its error's
    // message the line on stderr.
    static Json checkedJson(const std::string& text, int status, const std::string& err) {
        if (!Json::accept(text)) {
            ADD_FAILURE() << "not one JSON object: " << text << "\n" << err;
            return Json::object();
        }
        EXPECT_EQ(JsonSchemaCheck::problems("mox-lookup", text), "") << text;
        const Json out = Json::parse(text);
        EXPECT_EQ(out.value("ok", false), status == 0) << text;
        if (out.contains("error")) {
            const std::string message = out.at("error").value("message", "");
            EXPECT_EQ(err.substr(err.rfind('\n', err.size() - 2) + 1),
                      "mox lookup: " + message + "\n");
        }
        return out;
    }

    TestDir dir{"MoxLookupTest"};
};

// --- The sample catalogue, disc by disc ---------------------------------------------

struct DiscCase {
    const char* toc;
    std::vector<std::string> albums;  // best first, as the module returns them
};

// How GoogleTest shows a case: its TOC text.
void PrintTo(const DiscCase& disc, std::ostream* out) {
    *out << disc.toc;
}

class MoxLookupDiscTest : public MoxLookupTest, public ::testing::WithParamInterface<DiscCase> {};

TEST_P(MoxLookupDiscTest, Builtin_ReturnsExactlyTheDiscsCandidatesBestFirst) {
    const Json out = lookupJson({"--toc", GetParam().toc}, 0);
    EXPECT_EQ(out.value("ok", false), true);
    EXPECT_EQ(out.value("state", -1), 0);
    EXPECT_EQ(out.at("states").get<States>(), (States{101, 102, 103, 0}));
    EXPECT_EQ(moxtest::albumIds(out.at("albums")), GetParam().albums);
}

INSTANTIATE_TEST_SUITE_P(
    SampleCatalogue, MoxLookupDiscTest,
    ::testing::Values(DiscCase{"0000960046E6008D3600D386", {"MOXS-0001"}},
                      DiscCase{"000096004EB600A0BE00ECEA013916", {"MOXS-0002"}},
                      DiscCase{"00009600623E00B82E011206", {"MOXS-0002"}},
                      // MOXS-0005 (confidence 88) has six tracks: the rule removes it.
                      DiscCase{"00009600410A00827800C31E0102660146C2", {"MOXS-0003", "MOXS-0004"}},
                      DiscCase{"000096003B2E0079AE00B82E", {"MOXS-0006"}},
                      DiscCase{"000096004ACE0096FA00DF3E012976", {"MOXS-0007"}},
                      DiscCase{"0000960075C600CBB601602601D556", {"MOXS-0009", "MOXS-0008"}},
                      DiscCase{"000096003F1600817E00BFFE010266", {"MOXS-0010"}}),
    // Each case by its TOC text, so that one disc can be run by name.
    [](const ::testing::TestParamInfo<DiscCase>& info) {
        return std::string("Toc") + info.param.toc;
    });

TEST_F(MoxLookupTest, TwoDiscAlbum_EachMediumReportsItsNumberAndTracks) {
    const Json first = lookupJson({"--toc", "000096004EB600A0BE00ECEA013916"}, 0);
    const Json second = lookupJson({"--toc", "00009600623E00B82E011206"}, 0);
    ASSERT_EQ(first.at("albums").size(), 1u);
    ASSERT_EQ(second.at("albums").size(), 1u);
    EXPECT_EQ(first["albums"][0]["MediaNum"], 1);
    EXPECT_EQ(first["albums"][0]["MediaCount"], 2);
    EXPECT_EQ(first["albums"][0]["Tracks"].size(), 4u);
    EXPECT_EQ(second["albums"][0]["MediaNum"], 2);
    EXPECT_EQ(second["albums"][0]["Tracks"].size(), 3u);
}

TEST_F(MoxLookupTest, JapaneseAndUnknownGenre_AreMappedByTheModule) {
    const Json japanese = lookupJson({"--toc", "000096003B2E0079AE00B82E"}, 0);
    ASSERT_EQ(japanese.at("albums").size(), 1u);
    EXPECT_EQ(japanese["albums"][0]["AlbumLang"], 3);
    EXPECT_EQ(japanese["albums"][0]["AlbumName"], "夜明けの街");
    const Json unknownGenre = lookupJson({"--toc", "000096004ACE0096FA00DF3E012976"}, 0);
    ASSERT_EQ(unknownGenre.at("albums").size(), 1u);
    EXPECT_EQ(unknownGenre["albums"][0]["GenreID"], 0);
}

TEST_F(MoxLookupTest, Offsets_AreTurnedIntoTheTocText) {
    const Json out = lookupJson({"--offsets", "150", "18150", "36150", "54150"}, 0);
    EXPECT_EQ(moxtest::albumIds(out.at("albums")), (std::vector<std::string>{"MOXS-0001"}));
}

TEST_F(MoxLookupTest, CueSheet_LooksUpTheDiscItDescribes) {
    // Three tracks of 18000 sectors from LBA 0: the TOC of sample disc 1.
    const std::string sheet = DiscImageFiles::writeBinCue(
        dir.path(), "disc1", {{18000, 0, true}, {18000, 0, true}, {18000, 0, true}});
    const Json out = lookupJson({"--cue", sheet}, 0);
    EXPECT_EQ(moxtest::albumIds(out.at("albums")), (std::vector<std::string>{"MOXS-0001"}));
}

TEST_F(MoxLookupTest, CdrdaoImage_LooksUpTheDiscItDescribes) {
    const std::string toc = DiscImageFiles::writeCdrdaoToc(
        dir.path(), "disc1", {{18000, 0, true}, {18000, 0, true}, {18000, 0, true}});
    const Json out = lookupJson({"--image", toc}, 0);
    EXPECT_EQ(moxtest::albumIds(out.at("albums")), (std::vector<std::string>{"MOXS-0001"}));
}

// The sheet is refused before libcdio reads it (which writes into freed
// memory on it), and before any phone is asked.
TEST_F(MoxLookupTest, CueSheetTrackNumbersNotFrom1_RefusedBeforeTheLookup) {
    const std::string cue = DiscImageFiles::writeMisnumberedBinCue(dir.path(), "a");
    const CliResult result = lookup({"--cue", cue});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "mox lookup: " + cue +
                              ": TRACK 99 where track 1 should be (track numbers start at 1 and "
                              "rise by 1)\n");
}

TEST_F(MoxLookupTest, MissingCueSheet_IsBadUsage) {
    const CliResult result = lookup({"--cue", dir.file("none.cue")});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err.rfind("mox lookup: ", 0), 0u) << result.err;
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1);
}

TEST_F(MoxLookupTest, OnATerminal_ShowsTheStateByNameAndClearsTheLineAtTheEnd) {
    TerminalProgram run(kMox, {"lookup", "--toc", kDisc1}, dir.file("out"));
    ASSERT_TRUE(run.started());
    EXPECT_EQ(run.wait(), 0);
    const std::string shown = run.shown();
    EXPECT_EQ(shown.rfind("\r\033[Kconnecting  ", 0), 0u) << shown;
    EXPECT_NE(shown.find(" s"), std::string::npos);
    const std::string clear = "\r\033[K";
    ASSERT_GE(shown.size(), clear.size());
    EXPECT_EQ(shown.substr(shown.size() - clear.size()), clear);
}

TEST_F(MoxLookupTest, Table_ListsTheAlbumsAndNothingOnStderr) {
    const CliResult result = lookup({"--toc", kDisc1});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out.rfind("1 album\n\n[1] Northern Roads  (id MOXS-0001)\n", 0), 0u)
        << result.out;
    EXPECT_NE(result.out.find("Open Highway"), std::string::npos);
    // Not a terminal: no progress line.
    EXPECT_EQ(result.err, "");
}

TEST_F(MoxLookupTest, UnknownDisc_FailsWithThePhonesStatus) {
    const CliResult result = lookup({"--toc", "000096001234"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "mox lookup: the phone does not know this disc (phone status 404)\n");
}

TEST_F(MoxLookupTest, StatusOnTheConnect_FailsAtOnceNamingIt) {
    const CliResult result = lookup({"--toc", kDisc1, "--fault", "status-connect=503"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "mox lookup: the phone failed on the connect (phone status 503)\n");
}

TEST_F(MoxLookupTest, Json_LogHoldsTheModulesMessages) {
    const Json out = lookupJson({"--toc", kDisc1, "--fault", "wrong-chunk-index"}, 1);
    const std::vector<std::string> log = out.at("log").get<std::vector<std::string>>();
    EXPECT_NE(std::find(log.begin(), log.end(), "index error."), log.end());
}

// --- Failures in words --------------------------------------------------------------

// An answer with no album for the disc is a failure like an unknown disc:
// "ok" false, exit status 1.
TEST_F(MoxLookupTest, AnswerWithoutAnAlbum_IsNotFoundAndNotOk) {
    const std::string catalog = dir.file("empty-disc.json");
    std::ofstream(catalog)
        << R"({"albums": [], "discs": [{"toc": "000096001234", "candidates": []}]})";
    const Json out = lookupJson({"--catalog", catalog, "--toc", "000096001234"}, 1);
    EXPECT_EQ(out.at("state"), 0);
    EXPECT_EQ(out.at("albums"), Json::array());
    EXPECT_EQ(out.at("error"),
              Json({{"kind", "not_found"}, {"message", "no album found for this disc"}}));
}

// --timeout bounds the wait for another run that holds a shared result
// directory, as it bounds the lookup.
TEST_F(MoxLookupTest, TimeoutPassesWhileAnotherRunHoldsTheDirectory_TimedOutSayingWhy) {
    const std::string given = dir.file("shared") + "/";
    ASSERT_EQ(::mkdir(given.c_str(), 0700), 0);
    const int holder = ::open(given.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_GE(holder, 0);
    ASSERT_EQ(::flock(holder, LOCK_EX), 0);
    MeasuredRun run(kMox, {"lookup", "--toc", kDisc1, "--json", "--timeout", "0.3"}, dir,
                    {"MOX_RESULT_DIR=" + given});
    const MeasuredRun::Result result = run.finish(30);
    ::close(holder);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "mox lookup: waiting for another run that uses " + given +
                              "\nmox lookup: timed out waiting for another run that uses " + given +
                              "\n");
    const Json out = checkedJson(result.out, result.status, result.err);
    EXPECT_EQ(out.at("error").at("kind"), "timed_out");
    EXPECT_EQ(out.at("states"), Json::array());
    EXPECT_EQ(out.at("state"), 100);
}

// HB_DBG_OUTPUT=<file> receives the module's messages, as it does for mox
// search; stderr keeps only the one line of the failure.
TEST_F(MoxLookupTest, DebugOutputFile_ReceivesTheModulesMessages) {
    const std::string file = dir.file("debug.log");
    MeasuredRun run(kMox, {"lookup", "--toc", kDisc1, "--fault", "wrong-chunk-index"}, dir,
                    {"HB_DBG_OUTPUT=" + file});
    const MeasuredRun::Result result = run.finish(30);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "mox lookup: the phone's answer was refused: index error.\n");
    std::ifstream in(file);
    const std::string written((std::istreambuf_iterator<char>(in)),
                              std::istreambuf_iterator<char>());
    EXPECT_EQ(written.rfind("private/MoxProtocol.cpp:", 0), 0u) << written;
    EXPECT_NE(written.find(" rcvCmdReturnCdMetaInfo: index error.\n"), std::string::npos)
        << written;
}

// A result directory that cannot be made is the cause, with the system's
// reason; not "the phone's answer was refused".
TEST_F(MoxLookupTest, ResultDirectoryCannotBeMade_CannotStoreWithTheSystemsReason) {
    TestDir::writeFile(dir.file("plain"), {0});
    const std::string given = dir.file("plain") + "/answers/";
    MeasuredRun run(kMox, {"lookup", "--toc", kDisc1, "--json"}, dir, {"MOX_RESULT_DIR=" + given});
    const MeasuredRun::Result result = run.finish(30);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "mox lookup: cannot store the answer: cannot create " + given +
                              ": Not a directory\n");
    const Json out = checkedJson(result.out, result.status, result.err);
    EXPECT_EQ(out.at("error").at("kind"), "cannot_store");
}

// --- Ctrl-C and SIGTERM -------------------------------------------------------------------
// The phone sends its answer slowly (3 s before the chunk, inside the
// module's 10 s timer); the signal comes once the transfer has begun.

class MoxLookupSignalTest : public MoxLookupTest {
protected:
    void SetUp() override {
        MoxLookupTest::SetUp();
        setenv("HB_TIMER_SCALE", "1", 1);
        phone.reset(new PhoneProcess(kPhone, "unix:" + dir.file("phone.sock"),
                                     {"--fault", "slow-chunks=3000"}));
        ASSERT_FALSE(phone->endpoint().empty());
    }

    void waitForTheTransfer() {
        EXPECT_NE(phone->waitForLine("mox-phone: sending the database"), "");
    }

    std::unique_ptr<PhoneProcess> phone;
};

TEST_F(MoxLookupSignalTest, CtrlCOnTheTerminal_TellsThePhoneClearsTheLineExits130) {
    TerminalProgram run(kMox, {"lookup", "--toc", kDisc1, "--phone", phone->endpoint()},
                        dir.file("out"));
    ASSERT_TRUE(run.started());
    waitForTheTransfer();
    ASSERT_TRUE(run.waitForShown("searching"));
    run.typeCtrlC();
    EXPECT_EQ(run.wait(), 130);
    const std::string shown = run.shown();
    const std::string end = "\r\033[Kmox lookup: cancelled by SIGINT\r\n";
    ASSERT_GE(shown.size(), end.size()) << shown;
    EXPECT_EQ(shown.substr(shown.size() - end.size()), end) << shown;
    EXPECT_EQ(phone->waitForLine("mox-phone: <- 0x0002 disconnect"),
              "mox-phone: <- 0x0002 disconnect (2 bytes)");
    EXPECT_EQ(TestDir::readFile(dir.file("out")).size(), 0u);
}

TEST_F(MoxLookupSignalTest, SigtermWithJson_PrintsTheCancelledObjectAndLeavesNoPartialFile) {
    const std::string given = dir.file("shared") + "/";
    ChildProgram run(kMox, {"lookup", "--toc", kDisc1, "--phone", phone->endpoint(), "--json"},
                     {"MOX_RESULT_DIR=" + given});
    waitForTheTransfer();
    run.signal(SIGTERM);
    EXPECT_EQ(run.wait(), 143);
    EXPECT_EQ(run.err(), "mox lookup: cancelled by SIGTERM\n");
    const Json out = checkedJson(run.out(), 143, run.err());
    EXPECT_EQ(out.at("error"), Json({{"kind", "cancelled"}, {"message", "cancelled by SIGTERM"}}));
    EXPECT_EQ(out.at("state"), 103);
    EXPECT_EQ(out.at("states"), Json({101, 102, 103}));
    EXPECT_EQ(phone->waitForLine("mox-phone: <- 0x0002 disconnect"),
              "mox-phone: <- 0x0002 disconnect (2 bytes)");
    EXPECT_FALSE(std::filesystem::exists(given + "dbupdateresponse.dap3"));
}

// --- Faults, over each transport --------------------------------------------------------

struct FaultCase {
    std::vector<std::string> faults;
    int status;
    std::string error;  // "kind: message" of the failure, "" when albums were found
    // The states of a combination of faults, which the fault table does not
    // document; those of one fault alone are the table's (documentedStates).
    States combined = {};
};

// The result states the case must reach.
States expectedStates(const FaultCase& fault) {
    if (!fault.combined.empty()) {
        return fault.combined;
    }
    const std::vector<uint32_t> documented = fault.faults.empty()
                                                 ? moxphone::Faults::normalStates()
                                                 : moxtest::documentedStates(fault.faults[0]);
    return States(documented.begin(), documented.end());
}

const std::vector<FaultCase>& faultCases() {
    static const std::string kSilent = "timed_out: timed out: the phone did not answer in time";
    static const std::string k503 = "phone_failed: the phone failed (phone status 503)";
    static const std::string kLost = "link_lost: link lost";
    static const std::string kIndex = "refused: the phone's answer was refused: index error.";
    static const std::string kSize = "refused: the phone's answer was refused: size error";
    static const std::vector<FaultCase> cases = {
        {{}, 0, ""},
        {{"silent-after-connect"}, 1, "timed_out: timed out: the phone did not answer the connect"},
        {{"silent-after-lookup"}, 1, kSilent},
        {{"silent-after-notice"}, 1, kSilent},
        {{"silent-mid-transfer"}, 1, kSilent},
        {{"status-connect=503"},
         1,
         "phone_failed: the phone failed on the connect (phone status 503)"},
        {{"status-ack=503"}, 1, k503},
        {{"status-notice=503"}, 1, k503},
        {{"status-chunk=503"}, 1, k503},
        // A failure code that is "searching" itself makes the module cancel.
        {{"status-ack=103"}, 1, "cancelled: the module cancelled the search"},
        {{"status-cancel=503"}, 0, ""},
        {{"status-cancel=503", "silent-after-lookup"}, 1, kSilent, {101, 102, 103, 4, 104, 503}},
        {{"wrong-chunk-index"}, 1, kIndex},
        {{"repeated-chunk"}, 1, kIndex},
        {{"chunk-count-zero"}, 1, kIndex},
        {{"short-notice"}, 1, kSize},
        {{"length-short"}, 1, kSize},
        {{"length-long"}, 1, kSize},
        {{"drop-mid-transfer"}, 1, kLost},
        {{"garbage-length-zero"}, 1, kLost},
        {{"garbage-oversize"}, 1, kLost},
        {{"garbage-type"}, 1, kLost},
        {{"slow-chunks=100"}, 0, ""},
        {{"slow-chunks=20000"}, 1, kSilent},
        {{"no-cancel-answer"}, 0, ""},
        {{"no-cancel-answer", "silent-after-lookup"}, 1, kSilent, {101, 102, 103, 4, 104, 100}},
    };
    return cases;
}

std::string faultName(const std::vector<std::string>& faults) {
    std::string name;
    for (const std::string& fault : faults) {
        name += (name.empty() ? "" : "_and_") + fault;
    }
    if (name.empty()) {
        return "none";
    }
    for (char& c : name) {
        if (!std::isalnum(static_cast<unsigned char>(c))) {
            c = '_';
        }
    }
    return name;
}

enum class Transport { BUILTIN, UNIX, TCP };

// How GoogleTest shows a transport: as --phone names it.
void PrintTo(Transport transport, std::ostream* out) {
    *out << (transport == Transport::BUILTIN ? "builtin"
             : transport == Transport::UNIX  ? "unix"
                                             : "tcp");
}

// How GoogleTest shows a fault case: its faults as the test name gives them.
void PrintTo(const FaultCase& fault, std::ostream* out) {
    *out << faultName(fault.faults);
}

class MoxLookupFaultTest : public MoxLookupTest,
                           public ::testing::WithParamInterface<std::tuple<Transport, FaultCase>> {
};

TEST_P(MoxLookupFaultTest, EndsInTheDocumentedStatesAndExitStatus) {
    const Transport transport = std::get<0>(GetParam());
    const FaultCase& fault = std::get<1>(GetParam());
    const States states = expectedStates(fault);
    ASSERT_FALSE(states.empty());
    std::vector<std::string> args = {"--toc", kDisc1, "--timeout", "30"};
    std::unique_ptr<PhoneProcess> phone;
    if (transport == Transport::BUILTIN) {
        for (const std::string& name : fault.faults) {
            args.push_back("--fault");
            args.push_back(name);
        }
    } else {
        std::vector<std::string> phoneArgs;
        for (const std::string& name : fault.faults) {
            phoneArgs.push_back("--fault");
            phoneArgs.push_back(name);
        }
        const std::string endpoint = transport == Transport::UNIX ? "unix:" + dir.file("phone.sock")
                                                                  : std::string("tcp:127.0.0.1:0");
        phone.reset(new PhoneProcess(kPhone, endpoint, phoneArgs));
        ASSERT_FALSE(phone->endpoint().empty());
        args.push_back("--phone");
        args.push_back(phone->endpoint());
    }
    const Json out = lookupJson(args, fault.status);
    EXPECT_EQ(out.value("states", States{}), states);
    EXPECT_EQ(out.value("state", -1), states.back());
    EXPECT_EQ(out.value("ok", true), fault.status == 0);
    const Json error = out.value("error", Json::object());
    EXPECT_EQ(error.empty() ? "" : error.value("kind", "") + ": " + error.value("message", ""),
              fault.error);
}

INSTANTIATE_TEST_SUITE_P(
    EveryFault, MoxLookupFaultTest,
    ::testing::Combine(::testing::Values(Transport::BUILTIN, Transport::UNIX, Transport::TCP),
                       ::testing::ValuesIn(faultCases())),
    [](const ::testing::TestParamInfo<std::tuple<Transport, FaultCase>>& info) {
        const Transport transport = std::get<0>(info.param);
        const std::string prefix = transport == Transport::BUILTIN ? "builtin"
                                   : transport == Transport::UNIX  ? "unix"
                                                                   : "tcp";
        return prefix + "_" + faultName(std::get<1>(info.param).faults);
    });

// --- Usage and environment ------------------------------------------------------------------

TEST_F(MoxLookupTest, NoTocSource_IsBadUsage) {
    const CliResult result = lookup({});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_NE(result.err.find("--toc"), std::string::npos) << result.err;
}

TEST_F(MoxLookupTest, TocAndOffsetsTogether_IsBadUsage) {
    const CliResult result = lookup({"--toc", kDisc1, "--offsets", "150", "300"});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.out, "");
}

TEST_F(MoxLookupTest, OffsetsThatDoNotIncrease_AreRefused) {
    const CliResult result = lookup({"--offsets", "300", "150"});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "mox lookup: offsets do not increase: 300 then 150\n");
}

TEST_F(MoxLookupTest, UnknownFault_IsBadUsage) {
    const CliResult result = lookup({"--toc", kDisc1, "--fault", "no-such-fault"});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err.rfind("mox lookup: ", 0), 0u) << result.err;
}

TEST_F(MoxLookupTest, FaultWithAnotherPhone_IsBadUsage) {
    const CliResult result =
        lookup({"--toc", kDisc1, "--phone", "unix:/nowhere", "--fault", "short-notice"});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.err, "mox lookup: --fault and --catalog need --phone builtin\n");
}

TEST_F(MoxLookupTest, CatalogueThatDoesNotLoad_IsBadUsage) {
    TestDir::writeFile(dir.file("bad.json"), {'{', '}'});
    const CliResult result = lookup({"--toc", kDisc1, "--catalog", dir.file("bad.json")});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err.rfind("mox lookup: " + dir.file("bad.json") + ": ", 0), 0u) << result.err;
}

TEST_F(MoxLookupTest, CatalogueThatIsAFifo_IsBadUsageAtOnce) {
    const std::string fifo = dir.file("catalog.json");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    MeasuredRun run(kMox, {"lookup", "--toc", kDisc1, "--catalog", fifo}, dir);
    const MeasuredRun::Result result = run.finish(30);
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "mox lookup: " + fifo + ": not a regular file\n");
}

TEST_F(MoxLookupTest, NoPhoneAtTheSocket_NamesTheEndpointAndTheSystemsReason) {
    const std::string socket = dir.file("none.sock");
    const CliResult result = lookup({"--toc", kDisc1, "--phone", "unix:" + socket});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "mox lookup: no phone: cannot connect to unix:" + socket +
                              ": No such file or directory\n");
}

TEST_F(MoxLookupTest, NoPhoneAtTheTcpPort_NamesTheEndpointAndTheSystemsReason) {
    // Port 1 on the loopback: nothing listens there in a test machine.
    const Json out = lookupJson({"--toc", kDisc1, "--phone", "tcp:127.0.0.1:1"}, 1);
    EXPECT_EQ(out.at("error").at("kind"), "no_phone");
    EXPECT_EQ(out.at("error").at("message"),
              "no phone: cannot connect to tcp:127.0.0.1:1: Connection refused");
    EXPECT_EQ(out.at("state"), 100);
}

TEST_F(MoxLookupTest, RemoteTcpAddress_IsBadUsageNamingTheOption) {
    const CliResult result = lookup({"--toc", kDisc1, "--phone", "tcp:192.0.2.7:7000"});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.err,
              "mox lookup: remote endpoint 'tcp:192.0.2.7:7000' refused: 192.0.2.7 is not a "
              "loopback address (allow it with --allow-remote)\n");
}

struct EndpointCase {
    const char* endpoint;
    const char* reason;
};

void PrintTo(const EndpointCase& endpoint, std::ostream* out) {
    *out << endpoint.endpoint;
}

class MoxLookupEndpointTest : public MoxLookupTest,
                              public ::testing::WithParamInterface<EndpointCase> {};

TEST_P(MoxLookupEndpointTest, MalformedEndpoint_IsBadUsageWithTheReason) {
    const CliResult result = lookup({"--toc", kDisc1, "--phone", GetParam().endpoint});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, std::string("mox lookup: ") + GetParam().reason + "\n");
}

INSTANTIATE_TEST_SUITE_P(
    EveryForm, MoxLookupEndpointTest,
    ::testing::Values(
        EndpointCase{"tcp:127.0.0.1", "bad endpoint 'tcp:127.0.0.1': expected tcp:HOST:PORT"},
        EndpointCase{"tcp:127.0.0.1:70000",
                     "bad endpoint 'tcp:127.0.0.1:70000': port must be a number from 1 to 65535"},
        EndpointCase{"foo", "bad endpoint 'foo': expected loopback, unix:PATH or tcp:HOST:PORT"},
        EndpointCase{"unix:", "bad endpoint 'unix:': empty socket path"}),
    [](const ::testing::TestParamInfo<EndpointCase>& info) {
        std::string name = info.param.endpoint;
        for (char& c : name) {
            if (!std::isalnum(static_cast<unsigned char>(c))) {
                c = '_';
            }
        }
        return name;
    });

// Two runs given the same directory on purpose (MOX_RESULT_DIR) take turns:
// the second says once that it waits.
TEST_F(MoxLookupTest, AnotherRunHoldsTheGivenResultDirectory_SaysOnceThatItWaits) {
    const std::string shared = dir.file("shared") + "/";
    ASSERT_EQ(::mkdir(shared.c_str(), 0700), 0);
    const int held = ::open(shared.c_str(), O_RDONLY | O_DIRECTORY);
    ASSERT_GE(held, 0);
    ASSERT_EQ(::flock(held, LOCK_EX), 0);
    // The lookup waits on the lock; the test lets go once the lookup has
    // said so on its stderr.
    ChildProgram lookup(kMox, {"lookup", "--toc", kDisc1}, {"MOX_RESULT_DIR=" + shared});
    const std::string waiting = "mox lookup: waiting for another run that uses ";
    EXPECT_EQ(lookup.waitForLine(waiting), waiting + shared);
    ::flock(held, LOCK_UN);
    ::close(held);
    EXPECT_EQ(lookup.wait(), 0);
    EXPECT_EQ(lookup.err(), waiting + shared + "\n");
    EXPECT_NE(lookup.out().find("Northern Roads"), std::string::npos);
}

// Without MOX_RESULT_DIR each run keeps its answer in a private directory
// (mode 0700) that it reports and removes when it ends.
TEST_F(MoxLookupTest, Json_NoResultDirGiven_PrivateDirectoryReportedThenRemoved) {
    unsetenv("MOX_RESULT_DIR");
    const Json out = lookupJson({"--toc", kDisc1}, 0);
    const std::string used = out.at("result_dir").get<std::string>();
    ASSERT_FALSE(used.empty());
    EXPECT_EQ(used.back(), '/');
    EXPECT_EQ(used.front(), '/');
    EXPECT_FALSE(std::filesystem::exists(used));
    EXPECT_EQ(moxtest::albumIds(out.at("albums")), (std::vector<std::string>{"MOXS-0001"}));
}

TEST_F(MoxLookupTest, Json_MoxResultDirGiven_AnswerKeptThereWithMode0700) {
    const std::string given = dir.file("answers/mox") + "/";
    setenv("MOX_RESULT_DIR", given.c_str(), 1);
    const Json out = lookupJson({"--toc", kDisc1}, 0);
    unsetenv("MOX_RESULT_DIR");
    EXPECT_EQ(out.at("result_dir"), given);
    EXPECT_EQ(TestDir::readFile(given + "dbupdateresponse.dap3").size(), 840u);
    struct stat info;
    ASSERT_EQ(::stat(given.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0700u);
}

// A result directory that others can write is refused before the lookup
// starts, in words; nothing is written in it.
TEST_F(MoxLookupTest, MoxResultDirWritableByOthers_RefusedInWords) {
    const std::string given = dir.file("open");
    ASSERT_EQ(::mkdir(given.c_str(), 0700), 0);
    ASSERT_EQ(::chmod(given.c_str(), 0777), 0);
    setenv("MOX_RESULT_DIR", given.c_str(), 1);
    const CliResult result = lookup({"--toc", kDisc1});
    unsetenv("MOX_RESULT_DIR");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "mox lookup: cannot store the answer: result directory " + given +
                              " is writable by other users\n");
    EXPECT_TRUE(std::filesystem::is_empty(given));
}

// A result file that is a link is refused by the host edition when the
// module clears it; the lookup ends with that reason, the target untouched.
TEST_F(MoxLookupTest, ResultFileIsASymbolicLink_TargetUntouchedRefusalInWords) {
    const std::string given = dir.file("answers") + "/";
    ASSERT_EQ(::mkdir(given.c_str(), 0700), 0);
    const std::string victim = dir.file("victim.txt");
    TestDir::writeFile(victim, {'k', 'e', 'e', 'p'});
    ASSERT_EQ(::symlink(victim.c_str(), (given + "dbupdateresponse.dap3").c_str()), 0);
    setenv("MOX_RESULT_DIR", given.c_str(), 1);
    const CliResult result = lookup({"--toc", kDisc1});
    unsetenv("MOX_RESULT_DIR");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "mox lookup: cannot store the answer: result file " + given +
                              "dbupdateresponse.dap3 is a symbolic link\n");
    EXPECT_EQ(TestDir::readFile(victim), (std::vector<unsigned char>{'k', 'e', 'e', 'p'}));
}

// mox search on the result file of a lookup that is still running reads it
// and never writes it: the lookup's answer and albums come out whole.
TEST_F(MoxLookupTest, SearchDuringARunningLookup_LookupsFileAndAlbumsUnchanged) {
    const std::string given = dir.file("live") + "/";
    ChildProgram running(kMox, {"lookup", "--toc", kDisc1, "--fault", "slow-chunks", "--verbose"},
                         {"MOX_RESULT_DIR=" + given});
    ASSERT_FALSE(running.waitForLine("mox-phone: -> 0x8011 notice").empty()) << running.err();
    const CliResult search =
        runCli(kMox, {"search", given + "dbupdateresponse.dap3", "--toc", kDisc1, "--json"}, dir);
    EXPECT_TRUE(search.status == 0 || search.status == 1) << search.err;
    EXPECT_EQ(running.wait(), 0) << running.err();
    EXPECT_NE(running.out().find("Northern Roads"), std::string::npos);
    EXPECT_EQ(TestDir::readFile(given + "dbupdateresponse.dap3").size(), 840u);
}

// Below a file-size limit (ulimit -f) the module's write of the answer fails
// like any other write: the module reports it and gives up the answer, and
// the lookup fails with that reason instead of dying of SIGXFSZ (153).
TEST_F(MoxLookupTest, FileSizeLimitBelowTheAnswer_ModuleReportsTheWriteAndLookupFails) {
    const std::string given = dir.file("limited") + "/";
    // dash counts ulimit -f in blocks of 512 bytes; the answer has 840.
    ChildProgram limited("/bin/sh",
                         {"-c", "ulimit -f 1 && exec \"$0\" \"$@\"", kMox, "lookup", "--toc",
                          kDisc1, "--json", "--timeout", "30"},
                         {"MOX_RESULT_DIR=" + given});
    EXPECT_EQ(limited.wait(), 1) << limited.err();
    EXPECT_EQ(limited.err(), "mox lookup: cannot store the answer in " + given +
                                 ": search result file close error.\n");
    const Json out = checkedJson(limited.out(), 1, limited.err());
    EXPECT_EQ(out.at("error").at("kind"), "cannot_store");
    // The error, then the cancel that the module sends with it, answered.
    EXPECT_EQ(out.value("states", States{}), (States{101, 102, 103, 20, 104, 100}));
    EXPECT_EQ(out.value("log", std::vector<std::string>{}),
              (std::vector<std::string>{"search result file close error."}));
    EXPECT_EQ(TestDir::readFile(given + "dbupdateresponse.dap3").size(), 512u);
}

// The example program and two lookups at once, each with its own private
// directory: all three get their albums.
TEST_F(MoxLookupTest, ExampleAndTwoLookupsAtOnce_EachGetsItsAlbums) {
    unsetenv("MOX_RESULT_DIR");
    PhoneProcess phone(kPhone, "unix:" + dir.file("phone.sock"), {"--fault", "slow-chunks"});
    ASSERT_FALSE(phone.endpoint().empty());
    ChildProgram example(kExample, {kDisc1}, {"OST_LINKAPP_ENDPOINT=" + phone.endpoint()});
    ChildProgram first(kMox, {"lookup", "--toc", kDisc1, "--fault", "slow-chunks"});
    ChildProgram second(kMox,
                        {"lookup", "--toc", "000096003B2E0079AE00B82E", "--fault", "slow-chunks"});
    EXPECT_EQ(example.wait(), 0) << example.err();
    EXPECT_EQ(first.wait(), 0) << first.err();
    EXPECT_EQ(second.wait(), 0) << second.err();
    EXPECT_EQ(example.out().rfind("Northern Roads (92%, 3 tracks)\n", 0), 0u) << example.out();
    EXPECT_NE(first.out().find("Northern Roads"), std::string::npos);
    EXPECT_NE(second.out().find("MOXS-0006"), std::string::npos) << second.out();
}

// --- Another user on the same machine ------------------------------------------------
// Run as root, the test plays the attacker in a child that has switched to
// another uid, in a sticky world-writable folder of its own (as /tmp is).
// The victim's lookup ends with the reason in words, its file untouched.

class MoxLookupAttackTest : public MoxLookupTest {
protected:
    static constexpr uid_t kAttacker = 65534;

    void SetUp() override {
        MoxLookupTest::SetUp();
        if (::geteuid() != 0) {
            GTEST_SKIP() << "needs root, to play another user";
        }
        char name[] = "/tmp/mox-attack-XXXXXX";
        ASSERT_NE(::mkdtemp(name), nullptr);
        sticky = name;
        ASSERT_EQ(::chmod(sticky.c_str(), 01777), 0);
        victimFile = dir.file("victim.txt");
        TestDir::writeFile(victimFile, kVictimBytes);
    }
    void TearDown() override {
        if (!sticky.empty()) {
            TestDir::removeTree(sticky);
        }
    }

    // Runs `action` in a child as the attacker; true when it succeeded.
    static bool asAttacker(const std::function<bool()>& action) {
        const pid_t pid = ::fork();
        if (pid == 0) {
            if (::setresgid(kAttacker, kAttacker, kAttacker) != 0 ||
                ::setresuid(kAttacker, kAttacker, kAttacker) != 0) {
                ::_exit(2);
            }
            ::_exit(action() ? 0 : 1);
        }
        int status = 0;
        return pid > 0 && ::waitpid(pid, &status, 0) == pid && WIFEXITED(status) &&
               WEXITSTATUS(status) == 0;
    }

    // The victim's lookup with MOX_RESULT_DIR; it must fail with `reason`.
    void expectRefused(const std::string& resultDir, const std::string& reason) {
        setenv("MOX_RESULT_DIR", resultDir.c_str(), 1);
        const CliResult result = lookup({"--toc", kDisc1});
        unsetenv("MOX_RESULT_DIR");
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, "mox lookup: cannot store the answer: " + reason + "\n");
        EXPECT_EQ(TestDir::readFile(victimFile), kVictimBytes);
    }

    const std::vector<unsigned char> kVictimBytes = {'r', 'o', 'o', 't', '\n'};
    std::string sticky;
    std::string victimFile;
};

TEST_F(MoxLookupAttackTest, PrecreatedDirectory_RefusedAsOwnedByAnotherUser) {
    const std::string answers = sticky + "/answers";
    ASSERT_TRUE(asAttacker([&] { return ::mkdir(answers.c_str(), 0755) == 0; }));
    expectRefused(answers + "/", "result directory " + answers + " is owned by another user");
    EXPECT_TRUE(std::filesystem::is_empty(answers));
}

TEST_F(MoxLookupAttackTest, SymbolicLinkToTheVictimsFile_VictimsFileUnchanged) {
    const std::string answers = sticky + "/answers";
    const std::string link = answers + "/dbupdateresponse.dap3";
    ASSERT_TRUE(asAttacker([&] {
        return ::mkdir(answers.c_str(), 0755) == 0 &&
               ::symlink(victimFile.c_str(), link.c_str()) == 0;
    }));
    expectRefused(answers + "/", "result directory " + answers + " is owned by another user");
    EXPECT_TRUE(std::filesystem::is_symlink(link));
}

TEST_F(MoxLookupAttackTest, HardLinkToTheVictimsFile_VictimsFileUnchanged) {
    const std::string answers = sticky + "/answers";
    const std::string link = answers + "/dbupdateresponse.dap3";
    ASSERT_TRUE(asAttacker([&] { return ::mkdir(answers.c_str(), 0777) == 0; }));
    // The kernel may forbid the attacker a link to root's file
    // (protected_hardlinks); the link is then made for it.
    if (!asAttacker([&] { return ::link(victimFile.c_str(), link.c_str()) == 0; })) {
        ASSERT_EQ(::link(victimFile.c_str(), link.c_str()), 0);
    }
    expectRefused(answers + "/", "result directory " + answers + " is owned by another user");
}

// Even in a directory of the victim's own, a second hard link to the result
// file makes it refused when the module opens it.
TEST_F(MoxLookupAttackTest, HardLinkInTheVictimsOwnDirectory_RefusedWhenOpened) {
    const std::string answers = dir.file("answers");
    ASSERT_EQ(::mkdir(answers.c_str(), 0700), 0);
    ASSERT_EQ(::link(victimFile.c_str(), (answers + "/dbupdateresponse.dap3").c_str()), 0);
    expectRefused(answers + "/",
                  "result file " + answers + "/dbupdateresponse.dap3 has 2 hard links");
}

TEST_F(MoxLookupAttackTest, SymbolicLinkInPlaceOfAParent_Refused) {
    const std::string parent = sticky + "/home";
    ASSERT_TRUE(asAttacker([&] { return ::symlink(dir.path().c_str(), parent.c_str()) == 0; }));
    expectRefused(parent + "/answers/", "result directory " + parent + "/answers: parent " +
                                            parent + " is a symbolic link owned by another user");
    EXPECT_FALSE(std::filesystem::exists(dir.file("answers")));
}

TEST_F(MoxLookupAttackTest, WorldWritableDirectoryOfTheAttacker_Refused) {
    const std::string answers = sticky + "/answers";
    ASSERT_TRUE(asAttacker([&] {
        return ::mkdir(answers.c_str(), 0777) == 0 && ::chmod(answers.c_str(), 0777) == 0;
    }));
    expectRefused(answers + "/", "result directory " + answers + " is owned by another user");
}

TEST_F(MoxLookupAttackTest, GroupWritableDirectoryOfTheVictim_Refused) {
    const std::string answers = sticky + "/answers";
    ASSERT_EQ(::mkdir(answers.c_str(), 0700), 0);
    ASSERT_EQ(::chmod(answers.c_str(), 0770), 0);
    expectRefused(answers + "/", "result directory " + answers + " is writable by other users");
}

// --- A phone that plays foul, byte by byte ------------------------------------------------
// The test plays the phone itself (RawPhone) at the socket that mox lookup
// connects to, and measures the lookup's time and memory.

// A frame from the phone: command ID and status, chunk index and count 0.
class MoxLookupRawPhoneTest : public MoxLookupTest {
protected:
    // Starts `mox lookup --json` against the test's phone; `extra` follows.
    std::unique_ptr<MeasuredRun> start(const std::vector<std::string>& extra = {}) {
        std::vector<std::string> args = {"lookup",         "--toc",  kDisc1,      "--phone",
                                         phone.endpoint(), "--json", "--timeout", "30"};
        args.insert(args.end(), extra.begin(), extra.end());
        // The module's timers at their own length: a flood takes longer than
        // a scaled command timer.
        return std::unique_ptr<MeasuredRun>(
            new MeasuredRun(kMox, args, dir, {"HB_TIMER_SCALE=" + timerScale}));
    }

    // Opens the application and answers the module's connect: the link is up.
    void link() {
        ASSERT_TRUE(phone.acceptAndOpen("raw"));
        ASSERT_EQ(phone.readFrame().at(1), 0x01);  // connect
        ASSERT_TRUE(phone.sendCommand(linkwire::answer(0x8001, 0)));
    }

    // Opens the application and sends `frames` frames of an unknown command,
    // each one debug message of the module, then leaves the module waiting
    // for the answer to its connect. The module's mailbox drops what it has
    // no room for, so the frames go in bursts of 1000, each followed by an
    // "application open": the connect that it brings says the burst has been
    // handled.
    void flood(size_t frames) {
        const size_t kBurst = 1000;
        ASSERT_TRUE(phone.acceptAndOpen("raw"));
        ASSERT_EQ(phone.readFrame().at(1), 0x01);  // connect
        const RawPhone::Bytes one = linkwire::command(linkwire::answer(0x7777, 0));
        RawPhone::Bytes burst;
        for (size_t i = 0; i < kBurst; ++i) {
            burst.insert(burst.end(), one.begin(), one.end());
        }
        const RawPhone::Bytes open = linkwire::envelope(linkwire::deviceStatus(2));
        burst.insert(burst.end(), open.begin(), open.end());
        for (size_t sent = 0; sent < frames; sent += kBurst) {
            ASSERT_TRUE(phone.send(burst)) << sent;
            ASSERT_EQ(phone.readFrame().at(1), 0x01) << sent;  // connect again
        }
    }

    static Json jsonOf(const MeasuredRun::Result& result) {
        return checkedJson(result.out, result.status, result.err);
    }

    std::string timerScale = "0.02";
    RawPhone phone{dir.file("raw.sock")};
};

// Every frame of an unknown command is one debug message of the module; the
// lookup keeps the first 1000 and counts the rest, so its memory stays flat.
TEST_F(MoxLookupRawPhoneTest, FloodOfUnknownFrames_LogKeepsTheFirst1000AndCountsTheRest) {
    const size_t kFlood = 300000;
    timerScale = "1";
    std::unique_ptr<MeasuredRun> run = start();
    flood(kFlood);
    ASSERT_TRUE(phone.sendCommand(linkwire::answer(0x8001, 0)));
    ASSERT_EQ(phone.readFrame().at(1), 0x10);  // the lookup
    ASSERT_TRUE(phone.sendCommand(linkwire::answer(0x8010, 404)));
    const MeasuredRun::Result result = run->finish(60);
    std::printf("flood of %zu frames: %.2f s, peak resident %ld KiB\n", kFlood, result.seconds,
                result.peakResidentKiB);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "mox lookup: the phone does not know this disc (phone status 404)\n");
    const Json out = jsonOf(result);
    EXPECT_EQ(out.value("states", States{}), (States{101, 102, 103, 404}));
    const std::vector<std::string> log = out.value("log", std::vector<std::string>{});
    ASSERT_EQ(log.size(), 1001u);
    EXPECT_EQ(log.front(), "receive unknown cmdID=0x7777");
    EXPECT_EQ(log[999], "receive unknown cmdID=0x7777");
    EXPECT_EQ(log.back(), std::to_string(kFlood - 1000) + " more messages left out");
    if (MeasuredRun::kMemoryMeaningful) {
        EXPECT_LT(result.peakResidentKiB, 32 * 1024) << "peak resident KiB";
    }
}

// Answers that move the state between connected and searching without end:
// the JSON keeps the first 1000 states and counts the rest. 2400 frames fit
// the module's mailbox at once.
TEST_F(MoxLookupRawPhoneTest, EndlessStateChanges_JsonKeepsTheFirst1000States) {
    std::unique_ptr<MeasuredRun> run = start();
    link();
    ASSERT_EQ(phone.readFrame().at(1), 0x10);  // the lookup
    RawPhone::Bytes answers;
    for (int i = 0; i < 1200; ++i) {
        for (const uint16_t command : {0x8001, 0x8010}) {
            const RawPhone::Bytes one = linkwire::command(linkwire::answer(command, 0));
            answers.insert(answers.end(), one.begin(), one.end());
        }
    }
    const RawPhone::Bytes last = linkwire::command(linkwire::answer(0x8010, 404));
    answers.insert(answers.end(), last.begin(), last.end());
    ASSERT_TRUE(phone.send(answers));
    const MeasuredRun::Result result = run->finish(60);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "mox lookup: the phone does not know this disc (phone status 404)\n");
    const Json out = jsonOf(result);
    EXPECT_EQ(out.value("state", -1), 404);
    const States states = out.value("states", States{});
    ASSERT_EQ(states.size(), 1000u);
    EXPECT_EQ(States(states.begin(), states.begin() + 5), (States{101, 102, 103, 102, 103}));
    EXPECT_EQ(out.value("states_left_out", 0), 3 + 2400 + 1 - 1000);
}

// The host edition's refusal of the result file comes after the log is
// full; it is still the reason the lookup gives.
TEST_F(MoxLookupRawPhoneTest, RefusalAfterTheLogIsFull_IsStillTheReason) {
    const std::string given = dir.file("answers") + "/";
    ASSERT_EQ(::mkdir(given.c_str(), 0700), 0);
    ASSERT_EQ(::symlink(dir.file("elsewhere").c_str(), (given + "dbupdateresponse.dap3").c_str()),
              0);
    std::unique_ptr<MeasuredRun> run(
        new MeasuredRun(kMox, {"lookup", "--toc", kDisc1, "--phone", phone.endpoint(), "--json"},
                        dir, {"HB_TIMER_SCALE=1", "MOX_RESULT_DIR=" + given}));
    flood(2000);
    ASSERT_TRUE(phone.sendCommand(linkwire::answer(0x8001, 0)));
    const MeasuredRun::Result result = run->finish(30);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "mox lookup: cannot store the answer: result file " + given +
                              "dbupdateresponse.dap3 is a symbolic link\n");
    const std::vector<std::string> log = jsonOf(result).value("log", std::vector<std::string>{});
    ASSERT_EQ(log.size(), 1001u);
    EXPECT_EQ(log[999], "receive unknown cmdID=0x7777");
    EXPECT_FALSE(std::filesystem::exists(dir.file("elsewhere")));
}

// --- A lost link ends the wait at any point ---------------------------------------------
// The phone goes, by saying its application closed or by hanging up: before
// the link is up, between the link and the search (the module then drops the
// search, and no state follows it), and during the search. The lookup and
// the example program end at once with "link lost", far inside their bounds.

enum class LinkPoint { BEFORE_LINK, BEFORE_SEARCH, DURING_SEARCH };
enum class LossWay { APP_CLOSED, HANG_UP };

// How GoogleTest shows the point and the way of a loss.
void PrintTo(LinkPoint point, std::ostream* out) {
    *out << (point == LinkPoint::BEFORE_LINK     ? "before the link"
             : point == LinkPoint::BEFORE_SEARCH ? "before the search"
                                                 : "during the search");
}
void PrintTo(LossWay way, std::ostream* out) {
    *out << (way == LossWay::APP_CLOSED ? "application closed" : "hang-up");
}

class MoxLinkLossTest : public MoxLookupRawPhoneTest,
                        public ::testing::WithParamInterface<std::tuple<LinkPoint, LossWay>> {
protected:
    // Plays the phone up to the chosen point, then goes the chosen way.
    void playUntilLost() {
        const LinkPoint point = std::get<0>(GetParam());
        const bool hangUp = std::get<1>(GetParam()) == LossWay::HANG_UP;
        const RawPhone::Bytes closed = linkwire::envelope(linkwire::deviceStatus(3));
        ASSERT_TRUE(phone.acceptAndOpen("raw"));
        ASSERT_EQ(phone.readFrame().at(1), 0x01);  // connect
        RawPhone::Bytes last;
        if (point == LinkPoint::BEFORE_SEARCH) {
            // The answer and the loss in one write: the link comes up and
            // goes before the lookup can ask for the search.
            last = linkwire::command(linkwire::answer(0x8001, 0));
        } else if (point == LinkPoint::DURING_SEARCH) {
            ASSERT_TRUE(phone.sendCommand(linkwire::answer(0x8001, 0)));
            ASSERT_EQ(phone.readFrame().at(1), 0x10);  // the lookup
        }
        if (!hangUp) {
            last.insert(last.end(), closed.begin(), closed.end());
        }
        ASSERT_TRUE(last.empty() || phone.send(last));
        if (hangUp) {
            phone.hangUp();
        }
    }
};

TEST_P(MoxLinkLossTest, Lookup_EndsAtOnceWithLinkLost) {
    std::unique_ptr<MeasuredRun> run = start();
    playUntilLost();
    const MeasuredRun::Result result = run->finish(20);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "mox lookup: link lost\n");
    EXPECT_FALSE(result.killed) << "still waiting after 20 s: the lookup's bound is 30 s";
    const Json out = jsonOf(result);
    EXPECT_EQ(out.value("state", -1), 100);
    const States states = out.value("states", States{});
    switch (std::get<0>(GetParam())) {
        case LinkPoint::BEFORE_LINK:
            EXPECT_EQ(states, (States{101, 20, 100}));
            break;
        case LinkPoint::BEFORE_SEARCH:
            // The module either had the search before the loss (103), or
            // dropped it (or never got to it) for want of a link.
            EXPECT_TRUE(states == (States{101, 102, 20, 100}) ||
                        states == (States{101, 102, 103, 20, 100}))
                << ::testing::PrintToString(states);
            break;
        case LinkPoint::DURING_SEARCH:
            EXPECT_EQ(states, (States{101, 102, 103, 20, 100}));
            break;
    }
}

TEST_P(MoxLinkLossTest, ExampleProgram_EndsAtOnceWithLinkLost) {
    MeasuredRun run(kExample, {kDisc1}, dir,
                    {"OST_LINKAPP_ENDPOINT=" + phone.endpoint(), "HB_DBG_OUTPUT=off"});
    playUntilLost();
    const MeasuredRun::Result result = run.finish(30);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "link lost: no phone, or it left (result state -1)\n");
    EXPECT_FALSE(result.killed) << "still waiting after 30 s: the example's bound is 60 s";
}

INSTANTIATE_TEST_SUITE_P(
    EveryPoint, MoxLinkLossTest,
    ::testing::Combine(::testing::Values(LinkPoint::BEFORE_LINK, LinkPoint::BEFORE_SEARCH,
                                         LinkPoint::DURING_SEARCH),
                       ::testing::Values(LossWay::APP_CLOSED, LossWay::HANG_UP)),
    [](const ::testing::TestParamInfo<std::tuple<LinkPoint, LossWay>>& info) {
        const LinkPoint point = std::get<0>(info.param);
        const std::string name = point == LinkPoint::BEFORE_LINK     ? "BeforeTheLink"
                                 : point == LinkPoint::BEFORE_SEARCH ? "BeforeTheSearch"
                                                                     : "DuringTheSearch";
        return name + (std::get<1>(info.param) == LossWay::HANG_UP ? "_HangUp" : "_AppClosed");
    });

// Nothing listens at the socket: the connection fails at once, and so does
// the example (notification 3 says there is no device).
TEST_F(MoxLookupTest, ExampleProgram_NoPhoneToReach_EndsAtOnceWithLinkLost) {
    MeasuredRun run(kExample, {kDisc1}, dir,
                    {"OST_LINKAPP_ENDPOINT=unix:" + dir.file("nobody.sock"), "HB_DBG_OUTPUT=off"});
    const MeasuredRun::Result result = run.finish(30);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "link lost: no phone, or it left (result state -1)\n");
    EXPECT_FALSE(result.killed) << "still waiting after 30 s: the example's bound is 60 s";
}

// --- The example program -----------------------------------------------------------------------

TEST_F(MoxLookupTest, ExampleProgram_LooksADiscUpThroughTheSimulator) {
    PhoneProcess phone(kPhone, "unix:" + dir.file("phone.sock"), {});
    ASSERT_FALSE(phone.endpoint().empty());
    setenv("OST_LINKAPP_ENDPOINT", phone.endpoint().c_str(), 1);
    const CliResult result = runCli(kExample, {kDisc1}, dir);
    unsetenv("OST_LINKAPP_ENDPOINT");
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out,
              "Northern Roads (92%, 3 tracks)\n"
              "  The Harbor Lights - Open Highway\n"
              "  The Harbor Lights - Cold Harbor\n"
              "  The Harbor Lights - Last Exit\n");
}

struct ExampleCase {
    const char* fault;  // of the phone, "" for none
    const char* toc;
    const char* reason;
};

void PrintTo(const ExampleCase& example, std::ostream* out) {
    *out << (example.fault[0] == '\0' ? "no fault" : example.fault) << ", " << example.toc;
}

class ExampleFailureTest : public MoxLookupTest,
                           public ::testing::WithParamInterface<ExampleCase> {};

// The example ends as soon as the module gives the lookup up, at the connect
// as during the search, and says why; the module's timers run at 1/50.
TEST_P(ExampleFailureTest, EndsAtOnceWithTheReason) {
    std::vector<std::string> faults;
    if (GetParam().fault[0] != '\0') {
        faults = {"--fault", GetParam().fault};
    }
    PhoneProcess phone(kPhone, "unix:" + dir.file("phone.sock"), faults);
    MeasuredRun run(kExample, {GetParam().toc}, dir,
                    {"OST_LINKAPP_ENDPOINT=" + phone.endpoint(), "HB_DBG_OUTPUT=off"});
    const MeasuredRun::Result result = run.finish(30);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, std::string(GetParam().reason) + "\n");
    EXPECT_FALSE(result.killed) << "still waiting after 30 s: the example's bound is 60 s";
}

INSTANTIATE_TEST_SUITE_P(
    EveryWayToFail, ExampleFailureTest,
    ::testing::Values(
        ExampleCase{"", "000096001234",
                    "the phone knows no album for this disc (result state 404)"},
        ExampleCase{"silent-after-connect", "0000960046E6008D3600D386",
                    "error: no answer, or an answer that was refused (result state 20)"},
        ExampleCase{"status-connect=503", "0000960046E6008D3600D386",
                    "the phone failed (result state 503)"},
        ExampleCase{"silent-after-lookup", "0000960046E6008D3600D386",
                    "timed out: the phone did not answer in time (result state 4)"},
        ExampleCase{"wrong-chunk-index", "0000960046E6008D3600D386",
                    "error: no answer, or an answer that was refused (result state 20)"}),
    [](const ::testing::TestParamInfo<ExampleCase>& info) {
        std::string name = info.param.fault[0] == '\0' ? "UnknownDisc" : info.param.fault;
        for (char& c : name) {
            if (!std::isalnum(static_cast<unsigned char>(c))) {
                c = '_';
            }
        }
        return name;
    });

// --- The TOC text --------------------------------------------------------------------------------

TEST_F(MoxLookupTest, TocTextBreakingTheToolsRules_RefusedWithTheReasonBeforeAnyPhone) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"00009600012c",
         "the TOC text's character 12 ('c') is not an upper-case hexadecimal digit (0-9, A-F)"},
        {" 000096000100",
         "the TOC text's character 1 (' ') is not an upper-case hexadecimal digit (0-9, A-F)"},
        {"", "the TOC text is empty"},
        {std::string(120000, '0'),
         "the TOC text has 120000 characters; at most 600 (99 tracks and the lead-out)"},
        {"0000960001F40000C8", "the TOC text's offsets do not increase: 500 then 200"},
        {"000096", "the TOC text has one entry; it needs at least one track and the lead-out"}};
    for (const auto& bad : cases) {
        const CliResult result = lookup({"--toc", bad.first});
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err,
                  "mox lookup: --toc: " + bad.second + "\nRun with --help for more information.\n");
    }
}

TEST_F(MoxLookupTest, RawToc_SendsAnyTextUnchanged) {
    const CliResult result = lookup({"--raw-toc", "00009600012c", "--json"});
    EXPECT_EQ(result.status, 1) << result.err;
    ASSERT_TRUE(Json::accept(result.out)) << result.out;
    EXPECT_EQ(Json::parse(result.out).at("state"), 404);
}

}  // namespace
