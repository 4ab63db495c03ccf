// Debug records as DLT log messages.
#include "HbDbgDltSink.h"

#include <cctype>

namespace {

constexpr size_t kIdSize = 4;
constexpr size_t kPrefixSize = 2;
constexpr uint32_t kFnvOffset = 2166136261u;
constexpr uint32_t kFnvPrime = 16777619u;
constexpr const char kBase36[] = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ";

// FNV-1a of `text`, then of the four bytes of `salt`.
uint32_t hashOf(const std::string& text, uint32_t salt) {
    uint32_t hash = kFnvOffset;
    for (const char c : text) {
        hash = (hash ^ static_cast<uint8_t>(c)) * kFnvPrime;
    }
    for (int shift = 0; shift < 32; shift += 8) {
        hash = (hash ^ ((salt >> shift) & 0xFFu)) * kFnvPrime;
    }
    return hash;
}

std::string baseName(const std::string& file) {
    const size_t slash = file.find_last_of('/');
    return slash == std::string::npos ? file : file.substr(slash + 1);
}

}  // namespace

HbDbgDltSink& HbDbgDltSink::instance() {
    static HbDbgDltSink* sink = new HbDbgDltSink();  // lives until exit, as libdlt does
    return *sink;
}

HbDbgDltSink::HbDbgDltSink() {
    dlt_register_app(kAppId, "mox: the music-information module and its host tools");
    // At exit, libdlt keeps trying to hand what it buffered (no daemon yet)
    // to a daemon for 10 s; a short program waits this long at most.
    dlt_set_resend_timeout_atexit(kAtExitResendMs);
}

void HbDbgDltSink::write(const HbDbgRecord& record) {
    DltContext& context = contextOf(record.file);
    DltContextData data;
    if (dlt_user_log_write_start(&context, &data, levelOf(record.tag)) <= 0) {
        return;  // the level is off for this context
    }
    dlt_user_log_write_string(&data, messageOf(record).c_str());
    dlt_user_log_write_finish(&data);
}

std::string HbDbgDltSink::contextIdOf(const std::string& file, uint32_t salt) {
    std::string id;
    for (const char c : baseName(file)) {
        if (id.size() < kPrefixSize && std::isalnum(static_cast<unsigned char>(c)) != 0) {
            id += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
        }
    }
    uint32_t hash = hashOf(file, salt);
    while (id.size() < kIdSize) {
        id += kBase36[hash % 36u];
        hash /= 36u;
    }
    return id;
}

std::string HbDbgDltSink::contextDescriptionOf(const std::string& file) {
    return "source " + file;
}

DltLogLevelType HbDbgDltSink::levelOf(int tag) {
    return tag == en_TAG_ERROR ? DLT_LOG_ERROR : DLT_LOG_INFO;
}

std::string HbDbgDltSink::messageOf(const HbDbgRecord& record) {
    std::string text = HbDbgOutput::Render(record);
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) {
        text.pop_back();
    }
    return text;
}

DltContext& HbDbgDltSink::contextOf(const std::string& file) {
    const auto found = mContexts.find(file);
    if (found != mContexts.end()) {
        return *found->second;
    }
    std::string id = kNoSourceId;
    std::string description = "records without a source";
    if (!file.empty()) {
        uint32_t salt = 0;
        do {
            id = contextIdOf(file, salt++);
        } while (mIds.count(id) != 0);
        description = contextDescriptionOf(file);
    }
    DltContext* context = new DltContext();
    dlt_register_context(context, id.c_str(), description.c_str());
    mIds.insert(id);
    mContexts[file] = context;
    return *context;
}
