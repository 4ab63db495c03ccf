// Why a lookup did not give albums, in the words that `mox lookup` prints:
// one kind from a fixed vocabulary, for scripts, and one line for people.
//
//   kind          exit  message (examples)
//   bad_usage     2     "bad endpoint 'foo': expected loopback, unix:PATH or tcp:HOST:PORT"
//   no_phone      1     "no phone: cannot connect to unix:/x: No such file or directory"
//   link_lost     1     "link lost"
//   not_found     1     "the phone does not know this disc (phone status 404)"
//   phone_failed  1     "the phone failed (phone status 503)"
//   refused       1     "the phone's answer was refused: index error."
//   timed_out     1     "timed out: the phone did not answer in time"
//   cancelled     130/143 "cancelled by SIGINT" (or SIGTERM); 1 "the module
//                 cancelled the search" (a phone status that reads "searching")
//   cannot_store  1     "cannot store the answer in /x: Permission denied"
//
// `mox lookup` prints "mox lookup: <message>" on stderr and, with --json,
// {"kind": ..., "message": ...} as the object's "error".
#ifndef MOX_TOOLS_LOOKUPFAILURE_H
#define MOX_TOOLS_LOOKUPFAILURE_H

#include <nlohmann/json.hpp>
#include <string>

class LookupFailure {
public:
    enum Kind {
        kNone,
        kBadUsage,
        kNoPhone,
        kLinkLost,
        kNotFound,
        kPhoneFailed,
        kRefused,
        kTimedOut,
        kCancelled,
        kCannotStore,
    };

    // The status with which the phone says that it does not know a disc.
    static constexpr int kNotFoundStatus = 404;

    LookupFailure() = default;
    LookupFailure(Kind kind, std::string message) : mKind(kind), mMessage(std::move(message)) {}

    // A failure code of the phone: "not found" for kNotFoundStatus, else a failure.
    static LookupFailure phoneStatus(int status, const std::string& when);
    // Cancelled by `signal` (SIGINT or SIGTERM), or by the module (0).
    static LookupFailure cancelled(int signal);

    bool failed() const { return mKind != kNone; }
    Kind kind() const { return mKind; }
    const std::string& message() const { return mMessage; }
    // The kind as scripts read it: "bad_usage", "no_phone", ...
    const char* kindName() const;
    // 0 with no failure, 2 bad usage, 128 + the signal when cancelled by
    // one, else 1.
    int exitStatus() const;
    // {"kind": ..., "message": ...}
    nlohmann::ordered_json toJson() const;

private:
    Kind mKind = kNone;
    std::string mMessage;
    int mSignal = 0;
};

#endif  // MOX_TOOLS_LOOKUPFAILURE_H
