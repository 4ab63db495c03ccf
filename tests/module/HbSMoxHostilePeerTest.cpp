// Phones that misbehave on purpose, at the other end of a Unix socket: a
// flood of frames, a phone that sends one byte per 100 ms, and envelopes of
// exactly the largest length and one byte over it. The process keeps its
// memory bounded, keeps working, and the next connection succeeds.
//
// Memory bounds (host figures; see docs/performance.md):
// - the reader holds at most one envelope (the largest is 1 MiB; while its
//   buffer grows by doubling, 1.5 MiB for a moment) and its 16 KiB read
//   buffer; a length over 1 MiB is refused before anything is buffered;
// - the unit's worker queues at most 4000 messages, each one copy of one
//   frame; what arrives beyond that is dropped and logged
//   ("SendMsgSelf return error=5.").
// Resident-memory peaks are asserted only without sanitizers, whose own
// allocators make them meaningless.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <fstream>
#include <list>
#include <string>
#include <vector>

#include "DbgCapture.h"
#include "HbFramework/HbDbgOutput.h"
#include "HbFramework/HbLTimerMng.h"
#include "HbSMox.h"
#include "MoxProtocolHarness.h"
#include "NotificationLog.h"
#include "OstLinkApp/OstLinkAppHost.h"
#include "ProcessStats.h"
#include "TestDir.h"
#include "WorkerBarrier.h"
#include "moxdb/CatalogueBuilder.h"
#include "private/Mox.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define MOX_MEMORY_FIGURES_MEANINGFUL 0
#else
#define MOX_MEMORY_FIGURES_MEANINGFUL 1
#endif

namespace {

using moxtest::Bytes;

const char* const kToc = "0000960046E6008D3600D386";
const uint32 kLargestEnvelope = OstLinkAppHost::MAX_ENVELOPE_LENGTH;
// The phone's end of the stream: the module's reader reads this much at a time.
const uint64_t kReadBufferKiB = 16;

Bytes envelope(uint8 type, const Bytes& payload) {
    Bytes out;
    moxtest::appendU32Be(out, static_cast<uint32>(payload.size() + 1));
    out.push_back(type);
    out.insert(out.end(), payload.begin(), payload.end());
    return out;
}

// The database of three albums; when `size` is not 0, its string area holds
// one long text and zero bytes follow it up to exactly `size` bytes (the
// reader goes by the offsets in its header, not by the file's end).
Bytes databaseOfSize(size_t size) {
    moxdb::CatalogueBuilder builder = moxdb::CatalogueBuilder::makeUniform(kToc, 3, 3);
    const size_t bare = builder.build().size();
    if (size == 0 || size < bare + 1024) {
        return builder.build();
    }
    // A UTF-16 text: two bytes a letter, plus its length field and alignment.
    builder.text(std::string((size - bare - 1024) / 2, 'x'));
    Bytes bytes = builder.build();
    bytes.resize(size, 0);
    return bytes;
}

// Empties the process's resident-memory peak (VmHWM), so the next reading
// tells the peak of what follows.
void resetMemoryPeak() {
    std::ofstream("/proc/self/clear_refs") << "5";
}

// The phone's end: listens on a Unix socket; the test thread accepts, writes
// raw bytes and reads the module's frames.
class RawPhone {
public:
    explicit RawPhone(const std::string& path) : mPath(path) {
        mListener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address;
        std::memset(&address, 0, sizeof(address));
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
        ::unlink(path.c_str());
        mListening = ::bind(mListener, reinterpret_cast<sockaddr*>(&address), sizeof(address)) ==
                         0 &&
                     ::listen(mListener, 2) == 0;
    }
    ~RawPhone() {
        hangUp();
        ::close(mListener);
        ::unlink(mPath.c_str());
    }

    std::string endpoint() const { return "unix:" + mPath; }
    bool listening() const { return mListening; }

    bool accept() {
        hangUp();
        if (!waitReadable(mListener)) {
            return false;
        }
        mConnection = ::accept4(mListener, nullptr, nullptr, SOCK_CLOEXEC);
        return mConnection >= 0;
    }
    void hangUp() {
        if (mConnection >= 0) {
            ::close(mConnection);
            mConnection = -1;
        }
    }
    bool send(const Bytes& bytes) {
        size_t done = 0;
        while (done < bytes.size()) {
            const ssize_t n =
                ::send(mConnection, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
            if (n <= 0) {
                return false;
            }
            done += static_cast<size_t>(n);
        }
        return true;
    }
    bool sendCommand(const Bytes& frame) { return send(envelope(3, frame)); }
    // The next command frame of the module; empty when the module hung up.
    Bytes readFrame() {
        Bytes head(4);
        if (!readExactly(head)) {
            return Bytes();
        }
        const uint32 length = (uint32{head[0]} << 24) | (uint32{head[1]} << 16) |
                              (uint32{head[2]} << 8) | uint32{head[3]};
        Bytes body(length);
        if (length == 0 || !readExactly(body)) {
            return Bytes();
        }
        return Bytes(body.begin() + 1, body.end());
    }
    // True when the module has closed its end (read gives end of stream).
    bool seesHangUp() {
        unsigned char byte = 0;
        return waitReadable(mConnection) && ::recv(mConnection, &byte, 1, 0) == 0;
    }

private:
    static bool waitReadable(int fd) {
        pollfd entry{fd, POLLIN, 0};
        return ::poll(&entry, 1, 30000) == 1;
    }
    bool readExactly(Bytes& out) {
        size_t done = 0;
        while (done < out.size()) {
            if (!waitReadable(mConnection)) {
                return false;
            }
            const ssize_t n = ::recv(mConnection, out.data() + done, out.size() - done, 0);
            if (n <= 0) {
                return false;
            }
            done += static_cast<size_t>(n);
        }
        return true;
    }

    std::string mPath;
    int mListener = -1;
    int mConnection = -1;
    bool mListening = false;
};

class HbSMoxHostilePeerTest : public ::testing::Test {
protected:
    void SetUp() override {
        HbLTimerMng::GetTimerMng()->UseManualClock();
        ASSERT_TRUE(phone.listening());
        facade = HbSMox::GetInstance();
        facade->AddObserver(appLog.observer());
        barrier.reset(new WorkerBarrier(facade->getMox()->getWorker()->GetMsgBox()));
        OstLinkAppHost::setEndpoint(phone.endpoint());
    }
    void TearDown() override {
        facade->Terminate();
        barrier.reset();
        facade->RemoveObserver(appLog.observer());
    }

    // A new connection, greeted and answered up to the link.
    void linkUp() {
        appLog.clear();
        facade->startLink();
        ASSERT_TRUE(phone.accept());
        ASSERT_TRUE(phone.send(envelope(1, {1, 'H'})));
        ASSERT_TRUE(phone.send(envelope(2, {2})));
        ASSERT_EQ(phone.readFrame(), moxtest::kConnect);
        ASSERT_TRUE(phone.sendCommand(moxtest::answer(0x8001)));
        ASSERT_TRUE(appLog.waitForValue(1, 1));
    }

    // Searches and reads the lookup request; answers it with the notice.
    void searchAndAnnounce(const Bytes& database) {
        appLog.clear();
        HbSMoxDef::SearchInfo info{0, 0, 0, kToc};
        facade->search(info);
        ASSERT_EQ(phone.readFrame(), moxtest::lookupFrame(0, 0, 0, kToc));
        ASSERT_TRUE(phone.sendCommand(moxtest::answer(0x8010)));
        ASSERT_TRUE(phone.sendCommand(moxtest::notice(static_cast<uint32>(database.size()))));
        ASSERT_EQ(phone.readFrame(), moxtest::kGetCdMetaInfo);
    }

    // A whole lookup on the link that is up, in 4 KiB chunks.
    void lookUp() {
        const Bytes database = databaseOfSize(0);
        searchAndAnnounce(database);
        const size_t count = (database.size() + 4095) / 4096;
        for (size_t i = 0; i < count; ++i) {
            const size_t begin = i * 4096;
            const size_t end = std::min(database.size(), begin + 4096);
            ASSERT_TRUE(phone.sendCommand(
                moxtest::chunk(static_cast<uint16>(i), static_cast<uint16>(count),
                               Bytes(database.begin() + begin, database.begin() + end))));
        }
        ASSERT_TRUE(appLog.waitForValue(2, 0));
        std::list<HbSMoxDef::AlbumInfo> albums;
        ASSERT_TRUE(facade->getSearchResult(kToc, &albums));
        EXPECT_EQ(albums.size(), 3u);
    }

    // Ends the connection from the module's side and proves the next one works.
    void nextConnectionSucceeds() {
        facade->stopLink();
        ASSERT_TRUE(appLog.waitForValue(1, 0));
        linkUp();
        lookUp();
    }

    TestDir dir{"HbSMoxHostilePeer"};
    RawPhone phone{dir.file("phone.sock")};
    NotificationLog appLog;
    HbSMox* facade = nullptr;
    std::unique_ptr<WorkerBarrier> barrier;
};

TEST_F(HbSMoxHostilePeerTest, FloodOf100000Frames_QueuesAtMost4000AndKeepsWorking) {
    const size_t kFrames = 100000;
    // Every frame is either handled ("receive unknown cmdID") or refused by
    // the full queue; both are counted, nothing is kept.
    std::atomic<size_t> handled{0};
    std::atomic<size_t> dropped{0};
    HbDbgOutput::Sink previous = HbDbgOutput::SetSink([&](const HbDbgRecord& record) {
        if (record.text == "receive unknown cmdID=0x7777\n") {
            ++handled;
        } else if (record.text == "SendMsgSelf return error=5.\n") {
            ++dropped;
        }
    });
    linkUp();
    Bytes flood;
    const Bytes one = envelope(3, moxtest::answer(0x7777));
    for (size_t i = 0; i < kFrames; ++i) {
        flood.insert(flood.end(), one.begin(), one.end());
    }
    const ProcessStats::Snapshot before = ProcessStats::take();
    resetMemoryPeak();
    ASSERT_TRUE(phone.send(flood));
    std::vector<unsigned char>().swap(flood);
    // Every frame is accounted for once the reader has read the whole flood.
    for (int look = 0; look < 3000 && handled + dropped < kFrames; ++look) {
        ASSERT_TRUE(barrier->drain());
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    const uint64_t peak = ProcessStats::statusKiB("VmHWM:");
    HbDbgOutput::SetSink(previous);
    EXPECT_EQ(handled + dropped, kFrames);
    std::printf("flood: %zu frames handled, %zu dropped; VmRSS before %llu KiB, peak during %llu "
                "KiB\n",
                handled.load(), dropped.load(), static_cast<unsigned long long>(before.residentKiB),
                static_cast<unsigned long long>(peak));
#if MOX_MEMORY_FIGURES_MEANINGFUL
    // 4000 queued copies of a 13-byte message cost well under 1 MiB.
    EXPECT_LT(peak, before.residentKiB + 1024 + kReadBufferKiB);
#endif
    // The same connection still carries a lookup, and so does the next one.
    lookUp();
    nextConnectionSucceeds();
}

TEST_F(HbSMoxHostilePeerTest, OneBytePer100Ms_LookupEndsOnTheCommandTimerNotLater) {
    DbgCapture capture;
    linkUp();
    const Bytes database = databaseOfSize(0);
    searchAndAnnounce(database);
    // A chunk that would take 409 s at this pace, and never completes.
    const Bytes slow = envelope(3, moxtest::chunk(0, 1, Bytes(4096, 0x5A)));
    HbLTimerMng* timers = HbLTimerMng::GetTimerMng();
    size_t sent = 0;
    for (; sent < 99; ++sent) {
        ASSERT_TRUE(phone.send(Bytes{slow[sent]}));
        timers->AdvanceClock(100);
    }
    EXPECT_EQ(facade->getSearchStatus(), 103) << "gave up before the command timer";
    ASSERT_TRUE(phone.send(Bytes{slow[sent++]}));
    timers->AdvanceClock(100);  // 10 000 ms since the request for the database
    EXPECT_EQ(facade->getSearchStatus(), 104);
    EXPECT_EQ(phone.readFrame(), moxtest::kCancel);
    for (size_t i = 0; i < 100; ++i, ++sent) {
        ASSERT_TRUE(phone.send(Bytes{slow[sent]}));
        timers->AdvanceClock(100);
    }
    EXPECT_EQ(facade->getSearchStatus(), 100);
    EXPECT_EQ(appLog.valuesOf(2), (std::vector<int32>{103, 4, 104, 100}));
    nextConnectionSucceeds();
}

TEST_F(HbSMoxHostilePeerTest, EnvelopeOfExactly1MiB_IsTakenWhole) {
    DbgCapture capture;
    linkUp();
    // Type byte, chunk header (8) and length (4), then the database.
    const Bytes database = databaseOfSize(kLargestEnvelope - 1 - 12);
    ASSERT_EQ(database.size(), kLargestEnvelope - 13u);
    searchAndAnnounce(database);
    const Bytes big = envelope(3, moxtest::chunk(0, 1, database));
    ASSERT_EQ(big.size(), 4u + kLargestEnvelope);
    const ProcessStats::Snapshot before = ProcessStats::take();
    resetMemoryPeak();
    ASSERT_TRUE(phone.send(big));
    ASSERT_TRUE(appLog.waitForValue(2, 0));
    ASSERT_TRUE(barrier->drain());
    const uint64_t peak = ProcessStats::statusKiB("VmHWM:");
    std::printf("1 MiB envelope: VmRSS before %llu KiB, peak during %llu KiB\n",
                static_cast<unsigned long long>(before.residentKiB),
                static_cast<unsigned long long>(peak));
#if MOX_MEMORY_FIGURES_MEANINGFUL
    // The reader's buffer grows by doubling as the bytes come (the last
    // step holds 0.5 and 1 MiB at once), then the queued copy of the frame:
    // at most three times the envelope, all released once handled.
    EXPECT_LT(peak, before.residentKiB + 3 * 1024 + kReadBufferKiB + 256);
#endif
    std::list<HbSMoxDef::AlbumInfo> albums;
    ASSERT_TRUE(facade->getSearchResult(kToc, &albums));
    EXPECT_EQ(albums.size(), 3u);
    nextConnectionSucceeds();
}

TEST_F(HbSMoxHostilePeerTest, EnvelopeOf1MiBPlus1_ClosesTheLinkAtItsLengthAndTheNextConnectionWorks) {
    DbgCapture capture;
    linkUp();
    searchAndAnnounce(databaseOfSize(0));
    Bytes head;
    moxtest::appendU32Be(head, kLargestEnvelope + 1);
    head.push_back(3);
    const ProcessStats::Snapshot before = ProcessStats::take();
    resetMemoryPeak();
    ASSERT_TRUE(phone.send(head));
    // The module closes at the length: it does not wait for the body.
    EXPECT_TRUE(phone.seesHangUp());
    ASSERT_TRUE(appLog.waitForValue(2, 100));
    EXPECT_EQ(appLog.valuesOf(2), (std::vector<int32>{103, 20, 100}));
    EXPECT_EQ(appLog.valuesOf(1), (std::vector<int32>{0}));
    EXPECT_TRUE(capture.waitForText("protocol error on " + phone.endpoint() +
                                    ": envelope length 1048577 over the limit of 1048576, "
                                    "closing the link\n"));
    const uint64_t peak = ProcessStats::statusKiB("VmHWM:");
#if MOX_MEMORY_FIGURES_MEANINGFUL
    EXPECT_LT(peak, before.residentKiB + 256);
#endif
    (void)peak;
    (void)before;
    nextConnectionSucceeds();
}

}  // namespace
