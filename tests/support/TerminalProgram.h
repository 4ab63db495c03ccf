// A program running on a terminal of its own, as a user runs it: a new
// session whose controlling terminal is a pseudo-terminal, with stdin and
// stderr on it and stdout in a file. The test reads what the terminal shows
// and types on it, so that Ctrl-C reaches the program as the terminal's
// SIGINT, not as a signal sent by hand.
//
//   TerminalProgram run(kMox, {"lookup", "--toc", toc}, dir.file("out"));
//   run.typeCtrlC();
//   const int status = run.wait();   // 130
//   run.shown();                     // progress line, cleared, then the message
#ifndef MOX_TESTS_TERMINALPROGRAM_H
#define MOX_TESTS_TERMINALPROGRAM_H

#include <sys/types.h>

#include <string>
#include <vector>

class TerminalProgram {
public:
    // Starts `program` with `args`, its stdout going to the file `outPath`;
    // `environment` ("NAME=VALUE") comes before the test's own.
    TerminalProgram(const std::string& program, const std::vector<std::string>& args,
                    const std::string& outPath, const std::vector<std::string>& environment = {});
    ~TerminalProgram();  // kills a program that is still running
    TerminalProgram(const TerminalProgram&) = delete;
    TerminalProgram& operator=(const TerminalProgram&) = delete;

    bool started() const { return mPid > 0; }
    // Reads the terminal until it has shown `text`; false when the program
    // closed the terminal first.
    bool waitForShown(const std::string& text);
    // The terminal's interrupt character: SIGINT to the program's group.
    void typeCtrlC();
    // Reads the terminal until the program closes it, then waits for the
    // end; the exit status, or 128 + the signal.
    int wait();
    // Everything the terminal showed (stderr, with the terminal's \r\n).
    const std::string& shown() const { return mShown; }

private:
    bool readSome();

    pid_t mPid = -1;
    int mMaster = -1;
    std::string mShown;
};

#endif  // MOX_TESTS_TERMINALPROGRAM_H
