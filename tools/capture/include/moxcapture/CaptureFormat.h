// The layout of a capture of the phone link (see PcapWriter.h): the pcap
// link type, the exported-PDU tags before each envelope, and the direction
// of a record. Shared by the writer, the reader and the tests.
#ifndef MOXCAPTURE_CAPTUREFORMAT_H
#define MOXCAPTURE_CAPTUREFORMAT_H

#include <cstddef>
#include <cstdint>

namespace moxcapture {

// Who sent a record's envelope.
enum class Direction : uint8_t {
    kToPhone = 0,    // the module's command
    kFromPhone = 1,  // the phone's device info, status or answer
};

struct CaptureFormat {
    // LINKTYPE_WIRESHARK_UPPER_PDU: Wireshark's exported PDUs.
    static constexpr int kLinkType = 252;
    // Exported-PDU tags.
    static constexpr uint16_t kTagEnd = 0;
    static constexpr uint16_t kTagDissectorName = 12;
    static constexpr uint16_t kTagDirection = 35;
    // The dissector that the records name: tools/wireshark/moxlink.lua.
    static constexpr const char* kDissectorName = "moxlink";
    // Bytes of the header before the envelope: the name tag (4 + 8), the
    // direction tag (4 + 4) and the end tag (4).
    static constexpr size_t kHeaderSize = 24;
    // Largest record that Wireshark reads (its limit for a packet), and so
    // the longest envelope part a record keeps.
    static constexpr uint32_t kSnapLength = 262144;
    static constexpr size_t kMaxEnvelopeBytes = kSnapLength - kHeaderSize;

    // Writes the header of a record in `direction` into `out`.
    static void writeHeader(uint8_t (&out)[kHeaderSize], Direction direction);
    // Checks the header of a record of `size` bytes; false when it is not
    // ours (another dissector named, no direction, a cut header). On success
    // `direction` is set and `headerSize` tells where the envelope starts.
    static bool readHeader(const uint8_t* data, size_t size, Direction* direction,
                           size_t* headerSize);
};

}  // namespace moxcapture

#endif  // MOXCAPTURE_CAPTUREFORMAT_H
