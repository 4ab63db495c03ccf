// The result states of a lookup as the tools see them in the module's
// notification 2 (an int32), by name, and the families they fall into:
//
//   if (ResultState::isPhoneStatus(state)) { ... the phone's failure code ... }
//   std::fprintf(stderr, "%s\n", ResultState::name(state).c_str());
//
// The values are the module's; any value that is not one of the eight named
// here is a failure code that the phone reported, passed on unchanged.
#ifndef MOX_TOOLS_RESULTSTATE_H
#define MOX_TOOLS_RESULTSTATE_H

#include <string>

#include "HbFramework/HbTypes.h"

class ResultState {
public:
    static constexpr int32 kComplete = 0;      // the answer is stored; the result may be read
    static constexpr int32 kTimeout = 4;       // an answer or a chunk did not come in time
    static constexpr int32 kError = 20;        // no answer to the connect, bad frame, link lost
    static constexpr int32 kIdle = 100;        // nothing in progress (also before any state)
    static constexpr int32 kConnecting = 101;  // connect sent, waiting for its answer
    static constexpr int32 kConnected = 102;   // the phone application answered the connect
    static constexpr int32 kSearching = 103;   // a lookup is in progress
    static constexpr int32 kCancelling = 104;  // cancel sent, waiting for its answer

    // True for 101 to 104: the module is between idle and an outcome.
    static constexpr bool isBusy(int32 state) {
        return state >= kConnecting && state <= kCancelling;
    }
    // True for a timeout (4) or an error (20): the module's own failures,
    // which it follows with a cancel of what was under way.
    static constexpr bool isModuleFailure(int32 state) {
        return state == kTimeout || state == kError;
    }
    // True for a failure code of the phone: any value not named above.
    static constexpr bool isPhoneStatus(int32 state) {
        return state != kComplete && !isModuleFailure(state) && state != kIdle && !isBusy(state);
    }

    // "complete", "timed out", "error", "idle", "connecting", "connected",
    // "searching", "cancelling", or "phone status N" for a failure code.
    static std::string name(int32 state);
};

#endif  // MOX_TOOLS_RESULTSTATE_H
