#include "LookupFailure.h"

#include <signal.h>

LookupFailure LookupFailure::phoneStatus(int status, const std::string& when) {
    const std::string code = " (phone status " + std::to_string(status) + ")";
    if (status == kNotFoundStatus) {
        return LookupFailure(kNotFound, "the phone does not know this disc" + code);
    }
    return LookupFailure(kPhoneFailed, "the phone failed" + when + code);
}

LookupFailure LookupFailure::cancelled(int signal) {
    std::string message = "cancelled";
    if (signal == SIGINT) {
        message += " by SIGINT";
    } else if (signal == SIGTERM) {
        message += " by SIGTERM";
    }
    LookupFailure failure(kCancelled, message);
    failure.mSignal = signal;
    return failure;
}

const char* LookupFailure::kindName() const {
    switch (mKind) {
        case kNone:
            return "none";
        case kBadUsage:
            return "bad_usage";
        case kNoPhone:
            return "no_phone";
        case kLinkLost:
            return "link_lost";
        case kNotFound:
            return "not_found";
        case kPhoneFailed:
            return "phone_failed";
        case kRefused:
            return "refused";
        case kTimedOut:
            return "timed_out";
        case kCancelled:
            return "cancelled";
        case kCannotStore:
            return "cannot_store";
    }
    return "none";
}

int LookupFailure::exitStatus() const {
    if (mKind == kNone) {
        return 0;
    }
    if (mKind == kBadUsage) {
        return 2;
    }
    if (mKind == kCancelled && mSignal != 0) {
        return 128 + mSignal;
    }
    return 1;
}

nlohmann::ordered_json LookupFailure::toJson() const {
    nlohmann::ordered_json out = nlohmann::ordered_json::object();
    out["kind"] = kindName();
    out["message"] = mMessage;
    return out;
}
