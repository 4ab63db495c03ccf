#include "SpawnLists.h"

extern char** environ;

SpawnLists::SpawnLists(const std::string& program, const std::vector<std::string>& args,
                       const std::vector<std::string>& environment)
    : mArgs({program}), mEnv(environment) {
    mArgs.insert(mArgs.end(), args.begin(), args.end());
    for (char** entry = environ; *entry != nullptr; ++entry) {
        mEnv.push_back(*entry);
    }
    mArgvPointers = pointersOf(mArgs);
    mEnvPointers = pointersOf(mEnv);
}

std::vector<char*> SpawnLists::pointersOf(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (std::string& text : texts) {
        pointers.push_back(&text[0]);
    }
    pointers.push_back(nullptr);
    return pointers;
}
