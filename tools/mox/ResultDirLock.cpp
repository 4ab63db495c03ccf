#include "ResultDirLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <thread>

ResultDirLock::ResultDirLock(const std::string& directory, std::ostream& waitNotice,
                             const std::string& prefix, Clock::time_point deadline,
                             const std::atomic<int>* interrupt)
    : mFd(-1), mError() {
    const int fd = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) {
        fail(directory, errno);
        return;
    }
    if (::flock(fd, LOCK_EX | LOCK_NB) == 0) {
        mFd = fd;
        return;
    }
    if (errno != EWOULDBLOCK) {
        const int error = errno;
        ::close(fd);
        fail(directory, error);
        return;
    }
    waitNotice << prefix << "waiting for another run that uses " << directory << std::endl;
    if (!waitFor(fd, directory, deadline, interrupt)) {
        ::close(fd);
        return;
    }
    mFd = fd;
}

bool ResultDirLock::waitFor(int fd, const std::string& directory, Clock::time_point deadline,
                            const std::atomic<int>* interrupt) {
    for (;;) {
        if (::flock(fd, LOCK_EX | LOCK_NB) == 0) {
            return true;
        }
        if (errno != EWOULDBLOCK && errno != EINTR) {
            fail(directory, errno);
            return false;
        }
        if (interrupt != nullptr && interrupt->load() != 0) {
            mInterrupted = true;
            mError = "cancelled";
            return false;
        }
        if (Clock::now() >= deadline) {
            mTimedOut = true;
            mError = "timed out waiting for another run that uses " + directory;
            return false;
        }
        std::this_thread::sleep_for(kRetry);
    }
}

ResultDirLock::~ResultDirLock() {
    if (mFd >= 0) {
        ::flock(mFd, LOCK_UN);
        ::close(mFd);
    }
}

void ResultDirLock::fail(const std::string& directory, int error) {
    mError = "cannot lock " + directory + ": " + std::strerror(error);
}

bool makeResultDirectory(const std::string& directory, std::string* why) {
    std::string path = directory;
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    std::error_code error;
    const bool made = std::filesystem::create_directories(path, error);
    if (error) {
        *why = "cannot create " + directory + ": " + error.message();
        return false;
    }
    // A directory made here is the user's alone, as the module makes it.
    if (made) {
        std::filesystem::permissions(path, std::filesystem::perms::owner_all,
                                     std::filesystem::perm_options::replace, error);
    }
    return true;
}
