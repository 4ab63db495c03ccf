// The TOC lookup request 0x0010 as the phone receives it, checked byte for
// byte: command ID, lookup kind, a reserved zero byte, the two 16-bit lookup
// parameters, then the XML document (the fixed head, the TOC text, the fixed
// tail) and one terminating zero byte, which ends the frame.
#ifndef MOXPHONE_LOOKUPREQUEST_H
#define MOXPHONE_LOOKUPREQUEST_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace moxphone {

class LookupRequest {
public:
    uint8_t kind = 0;
    uint16_t param1 = 0;
    uint16_t param2 = 0;
    std::string toc;  // the text between the head and the tail, as sent

    // The document's head (110 bytes) and tail (40 bytes).
    static const std::string& head();
    static const std::string& tail();
    // Bytes of a request carrying an empty TOC text: 8 + 110 + 40 + 1.
    static constexpr size_t kEmptySize = 159;

    // Checks the whole frame. On success fills `out`; otherwise returns false
    // with the reason ("the XML head differs from byte 8 on", ...).
    static bool parse(const uint8_t* frame, size_t size, LookupRequest* out, std::string* problem);
};

}  // namespace moxphone

#endif  // MOXPHONE_LOOKUPREQUEST_H
