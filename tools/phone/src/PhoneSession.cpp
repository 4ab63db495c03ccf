// The phone application's side of the command protocol, with its faults.
#include "moxphone/PhoneSession.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <map>

#include "moxphone/CatalogueSource.h"
#include "moxphone/LookupRequest.h"
#include "moxphone/PhoneFrames.h"
#include "moxphone/ResponseDatabase.h"

namespace moxphone {

namespace {

const Bytes kConnectFrame = {0x00, 0x01, 0x01};
const Bytes kGetCdMetaInfoFrame = {0x00, 0x12, 0x00, 0x00, 0x03, 0xE8};
const Bytes kCancelFrame = {0x0F, 0xFF};
const Bytes kEchoFrame = {0x7F, 0xFF};
const Bytes kDisconnectFrame = {0x00, 0x02};

constexpr size_t kMaxChunks = 65535;     // the chunk count is a 16-bit field
constexpr size_t kShortNoticeSize = 11;  // one byte of the size missing
constexpr uint8_t kUnknownEnvelopeType = 0x7F;
constexpr size_t kMaxLoggedToc = 200;

const FaultKind kTransferFaults[] = {
    FaultKind::kSilentMidTransfer, FaultKind::kDropMidTransfer, FaultKind::kStatusChunk,
    FaultKind::kWrongChunkIndex,   FaultKind::kRepeatedChunk,   FaultKind::kChunkCountZero,
    FaultKind::kLengthShort,       FaultKind::kLengthLong,
};

std::string sizeText(size_t bytes) {
    return " (" + std::to_string(bytes) + (bytes == 1 ? " byte)" : " bytes)");
}

// The bytes in hex for the log, at most kMaxLoggedFrameBytes of them.
std::string hexBytes(const Bytes& bytes) {
    return PhoneFrames::hexBytes(bytes, PhoneSession::kMaxLoggedFrameBytes);
}

// The TOC text as the log shows it: control bytes as '?', long texts cut.
std::string printable(const std::string& toc) {
    std::string text;
    for (size_t i = 0; i < toc.size() && i < kMaxLoggedToc; ++i) {
        const unsigned char c = static_cast<unsigned char>(toc[i]);
        text += (c < 0x20 || c == 0x7F) ? '?' : static_cast<char>(c);
    }
    if (toc.size() > kMaxLoggedToc) {
        text += "...";
    }
    return text;
}

const char* osName(uint8_t osType) {
    return osType == Envelope::kOsIos ? "ios" : "android";
}

}  // namespace

PhoneSession::PhoneSession(const PhoneOptions& options, Transport& transport, Scheduler& scheduler,
                           PhoneLog& log)
    : mOptions(options),
      mTransport(transport),
      mScheduler(scheduler),
      mLog(log),
      mOpen(false),
      mHaveDatabase(false),
      mSource(options.source ? options.source
                             : std::make_shared<CatalogueSource>(options.catalogue)),
      mNextStep(0),
      mWaitingForRoom(false) {}

PhoneSession::~PhoneSession() {}

void PhoneSession::open() {
    mOpen = true;
    sendBytes(Envelope::deviceInfo(mOptions.osType, mOptions.deviceName),
              std::string("device info: os ") + osName(mOptions.osType) + ", name \"" +
                  mOptions.deviceName + "\"");
    sendBytes(Envelope::deviceStatus(Envelope::kStatusAppOpen),
              "device status 2 (application open)");
}

bool PhoneSession::receiveBytes(const uint8_t* data, size_t size) {
    if (!mOpen) {
        return false;
    }
    mStream.append(data, size);
    EnvelopeStream::Message message;
    while (mOpen) {
        const EnvelopeStream::Status status = mStream.next(&message);
        if (status == EnvelopeStream::Status::kNeedMore) {
            break;
        }
        if (status == EnvelopeStream::Status::kBroken) {
            mLog.line("<- bad envelope from the module: " + mStream.error() + "; hanging up");
            hangUp();
            break;
        }
        if (message.type != Envelope::kCommand) {
            mLog.line("<- envelope of type " + std::to_string(message.type) +
                      " from the module ignored: only commands are expected");
            continue;
        }
        receiveFrame(message.payload.data(), message.payload.size());
    }
    return mOpen;
}

void PhoneSession::receiveFrame(const uint8_t* frame, size_t size) {
    if (!mOpen) {
        mLog.line("<- frame" + sizeText(size) + " after the end of the connection ignored");
        return;
    }
    if (frame == nullptr || size < 2) {
        mLog.line("<- frame" + sizeText(size) + " without a command ID ignored");
        return;
    }
    const Bytes bytes(frame, frame + size);
    const uint16_t command = PhoneFrames::commandOf(frame, size);
    switch (command) {
        case PhoneFrames::kConnect:
            handleConnect(bytes);
            break;
        case PhoneFrames::kLookup:
            handleLookup(bytes);
            break;
        case PhoneFrames::kGetCdMetaInfo:
            handleGetCdMetaInfo(bytes);
            break;
        case PhoneFrames::kCancel:
            handleCancel(bytes);
            break;
        case PhoneFrames::kEcho:
            handleEcho(bytes);
            break;
        case PhoneFrames::kDisconnect:
            handleDisconnect(bytes);
            break;
        default:
            handleOther(bytes, command);
            break;
    }
}

void PhoneSession::close() {
    if (!mOpen) {
        return;
    }
    mOpen = false;
    stopTransfer();
    mHaveDatabase = false;
    mLog.line("the connection is closed");
}

void PhoneSession::resume() {
    if (!mWaitingForRoom) {
        return;
    }
    mWaitingForRoom = false;
    if (mOptions.faults.has(FaultKind::kSlowChunks)) {
        runStep();  // its delay has passed; it schedules the next one
        return;
    }
    sendSteps();
}

// ---- Requests ----

void PhoneSession::handleConnect(const Bytes& frame) {
    mLog.line("<- 0x0001 connect" + sizeText(frame.size()));
    if (!expectExactly(frame, kConnectFrame, "connect")) {
        return;
    }
    const Faults& faults = mOptions.faults;
    if (faults.has(FaultKind::kSilentAfterConnect)) {
        fault(FaultKind::kSilentAfterConnect, "the connect is not answered");
        return;
    }
    uint16_t status = 0;
    if (faults.has(FaultKind::kStatusConnect)) {
        status = static_cast<uint16_t>(faults.value(FaultKind::kStatusConnect));
        fault(FaultKind::kStatusConnect,
              "the connect answer carries status " + std::to_string(status));
    }
    sendFrame(PhoneFrames::answer(PhoneFrames::kConnectAnswer, status));
}

void PhoneSession::handleLookup(const Bytes& frame) {
    LookupRequest request;
    std::string problem;
    if (!LookupRequest::parse(frame.data(), frame.size(), &request, &problem)) {
        mLog.line("<- 0x0010 lookup" + sizeText(frame.size()));
        refuse(PhoneFrames::kLookup, "lookup", problem);
        return;
    }
    mLog.line("<- 0x0010 lookup kind " + std::to_string(request.kind) + " param1 " +
              std::to_string(request.param1) + " param2 " + std::to_string(request.param2) +
              " toc " + printable(request.toc) + sizeText(frame.size()));
    stopTransfer();
    mHaveDatabase = false;
    mDatabase.clear();
    const Faults& faults = mOptions.faults;
    if (faults.has(FaultKind::kSilentAfterLookup)) {
        fault(FaultKind::kSilentAfterLookup, "the lookup is not answered");
        return;
    }
    if (faults.has(FaultKind::kStatusAck)) {
        const uint16_t status = static_cast<uint16_t>(faults.value(FaultKind::kStatusAck));
        fault(FaultKind::kStatusAck,
              "the lookup answer carries status " + std::to_string(status) + "; nothing follows");
        sendFrame(PhoneFrames::answer(PhoneFrames::kLookupAnswer, status));
        return;
    }
    sendFrame(PhoneFrames::answer(PhoneFrames::kLookupAnswer, 0));
    if (!mOpen) {
        return;
    }
    if (mSource->answersAtOnce()) {
        LookupControl control(LookupControl::Clock::now());
        answerLookup(mSource->lookUp(request.toc, control));
        return;
    }
    mLog.line("looking the disc up online");
    const auto budget = std::chrono::milliseconds(scaledDelayMs(kLookupBudgetMs));
    mPending.reset(new PendingLookup(mSource, request.toc, LookupControl::Clock::now() + budget));
    mScheduler.schedule(kLookupCheckMs, [this] { checkLookup(); });
}

void PhoneSession::checkLookup() {
    if (!mPending) {
        return;
    }
    DiscAnswer answer;
    if (mPending->take(&answer)) {
        mPending.reset();
        answerLookup(answer);
        return;
    }
    // A source ends by the deadline; one that does not is given up a little
    // later, still before the module's timer.
    const auto grace = std::chrono::milliseconds(scaledDelayMs(kLookupGraceMs));
    if (LookupControl::Clock::now() < mPending->deadline() + grace) {
        mScheduler.schedule(kLookupCheckMs, [this] { checkLookup(); });
        return;
    }
    mPending.reset();
    answer.outcome = DiscAnswer::Outcome::kFailed;
    answer.status = DiscSource::kServiceTimedOutStatus;
    answer.summary = "the online lookup did not end in time; answered with status " +
                     std::to_string(answer.status);
    answerLookup(answer);
}

void PhoneSession::answerLookup(const DiscAnswer& answer) {
    for (const std::string& note : answer.notes) {
        mLog.line(note);
    }
    mLog.line(answer.summary);
    switch (answer.outcome) {
        case DiscAnswer::Outcome::kFound:
            mDatabase = answer.database;
            mHaveDatabase = true;
            sendNotice(0, static_cast<uint32_t>(mDatabase.size()));
            return;
        case DiscAnswer::Outcome::kNotFound:
            sendNotice(mOptions.notFoundStatus, 0);
            return;
        case DiscAnswer::Outcome::kFailed:
            sendNotice(answer.status, 0);
            return;
    }
}

void PhoneSession::sendNotice(uint16_t status, uint32_t size) {
    const Faults& faults = mOptions.faults;
    if (faults.has(FaultKind::kStatusNotice)) {
        const uint16_t code = static_cast<uint16_t>(faults.value(FaultKind::kStatusNotice));
        fault(FaultKind::kStatusNotice, "the notice carries status " + std::to_string(code));
        mHaveDatabase = false;
        sendFrame(PhoneFrames::notice(code, 0));
        return;
    }
    if (faults.has(FaultKind::kShortNotice)) {
        Bytes frame = PhoneFrames::notice(status, size);
        frame.resize(kShortNoticeSize);
        fault(FaultKind::kShortNotice, "the notice is cut to 11 bytes");
        sendFrame(frame);
        return;
    }
    Bytes garbage;
    std::string text;
    if (faults.has(FaultKind::kGarbageLengthZero)) {
        moxdb::appendU32Be(garbage, 0);
        text = "an envelope of length 0";
        fault(FaultKind::kGarbageLengthZero, "instead of the notice, " + text);
    } else if (faults.has(FaultKind::kGarbageOversize)) {
        moxdb::appendU32Be(garbage, Envelope::kMaxLength + 1);
        garbage.push_back(Envelope::kCommand);
        text = "an envelope of length " + std::to_string(Envelope::kMaxLength + 1) +
               ", its type byte and nothing more";
        fault(FaultKind::kGarbageOversize, "instead of the notice, " + text);
    } else if (faults.has(FaultKind::kGarbageType)) {
        garbage = Envelope::encode(kUnknownEnvelopeType, PhoneFrames::notice(status, size));
        text = "the notice in an envelope of type 0x7F";
        fault(FaultKind::kGarbageType, "instead of the notice, " + text);
    }
    if (!garbage.empty()) {
        mHaveDatabase = false;
        sendBytes(garbage, "garbage: " + text + sizeText(garbage.size()));
        return;
    }
    sendFrame(PhoneFrames::notice(status, size));
}

void PhoneSession::handleGetCdMetaInfo(const Bytes& frame) {
    mLog.line("<- 0x0012 get CD meta info" + sizeText(frame.size()));
    if (!expectExactly(frame, kGetCdMetaInfoFrame, "get CD meta info")) {
        return;
    }
    if (!mHaveDatabase) {
        mLog.line("no lookup result to send; answered with status " +
                  std::to_string(Faults::kBadRequestStatus));
        sendFrame(PhoneFrames::failure(PhoneFrames::kGetCdMetaInfo, Faults::kBadRequestStatus));
        return;
    }
    if (mOptions.faults.has(FaultKind::kSilentAfterNotice)) {
        fault(FaultKind::kSilentAfterNotice, "the request for the database is not answered");
        return;
    }
    stopTransfer();
    mSteps = planTransfer(mDatabase);
    if (mSteps.empty()) {
        mLog.line("the database of " + std::to_string(mDatabase.size()) +
                  " bytes needs more than 65535 chunks of " + std::to_string(mOptions.chunkSize) +
                  " bytes; answered with status " + std::to_string(Faults::kPhoneErrorStatus));
        sendFrame(PhoneFrames::failure(PhoneFrames::kGetCdMetaInfo, Faults::kPhoneErrorStatus));
        return;
    }
    startSteps();
}

void PhoneSession::handleCancel(const Bytes& frame) {
    mLog.line("<- 0x0FFF cancel" + sizeText(frame.size()));
    if (!expectExactly(frame, kCancelFrame, "cancel")) {
        return;
    }
    if (mNextStep < mSteps.size()) {
        const size_t dropped = mSteps.size() - mNextStep;
        mLog.line("the transfer stops: " + std::to_string(dropped) +
                  (dropped == 1 ? " pending send dropped" : " pending sends dropped"));
    }
    stopTransfer();
    mHaveDatabase = false;
    const Faults& faults = mOptions.faults;
    if (faults.has(FaultKind::kNoCancelAnswer)) {
        fault(FaultKind::kNoCancelAnswer, "the cancel is not answered");
        return;
    }
    uint16_t status = 0;
    if (faults.has(FaultKind::kStatusCancel)) {
        status = static_cast<uint16_t>(faults.value(FaultKind::kStatusCancel));
        fault(FaultKind::kStatusCancel,
              "the cancel answer carries status " + std::to_string(status));
    }
    sendFrame(PhoneFrames::answer(PhoneFrames::kCancelAnswer, status));
}

void PhoneSession::handleEcho(const Bytes& frame) {
    mLog.line("<- 0x7FFF echo request" + sizeText(frame.size()));
    if (!expectExactly(frame, kEchoFrame, "echo request")) {
        return;
    }
    uint16_t status = 0;
    if (mOptions.faults.has(FaultKind::kStatusEcho)) {
        status = static_cast<uint16_t>(mOptions.faults.value(FaultKind::kStatusEcho));
        fault(FaultKind::kStatusEcho, "the echo answer carries status " + std::to_string(status));
    }
    sendFrame(PhoneFrames::answer(PhoneFrames::kEchoAnswer, status));
}

void PhoneSession::handleDisconnect(const Bytes& frame) {
    mLog.line("<- 0x0002 disconnect" + sizeText(frame.size()));
    if (!expectExactly(frame, kDisconnectFrame, "disconnect")) {
        return;
    }
    stopTransfer();
    mHaveDatabase = false;
}

void PhoneSession::handleOther(const Bytes& frame, uint16_t command) {
    const std::string id = PhoneFrames::hex16(command);
    if ((command & PhoneFrames::kAnswerBit) != 0) {
        mLog.line("<- " + id + sizeText(frame.size()) + " is an answer, not a request; ignored");
        return;
    }
    mLog.line("<- " + id + " unknown request" + sizeText(frame.size()));
    refuse(command, "request", "unknown command ID " + id);
}

bool PhoneSession::expectExactly(const Bytes& frame, const Bytes& expected, const char* name) {
    if (frame == expected) {
        return true;
    }
    refuse(PhoneFrames::commandOf(frame.data(), frame.size()), name,
           "the frame must be the " + std::to_string(expected.size()) + " bytes " +
               hexBytes(expected) + ", not " + hexBytes(frame));
    return false;
}

void PhoneSession::refuse(uint16_t request, const std::string& name, const std::string& reason) {
    mLog.line("malformed " + name + ": " + reason + "; answered with status " +
              std::to_string(Faults::kBadRequestStatus));
    sendFrame(PhoneFrames::failure(request, Faults::kBadRequestStatus));
}

// ---- The chunk transfer ----

std::vector<PhoneSession::Step> PhoneSession::planTransfer(const Bytes& database) {
    const bool faulty = mOptions.faults.changesTransfer();
    size_t chunkSize = mOptions.chunkSize;
    size_t count = (database.size() + chunkSize - 1) / chunkSize;
    bool split = false;
    if (faulty && count < 2) {
        chunkSize = (database.size() + 1) / 2;
        count = (database.size() + chunkSize - 1) / chunkSize;
        split = true;
    }
    if (count == 0 || count > kMaxChunks) {
        return {};
    }
    mLog.line("sending the database of " + std::to_string(database.size()) + " bytes in " +
              std::to_string(count) + (count == 1 ? " chunk" : " chunks") + " of at most " +
              std::to_string(chunkSize) + " bytes" +
              (split ? " (split in two for the fault)" : ""));
    const uint16_t total = static_cast<uint16_t>(count);
    const uint16_t middle = static_cast<uint16_t>(total / 2);
    std::vector<Step> steps;
    for (uint16_t i = 0; i < total; ++i) {
        if (faulty && i == middle) {
            steps.push_back(faultyStep(database, chunkSize, total));
            break;
        }
        const size_t begin = static_cast<size_t>(i) * chunkSize;
        const size_t size = std::min(chunkSize, database.size() - begin);
        steps.push_back(chunkStep(0, i, total, static_cast<uint32_t>(size), database, begin, size));
    }
    return steps;
}

PhoneSession::Step PhoneSession::chunkStep(uint16_t status, uint16_t index, uint16_t count,
                                           uint32_t declared, const Bytes& database, size_t begin,
                                           size_t size) const {
    const Bytes frame =
        PhoneFrames::chunk(status, index, count, declared, database.data() + begin, size);
    Step step;
    step.bytes = Envelope::command(frame);
    step.text = PhoneFrames::describeSent(frame);
    return step;
}

PhoneSession::Step PhoneSession::faultyStep(const Bytes& database, size_t chunkSize,
                                            uint16_t count) const {
    const Faults& faults = mOptions.faults;
    const uint16_t m = static_cast<uint16_t>(count / 2);
    const size_t begin = static_cast<size_t>(m) * chunkSize;
    const size_t size = std::min(chunkSize, database.size() - begin);
    const uint32_t length = static_cast<uint32_t>(size);
    const std::string chunkName = "chunk " + std::to_string(m);
    FaultKind kind = FaultKind::kSilentMidTransfer;
    for (FaultKind candidate : kTransferFaults) {
        if (faults.has(candidate)) {
            kind = candidate;
        }
    }
    Step step;
    switch (kind) {
        case FaultKind::kSilentMidTransfer:
            break;
        case FaultKind::kDropMidTransfer: {
            const Step whole = chunkStep(0, m, count, length, database, begin, size);
            const size_t half = whole.bytes.size() / 2;
            step.bytes.assign(whole.bytes.begin(),
                              whole.bytes.begin() + static_cast<std::ptrdiff_t>(half));
            step.text = "the first " + std::to_string(half) + " of the " +
                        std::to_string(whole.bytes.size()) + " bytes of the envelope of " +
                        whole.text;
            step.hangUp = true;
            break;
        }
        case FaultKind::kStatusChunk:
            step = chunkStep(static_cast<uint16_t>(faults.value(kind)), m, count, 0, database,
                             begin, 0);
            break;
        case FaultKind::kWrongChunkIndex:
            step = chunkStep(0, static_cast<uint16_t>(m + 1), count, length, database, begin, size);
            break;
        case FaultKind::kRepeatedChunk:
            step =
                chunkStep(0, static_cast<uint16_t>(m - 1), count, static_cast<uint32_t>(chunkSize),
                          database, begin - chunkSize, chunkSize);
            break;
        case FaultKind::kChunkCountZero:
            step = chunkStep(0, m, 0, length, database, begin, size);
            break;
        case FaultKind::kLengthShort:
            step = chunkStep(0, m, count, length - 1, database, begin, size);
            break;
        case FaultKind::kLengthLong:
            step = chunkStep(0, m, count, length + 1, database, begin, size);
            break;
        default:
            break;
    }
    const std::map<FaultKind, std::string> notes = {
        {FaultKind::kSilentMidTransfer,
         "chunks " + std::to_string(m) + " to " + std::to_string(count - 1) + " are not sent"},
        {FaultKind::kDropMidTransfer, "the phone hangs up in the middle of " + chunkName},
        {FaultKind::kStatusChunk,
         chunkName + " carries status " + std::to_string(faults.value(kind))},
        {FaultKind::kWrongChunkIndex, chunkName + " is numbered " + std::to_string(m + 1)},
        {FaultKind::kRepeatedChunk, "chunk " + std::to_string(m - 1) + " is sent again"},
        {FaultKind::kChunkCountZero, chunkName + " says the transfer has 0 chunks"},
        {FaultKind::kLengthShort, chunkName + " declares " + std::to_string(length - 1) +
                                      " bytes and carries " + std::to_string(length)},
        {FaultKind::kLengthLong, chunkName + " declares " + std::to_string(length + 1) +
                                     " bytes and carries " + std::to_string(length)},
    };
    step.note = std::string("fault ") + Faults::info(kind).name + ": " + notes.at(kind) +
                (kind == FaultKind::kDropMidTransfer || kind == FaultKind::kSilentMidTransfer
                     ? ""
                     : "; the transfer ends there");
    return step;
}

void PhoneSession::startSteps() {
    mNextStep = 0;
    if (mOptions.faults.has(FaultKind::kSlowChunks)) {
        mScheduler.schedule(scaledDelayMs(mOptions.faults.value(FaultKind::kSlowChunks)),
                            [this] { runStep(); });
        return;
    }
    sendSteps();
}

// One step after another, until the end of the transfer, a hang-up or a
// transport without room.
void PhoneSession::sendSteps() {
    while (mOpen && !mWaitingForRoom && mNextStep < mSteps.size()) {
        runStep();
    }
}

void PhoneSession::runStep() {
    if (!mOpen || mNextStep >= mSteps.size()) {
        return;
    }
    if (!mTransport.hasRoom()) {
        mWaitingForRoom = true;  // resume() sends this step
        return;
    }
    const Step step = mSteps[mNextStep++];
    if (!step.note.empty()) {
        mLog.line(step.note);
    }
    if (!step.bytes.empty()) {
        sendBytes(step.bytes, step.text);
    }
    if (step.hangUp) {
        hangUp();
    }
    const bool slow = mOptions.faults.has(FaultKind::kSlowChunks);
    if (slow && mOpen && mNextStep < mSteps.size()) {
        mScheduler.schedule(scaledDelayMs(mOptions.faults.value(FaultKind::kSlowChunks)),
                            [this] { runStep(); });
    }
}

void PhoneSession::stopTransfer() {
    mScheduler.cancelAll();
    mPending.reset();
    mSteps.clear();
    mNextStep = 0;
    mWaitingForRoom = false;
}

// ---- Output ----

void PhoneSession::sendFrame(const Bytes& frame) {
    sendBytes(Envelope::command(frame), PhoneFrames::describeSent(frame));
}

void PhoneSession::sendBytes(const Bytes& bytes, const std::string& text) {
    if (!mOpen) {
        return;
    }
    mLog.line("-> " + text);
    if (!mTransport.send(bytes) && mOpen) {
        mLog.line("the module's end is gone");
        mOpen = false;
        stopTransfer();
        mHaveDatabase = false;
    }
}

void PhoneSession::hangUp() {
    if (!mOpen) {
        return;
    }
    mLog.line("hanging up");
    mOpen = false;
    stopTransfer();
    mHaveDatabase = false;
    mTransport.hangUp();
}

void PhoneSession::fault(FaultKind kind, const std::string& what) {
    mLog.line(std::string("fault ") + Faults::info(kind).name + ": " + what);
}

uint32_t PhoneSession::scaledDelayMs(uint32_t ms) const {
    const double scaled = std::llround(static_cast<double>(ms) * mOptions.timeScale);
    return scaled < 0 ? 0 : static_cast<uint32_t>(std::min(scaled, 4294967295.0));
}

}  // namespace moxphone
