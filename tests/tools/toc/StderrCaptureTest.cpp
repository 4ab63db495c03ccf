// StderrCapture: what is written to file descriptor 2 meanwhile is caught,
// and the descriptor is put back afterwards.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "StderrCapture.h"

TEST(StderrCaptureTest, Finish_WhenLibraryPrintedToStderr_ReturnsTheText) {
    StderrCapture capture;
    std::fprintf(stderr, "bad character '%c'\n", 'B');
    EXPECT_EQ(capture.finish(), "bad character 'B'\n");
}

TEST(StderrCaptureTest, Finish_WhenWrittenToDescriptor2_ReturnsTheBytes) {
    StderrCapture capture;
    ASSERT_EQ(::write(2, "raw\n", 4), 4);
    EXPECT_EQ(capture.finish(), "raw\n");
}

TEST(StderrCaptureTest, Finish_WhenNothingWritten_ReturnsEmpty) {
    StderrCapture capture;
    EXPECT_EQ(capture.finish(), "");
}

TEST(StderrCaptureTest, Finish_WhenCalled_PutsDescriptor2Back) {
    StderrCapture outer;
    {
        StderrCapture inner;
        std::fprintf(stderr, "inner\n");
        EXPECT_EQ(inner.finish(), "inner\n");
        std::fprintf(stderr, "after\n");
    }
    EXPECT_EQ(outer.finish(), "after\n");
}

TEST(StderrCaptureTest, Destructor_WhenNotFinished_PutsDescriptor2Back) {
    StderrCapture outer;
    {
        StderrCapture inner;
        std::fprintf(stderr, "dropped\n");
    }
    std::fprintf(stderr, "kept\n");
    EXPECT_EQ(outer.finish(), "kept\n");
}
