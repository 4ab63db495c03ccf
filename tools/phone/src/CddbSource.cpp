// Queries and reads of a CDDB server.
#include "moxphone/CddbSource.h"

#include <algorithm>

#include "moxphone/CddbProtocol.h"
#include "moxphone/OnlineText.h"
#include "moxphone/XmcdParser.h"

namespace moxphone {

namespace {

constexpr uint32_t kFramesPerSecond = 75;

}  // namespace

std::string CddbSource::tail() const {
    return "&hello=" + std::string(kHello) + mVersion + "&proto=6";
}

std::string CddbSource::queryUrl(const DiscQuery& disc) const {
    std::string url =
        server() + "?cmd=cddb+query+" + disc.freedbId + "+" + std::to_string(disc.tracks.size());
    for (const uint32_t offset : disc.tracks) {
        url += "+" + std::to_string(offset);
    }
    return url + "+" + std::to_string(disc.leadOut / kFramesPerSecond) + tail();
}

std::string CddbSource::readUrl(const std::string& category, const std::string& discId) const {
    return server() + "?cmd=cddb+read+" + category + "+" + discId + tail();
}

bool CddbSource::answer(const std::string& url, LookupControl& control,
                        std::vector<std::string>* notes, std::string* text, Fetch* ended) const {
    const HttpFetcher::Response response = http().get(url, control, notes);
    if (response.outcome != HttpFetcher::Response::Outcome::kAnswered) {
        *ended = unanswered(response);
        return false;
    }
    if (response.status != 200) {
        *ended = failed("HTTP status " + std::to_string(response.status));
        return false;
    }
    *text = OnlineText::decode(response.body);
    return true;
}

OnlineSource::Fetch CddbSource::fetch(const DiscQuery& disc, LookupControl& control,
                                      std::vector<std::string>* notes) const {
    Fetch result;
    std::string text;
    if (!answer(queryUrl(disc), control, notes, &text, &result)) {
        return result;
    }
    std::vector<CddbProtocol::Match> matches;
    std::string why;
    const CddbProtocol::QueryResult query = CddbProtocol::parseQuery(text, &matches, &why);
    if (query == CddbProtocol::QueryResult::kBroken) {
        return failed(why);
    }
    std::string lastProblem;
    for (const CddbProtocol::Match& match : matches) {
        Fetch ended;
        if (!answer(readUrl(match.category, match.discId), control, notes, &text, &ended)) {
            if (ended.outcome == Outcome::kTimedOut) {
                return ended;
            }
            lastProblem = ended.reason;
            continue;
        }
        std::string entry;
        FoundAlbum found;
        if (!CddbProtocol::parseRead(text, &entry, &why) ||
            !XmcdParser::parse(entry, match.category, match.discId, &found.album, &why)) {
            notes->push_back("the entry " + match.category + "/" + match.discId +
                             " is left out: " + why);
            lastProblem = why;
            continue;
        }
        found.confidence = match.exact ? kExactConfidence : kInexactConfidence;
        result.albums.push_back(found);
    }
    if (result.albums.empty() && !matches.empty()) {
        return failed("no entry of the " + std::to_string(matches.size()) +
                      " matches could be read: " + lastProblem);
    }
    std::stable_sort(
        result.albums.begin(), result.albums.end(),
        [](const FoundAlbum& a, const FoundAlbum& b) { return a.confidence > b.confidence; });
    return result;
}

}  // namespace moxphone
