// Whole lookups through the module's facade (HbSMox), as an application
// makes them: search(), wait for notification 2 to report the outcome,
// then getSearchResult(). A lookup ends by the rule of `mox lookup`
// (LookupWatch), which the facade's observer feeds from the module's
// threads; the link waits are on a condition variable that it signals.
//
//   FacadeLookup module;
//   module.linkTo("unix:/tmp/phone.sock");   // link up (notification 1 with 1)
//   module.lookup(toc, &albums);             // one whole lookup
//   module.unlink();                         // link down (notification 1 with 0)
//
// One FacadeLookup at a time per process (the facade is a singleton); its
// methods belong to one thread.
#ifndef MOX_BENCH_FACADELOOKUP_H
#define MOX_BENCH_FACADELOOKUP_H

#include <condition_variable>
#include <list>
#include <mutex>
#include <string>

#include "HbFramework/Foundation/HbObserver.h"
#include "HbSMox.h"
#include "LookupWatch.h"

class FacadeLookup {
public:
    FacadeLookup();
    ~FacadeLookup();
    FacadeLookup(const FacadeLookup&) = delete;
    FacadeLookup& operator=(const FacadeLookup&) = delete;

    // Starts the link on `endpoint` and waits until it is up; false when it
    // does not come up within 10 s.
    bool linkTo(const std::string& endpoint);
    // Stops the link and waits until the facade reports it down.
    bool unlink();
    // search() and the wait for its outcome; the result state that ended the
    // lookup by LookupWatch's rule (0 on success), or -1 when it did not end
    // within 10 s.
    int receive(const std::string& toc);
    // receive(), then getSearchResult() into `albums` when it succeeded.
    bool lookup(const std::string& toc, std::list<HbSMoxDef::AlbumInfo>* albums);

    HbSMox* facade() { return mFacade; }
    uint32 onNotify(uint32 id, void* data, uint32 size);

private:
    // Waits until the last link state (id 1) is `linked`.
    bool waitForLink(bool linked);

    HbSMox* const mFacade;
    HbObserver<FacadeLookup> mObserver;
    std::mutex mMutex;
    std::condition_variable mChanged;
    int mLink = 0;                  // guarded by mMutex: last link state
    LookupWatch* mWatch = nullptr;  // guarded by mMutex: the lookup under way, if any
};

#endif  // MOX_BENCH_FACADELOOKUP_H
