#include "HbFramework/HbDbgOutput.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <mutex>
#include <string>
#include <vector>

#include "HbUtf8.h"

#ifdef HB_DBG_DLT
#include "HbDbgDltSink.h"
#endif

namespace {

// Formats printf-style into a std::string of any length.
std::string formatNarrow(const char* format, va_list args) {
    if (format == nullptr) {
        return std::string();
    }
    va_list copy;
    va_copy(copy, args);
    char small[256];
    int needed = std::vsnprintf(small, sizeof(small), format, copy);
    va_end(copy);
    if (needed < 0) {
        return std::string();
    }
    if (static_cast<size_t>(needed) < sizeof(small)) {
        return std::string(small, static_cast<size_t>(needed));
    }
    std::vector<char> big(static_cast<size_t>(needed) + 1);
    std::vsnprintf(big.data(), big.size(), format, args);
    return std::string(big.data(), static_cast<size_t>(needed));
}

// Formats a wide printf-style format and converts the result to UTF-8.
// vswprintf reports a too-small buffer and an unconvertible narrow argument
// alike with -1; the buffer grows for the first, errno tells the second.
std::string formatWide(const wchar_t* format, va_list args) {
    if (format == nullptr) {
        return std::string();
    }
    std::vector<wchar_t> buffer(256);
    for (;;) {
        va_list copy;
        va_copy(copy, args);
        errno = 0;
        int written = std::vswprintf(buffer.data(), buffer.size(), format, copy);
        const int error = errno;
        va_end(copy);
        if (written < 0 && error == EILSEQ) {
            return std::string("(message not convertible)");
        }
        if (written >= 0) {
            std::string out;
            for (int i = 0; i < written; ++i) {
                hbAppendUtf8(out, static_cast<uint32>(buffer[static_cast<size_t>(i)]));
            }
            return out;
        }
        if (buffer.size() >= (1u << 20)) {
            return std::string("(message too long)");
        }
        buffer.resize(buffer.size() * 2);
    }
}

#ifdef HB_DBG_DLT
constexpr bool kDltBuiltIn = true;
#else
constexpr bool kDltBuiltIn = false;
#endif

enum class DefaultTarget { kStderr, kOff, kFile, kDlt };

// Every member is guarded by `mutex`, which is also held while a record is
// delivered, so records reach the sink one at a time.
struct SinkState {
    std::mutex mutex;
    HbDbgOutput::Sink sink;   // installed by SetSink(); empty: the default sink
    bool configured = false;  // HB_DBG_OUTPUT has been read
    DefaultTarget target = DefaultTarget::kStderr;
    std::string path;  // file of DefaultTarget::kFile
};

SinkState& state() {
    static SinkState* s = new SinkState();  // lives until exit; never destroyed
    return *s;
}

// Called with s.mutex held.
void configureDefault(SinkState& s) {
    if (s.configured) {
        return;
    }
    s.configured = true;
    s.path.clear();
    const char* setting = std::getenv("HB_DBG_OUTPUT");
    if (setting == nullptr || std::strcmp(setting, "stderr") == 0 || setting[0] == '\0') {
        s.target = DefaultTarget::kStderr;
    } else if (std::strcmp(setting, "off") == 0) {
        s.target = DefaultTarget::kOff;
    } else if (std::strcmp(setting, "dlt") == 0) {
        s.target = kDltBuiltIn ? DefaultTarget::kDlt : DefaultTarget::kStderr;
        if (!kDltBuiltIn) {
            std::fputs("HB_DBG_OUTPUT=dlt: DLT is not built in; the debug output goes to stderr\n",
                       stderr);
        }
    } else {
        s.target = DefaultTarget::kFile;
        s.path = setting;
    }
}

// Called with s.mutex held.
void writeDefaultLocked(SinkState& s, const HbDbgRecord& record) {
    configureDefault(s);
    if (s.target == DefaultTarget::kOff) {
        return;
    }
#ifdef HB_DBG_DLT
    if (s.target == DefaultTarget::kDlt) {
        HbDbgDltSink::instance().write(record);
        return;
    }
#endif
    std::string line = HbDbgOutput::Render(record);
    if (s.target == DefaultTarget::kFile) {
        FILE* file = std::fopen(s.path.c_str(), "a");
        if (file != nullptr) {
            std::fwrite(line.data(), 1, line.size(), file);
            std::fclose(file);
            return;
        }
    }
    std::fwrite(line.data(), 1, line.size(), stderr);
}

void deliver(const HbDbgRecord& record) {
    SinkState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    if (s.sink) {
        s.sink(record);
        return;
    }
    writeDefaultLocked(s, record);
}

}  // namespace

void HbDbgOutput::DbgPrint(const char* file, const char* function, int line, EN_TAG tag,
                           const char* format, ...) {
    va_list args;
    va_start(args, format);
    HbDbgRecord record{file ? file : "", function ? function : "", line, static_cast<int>(tag),
                       formatNarrow(format, args)};
    va_end(args);
    deliver(record);
}

void HbDbgOutput::DbgPrint(const char* file, const char* function, int line, EN_TAG tag,
                           const wchar_t* format, ...) {
    va_list args;
    va_start(args, format);
    HbDbgRecord record{file ? file : "", function ? function : "", line, static_cast<int>(tag),
                       formatWide(format, args)};
    va_end(args);
    deliver(record);
}

void HbDbgOutput::DbgPrint(const char* format, ...) {
    va_list args;
    va_start(args, format);
    HbDbgRecord record{"", "", 0, 0, formatNarrow(format, args)};
    va_end(args);
    deliver(record);
}

HbDbgOutput::Sink HbDbgOutput::SetSink(Sink sink) {
    SinkState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    Sink previous = std::move(s.sink);
    s.sink = std::move(sink);
    return previous;
}

std::string HbDbgOutput::Render(const HbDbgRecord& record) {
    std::string out;
    if (!record.file.empty() || !record.function.empty()) {
        out = record.file + ":" + std::to_string(record.line) + " " + record.function + ": ";
    }
    out += record.text;
    if (out.empty() || out.back() != '\n') {
        out.push_back('\n');
    }
    return out;
}

void HbDbgOutput::WriteDefault(const HbDbgRecord& record) {
    // Runs inside a sink, under the delivery lock that deliver() holds.
    writeDefaultLocked(state(), record);
}

void HbDbgOutput::ReloadSettings() {
    SinkState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.configured = false;
    configureDefault(s);
}
