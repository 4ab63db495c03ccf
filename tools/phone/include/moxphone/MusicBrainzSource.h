// MusicBrainz as a source of the phone: one request per disc,
//
//   GET <server>/ws/2/discid/<disc ID>?toc=<first>+<last>+<lead-out>+<offsets...>
//       &inc=recordings+artist-credits+release-groups+genres&cdstubs=no&fmt=json
//
// read by MusicBrainzParser. Status 404 means the disc is not known; any
// other status than 200 (503 after its retries) is a failure of the service.
#ifndef MOXPHONE_MUSICBRAINZSOURCE_H
#define MOXPHONE_MUSICBRAINZSOURCE_H

#include <string>
#include <vector>

#include "moxphone/OnlineSource.h"

namespace moxphone {

class MusicBrainzSource : public OnlineSource {
public:
    static constexpr const char* kDefaultServer = "https://musicbrainz.org";

    explicit MusicBrainzSource(const Settings& settings) : OnlineSource("MusicBrainz", settings) {}

    // The request's URL for `disc` on `server`.
    static std::string requestUrl(const std::string& server, const DiscQuery& disc);

protected:
    std::string cacheKey(const DiscQuery& disc) const override { return disc.musicBrainzId; }
    Fetch fetch(const DiscQuery& disc, LookupControl& control,
                std::vector<std::string>* notes) const override;
};

}  // namespace moxphone

#endif  // MOXPHONE_MUSICBRAINZSOURCE_H
