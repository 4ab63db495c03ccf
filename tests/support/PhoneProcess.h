// mox-phone as a separate process beside a test, listening on an endpoint
// ("unix:PATH" or "tcp:127.0.0.1:0"); the endpoint it really listens on is
// read from its log ("mox-phone: listening on ..."). The destructor kills it.
#ifndef MOX_TESTS_PHONEPROCESS_H
#define MOX_TESTS_PHONEPROCESS_H

#include <string>
#include <vector>

#include "ChildProgram.h"

class PhoneProcess {
public:
    // Runs `program` (mox-phone) with --listen `endpoint` and `extra`. On
    // failure the test fails and endpoint() is empty.
    PhoneProcess(const std::string& program, const std::string& endpoint,
                 const std::vector<std::string>& extra);

    const std::string& endpoint() const { return mEndpoint; }
    ChildProgram& program() { return mProgram; }
    // The phone's next log line that starts with `prefix`.
    std::string waitForLine(const std::string& prefix) { return mProgram.waitForLine(prefix); }

private:
    static std::vector<std::string> arguments(const std::string& endpoint,
                                              const std::vector<std::string>& extra);

    ChildProgram mProgram;
    std::string mEndpoint;
};

#endif  // MOX_TESTS_PHONEPROCESS_H
