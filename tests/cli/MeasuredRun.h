// Runs a built program as a child process and measures it: its exit status,
// how long it ran and its peak resident memory (from wait4), its stdout and
// stderr kept in files of the test's directory so that a program that writes
// a lot never blocks on a pipe. A program still running at the guard is
// killed, so a test of a bound fails instead of hanging.
//
//   MeasuredRun run(MOX_CLI_PATH, {"dump", path}, dir);
//   ... play the other end while it runs ...
//   const MeasuredRun::Result result = run.finish(30);
//   EXPECT_LT(result.peakResidentKiB, 64 * 1024);
#ifndef MOX_TESTS_CLI_MEASUREDRUN_H
#define MOX_TESTS_CLI_MEASUREDRUN_H

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <vector>

#include "SpawnLists.h"
#include "TestDir.h"

class MeasuredRun {
public:
    // Resident memory tells the program's own needs only on a native run
    // without sanitizers: their allocators and shadow memory (hundreds of
    // MiB under AddressSanitizer) make the figure meaningless, so bounds on
    // it are asserted only when this is true.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    static constexpr bool kMemoryMeaningful = false;
#else
    static constexpr bool kMemoryMeaningful = true;
#endif
    // How much longer a run may take under the sanitizers (ThreadSanitizer
    // runs the tools 5 to 15 times slower): time bounds and guards are
    // multiplied by it.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    static constexpr int kSlowdown = 15;
#else
    static constexpr int kSlowdown = 1;
#endif

    struct Result {
        int status = -1;           // exit status, or 128 + the signal
        bool killed = false;       // still running at the guard, killed then
        double seconds = 0;        // from the start to the end
        long peakResidentKiB = 0;  // ru_maxrss of this child alone
        std::string out;
        std::string err;
    };

    // Starts `program` with `args`; `environment` ("NAME=VALUE") comes before
    // the test's own, so it wins. Its stdout and stderr go to `dir`'s files
    // "<tag>.out" and "<tag>.err".
    MeasuredRun(const std::string& program, const std::vector<std::string>& args,
                const TestDir& dir, const std::vector<std::string>& environment = {},
                const std::string& tag = "run")
        : mOutPath(dir.file(tag + ".out")), mErrPath(dir.file(tag + ".err")) {
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 1, mOutPath.c_str(),
                                         O_WRONLY | O_CREAT | O_TRUNC, 0600);
        posix_spawn_file_actions_addopen(&actions, 2, mErrPath.c_str(),
                                         O_WRONLY | O_CREAT | O_TRUNC, 0600);
        SpawnLists lists(program, args, environment);
        mStarted = std::chrono::steady_clock::now();
        if (posix_spawn(&mPid, program.c_str(), &actions, nullptr, lists.argv(), lists.envp()) !=
            0) {
            mPid = -1;
        }
        posix_spawn_file_actions_destroy(&actions);
    }

    ~MeasuredRun() {
        if (mPid > 0) {
            finish(0);
        }
    }
    MeasuredRun(const MeasuredRun&) = delete;
    MeasuredRun& operator=(const MeasuredRun&) = delete;

    // Waits for the end, at most `guardSeconds` (then the program is killed).
    // Waits for the end, at most `guardSeconds` (times kSlowdown).
    Result finish(int guardSeconds) {
        guardSeconds *= kSlowdown;
        Result result;
        if (mPid <= 0) {
            result.err = "could not be started";
            return result;
        }
        const int pidFd = static_cast<int>(::syscall(SYS_pidfd_open, mPid, 0));
        if (pidFd >= 0) {
            pollfd entry{pidFd, POLLIN, 0};
            if (::poll(&entry, 1, guardSeconds * 1000) != 1) {
                ::kill(mPid, SIGKILL);
                result.killed = true;
            }
            ::close(pidFd);
        }
        int status = 0;
        rusage usage{};
        ::wait4(mPid, &status, 0, &usage);
        mPid = -1;
        result.seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - mStarted).count();
        result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        result.peakResidentKiB = usage.ru_maxrss;
        result.out = textOf(mOutPath);
        result.err = textOf(mErrPath);
        return result;
    }

private:
    static std::string textOf(const std::string& path) {
        const std::vector<unsigned char> bytes = TestDir::readFile(path);
        return std::string(bytes.begin(), bytes.end());
    }

    std::string mOutPath;
    std::string mErrPath;
    pid_t mPid = -1;
    std::chrono::steady_clock::time_point mStarted;
};

#endif  // MOX_TESTS_CLI_MEASUREDRUN_H
