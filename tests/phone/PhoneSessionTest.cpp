// The protocol state machine of one connection: every frame the phone sends,
// byte for byte, for every request and every fault; malformed requests; the
// module's end going away at each step; stream input split anyhow; the log.
#include "moxphone/PhoneSession.h"

#include <gtest/gtest.h>

#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "PhoneTestSupport.h"
#include "moxphone/PhoneLog.h"
#include "moxphone/ResponseDatabase.h"

using moxphone::PhoneOptions;
using moxphone::PhoneSession;
using namespace phonetest;

namespace {

class PhoneSessionTest : public ::testing::Test {
protected:
    PhoneSessionTest() : log(&logText) {}

    // A session with `options`, opened; what open() sent and logged is cleared.
    void start(const PhoneOptions& options) {
        session.reset(new PhoneSession(options, transport, scheduler, log));
        session->open();
        transport.clear();
        logText.str("");
        mOptions = options;
    }
    void startWith(const std::vector<std::string>& faults, uint32_t chunkSize = 4096) {
        PhoneOptions options = optionsWith(sampleCatalogue(), faults);
        options.chunkSize = chunkSize;
        start(options);
    }
    void receive(const Bytes& frame) { session->receiveFrame(frame.data(), frame.size()); }

    // Connect, lookup of the sample's four-track disc 2, both answered; cleared.
    void lookedUp(const std::string& toc = kDiscToc) {
        receive(kConnect);
        receive(lookupFrame(toc));
        transport.clear();
        logText.str("");
    }
    Bytes database(const std::string& toc = kDiscToc) const {
        const moxphone::CatalogueDisc* disc = mOptions.catalogue->findDisc(toc);
        EXPECT_NE(nullptr, disc);
        return disc == nullptr ? Bytes()
                               : moxphone::ResponseDatabase::build(*mOptions.catalogue, *disc);
    }
    // The chunks of `db` in pieces of `size`, indexes 0..count-1, as sent normally.
    static std::vector<Bytes> chunks(const Bytes& db, size_t size) {
        std::vector<Bytes> out;
        const uint16_t count = static_cast<uint16_t>((db.size() + size - 1) / size);
        for (uint16_t i = 0; i < count; ++i) {
            const size_t begin = i * size;
            const size_t length = std::min(size, db.size() - begin);
            out.push_back(chunk(i, count, static_cast<uint32_t>(length), slice(db, begin, length)));
        }
        return out;
    }
    std::vector<std::string> logLines() const { return linesOf(logText.str()); }

    // Disc 2 of the sample: the first disc of the two-disc album, 4 tracks.
    static inline const std::string kDiscToc = "000096004EB600A0BE00ECEA013916";

    RecordingTransport transport;
    ManualScheduler scheduler;
    std::ostringstream logText;
    moxphone::PhoneLog log;
    std::unique_ptr<PhoneSession> session;

private:
    PhoneOptions mOptions;
};

}  // namespace

// ---- Opening ----

TEST_F(PhoneSessionTest, Open_Android_SendsDeviceInfoThenApplicationOpen) {
    PhoneSession phone(optionsWith(smallCatalogue()), transport, scheduler, log);
    phone.open();
    const Bytes expected = {0x00, 0x00, 0x00, 0x0B, 0x01, 0x01, 'm',  'o',  'x',  '-', 'p',
                            'h',  'o',  'n',  'e',  0x00, 0x00, 0x00, 0x02, 0x02, 0x02};
    EXPECT_EQ(expected, transport.stream());
    EXPECT_TRUE(phone.isOpen());
    EXPECT_EQ(
        "mox-phone: -> device info: os android, name \"mox-phone\"\n"
        "mox-phone: -> device status 2 (application open)\n",
        logText.str());
}

TEST_F(PhoneSessionTest, Open_IosAndOwnName_OsTypeZeroAndTheName) {
    PhoneOptions options = optionsWith(smallCatalogue());
    options.osType = 0;
    options.deviceName = "Testphone";
    PhoneSession phone(options, transport, scheduler, log);
    phone.open();
    EXPECT_EQ((std::vector<Message>{deviceInfo(0, "Testphone"), deviceStatus(2)}),
              transport.messages());
}

// ---- Answers without faults ----

TEST_F(PhoneSessionTest, Connect_AnswersTheEightByteHeader) {
    startWith({});
    receive(kConnect);
    EXPECT_EQ((Bytes{0x00, 0x00, 0x00, 0x09, 0x03, 0x80, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00}),
              transport.stream());
}

TEST_F(PhoneSessionTest, Lookup_KnownDisc_AcknowledgesThenAnnouncesTheDatabaseSize) {
    startWith({});
    receive(kConnect);
    transport.clear();
    receive(lookupFrame(kDiscToc, 1, 2, 3));
    const uint32_t size = static_cast<uint32_t>(database().size());
    ASSERT_GT(size, 124u);
    Bytes expected = {0x00, 0x00, 0x00, 0x09, 0x03, 0x80, 0x10, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
                      0x00, 0x00, 0x00, 0x0D, 0x03, 0x80, 0x11, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00};
    moxdb::appendU32Be(expected, size);
    EXPECT_EQ(expected, transport.stream());
}

TEST_F(PhoneSessionTest, Lookup_UnknownDisc_NoticeCarries404AndSizeZero) {
    startWith({});
    receive(lookupFrame(kUnknownToc));
    EXPECT_EQ((std::vector<Bytes>{
                  answer(0x8010),
                  {0x80, 0x11, 0x01, 0x94, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00}}),
              transport.frames());
}

TEST_F(PhoneSessionTest, Lookup_UnknownDiscWithOwnNotFoundStatus_NoticeCarriesIt) {
    PhoneOptions options = optionsWith(sampleCatalogue());
    options.notFoundStatus = 7;
    start(options);
    receive(lookupFrame(kUnknownToc));
    EXPECT_EQ((std::vector<Bytes>{answer(0x8010), notice(0, 7)}), transport.frames());
}

TEST_F(PhoneSessionTest, Lookup_TocMatchesOnlyExactly_LowerCaseIsUnknown) {
    startWith({});
    receive(lookupFrame("000096004eb600a0be00ecea013916"));
    EXPECT_EQ((std::vector<Bytes>{answer(0x8010), notice(0, 404)}), transport.frames());
}

TEST_F(PhoneSessionTest, GetCdMetaInfo_SmallDatabase_OneChunkOfTheWholeDatabase) {
    startWith({});
    lookedUp();
    receive(kGetCdMetaInfo);
    const Bytes db = database();
    ASSERT_LT(db.size(), 4096u);
    EXPECT_EQ((std::vector<Bytes>{chunk(0, 1, static_cast<uint32_t>(db.size()), db)}),
              transport.frames());
}

TEST_F(PhoneSessionTest, GetCdMetaInfo_ChunkSize300_NumberedChunksThatRebuildTheDatabase) {
    startWith({}, 300);
    lookedUp();
    receive(kGetCdMetaInfo);
    const Bytes db = database();
    ASSERT_GT(db.size(), 900u);
    const std::vector<Bytes> frames = transport.frames();
    EXPECT_EQ(chunks(db, 300), frames);
    Bytes rebuilt;
    for (const Bytes& frame : frames) {
        rebuilt.insert(rebuilt.end(), frame.begin() + 12, frame.end());
    }
    EXPECT_EQ(db, rebuilt);
}

TEST_F(PhoneSessionTest, GetCdMetaInfo_ChunkOneByteShortOfTheDatabase_LastChunkHoldsOneByte) {
    PhoneOptions options = optionsWith(sampleCatalogue());
    start(options);
    const size_t size = database().size();
    options.chunkSize = static_cast<uint32_t>(size - 1);
    start(options);
    lookedUp();
    receive(kGetCdMetaInfo);
    const std::vector<Bytes> frames = transport.frames();
    ASSERT_EQ(2u, frames.size());
    EXPECT_EQ(chunk(1, 2, 1, slice(database(), size - 1, 1)), frames[1]);
}

TEST_F(PhoneSessionTest, GetCdMetaInfo_AskedTwice_SendsTheDatabaseAgain) {
    startWith({});
    lookedUp();
    receive(kGetCdMetaInfo);
    receive(kGetCdMetaInfo);
    const Bytes db = database();
    const Bytes one = chunk(0, 1, static_cast<uint32_t>(db.size()), db);
    EXPECT_EQ((std::vector<Bytes>{one, one}), transport.frames());
}

TEST_F(PhoneSessionTest, GetCdMetaInfo_BeforeAnyLookup_FailureChunkWithStatus400) {
    startWith({});
    receive(kGetCdMetaInfo);
    EXPECT_EQ((std::vector<Bytes>{{0x80, 0x12, 0x01, 0x90, 0, 0, 0, 0, 0, 0, 0, 0}}),
              transport.frames());
    EXPECT_EQ(
        "mox-phone: <- 0x0012 get CD meta info (6 bytes)\n"
        "mox-phone: no lookup result to send; answered with status 400\n"
        "mox-phone: -> 0x8012 chunk 0/0 status 400 length 0 (12 bytes)\n",
        logText.str());
}

TEST_F(PhoneSessionTest, GetCdMetaInfo_AfterAnUnknownDisc_Status400) {
    startWith({});
    lookedUp(kUnknownToc);
    receive(kGetCdMetaInfo);
    EXPECT_EQ((std::vector<Bytes>{chunk(0, 0, 0, {}, 400)}), transport.frames());
}

TEST_F(PhoneSessionTest, GetCdMetaInfo_AfterACancel_Status400) {
    startWith({});
    lookedUp();
    receive(kCancel);
    transport.clear();
    receive(kGetCdMetaInfo);
    EXPECT_EQ((std::vector<Bytes>{chunk(0, 0, 0, {}, 400)}), transport.frames());
}

TEST_F(PhoneSessionTest, GetCdMetaInfo_MoreThan65535ChunksNeeded_FailureChunkWithStatus500) {
    nlohmann::json tracks = nlohmann::json::array();
    for (int i = 0; i < 100; ++i) {
        tracks.push_back({{"title", std::to_string(i) + std::string(400, 'x')},
                          {"performer", "p"},
                          {"genre", "ROCK"}});
    }
    const nlohmann::json catalogue = {
        {"albums",
         {{{"id", "BIG"},
           {"title", "Big"},
           {"genre", "ROCK"},
           {"language", "en"},
           {"media", {{{"tracks", tracks}}}}}}},
        {"discs",
         {{{"toc", "0000960046E6"},
           {"candidates", {{{"album", "BIG"}, {"medium", 1}, {"confidence", 1}}}}}}}};
    PhoneOptions options = optionsWith(loadCatalogue(catalogue.dump()));
    options.chunkSize = 1;
    start(options);
    ASSERT_GT(database("0000960046E6").size(), 65535u);
    lookedUp("0000960046E6");
    receive(kGetCdMetaInfo);
    EXPECT_EQ((std::vector<Bytes>{chunk(0, 0, 0, {}, 500)}), transport.frames());
    EXPECT_EQ("mox-phone: the database of " + std::to_string(database("0000960046E6").size()) +
                  " bytes needs more than 65535 chunks of 1 bytes; answered with status 500",
              logLines().at(1));
}

TEST_F(PhoneSessionTest, Cancel_Answers8FFF) {
    startWith({});
    receive(kCancel);
    EXPECT_EQ((std::vector<Bytes>{{0x8F, 0xFF, 0, 0, 0, 0, 0, 0}}), transport.frames());
}

TEST_F(PhoneSessionTest, Echo_AnswersFFFF) {
    startWith({});
    receive(kEcho);
    EXPECT_EQ((std::vector<Bytes>{{0xFF, 0xFF, 0, 0, 0, 0, 0, 0}}), transport.frames());
}

TEST_F(PhoneSessionTest, Disconnect_AnswersNothing) {
    startWith({});
    receive(kDisconnect);
    EXPECT_TRUE(transport.sends.empty());
    EXPECT_EQ("mox-phone: <- 0x0002 disconnect (2 bytes)\n", logText.str());
}

TEST_F(PhoneSessionTest, WholeLookup_LogsOneLinePerFrame) {
    startWith({});
    const size_t size = database().size();
    receive(kConnect);
    receive(lookupFrame(kDiscToc, 1, 2, 3));
    receive(kGetCdMetaInfo);
    const std::string n = std::to_string(size);
    EXPECT_EQ(
        (std::vector<std::string>{
            "mox-phone: <- 0x0001 connect (3 bytes)",
            "mox-phone: -> 0x8001 connect answer status 0 (8 bytes)",
            "mox-phone: <- 0x0010 lookup kind 1 param1 2 param2 3 toc " + kDiscToc + " (189 bytes)",
            "mox-phone: -> 0x8010 lookup answer status 0 (8 bytes)",
            "mox-phone: the disc is in the catalogue: 1 candidate, a response database of " + n +
                " bytes",
            "mox-phone: -> 0x8011 notice status 0 size " + n + " (12 bytes)",
            "mox-phone: <- 0x0012 get CD meta info (6 bytes)",
            "mox-phone: sending the database of " + n + " bytes in 1 chunk of at most 4096 bytes",
            "mox-phone: -> 0x8012 chunk 0/1 status 0 length " + n + " (" +
                std::to_string(size + 12) + " bytes)",
        }),
        logLines());
}

// ---- Malformed requests ----

TEST_F(PhoneSessionTest, Connect_TwoBytes_Status400AndTheReasonLogged) {
    startWith({});
    receive({0x00, 0x01});
    EXPECT_EQ((std::vector<Bytes>{answer(0x8001, 400)}), transport.frames());
    EXPECT_EQ((std::vector<std::string>{
                  "mox-phone: <- 0x0001 connect (2 bytes)",
                  "mox-phone: malformed connect: the frame must be the 3 bytes 00 01 01, not 00 "
                  "01; answered with status 400",
                  "mox-phone: -> 0x8001 connect answer status 400 (8 bytes)"}),
              logLines());
}

TEST_F(PhoneSessionTest, Connect_MebibyteFrame_LogShowsTheFirst32BytesAndTheSize) {
    startWith({});
    Bytes frame(1024 * 1024, 0xAA);
    frame[0] = 0x00;
    frame[1] = 0x01;
    receive(frame);
    EXPECT_EQ((std::vector<Bytes>{answer(0x8001, 400)}), transport.frames());
    std::string shown = "00 01";
    for (int i = 2; i < 32; ++i) {
        shown += " AA";
    }
    EXPECT_EQ((std::vector<std::string>{
                  "mox-phone: <- 0x0001 connect (1048576 bytes)",
                  "mox-phone: malformed connect: the frame must be the 3 bytes 00 01 01, not " +
                      shown + " ... (1048576 bytes); answered with status 400",
                  "mox-phone: -> 0x8001 connect answer status 400 (8 bytes)"}),
              logLines());
    // Three short lines, not the 3 MiB that the whole frame in hex would take.
    EXPECT_LT(logText.str().size(), 512u);
}

TEST_F(PhoneSessionTest, Echo_FrameOf32And33Bytes_AllShownUpTo32ThenCut) {
    startWith({});
    Bytes frame(32, 0x01);
    frame[0] = 0x7F;
    frame[1] = 0xFF;
    receive(frame);
    frame.push_back(0x02);
    receive(frame);
    const std::vector<std::string> lines = logLines();
    ASSERT_EQ(6u, lines.size());
    std::string shown = "7F FF";
    for (int i = 2; i < 32; ++i) {
        shown += " 01";
    }
    EXPECT_EQ("mox-phone: malformed echo request: the frame must be the 2 bytes 7F FF, not " +
                  shown + "; answered with status 400",
              lines[1]);
    EXPECT_EQ("mox-phone: malformed echo request: the frame must be the 2 bytes 7F FF, not " +
                  shown + " ... (33 bytes); answered with status 400",
              lines[4]);
}

TEST_F(PhoneSessionTest, Connect_WrongThirdByte_Status400) {
    startWith({});
    receive({0x00, 0x01, 0x02});
    EXPECT_EQ((std::vector<Bytes>{answer(0x8001, 400)}), transport.frames());
}

TEST_F(PhoneSessionTest, GetCdMetaInfo_OtherParameter_FailureChunkWithStatus400) {
    startWith({});
    lookedUp();
    receive({0x00, 0x12, 0x00, 0x00, 0x03, 0xE7});
    EXPECT_EQ((std::vector<Bytes>{chunk(0, 0, 0, {}, 400)}), transport.frames());
}

TEST_F(PhoneSessionTest, CancelEchoDisconnect_ExtraByte_Status400OnTheirAnswerIds) {
    startWith({});
    receive({0x0F, 0xFF, 0x00});
    receive({0x7F, 0xFF, 0x00});
    receive({0x00, 0x02, 0x00});
    EXPECT_EQ((std::vector<Bytes>{answer(0x8FFF, 400), answer(0xFFFF, 400), answer(0x8002, 400)}),
              transport.frames());
}

TEST_F(PhoneSessionTest, Lookup_ReservedByteSet_Status400WithTheReason) {
    startWith({});
    Bytes frame = lookupFrame(kDiscToc);
    frame[3] = 0x01;
    receive(frame);
    EXPECT_EQ((std::vector<Bytes>{answer(0x8010, 400)}), transport.frames());
    EXPECT_EQ(
        "mox-phone: malformed lookup: the reserved byte 3 is 1, not 0; answered with "
        "status 400",
        logLines().at(1));
}

TEST_F(PhoneSessionTest, Lookup_Malformed_NoDatabaseIsPrepared) {
    startWith({});
    Bytes frame = lookupFrame(kDiscToc);
    frame.pop_back();
    receive(frame);
    receive(kGetCdMetaInfo);
    EXPECT_EQ((std::vector<Bytes>{answer(0x8010, 400), chunk(0, 0, 0, {}, 400)}),
              transport.frames());
}

TEST_F(PhoneSessionTest, UnknownRequest_AnsweredOnItsAnswerIdWithStatus400) {
    startWith({});
    receive({0x12, 0x34, 0x00});
    EXPECT_EQ((std::vector<Bytes>{answer(0x9234, 400)}), transport.frames());
    EXPECT_EQ((std::vector<std::string>{
                  "mox-phone: <- 0x1234 unknown request (3 bytes)",
                  "mox-phone: malformed request: unknown command ID 0x1234; answered with status "
                  "400",
                  "mox-phone: -> 0x9234 answer status 400 (8 bytes)"}),
              logLines());
}

TEST_F(PhoneSessionTest, AnswerFrameFromTheModule_IgnoredAndLogged) {
    startWith({});
    receive(answer(0x8001));
    EXPECT_TRUE(transport.sends.empty());
    EXPECT_EQ("mox-phone: <- 0x8001 (8 bytes) is an answer, not a request; ignored\n",
              logText.str());
}

TEST_F(PhoneSessionTest, FrameOfOneByte_IgnoredAndLogged) {
    startWith({});
    receive({0x00});
    EXPECT_TRUE(transport.sends.empty());
    EXPECT_EQ("mox-phone: <- frame (1 byte) without a command ID ignored\n", logText.str());
}

// ---- Faults of single answers ----

TEST_F(PhoneSessionTest, SilentAfterConnect_ConnectNotAnswered) {
    startWith({"silent-after-connect"});
    receive(kConnect);
    EXPECT_TRUE(transport.sends.empty());
    EXPECT_EQ((std::vector<std::string>{
                  "mox-phone: <- 0x0001 connect (3 bytes)",
                  "mox-phone: fault silent-after-connect: the connect is not answered"}),
              logLines());
}

TEST_F(PhoneSessionTest, StatusConnect_ConnectAnswerCarriesTheStatus) {
    startWith({"status-connect=503"});
    receive(kConnect);
    EXPECT_EQ((std::vector<Bytes>{{0x80, 0x01, 0x01, 0xF7, 0, 0, 0, 0}}), transport.frames());
}

TEST_F(PhoneSessionTest, SilentAfterLookup_NothingAnswered) {
    startWith({"silent-after-lookup"});
    receive(kConnect);
    transport.clear();
    receive(lookupFrame(kDiscToc));
    EXPECT_TRUE(transport.sends.empty());
}

TEST_F(PhoneSessionTest, StatusAck_OnlyTheAckWithTheStatus) {
    startWith({"status-ack=503"});
    receive(lookupFrame(kDiscToc));
    receive(kGetCdMetaInfo);
    EXPECT_EQ((std::vector<Bytes>{answer(0x8010, 503), chunk(0, 0, 0, {}, 400)}),
              transport.frames());
}

TEST_F(PhoneSessionTest, StatusNotice_NoticeCarriesTheStatusAndSizeZero) {
    startWith({"status-notice=503"});
    receive(lookupFrame(kDiscToc));
    EXPECT_EQ((std::vector<Bytes>{answer(0x8010), notice(0, 503)}), transport.frames());
}

TEST_F(PhoneSessionTest, StatusNotice_UnknownDisc_TheFaultsStatusReplacesNotFound) {
    startWith({"status-notice=503"});
    receive(lookupFrame(kUnknownToc));
    EXPECT_EQ((std::vector<Bytes>{answer(0x8010), notice(0, 503)}), transport.frames());
}

TEST_F(PhoneSessionTest, ShortNotice_ElevenBytes) {
    startWith({"short-notice"});
    receive(lookupFrame(kDiscToc));
    Bytes expected = notice(static_cast<uint32_t>(database().size()));
    expected.pop_back();
    EXPECT_EQ((std::vector<Bytes>{answer(0x8010), expected}), transport.frames());
}

TEST_F(PhoneSessionTest, GarbageLengthZero_FourZeroBytesInsteadOfTheNotice) {
    startWith({"garbage-length-zero"});
    receive(lookupFrame(kDiscToc));
    transport.sends.erase(transport.sends.begin());  // the acknowledgement
    EXPECT_EQ((Bytes{0x00, 0x00, 0x00, 0x00}), transport.stream());
}

TEST_F(PhoneSessionTest, GarbageOversize_LengthWordOfOneMebibytePlusOneAndTheTypeByte) {
    startWith({"garbage-oversize"});
    receive(lookupFrame(kDiscToc));
    transport.sends.erase(transport.sends.begin());
    EXPECT_EQ((Bytes{0x00, 0x10, 0x00, 0x01, 0x03}), transport.stream());
}

TEST_F(PhoneSessionTest, GarbageType_TheNoticeInAnEnvelopeOfType7F) {
    startWith({"garbage-type"});
    receive(lookupFrame(kDiscToc));
    transport.sends.erase(transport.sends.begin());
    EXPECT_EQ(envelope(0x7F, notice(static_cast<uint32_t>(database().size()))), transport.stream());
}

TEST_F(PhoneSessionTest, SilentAfterNotice_DatabaseRequestNotAnswered) {
    startWith({"silent-after-notice"});
    receive(lookupFrame(kDiscToc));
    EXPECT_EQ(2u, transport.frames().size());
    transport.clear();
    receive(kGetCdMetaInfo);
    EXPECT_TRUE(transport.sends.empty());
}

TEST_F(PhoneSessionTest, NoCancelAnswer_CancelNotAnswered) {
    startWith({"no-cancel-answer"});
    receive(kCancel);
    EXPECT_TRUE(transport.sends.empty());
}

TEST_F(PhoneSessionTest, StatusCancel_CancelAnswerCarriesTheStatus) {
    startWith({"status-cancel=503"});
    receive(kCancel);
    EXPECT_EQ((std::vector<Bytes>{answer(0x8FFF, 503)}), transport.frames());
}

TEST_F(PhoneSessionTest, StatusEcho_EchoAnswerCarriesTheStatus) {
    startWith({"status-echo=503"});
    receive(kEcho);
    EXPECT_EQ((std::vector<Bytes>{answer(0xFFFF, 503)}), transport.frames());
}

// ---- Faults of the transfer: the middle chunk m = count / 2 ----

// Chunks of 300 bytes: count c, middle m.
class PhoneSessionTransferTest : public PhoneSessionTest {
protected:
    void transfer(const std::string& fault) {
        startWith({fault}, kPiece);
        lookedUp();
        db = database();
        count = static_cast<uint16_t>((db.size() + kPiece - 1) / kPiece);
        middle = static_cast<uint16_t>(count / 2);
        ASSERT_GE(count, 4);
        normal = chunks(db, kPiece);
        receive(kGetCdMetaInfo);
    }
    // The normal chunks before the middle one, then `last`.
    std::vector<Bytes> before(const Bytes& last) const {
        std::vector<Bytes> frames(normal.begin(), normal.begin() + middle);
        frames.push_back(last);
        return frames;
    }
    Bytes middlePayload() const { return slice(db, middle * kPiece, kPiece); }

    static constexpr uint32_t kPiece = 300;
    Bytes db;
    uint16_t count = 0;
    uint16_t middle = 0;
    std::vector<Bytes> normal;
};

TEST_F(PhoneSessionTransferTest, SilentMidTransfer_ChunksBeforeTheMiddleOnly) {
    transfer("silent-mid-transfer");
    EXPECT_EQ(std::vector<Bytes>(normal.begin(), normal.begin() + middle), transport.frames());
    EXPECT_TRUE(session->isOpen());
}

TEST_F(PhoneSessionTransferTest, StatusChunk_MiddleChunkCarriesTheStatusAndNoPayload) {
    transfer("status-chunk=503");
    EXPECT_EQ(before(chunk(middle, count, 0, {}, 503)), transport.frames());
}

TEST_F(PhoneSessionTransferTest, WrongChunkIndex_MiddleChunkNumberedOneHigher) {
    transfer("wrong-chunk-index");
    EXPECT_EQ(before(chunk(static_cast<uint16_t>(middle + 1), count, kPiece, middlePayload())),
              transport.frames());
}

TEST_F(PhoneSessionTransferTest, RepeatedChunk_TheChunkBeforeTheMiddleAgain) {
    transfer("repeated-chunk");
    EXPECT_EQ(before(normal[middle - 1]), transport.frames());
}

TEST_F(PhoneSessionTransferTest, ChunkCountZero_MiddleChunkSaysZeroChunks) {
    transfer("chunk-count-zero");
    EXPECT_EQ(before(chunk(middle, 0, kPiece, middlePayload())), transport.frames());
}

TEST_F(PhoneSessionTransferTest, LengthShort_DeclaresOneByteLessThanCarried) {
    transfer("length-short");
    EXPECT_EQ(before(chunk(middle, count, kPiece - 1, middlePayload())), transport.frames());
    EXPECT_EQ("mox-phone: fault length-short: chunk " + std::to_string(middle) +
                  " declares 299 bytes and carries 300; the transfer ends there",
              logLines().at(logLines().size() - 2));
}

TEST_F(PhoneSessionTransferTest, LengthLong_DeclaresOneByteMoreThanCarried) {
    transfer("length-long");
    EXPECT_EQ(before(chunk(middle, count, kPiece + 1, middlePayload())), transport.frames());
}

TEST_F(PhoneSessionTransferTest, DropMidTransfer_HalfOfTheMiddleEnvelopeThenHangUp) {
    transfer("drop-mid-transfer");
    Bytes expected;
    for (uint16_t i = 0; i < middle; ++i) {
        const Bytes whole = command(normal[i]);
        expected.insert(expected.end(), whole.begin(), whole.end());
    }
    const Bytes middleEnvelope = command(normal[middle]);
    const Bytes half = slice(middleEnvelope, 0, middleEnvelope.size() / 2);
    expected.insert(expected.end(), half.begin(), half.end());
    EXPECT_EQ(expected, transport.stream());
    EXPECT_EQ(1, transport.hangUps);
    EXPECT_FALSE(session->isOpen());
    EXPECT_EQ("mox-phone: hanging up", logLines().back());
}

TEST_F(PhoneSessionTest, TransferFault_DatabaseFitsOneChunk_SplitInTwo) {
    startWith({"wrong-chunk-index"});
    lookedUp();
    receive(kGetCdMetaInfo);
    const Bytes db = database();
    const size_t half = (db.size() + 1) / 2;
    EXPECT_EQ((std::vector<Bytes>{chunk(0, 2, static_cast<uint32_t>(half), slice(db, 0, half)),
                                  chunk(2, 2, static_cast<uint32_t>(db.size() - half),
                                        slice(db, half, db.size() - half))}),
              transport.frames());
    EXPECT_EQ("mox-phone: sending the database of " + std::to_string(db.size()) +
                  " bytes in 2 chunks of at most " + std::to_string(half) +
                  " bytes (split in two for the fault)",
              logLines().at(1));
}

// ---- A transport without room ----

TEST_F(PhoneSessionTest, NoRoomAfterTheFirstChunk_TheRestWaitsForResume) {
    startWith({}, 300);
    lookedUp();
    const std::vector<Bytes> all = chunks(database(), 300);
    ASSERT_GE(all.size(), 3u);
    transport.onSend = [this](const Bytes&) { transport.room = false; };
    receive(kGetCdMetaInfo);
    EXPECT_EQ(std::vector<Bytes>{all[0]}, transport.frames());
    session->resume();  // still no room: nothing more
    EXPECT_EQ(std::vector<Bytes>{all[0]}, transport.frames());
    transport.room = true;
    transport.onSend = nullptr;
    session->resume();
    EXPECT_EQ(all, transport.frames());
    session->resume();  // the transfer is over: nothing again
    EXPECT_EQ(all, transport.frames());
}

TEST_F(PhoneSessionTest, NoRoom_CancelWhileWaiting_ResumeSendsNothing) {
    startWith({}, 300);
    lookedUp();
    transport.room = false;
    receive(kGetCdMetaInfo);
    EXPECT_TRUE(transport.frames().empty());
    receive(kCancel);
    EXPECT_EQ(std::vector<Bytes>{answer(0x8FFF)}, transport.frames());
    transport.room = true;
    session->resume();
    EXPECT_EQ(std::vector<Bytes>{answer(0x8FFF)}, transport.frames());
}

TEST_F(PhoneSessionTest, NoRoomWithSlowChunks_ADueChunkWaitsThenGoesAtOnceAndTheNextIsDelayed) {
    startWith({"slow-chunks=1000"}, 300);
    lookedUp();
    const std::vector<Bytes> all = chunks(database(), 300);
    ASSERT_GE(all.size(), 3u);
    receive(kGetCdMetaInfo);
    transport.room = false;
    scheduler.advance(1000);
    EXPECT_TRUE(transport.frames().empty());
    EXPECT_EQ(0u, scheduler.pending());
    transport.room = true;
    session->resume();
    EXPECT_EQ(std::vector<Bytes>{all[0]}, transport.frames());
    scheduler.advance(999);
    EXPECT_EQ(1u, transport.frames().size());
    scheduler.advance(1);
    EXPECT_EQ(std::vector<Bytes>(all.begin(), all.begin() + 2), transport.frames());
}

TEST_F(PhoneSessionTest, AnswersToRequests_SentWhateverTheRoom) {
    startWith({});
    transport.room = false;
    receive(kConnect);
    receive(kEcho);
    EXPECT_EQ((std::vector<Bytes>{answer(0x8001), answer(0xFFFF)}), transport.frames());
    EXPECT_EQ(0, transport.roomAsked);
}

// ---- Slow chunks ----

TEST_F(PhoneSessionTest, SlowChunks_EachChunkTheScaledDelayAfterTheOneBefore) {
    PhoneOptions options = optionsWith(sampleCatalogue(), {"slow-chunks=3000"});
    options.chunkSize = 1000;
    options.timeScale = 0.5;
    start(options);
    lookedUp();
    const std::vector<Bytes> all = chunks(database(), 1000);
    ASSERT_GE(all.size(), 2u);
    receive(kGetCdMetaInfo);
    EXPECT_TRUE(transport.sends.empty());
    for (size_t i = 0; i < all.size(); ++i) {
        scheduler.advance(1499);
        EXPECT_EQ(i, transport.frames().size());
        scheduler.advance(1);
        EXPECT_EQ(std::vector<Bytes>(all.begin(), all.begin() + i + 1), transport.frames());
    }
    EXPECT_EQ(std::vector<uint32_t>(all.size(), 1500), scheduler.delays);
    EXPECT_EQ(0u, scheduler.pending());
}

TEST_F(PhoneSessionTest, SlowChunks_WithoutValue_TwoSecondsEach) {
    startWith({"slow-chunks"});
    lookedUp();
    receive(kGetCdMetaInfo);
    EXPECT_EQ(std::vector<uint32_t>{2000}, scheduler.delays);
}

TEST_F(PhoneSessionTest, SlowChunks_CancelMidway_PendingChunksDroppedAndCancelAnswered) {
    startWith({"slow-chunks=100"}, 300);
    lookedUp();
    const std::vector<Bytes> all = chunks(database(), 300);
    receive(kGetCdMetaInfo);
    scheduler.advance(100);
    logText.str("");
    receive(kCancel);
    scheduler.advance(100000);
    EXPECT_EQ((std::vector<Bytes>{all[0], answer(0x8FFF)}), transport.frames());
    EXPECT_EQ(0u, scheduler.pending());
    EXPECT_EQ(
        (std::vector<std::string>{"mox-phone: <- 0x0FFF cancel (2 bytes)",
                                  "mox-phone: the transfer stops: " +
                                      std::to_string(all.size() - 1) + " pending sends dropped",
                                  "mox-phone: -> 0x8FFF cancel answer status 0 (8 bytes)"}),
        logLines());
}

TEST_F(PhoneSessionTest, SlowChunks_NewLookupMidway_OldTransferDropped) {
    startWith({"slow-chunks=100"}, 1000);
    lookedUp();
    receive(kGetCdMetaInfo);
    scheduler.advance(100);
    transport.clear();
    receive(lookupFrame(kUnknownToc));
    scheduler.advance(100000);
    EXPECT_EQ((std::vector<Bytes>{answer(0x8010), notice(0, 404)}), transport.frames());
}

TEST_F(PhoneSessionTest, SlowChunksWithDrop_DelayedThenHangsUp) {
    startWith({"slow-chunks=100", "drop-mid-transfer"});
    lookedUp();
    receive(kGetCdMetaInfo);
    scheduler.advance(99);
    EXPECT_EQ(0, transport.sendCalls);
    scheduler.advance(1);
    EXPECT_EQ(1u, transport.frames().size());  // chunk 0 of 2
    EXPECT_EQ(0, transport.hangUps);
    scheduler.advance(100);
    EXPECT_EQ(1, transport.hangUps);
    EXPECT_FALSE(session->isOpen());
}

// ---- The module's end going away ----

TEST_F(PhoneSessionTest, Close_ThenAFrame_NothingSentAndLogged) {
    startWith({});
    session->close();
    receive(kConnect);
    EXPECT_TRUE(transport.sends.empty());
    EXPECT_EQ(
        "mox-phone: the connection is closed\n"
        "mox-phone: <- frame (3 bytes) after the end of the connection ignored\n",
        logText.str());
}

TEST_F(PhoneSessionTest, Close_Twice_LoggedOnce) {
    startWith({});
    session->close();
    session->close();
    EXPECT_EQ("mox-phone: the connection is closed\n", logText.str());
}

TEST_F(PhoneSessionTest, SendFailsAfterTheFirstChunk_NoFurtherSend) {
    startWith({}, 500);
    lookedUp();
    transport.onSend = [this](const Bytes&) { transport.gone = true; };
    receive(kGetCdMetaInfo);
    EXPECT_EQ(2, transport.sendCalls);
    EXPECT_EQ(1u, transport.frames().size());
    EXPECT_FALSE(session->isOpen());
    EXPECT_EQ("mox-phone: the module's end is gone", logLines().back());
}

TEST_F(PhoneSessionTest, ClosedFromInsideASend_StopsAtOnce) {
    startWith({}, 500);
    lookedUp();
    transport.onSend = [this](const Bytes&) { session->close(); };
    receive(kGetCdMetaInfo);
    EXPECT_EQ(1, transport.sendCalls);
    EXPECT_FALSE(session->isOpen());
}

TEST_F(PhoneSessionTest, ClosedDuringSlowTransfer_PendingSendsDropped) {
    startWith({"slow-chunks=100"}, 500);
    lookedUp();
    receive(kGetCdMetaInfo);
    scheduler.advance(100);
    session->close();
    scheduler.advance(100000);
    EXPECT_EQ(1u, transport.frames().size());
    EXPECT_EQ(0u, scheduler.pending());
}

TEST_F(PhoneSessionTest, ClosedAtEachStep_NothingMoreIsSent) {
    const std::vector<Bytes> steps = {kConnect, lookupFrame(kDiscToc), kGetCdMetaInfo, kCancel};
    for (size_t closeAfter = 0; closeAfter <= steps.size(); ++closeAfter) {
        startWith({});
        for (size_t i = 0; i < closeAfter; ++i) {
            receive(steps[i]);
        }
        session->close();
        const size_t sent = transport.sends.size();
        for (const Bytes& frame : steps) {
            receive(frame);
        }
        EXPECT_EQ(sent, transport.sends.size()) << "closed after step " << closeAfter;
        EXPECT_FALSE(session->isOpen());
    }
}

// ---- Stream input ----

TEST_F(PhoneSessionTest, ReceiveBytes_EnvelopesSplitByteByByte_AnsweredAsWhole) {
    startWith({});
    Bytes stream = command(kConnect);
    const Bytes lookup = command(lookupFrame(kUnknownToc));
    stream.insert(stream.end(), lookup.begin(), lookup.end());
    for (uint8_t byte : stream) {
        EXPECT_TRUE(session->receiveBytes(&byte, 1));
    }
    EXPECT_EQ((std::vector<Bytes>{answer(0x8001), answer(0x8010), notice(0, 404)}),
              transport.frames());
}

TEST_F(PhoneSessionTest, ReceiveBytes_TwoEnvelopesInOnePiece_BothAnswered) {
    startWith({});
    Bytes stream = command(kConnect);
    const Bytes echo = command(kEcho);
    stream.insert(stream.end(), echo.begin(), echo.end());
    EXPECT_TRUE(session->receiveBytes(stream.data(), stream.size()));
    EXPECT_EQ((std::vector<Bytes>{answer(0x8001), answer(0xFFFF)}), transport.frames());
}

TEST_F(PhoneSessionTest, ReceiveBytes_DeviceStatusEnvelope_IgnoredAndLogged) {
    startWith({});
    const Bytes stream = envelope(0x02, {0x03});
    EXPECT_TRUE(session->receiveBytes(stream.data(), stream.size()));
    EXPECT_TRUE(transport.sends.empty());
    EXPECT_EQ(
        "mox-phone: <- envelope of type 2 from the module ignored: only commands are "
        "expected\n",
        logText.str());
}

TEST_F(PhoneSessionTest, ReceiveBytes_LengthZero_HangsUp) {
    startWith({});
    const Bytes stream = {0x00, 0x00, 0x00, 0x00};
    EXPECT_FALSE(session->receiveBytes(stream.data(), stream.size()));
    EXPECT_EQ(1, transport.hangUps);
    EXPECT_EQ(
        "mox-phone: <- bad envelope from the module: envelope length 0; hanging up\n"
        "mox-phone: hanging up\n",
        logText.str());
}

TEST_F(PhoneSessionTest, ReceiveBytes_OversizeLength_HangsUpWithoutWaitingForThePayload) {
    startWith({});
    const Bytes stream = {0x00, 0x10, 0x00, 0x01};
    EXPECT_FALSE(session->receiveBytes(stream.data(), stream.size()));
    EXPECT_EQ(1, transport.hangUps);
    EXPECT_FALSE(session->isOpen());
}

TEST_F(PhoneSessionTest, ReceiveBytes_AfterClose_Refused) {
    startWith({});
    session->close();
    const Bytes stream = command(kConnect);
    EXPECT_FALSE(session->receiveBytes(stream.data(), stream.size()));
    EXPECT_TRUE(transport.sends.empty());
}
