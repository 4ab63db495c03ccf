#include "StderrCapture.h"

#include <unistd.h>

namespace {

const int STDERR_FD = 2;

}  // namespace

StderrCapture::StderrCapture() {
    std::fflush(stderr);
    mScratch = std::tmpfile();
    if (mScratch == nullptr) {
        return;
    }
    mSavedFd = ::dup(STDERR_FD);
    if (mSavedFd >= 0 && ::dup2(::fileno(mScratch), STDERR_FD) >= 0) {
        return;
    }
    if (mSavedFd >= 0) {
        ::close(mSavedFd);
        mSavedFd = -1;
    }
    std::fclose(mScratch);
    mScratch = nullptr;
}

StderrCapture::~StderrCapture() {
    restore();
    if (mScratch != nullptr) {
        std::fclose(mScratch);
    }
}

void StderrCapture::restore() {
    if (mSavedFd < 0) {
        return;
    }
    std::fflush(stderr);
    ::dup2(mSavedFd, STDERR_FD);
    ::close(mSavedFd);
    mSavedFd = -1;
}

std::string StderrCapture::finish() {
    restore();
    if (mScratch == nullptr) {
        return "";
    }
    std::string text;
    std::rewind(mScratch);
    char chunk[4096];
    size_t got = 0;
    while ((got = std::fread(chunk, 1, sizeof(chunk), mScratch)) > 0) {
        text.append(chunk, got);
    }
    std::fclose(mScratch);
    mScratch = nullptr;
    return text;
}
