// Exclusive lock on a result directory that two runs were given on purpose
// (MOX_RESULT_DIR), for one run of mox lookup, which stores the result file
// and reads it back. Two such runs at the same time would share the one
// result file: one would read what the other is rewriting.
//
// The lock is an flock(2) on the directory itself, held from construction to
// destruction; the system releases it when the process ends, however it ends.
// A run that finds the directory locked waits for the other one and says so
// once, on the stream it was given; the wait ends at the run's deadline
// (mox lookup --timeout), or when the run is interrupted (Ctrl-C).
//
//   ResultDirLock lock(HbFileSysHost::getResultDirectory(), std::cerr, "mox lookup: ");
//   if (!lock.locked()) { std::cerr << lock.error() << "\n"; return 2; }
//   ... store the file, search it ...
#ifndef MOX_TOOLS_RESULTDIRLOCK_H
#define MOX_TOOLS_RESULTDIRLOCK_H

#include <atomic>
#include <chrono>
#include <ostream>
#include <string>

class ResultDirLock {
public:
    using Clock = std::chrono::steady_clock;

    // Locks `directory`, which must exist, waiting while another run holds
    // it, until `deadline` or until `*interrupt` is not 0. While waiting,
    // writes one line to `waitNotice`:
    // "<prefix>waiting for another run that uses <directory>".
    ResultDirLock(const std::string& directory, std::ostream& waitNotice,
                  const std::string& prefix = "mox: ",
                  Clock::time_point deadline = Clock::time_point::max(),
                  const std::atomic<int>* interrupt = nullptr);
    ~ResultDirLock();
    ResultDirLock(const ResultDirLock&) = delete;
    ResultDirLock& operator=(const ResultDirLock&) = delete;

    bool locked() const { return mFd >= 0; }
    // The deadline passed, or the interrupt came, while another run held it.
    bool timedOut() const { return mTimedOut; }
    bool interrupted() const { return mInterrupted; }
    // Why the directory is not locked: "cannot lock <directory>: <reason>",
    // "timed out waiting for another run that uses <directory>", "cancelled".
    const std::string& error() const { return mError; }

private:
    // How often a waiting run tries again.
    static constexpr std::chrono::milliseconds kRetry{20};

    void fail(const std::string& directory, int error);
    // Tries until the lock is taken (true), the deadline passes or the
    // interrupt comes (false).
    bool waitFor(int fd, const std::string& directory, Clock::time_point deadline,
                 const std::atomic<int>* interrupt);

    int mFd;
    bool mTimedOut = false;
    bool mInterrupted = false;
    std::string mError;
};

// Creates `directory` (the result directory, mode 0700 when made here) and
// its missing parents; false with "cannot create <directory>: <reason>"
// otherwise.
bool makeResultDirectory(const std::string& directory, std::string* why);

#endif  // MOX_TOOLS_RESULTDIRLOCK_H
