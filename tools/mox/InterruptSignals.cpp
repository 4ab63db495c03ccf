#include "InterruptSignals.h"

#include <unistd.h>

namespace {

// Both are read in the signal handler: lock-free atomics are safe there.
std::atomic<int> gReceived{0};
std::atomic<bool> gProgressLine{false};

static_assert(std::atomic<int>::is_always_lock_free, "the signal flag must be lock-free");

}  // namespace

InterruptSignals::InterruptSignals(bool progressLine) {
    gReceived.store(0);
    gProgressLine.store(progressLine);
    struct sigaction action = {};
    action.sa_handler = &InterruptSignals::onSignal;
    sigemptyset(&action.sa_mask);
    // Interrupted system calls are restarted: the waits poll the flag.
    action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &action, &mPreviousInt);
    sigaction(SIGTERM, &action, &mPreviousTerm);
}

InterruptSignals::~InterruptSignals() {
    sigaction(SIGINT, &mPreviousInt, nullptr);
    sigaction(SIGTERM, &mPreviousTerm, nullptr);
}

int InterruptSignals::received() {
    return gReceived.load();
}

const std::atomic<int>& InterruptSignals::flag() {
    return gReceived;
}

void InterruptSignals::onSignal(int signal) {
    int expected = 0;
    if (gReceived.compare_exchange_strong(expected, signal)) {
        return;
    }
    // The second signal: quit now, only async-signal-safe calls from here.
    if (gProgressLine.load()) {
        static const char kClearLine[] = "\r\033[K";
        const ssize_t written = ::write(STDERR_FILENO, kClearLine, sizeof(kClearLine) - 1);
        (void)written;
    }
    ::_exit(exitStatus(signal));
}
