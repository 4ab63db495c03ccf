#include "HbFramework/HbFileSys.h"

#include <sys/stat.h>
#include <sys/types.h>

#include <cerrno>
#include <string>

#include "HbFramework/HbDbgOutput.h"
#include "HbFramework/HbFileSysHost.h"

// The module's result directory is mapped onto this process's own (see
// HbFileSysHost.h); every other path is used as it is.

namespace {

bool isDirectory(const std::string& path) {
    struct stat info;
    return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

bool makeOne(const std::string& path, mode_t mode) {
    if (::mkdir(path.c_str(), mode) == 0) {
        return true;
    }
    return errno == EEXIST && isDirectory(path);
}

std::string withoutTrailingSlash(std::string path) {
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    return path;
}

// Creates `full`, and with `recursive` every missing parent (mode 0755);
// `full` itself gets `mode`.
bool createPath(const std::string& full, bool recursive, mode_t mode) {
    if (!recursive) {
        return makeOne(full, mode);
    }
    // Create each missing parent, from the root down.
    for (size_t pos = full.find('/', 1); pos != std::string::npos; pos = full.find('/', pos + 1)) {
        std::string parent = full.substr(0, pos);
        if (!isDirectory(parent) && !makeOne(parent, 0755)) {
            return false;
        }
    }
    return makeOne(full, mode);
}

// The result directory in force, refused with one debug line when it is not
// safe to use; "" when refused or when it cannot be had.
std::string usableResultDirectory(int line) {
    const std::string directory = HbFileSysHost::getResultDirectory();
    if (directory.empty()) {
        return directory;
    }
    std::string why;
    if (!HbFileSysHost::checkDirectory(directory, &why)) {
        HbDbgOutput::DbgPrint(HbFileSysHost::SOURCE, "CreateDirectory", line, en_TAG_ERROR, "%s\n",
                              why.c_str());
        return std::string();
    }
    return directory;
}

// The result directory: made private (0700) when this process creates it,
// and checked again once it exists, in case another user made it first.
bool createResultDirectory(const char* path, bool recursive) {
    if (usableResultDirectory(__LINE__).empty()) {
        return false;
    }
    const std::string mapped = withoutTrailingSlash(HbFileSysHost::mapPath(path));
    if (mapped.empty() || !createPath(mapped, recursive, 0700)) {
        return false;
    }
    return !usableResultDirectory(__LINE__).empty() && isDirectory(mapped);
}

}  // namespace

bool HbFileSys::IsExist(const char* path) {
    if (path == nullptr || path[0] == '\0') {
        return false;
    }
    if (HbFileSysHost::isInResultDirectory(path)) {
        // A directory that must not be used does not exist for the module:
        // it then tries to create it, and that refusal is reported.
        const std::string directory = HbFileSysHost::getResultDirectory();
        if (directory.empty() || !HbFileSysHost::checkDirectory(directory, nullptr)) {
            return false;
        }
    }
    const std::string mapped = HbFileSysHost::mapPath(path);
    struct stat info;
    return !mapped.empty() && ::stat(mapped.c_str(), &info) == 0;
}

bool HbFileSys::CreateDirectory(const char* path, bool recursive) {
    if (path == nullptr || path[0] == '\0') {
        return false;
    }
    if (HbFileSysHost::isInResultDirectory(path)) {
        return createResultDirectory(path, recursive);
    }
    return createPath(withoutTrailingSlash(path), recursive, 0755);
}
