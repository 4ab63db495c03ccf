#include "TerminalProgram.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include "SpawnLists.h"

TerminalProgram::TerminalProgram(const std::string& program, const std::vector<std::string>& args,
                                 const std::string& outPath,
                                 const std::vector<std::string>& environment) {
    mMaster = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (mMaster < 0 || ::grantpt(mMaster) != 0 || ::unlockpt(mMaster) != 0) {
        return;
    }
    const std::string terminal = ::ptsname(mMaster);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    // A session of its own: the terminal opened first becomes its
    // controlling terminal, and its process group the foreground one.
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, terminal.c_str(), O_RDWR, 0);
    posix_spawn_file_actions_adddup2(&actions, 0, 2);
    posix_spawn_file_actions_addopen(&actions, 1, outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0644);
    SpawnLists lists(program, args, environment);
    if (::posix_spawn(&mPid, program.c_str(), &actions, &attributes, lists.argv(), lists.envp()) !=
        0) {
        mPid = -1;
    }
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
}

TerminalProgram::~TerminalProgram() {
    if (mPid > 0) {
        ::kill(mPid, SIGKILL);
        ::waitpid(mPid, nullptr, 0);
    }
    if (mMaster >= 0) {
        ::close(mMaster);
    }
}

bool TerminalProgram::readSome() {
    char buffer[4096];
    const ssize_t got = ::read(mMaster, buffer, sizeof(buffer));
    if (got <= 0) {
        return false;  // EIO once the program has closed the terminal
    }
    mShown.append(buffer, static_cast<size_t>(got));
    return true;
}

bool TerminalProgram::waitForShown(const std::string& text) {
    while (mShown.find(text) == std::string::npos) {
        if (!readSome()) {
            return false;
        }
    }
    return true;
}

void TerminalProgram::typeCtrlC() {
    const char interrupt = 0x03;
    const ssize_t written = ::write(mMaster, &interrupt, 1);
    (void)written;
}

int TerminalProgram::wait() {
    while (readSome()) {
    }
    if (mPid <= 0) {
        return -1;
    }
    int status = 0;
    const pid_t ended = ::waitpid(mPid, &status, 0);
    mPid = -1;
    if (ended < 0) {
        return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}
