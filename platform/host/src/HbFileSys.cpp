#include "HbFramework/HbFileSys.h"

#include <sys/stat.h>
#include <sys/types.h>
#include <cerrno>
#include <string>

namespace {

bool isDirectory(const std::string& path) {
    struct stat info;
    return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

bool makeOne(const std::string& path) {
    if (::mkdir(path.c_str(), 0755) == 0) {
        return true;
    }
    return errno == EEXIST && isDirectory(path);
}

}  // namespace

bool HbFileSys::IsExist(const char* path) {
    if (path == nullptr || path[0] == '\0') {
        return false;
    }
    struct stat info;
    return ::stat(path, &info) == 0;
}

bool HbFileSys::CreateDirectory(const char* path, bool recursive) {
    if (path == nullptr || path[0] == '\0') {
        return false;
    }
    std::string full(path);
    while (full.size() > 1 && full.back() == '/') {
        full.pop_back();
    }
    if (!recursive) {
        return makeOne(full);
    }
    // Create each missing parent, from the root down.
    for (size_t pos = full.find('/', 1); pos != std::string::npos; pos = full.find('/', pos + 1)) {
        std::string parent = full.substr(0, pos);
        if (!isDirectory(parent) && !makeOne(parent)) {
            return false;
        }
    }
    return makeOne(full);
}
