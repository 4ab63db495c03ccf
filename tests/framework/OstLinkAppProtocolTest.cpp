#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "OstLinkApp/OstLinkAppProtocol.h"

namespace {

using Data = OstLinkAppProtocol::BasicResponseData;

// Parses `bytes` from a heap copy of exactly their size, so that a read past
// the frame is caught by AddressSanitizer.
bool parseExact(const std::vector<unsigned char>& bytes, Data* data) {
    std::unique_ptr<unsigned char[]> copy(new unsigned char[bytes.size()]);
    if (!bytes.empty()) {
        std::memcpy(copy.get(), bytes.data(), bytes.size());
    }
    return OstLinkAppProtocol::getBasicResponse(copy.get(), static_cast<unsigned int>(bytes.size()),
                                                data);
}

Data garbage() {
    Data data;
    data.commandId = 0xDEAD;
    data.status = 0xDEADBEEF;
    data.index = 0xDEADBEEF;
    data.count = 0xDEADBEEF;
    return data;
}

const std::vector<unsigned char> kHeader = {0x80, 0x12, 0x00, 0x05, 0x01, 0x02, 0x03, 0x04};

// A protocol that records what reached it through the interface.
class RecordingProtocol : public OstLinkAppProtocol {
public:
    explicit RecordingProtocol(std::vector<std::string>* calls) : mCalls(calls) {}
    ~RecordingProtocol() override { mCalls->push_back("destroyed"); }
    void analysisProtocolCmd(unsigned char*, unsigned int size) override {
        mCalls->push_back("analysis " + std::to_string(size));
    }
    void sendCmdConnect() override { mCalls->push_back("connect"); }
    void sendCmdDisconnect() override { mCalls->push_back("disconnect"); }
    void sendCmdNotifyRunningState(unsigned int state) override {
        mCalls->push_back("running " + std::to_string(state));
    }
    bool isLogvCmd(unsigned char*, unsigned int) override {
        mCalls->push_back("logv");
        return true;
    }

private:
    std::vector<std::string>* mCalls;
};

}  // namespace

TEST(OstLinkAppProtocolTest, GetBasicResponse_EightByteHeader_ReadsFourBigEndianFields) {
    Data data = garbage();
    EXPECT_TRUE(parseExact(kHeader, &data));
    EXPECT_EQ(0x8012, data.commandId);
    EXPECT_EQ(5u, data.status);
    EXPECT_EQ(0x0102u, data.index);
    EXPECT_EQ(0x0304u, data.count);
}

TEST(OstLinkAppProtocolTest, GetBasicResponse_LongerFrame_ReadsOnlyTheHeader) {
    std::vector<unsigned char> frame = kHeader;
    frame.insert(frame.end(), {0xFF, 0xFF, 0xFF, 0xFF, 0xAA});
    Data data = garbage();
    EXPECT_TRUE(parseExact(frame, &data));
    EXPECT_EQ(0x8012, data.commandId);
    EXPECT_EQ(5u, data.status);
    EXPECT_EQ(0x0102u, data.index);
    EXPECT_EQ(0x0304u, data.count);
}

TEST(OstLinkAppProtocolTest, GetBasicResponse_HighestValues_AreReadUnsigned) {
    Data data = garbage();
    EXPECT_TRUE(parseExact({0xFF, 0xFF, 0xFF, 0xFE, 0xFF, 0xFD, 0xFF, 0xFC}, &data));
    EXPECT_EQ(0xFFFF, data.commandId);
    EXPECT_EQ(0xFFFEu, data.status);
    EXPECT_EQ(0xFFFDu, data.index);
    EXPECT_EQ(0xFFFCu, data.count);
}

TEST(OstLinkAppProtocolTest, GetBasicResponse_ShortFrames_YieldZeroForEveryFieldNotHeldWhole) {
    struct Case {
        size_t size;
        uint16 commandId;
        uint32 status;
        uint32 index;
        uint32 count;
    };
    const Case cases[] = {
        {2, 0x8012, 0, 0, 0}, {3, 0x8012, 0, 0, 0},      {4, 0x8012, 5, 0, 0},
        {5, 0x8012, 5, 0, 0}, {6, 0x8012, 5, 0x0102, 0}, {7, 0x8012, 5, 0x0102, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.size);
        std::vector<unsigned char> frame(kHeader.begin(), kHeader.begin() + c.size);
        Data data = garbage();
        EXPECT_TRUE(parseExact(frame, &data));
        EXPECT_EQ(c.commandId, data.commandId);
        EXPECT_EQ(c.status, data.status);
        EXPECT_EQ(c.index, data.index);
        EXPECT_EQ(c.count, data.count);
    }
}

TEST(OstLinkAppProtocolTest, GetBasicResponse_AnswerWithoutChunks_HasIndexAndCountZero) {
    Data data = garbage();
    EXPECT_TRUE(parseExact({0x80, 0x01, 0, 0, 0, 0, 0, 0}, &data));
    EXPECT_EQ(0x8001, data.commandId);
    EXPECT_EQ(0u, data.status);
    EXPECT_EQ(0u, data.index);
    EXPECT_EQ(0u, data.count);
}

TEST(OstLinkAppProtocolTest, GetBasicResponse_OneByte_ReturnsFalseWithEveryFieldZero) {
    Data data = garbage();
    EXPECT_FALSE(parseExact({0x80}, &data));
    EXPECT_EQ(0, data.commandId);
    EXPECT_EQ(0u, data.status);
    EXPECT_EQ(0u, data.index);
    EXPECT_EQ(0u, data.count);
}

TEST(OstLinkAppProtocolTest, GetBasicResponse_EmptyFrame_ReturnsFalseWithEveryFieldZero) {
    Data data = garbage();
    EXPECT_FALSE(parseExact({}, &data));
    EXPECT_EQ(0, data.commandId);
    EXPECT_EQ(0u, data.status);
    EXPECT_EQ(0u, data.index);
    EXPECT_EQ(0u, data.count);
}

TEST(OstLinkAppProtocolTest, GetBasicResponse_NullFrame_ReturnsFalseWithEveryFieldZero) {
    Data data = garbage();
    EXPECT_FALSE(OstLinkAppProtocol::getBasicResponse(nullptr, 8, &data));
    EXPECT_EQ(0, data.commandId);
    EXPECT_EQ(0u, data.status);
    EXPECT_EQ(0u, data.index);
    EXPECT_EQ(0u, data.count);
}

TEST(OstLinkAppProtocolTest, GetBasicResponse_NullData_ReturnsFalse) {
    EXPECT_FALSE(OstLinkAppProtocol::getBasicResponse(kHeader.data(), 8, nullptr));
}

TEST(OstLinkAppProtocolTest, Interface_CallsThroughTheBase_ReachTheImplementation) {
    std::vector<std::string> calls;
    OstLinkAppProtocol* protocol = new RecordingProtocol(&calls);
    unsigned char frame[3] = {0x80, 0x01, 0x00};
    protocol->analysisProtocolCmd(frame, 3);
    protocol->sendCmdConnect();
    protocol->sendCmdDisconnect();
    protocol->sendCmdNotifyRunningState(7);
    EXPECT_TRUE(protocol->isLogvCmd(frame, 3));
    delete protocol;
    std::vector<std::string> expected = {"analysis 3", "connect", "disconnect",
                                         "running 7",  "logv",    "destroyed"};
    EXPECT_EQ(expected, calls);
}
