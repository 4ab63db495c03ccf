// One lookup of a source that does not answer at once, run on a worker
// thread of its own so that the session's thread (a poll loop serving other
// modules, or the module's own thread in-process) never waits for the
// service. The session asks take() from its own thread until the answer is
// there; destroying the lookup cancels it and joins the worker, which the
// cancel ends within a few milliseconds.
#ifndef MOXPHONE_PENDINGLOOKUP_H
#define MOXPHONE_PENDINGLOOKUP_H

#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "moxphone/DiscSource.h"
#include "moxphone/LookupControl.h"

namespace moxphone {

class PendingLookup {
public:
    // The name of the worker thread.
    static constexpr const char* kThreadName = "MoxPhoneLookup";

    // Starts looking `toc` up in `source`, to end by `deadline`.
    PendingLookup(std::shared_ptr<const DiscSource> source, const std::string& toc,
                  LookupControl::Clock::time_point deadline);
    ~PendingLookup();
    PendingLookup(const PendingLookup&) = delete;
    PendingLookup& operator=(const PendingLookup&) = delete;

    // True once the answer is there; it is moved into `answer` (once).
    bool take(DiscAnswer* answer);
    LookupControl::Clock::time_point deadline() const { return mControl.deadline(); }

private:
    void run(std::shared_ptr<const DiscSource> source, std::string toc);

    LookupControl mControl;
    std::mutex mMutex;  // guards mDone and mAnswer
    bool mDone;
    DiscAnswer mAnswer;
    std::thread mThread;  // last: started once everything above exists
};

}  // namespace moxphone

#endif  // MOXPHONE_PENDINGLOOKUP_H
