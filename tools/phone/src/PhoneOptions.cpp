// Checks of the phone's options.
#include "moxphone/PhoneOptions.h"

#include <cstdlib>

namespace moxphone {

namespace {

constexpr double kMaxScale = 1000.0;

bool validScale(double scale) {
    return scale > 0.0 && scale <= kMaxScale;
}

}  // namespace

bool PhoneOptions::validate(std::string* error) const {
    if (!catalogue) {
        *error = "no catalogue";
        return false;
    }
    if (chunkSize < 1 || chunkSize > kMaxChunkSize) {
        *error = "the chunk size must be from 1 to " + std::to_string(kMaxChunkSize) + ", not " +
                 std::to_string(chunkSize);
        return false;
    }
    if (notFoundStatus == 0) {
        *error = "the status for an unknown disc must be from 1 to 65535 (0 means success)";
        return false;
    }
    if (!validScale(timeScale)) {
        *error = "the time scale must be above 0 and at most 1000";
        return false;
    }
    return true;
}

double PhoneOptions::timeScaleFromEnvironment() {
    const char* text = std::getenv("HB_TIMER_SCALE");
    if (text == nullptr) {
        return 1.0;
    }
    char* end = nullptr;
    const double value = std::strtod(text, &end);
    if (end == text || !validScale(value)) {
        return 1.0;
    }
    return value;
}

bool PhoneOptions::parseOs(const std::string& text, uint8_t* osType) {
    if (text == "android") {
        *osType = Envelope::kOsAndroid;
        return true;
    }
    if (text == "ios") {
        *osType = Envelope::kOsIos;
        return true;
    }
    return false;
}

}  // namespace moxphone
