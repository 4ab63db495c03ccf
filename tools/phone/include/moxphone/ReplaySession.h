// The phone side of a capture (moxcapture::CaptureReader) played against a
// module: the envelopes the phone sent, in their order, with their recorded
// gaps, and the module's requests checked against the recorded ones.
//
//   moxphone::ReplaySession replay(capture, scale, transport, scheduler, log);
//   replay.open();                     // the recorded greeting goes out
//   replay.receiveBytes(data, size);   // the module's requests, checked
//
// Timing follows the module: a phone record that the capture holds after
// the module's k-th request waits until the module has sent k requests, then
// the recorded gap between it and the record before it, multiplied by
// `timeScale` (HB_TIMER_SCALE divided by the replay speed). The first record
// goes out at once.
//
// Every request is compared byte for byte (the whole envelope) with the one
// recorded at its place; each difference is one log line: which request,
// at which byte, the expected and the received bytes from there. A request
// beyond the capture's and a module that ends the link before sending all
// recorded requests are differences too. When the capture ends with a phone
// record (the phone hung up), the replay hangs up after sending it; otherwise
// the module ends the link. The end logs how many requests matched.
//
// Not thread-safe: the owner calls it and runs the scheduler's tasks on one
// thread.
#ifndef MOXPHONE_REPLAYSESSION_H
#define MOXPHONE_REPLAYSESSION_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "moxcapture/CaptureReader.h"
#include "moxcapture/EnvelopeSplitter.h"
#include "moxphone/LinkSession.h"
#include "moxphone/PhoneLog.h"
#include "moxphone/Scheduler.h"

namespace moxphone {

class ReplaySession : public LinkSession {
public:
    // Bytes of an envelope shown in a difference's line at most.
    static constexpr size_t kMaxShownBytes = 16;

    // `transport`, `scheduler` and `log` must outlive the session.
    ReplaySession(const moxcapture::CaptureReader::Capture& capture, double timeScale,
                  Transport& transport, Scheduler& scheduler, PhoneLog& log);
    ~ReplaySession() override;

    void open() override;
    bool receiveBytes(const uint8_t* data, size_t size) override;
    void close() override;
    void resume() override;
    bool isOpen() const override { return mOpen; }

    // Differences found so far.
    size_t differences() const { return mDifferences; }

    // Why `capture` cannot be replayed (a record that kept only the first
    // bytes of its envelope, no phone record), or empty.
    static std::string problem(const moxcapture::CaptureReader::Capture& capture);

private:
    struct Record {
        bool fromPhone = false;
        uint32_t gapMs = 0;          // after the record before it, scaled
        size_t requestsBefore = 0;   // the module's requests recorded before it
        std::vector<uint8_t> bytes;  // the envelope
    };

    // Sends the phone records that are due, or schedules the next one.
    void advance();
    void sendRecord(size_t index);
    void checkRequest(const uint8_t* envelope, size_t size);
    void difference(const std::string& text);
    void end(const std::string& how);

    std::vector<Record> mRecords;
    std::vector<size_t> mRequests;  // indexes of the module's records in mRecords
    Transport& mTransport;
    Scheduler& mScheduler;
    PhoneLog& mLog;
    moxcapture::EnvelopeSplitter mSplitter;
    bool mOpen;
    bool mScheduled;   // a phone record waits for its gap
    size_t mNext;      // the next record to look at for a phone send
    size_t mReceived;  // the module's requests received
    size_t mDifferences;
};

}  // namespace moxphone

#endif  // MOXPHONE_REPLAYSESSION_H
