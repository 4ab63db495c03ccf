// A lookup on a worker thread.
#include "moxphone/PendingLookup.h"

#include <pthread.h>

namespace moxphone {

PendingLookup::PendingLookup(std::shared_ptr<const DiscSource> source, const std::string& toc,
                             LookupControl::Clock::time_point deadline)
    : mControl(deadline), mDone(false), mThread(&PendingLookup::run, this, source, toc) {}

PendingLookup::~PendingLookup() {
    mControl.cancel();
    if (mThread.joinable()) {
        mThread.join();
    }
}

bool PendingLookup::take(DiscAnswer* answer) {
    std::lock_guard<std::mutex> lock(mMutex);
    if (!mDone) {
        return false;
    }
    *answer = std::move(mAnswer);
    mAnswer = DiscAnswer();
    return true;
}

void PendingLookup::run(std::shared_ptr<const DiscSource> source, std::string toc) {
    pthread_setname_np(pthread_self(), kThreadName);
    DiscAnswer answer = source->lookUp(toc, mControl);
    std::lock_guard<std::mutex> lock(mMutex);
    mAnswer = std::move(answer);
    mDone = true;
}

}  // namespace moxphone
