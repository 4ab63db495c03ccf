// What the application sees of the module during one lookup, and the waits
// of `mox lookup` on it.
//
//   LookupWatch watch(false);
//   HbObserver<LookupWatch> observer(&watch, &LookupWatch::onMox);
//   mox->AddObserver(&observer);
//   mox->startLink();
//   if (watch.waitForLink(deadline, &why)) {
//       watch.markSearching();
//       mox->search(info);
//       const int32 state = watch.waitForEnd(deadline);  // -1: deadline passed
//   }
//   LookupFailure failure = watch.failure(state);
//
// - onMox() runs on the module's threads; every other member on the
//   command's thread. All state is guarded by one lock; the progress line is
//   drawn under it.
// - The result state has settled when it is 0 (a result is stored), or when
//   the module has finished handling a failure: idle again (100) after the
//   search began (a cancel answered or timed out, the link lost), a failure
//   code of the phone (which nothing follows), or an error (20) that no
//   cancel follows within errorGrace() (kErrorGrace on the module's time scale,
//   kMinErrorGrace at the least).
// - A lost link ends every wait: before the link is up, once it is up and
//   before the search, and during the search. The module gives up what it
//   was doing when the phone goes (an error, then idle) in the same step that
//   clears the link flag, so a lost link with the module idle is final, even
//   when the search itself was dropped for want of a link and no state
//   followed it.
// - A phone can make the result state change without end (answers that move
//   it between connected and searching), so only the first kStatesKept
//   states are kept for the output; what the waits need is kept as it comes.
// - An interrupt flag (setInterruptFlag) that becomes non-zero ends the waits
//   for the link and for the end as if their deadline had passed; failure()
//   then says "cancelled". The wait for the link to go down after stopLink is
//   not cut short: it is the clean-up that a cancel wants.
#ifndef MOX_TOOLS_LOOKUPWATCH_H
#define MOX_TOOLS_LOOKUPWATCH_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "HbFramework/HbTypes.h"
#include "LookupFailure.h"
#include "ResultState.h"

class LookupWatch {
public:
    using Clock = std::chrono::steady_clock;

    static constexpr size_t kStatesKept = 1000;

    // An error (20) that is not followed by a cancel within this time is
    // final: the module raises the cancel right after the error, on the same
    // thread. Real time before the module's time scale (HB_TIMER_SCALE)
    // applies; errorGrace() is the grace in force.
    static constexpr std::chrono::milliseconds kErrorGrace{500};
    // The least grace under any scale: no timer runs between the error and
    // the cancel, only the module's thread, which a short scale does not
    // hurry and a loaded machine may run late.
    static constexpr std::chrono::milliseconds kMinErrorGrace{200};

    // With `progress`, every wait redraws a progress line on stderr.
    // Reads the time scale from the host timer manager (HbLTimerMng), once.
    explicit LookupWatch(bool progress);

    // kErrorGrace times the module's time scale, rounded up to whole
    // milliseconds as the timer manager rounds its periods; kMinErrorGrace
    // at the least.
    std::chrono::milliseconds errorGrace() const;

    // The observer's callback: notifications 1 (link), 2 (result state) and
    // 3 (device status).
    uint32 onMox(uint32 id, void* data, uint32 size);

    // Ends the waits for the link and for the end early once `*flag` is not
    // 0 (the signal that asked for it); checked at least every 100 ms.
    void setInterruptFlag(const std::atomic<int>* flag);
    // The signal that interrupted a wait, 0 if none did.
    int interruptedBy() const;

    // Waits for the link; false with the reason when the link failed, the
    // wait was interrupted or `deadline` passed. A phone that goes is final once the module has
    // given up its connect (idle again), so that the states reported are all there.
    bool waitForLink(Clock::time_point deadline, LookupFailure* why);

    // Shows the progress line at once, before anything is asked of the
    // module: a lookup always starts by connecting.
    void drawProgress() const;

    // Just before search(): the states from here on are the search's.
    void markSearching();
    // Before stopLink: the link going down from here on is the lookup's own doing.
    void markStopping();

    // Waits until the result state settles; returns it, or -1 when `deadline`
    // passed or the wait was interrupted first. No state is recorded afterwards.
    int32 waitForEnd(Clock::time_point deadline);

    // Waits (bounded) until the link is down after stopLink.
    void waitForUnlink(Clock::time_point deadline);

    // The first kStatesKept result states notified, until settled.
    std::vector<int32> states() const;
    // Result states notified past the first kStatesKept.
    uint64_t statesLeftOut() const;
    // The last result state notified; 100 (idle) before any.
    int32 lastState() const;
    bool linked() const;

    // Why the search ended without a result, from what was notified; `state`
    // is what waitForEnd() returned.
    LookupFailure failure(int32 state) const;

private:
    void addStateLocked(int32 value);
    bool settledLocked() const;
    // One bounded wait; redraws the progress line. False once `deadline`
    // passed, or when `interruptible` and the interrupt flag is set.
    bool waitTick(std::unique_lock<std::mutex>& lock, Clock::time_point deadline,
                  bool interruptible = true);
    void drawProgressLocked() const;

    const bool mProgress;
    const std::chrono::milliseconds mErrorGrace;
    const Clock::time_point mStarted;
    mutable std::mutex mMutex;
    std::condition_variable mChanged;
    std::vector<int32> mStates;             // the first kStatesKept result states, until settled
    uint64_t mStateCount = 0;               // result states notified, until settled
    int32 mLastState = ResultState::kIdle;  // the last of them; idle before any
    uint64_t mSearchFrom = 0;               // mStateCount when search() was called
    int32 mSearchFailureCode = 0;           // the first failure code of the phone after search()
    int32 mSearchFirstEnd = 0;              // the first timeout (4) or error (20) after search()
    Clock::time_point mLastChange;
    bool mLinked = false;
    bool mLinkLost = false;    // the link went down, and not by stopLink
    bool mDeviceSeen = false;  // a device status "connected" or "application open" came
    bool mDeviceGone = false;  // the last device status was "none" or "closed"
    bool mSearching = false;
    bool mStopping = false;
    bool mSettled = false;
    const std::atomic<int>* mInterrupt = nullptr;
    int mInterruptedBy = 0;
};

#endif  // MOX_TOOLS_LOOKUPWATCH_H
