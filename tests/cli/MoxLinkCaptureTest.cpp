// Captures of mox lookup (--capture), opened by tshark with the dissector
// tools/wireshark/moxlink.lua: one lookup per transport and one per fault of
// the simulator. Every frame must be decoded by the dissector without a Lua
// error or a malformed-packet marker, the lookup request must show the XML
// that was sent, the reassembled database must hold the albums that mox
// search finds in the stored answer, and the faults that break the link's
// rules must show as expert info. Skipped, with the reason, where tshark is
// not installed (failed instead when MOX_TSHARK_REQUIRED is set).
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "ChildProgram.h"
#include "CliRun.h"
#include "LinkWire.h"
#include "PhoneProcess.h"
#include "TestDir.h"
#include "moxcapture/CaptureReader.h"

namespace {

using Json = nlohmann::json;

const std::string kMox = MOX_CLI_PATH;
const std::string kPhone = MOX_PHONE_PATH;
const std::string kTshark = MOX_TSHARK_PATH;
const std::string kDissector = MOX_WIRESHARK_DISSECTOR;
const std::string kDisc1 = "0000960046E6008D3600D386";
const std::string kExpertPrefix = "moxlink.expert.";

std::string requestXml(const std::string& toc) {
    return linkwire::kXmlHead + toc + linkwire::kXmlTail;
}

// Every value of `key` anywhere below `node`, arrays flattened.
void collect(const Json& node, const std::string& key, std::vector<Json>* out) {
    if (node.is_array()) {
        for (const Json& item : node) {
            collect(item, key, out);
        }
        return;
    }
    if (!node.is_object()) {
        return;
    }
    for (auto it = node.begin(); it != node.end(); ++it) {
        if (it.key() == key) {
            if (it->is_array()) {
                out->insert(out->end(), it->begin(), it->end());
            } else {
                out->push_back(*it);
            }
        } else {
            collect(*it, key, out);
        }
    }
}

std::vector<std::string> strings(const Json& node, const std::string& key) {
    std::vector<Json> found;
    collect(node, key, &found);
    std::vector<std::string> texts;
    for (const Json& value : found) {
        texts.push_back(value.is_string() ? value.get<std::string>() : value.dump());
    }
    return texts;
}

// Every key below `node` that starts with `prefix`.
void keysWithPrefix(const Json& node, const std::string& prefix, std::set<std::string>* out) {
    if (node.is_array()) {
        for (const Json& item : node) {
            keysWithPrefix(item, prefix, out);
        }
        return;
    }
    if (!node.is_object()) {
        return;
    }
    for (auto it = node.begin(); it != node.end(); ++it) {
        if (it.key().compare(0, prefix.size(), prefix) == 0) {
            out->insert(it.key());
        }
        keysWithPrefix(*it, prefix, out);
    }
}

enum class Transport { kBuiltin, kUnix, kTcp };

struct CaptureCase {
    const char* name;
    Transport transport;
    std::vector<std::string> faults;
    bool found;          // the lookup succeeds: the database is compared
    const char* expert;  // the expert item the capture must show, or "" for none at all
};

const std::vector<CaptureCase>& cases() {
    static const std::vector<CaptureCase> all = {
        {"builtin", Transport::kBuiltin, {}, true, ""},
        {"unix", Transport::kUnix, {}, true, ""},
        {"tcp", Transport::kTcp, {}, true, ""},
        {"silent_after_connect", Transport::kBuiltin, {"silent-after-connect"}, false, ""},
        {"silent_after_lookup", Transport::kBuiltin, {"silent-after-lookup"}, false, ""},
        {"silent_after_notice", Transport::kBuiltin, {"silent-after-notice"}, false, ""},
        {"silent_mid_transfer", Transport::kBuiltin, {"silent-mid-transfer"}, false, ""},
        {"status_connect", Transport::kBuiltin, {"status-connect=503"}, false, "failure"},
        {"status_ack", Transport::kBuiltin, {"status-ack=503"}, false, "failure"},
        {"status_notice", Transport::kBuiltin, {"status-notice=503"}, false, "failure"},
        {"status_chunk", Transport::kBuiltin, {"status-chunk=503"}, false, "failure"},
        {"status_cancel",
         Transport::kBuiltin,
         {"status-cancel=503", "silent-after-lookup"},
         false,
         "failure"},
        {"status_echo", Transport::kBuiltin, {"status-echo=503"}, true, ""},
        {"wrong_chunk_index", Transport::kBuiltin, {"wrong-chunk-index"}, false, "chunk_gap"},
        {"repeated_chunk", Transport::kBuiltin, {"repeated-chunk"}, false, "chunk_gap"},
        {"chunk_count_zero", Transport::kBuiltin, {"chunk-count-zero"}, false, "chunk_count"},
        {"short_notice", Transport::kBuiltin, {"short-notice"}, false, "short_frame"},
        {"length_short", Transport::kBuiltin, {"length-short"}, false, "chunk_length"},
        {"length_long", Transport::kBuiltin, {"length-long"}, false, "chunk_length"},
        {"drop_mid_transfer", Transport::kBuiltin, {"drop-mid-transfer"}, false, "cut"},
        {"garbage_length_zero", Transport::kBuiltin, {"garbage-length-zero"}, false, "length_zero"},
        {"garbage_oversize", Transport::kBuiltin, {"garbage-oversize"}, false, "length_over"},
        {"garbage_type", Transport::kBuiltin, {"garbage-type"}, false, "unknown_type"},
        {"slow_chunks", Transport::kBuiltin, {"slow-chunks=100"}, true, ""},
        {"no_cancel_answer",
         Transport::kBuiltin,
         {"no-cancel-answer", "silent-after-lookup"},
         false,
         ""},
    };
    return all;
}

// tshark with the dissector, in a scratch directory of the test.
class TsharkTest : public ::testing::Test {
protected:
    // Where tshark and tcpdump have been installed for these tests (the test
    // preset "wireshark" says so), none of them may skip.
    static bool toolsRequired() {
        const char* required = std::getenv("MOX_TSHARK_REQUIRED");
        return required != nullptr && *required != '\0';
    }

    void SetUp() override {
        if (access(kTshark.c_str(), X_OK) != 0) {
            if (toolsRequired()) {
                FAIL() << "tshark is not installed at " << kTshark
                       << " although MOX_TSHARK_REQUIRED is set";
            }
            GTEST_SKIP() << "tshark is not installed (Debian package tshark)";
        }
        setenv("HB_TIMER_SCALE", "0.02", 1);
        setenv("HB_DBG_OUTPUT", "off", 1);
    }

    // tshark's JSON of the capture; its stderr must hold no error.
    Json dissect(const std::string& capture) {
        const CliResult result = runCli(kTshark,
                                        {"-n", "-X", "lua_script:" + kDissector, "-r", capture,
                                         "-T", "json", "--no-duplicate-keys"},
                                        dir);
        EXPECT_EQ(result.status, 0) << result.err;
        std::string err = result.err;
        const std::string rootNote = "Running as user \"root\"";
        if (err.compare(0, rootNote.size(), rootNote) == 0) {
            err = err.substr(err.find('\n') == std::string::npos ? err.size() : err.find('\n') + 1);
        }
        EXPECT_EQ(err, "");
        if (!Json::accept(result.out)) {
            ADD_FAILURE() << "tshark wrote no JSON: " << result.out.substr(0, 200);
            return Json::array();
        }
        return Json::parse(result.out);
    }

    TestDir dir{"MoxLinkCaptureTest"};
};

class MoxLinkCaptureTest : public TsharkTest, public ::testing::WithParamInterface<size_t> {};

TEST_P(MoxLinkCaptureTest, EveryFrameDecodesAndShowsWhatWentOverTheLink) {
    const CaptureCase& c = cases()[GetParam()];
    const std::string capture = dir.file("link.pcap");
    std::vector<std::string> args = {"lookup",   "--toc",  kDisc1,      "--json",   "--capture",
                                     capture,    "--kind", "7",         "--param1", "258",
                                     "--param2", "772",    "--timeout", "30"};
    std::unique_ptr<PhoneProcess> phone;
    if (c.transport == Transport::kBuiltin) {
        for (const std::string& fault : c.faults) {
            args.push_back("--fault");
            args.push_back(fault);
        }
    } else {
        const std::string endpoint = c.transport == Transport::kUnix
                                         ? "unix:" + dir.file("phone.sock")
                                         : std::string("tcp:127.0.0.1:0");
        phone.reset(new PhoneProcess(kPhone, endpoint, {}));
        ASSERT_FALSE(phone->endpoint().empty());
        args.push_back("--phone");
        args.push_back(phone->endpoint());
    }
    // The answer is kept, for mox search to read it as a user would.
    const std::string resultDir = dir.file("result") + "/";
    ASSERT_EQ(::mkdir(resultDir.c_str(), 0700), 0);
    setenv("MOX_RESULT_DIR", resultDir.c_str(), 1);
    const CliResult lookup = runCli(kMox, args, dir);
    ASSERT_EQ(lookup.status, c.found ? 0 : 1) << lookup.err;

    moxcapture::CaptureReader::Capture records;
    std::string error;
    ASSERT_TRUE(moxcapture::CaptureReader::readFile(capture, &records, &error)) << error;
    const Json frames = dissect(capture);
    ASSERT_EQ(frames.size(), records.records.size());

    std::set<std::string> experts;
    for (const Json& frame : frames) {
        const Json& layers = frame.at("_source").at("layers");
        EXPECT_TRUE(layers.contains("moxlink")) << layers.dump().substr(0, 300);
        EXPECT_EQ(strings(layers, "frame.protocols"),
                  std::vector<std::string>{"exported_pdu:moxlink"});
        std::set<std::string> markers;
        keysWithPrefix(layers, "_ws.malformed", &markers);
        keysWithPrefix(layers, "_ws.lua.error", &markers);
        EXPECT_TRUE(markers.empty()) << *markers.begin();
        keysWithPrefix(layers, kExpertPrefix, &experts);
    }
    EXPECT_EQ(experts.count(kExpertPrefix + "internal"), 0u);
    if (std::string(c.expert).empty()) {
        EXPECT_TRUE(experts.empty()) << *experts.begin();
    } else {
        EXPECT_EQ(experts.count(kExpertPrefix + c.expert), 1u);
    }

    // The first frames: the phone's greeting, then the module's connect.
    ASSERT_GE(frames.size(), 3u);
    EXPECT_EQ(strings(frames[0], "moxlink.device_info.name"),
              std::vector<std::string>{"mox-phone"});
    EXPECT_EQ(strings(frames[1], "moxlink.device_status"), std::vector<std::string>{"2"});
    EXPECT_EQ(strings(frames[2], "moxlink.cmd"), std::vector<std::string>{"0x0001"});
    EXPECT_EQ(strings(frames[2], "moxlink.direction"), std::vector<std::string>{"0"});
    if (c.faults.empty() || c.found) {
        EXPECT_EQ(strings(frames, "moxlink.lookup.xml"),
                  std::vector<std::string>{requestXml(kDisc1)});
        EXPECT_EQ(strings(frames, "moxlink.lookup.toc"), std::vector<std::string>{kDisc1});
        EXPECT_EQ(strings(frames, "moxlink.lookup.kind"), std::vector<std::string>{"7"});
        EXPECT_EQ(strings(frames, "moxlink.lookup.param1"), std::vector<std::string>{"258"});
        EXPECT_EQ(strings(frames, "moxlink.lookup.param2"), std::vector<std::string>{"772"});
    }
    if (!c.found) {
        return;
    }
    // The albums of the reassembled database are those that mox search finds
    // in the stored answer.
    const CliResult search = runCli(
        kMox, {"search", resultDir + "dbupdateresponse.dap3", "--toc", kDisc1, "--json"}, dir);
    ASSERT_EQ(search.status, 0) << search.err;
    const Json result = Json::parse(search.out);
    std::vector<Json> albumTrees;
    collect(frames, "moxlink.db.album_tree", &albumTrees);
    const std::vector<std::string> albumIds = strings(frames, "moxlink.db.album");
    ASSERT_EQ(albumIds.size(), albumTrees.size());
    ASSERT_FALSE(result.at("albums").empty());
    for (const Json& album : result.at("albums")) {
        const std::string id = album.at("AlbumId").get<std::string>();
        size_t at = 0;
        while (at < albumIds.size() && albumIds[at] != id) {
            ++at;
        }
        ASSERT_LT(at, albumIds.size()) << "album " << id << " not in the dissected database";
        const Json& tree = albumTrees[at];
        EXPECT_EQ(strings(tree, "moxlink.db.album.title"),
                  std::vector<std::string>{album.at("AlbumName").get<std::string>()});
        EXPECT_EQ(strings(tree, "moxlink.db.album.genre"),
                  std::vector<std::string>{album.at("GenreName").get<std::string>()});
        std::vector<std::string> titles, performers, genres;
        for (const Json& track : album.at("Tracks")) {
            titles.push_back(track.at("TrackName").get<std::string>());
            performers.push_back(track.at("PerformerName").get<std::string>());
            genres.push_back(track.at("GenreName").get<std::string>());
        }
        EXPECT_EQ(strings(tree, "moxlink.db.album.track"), titles);
        EXPECT_EQ(strings(tree, "moxlink.db.album.track.performer"), performers);
        EXPECT_EQ(strings(tree, "moxlink.db.album.track.genre"), genres);
    }
}

INSTANTIATE_TEST_SUITE_P(EveryTransportAndFault, MoxLinkCaptureTest,
                         ::testing::Range<size_t>(0, cases().size()),
                         [](const ::testing::TestParamInfo<size_t>& info) {
                             return std::string(cases()[info.param].name);
                         });

TEST(MoxLinkCaptureFileTest, RecordsTheLinkBytesWithTheirDirections) {
    TestDir dir{"MoxLinkCaptureFileTest"};
    setenv("HB_DBG_OUTPUT", "off", 1);
    const std::string capture = dir.file("link.pcap");
    const CliResult lookup = runCli(kMox, {"lookup", "--toc", kDisc1, "--capture", capture}, dir);
    ASSERT_EQ(lookup.status, 0) << lookup.err;
    moxcapture::CaptureReader::Capture records;
    std::string error;
    ASSERT_TRUE(moxcapture::CaptureReader::readFile(capture, &records, &error)) << error;
    EXPECT_FALSE(records.cutShort);
    ASSERT_GE(records.records.size(), 4u);
    // The phone's device status 2 and the module's connect, byte for byte.
    EXPECT_EQ(records.records[1].direction, moxcapture::Direction::kFromPhone);
    EXPECT_EQ(records.records[1].bytes, (std::vector<uint8_t>{0, 0, 0, 2, 2, 2}));
    EXPECT_EQ(records.records[2].direction, moxcapture::Direction::kToPhone);
    EXPECT_EQ(records.records[2].bytes, (std::vector<uint8_t>{0, 0, 0, 4, 3, 0, 1, 1}));
}

TEST(MoxLinkCaptureFileTest, UnwritableCapture_FailsWithTheReason) {
    TestDir dir{"MoxLinkCaptureFileTest"};
    const CliResult lookup =
        runCli(kMox, {"lookup", "--toc", kDisc1, "--capture", dir.file("missing/link.pcap")}, dir);
    EXPECT_EQ(lookup.status, 1);
    const std::string start =
        "mox lookup: cannot write the capture " + dir.file("missing/link.pcap");
    EXPECT_EQ(lookup.err.rfind(start, 0), 0u) << lookup.err;
}

TEST(MoxLinkCaptureFileTest, PhoneKilledAfterALookup_LeavesEveryRecordReadable) {
    TestDir dir{"MoxLinkCaptureFileTest"};
    setenv("HB_DBG_OUTPUT", "off", 1);
    const std::string capture = dir.file("phone.pcap");
    PhoneProcess phone(kPhone, "unix:" + dir.file("phone.sock"), {"--capture", capture});
    ASSERT_FALSE(phone.endpoint().empty());
    const CliResult lookup =
        runCli(kMox, {"lookup", "--toc", kDisc1, "--phone", phone.endpoint()}, dir);
    ASSERT_EQ(lookup.status, 0) << lookup.err;
    phone.program().waitForLine("mox-phone: the module hung up");
    phone.program().signal(SIGKILL);
    phone.program().wait();
    moxcapture::CaptureReader::Capture records;
    std::string error;
    ASSERT_TRUE(moxcapture::CaptureReader::readFile(capture, &records, &error)) << error;
    EXPECT_FALSE(records.cutShort);
    // Greeting, connect, lookup, its two answers, the request, one chunk, disconnect.
    ASSERT_EQ(records.records.size(), 10u);
    EXPECT_EQ(records.records[2].bytes, (std::vector<uint8_t>{0, 0, 0, 4, 3, 0, 1, 1}));
    EXPECT_EQ(records.records[9].bytes, (std::vector<uint8_t>{0, 0, 0, 3, 3, 0, 2}));

    // Cut inside the last record, the capture still yields the ones before.
    std::filesystem::resize_file(capture, std::filesystem::file_size(capture) - 3);
    ASSERT_TRUE(moxcapture::CaptureReader::readFile(capture, &records, &error)) << error;
    EXPECT_TRUE(records.cutShort);
    EXPECT_EQ(records.records.size(), 9u);
}

// A tcpdump of a lookup over tcp: (Ethernet, IP, TCP segments, no tag that
// names the dissector) decodes too: the dissector finds the link in TCP by
// its heuristic and cuts the envelopes out of the stream. They are those that
// the lookup's own capture holds, in their order. Skipped, with the reason,
// where tcpdump is not installed or may not capture (it needs root or
// CAP_NET_RAW); failed instead when MOX_TSHARK_REQUIRED is set.
class MoxLinkTcpdumpTest : public TsharkTest {
protected:
    // The values of `keys` in every envelope of `frames`, in their order.
    static std::vector<std::string> envelopes(const Json& frames) {
        std::vector<std::string> all;
        for (const Json& frame : frames) {
            std::vector<Json> found;
            collect(frame.at("_source").at("layers"), "moxlink", &found);
            for (const Json& envelope : found) {
                const std::vector<std::string> types = strings(envelope, "moxlink.type");
                const std::vector<std::string> lengths = strings(envelope, "moxlink.length");
                const std::vector<std::string> commands = strings(envelope, "moxlink.cmd");
                all.push_back((types.empty() ? "?" : types[0]) + " " +
                              (lengths.empty() ? "?" : lengths[0]) + " " +
                              (commands.empty() ? "" : commands[0]));
            }
        }
        return all;
    }
};

TEST_F(MoxLinkTcpdumpTest, TcpdumpOfATcpLookup_DecodesTheSameEnvelopes) {
    const std::string tcpdump = "/usr/bin/tcpdump";
    if (access(tcpdump.c_str(), X_OK) != 0) {
        if (toolsRequired()) {
            FAIL() << "tcpdump is not installed although MOX_TSHARK_REQUIRED is set";
        }
        GTEST_SKIP() << "tcpdump is not installed (Debian package tcpdump)";
    }
    PhoneProcess phone(kPhone, "tcp:127.0.0.1:0", {});
    ASSERT_FALSE(phone.endpoint().empty());
    const std::string port = phone.endpoint().substr(phone.endpoint().rfind(':') + 1);
    const std::string sniffed = dir.file("lo.pcap");
    ChildProgram sniffer(tcpdump, {"-i", "lo", "-n", "--immediate-mode", "-U", "-Z", "root", "-w",
                                   sniffed, "tcp port " + port});
    if (sniffer.waitForLine("tcpdump: listening on lo") == "") {
        sniffer.wait();
        if (toolsRequired()) {
            FAIL() << "tcpdump may not capture although MOX_TSHARK_REQUIRED is set: "
                   << sniffer.err();
        }
        GTEST_SKIP() << "tcpdump may not capture here: " << sniffer.err();
    }
    const std::string own = dir.file("own.pcap");
    const CliResult lookup = runCli(
        kMox, {"lookup", "--toc", kDisc1, "--phone", phone.endpoint(), "--capture", own}, dir);
    ASSERT_EQ(lookup.status, 0) << lookup.err;
    const std::vector<std::string> expected = envelopes(dissect(own));
    ASSERT_EQ(expected.size(), 10u);

    // tcpdump writes each packet as it comes; the test reads its file until
    // every envelope is there (a bound, not a wait for time: it is met at once).
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    Json frames = dissect(sniffed);
    while (envelopes(frames).size() < expected.size() &&
           std::chrono::steady_clock::now() < deadline) {
        frames = dissect(sniffed);
    }
    sniffer.signal(SIGINT);
    EXPECT_EQ(sniffer.wait(), 0) << sniffer.err();
    EXPECT_EQ(envelopes(frames), expected);
    EXPECT_EQ(strings(frames, "moxlink.lookup.xml"), std::vector<std::string>{requestXml(kDisc1)});
    EXPECT_EQ(strings(frames, "moxlink.db.album"), strings(dissect(own), "moxlink.db.album"));
    for (const Json& frame : frames) {
        const Json& layers = frame.at("_source").at("layers");
        std::set<std::string> markers;
        keysWithPrefix(layers, "_ws.malformed", &markers);
        keysWithPrefix(layers, "_ws.lua.error", &markers);
        keysWithPrefix(layers, kExpertPrefix, &markers);
        EXPECT_TRUE(markers.empty()) << *markers.begin();
    }
}

}  // namespace
