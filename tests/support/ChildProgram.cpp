#include "ChildProgram.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>

#include "SpawnLists.h"

ChildProgram::ChildProgram(const std::string& program, const std::vector<std::string>& args,
                           const std::vector<std::string>& environment) {
    int out[2];
    int err[2];
    EXPECT_EQ(0, ::pipe2(out, O_CLOEXEC));
    EXPECT_EQ(0, ::pipe2(err, O_CLOEXEC));
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    posix_spawn_file_actions_adddup2(&actions, err[1], 2);
    SpawnLists lists(program, args, environment);
    EXPECT_EQ(0, posix_spawn(&mPid, program.c_str(), &actions, nullptr, lists.argv(), lists.envp()))
        << program;
    posix_spawn_file_actions_destroy(&actions);
    ::close(out[1]);
    ::close(err[1]);
    mOut = out[0];
    mErr = err[0];
}

ChildProgram::~ChildProgram() {
    if (mPid > 0) {
        ::kill(mPid, SIGKILL);
        wait();
    }
    ::close(mOut);
    ::close(mErr);
}

std::string ChildProgram::waitForLine(const std::string& prefix) {
    return waitForMatch(
        [&prefix](const std::string& line) { return line.compare(0, prefix.size(), prefix) == 0; });
}

std::string ChildProgram::waitForLineContaining(const std::string& text) {
    return waitForMatch(
        [&text](const std::string& line) { return line.find(text) != std::string::npos; });
}

std::string ChildProgram::waitForLineContaining(const std::string& text,
                                                std::chrono::milliseconds limit) {
    return waitForMatch(
        [&text](const std::string& line) { return line.find(text) != std::string::npos; },
        Clock::now() + limit);
}

std::string ChildProgram::waitForMatch(const std::function<bool(const std::string&)>& matches,
                                       Clock::time_point deadline) {
    while (true) {
        const size_t end = mErrText.find('\n', mScanned);
        if (end != std::string::npos) {
            const std::string line = mErrText.substr(mScanned, end - mScanned);
            mScanned = end + 1;
            if (matches(line)) {
                return line;
            }
            continue;
        }
        if (!readable(mErr, deadline) || !readSome(mErr, mErrText)) {
            return "";
        }
    }
}

void ChildProgram::signal(int number) {
    ::kill(mPid, number);
}

int ChildProgram::wait() {
    int status = 0;
    ::waitpid(mPid, &status, 0);
    mPid = -1;
    while (readSome(mErr, mErrText)) {
    }
    while (readSome(mOut, mOutText)) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

bool ChildProgram::readable(int fd, Clock::time_point deadline) {
    if (deadline == Clock::time_point::max()) {
        return true;  // the read itself waits
    }
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    pollfd wanted{fd, POLLIN, 0};
    return ::poll(&wanted, 1, static_cast<int>(std::max<int64_t>(0, left.count()))) > 0;
}

bool ChildProgram::readSome(int fd, std::string& text) {
    char buffer[4096];
    const ssize_t got = ::read(fd, buffer, sizeof(buffer));
    if (got <= 0) {
        return false;
    }
    text.append(buffer, static_cast<size_t>(got));
    return true;
}
