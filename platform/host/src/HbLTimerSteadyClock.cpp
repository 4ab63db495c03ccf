#include "HbFramework/HbLTimerSteadyClock.h"

#include <chrono>
#include <cmath>
#include <cstdlib>

constexpr double HbLTimerSteadyClock::MAX_SCALE;

namespace {

bool isValidScale(double scale) {
    return scale > 0.0 && scale <= HbLTimerSteadyClock::MAX_SCALE;
}

}  // namespace

HbLTimerSteadyClock::HbLTimerSteadyClock() : mScale(ScaleFromEnvironment()) {}

uint64 HbLTimerSteadyClock::NowMs() {
    using namespace std::chrono;
    return static_cast<uint64>(
        duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
}

uint64 HbLTimerSteadyClock::PeriodMs(uint32 periodMs) {
    if (mScale == 1.0) {
        return periodMs;
    }
    return static_cast<uint64>(std::ceil(static_cast<double>(periodMs) * mScale));
}

// The steady clock is CLOCK_MONOTONIC: a deadline is its own monotonic time.
uint64 HbLTimerSteadyClock::MonotonicMs(uint64 dueMs) {
    return dueMs;
}

void HbLTimerSteadyClock::SetScale(double scale) {
    // Bounded like the environment setting, so a scaled period always fits.
    if (isValidScale(scale)) {
        mScale = scale;
    }
}

double HbLTimerSteadyClock::GetScale() const {
    return mScale;
}

double HbLTimerSteadyClock::ScaleFromEnvironment() {
    const char* text = std::getenv("HB_TIMER_SCALE");
    if (text == nullptr) {
        return 1.0;
    }
    char* end = nullptr;
    const double value = std::strtod(text, &end);
    if (end == text || !isValidScale(value)) {
        return 1.0;
    }
    return value;
}
