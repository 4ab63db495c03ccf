// A CDDB server (the cddb.cgi protocol over HTTP, level 6) as a source of
// the phone: a query with the FreeDB disc ID, the track count, the offsets
// and the disc's length in seconds, then a read of each match,
//
//   GET <server>?cmd=cddb+query+<id>+<tracks>+<offsets...>+<seconds>&hello=...&proto=6
//   GET <server>?cmd=cddb+read+<category>+<id>&hello=...&proto=6
//
// read by CddbProtocol and XmcdParser. Exact matches (200, 210) get
// kExactConfidence, inexact ones (211) kInexactConfidence; matches keep the
// server's order within each. A match whose read fails is left out (logged).
#ifndef MOXPHONE_CDDBSOURCE_H
#define MOXPHONE_CDDBSOURCE_H

#include <string>
#include <vector>

#include "moxphone/OnlineSource.h"

namespace moxphone {

class CddbSource : public OnlineSource {
public:
    static constexpr int32_t kExactConfidence = 100;
    static constexpr int32_t kInexactConfidence = 50;
    // The hello of every request: user, host, program, version. No user's
    // or host's name is sent.
    static constexpr const char* kHello = "anonymous+localhost+mox-phone+";

    CddbSource(const Settings& settings, const std::string& version)
        : OnlineSource("the CDDB server", settings), mVersion(version) {}

    std::string queryUrl(const DiscQuery& disc) const;
    std::string readUrl(const std::string& category, const std::string& discId) const;

protected:
    std::string cacheKey(const DiscQuery& disc) const override { return disc.freedbId; }
    Fetch fetch(const DiscQuery& disc, LookupControl& control,
                std::vector<std::string>* notes) const override;

private:
    std::string tail() const;
    // One answer of the server as text, or a fetch that ends the lookup.
    bool answer(const std::string& url, LookupControl& control, std::vector<std::string>* notes,
                std::string* text, Fetch* ended) const;

    const std::string mVersion;
};

}  // namespace moxphone

#endif  // MOXPHONE_CDDBSOURCE_H
