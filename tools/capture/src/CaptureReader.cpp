// Capture records through libpcap's savefile reader.
#include "moxcapture/CaptureReader.h"

#include <pcap/pcap.h>

#include <memory>

namespace moxcapture {

namespace {

struct PcapCloser {
    void operator()(pcap_t* handle) const { pcap_close(handle); }
};

}  // namespace

bool CaptureReader::readFile(const std::string& path, Capture* capture, std::string* error) {
    char errorBuffer[PCAP_ERRBUF_SIZE] = {0};
    std::unique_ptr<pcap_t, PcapCloser> handle(pcap_open_offline_with_tstamp_precision(
        path.c_str(), PCAP_TSTAMP_PRECISION_MICRO, errorBuffer));
    if (!handle) {
        *error = "cannot read the capture " + path + ": " + errorBuffer;
        return false;
    }
    if (pcap_datalink(handle.get()) != CaptureFormat::kLinkType) {
        *error = "the capture " + path + " is not a capture of the phone link (link type " +
                 std::to_string(pcap_datalink(handle.get())) + ", expected " +
                 std::to_string(CaptureFormat::kLinkType) + ")";
        return false;
    }
    capture->records.clear();
    capture->cutShort = false;
    for (;;) {
        pcap_pkthdr* header = nullptr;
        const u_char* data = nullptr;
        const int got = pcap_next_ex(handle.get(), &header, &data);
        if (got == PCAP_ERROR_BREAK) {
            return true;
        }
        if (got != 1) {
            // libpcap reports a file that ends inside a record this way.
            capture->cutShort = true;
            return true;
        }
        Record record;
        size_t headerSize = 0;
        if (!CaptureFormat::readHeader(data, header->caplen, &record.direction, &headerSize)) {
            *error = "record " + std::to_string(capture->records.size() + 1) + " of " + path +
                     " is not a record of the phone link";
            return false;
        }
        const long long micros =
            static_cast<long long>(header->ts.tv_sec) * 1000000LL + header->ts.tv_usec;
        record.time = std::chrono::system_clock::time_point(std::chrono::microseconds(micros));
        record.bytes.assign(data + headerSize, data + header->caplen);
        record.truncated = header->len > header->caplen;
        capture->records.push_back(std::move(record));
    }
}

}  // namespace moxcapture
