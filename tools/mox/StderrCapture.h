// Catches what a library writes to the process's standard error while it
// runs, so that a tool can turn it into its own one-line message. Redirects
// file descriptor 2 for its lifetime: use it only around short calls made
// before any other thread of the process may write there.
#ifndef MOX_TOOLS_STDERRCAPTURE_H
#define MOX_TOOLS_STDERRCAPTURE_H

#include <cstdio>
#include <string>

class StderrCapture {
public:
    StderrCapture();   // from now on, file descriptor 2 goes to a scratch file
    ~StderrCapture();  // puts file descriptor 2 back if finish() was not called

    StderrCapture(const StderrCapture&) = delete;
    StderrCapture& operator=(const StderrCapture&) = delete;

    // Puts file descriptor 2 back and returns what was written meanwhile
    // (empty when the scratch file could not be made: then nothing was caught).
    std::string finish();

private:
    void restore();

    FILE* mScratch = nullptr;
    int mSavedFd = -1;
};

#endif  // MOX_TOOLS_STDERRCAPTURE_H
