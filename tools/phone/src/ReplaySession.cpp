// The phone side of a capture, played against a module.
#include "moxphone/ReplaySession.h"

#include <algorithm>
#include <chrono>
#include <cmath>

#include "moxphone/Envelope.h"
#include "moxphone/PhoneFrames.h"

namespace moxphone {

namespace {

constexpr double kMaxDelayMs = 4294967295.0;

// "0x0010" for a command envelope, "type 1" for another one, "cut" for less.
std::string nameOf(const Bytes& envelope) {
    if (envelope.size() <= Envelope::kLengthSize) {
        return "cut";
    }
    const uint8_t type = envelope[Envelope::kLengthSize];
    if (type != Envelope::kCommand) {
        return "type " + std::to_string(type);
    }
    const size_t frame = Envelope::kLengthSize + 1;
    return PhoneFrames::hex16(
        PhoneFrames::commandOf(envelope.data() + frame, envelope.size() - frame));
}

// The bytes of an envelope from `offset` for a difference's line, with the
// envelope's size: "01 (8 bytes)", "3C 44 ... (188 bytes)", "the end (8 bytes)".
std::string shownFrom(const Bytes& envelope, size_t offset) {
    const std::string size = "(" + std::to_string(envelope.size()) + " bytes)";
    if (offset >= envelope.size()) {
        return "the end " + size;
    }
    if (envelope.size() - offset > ReplaySession::kMaxShownBytes) {
        return PhoneFrames::hexBytes(envelope, ReplaySession::kMaxShownBytes, offset);
    }
    return PhoneFrames::hexBytes(envelope, ReplaySession::kMaxShownBytes, offset) + " " + size;
}

// True when `bytes` hold a whole envelope: the length word and as many bytes
// as it says.
bool isWholeEnvelope(const Bytes& bytes) {
    if (bytes.size() < Envelope::kLengthSize) {
        return false;
    }
    const uint32_t length = static_cast<uint32_t>(bytes[0]) << 24 |
                            static_cast<uint32_t>(bytes[1]) << 16 |
                            static_cast<uint32_t>(bytes[2]) << 8 | static_cast<uint32_t>(bytes[3]);
    return bytes.size() - Envelope::kLengthSize == length;
}

uint32_t scaledGapMs(std::chrono::system_clock::duration gap, double timeScale) {
    const double ms =
        std::chrono::duration<double, std::milli>(gap).count() * std::max(timeScale, 0.0);
    return ms <= 0 ? 0 : static_cast<uint32_t>(std::min(std::round(ms), kMaxDelayMs));
}

}  // namespace

ReplaySession::ReplaySession(const moxcapture::CaptureReader::Capture& capture, double timeScale,
                             Transport& transport, Scheduler& scheduler, PhoneLog& log)
    : mTransport(transport),
      mScheduler(scheduler),
      mLog(log),
      mOpen(false),
      mScheduled(false),
      mNext(0),
      mReceived(0),
      mDifferences(0) {
    for (size_t i = 0; i < capture.records.size(); ++i) {
        const moxcapture::CaptureReader::Record& source = capture.records[i];
        Record record;
        record.fromPhone = source.direction == moxcapture::Direction::kFromPhone;
        record.gapMs =
            i == 0 ? 0 : scaledGapMs(source.time - capture.records[i - 1].time, timeScale);
        record.requestsBefore = mRequests.size();
        record.bytes = source.bytes;
        if (!record.fromPhone) {
            mRequests.push_back(i);
        }
        mRecords.push_back(record);
    }
}

ReplaySession::~ReplaySession() {
    mScheduler.cancelAll();
}

std::string ReplaySession::problem(const moxcapture::CaptureReader::Capture& capture) {
    for (size_t i = 0; i < capture.records.size(); ++i) {
        if (capture.records[i].truncated) {
            return "record " + std::to_string(i + 1) +
                   " of the capture keeps only the first bytes of its envelope";
        }
    }
    const bool anyPhone =
        std::any_of(capture.records.begin(), capture.records.end(),
                    [](const moxcapture::CaptureReader::Record& record) {
                        return record.direction == moxcapture::Direction::kFromPhone;
                    });
    return anyPhone ? std::string() : std::string("the capture holds nothing the phone sent");
}

void ReplaySession::open() {
    mOpen = true;
    mLog.line("replay: " + std::to_string(mRecords.size() - mRequests.size()) +
              " phone envelopes, " + std::to_string(mRequests.size()) + " requests to check");
    advance();
}

bool ReplaySession::receiveBytes(const uint8_t* data, size_t size) {
    if (!mOpen) {
        return false;
    }
    mSplitter.feed(data, size, [this](const uint8_t* envelope, size_t length) {
        checkRequest(envelope, length);
    });
    if (mOpen && !mScheduled) {
        advance();
    }
    return mOpen;
}

void ReplaySession::close() {
    if (!mOpen) {
        return;
    }
    mSplitter.finish(
        [this](const uint8_t* envelope, size_t length) { checkRequest(envelope, length); });
    end("the module ended the link");
}

void ReplaySession::resume() {
    if (mOpen && !mScheduled) {
        advance();
    }
}

void ReplaySession::advance() {
    while (mOpen && !mScheduled && mNext < mRecords.size()) {
        const Record& record = mRecords[mNext];
        if (!record.fromPhone) {
            ++mNext;
            continue;
        }
        if (mReceived < record.requestsBefore || !mTransport.hasRoom()) {
            return;  // receiveBytes() or resume() goes on
        }
        if (record.gapMs == 0) {
            sendRecord(mNext);
            continue;
        }
        mScheduled = true;
        const size_t index = mNext;
        mScheduler.schedule(record.gapMs, [this, index]() {
            mScheduled = false;
            sendRecord(index);
            advance();
        });
    }
    // A capture that ends inside the phone's envelope ends where the phone
    // hung up. After a whole envelope it does not say who ended the link
    // (the module, after a failure code, may close without a word), so the
    // replay waits for the module.
    if (mOpen && !mScheduled && !mRecords.empty() && mNext == mRecords.size() &&
        mRecords.back().fromPhone && !isWholeEnvelope(mRecords.back().bytes)) {
        end("the capture ends inside the phone's envelope: hanging up");
        mTransport.hangUp();
    }
}

void ReplaySession::sendRecord(size_t index) {
    mNext = index + 1;
    if (!mOpen) {
        return;
    }
    if (!mTransport.send(mRecords[index].bytes)) {
        end("the module's end is gone");
    }
}

void ReplaySession::checkRequest(const uint8_t* envelope, size_t size) {
    const Bytes got(envelope, envelope + size);
    const size_t number = ++mReceived;
    if (number > mRequests.size()) {
        difference("request " + std::to_string(number) + " (" + nameOf(got) +
                   ") is not in the capture: got " + PhoneFrames::hexBytes(got, kMaxShownBytes));
        return;
    }
    const Bytes& expected = mRecords[mRequests[number - 1]].bytes;
    if (got == expected) {
        return;
    }
    const auto mismatch = std::mismatch(expected.begin(), expected.end(), got.begin(), got.end());
    const size_t offset = static_cast<size_t>(mismatch.first - expected.begin());
    difference("request " + std::to_string(number) + " (" + nameOf(expected) +
               ") differs at byte " + std::to_string(offset) + ": expected " +
               shownFrom(expected, offset) + ", got " + shownFrom(got, offset));
}

void ReplaySession::difference(const std::string& text) {
    ++mDifferences;
    mLog.line("replay: " + text);
}

void ReplaySession::end(const std::string& how) {
    mOpen = false;
    mScheduled = false;
    mScheduler.cancelAll();
    for (size_t number = mReceived + 1; number <= mRequests.size(); ++number) {
        difference("request " + std::to_string(number) + " (" +
                   nameOf(mRecords[mRequests[number - 1]].bytes) + ") never came");
    }
    mLog.line("replay: " + how + "; " + std::to_string(mReceived) + " requests received, " +
              std::to_string(mRequests.size()) + " recorded, " + std::to_string(mDifferences) +
              (mDifferences == 1 ? " difference" : " differences"));
}

}  // namespace moxphone
