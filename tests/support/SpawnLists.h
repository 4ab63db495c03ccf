// The argument and environment lists that posix_spawn takes, built from
// strings: the program's path first, then its arguments; the given
// environment ("NAME=VALUE") before the test's own, so that it wins.
#ifndef MOX_TESTS_SPAWNLISTS_H
#define MOX_TESTS_SPAWNLISTS_H

#include <string>
#include <vector>

class SpawnLists {
public:
    SpawnLists(const std::string& program, const std::vector<std::string>& args,
               const std::vector<std::string>& environment = {});
    SpawnLists(const SpawnLists&) = delete;
    SpawnLists& operator=(const SpawnLists&) = delete;

    // Null-terminated; valid while this object lives.
    char* const* argv() { return mArgvPointers.data(); }
    char* const* envp() { return mEnvPointers.data(); }

private:
    static std::vector<char*> pointersOf(std::vector<std::string>& texts);

    std::vector<std::string> mArgs;
    std::vector<std::string> mEnv;
    std::vector<char*> mArgvPointers;
    std::vector<char*> mEnvPointers;
};

#endif  // MOX_TESTS_SPAWNLISTS_H
