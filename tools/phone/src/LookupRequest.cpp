// Byte-for-byte check of the lookup request.
#include "moxphone/LookupRequest.h"

#include <cstring>

namespace moxphone {

namespace {

constexpr size_t kHeaderSize = 8;
constexpr uint8_t kCommandHigh = 0x00;
constexpr uint8_t kCommandLow = 0x10;

// First offset in [0, size) where `frame + at` differs from `text`, or size.
size_t firstDifference(const uint8_t* frame, size_t at, const std::string& text) {
    for (size_t i = 0; i < text.size(); ++i) {
        if (frame[at + i] != static_cast<uint8_t>(text[i])) {
            return i;
        }
    }
    return text.size();
}

bool refuse(std::string* problem, const std::string& reason) {
    *problem = reason;
    return false;
}

}  // namespace

const std::string& LookupRequest::head() {
    static const std::string text =
        "<DbUpdateRequest>\n"
        "\t<DatabaseInfo>\n"
        "\t\t<DatabaseKind>73QRVB</DatabaseKind>\n"
        "\t</DatabaseInfo>\n"
        "\t<TOCRequest>\n"
        "\t\t<TOC>";
    return text;
}

const std::string& LookupRequest::tail() {
    static const std::string text =
        "</TOC>\n"
        "\t</TOCRequest>\n"
        "</DbUpdateRequest>";
    return text;
}

bool LookupRequest::parse(const uint8_t* frame, size_t size, LookupRequest* out,
                          std::string* problem) {
    if (frame == nullptr || size < kEmptySize) {
        return refuse(problem, "the frame has " + std::to_string(size) + " bytes, fewer than the " +
                                   std::to_string(kEmptySize) +
                                   " of a request with an empty TOC text");
    }
    if (frame[0] != kCommandHigh || frame[1] != kCommandLow) {
        return refuse(problem, "the frame is not a lookup request");
    }
    if (frame[3] != 0) {
        return refuse(problem, "the reserved byte 3 is " + std::to_string(frame[3]) + ", not 0");
    }
    const size_t headAt = kHeaderSize;
    const size_t headDiff = firstDifference(frame, headAt, head());
    if (headDiff != head().size()) {
        return refuse(problem, "the XML head differs from the expected one at byte " +
                                   std::to_string(headAt + headDiff));
    }
    if (frame[size - 1] != 0) {
        return refuse(problem, "the frame does not end with a terminating zero byte");
    }
    const size_t tailAt = size - 1 - tail().size();
    const size_t tailDiff = firstDifference(frame, tailAt, tail());
    if (tailDiff != tail().size()) {
        return refuse(problem, "the XML tail differs from the expected one at byte " +
                                   std::to_string(tailAt + tailDiff) +
                                   " (or the frame's length does not match its text)");
    }
    const size_t tocAt = headAt + head().size();
    const char* tocBytes = reinterpret_cast<const char*>(frame + tocAt);
    const size_t tocSize = tailAt - tocAt;
    const void* zero = std::memchr(tocBytes, 0, tocSize);
    if (zero != nullptr) {
        const size_t at = tocAt + static_cast<size_t>(static_cast<const char*>(zero) - tocBytes);
        return refuse(problem, "the XML text ends at a zero byte at byte " + std::to_string(at) +
                                   ", before its tail");
    }
    out->kind = frame[2];
    out->param1 = static_cast<uint16_t>((frame[4] << 8) | frame[5]);
    out->param2 = static_cast<uint16_t>((frame[6] << 8) | frame[7]);
    out->toc.assign(tocBytes, tocSize);
    return true;
}

}  // namespace moxphone
