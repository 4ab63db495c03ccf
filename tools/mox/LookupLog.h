// The debug messages of one lookup, kept for `mox lookup --json` and read for
// the reason of a failure.
//
// - The first kLinesKept messages are kept in order, each without its final
//   line feed; the rest are counted, and lines() then ends with "N more
//   messages left out". A phone can make the module log without end (every
//   unknown frame is one message), so the log never grows without end.
// - Echoed where the host edition's debug output goes (HB_DBG_OUTPUT: stderr,
//   a file, or nowhere) when `echo` is asked for or HB_DBG_OUTPUT is set.
// - The first message of each kind of cause is kept even when the log is
//   full: the host edition's refusal of the result directory or file, the
//   module's failure to store the answer, the module's first error, and the
//   phone link's first error (a connection refused, a socket that is not
//   there).
#ifndef MOX_TOOLS_LOOKUPLOG_H
#define MOX_TOOLS_LOOKUPLOG_H

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "HbFramework/HbDbgOutput.h"

class LookupLog {
public:
    static const size_t kLinesKept = 1000;

    // Installs itself as the debug output's sink until its end.
    explicit LookupLog(bool echo);
    ~LookupLog();
    LookupLog(const LookupLog&) = delete;
    LookupLog& operator=(const LookupLog&) = delete;

    // The kept messages, then "N more messages left out" when there were more.
    std::vector<std::string> lines() const;
    // The host edition's first refusal of the result directory or file.
    std::string refusal() const;
    // The module's first failure to store the phone's answer ("search result
    // file write error.", "clear file error", ...).
    std::string storeError() const;
    // The module's first error message ("index error.", "size error", ...).
    std::string moduleError() const;
    // The phone link's first error ("cannot connect to unix:/x: No such file
    // or directory").
    std::string linkError() const;
    // "" for each until it happens.

private:
    void take(const HbDbgRecord& record);

    mutable std::mutex mMutex;
    std::vector<std::string> mLines;  // at most kLinesKept
    uint64_t mLeftOut = 0;
    std::string mRefusal;
    std::string mStoreError;
    std::string mModuleError;
    std::string mLinkError;
    bool mEcho;
    HbDbgOutput::Sink mPrevious;
};

#endif  // MOX_TOOLS_LOOKUPLOG_H
