// A program running beside a test, its stdout and stderr on pipes: the test
// waits for the lines it writes (never for time), signals it and collects its
// exit status. The destructor kills a program that is still running.
#ifndef MOX_TESTS_CHILDPROGRAM_H
#define MOX_TESTS_CHILDPROGRAM_H

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

class ChildProgram {
public:
    // Starts `program` (a path) with `args`; `environment` ("NAME=VALUE")
    // comes before the test's own environment, so it wins.
    ChildProgram(const std::string& program, const std::vector<std::string>& args,
                 const std::vector<std::string>& environment = {});
    ~ChildProgram();
    ChildProgram(const ChildProgram&) = delete;
    ChildProgram& operator=(const ChildProgram&) = delete;

    // Reads stderr until a line that starts with `prefix`; returns that line
    // (empty when the program ended first).
    std::string waitForLine(const std::string& prefix);
    // The same for the next line that holds `text` anywhere.
    std::string waitForLineContaining(const std::string& text);
    // The same, giving up (returning "") when no such line has come within
    // `limit`: for a program that may never write it, so that a test fails
    // with what it did write instead of hanging.
    std::string waitForLineContaining(const std::string& text, std::chrono::milliseconds limit);
    void signal(int number);
    // Waits for the end; the exit status, or 128 + the signal.
    int wait();
    const std::string& out() const { return mOutText; }
    const std::string& err() const { return mErrText; }

private:
    using Clock = std::chrono::steady_clock;
    static bool readSome(int fd, std::string& text);
    // Waits until `fd` is readable or `deadline` has passed; false then.
    static bool readable(int fd, Clock::time_point deadline);
    // Reads stderr until a line for which `matches` is true; "" at its end
    // or when `deadline` has passed.
    std::string waitForMatch(const std::function<bool(const std::string&)>& matches,
                             Clock::time_point deadline = Clock::time_point::max());

    pid_t mPid = -1;
    int mOut = -1;
    int mErr = -1;
    std::string mOutText;
    std::string mErrText;
    size_t mScanned = 0;
};

#endif  // MOX_TESTS_CHILDPROGRAM_H
