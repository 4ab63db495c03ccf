// Tears the process's singletons down.
// - addDestroyFunc() remembers a function; each is called once, in reverse
//   order of registration, by finalize().
// - Host only: finalize() first runs the shutdown hooks (the phone-link
//   transports register theirs), then the destroy functions, then stops the
//   framework's threads (workers, timer manager). It runs at process exit if
//   the application has not called it. Calling it again does nothing more
//   than run what was registered since.
// Can be called from any thread except a framework thread.
#ifndef HB_FRAMEWORK_HBSINGLETONFINALIZER_H
#define HB_FRAMEWORK_HBSINGLETONFINALIZER_H

#include <functional>

class HbSingletonFinalizer {
public:
    typedef void (*DestroyFunc)();

    static void addDestroyFunc(DestroyFunc func);

    // Host only.
    static void finalize();
    // Host only: `hook` runs first in finalize() (once).
    static void addShutdownHook(std::function<void()> hook);
    // Host only: `stop` runs last in finalize(), to stop a framework thread.
    static void addThreadStopper(std::function<void()> stop);
    // Host only: how many times addDestroyFunc() has accepted a function in
    // this process (finalize() does not lower it).
    static unsigned long DestroyFuncCalls();
};

#endif  // HB_FRAMEWORK_HBSINGLETONFINALIZER_H
