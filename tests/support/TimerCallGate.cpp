#include "TimerCallGate.h"

#include <pthread.h>

#include <condition_variable>
#include <map>
#include <mutex>
#include <set>
#include <tuple>

namespace {

std::string currentThreadName() {
    char name[16] = {};
    pthread_getname_np(pthread_self(), name, sizeof(name));
    return name;
}

const char* callName(HbLTimerClock::EN_CALL call) {
    switch (call) {
        case HbLTimerClock::en_CALL_IS_ACTIVE:
            return "IsActive";
        case HbLTimerClock::en_CALL_REMOVE_TIMER:
            return "RemoveTimer";
        case HbLTimerClock::en_CALL_ADD_TIMER:
            return "AddTimer";
    }
    return "?";
}

}  // namespace

struct TimerCallGate::State {
    typedef std::tuple<std::string, HbLTimerClock::EN_CALL, int> Hold;

    void onCall(HbLTimerClock::EN_CALL call, HbLTimerBase* calledTimer) {
        if (timer != nullptr && calledTimer != timer) {
            return;
        }
        const std::string thread = currentThreadName();
        std::unique_lock<std::mutex> lock(mutex);
        const int nth = ++counts[std::make_pair(thread, call)];
        steps.push_back(thread + " " + callName(call));
        if (holds.erase(Hold(thread, call, nth)) == 0) {
            return;
        }
        held.insert(thread);
        changed.notify_all();
        changed.wait(lock, [this, &thread] { return resumed.count(thread) != 0 || closing; });
        resumed.erase(thread);
        held.erase(thread);
    }

    HbLTimerBase* const timer;
    mutable std::mutex mutex;         // guards everything below
    std::condition_variable changed;  // a thread was held or resumed
    std::set<Hold> holds;             // holds not reached yet
    std::map<std::pair<std::string, HbLTimerClock::EN_CALL>, int> counts;
    std::set<std::string> held;     // threads held now
    std::set<std::string> resumed;  // threads told to go on
    std::vector<std::string> steps;
    bool closing = false;

    explicit State(HbLTimerBase* gated) : timer(gated) {}
};

TimerCallGate::TimerCallGate(HbLTimerBase* timer) : mState(std::make_shared<State>(timer)) {
    std::shared_ptr<State> state = mState;
    HbLTimerManualClock::GetInstance()->SetCallHook(
        [state](HbLTimerClock::EN_CALL call, HbLTimerBase* called) {
            state->onCall(call, called);
        });
}

TimerCallGate::~TimerCallGate() {
    {
        std::lock_guard<std::mutex> lock(mState->mutex);
        mState->closing = true;
        mState->changed.notify_all();
    }
    HbLTimerManualClock::GetInstance()->SetCallHook(nullptr);
}

void TimerCallGate::holdAt(const std::string& thread, HbLTimerClock::EN_CALL call, int nth) {
    std::lock_guard<std::mutex> lock(mState->mutex);
    mState->holds.insert(State::Hold(thread, call, nth));
}

void TimerCallGate::waitHeld(const std::string& thread) {
    std::unique_lock<std::mutex> lock(mState->mutex);
    mState->changed.wait(lock, [this, &thread] { return mState->held.count(thread) != 0; });
}

void TimerCallGate::resume(const std::string& thread) {
    std::lock_guard<std::mutex> lock(mState->mutex);
    mState->resumed.insert(thread);
    mState->changed.notify_all();
}

std::vector<std::string> TimerCallGate::steps() const {
    std::lock_guard<std::mutex> lock(mState->mutex);
    return mState->steps;
}

void TimerCallGate::nameThisThread(const std::string& name) {
    pthread_setname_np(pthread_self(), name.substr(0, 15).c_str());
}
