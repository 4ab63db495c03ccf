#include "CliRun.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

#include <cstring>

#include "SpawnLists.h"

namespace {

std::string readText(const std::string& path) {
    const std::vector<unsigned char> bytes = TestDir::readFile(path);
    return std::string(bytes.begin(), bytes.end());
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
    SpawnLists lists(program, args);
    CliResult result;
    pid_t pid = 0;
    const int spawned =
        posix_spawn(&pid, program.c_str(), &actions, nullptr, lists.argv(), lists.envp());
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0) {
        result.err = "cannot start " + program + ": " + std::strerror(spawned);
        return result;
    }
    int wstatus = 0;
    if (::waitpid(pid, &wstatus, 0) == pid && WIFEXITED(wstatus)) {
        result.status = WEXITSTATUS(wstatus);
    }
    result.out = readText(outPath);
    result.err = readText(errPath);
    return result;
}
