// mox-phone --replay: a lookup captured with mox lookup --capture, replayed
// by the phone simulator to a second lookup, gives the same result (states,
// albums, error); a lookup that sends something else than the captured one
// has each difference named in the phone's log.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "CliRun.h"
#include "PhoneProcess.h"
#include "TestDir.h"

namespace {

using Json = nlohmann::json;

const std::string kMox = MOX_CLI_PATH;
const std::string kPhone = MOX_PHONE_PATH;
const std::string kDisc1 = "0000960046E6008D3600D386";
const std::string kOtherDisc = "000096003A98";
const std::string kEndPrefix = "mox-phone: replay: the ";

struct ReplayCase {
    const char* name;
    std::vector<std::string> faults;
    int status;       // of both lookups
    const char* end;  // the replay's last line after the prefix "mox-phone: replay: the "
};

const std::vector<ReplayCase>& cases() {
    static const std::vector<ReplayCase> all = {
        {"found", {}, 0, "module ended the link; 4 requests received, 4 recorded, 0 differences"},
        {"wrong_chunk_index",
         {"wrong-chunk-index"},
         1,
         "module ended the link; 5 requests received, 5 recorded, 0 differences"},
        {"status_ack",
         {"status-ack=503"},
         1,
         "module ended the link; 3 requests received, 3 recorded, 0 differences"},
        {"silent_mid_transfer",
         {"silent-mid-transfer"},
         1,
         "module ended the link; 5 requests received, 5 recorded, 0 differences"},
        {"drop_mid_transfer",
         {"drop-mid-transfer"},
         1,
         "capture ends with the phone's envelope: hanging up; 3 requests received, 3 recorded, "
         "0 differences"},
    };
    return all;
}

class MoxReplayTest : public ::testing::TestWithParam<size_t> {
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
    const ReplayCase& c = cases()[GetParam()];
    const std::string capture = dir.file("link.pcap");
    std::vector<std::string> args = {"lookup", "--toc", kDisc1, "--json", "--capture", capture};
    for (const std::string& fault : c.faults) {
        args.push_back("--fault");
        args.push_back(fault);
    }
    const CliResult captured = runCli(kMox, args, dir);
    ASSERT_EQ(captured.status, c.status) << captured.err;

    PhoneProcess phone(kPhone, "unix:" + dir.file("phone.sock"),
                       {"--replay", capture, "--replay-speed", "2"});
    ASSERT_FALSE(phone.endpoint().empty());
    const CliResult replayed =
        runCli(kMox, {"lookup", "--toc", kDisc1, "--json", "--phone", phone.endpoint()}, dir);
    EXPECT_EQ(replayed.status, c.status) << replayed.err;
    EXPECT_EQ(resultOf(replayed), resultOf(captured));
    EXPECT_EQ(replayed.err, captured.err);
    EXPECT_EQ(phone.waitForLine(kEndPrefix), kEndPrefix + c.end);
}

INSTANTIATE_TEST_SUITE_P(NormalAndFaulty, MoxReplayTest,
                         ::testing::Range<size_t>(0, cases().size()),
                         [](const ::testing::TestParamInfo<size_t>& info) {
                             return std::string(cases()[info.param].name);
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
