// The timer manager's production clock (host only): the system's steady
// clock (CLOCK_MONOTONIC), every period multiplied by a time scale, which
// integration runs set through the environment variable HB_TIMER_SCALE (a
// factor in (0, 1000], e.g. 0.001 turns 10 000 ms into 10 ms).
//
// Not thread-safe: the timer manager calls it under its own lock.
#ifndef HB_FRAMEWORK_HBLTIMERSTEADYCLOCK_H
#define HB_FRAMEWORK_HBLTIMERSTEADYCLOCK_H

#include "HbFramework/HbLTimerClock.h"

class HbLTimerSteadyClock : public HbLTimerClock {
public:
    // Largest time scale accepted.
    static constexpr double MAX_SCALE = 1000.0;

    // The scale starts as HB_TIMER_SCALE says (1.0 when unset or invalid).
    HbLTimerSteadyClock();

    uint64 NowMs() override;
    // The period times the scale, rounded up.
    uint64 PeriodMs(uint32 periodMs) override;
    uint64 MonotonicMs(uint64 dueMs) override;

    // A value outside (0, MAX_SCALE] is ignored.
    void SetScale(double scale);
    double GetScale() const;

    // The scale that HB_TIMER_SCALE sets, 1.0 when it is unset or invalid.
    static double ScaleFromEnvironment();

private:
    double mScale;
};

#endif  // HB_FRAMEWORK_HBLTIMERSTEADYCLOCK_H
