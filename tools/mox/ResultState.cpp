#include "ResultState.h"

std::string ResultState::name(int32 state) {
    switch (state) {
        case kComplete:
            return "complete";
        case kTimeout:
            return "timed out";
        case kError:
            return "error";
        case kIdle:
            return "idle";
        case kConnecting:
            return "connecting";
        case kConnected:
            return "connected";
        case kSearching:
            return "searching";
        case kCancelling:
            return "cancelling";
        default:
            return "phone status " + std::to_string(state);
    }
}
