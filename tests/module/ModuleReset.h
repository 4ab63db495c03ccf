// Puts the module back where a fresh process starts it: the facade, the unit,
// the protocol, the state and the reader are destroyed (in that order: each
// withdraws its observers from the ones after it), and the unit's worker,
// which the unit leaves to the framework on purpose, is stopped and deleted.
// The next GetInstance() then builds a new module with a new phone-link
// channel, so a test whose channel was terminated leaves nothing behind.
//
//   void TearDown() override { moxtest::resetModule(); }
//
// Call it from the test's own thread, never from a framework thread.
#ifndef MOX_TESTS_MODULERESET_H
#define MOX_TESTS_MODULERESET_H

#include "HbFramework/HbWorker.h"
#include "HbSMox.h"
#include "private/Mox.h"
#include "private/MoxDapDatabase.h"
#include "private/MoxProtocol.h"
#include "private/MoxState.h"

namespace moxtest {

// Reads a singleton's instance without creating one.
template <class T>
struct SingletonPeek : HbSingleton<T> {
    static T* instance() { return HbSingleton<T>::pInstance_.load(); }
};

inline void resetModule() {
    HbSingleton<HbSMox>::destroy();
    HbWorker* worker = nullptr;
    if (Mox* unit = SingletonPeek<Mox>::instance()) {
        worker = unit->getWorker();
    }
    HbSingleton<Mox>::destroy();
    if (worker != nullptr) {
        worker->Stop();
        delete worker;
    }
    HbSingleton<MoxProtocol>::destroy();
    HbSingleton<MoxState>::destroy();
    HbSingleton<MoxDapDatabase>::destroy();
}

}  // namespace moxtest

#endif  // MOX_TESTS_MODULERESET_H
