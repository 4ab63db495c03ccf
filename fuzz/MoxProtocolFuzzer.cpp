// Feeds arbitrary sequences of phone frames to MoxProtocol::analysisProtocolCmd.
//
// Input layout:
//   byte 0        how the run starts: 0 a lookup, 1 a connect, 2 a cancel,
//                 anything else: carry on from the previous input's state
//   then records  2-byte big-endian length N, then N bytes (one frame; a
//                 last record may be cut short). Three lengths are actions
//                 instead: 0xFFFF lets 10000 ms pass (the command timer
//                 expires), 0xFFFE reports that the phone application is lost,
//                 0xFFFD is followed by a 2-byte chunk index and a 2-byte chunk
//                 count (big-endian) and feeds a database chunk of 64 KiB of
//                 zeros with them, so that a short input can outgrow the
//                 result-file limit.
//
// Every frame is copied into a heap buffer of exactly its size, so a read past
// the frame is caught by AddressSanitizer. After every step the result state
// must be a documented value or a status that some frame carried, and every
// frame handed over for sending must be one the module knows.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "HbFramework/Foundation/HbObserver.h"
#include "HbFramework/HbDbgOutput.h"
#include "HbFramework/HbLTimerManualClock.h"
#include "HbFramework/HbLTimerMng.h"
#include "HbSMoxDef.h"
#include "moxdb/DbBytes.h"
#include "private/MoxProtocol.h"
#include "private/MoxState.h"

namespace {

const char* const kToc = "0000960046E6008D3600D386";
const uint16 ACTION_EXPIRE = 0xFFFF;
const uint16 ACTION_LINK_LOST = 0xFFFE;
const uint16 ACTION_LARGE_CHUNK = 0xFFFD;
// Payload of the chunk that ACTION_LARGE_CHUNK feeds.
const size_t LARGE_CHUNK_PAYLOAD = 64 * 1024;

HbSMoxDef::SearchInfo makeSearchInfo() {
    HbSMoxDef::SearchInfo info;
    info.lookupKind = 1;
    info.lookupParam1 = 2;
    info.lookupParam2 = 3;
    info.toc = kToc;
    return info;
}

// The lookup frame this harness sends, built independently of the module.
std::vector<unsigned char> expectedLookupFrame() {
    std::vector<unsigned char> frame = {0x00, 0x10, 0x01, 0x00, 0x00, 0x02, 0x00, 0x03};
    const std::string text = std::string(
                                 "<DbUpdateRequest>\n\t<DatabaseInfo>\n\t\t<DatabaseKind>73QRVB"
                                 "</DatabaseKind>\n\t</DatabaseInfo>\n\t<TOCRequest>\n\t\t<TOC>") +
                             kToc + "</TOC>\n\t</TOCRequest>\n</DbUpdateRequest>";
    frame.insert(frame.end(), text.begin(), text.end());
    frame.push_back(0x00);
    return frame;
}

// Aborts on any frame the module should never send.
class FrameChecker {
public:
    FrameChecker()
        : mKnown({{0x00, 0x01, 0x01},
                  {0x00, 0x02},
                  {0x00, 0x12, 0x00, 0x00, 0x03, 0xE8},
                  {0x0F, 0xFF},
                  {0x7F, 0xFF},
                  expectedLookupFrame()}) {}
    uint32 onFrame(uint32 id, void* data, uint32 size) {
        const unsigned char* bytes = static_cast<const unsigned char*>(data);
        if (id != 0 || mKnown.count(std::vector<unsigned char>(bytes, bytes + size)) == 0) {
            std::abort();
        }
        return 1;
    }

private:
    std::set<std::vector<unsigned char>> mKnown;
};

// Statuses carried by any frame so far: each may legitimately become the state.
std::set<unsigned int>& seenStatuses() {
    static std::set<unsigned int> statuses;
    return statuses;
}

void checkState() {
    static const std::set<unsigned int> documented = {0, 4, 20, 100, 101, 102, 103, 104};
    const unsigned int state = MoxState::GetInstance()->getResultState();
    if (documented.count(state) == 0 && seenStatuses().count(state) == 0) {
        std::abort();
    }
}

void feedFrame(const uint8_t* bytes, size_t size) {
    if (size >= 4) {
        seenStatuses().insert(moxdb::getU16Be(moxdb::Bytes(bytes + 2, bytes + 4), 0));
    }
    unsigned char* copy = new unsigned char[size];
    if (size > 0) {
        std::memcpy(copy, bytes, size);
    }
    MoxProtocol::GetInstance()->analysisProtocolCmd(copy, static_cast<unsigned int>(size));
    delete[] copy;
}

// A database chunk (0x8012, status 0) with the big-endian index and count at
// `indexAndCount` and LARGE_CHUNK_PAYLOAD zero bytes.
void feedLargeChunk(const uint8_t* indexAndCount) {
    std::vector<uint8_t> frame(12 + LARGE_CHUNK_PAYLOAD, 0);
    frame[0] = 0x80;
    frame[1] = 0x12;
    std::memcpy(&frame[4], indexAndCount, 4);
    moxdb::putU32Be(frame, 8, static_cast<uint32_t>(LARGE_CHUNK_PAYLOAD));
    feedFrame(frame.data(), frame.size());
}

void start(uint8_t mode) {
    MoxProtocol* protocol = MoxProtocol::GetInstance();
    // Keeps the result file small across millions of inputs.
    protocol->clearSearchResultFile();
    if (mode == 0) {
        HbSMoxDef::SearchInfo info = makeSearchInfo();
        protocol->sendCmdEventCdTocLookup(info);
    } else if (mode == 1) {
        protocol->sendCmdConnect();
    } else if (mode == 2) {
        protocol->sendCmdCancel();
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    HbDbgOutput::SetSink([](const HbDbgRecord&) {});
    HbLTimerManualClock::GetInstance()->Use();
    static FrameChecker checker;
    static HbObserver<FrameChecker> observer(&checker, &FrameChecker::onFrame);
    MoxProtocol::GetInstance()->AddObserver(&observer);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    start(data[0]);
    checkState();
    size_t pos = 1;
    while (pos + 2 <= size) {
        const uint16 length = moxdb::getU16Be(moxdb::Bytes(data + pos, data + pos + 2), 0);
        pos += 2;
        if (length == ACTION_EXPIRE) {
            HbLTimerManualClock::GetInstance()->Advance(MoxProtocol::CMD_TIMER_PERIOD);
        } else if (length == ACTION_LINK_LOST) {
            MoxState::GetInstance()->notifyObserverAppState(OstLinkAppState::en_APP_STATE_LOST);
        } else if (length == ACTION_LARGE_CHUNK) {
            if (size - pos < 4) {
                break;
            }
            feedLargeChunk(data + pos);
            pos += 4;
        } else {
            const size_t take = length < size - pos ? length : size - pos;
            feedFrame(data + pos, take);
            pos += take;
        }
        checkState();
    }
    return 0;
}
