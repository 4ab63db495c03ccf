// Ctrl-C (SIGINT) and SIGTERM during a long wait of a command, such as a
// lookup: the first signal is only noted, so that the command can cancel what
// is under way, tell the phone, clean up and report "cancelled"; a second one
// ends the process at once (after clearing the progress line when one is
// drawn), for a user who does not want to wait for the clean-up.
//
//   InterruptSignals signals(progressLine);
//   watch.setInterruptFlag(&InterruptSignals::flag());
//   ... waits that end early once flag() is non-zero ...
//   if (InterruptSignals::received() != 0) return 128 + InterruptSignals::received();
//
// One instance at a time; the previous actions come back with its end.
#ifndef MOX_TOOLS_INTERRUPTSIGNALS_H
#define MOX_TOOLS_INTERRUPTSIGNALS_H

#include <signal.h>

#include <atomic>

class InterruptSignals {
public:
    // With `progressLine`, a second signal first clears the line that a
    // progress display left on stderr.
    explicit InterruptSignals(bool progressLine);
    ~InterruptSignals();
    InterruptSignals(const InterruptSignals&) = delete;
    InterruptSignals& operator=(const InterruptSignals&) = delete;

    // The first signal received (SIGINT or SIGTERM), 0 before any.
    static int received();
    // The flag behind received(), for waits that poll it.
    static const std::atomic<int>& flag();
    // The exit status of a command ended by `signal`: 128 + its number.
    static int exitStatus(int signal) { return 128 + signal; }

private:
    static void onSignal(int signal);

    struct sigaction mPreviousInt;
    struct sigaction mPreviousTerm;
};

#endif  // MOX_TOOLS_INTERRUPTSIGNALS_H
