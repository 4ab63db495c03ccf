// The fault table, the parsing of --fault values and the documented outcomes.
#include "moxphone/Faults.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <sstream>

#include "ResultState.h"

namespace moxphone {

namespace {

// The module's result states (ResultState names them for every tool); the
// phone's tables hold them unsigned, as its frames carry them.
using RS = ResultState;

constexpr uint32_t kMaxStatus = 65535;
constexpr uint32_t kMaxDelayMs = 600000;

const char* const kConnectAnswer = "the connect answer";
const char* const kLookupAnswer = "the lookup answer";
const char* const kNotice = "the notice";
const char* const kTransfer = "the chunk transfer";
const char* const kCancelAnswer = "the cancel answer";
const char* const kEchoAnswer = "the echo answer";
const char* const kTiming = "the timing of the chunks";

const char* const kTimedOutLookup =
    "101 102 103, then the command timer runs out: 4, the cancel 104, its answer 100";
const char* const kRefusedChunk =
    "101 102 103, the module refuses the frame: 20, the cancel 104, "
    "its answer 100";
const char* const kLinkLost = "101 102 103, the link is lost: 20, then 100";
const char* const kStatusOutcome =
    "the phone's code N becomes the result state (103 makes the module cancel: 104, 100)";

std::vector<FaultInfo> makeTable() {
    using V = FaultValue;
    return {
        {FaultKind::kSilentAfterConnect, "silent-after-connect", V::kNone, 0, 0, 0, "",
         kConnectAnswer, "the connect request is never answered",
         "101, then the command timer runs out: 20 (the link never comes up)"},
        {FaultKind::kSilentAfterLookup, "silent-after-lookup", V::kNone, 0, 0, 0, "", kLookupAnswer,
         "the lookup request is never answered (no acknowledgement, no notice)", kTimedOutLookup},
        {FaultKind::kSilentAfterNotice, "silent-after-notice", V::kNone, 0, 0, 0, "", kNotice,
         "the lookup is acknowledged and announced, the request for the database is never "
         "answered",
         kTimedOutLookup},
        {FaultKind::kSilentMidTransfer, "silent-mid-transfer", V::kNone, 0, 0, 0, "", kTransfer,
         "the chunks before the middle one are sent, then nothing", kTimedOutLookup},
        {FaultKind::kStatusConnect, "status-connect", V::kRequired, 0, 1, kMaxStatus, "N",
         kConnectAnswer, "the connect answer 0x8001 carries the status N",
         "101, then N (the link never comes up; 101 and 104 are left by the timer: 20, 100)"},
        {FaultKind::kStatusAck, "status-ack", V::kRequired, 0, 1, kMaxStatus, "N", kLookupAnswer,
         "the lookup answer 0x8010 carries the status N; nothing follows", kStatusOutcome},
        {FaultKind::kStatusNotice, "status-notice", V::kRequired, 0, 1, kMaxStatus, "N", kNotice,
         "the notice 0x8011 carries the status N (and the size 0); nothing follows",
         kStatusOutcome},
        {FaultKind::kStatusChunk, "status-chunk", V::kRequired, 0, 1, kMaxStatus, "N", kTransfer,
         "the middle chunk 0x8012 carries the status N and no payload", kStatusOutcome},
        {FaultKind::kStatusCancel, "status-cancel", V::kRequired, 0, 1, kMaxStatus, "N",
         kCancelAnswer, "the cancel answer 0x8FFF carries the status N",
         "alone none (the module cancels only after another fault); after a cancel: 104, "
         "then N"},
        {FaultKind::kStatusEcho, "status-echo", V::kRequired, 0, 1, kMaxStatus, "N", kEchoAnswer,
         "the echo answer 0xFFFF carries the status N",
         "none in a lookup (the module sends no echo request); N after an echo request"},
        {FaultKind::kWrongChunkIndex, "wrong-chunk-index", V::kNone, 0, 0, 0, "", kTransfer,
         "the middle chunk m is numbered m + 1", kRefusedChunk},
        {FaultKind::kRepeatedChunk, "repeated-chunk", V::kNone, 0, 0, 0, "", kTransfer,
         "the chunk before the middle one is sent a second time", kRefusedChunk},
        {FaultKind::kChunkCountZero, "chunk-count-zero", V::kNone, 0, 0, 0, "", kTransfer,
         "the middle chunk says the transfer has 0 chunks", kRefusedChunk},
        {FaultKind::kShortNotice, "short-notice", V::kNone, 0, 0, 0, "", kNotice,
         "the notice 0x8011 is 11 bytes long, one byte of its size missing", kRefusedChunk},
        {FaultKind::kLengthShort, "length-short", V::kNone, 0, 0, 0, "", kTransfer,
         "the middle chunk declares one byte less than it carries", kRefusedChunk},
        {FaultKind::kLengthLong, "length-long", V::kNone, 0, 0, 0, "", kTransfer,
         "the middle chunk declares one byte more than it carries", kRefusedChunk},
        {FaultKind::kDropMidTransfer, "drop-mid-transfer", V::kNone, 0, 0, 0, "", kTransfer,
         "the chunks before the middle one are sent, then half of the middle one's envelope, "
         "then the phone hangs up",
         kLinkLost},
        {FaultKind::kGarbageLengthZero, "garbage-length-zero", V::kNone, 0, 0, 0, "", kNotice,
         "instead of the notice, an envelope of length 0", kLinkLost},
        {FaultKind::kGarbageOversize, "garbage-oversize", V::kNone, 0, 0, 0, "", kNotice,
         "instead of the notice, an envelope whose length says 1 MiB + 1", kLinkLost},
        {FaultKind::kGarbageType, "garbage-type", V::kNone, 0, 0, 0, "", kNotice,
         "instead of the notice, an envelope of the unknown type 0x7F", kLinkLost},
        {FaultKind::kSlowChunks, "slow-chunks", V::kOptional, 2000, 0, kMaxDelayMs, "MS", kTiming,
         "each chunk is sent MS milliseconds (default 2000, scaled by HB_TIMER_SCALE) after the "
         "one before it, the first one MS after the request; a cancel stops the rest",
         "MS below 10000: 101 102 103 0, only slower; MS of 10000 or more: "
         "101 102 103, then the timer runs out: 4, 104, 100"},
        {FaultKind::kNoCancelAnswer, "no-cancel-answer", V::kNone, 0, 0, 0, "", kCancelAnswer,
         "a cancel is never answered (the pending chunks are still dropped)",
         "alone none; after a cancel: 104, then the timer runs out: 100"},
    };
}

bool parseValue(const std::string& text, const FaultInfo& fault, uint32_t* value,
                std::string* error) {
    const bool digitsOnly =
        !text.empty() && text.size() <= 10 &&
        std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
    const unsigned long long parsed = digitsOnly ? std::strtoull(text.c_str(), nullptr, 10) : 0;
    if (!digitsOnly || parsed < fault.minValue || parsed > fault.maxValue) {
        *error = std::string("the value of fault '") + fault.name + "' must be a number from " +
                 std::to_string(fault.minValue) + " to " + std::to_string(fault.maxValue) +
                 ", not '" + text + "'";
        return false;
    }
    *value = static_cast<uint32_t>(parsed);
    return true;
}

// What the module does when a received frame's status `code` lands while the
// state is `current` and its command timer is armed.
std::vector<uint32_t> afterStatus(std::vector<uint32_t> states, uint32_t current, uint32_t code) {
    if (code != current) {
        states.push_back(code);
    }
    if (code == RS::kSearching) {
        states.push_back(RS::kCancelling);  // it cancels; the cancel is answered
        states.push_back(RS::kIdle);
    } else if (code == RS::kConnecting) {
        states.push_back(RS::kError);  // the connect timer runs out
    } else if (code == RS::kCancelling) {
        states.push_back(RS::kIdle);  // the cancel timer runs out
    }
    return states;
}

}  // namespace

const std::vector<FaultInfo>& Faults::known() {
    static const std::vector<FaultInfo> table = makeTable();
    return table;
}

const FaultInfo* Faults::find(const std::string& name) {
    for (const FaultInfo& fault : known()) {
        if (name == fault.name) {
            return &fault;
        }
    }
    return nullptr;
}

const FaultInfo& Faults::info(FaultKind kind) {
    for (const FaultInfo& fault : known()) {
        if (fault.kind == kind) {
            return fault;
        }
    }
    return known().front();  // every kind is in the table
}

bool Faults::add(const std::string& text, std::string* error) {
    const size_t equals = text.find('=');
    const std::string name = text.substr(0, equals);
    const FaultInfo* fault = find(name);
    if (fault == nullptr) {
        *error = "unknown fault '" + name + "' (mox-phone --list-faults lists them)";
        return false;
    }
    uint32_t value = fault->defaultValue;
    if (equals == std::string::npos && fault->value == FaultValue::kRequired) {
        *error = "fault '" + name + "' needs a value: " + name + "=" + fault->valueName;
        return false;
    }
    if (equals != std::string::npos) {
        if (fault->value == FaultValue::kNone) {
            *error = "fault '" + name + "' takes no value";
            return false;
        }
        if (!parseValue(text.substr(equals + 1), *fault, &value, error)) {
            return false;
        }
    }
    if (has(fault->kind)) {
        *error = "fault '" + name + "' is given twice";
        return false;
    }
    for (const auto& entry : mValues) {
        const FaultInfo& other = info(entry.first);
        if (std::string(other.answer) == fault->answer) {
            *error = std::string("faults '") + other.name + "' and '" + name + "' both change " +
                     fault->answer;
            return false;
        }
    }
    mValues[fault->kind] = value;
    mGiven.push_back(fault->value == FaultValue::kNone ? name : name + "=" + std::to_string(value));
    return true;
}

uint32_t Faults::value(FaultKind kind) const {
    const auto found = mValues.find(kind);
    return found == mValues.end() ? 0 : found->second;
}

bool Faults::changesTransfer() const {
    for (const auto& entry : mValues) {
        if (std::string(info(entry.first).answer) == kTransfer) {
            return true;
        }
    }
    return false;
}

std::vector<uint32_t> Faults::normalStates() {
    return {RS::kConnecting, RS::kConnected, RS::kSearching, RS::kComplete};
}

std::vector<uint32_t> Faults::notFoundStates(uint16_t notFoundStatus) {
    return afterStatus({RS::kConnecting, RS::kConnected, RS::kSearching}, RS::kSearching,
                       notFoundStatus);
}

std::vector<uint32_t> Faults::expectedStates(FaultKind kind, uint32_t value) {
    const std::vector<uint32_t> searching = {RS::kConnecting, RS::kConnected, RS::kSearching};
    std::vector<uint32_t> states = searching;
    switch (kind) {
        case FaultKind::kSilentAfterConnect:
            return {RS::kConnecting, RS::kError};
        case FaultKind::kStatusConnect:
            return afterStatus({RS::kConnecting}, RS::kConnecting, value);
        case FaultKind::kStatusAck:
        case FaultKind::kStatusNotice:
        case FaultKind::kStatusChunk:
            return afterStatus(searching, RS::kSearching, value);
        case FaultKind::kStatusCancel:
        case FaultKind::kStatusEcho:
        case FaultKind::kNoCancelAnswer:
            return normalStates();
        case FaultKind::kSlowChunks:
            if (value < kModuleTimerMs) {
                return normalStates();
            }
            states.insert(states.end(), {RS::kTimeout, RS::kCancelling, RS::kIdle});
            return states;
        case FaultKind::kSilentAfterLookup:
        case FaultKind::kSilentAfterNotice:
        case FaultKind::kSilentMidTransfer:
            states.insert(states.end(), {RS::kTimeout, RS::kCancelling, RS::kIdle});
            return states;
        case FaultKind::kDropMidTransfer:
        case FaultKind::kGarbageLengthZero:
        case FaultKind::kGarbageOversize:
        case FaultKind::kGarbageType:
            states.insert(states.end(), {RS::kError, RS::kIdle});
            return states;
        case FaultKind::kWrongChunkIndex:
        case FaultKind::kRepeatedChunk:
        case FaultKind::kChunkCountZero:
        case FaultKind::kShortNotice:
        case FaultKind::kLengthShort:
        case FaultKind::kLengthLong:
            states.insert(states.end(), {RS::kError, RS::kCancelling, RS::kIdle});
            return states;
    }
    return states;
}

std::string Faults::listText() {
    std::ostringstream out;
    for (const FaultInfo& fault : known()) {
        out << fault.name;
        if (fault.value == FaultValue::kRequired) {
            out << "=" << fault.valueName;
        } else if (fault.value == FaultValue::kOptional) {
            out << "[=" << fault.valueName << "]";
        }
        std::string effect = fault.effect;
        effect[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(effect[0])));
        out << "\n    " << effect << ".\n    Result states: " << fault.outcome << ".\n";
    }
    return out.str();
}

}  // namespace moxphone
