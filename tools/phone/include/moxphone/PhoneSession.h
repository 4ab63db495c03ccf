// One connection of the simulated phone application, from the module's
// opening of the link to its end: the protocol state machine, free of any
// transport, clock or thread, so that every byte it sends can be tested.
//
// open() sends the device info (OS type, device name) and the device status
// 2 (application open). Then each request of the module is checked byte for
// byte and answered:
//
//   connect      00 01 01            -> 0x8001
//   lookup       0x0010 + XML + 00   -> 0x8010, then the notice 0x8011 with the size of
//                                       the disc's response database, or with the
//                                       not-found status for an unknown disc
//                                       (or a failure status of an online source)
//   get CD meta  00 12 00 00 03 E8   -> the database in 0x8012 chunks
//   cancel       0F FF               -> 0x8FFF (pending chunks are dropped)
//   echo         7F FF               -> 0xFFFF
//   disconnect   00 02               -> nothing (pending chunks are dropped)
//
// A malformed request is logged and answered (request ID + 0x8000) with the
// status 400; a request for the database before a lookup found one, with 400
// too. The faults of the options change the answers (see Faults.h). Every
// frame received and sent is logged, one line each; a malformed frame shows
// at most its first kMaxLoggedFrameBytes bytes, whatever its size.
//
// The owner feeds what it reads (receiveBytes for a stream, receiveFrame for
// single frames) and tells the session when the module's end has gone
// (close). A transport that queues what it sends says when it holds too
// much (hasRoom): the chunks of a transfer then wait until the owner calls
// resume(). The disc is looked up in the options' source (the catalogue by
// default). A source that does not answer at once (an online service) is
// asked on a worker thread (PendingLookup) while the session goes on: the
// lookup answer goes out at once, the notice when the source has answered,
// which the session checks every kLookupCheckMs through the scheduler. A
// cancel, another lookup, a disconnect or the end of the connection
// abandons the lookup. A session is not thread-safe: its owner calls it, and runs the
// scheduler's tasks, under one lock or on one thread.
#ifndef MOXPHONE_PHONESESSION_H
#define MOXPHONE_PHONESESSION_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "moxphone/DiscSource.h"
#include "moxphone/EnvelopeStream.h"
#include "moxphone/LinkSession.h"
#include "moxphone/PendingLookup.h"
#include "moxphone/PhoneLog.h"
#include "moxphone/PhoneOptions.h"
#include "moxphone/Scheduler.h"

namespace moxphone {

class PhoneSession : public LinkSession {
public:
    // A malformed frame's log line shows this many of its bytes at most.
    static constexpr size_t kMaxLoggedFrameBytes = 32;
    // How often a session looks whether its online lookup has ended.
    static constexpr uint32_t kLookupCheckMs = 10;
    // The time an online lookup may take, before HB_TIMER_SCALE: well inside
    // the module's 10 000 ms command timer, so that the notice is there first.
    static constexpr uint32_t kLookupBudgetMs = 8000;
    // A lookup still running this long after its budget is given up.
    static constexpr uint32_t kLookupGraceMs = 1000;

    // `options` must be valid (PhoneOptions::validate); the session keeps a
    // copy. `transport`, `scheduler` and `log` must outlive the session.
    PhoneSession(const PhoneOptions& options, Transport& transport, Scheduler& scheduler,
                 PhoneLog& log);
    ~PhoneSession() override;
    PhoneSession(const PhoneSession&) = delete;
    PhoneSession& operator=(const PhoneSession&) = delete;

    // The connection is up: device info, then device status 2.
    void open() override;
    // Bytes of the stream from the module (envelopes, split anyhow). A bad
    // envelope is logged and the phone hangs up; false then.
    bool receiveBytes(const uint8_t* data, size_t size) override;
    // One command frame from the module.
    void receiveFrame(const uint8_t* frame, size_t size);
    // The module's end has gone: nothing more is sent, pending sends are dropped.
    void close() override;
    // The transport has room again: a transfer that waited for it goes on.
    void resume() override;
    // True from open() until close(), a hang-up, or a failed send.
    bool isOpen() const override { return mOpen; }

private:
    // One send of a transfer: bytes (possibly none), then maybe a hang-up.
    struct Step {
        std::string note;  // logged first (a fault), when not empty
        Bytes bytes;       // whole envelope, or the part of one that a fault sends
        std::string text;  // the log line of the bytes
        bool hangUp = false;
    };

    void handleConnect(const Bytes& frame);
    void handleLookup(const Bytes& frame);
    void handleGetCdMetaInfo(const Bytes& frame);
    void handleCancel(const Bytes& frame);
    void handleEcho(const Bytes& frame);
    void handleDisconnect(const Bytes& frame);
    void handleOther(const Bytes& frame, uint16_t command);
    void answerLookup(const DiscAnswer& answer);
    void checkLookup();
    void sendNotice(uint16_t status, uint32_t size);
    bool expectExactly(const Bytes& frame, const Bytes& expected, const char* name);
    void refuse(uint16_t request, const std::string& name, const std::string& reason);

    std::vector<Step> planTransfer(const Bytes& database);
    Step chunkStep(uint16_t status, uint16_t index, uint16_t count, uint32_t declared,
                   const Bytes& database, size_t begin, size_t size) const;
    Step faultyStep(const Bytes& database, size_t chunkSize, uint16_t count) const;
    void startSteps();
    void sendSteps();
    void runStep();
    void stopTransfer();

    void sendFrame(const Bytes& frame);
    void sendBytes(const Bytes& bytes, const std::string& text);
    void hangUp();
    void fault(FaultKind kind, const std::string& what);
    uint32_t scaledDelayMs(uint32_t ms) const;

    const PhoneOptions mOptions;
    Transport& mTransport;
    Scheduler& mScheduler;
    PhoneLog& mLog;
    EnvelopeStream mStream;
    bool mOpen;
    bool mHaveDatabase;  // a lookup found the disc and its database waits for the request
    Bytes mDatabase;
    std::shared_ptr<const DiscSource> mSource;
    std::unique_ptr<PendingLookup> mPending;  // the online lookup in progress
    std::vector<Step> mSteps;                 // the transfer in progress
    size_t mNextStep;
    bool mWaitingForRoom;  // the transfer stopped at mNextStep until resume()
};

}  // namespace moxphone

#endif  // MOXPHONE_PHONESESSION_H
