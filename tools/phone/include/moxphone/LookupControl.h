// The bounds of one online lookup, shared between the session that started
// it and the worker thread that runs it: a deadline (the lookup must end
// before the module's command timer does) and a cancel flag (the module
// cancelled, looked up another disc or went). Waits end at once on cancel.
// Thread-safe.
#ifndef MOXPHONE_LOOKUPCONTROL_H
#define MOXPHONE_LOOKUPCONTROL_H

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace moxphone {

class LookupControl {
public:
    using Clock = std::chrono::steady_clock;

    explicit LookupControl(Clock::time_point deadline) : mDeadline(deadline), mCancelled(false) {}

    Clock::time_point deadline() const { return mDeadline; }
    bool cancelled() const;
    // Cancelled, or the deadline has passed.
    bool over() const;
    void cancel();
    // Waits until `when`; false when cancelled first or `when` lies past the
    // deadline (then it does not wait).
    bool waitUntil(Clock::time_point when);
    // Milliseconds left before the deadline (0 when it has passed).
    long remainingMs() const;

private:
    const Clock::time_point mDeadline;
    mutable std::mutex mMutex;
    std::condition_variable mWake;
    bool mCancelled;
};

}  // namespace moxphone

#endif  // MOXPHONE_LOOKUPCONTROL_H
