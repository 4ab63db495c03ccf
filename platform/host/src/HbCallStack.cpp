#include "HbFramework/HbCallStack.h"

#include <execinfo.h>

#include <cstdlib>
#include <string>

#include "HbFramework/HbDbgOutput.h"

void HbCallStack::dumpDirectly(int depth) {
    const int kMaxFrames = 64;
    void* frames[kMaxFrames];
    int count = ::backtrace(frames, kMaxFrames);
    if (depth >= 0 && depth < count) {
        count = depth;
    }
    std::string text = "call stack:\n";
    char** symbols = ::backtrace_symbols(frames, count);
    for (int i = 0; i < count; ++i) {
        text += "  #" + std::to_string(i) + " ";
        text += (symbols != nullptr && symbols[i] != nullptr) ? symbols[i] : "?";
        text += "\n";
    }
    std::free(symbols);
    HbDbgOutput::DbgPrint("HbFramework/HbCallStack", "dumpDirectly", __LINE__, en_TAG_INFO, "%s",
                          text.c_str());
}
