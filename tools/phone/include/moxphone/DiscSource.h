// Where the simulated phone looks a disc up: its catalogue (CatalogueSource),
// MusicBrainz (MusicBrainzSource) or a CDDB server (CddbSource). Every source
// answers with a response database built by the writer library, which the
// session then announces and sends in chunks like any other, faults and all.
//
// A source that answers at once is asked on the session's own thread; any
// other is asked on a worker thread of the session (PendingLookup), so that
// a slow service delays no other module, and must end by the control's
// deadline. A source is shared by every session of a phone: lookUp must be
// thread-safe.
#ifndef MOXPHONE_DISCSOURCE_H
#define MOXPHONE_DISCSOURCE_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "moxdb/DbBytes.h"
#include "moxphone/LookupControl.h"

namespace moxphone {

struct DiscAnswer {
    enum class Outcome { kFound, kNotFound, kFailed };

    Outcome outcome = Outcome::kNotFound;
    uint16_t status = 0;             // kFailed: the status of the notice
    moxdb::Bytes database;           // kFound: the response database
    std::vector<std::string> notes;  // log lines of the lookup, in order
    std::string summary;             // the log line of the outcome
};

class DiscSource {
public:
    // The notice's status when the online service failed (an HTTP error, an
    // answer that is malformed or too large), and when it did not answer in time.
    static constexpr uint16_t kServiceFailedStatus = 502;
    static constexpr uint16_t kServiceTimedOutStatus = 504;

    virtual ~DiscSource() {}
    // True when lookUp answers without waiting for anything (the catalogue).
    virtual bool answersAtOnce() const = 0;
    // The disc whose TOC text is `toc`.
    virtual DiscAnswer lookUp(const std::string& toc, LookupControl& control) const = 0;
};

}  // namespace moxphone

#endif  // MOXPHONE_DISCSOURCE_H
