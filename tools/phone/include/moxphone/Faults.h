// The faults that the simulator can inject, by name, as the --fault option
// takes them ("NAME" or "NAME=VALUE"), and the set of faults in force.
//
// Each fault changes one answer (or the timing of the chunks) of the phone.
// Two faults that change the same answer cannot be combined; faults of
// different answers can (a fault that ends the lookup early simply leaves the
// later ones unused). known() lists every fault with what it does and the
// result states the module goes through when it looks up a disc of the
// catalogue through a phone with that one fault; expectedStates() gives the
// same sequence as numbers.
//
// Chunk faults act on the middle chunk m = count / 2 of the transfer; when
// one is in force the phone splits the database into at least two chunks, so
// there is a chunk before it. A faulty chunk ends the transfer: the phone
// sends nothing more of it and waits for the module's reaction.
#ifndef MOXPHONE_FAULTS_H
#define MOXPHONE_FAULTS_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace moxphone {

enum class FaultKind {
    kSilentAfterConnect,
    kSilentAfterLookup,
    kSilentAfterNotice,
    kSilentMidTransfer,
    kStatusConnect,
    kStatusAck,
    kStatusNotice,
    kStatusChunk,
    kStatusCancel,
    kStatusEcho,
    kWrongChunkIndex,
    kRepeatedChunk,
    kChunkCountZero,
    kShortNotice,
    kLengthShort,
    kLengthLong,
    kDropMidTransfer,
    kGarbageLengthZero,
    kGarbageOversize,
    kGarbageType,
    kSlowChunks,
    kNoCancelAnswer,
};

// How a fault takes a value.
enum class FaultValue { kNone, kRequired, kOptional };

// One fault as the simulator knows it.
struct FaultInfo {
    FaultKind kind;
    const char* name;       // as --fault takes it
    FaultValue value;       // whether NAME=VALUE is needed, allowed or refused
    uint32_t defaultValue;  // the value when an optional one is not given
    uint32_t minValue;      // accepted range of the value
    uint32_t maxValue;      //
    const char* valueName;  // "N", "MS" (shown in the usage)
    const char* answer;     // the answer it changes; two faults of one answer conflict
    const char* effect;     // what the phone does
    const char* outcome;    // the result states the module goes through, in words
};

class Faults {
public:
    // Every fault, in the order of the documentation.
    static const std::vector<FaultInfo>& known();
    // The fault of that name, or null.
    static const FaultInfo* find(const std::string& name);
    static const FaultInfo& info(FaultKind kind);

    // Adds "NAME" or "NAME=VALUE". False, with a one-line reason and the set
    // unchanged, for an unknown name, a missing, refused or out-of-range
    // value, a fault given twice, or a fault that changes the same answer as
    // one already in the set.
    bool add(const std::string& text, std::string* error);

    bool has(FaultKind kind) const { return mValues.count(kind) != 0; }
    // The fault's value (its default when none was given); 0 when absent.
    uint32_t value(FaultKind kind) const;
    bool empty() const { return mValues.empty(); }
    // The faults in force as "NAME" or "NAME=VALUE", in the order given.
    const std::vector<std::string>& given() const { return mGiven; }
    // True when a fault of the chunk transfer is in force (the phone then
    // sends the database in at least two chunks).
    bool changesTransfer() const;

    // The result states the module notifies, in order, when the application
    // starts the link and looks up a disc of the catalogue through a phone
    // with only the fault `kind` of value `value` (with the module's command
    // timer of 10000 ms on the same time scale as the phone's delays).
    static std::vector<uint32_t> expectedStates(FaultKind kind, uint32_t value);
    // The result states of a lookup without any fault: 101 102 103 0.
    static std::vector<uint32_t> normalStates();
    // The result states of a disc that is not in the catalogue, answered with
    // `notFoundStatus`.
    static std::vector<uint32_t> notFoundStates(uint16_t notFoundStatus);

    // The list that --list-faults prints: one paragraph per fault.
    static std::string listText();

    // Status of the answers to a request that the phone cannot take.
    static constexpr uint16_t kBadRequestStatus = 400;
    // Status when the phone cannot send what was asked (a database that
    // needs more chunks than a frame can number).
    static constexpr uint16_t kPhoneErrorStatus = 500;
    // The module's command timer, which the documented outcomes assume.
    static constexpr uint32_t kModuleTimerMs = 10000;

private:
    std::map<FaultKind, uint32_t> mValues;
    std::vector<std::string> mGiven;
};

}  // namespace moxphone

#endif  // MOXPHONE_FAULTS_H
