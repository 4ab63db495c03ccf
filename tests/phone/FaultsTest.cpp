// The fault names as --fault takes them: values, defaults, ranges, refusals
// with their reasons, combinations, and the documented result states.
#include "moxphone/Faults.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

using moxphone::FaultKind;
using moxphone::Faults;
using States = std::vector<uint32_t>;

namespace {

std::string refusal(const std::vector<std::string>& given) {
    Faults faults;
    std::string error;
    for (const std::string& fault : given) {
        if (!faults.add(fault, &error)) {
            return error;
        }
    }
    return "accepted";
}

}  // namespace

TEST(FaultsTest, Known_EveryFaultOfTheListOnceWithADescription) {
    const std::vector<std::string> expected = {
        "silent-after-connect", "silent-after-lookup", "silent-after-notice", "silent-mid-transfer",
        "status-connect",       "status-ack",          "status-notice",       "status-chunk",
        "status-cancel",        "status-echo",         "wrong-chunk-index",   "repeated-chunk",
        "chunk-count-zero",     "short-notice",        "length-short",        "length-long",
        "drop-mid-transfer",    "garbage-length-zero", "garbage-oversize",    "garbage-type",
        "slow-chunks",          "no-cancel-answer"};
    std::vector<std::string> names;
    std::set<FaultKind> kinds;
    for (const moxphone::FaultInfo& fault : Faults::known()) {
        names.push_back(fault.name);
        kinds.insert(fault.kind);
        EXPECT_NE(std::string(), fault.effect) << fault.name;
        EXPECT_NE(std::string(), fault.outcome) << fault.name;
        EXPECT_EQ(fault.kind, Faults::info(fault.kind).kind);
    }
    EXPECT_EQ(expected, names);
    EXPECT_EQ(expected.size(), kinds.size());
}

TEST(FaultsTest, Add_NameAlone_InForceWithoutValue) {
    Faults faults;
    std::string error;
    EXPECT_TRUE(faults.empty());
    ASSERT_TRUE(faults.add("short-notice", &error)) << error;
    EXPECT_TRUE(faults.has(FaultKind::kShortNotice));
    EXPECT_FALSE(faults.has(FaultKind::kLengthLong));
    EXPECT_EQ(0u, faults.value(FaultKind::kShortNotice));
    EXPECT_EQ(std::vector<std::string>{"short-notice"}, faults.given());
    EXPECT_FALSE(faults.empty());
}

TEST(FaultsTest, Add_StatusWithValue_KeepsTheValue) {
    Faults faults;
    std::string error;
    ASSERT_TRUE(faults.add("status-ack=65535", &error)) << error;
    EXPECT_EQ(65535u, faults.value(FaultKind::kStatusAck));
    EXPECT_EQ(std::vector<std::string>{"status-ack=65535"}, faults.given());
}

TEST(FaultsTest, Add_SlowChunksWithoutValue_DefaultTwoSeconds) {
    Faults faults;
    std::string error;
    ASSERT_TRUE(faults.add("slow-chunks", &error)) << error;
    EXPECT_EQ(2000u, faults.value(FaultKind::kSlowChunks));
    EXPECT_EQ(std::vector<std::string>{"slow-chunks=2000"}, faults.given());
}

TEST(FaultsTest, Add_SlowChunksZeroAndMaximum_Accepted) {
    EXPECT_EQ("accepted", refusal({"slow-chunks=0"}));
    EXPECT_EQ("accepted", refusal({"slow-chunks=600000"}));
}

TEST(FaultsTest, Add_Refusals_WithTheirReasons) {
    EXPECT_EQ("unknown fault 'silence' (mox-phone --list-faults lists them)", refusal({"silence"}));
    EXPECT_EQ("unknown fault '' (mox-phone --list-faults lists them)", refusal({"=3"}));
    EXPECT_EQ("fault 'status-ack' needs a value: status-ack=N", refusal({"status-ack"}));
    EXPECT_EQ("fault 'short-notice' takes no value", refusal({"short-notice=1"}));
    EXPECT_EQ("the value of fault 'status-ack' must be a number from 1 to 65535, not '0'",
              refusal({"status-ack=0"}));
    EXPECT_EQ("the value of fault 'status-ack' must be a number from 1 to 65535, not '65536'",
              refusal({"status-ack=65536"}));
    EXPECT_EQ("the value of fault 'status-ack' must be a number from 1 to 65535, not '-1'",
              refusal({"status-ack=-1"}));
    EXPECT_EQ("the value of fault 'status-ack' must be a number from 1 to 65535, not '4x'",
              refusal({"status-ack=4x"}));
    EXPECT_EQ("the value of fault 'status-ack' must be a number from 1 to 65535, not ''",
              refusal({"status-ack="}));
    EXPECT_EQ(
        "the value of fault 'slow-chunks' must be a number from 0 to 600000, not "
        "'99999999999'",
        refusal({"slow-chunks=99999999999"}));
    EXPECT_EQ("fault 'garbage-type' is given twice", refusal({"garbage-type", "garbage-type"}));
    EXPECT_EQ("fault 'status-ack' is given twice", refusal({"status-ack=1", "status-ack=2"}));
}

TEST(FaultsTest, Add_TwoFaultsOfOneAnswer_Refused) {
    EXPECT_EQ("faults 'silent-after-notice' and 'garbage-type' both change the notice",
              refusal({"silent-after-notice", "garbage-type"}));
    EXPECT_EQ("faults 'wrong-chunk-index' and 'drop-mid-transfer' both change the chunk transfer",
              refusal({"wrong-chunk-index", "drop-mid-transfer"}));
    EXPECT_EQ("faults 'no-cancel-answer' and 'status-cancel' both change the cancel answer",
              refusal({"no-cancel-answer", "status-cancel=3"}));
    EXPECT_EQ("faults 'silent-after-connect' and 'status-connect' both change the connect answer",
              refusal({"silent-after-connect", "status-connect=3"}));
}

TEST(FaultsTest, Add_Refused_SetUnchanged) {
    Faults faults;
    std::string error;
    ASSERT_TRUE(faults.add("length-long", &error));
    EXPECT_FALSE(faults.add("length-short", &error));
    EXPECT_FALSE(faults.has(FaultKind::kLengthShort));
    EXPECT_EQ(std::vector<std::string>{"length-long"}, faults.given());
}

TEST(FaultsTest, Add_FaultsOfDifferentAnswers_Combine) {
    Faults faults;
    std::string error;
    for (const char* fault :
         {"status-connect=7", "silent-after-lookup", "short-notice", "repeated-chunk",
          "no-cancel-answer", "status-echo=9", "slow-chunks=10"}) {
        ASSERT_TRUE(faults.add(fault, &error)) << fault << ": " << error;
    }
    EXPECT_EQ((std::vector<std::string>{"status-connect=7", "silent-after-lookup", "short-notice",
                                        "repeated-chunk", "no-cancel-answer", "status-echo=9",
                                        "slow-chunks=10"}),
              faults.given());
}

TEST(FaultsTest, ChangesTransfer_OnlyForFaultsOfTheChunks) {
    for (const moxphone::FaultInfo& fault : Faults::known()) {
        Faults faults;
        std::string error;
        const std::string text =
            std::string(fault.name) + (fault.value == moxphone::FaultValue::kRequired ? "=5" : "");
        ASSERT_TRUE(faults.add(text, &error)) << error;
        EXPECT_EQ(std::string(fault.answer) == "the chunk transfer", faults.changesTransfer())
            << fault.name;
    }
}

TEST(FaultsTest, ExpectedStates_AsDocumented) {
    EXPECT_EQ(States({101, 102, 103, 0}), Faults::normalStates());
    EXPECT_EQ(States({101, 102, 103, 404}), Faults::notFoundStates(404));
    EXPECT_EQ(States({101, 20}), Faults::expectedStates(FaultKind::kSilentAfterConnect, 0));
    EXPECT_EQ(States({101, 102, 103, 4, 104, 100}),
              Faults::expectedStates(FaultKind::kSilentAfterNotice, 0));
    EXPECT_EQ(States({101, 9}), Faults::expectedStates(FaultKind::kStatusConnect, 9));
    EXPECT_EQ(States({101, 102, 103, 104, 100}),
              Faults::expectedStates(FaultKind::kStatusChunk, 103));
    EXPECT_EQ(States({101, 102, 103, 20, 104, 100}),
              Faults::expectedStates(FaultKind::kLengthLong, 0));
    EXPECT_EQ(States({101, 102, 103, 20, 100}), Faults::expectedStates(FaultKind::kGarbageType, 0));
    EXPECT_EQ(States({101, 102, 103, 0}), Faults::expectedStates(FaultKind::kSlowChunks, 9999));
    EXPECT_EQ(States({101, 102, 103, 4, 104, 100}),
              Faults::expectedStates(FaultKind::kSlowChunks, 10000));
    EXPECT_EQ(States({101, 102, 103, 0}), Faults::expectedStates(FaultKind::kNoCancelAnswer, 0));
}

TEST(FaultsTest, ListText_OneParagraphPerFaultWithItsValue) {
    const std::string text = Faults::listText();
    EXPECT_EQ(0u, text.find("silent-after-connect\n    The connect request is never answered.\n"
                            "    Result states: 101, then the command timer runs out: 20 (the "
                            "link never comes up).\n"));
    EXPECT_NE(std::string::npos, text.find("\nstatus-ack=N\n"));
    EXPECT_NE(std::string::npos, text.find("\nslow-chunks[=MS]\n"));
    for (const moxphone::FaultInfo& fault : Faults::known()) {
        EXPECT_NE(std::string::npos, text.find(std::string(fault.name))) << fault.name;
    }
}
