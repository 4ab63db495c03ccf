// The host edition's debug output sent to a DLT daemon (COVESA DLT, through
// libdlt) when HB_DBG_OUTPUT is "dlt". Built only where libdlt is found.
//
// Every record becomes one DLT log message of the application "MOX":
// - its context is that of the record's source (the file the caller names),
//   registered on the source's first record with a four-character ID that
//   contextIdOf() derives from the file name, and the source's name as the
//   description; records without a source go to the context "MOX";
// - its level follows the record's tag: en_TAG_ERROR is DLT_LOG_ERROR,
//   anything else DLT_LOG_INFO;
// - its payload is one string: "file:line function: text", as the stderr
//   output shows it, without the final line feed.
//
// Called by HbDbgOutput under its delivery lock, so one record at a time.
#ifndef HB_FRAMEWORK_HBDBGDLTSINK_H
#define HB_FRAMEWORK_HBDBGDLTSINK_H

#include <dlt/dlt.h>

#include <cstdint>
#include <map>
#include <set>
#include <string>

#include "HbFramework/HbDbgOutput.h"

class HbDbgDltSink {
public:
    static constexpr const char* kAppId = "MOX";
    // The context of the records without a source.
    static constexpr const char* kNoSourceId = "MOX";
    // How long a program waits at its exit for a daemon to take the records
    // that libdlt still buffers (none came while it ran); then they are lost.
    static constexpr uint32_t kAtExitResendMs = 1000;

    // The sink of the process, registering the application on first use.
    static HbDbgDltSink& instance();
    // Sends `record` to the daemon (libdlt buffers it until one listens).
    void write(const HbDbgRecord& record);

    // The context ID of `file` with `salt` 0 (its first choice): the first
    // two letters or digits of the base name, upper-case ("Mo" for
    // src/MoxProtocol.cpp gives "MO"), then two base-36 digits of a hash of
    // the whole name. Another salt gives the next choice, for a source whose
    // ID another source of the process holds already.
    static std::string contextIdOf(const std::string& file, uint32_t salt = 0);
    // The context's description: "source FILE".
    static std::string contextDescriptionOf(const std::string& file);
    static DltLogLevelType levelOf(int tag);
    static std::string messageOf(const HbDbgRecord& record);

private:
    HbDbgDltSink();
    DltContext& contextOf(const std::string& file);

    std::map<std::string, DltContext*> mContexts;  // by source; never freed
    std::set<std::string> mIds;                    // the IDs registered
};

#endif  // HB_FRAMEWORK_HBDBGDLTSINK_H
