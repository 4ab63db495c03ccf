// Exclusive lock on a result directory that two runs were given on purpose
// (MOX_RESULT_DIR), for one run of mox lookup, which stores the result file
// and reads it back. Two such runs at the same time would share the one
// result file: one would read what the other is rewriting.
//
// The lock is an flock(2) on the directory itself, held from construction to
// destruction; the system releases it when the process ends, however it ends.
// A run that finds the directory locked waits for the other one and says so
// once, on the stream it was given.
//
//   ResultDirLock lock(HbFileSysHost::getResultDirectory(), std::cerr, "mox lookup: ");
//   if (!lock.locked()) { std::cerr << lock.error() << "\n"; return 2; }
//   ... store the file, search it ...
#ifndef MOX_TOOLS_RESULTDIRLOCK_H
#define MOX_TOOLS_RESULTDIRLOCK_H

#include <ostream>
#include <string>

class ResultDirLock {
public:
    // Locks `directory`, which must exist, waiting as long as another run
    // holds it. While waiting, writes one line to `waitNotice`:
    // "<prefix>waiting for another run that uses <directory>".
    ResultDirLock(const std::string& directory, std::ostream& waitNotice,
                  const std::string& prefix = "mox: ");
    ~ResultDirLock();
    ResultDirLock(const ResultDirLock&) = delete;
    ResultDirLock& operator=(const ResultDirLock&) = delete;

    bool locked() const { return mFd >= 0; }
    // Why the directory is not locked: "cannot lock <directory>: <reason>".
    const std::string& error() const { return mError; }

private:
    void fail(const std::string& directory, int error);

    int mFd;
    std::string mError;
};

// Creates `directory` (the result directory, mode 0700 when made here) and
// its missing parents; false with "cannot create <directory>: <reason>"
// otherwise.
bool makeResultDirectory(const std::string& directory, std::string* why);

#endif  // MOX_TOOLS_RESULTDIRLOCK_H
