// Writes three debug records through the framework's debug output, as
// HB_DBG_OUTPUT says: an info record and an error record of two sources, and
// one without a source. The DLT test reads them back from the daemon.
//
// With the argument "nudge", it writes the one record "nudge" and then waits
// until it is killed: new data from a live program, which makes the daemon
// go on with what it holds (see HbDbgDltSinkDaemonTest).
#include <unistd.h>

#include <string>

#include "HbFramework/HbDbgOutput.h"

int main(int argc, char** argv) {
    if (argc > 1 && std::string(argv[1]) == "nudge") {
        HbDbgOutput::DbgPrint("nudge");
        while (true) {
            ::pause();
        }
    }
    HbDbgOutput::DbgPrint("tests/dlt/ProbeAlpha.cpp", "main", 7, en_TAG_INFO, "first record %d", 1);
    HbDbgOutput::DbgPrint("tests/dlt/ProbeBeta.cpp", "run", 12, en_TAG_ERROR, "second record");
    HbDbgOutput::DbgPrint("plain record %s", "three");
    return 0;
}
