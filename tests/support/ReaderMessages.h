// The response-database reader's debug messages as the tests compare them:
// (function, text) pairs taken from a DbgCapture.
//
//   DbgCapture capture;
//   EXPECT_FALSE(db->getDbHeader());
//   EXPECT_EQ(moxtest::take(capture), (Msgs{{"getDbHeader", "mpReadFile is NULL.\n"}}));
#ifndef MOX_TESTS_READERMESSAGES_H
#define MOX_TESTS_READERMESSAGES_H

#include <ostream>
#include <string>
#include <vector>

#include "DbgCapture.h"

namespace moxtest {

// The source file that every message of the reader names.
extern const char* const kReaderSource;

// One debug record as the tests compare it: reporting function and text.
struct Msg {
    std::string function;
    std::string text;
    bool operator==(const Msg& other) const {
        return function == other.function && text == other.text;
    }
};

std::ostream& operator<<(std::ostream& out, const Msg& msg);

using Msgs = std::vector<Msg>;

// Every record captured so far, as (function, text); each must come from the
// reader's source with tag 1. Clears the capture.
Msgs take(DbgCapture& capture);

}  // namespace moxtest

#endif  // MOX_TESTS_READERMESSAGES_H
