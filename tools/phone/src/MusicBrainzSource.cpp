// Disc ID lookups in the MusicBrainz web service.
#include "moxphone/MusicBrainzSource.h"

#include "moxphone/MusicBrainzParser.h"

namespace moxphone {

namespace {

std::string withoutTrailingSlash(const std::string& url) {
    std::string text = url;
    while (!text.empty() && text.back() == '/') {
        text.pop_back();
    }
    return text;
}

}  // namespace

std::string MusicBrainzSource::requestUrl(const std::string& server, const DiscQuery& disc) {
    std::string toc =
        "1+" + std::to_string(disc.tracks.size()) + "+" + std::to_string(disc.leadOut);
    for (const uint32_t offset : disc.tracks) {
        toc += "+" + std::to_string(offset);
    }
    return withoutTrailingSlash(server) + "/ws/2/discid/" + disc.musicBrainzId + "?toc=" + toc +
           "&inc=recordings+artist-credits+release-groups+genres&cdstubs=no&fmt=json";
}

OnlineSource::Fetch MusicBrainzSource::fetch(const DiscQuery& disc, LookupControl& control,
                                             std::vector<std::string>* notes) const {
    const HttpFetcher::Response response = http().get(requestUrl(server(), disc), control, notes);
    if (response.outcome != HttpFetcher::Response::Outcome::kAnswered) {
        return unanswered(response);
    }
    Fetch result;
    if (response.status == 404) {
        return result;
    }
    if (response.status != 200) {
        return failed("HTTP status " + std::to_string(response.status));
    }
    std::string why;
    if (!MusicBrainzParser::parse(response.body, disc, &result.albums, &why)) {
        return failed(why);
    }
    return result;
}

}  // namespace moxphone
