#include "ReaderMessages.h"

#include <gtest/gtest.h>

namespace moxtest {

const char* const kReaderSource = "private/MoxDapDatabase.cpp";

std::ostream& operator<<(std::ostream& out, const Msg& msg) {
    return out << msg.function << ": \"" << msg.text << "\"";
}

Msgs take(DbgCapture& capture) {
    Msgs out;
    for (const HbDbgRecord& record : capture.records()) {
        EXPECT_EQ(record.file, kReaderSource);
        EXPECT_EQ(record.tag, 1);
        out.push_back(Msg{record.function, record.text});
    }
    capture.clear();
    return out;
}

}  // namespace moxtest
