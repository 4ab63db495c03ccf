// How a simulated phone behaves: its catalogue or other source, chunk size, status for an
// unknown disc, OS type, device name, faults, and the time scale of its
// delays. Shared by the server, the in-process phone and mox-phone's options.
#ifndef MOXPHONE_PHONEOPTIONS_H
#define MOXPHONE_PHONEOPTIONS_H

#include <cstdint>
#include <memory>
#include <string>

#include "moxphone/Catalogue.h"
#include "moxphone/DiscSource.h"
#include "moxphone/Envelope.h"
#include "moxphone/Faults.h"
#include "moxphone/PhoneFrames.h"

namespace moxphone {

struct PhoneOptions {
    static constexpr uint32_t kDefaultChunkSize = 4096;
    // The largest payload whose chunk still fits one envelope.
    static constexpr uint32_t kMaxChunkSize =
        Envelope::kMaxLength - 1 - static_cast<uint32_t>(PhoneFrames::kChunkPayloadOffset);
    static constexpr uint16_t kDefaultNotFoundStatus = 404;

    std::shared_ptr<const Catalogue> catalogue;  // required
    // Where discs are looked up; null: the catalogue (PhoneSourceOptions).
    std::shared_ptr<const DiscSource> source;
    uint32_t chunkSize = kDefaultChunkSize;            // payload bytes per 0x8012 chunk
    uint16_t notFoundStatus = kDefaultNotFoundStatus;  // status of the notice for an unknown disc
    uint8_t osType = Envelope::kOsAndroid;             // of the device info
    std::string deviceName = "mox-phone";              // of the device info
    Faults faults;
    // Factor on every delay of the phone (slow chunks), like the module's
    // timers under HB_TIMER_SCALE.
    double timeScale = 1.0;

    // False, with a one-line reason, when no catalogue is set, the chunk size
    // is outside 1 to kMaxChunkSize, the not-found status is 0 or the time
    // scale is outside (0, 1000].
    bool validate(std::string* error) const;

    // The factor of the environment variable HB_TIMER_SCALE, read by the same
    // rule as the host timer manager: a number in (0, 1000], else 1.0.
    static double timeScaleFromEnvironment();
    // "android" -> 1, "ios" -> 0; false for anything else.
    static bool parseOs(const std::string& text, uint8_t* osType);
};

}  // namespace moxphone

#endif  // MOXPHONE_PHONEOPTIONS_H
