// Diagnostic output of the framework.
//
// Every DbgPrint call is formatted with printf rules (a wide format is
// converted to UTF-8) and handed as one record to the installed sink.
// - The default sink writes "file:line function: text" to stderr.
// - Host only: the environment variable HB_DBG_OUTPUT selects "stderr", "off",
//   "dlt" (a DLT daemon, application ID "MOX", one context per source; see
//   platform/host/dlt/HbDbgDltSink.h; where libdlt was not found at build
//   time, stderr after one line that says so) or a file path (appended to)
//   for the default sink, read once on first use.
// - Host only: SetSink() installs a sink of the caller's; tests capture every
//   record this way. Records are delivered one at a time (serialised).
// Can be called on any thread.
#ifndef HB_FRAMEWORK_HBDBGOUTPUT_H
#define HB_FRAMEWORK_HBDBGOUTPUT_H

#include <functional>
#include <string>

#include "HbFramework/HbTypes.h"

enum EN_TAG {
    en_TAG_INFO = 0,
    en_TAG_ERROR = 1,
};

// One formatted diagnostic message.
struct HbDbgRecord {
    std::string file;      // source name given by the caller ("" for the plain form)
    std::string function;  // function name given by the caller ("" for the plain form)
    int line;              // line given by the caller (0 for the plain form)
    int tag;               // tag given by the caller (0 for the plain form)
    std::string text;      // the formatted text, UTF-8, as is (final line feed kept)
};

class HbDbgOutput {
public:
    using Sink = std::function<void(const HbDbgRecord&)>;

    static void DbgPrint(const char* file, const char* function, int line, EN_TAG tag,
                         const char* format, ...) __attribute__((format(printf, 5, 6)));
    static void DbgPrint(const char* file, const char* function, int line, EN_TAG tag,
                         const wchar_t* format, ...);
    static void DbgPrint(const char* format, ...) __attribute__((format(printf, 1, 2)));

    // Host only. Installs `sink` for every later record; an empty sink restores
    // the default one. Returns the sink that was installed before. The sink
    // runs under the delivery lock: it must not call DbgPrint or SetSink.
    static Sink SetSink(Sink sink);

    // Host only. Renders a record the way the default sink writes it.
    static std::string Render(const HbDbgRecord& record);

    // Host only, and only from inside a sink (which runs under the delivery
    // lock): writes `record` where the default sink would, as HB_DBG_OUTPUT
    // says (stderr, a file, or nowhere), so that a sink that keeps the
    // records for itself can still honour the setting.
    static void WriteDefault(const HbDbgRecord& record);

    // Host only. Reads HB_DBG_OUTPUT again for the default sink, for programs
    // (and tests) that change the setting while running.
    static void ReloadSettings();
};

#endif  // HB_FRAMEWORK_HBDBGOUTPUT_H
