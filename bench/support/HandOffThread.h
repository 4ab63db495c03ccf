// A second thread that runs one job at a time for its caller: run() hands
// the job over and sleeps until the thread reports it done. It adds to any
// work exactly what the module's design adds to a lookup: the application's
// call is handed to another thread (the module's worker), and the outcome
// comes back to the sleeping application thread (notification 2). The jobs
// run one after the other, each on this thread, so what a job uses belongs
// to one thread at a time.
//
//   HandOffThread thread;
//   bool ok = thread.run([&] { return client.lookup(toc); });
#ifndef MOX_BENCH_HANDOFFTHREAD_H
#define MOX_BENCH_HANDOFFTHREAD_H

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

class HandOffThread {
public:
    HandOffThread();
    ~HandOffThread();
    HandOffThread(const HandOffThread&) = delete;
    HandOffThread& operator=(const HandOffThread&) = delete;

    // Runs `job` on the thread and returns its result once it is done.
    bool run(const std::function<bool()>& job);

private:
    void loop();

    std::mutex mMutex;
    std::condition_variable mToThread;            // a job, or the end
    std::condition_variable mToCaller;            // the job is done
    const std::function<bool()>* mJob = nullptr;  // guarded: the job handed over
    bool mDone = false;                           // guarded: mJob has run
    bool mResult = false;                         // guarded: what it returned
    bool mEnd = false;                            // guarded: the thread must end
    std::thread mThread;
};

#endif  // MOX_BENCH_HANDOFFTHREAD_H
