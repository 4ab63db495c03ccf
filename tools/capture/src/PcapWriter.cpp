// The capture file, through libpcap's savefile writer.
#include "moxcapture/PcapWriter.h"

#include <pcap/pcap.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

namespace moxcapture {

PcapWriter::PcapWriter() : mPcap(nullptr), mDumper(nullptr) {}

PcapWriter::~PcapWriter() {
    close();
}

bool PcapWriter::open(const std::string& path, std::string* error) {
    close();
    mPcap = pcap_open_dead_with_tstamp_precision(CaptureFormat::kLinkType,
                                                 static_cast<int>(CaptureFormat::kSnapLength),
                                                 PCAP_TSTAMP_PRECISION_MICRO);
    if (mPcap == nullptr) {
        *error = "cannot start a capture: libpcap refused the link type";
        return false;
    }
    mDumper = pcap_dump_open(mPcap, path.c_str());
    if (mDumper == nullptr) {
        *error = "cannot write the capture " + path + ": " + pcap_geterr(mPcap);
        pcap_close(mPcap);
        mPcap = nullptr;
        return false;
    }
    // The file header goes out at once: an empty capture is a valid file.
    if (pcap_dump_flush(mDumper) != 0) {
        *error = "cannot write the capture " + path + ": " + std::strerror(errno);
        close();
        return false;
    }
    return true;
}

bool PcapWriter::write(std::chrono::system_clock::time_point time, Direction direction,
                       const uint8_t* data, size_t size) {
    if (mDumper == nullptr) {
        mLastError = "the capture is not open";
        return false;
    }
    const size_t kept = std::min(size, CaptureFormat::kMaxEnvelopeBytes);
    std::vector<uint8_t> record(CaptureFormat::kHeaderSize + kept);
    uint8_t header[CaptureFormat::kHeaderSize];
    CaptureFormat::writeHeader(header, direction);
    std::copy(header, header + CaptureFormat::kHeaderSize, record.begin());
    if (kept != 0) {
        std::copy(data, data + kept, record.begin() + CaptureFormat::kHeaderSize);
    }
    const auto sinceEpoch =
        std::chrono::duration_cast<std::chrono::microseconds>(time.time_since_epoch()).count();
    pcap_pkthdr packet;
    std::memset(&packet, 0, sizeof(packet));
    packet.ts.tv_sec = static_cast<time_t>(sinceEpoch / 1000000);
    packet.ts.tv_usec = static_cast<suseconds_t>(sinceEpoch % 1000000);
    packet.caplen = static_cast<bpf_u_int32>(record.size());
    const size_t whole = CaptureFormat::kHeaderSize + size;
    packet.len = static_cast<bpf_u_int32>(std::min<size_t>(whole, 0xFFFFFFFFu));
    pcap_dump(reinterpret_cast<u_char*>(mDumper), &packet, record.data());
    if (pcap_dump_flush(mDumper) != 0) {
        mLastError = std::string("writing the capture failed: ") + std::strerror(errno);
        return false;
    }
    return true;
}

void PcapWriter::close() {
    if (mDumper != nullptr) {
        pcap_dump_close(mDumper);
        mDumper = nullptr;
    }
    if (mPcap != nullptr) {
        pcap_close(mPcap);
        mPcap = nullptr;
    }
}

}  // namespace moxcapture
