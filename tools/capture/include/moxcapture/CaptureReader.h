// Reads a capture of the phone link (PcapWriter.h) back: every record's
// time, direction and envelope bytes, in file order. A file cut short (the
// recorder was killed) yields its whole records and says it was cut.
//
//   moxcapture::CaptureReader::Capture capture;
//   if (!moxcapture::CaptureReader::readFile("lookup.pcap", &capture, &error)) { ... }
//   for (const auto& record : capture.records) { ... }
#ifndef MOXCAPTURE_CAPTUREREADER_H
#define MOXCAPTURE_CAPTUREREADER_H

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "moxcapture/CaptureFormat.h"

namespace moxcapture {

class CaptureReader {
public:
    struct Record {
        std::chrono::system_clock::time_point time;
        Direction direction = Direction::kToPhone;
        std::vector<uint8_t> bytes;  // the envelope as it went over the link
        bool truncated = false;      // the record kept only the first bytes
    };
    struct Capture {
        std::vector<Record> records;
        bool cutShort = false;  // the file ends inside a record
    };

    // False with a one-line reason when the file cannot be opened, is not a
    // pcap file, has another link type, or holds a record that is not one of
    // the phone link's.
    static bool readFile(const std::string& path, Capture* capture, std::string* error);
};

}  // namespace moxcapture

#endif  // MOXCAPTURE_CAPTUREREADER_H
