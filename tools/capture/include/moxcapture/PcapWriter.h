// Writes a capture of the phone link as a pcap file that Wireshark and
// tshark open (libpcap). Each record is one envelope as it went over the
// link, behind Wireshark's exported-PDU header (link type 252,
// LINKTYPE_WIRESHARK_UPPER_PDU), which names the dissector and the
// direction:
//
//   tag 12 (dissector name), 8 bytes: "moxlink" and a zero byte
//   tag 35 (direction), 4 bytes big-endian: 0 module -> phone, 1 phone -> module
//   tag 0 (end), 0 bytes
//   the envelope: 32-bit big-endian length N, type byte, payload
//
// Each tag is a 16-bit big-endian number and a 16-bit big-endian length.
// Every record is flushed as soon as it is written, so a capture cut short
// (the process killed) is readable up to its last whole record.
//
//   moxcapture::PcapWriter writer;
//   if (!writer.open("lookup.pcap", &error)) { ... }
//   writer.write(timestamp, moxcapture::Direction::kToPhone, bytes.data(), bytes.size());
//
// Not thread-safe: LinkCapture serialises the writes.
#ifndef MOXCAPTURE_PCAPWRITER_H
#define MOXCAPTURE_PCAPWRITER_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

#include "moxcapture/CaptureFormat.h"

struct pcap;
struct pcap_dumper;

namespace moxcapture {

class PcapWriter {
public:
    PcapWriter();
    ~PcapWriter();
    PcapWriter(const PcapWriter&) = delete;
    PcapWriter& operator=(const PcapWriter&) = delete;

    // Creates (or truncates) `path` and writes the file header. False with a
    // one-line reason when the file cannot be written.
    bool open(const std::string& path, std::string* error);
    // Writes one record and flushes it. A record longer than
    // kMaxEnvelopeBytes keeps its first kMaxEnvelopeBytes bytes (the record
    // says how long it was). False when the writer is not open or the write
    // failed (the reason is kept in lastError()).
    bool write(std::chrono::system_clock::time_point time, Direction direction, const uint8_t* data,
               size_t size);
    void close();
    bool isOpen() const { return mDumper != nullptr; }
    const std::string& lastError() const { return mLastError; }

private:
    pcap* mPcap;
    pcap_dumper* mDumper;
    std::string mLastError;
};

}  // namespace moxcapture

#endif  // MOXCAPTURE_PCAPWRITER_H
