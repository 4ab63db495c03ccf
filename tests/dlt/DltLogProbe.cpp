// Writes three debug records through the framework's debug output, as
// HB_DBG_OUTPUT says: an info record and an error record of two sources, and
// one without a source. The DLT test reads them back from the daemon.
#include "HbFramework/HbDbgOutput.h"

int main() {
    HbDbgOutput::DbgPrint("tests/dlt/ProbeAlpha.cpp", "main", 7, en_TAG_INFO, "first record %d", 1);
    HbDbgOutput::DbgPrint("tests/dlt/ProbeBeta.cpp", "run", 12, en_TAG_ERROR, "second record");
    HbDbgOutput::DbgPrint("plain record %s", "three");
    return 0;
}
