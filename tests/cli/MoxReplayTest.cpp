// mox-phone --replay: a lookup captured with mox lookup --capture (the
// normal one and one for every fault of the phone simulator), replayed by the
// phone simulator to a second lookup, gives the same result (states, albums,
// error); a lookup that sends something else than the captured one
// has each difference named in the phone's log.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <regex>
#include <string>
#include <vector>

#include "CliRun.h"
#include "FaultStates.h"
#include "PhoneProcess.h"
#include "TestDir.h"

namespace {

using Json = nlohmann::json;

const std::string kMox = MOX_CLI_PATH;
const std::string kPhone = MOX_PHONE_PATH;
const std::string kDisc1 = "0000960046E6008D3600D386";
const std::string kOtherDisc = "000096003A98";
const std::string kEndPrefix = "mox-phone: replay: the ";

// One lookup to capture and replay: the normal one, or one with one fault of
// the phone simulator (with a value where the fault takes one).
struct ReplayCase {
    std::string name;
    std::vector<std::string> faults;
};

void PrintTo(const ReplayCase& c, std::ostream* out) {
    *out << c.name;
}

// The status that a status fault carries: a failure of the phone.
constexpr uint32_t kFaultStatus = 503;

std::string faultText(const moxphone::FaultInfo& info) {
    if (info.value != moxphone::FaultValue::kRequired) {
        return info.name;
    }
    const uint32_t value = kFaultStatus >= info.minValue && kFaultStatus <= info.maxValue
                               ? kFaultStatus
                               : info.minValue;
    return std::string(info.name) + "=" + std::to_string(value);
}

// The normal lookup, then every fault of the simulator.
const std::vector<ReplayCase>& cases() {
    static const std::vector<ReplayCase> all = [] {
        std::vector<ReplayCase> list = {{"found", {}}};
        for (const moxphone::FaultInfo& info : moxphone::Faults::known()) {
            std::string name = info.name;
            std::replace(name.begin(), name.end(), '-', '_');
            list.push_back({name, {faultText(info)}});
        }
        return list;
    }();
    return all;
}

// The replay's last lines of some cases, word for word, after the prefix
// "mox-phone: replay: the "; every other case ends with as many requests
// received as recorded and no difference.
const std::map<std::string, std::string>& knownEnds() {
    static const std::map<std::string, std::string> ends = {
        {"found", "module ended the link; 4 requests received, 4 recorded, 0 differences"},
        {"wrong_chunk_index",
         "module ended the link; 5 requests received, 5 recorded, 0 differences"},
        {"status_ack", "module ended the link; 3 requests received, 3 recorded, 0 differences"},
        {"status_connect", "module ended the link; 1 requests received, 1 recorded, 0 differences"},
        {"silent_mid_transfer",
         "module ended the link; 5 requests received, 5 recorded, 0 differences"},
        {"drop_mid_transfer",
         "capture ends inside the phone's envelope: hanging up; 3 requests received, 3 recorded, "
         "0 differences"},
    };
    return ends;
}

// "... N requests received, M recorded, K differences" as {N, M, K}.
std::vector<int> countsOf(const std::string& end) {
    std::vector<int> counts;
    std::regex number("(\\d+) (requests received|recorded|differences?)");
    for (auto it = std::sregex_iterator(end.begin(), end.end(), number);
         it != std::sregex_iterator(); ++it) {
        counts.push_back(std::stoi((*it)[1]));
    }
    return counts;
}

class MoxReplayTest : public ::testing::TestWithParam<ReplayCase> {
protected:
    void SetUp() override {
        setenv("HB_TIMER_SCALE", "0.02", 1);
        setenv("HB_DBG_OUTPUT", "off", 1);
    }

    // What a lookup's JSON says of its result: states, albums and error. (Its
    // log is left out: whether the module logs the cancel that it can no
    // longer send after a hang-up depends on which of its threads comes first.)
    static Json resultOf(const CliResult& lookup) {
        if (!Json::accept(lookup.out)) {
            ADD_FAILURE() << "no JSON: " << lookup.out << lookup.err;
            return Json();
        }
        const Json all = Json::parse(lookup.out);
        Json result = Json::object();
        for (const char* key : {"ok", "state", "states", "albums", "error"}) {
            if (all.contains(key)) {
                result[key] = all[key];
            }
        }
        return result;
    }

    TestDir dir{"MoxReplayTest"};
};

TEST_P(MoxReplayTest, ReplayedLookup_GivesTheCapturedResult) {
    const ReplayCase& c = GetParam();
    const std::string capture = dir.file("link.pcap");
    std::vector<std::string> args = {"lookup", "--toc", kDisc1, "--json", "--capture", capture};
    for (const std::string& fault : c.faults) {
        args.push_back("--fault");
        args.push_back(fault);
    }
    const CliResult captured = runCli(kMox, args, dir);
    const Json capturedResult = resultOf(captured);
    // The captured lookup went as the fault table says.
    const std::vector<uint32_t> states = c.faults.empty() ? moxphone::Faults::normalStates()
                                                          : moxtest::documentedStates(c.faults[0]);
    ASSERT_EQ(capturedResult.at("states").get<std::vector<uint32_t>>(), states) << captured.err;
    ASSERT_EQ(capturedResult.at("state").get<uint32_t>(), states.back());

    PhoneProcess phone(kPhone, "unix:" + dir.file("phone.sock"),
                       {"--replay", capture, "--replay-speed", "2"});
    ASSERT_FALSE(phone.endpoint().empty());
    const CliResult replayed =
        runCli(kMox, {"lookup", "--toc", kDisc1, "--json", "--phone", phone.endpoint()}, dir);
    EXPECT_EQ(replayed.status, captured.status) << replayed.err;
    EXPECT_EQ(resultOf(replayed), capturedResult);
    EXPECT_EQ(replayed.err, captured.err);
    const std::string end = phone.waitForLine(kEndPrefix);
    const auto known = knownEnds().find(c.name);
    if (known != knownEnds().end()) {
        EXPECT_EQ(end, kEndPrefix + known->second);
    }
    const std::vector<int> counts = countsOf(end);
    ASSERT_EQ(counts.size(), 3u) << end;
    EXPECT_EQ(counts[0], counts[1]) << end;
    EXPECT_EQ(counts[2], 0) << end;
}

INSTANTIATE_TEST_SUITE_P(NormalAndEveryFault, MoxReplayTest, ::testing::ValuesIn(cases()),
                         [](const ::testing::TestParamInfo<ReplayCase>& info) {
                             return info.param.name;
                         });

TEST(MoxReplayDifferenceTest, LookupOfAnotherDisc_IsReportedWithItsFirstDifferingByte) {
    TestDir dir{"MoxReplayDifferenceTest"};
    setenv("HB_TIMER_SCALE", "0.02", 1);
    setenv("HB_DBG_OUTPUT", "off", 1);
    const std::string capture = dir.file("link.pcap");
    ASSERT_EQ(runCli(kMox, {"lookup", "--toc", kDisc1, "--capture", capture}, dir).status, 0);
    PhoneProcess phone(kPhone, "unix:" + dir.file("phone.sock"), {"--replay", capture});
    ASSERT_FALSE(phone.endpoint().empty());
    runCli(kMox, {"lookup", "--toc", kOtherDisc, "--phone", phone.endpoint()}, dir);
    // The lookup request is 12 bytes shorter: its length word differs first.
    EXPECT_EQ(phone.waitForLine("mox-phone: replay: request "),
              "mox-phone: replay: request 2 (0x0010) differs at byte 3: expected B8 03 00 10 00 "
              "00 00 00 00 00 3C 44 62 55 70 64 ... (188 bytes), got AC 03 00 10 00 00 00 00 00 "
              "00 3C 44 62 55 70 64 ... (176 bytes)");
    EXPECT_EQ(phone.waitForLine(kEndPrefix),
              kEndPrefix + "module ended the link; 4 requests received, 4 recorded, 1 difference");
}

TEST(MoxReplayOptionsTest, UnreadableCaptureOrBadSpeed_FailWithTheReason) {
    TestDir dir{"MoxReplayOptionsTest"};
    const CliResult missing = runCli(
        kPhone, {"--listen", "unix:" + dir.file("p.sock"), "--replay", dir.file("none.pcap")}, dir);
    EXPECT_EQ(missing.status, 1);
    EXPECT_EQ(missing.err.rfind("mox-phone: ", 0), 0u) << missing.err;
    EXPECT_NE(missing.err.find(dir.file("none.pcap")), std::string::npos) << missing.err;
    const CliResult speed = runCli(kPhone,
                                   {"--listen", "unix:" + dir.file("p.sock"), "--replay",
                                    dir.file("none.pcap"), "--replay-speed", "0"},
                                   dir);
    EXPECT_EQ(speed.status, 2);
    EXPECT_EQ(speed.err, "mox-phone: --replay-speed must be above 0\n");
    const CliResult fault = runCli(kPhone,
                                   {"--listen", "unix:" + dir.file("p.sock"), "--replay",
                                    dir.file("none.pcap"), "--fault", "repeated-chunk"},
                                   dir);
    EXPECT_EQ(fault.status, 2);
    EXPECT_EQ(fault.err,
              "mox-phone: --fault does not go with --replay: the capture holds the answers\n");
}

}  // namespace
