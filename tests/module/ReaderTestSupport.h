// Shared by the tests of the response-database reader and of the album
// search: the reader's debug messages as (function, text) pairs, and the
// stored phone answer that both read.
#ifndef MOX_TESTS_READERTESTSUPPORT_H
#define MOX_TESTS_READERTESTSUPPORT_H

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <ostream>
#include <string>
#include <vector>

#include "DbgCapture.h"
#include "HbFramework/HbFileSys.h"
#include "HbFramework/HbFileSysHost.h"
#include "moxdb/DbBytes.h"

namespace moxtest {

// The source file that every message of the reader names.
inline const char* const kReaderSource = "private/MoxDapDatabase.cpp";

// One debug record as the tests compare it: reporting function and text.
struct Msg {
    std::string function;
    std::string text;
    bool operator==(const Msg& other) const {
        return function == other.function && text == other.text;
    }
};

inline std::ostream& operator<<(std::ostream& out, const Msg& msg) {
    return out << msg.function << ": \"" << msg.text << "\"";
}

using Msgs = std::vector<Msg>;

// Every record captured so far, as (function, text); each must come from the
// reader's source with tag 1. Clears the capture.
inline Msgs take(DbgCapture& capture) {
    Msgs out;
    for (const HbDbgRecord& record : capture.records()) {
        EXPECT_EQ(record.file, kReaderSource);
        EXPECT_EQ(record.tag, 1);
        out.push_back(Msg{record.function, record.text});
    }
    capture.clear();
    return out;
}

// Replaces the result file with a new one (a truncated and rewritten file
// would be flushed on close, which slows the cut and damage loops down).
inline void writeResultFile(const moxdb::Bytes& bytes) {
    ASSERT_TRUE(HbFileSys::CreateDirectory(HbFileSysHost::getResultDirectory().c_str(), true));
    std::remove(HbFileSysHost::getResultFilePath().c_str());
    std::ofstream out(HbFileSysHost::getResultFilePath(), std::ios::binary | std::ios::trunc);
    ASSERT_TRUE(out.good()) << HbFileSysHost::getResultFilePath();
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
    out.close();
    ASSERT_TRUE(out.good());
}

}  // namespace moxtest

#endif  // MOX_TESTS_READERTESTSUPPORT_H
