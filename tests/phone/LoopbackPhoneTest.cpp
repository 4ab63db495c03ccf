// The in-process phone behind the loopback peer interface, on a fake link:
// everything goes out as envelope bytes through pushBytes, answers are pushed
// from inside onCommand, delayed chunks from the phone's own thread, a link
// that closes from inside a push, a close from another thread while chunks
// are being pushed, and a reopening. The tests wait on events, never on time.
#include "moxphone/LoopbackPhone.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <functional>
#include <mutex>
#include <sstream>
#include <thread>
#include <vector>

#include "PhoneTestSupport.h"
#include "moxphone/ResponseDatabase.h"

using moxphone::LoopbackPhone;
using moxphone::PhoneOptions;
using namespace phonetest;

namespace {

// The module's end of the link, recording what the phone pushes.
class FakeLink : public OstLinkAppPeerLink {
public:
    bool pushDeviceInfo(uint8, const std::string&) override { return otherPush(); }
    bool pushDeviceStatus(uint8) override { return otherPush(); }
    bool pushCommand(const uint8*, uint32) override { return otherPush(); }
    bool pushBytes(const uint8* data, size_t size) override {
        std::function<void(const Bytes&)> hook;
        const Bytes bytes(data, data + size);
        {
            std::lock_guard<std::mutex> lock(mMutex);
            if (invalid) {
                ++pushesAfterClose;
            }
            mStream.insert(mStream.end(), bytes.begin(), bytes.end());
            mThreads.push_back(std::this_thread::get_id());
            hook = onPush;
        }
        mChanged.notify_all();
        if (hook) {
            hook(bytes);
        }
        return true;
    }
    void hangUp() override {
        std::lock_guard<std::mutex> lock(mMutex);
        ++hangUps;
        mChanged.notify_all();
    }

    // The frames pushed so far.
    std::vector<Bytes> frames() {
        std::lock_guard<std::mutex> lock(mMutex);
        return framesLocked();
    }
    // Waits until `count` frames have been pushed.
    std::vector<Bytes> waitForFrames(size_t count) {
        std::unique_lock<std::mutex> lock(mMutex);
        mChanged.wait(lock, [&] { return framesLocked().size() >= count; });
        return framesLocked();
    }
    std::vector<Message> messages() {
        std::lock_guard<std::mutex> lock(mMutex);
        return splitEnvelopes(mStream);
    }
    Bytes stream() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mStream;
    }
    std::vector<std::thread::id> threads() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mThreads;
    }
    void clear() {
        std::lock_guard<std::mutex> lock(mMutex);
        mStream.clear();
        mThreads.clear();
    }
    void setInvalid() {
        std::lock_guard<std::mutex> lock(mMutex);
        invalid = true;
    }
    int countPushesAfterClose() {
        std::lock_guard<std::mutex> lock(mMutex);
        return pushesAfterClose;
    }

    std::function<void(const Bytes&)> onPush;  // set before the phone runs
    int otherPushes = 0;
    int hangUps = 0;

private:
    bool otherPush() {
        std::lock_guard<std::mutex> lock(mMutex);
        ++otherPushes;
        return true;
    }
    std::vector<Bytes> framesLocked() const {
        std::vector<Bytes> out;
        for (const Message& message : splitEnvelopes(mStream)) {
            if (message.type == 0x03) {
                out.push_back(message.payload);
            }
        }
        return out;
    }

    std::mutex mMutex;
    std::condition_variable mChanged;
    Bytes mStream;
    std::vector<std::thread::id> mThreads;
    bool invalid = false;
    int pushesAfterClose = 0;
};

class LoopbackPhoneTest : public ::testing::Test {
protected:
    LoopbackPhoneTest() : log(&logText) {}

    PhoneOptions options(const std::vector<std::string>& faults, uint32_t chunkSize = 4096) {
        PhoneOptions result = optionsWith(sampleCatalogue(), faults);
        result.chunkSize = chunkSize;
        return result;
    }
    void send(LoopbackPhone& phone, const Bytes& frame) {
        phone.onCommand(frame.data(), static_cast<uint32>(frame.size()));
    }
    Bytes database() const {
        const auto catalogue = sampleCatalogue();
        return moxphone::ResponseDatabase::build(*catalogue, *catalogue->findDisc(kDiscToc));
    }
    static std::vector<Bytes> chunks(const Bytes& db, size_t size) {
        std::vector<Bytes> out;
        const uint16_t count = static_cast<uint16_t>((db.size() + size - 1) / size);
        for (uint16_t i = 0; i < count; ++i) {
            const size_t length = std::min(size, db.size() - i * size);
            out.push_back(
                chunk(i, count, static_cast<uint32_t>(length), slice(db, i * size, length)));
        }
        return out;
    }

    static inline const std::string kDiscToc = "000096004EB600A0BE00ECEA013916";

    std::ostringstream logText;
    moxphone::PhoneLog log;
    FakeLink link;
};

}  // namespace

TEST_F(LoopbackPhoneTest, OnOpen_DeviceInfoAndApplicationOpenAsEnvelopeBytes) {
    PhoneOptions ios = options({});
    ios.osType = 0;
    LoopbackPhone phone(ios, log);
    phone.onOpen(link);
    EXPECT_EQ((std::vector<Message>{deviceInfo(0, "mox-phone"), deviceStatus(2)}), link.messages());
    EXPECT_EQ(0, link.otherPushes);
    EXPECT_EQ(1u, phone.connections());
    EXPECT_EQ(0u, logText.str().find("mox-phone: the module opened the link (connection 1)\n"));
}

TEST_F(LoopbackPhoneTest, OnCommand_WholeLookup_AnswersPushedOnTheCallersThread) {
    LoopbackPhone phone(options({}), log);
    phone.onOpen(link);
    link.clear();
    send(phone, kConnect);
    send(phone, lookupFrame(kDiscToc));
    send(phone, kGetCdMetaInfo);
    const Bytes db = database();
    EXPECT_EQ((std::vector<Bytes>{answer(0x8001), answer(0x8010),
                                  notice(static_cast<uint32_t>(db.size())),
                                  chunk(0, 1, static_cast<uint32_t>(db.size()), db)}),
              link.frames());
    for (std::thread::id id : link.threads()) {
        EXPECT_EQ(std::this_thread::get_id(), id);
    }
    EXPECT_EQ(0, link.otherPushes);
}

TEST_F(LoopbackPhoneTest, OnCommand_BeforeAnyOpening_IgnoredAndLogged) {
    LoopbackPhone phone(options({}), log);
    send(phone, kConnect);
    EXPECT_TRUE(link.stream().empty());
    EXPECT_EQ("mox-phone: <- frame of 3 bytes before any connection ignored\n", logText.str());
}

TEST_F(LoopbackPhoneTest, DropMidTransfer_HalfAnEnvelopeThenHangUpAndNothingMore) {
    LoopbackPhone phone(options({"drop-mid-transfer"}), log);
    phone.onOpen(link);
    send(phone, lookupFrame(kDiscToc));
    link.clear();
    send(phone, kGetCdMetaInfo);
    Bytes rest;
    const std::vector<Message> messages = splitEnvelopes(link.stream(), &rest);
    const Bytes db = database();
    const size_t half = (db.size() + 1) / 2;
    ASSERT_EQ(1u, messages.size());
    EXPECT_EQ(chunk(0, 2, static_cast<uint32_t>(half), slice(db, 0, half)), messages[0].payload);
    const Bytes second = command(
        chunk(1, 2, static_cast<uint32_t>(db.size() - half), slice(db, half, db.size() - half)));
    EXPECT_EQ(slice(second, 0, second.size() / 2), rest);
    EXPECT_EQ(1, link.hangUps);
    const size_t before = link.stream().size();
    send(phone, kConnect);
    EXPECT_EQ(before, link.stream().size());
}

TEST_F(LoopbackPhoneTest, GarbageClosesTheLinkFromInsidePushBytes_NothingMoreIsPushed) {
    LoopbackPhone phone(options({"garbage-length-zero"}), log);
    link.onPush = [&phone, this](const Bytes& bytes) {
        if (bytes == Bytes{0, 0, 0, 0}) {
            phone.onClose();  // as the link's reader refuses the envelope
            link.setInvalid();
        }
    };
    phone.onOpen(link);
    send(phone, lookupFrame(kDiscToc));
    send(phone, kGetCdMetaInfo);
    EXPECT_EQ(0, link.countPushesAfterClose());
    EXPECT_EQ((std::vector<Bytes>{answer(0x8010)}), link.frames());
    EXPECT_NE(std::string::npos, logText.str().find("mox-phone: the connection is closed\n"));
}

// The phone pushes with no lock of its own held: during a push another
// thread can still ask the phone for its connections.
TEST_F(LoopbackPhoneTest, Push_NoLockOfThePhoneHeld_AnotherThreadCanCallIt) {
    LoopbackPhone phone(options({}), log);
    std::vector<size_t> seen;
    link.onPush = [&phone, &seen](const Bytes&) {
        std::thread other([&phone, &seen] { seen.push_back(phone.connections()); });
        other.join();
    };
    phone.onOpen(link);
    EXPECT_EQ((std::vector<size_t>{1u, 1u}), seen);  // device info, then device status
}

TEST_F(LoopbackPhoneTest, SlowChunks_PushedFromThePhonesOwnThread) {
    PhoneOptions slow = options({"slow-chunks=1000"}, 300);
    slow.timeScale = 0.001;
    LoopbackPhone phone(slow, log);
    phone.onOpen(link);
    send(phone, lookupFrame(kDiscToc));
    link.clear();
    send(phone, kGetCdMetaInfo);
    const std::vector<Bytes> expected = chunks(database(), 300);
    EXPECT_EQ(expected, link.waitForFrames(expected.size()));
    for (std::thread::id id : link.threads()) {
        EXPECT_NE(std::this_thread::get_id(), id);
    }
}

TEST_F(LoopbackPhoneTest, SlowChunks_Cancel_OnlyTheCancelAnswerIsPushed) {
    {
        LoopbackPhone phone(options({"slow-chunks=600000"}), log);
        phone.onOpen(link);
        send(phone, lookupFrame(kDiscToc));
        link.clear();
        send(phone, kGetCdMetaInfo);
        send(phone, kCancel);
    }
    EXPECT_EQ((std::vector<Bytes>{answer(0x8FFF)}), link.frames());
}

TEST_F(LoopbackPhoneTest, OnCloseFromAnotherThreadWhileChunksArePushed_NoPushAfterItReturns) {
    PhoneOptions fast = options({"slow-chunks=0"}, 1);
    {
        LoopbackPhone phone(fast, log);
        phone.onOpen(link);
        send(phone, lookupFrame(kDiscToc));
        send(phone, kGetCdMetaInfo);
        link.waitForFrames(4);  // the answers and the first chunks are out
        std::thread closer([&] {
            phone.onClose();
            link.setInvalid();
        });
        closer.join();
    }
    // However far the transfer got, nothing was pushed once onClose had returned.
    EXPECT_EQ(0, link.countPushesAfterClose());
    EXPECT_GE(link.frames().size(), 4u);
}

TEST_F(LoopbackPhoneTest, Reopened_FreshSessionWithoutTheOldDatabase) {
    LoopbackPhone phone(options({}), log);
    phone.onOpen(link);
    send(phone, lookupFrame(kDiscToc));
    phone.onClose();
    FakeLink second;
    phone.onOpen(second);
    send(phone, kGetCdMetaInfo);
    EXPECT_EQ(2u, phone.connections());
    const std::vector<Message> messages = second.messages();
    ASSERT_EQ(3u, messages.size());
    EXPECT_EQ(deviceInfo(1, "mox-phone"), messages[0]);
    EXPECT_EQ(commandMessage(chunk(0, 0, 0, {}, 400)), messages[2]);
}
