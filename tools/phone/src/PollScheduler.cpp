// Deadlines for a poll loop.
#include "moxphone/PollScheduler.h"

#include <climits>

namespace moxphone {

PollScheduler::PollScheduler(Now now) : mNow(std::move(now)), mNextOrder(0) {}

void PollScheduler::schedule(uint32_t delayMs, Task task) {
    const Clock::time_point due = mNow() + std::chrono::milliseconds(delayMs);
    mTasks.emplace(Key(due, mNextOrder++), std::move(task));
}

void PollScheduler::cancelAll() {
    mTasks.clear();
}

int PollScheduler::timeoutMs() const {
    if (mTasks.empty()) {
        return -1;
    }
    const Clock::time_point due = mTasks.begin()->first.first;
    const Clock::time_point now = mNow();
    if (due <= now) {
        return 0;
    }
    const auto wait = std::chrono::ceil<std::chrono::milliseconds>(due - now).count();
    return wait > INT_MAX ? INT_MAX : static_cast<int>(wait);
}

void PollScheduler::runDue() {
    const Clock::time_point now = mNow();
    while (!mTasks.empty() && mTasks.begin()->first.first <= now) {
        Task task = std::move(mTasks.begin()->second);
        mTasks.erase(mTasks.begin());
        task();
    }
}

}  // namespace moxphone
