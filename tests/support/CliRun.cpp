#include "CliRun.h"

#include <fcntl.h>
#include <pty.h>
#include <spawn.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "SpawnLists.h"

namespace {

std::string readText(const std::string& path) {
    const std::vector<unsigned char> bytes = TestDir::readFile(path);
    return std::string(bytes.begin(), bytes.end());
}

// Starts `program` with `args` and the file actions `actions`; false with
// the reason in `result.err` when it cannot be started.
bool spawn(const std::string& program, const std::vector<std::string>& args,
           posix_spawn_file_actions_t* actions, pid_t* pid, CliResult* result) {
    SpawnLists lists(program, args);
    const int spawned =
        posix_spawn(pid, program.c_str(), actions, nullptr, lists.argv(), lists.envp());
    posix_spawn_file_actions_destroy(actions);
    if (spawned != 0) {
        result->err = "cannot start " + program + ": " + std::strerror(spawned);
        return false;
    }
    return true;
}

void waitFor(pid_t pid, CliResult* result) {
    int wstatus = 0;
    if (::waitpid(pid, &wstatus, 0) == pid && WIFEXITED(wstatus)) {
        result->status = WEXITSTATUS(wstatus);
    }
}

}  // namespace

CliResult runCli(const std::string& program, const std::vector<std::string>& args,
                 const TestDir& dir) {
    const std::string outPath = dir.file("stdout");
    const std::string errPath = dir.file("stderr");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0644);
    posix_spawn_file_actions_addopen(&actions, 2, errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0644);
    CliResult result;
    pid_t pid = 0;
    if (!spawn(program, args, &actions, &pid, &result)) {
        return result;
    }
    waitFor(pid, &result);
    result.out = readText(outPath);
    result.err = readText(errPath);
    return result;
}

CliResult runCliOnTerminal(const std::string& program, const std::vector<std::string>& args,
                           const TestDir& dir) {
    CliResult result;
    int master = -1;
    int slave = -1;
    struct termios raw {};
    ::cfmakeraw(&raw);
    if (::openpty(&master, &slave, nullptr, &raw, nullptr) != 0) {
        result.err = std::string("cannot open a terminal: ") + std::strerror(errno);
        return result;
    }
    const std::string errPath = dir.file("stderr");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, slave, 1);
    posix_spawn_file_actions_addclose(&actions, master);
    posix_spawn_file_actions_addopen(&actions, 2, errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0644);
    pid_t pid = 0;
    const bool started = spawn(program, args, &actions, &pid, &result);
    ::close(slave);
    if (started) {
        char buffer[4096];
        ssize_t got = 0;
        // Reading ends with EIO once the program has closed the terminal.
        while ((got = ::read(master, buffer, sizeof(buffer))) > 0) {
            result.out.append(buffer, static_cast<size_t>(got));
        }
        waitFor(pid, &result);
        result.err = readText(errPath);
    }
    ::close(master);
    return result;
}
