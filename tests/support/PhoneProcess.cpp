#include "PhoneProcess.h"

#include <gtest/gtest.h>

PhoneProcess::PhoneProcess(const std::string& program, const std::string& endpoint,
                           const std::vector<std::string>& extra)
    : mProgram(program, arguments(endpoint, extra)) {
    const std::string marker = "mox-phone: listening on ";
    const std::string line = mProgram.waitForLine(marker);
    if (line.empty()) {
        ADD_FAILURE() << "mox-phone ended before it listened: " << mProgram.err();
        return;
    }
    mEndpoint = line.substr(marker.size());
    while (!mEndpoint.empty() && (mEndpoint.back() == '\n' || mEndpoint.back() == ' ')) {
        mEndpoint.pop_back();
    }
}

std::vector<std::string> PhoneProcess::arguments(const std::string& endpoint,
                                                 const std::vector<std::string>& extra) {
    std::vector<std::string> all = {"--listen", endpoint};
    all.insert(all.end(), extra.begin(), extra.end());
    return all;
}
