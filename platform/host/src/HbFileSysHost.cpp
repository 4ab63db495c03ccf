#include "HbFramework/HbFileSysHost.h"

#include <fcntl.h>
#include <ftw.h>
#include <limits.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>

#include "HbFramework/HbDbgOutput.h"
#include "HbFramework/HbSingletonFinalizer.h"

const char* const HbFileSysHost::HEAD_UNIT_RESULT_DIR = "/temp/Infotainment/HbSDK/MOX/";
const char* const HbFileSysHost::RESULT_FILE_NAME = "dbupdateresponse.dap3";
const char* const HbFileSysHost::SOURCE = "platform/host/src/HbFileSysHost.cpp";

namespace {

// A chain of symbolic links longer than this is refused, as the kernel does.
const int MAX_LINK_HOPS = 40;

// Every member is guarded by `mutex`; no framework function is called with it
// held except HbSingletonFinalizer::addThreadStopper (which takes only its
// own lock and never calls back).
struct ResultDirState {
    std::mutex mutex;
    std::string setterDirectory;   // "" when the setter is not in force
    std::string privateDirectory;  // made by this process; "" when none
    pid_t privateOwner = 0;        // the process that made it (a forked child does not own it)
};

ResultDirState& state() {
    static ResultDirState* s = new ResultDirState();
    return *s;
}

std::string withTrailingSlash(std::string directory) {
    if (directory.empty() || directory.back() != '/') {
        directory.push_back('/');
    }
    return directory;
}

std::string withoutTrailingSlash(std::string path) {
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    return path;
}

// An absolute form of `path`, taken from the current directory when relative.
std::string absolute(const std::string& path) {
    if (path.empty() || path[0] == '/') {
        return path;
    }
    char cwd[PATH_MAX];
    if (::getcwd(cwd, sizeof(cwd)) == nullptr) {
        return path;
    }
    return std::string(cwd) + "/" + path;
}

void report(const char* function, int line, const std::string& why) {
    HbDbgOutput::DbgPrint(HbFileSysHost::SOURCE, function, line, en_TAG_ERROR, "%s\n", why.c_str());
}

bool ownedByUser(const struct stat& info) {
    return info.st_uid == ::geteuid();
}

bool writableByOthers(const struct stat& info) {
    return (info.st_mode & (S_IWGRP | S_IWOTH)) != 0;
}

bool isStickyWorldWritable(const struct stat& info) {
    return S_ISDIR(info.st_mode) && (info.st_mode & S_ISVTX) != 0 && (info.st_mode & S_IWOTH) != 0;
}

// A directory of the user's that nobody else can write.
bool isPrivateDirectory(const std::string& path) {
    struct stat info;
    return ::lstat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode) && ownedByUser(info) &&
           (info.st_mode & 077) == 0;
}

// Walks `directory` from the root. A part that is guarded (the directory
// itself, or a part below a sticky world-writable directory) must be the
// user's (root's is trusted for a parent) and not writable by others. A
// symbolic link is followed by walking its resolved path again from the
// root, so that what it points to is checked as well.
class DirectoryCheck {
public:
    explicit DirectoryCheck(const std::string& directory)
        : mDirectory(withoutTrailingSlash(directory)) {}

    bool run(std::string* why) {
        std::string path = mDirectory;
        for (int hops = 0; hops <= MAX_LINK_HOPS; ++hops) {
            std::string resolved;
            if (!walk(path, &resolved, why)) {
                return false;
            }
            if (resolved.empty()) {
                return true;
            }
            path = resolved;
        }
        *why = "result directory " + mDirectory + ": too many symbolic links";
        return false;
    }

private:
    // False with `why` on a refusal; true with `resolved` empty when the
    // walk is done, or with `resolved` the path to walk again after a link.
    bool walk(const std::string& path, std::string* resolved, std::string* why) {
        bool belowSticky = false;
        size_t end = 0;
        while (end != std::string::npos) {
            end = path.find('/', end + 1);
            const std::string part = path.substr(0, end);
            const bool last = end == std::string::npos;
            struct stat info;
            if (::lstat(part.c_str(), &info) != 0) {
                if (errno == ENOENT) {
                    return true;  // the rest is made by this process
                }
                *why = "result directory " + mDirectory + ": " + part + ": " + std::strerror(errno);
                return false;
            }
            const bool guarded = last || belowSticky;
            if (S_ISLNK(info.st_mode)) {
                if (guarded && !trustedOwner(info, last)) {
                    return refuse(part, last, "is a symbolic link owned by another user", why);
                }
                return resolve(part, last ? std::string() : path.substr(end), resolved, why);
            }
            if (guarded && !trustedOwner(info, last)) {
                return refuse(part, last, "is owned by another user", why);
            }
            if (guarded && writableByOthers(info) && !isStickyWorldWritable(info)) {
                return refuse(part, last, "is writable by other users", why);
            }
            if (last && writableByOthers(info)) {
                return refuse(part, last, "is writable by other users", why);
            }
            if (!S_ISDIR(info.st_mode)) {
                return true;  // the module's own open or create reports it
            }
            belowSticky = belowSticky || isStickyWorldWritable(info);
        }
        return true;
    }

    static bool trustedOwner(const struct stat& info, bool last) {
        return ownedByUser(info) || (!last && info.st_uid == 0);
    }

    bool refuse(const std::string& part, bool last, const char* what, std::string* why) const {
        if (last) {
            *why = "result directory " + mDirectory + " " + what;
        } else {
            *why = "result directory " + mDirectory + ": parent " + part + " " + what;
        }
        return false;
    }

    bool resolve(const std::string& link, const std::string& rest, std::string* resolved,
                 std::string* why) const {
        char real[PATH_MAX];
        if (::realpath(link.c_str(), real) == nullptr) {
            if (errno == ENOENT) {
                // A dangling link: whatever is made through it would land
                // where the link points, which nobody has checked.
                *why = "result directory " + mDirectory + ": " + link +
                       " is a symbolic link to nothing";
                return false;
            }
            *why = "result directory " + mDirectory + ": " + link + ": " + std::strerror(errno);
            return false;
        }
        *resolved = std::string(real) + rest;
        return true;
    }

    const std::string mDirectory;
};

int removeEntry(const char* path, const struct stat* /*info*/, int type, struct FTW* /*ftw*/) {
    if (type == FTW_DP) {
        ::rmdir(path);
    } else {
        ::unlink(path);
    }
    return 0;
}

// Removes the private directory of this process, if it made one.
void removePrivateDirectory() {
    ResultDirState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    if (s.privateDirectory.empty() || s.privateOwner != ::getpid()) {
        return;
    }
    ::nftw(s.privateDirectory.c_str(), removeEntry, 16, FTW_DEPTH | FTW_PHYS);
    if (s.setterDirectory == s.privateDirectory) {
        s.setterDirectory.clear();
    }
    s.privateDirectory.clear();
    s.privateOwner = 0;
}

// The folder in which the private directory is made: $XDG_RUNTIME_DIR/mox
// when XDG_RUNTIME_DIR is a private directory of the user's, else $TMPDIR or
// /tmp. A "mox" folder that is not the user's alone is passed over.
std::string privateParent(bool* inRuntimeDir) {
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    if (runtime != nullptr && runtime[0] == '/' && isPrivateDirectory(runtime)) {
        const std::string parent = withoutTrailingSlash(runtime) + "/mox";
        ::mkdir(parent.c_str(), 0700);
        if (isPrivateDirectory(parent)) {
            *inRuntimeDir = true;
            return parent;
        }
    }
    *inRuntimeDir = false;
    const char* tmp = std::getenv("TMPDIR");
    if (tmp != nullptr && tmp[0] == '/') {
        return withoutTrailingSlash(tmp);
    }
    return "/tmp";
}

// Makes the private directory; "" with the reason in the debug output when
// it cannot be made. Called with the state's lock held.
std::string makePrivateDirectoryLocked(ResultDirState& s) {
    if (!s.privateDirectory.empty() && s.privateOwner == ::getpid()) {
        return s.privateDirectory;
    }
    bool inRuntimeDir = false;
    const std::string parent = privateParent(&inRuntimeDir);
    std::string name = parent + (inRuntimeDir ? "/XXXXXX" : "/mox-XXXXXX");
    if (::mkdtemp(&name[0]) == nullptr) {
        report("getResultDirectory", __LINE__,
               "cannot make a private result directory in " + parent + ": " + std::strerror(errno));
        return std::string();
    }
    s.privateDirectory = withTrailingSlash(name);
    s.privateOwner = ::getpid();
    HbSingletonFinalizer::addThreadStopper(removePrivateDirectory);
    return s.privateDirectory;
}

const char* environmentDirectory() {
    const char* value = std::getenv("MOX_RESULT_DIR");
    return value != nullptr && value[0] != '\0' ? value : nullptr;
}

// Opens a file of the result directory as fopen64 would, without following a
// link, and refuses what must never be the result file.
class ResultFileOpen {
public:
    ResultFileOpen(const std::string& path, const char* mode) : mPath(path), mMode(mode) {}

    FILE* run() {
        int flags = 0;
        if (!parseMode(&flags)) {
            errno = EINVAL;
            return nullptr;
        }
        const int fd = ::open(mPath.c_str(), flags | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600);
        if (fd < 0) {
            if (errno == ELOOP) {
                return refuse(-1, "is a symbolic link", ELOOP);
            }
            return nullptr;
        }
        if (!checkOpened(fd)) {
            return nullptr;
        }
        return finish(fd);
    }

private:
    bool parseMode(int* flags) {
        if (mMode == nullptr) {
            return false;
        }
        mPlus = std::strchr(mMode, '+') != nullptr;
        const int access = mPlus ? O_RDWR : O_WRONLY;
        switch (mMode[0]) {
            case 'r':
                *flags = mPlus ? O_RDWR : O_RDONLY;
                return true;
            case 'w':
                *flags = access | O_CREAT;
                mTruncate = true;
                return true;
            case 'a':
                *flags = access | O_CREAT | O_APPEND;
                return true;
            default:
                return false;
        }
    }

    bool checkOpened(int fd) {
        struct stat info;
        if (::fstat(fd, &info) != 0) {
            const int error = errno;
            ::close(fd);
            errno = error;
            return false;
        }
        if (!S_ISREG(info.st_mode)) {
            return refuse(fd, "is not a regular file", EACCES) != nullptr;
        }
        if (info.st_nlink > 1) {
            const std::string what = "has " + std::to_string(info.st_nlink) + " hard links";
            return refuse(fd, what.c_str(), EMLINK) != nullptr;
        }
        if (!ownedByUser(info)) {
            return refuse(fd, "is owned by another user", EACCES) != nullptr;
        }
        return true;
    }

    FILE* finish(int fd) {
        const int flags = ::fcntl(fd, F_GETFL);
        if (flags < 0 || ::fcntl(fd, F_SETFL, flags & ~O_NONBLOCK) != 0 ||
            (mTruncate && ::ftruncate(fd, 0) != 0)) {
            const int error = errno;
            ::close(fd);
            errno = error;
            return nullptr;
        }
        const char* streamMode = mMode[0] == 'r'   ? (mPlus ? "r+" : "r")
                                 : mMode[0] == 'w' ? (mPlus ? "w+" : "w")
                                                   : (mPlus ? "a+" : "a");
        FILE* stream = ::fdopen(fd, streamMode);
        if (stream == nullptr) {
            const int error = errno;
            ::close(fd);
            errno = error;
        }
        return stream;
    }

    FILE* refuse(int fd, const char* what, int error) {
        if (fd >= 0) {
            ::close(fd);
        }
        report("fopen64", __LINE__, "result file " + mPath + " " + what);
        errno = error;
        return nullptr;
    }

    const std::string mPath;
    const char* const mMode;
    bool mPlus = false;
    bool mTruncate = false;
};

}  // namespace

void HbFileSysHost::setResultDirectory(const std::string& directory) {
    ResultDirState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.setterDirectory = directory.empty() ? std::string() : withTrailingSlash(absolute(directory));
}

std::string HbFileSysHost::usePrivateResultDirectory() {
    ResultDirState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.setterDirectory = makePrivateDirectoryLocked(s);
    return s.setterDirectory;
}

HbFileSysHost::Origin HbFileSysHost::getResultDirectoryOrigin() {
    ResultDirState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    if (!s.setterDirectory.empty() && s.setterDirectory == s.privateDirectory) {
        return en_ORIGIN_PRIVATE;
    }
    if (!s.setterDirectory.empty()) {
        return en_ORIGIN_SETTER;
    }
    return environmentDirectory() != nullptr ? en_ORIGIN_ENVIRONMENT : en_ORIGIN_PRIVATE;
}

std::string HbFileSysHost::getResultDirectory() {
    ResultDirState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    if (!s.setterDirectory.empty()) {
        return s.setterDirectory;
    }
    if (const char* environment = environmentDirectory()) {
        return withTrailingSlash(absolute(environment));
    }
    return makePrivateDirectoryLocked(s);
}

std::string HbFileSysHost::getResultFilePath() {
    const std::string directory = getResultDirectory();
    return directory.empty() ? std::string() : directory + RESULT_FILE_NAME;
}

bool HbFileSysHost::isInResultDirectory(const char* path) {
    if (path == nullptr) {
        return false;
    }
    const size_t length = std::strlen(HEAD_UNIT_RESULT_DIR);
    // The directory itself may be named without its trailing slash.
    return std::strncmp(path, HEAD_UNIT_RESULT_DIR, length - 1) == 0 &&
           (path[length - 1] == '\0' || path[length - 1] == '/');
}

std::string HbFileSysHost::mapPath(const char* path) {
    if (path == nullptr) {
        return std::string();
    }
    if (!isInResultDirectory(path)) {
        return path;
    }
    const std::string directory = getResultDirectory();
    if (directory.empty()) {
        return std::string();
    }
    const size_t length = std::strlen(HEAD_UNIT_RESULT_DIR);
    if (path[length - 1] == '\0') {
        return withoutTrailingSlash(directory);
    }
    return directory + (path + length);
}

bool HbFileSysHost::checkDirectory(const std::string& directory, std::string* why) {
    std::string ignored;
    DirectoryCheck check(absolute(directory));
    return check.run(why != nullptr ? why : &ignored);
}

// The module opens its result file with fopen64. The host edition's links of
// the module pass -Wl,--wrap=fopen64, so that open lands here: a path in the
// head unit's result directory is opened in this process's directory, after
// the same checks as HbFileSys; any other path goes to the C library as it
// is. (This library itself is linked without the wrap, so its fopen64 below
// is the C library's.)
extern "C" FILE* __wrap_fopen64(const char* path, const char* mode) {
    if (!HbFileSysHost::isInResultDirectory(path)) {
        return fopen64(path, mode);
    }
    const std::string directory = HbFileSysHost::getResultDirectory();
    if (directory.empty()) {
        errno = ENOENT;
        return nullptr;
    }
    std::string why;
    if (!HbFileSysHost::checkDirectory(directory, &why)) {
        report("fopen64", __LINE__, why);
        errno = EACCES;
        return nullptr;
    }
    ResultFileOpen open(HbFileSysHost::mapPath(path), mode);
    return open.run();
}
