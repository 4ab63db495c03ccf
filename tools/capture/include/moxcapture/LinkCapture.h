// Records the phone link into a capture file (PcapWriter.h): the listener
// that the host link (OstLinkAppHost::setTap) and the phone simulator's
// connections hand their bytes to. Each link and direction is cut into
// envelopes of its own (EnvelopeSplitter.h); each envelope becomes one
// record, stamped with the time its last byte went over the link.
//
//   moxcapture::LinkCapture capture;
//   if (!capture.open("lookup.pcap", &error)) { ... }
//   OstLinkAppHost::setTap(&capture);
//   ... the lookup ...
//   HbSingletonFinalizer::finalize();
//   OstLinkAppHost::setTap(nullptr);
//
// Thread rules: onLinkBytes and onLinkEnd may come from any thread; one
// mutex serialises them and the file.
#ifndef MOXCAPTURE_LINKCAPTURE_H
#define MOXCAPTURE_LINKCAPTURE_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <utility>

#include "OstLinkApp/OstLinkAppTap.h"
#include "moxcapture/EnvelopeSplitter.h"
#include "moxcapture/PcapWriter.h"

namespace moxcapture {

class LinkCapture : public OstLinkAppTap {
public:
    using Clock = std::chrono::system_clock;
    using Now = std::function<Clock::time_point()>;

    // `now` stamps the records (tests pass a clock of their own).
    explicit LinkCapture(Now now = Clock::now);
    ~LinkCapture() override;

    bool open(const std::string& path, std::string* error);
    // Ends every link still recorded (their cut envelopes become records)
    // and closes the file.
    void close();

    void onLinkBytes(uint32 link, EN_DIRECTION direction, const uint8* data, size_t size) override;
    void onLinkEnd(uint32 link) override;

    // Records written so far.
    size_t records() const;
    // The first write failure ("" when none).
    std::string failure() const;

private:
    using Key = std::pair<uint32, EN_DIRECTION>;
    void writeLocked(EN_DIRECTION direction, const uint8_t* data, size_t size);
    void endLocked(uint32 link);

    const Now mNow;
    mutable std::mutex mMutex;  // guards everything below
    PcapWriter mWriter;
    std::map<Key, EnvelopeSplitter> mStreams;
    size_t mRecords;
    std::string mFailure;
};

}  // namespace moxcapture

#endif  // MOXCAPTURE_LINKCAPTURE_H
