// The common path of the online sources: disc, cache, service, answer.
#include "moxphone/OnlineSource.h"

#include "DiscIds.h"
#include "moxdb/TocText.h"
#include "moxphone/ResponseDatabase.h"

namespace moxphone {

OnlineSource::OnlineSource(const std::string& name, const Settings& settings)
    : mName(name),
      mSettings(settings),
      mCache(settings.cacheDirectory, settings.cacheDays),
      mHttp(settings.userAgent, settings.timeScale) {}

bool OnlineSource::discOf(const std::string& toc, DiscQuery* disc) {
    std::vector<uint32_t> offsets;
    if (!moxdb::parseTocText(toc, &offsets)) {
        return false;
    }
    DiscQuery query;
    query.toc = toc;
    query.leadOut = offsets.back();
    offsets.pop_back();
    query.tracks = offsets;
    const std::vector<uint32> tracks(offsets.begin(), offsets.end());
    std::string why;
    if (!computeDiscIds(1, tracks, query.leadOut, &query.musicBrainzId, &query.freedbId, &why)) {
        return false;
    }
    *disc = query;
    return true;
}

OnlineSource::Fetch OnlineSource::unanswered(const HttpFetcher::Response& response) {
    Fetch fetch;
    fetch.outcome = response.outcome == HttpFetcher::Response::Outcome::kTimedOut
                        ? Outcome::kTimedOut
                        : Outcome::kFailed;
    fetch.reason = response.error;
    return fetch;
}

OnlineSource::Fetch OnlineSource::failed(const std::string& reason) {
    Fetch fetch;
    fetch.outcome = Outcome::kFailed;
    fetch.reason = reason;
    return fetch;
}

DiscAnswer OnlineSource::lookUp(const std::string& toc, LookupControl& control) const {
    DiscAnswer answer;
    DiscQuery disc;
    if (!discOf(toc, &disc)) {
        answer.summary =
            "the TOC text does not follow the tools' convention; not looked up in " + mName;
        return answer;
    }
    answer.notes.push_back("disc IDs: MusicBrainz " + disc.musicBrainzId + ", FreeDB " +
                           disc.freedbId);
    const std::string key = cacheKey(disc);
    std::vector<FoundAlbum> albums;
    std::string note;
    const bool cached = mCache.load(server(), key, toc, &albums, &note);
    if (!note.empty()) {
        answer.notes.push_back(note);
    }
    if (cached) {
        return found(toc, albums, answer, " (from the cache)");
    }
    if (mSettings.offline) {
        answer.summary = "offline: the cache holds no answer of " + mName + " for the disc";
        return answer;
    }
    const Fetch fetched = fetch(disc, control, &answer.notes);
    if (fetched.outcome != Outcome::kFound) {
        const bool late = fetched.outcome == Outcome::kTimedOut;
        answer.outcome = DiscAnswer::Outcome::kFailed;
        answer.status = late ? kServiceTimedOutStatus : kServiceFailedStatus;
        answer.summary = mName + (late ? " did not answer in time: " : " failed: ") +
                         fetched.reason + "; answered with status " + std::to_string(answer.status);
        return answer;
    }
    if (fetched.albums.empty()) {
        answer.summary = mName + " does not know the disc";
        return answer;
    }
    mCache.store(server(), key, toc, fetched.albums, &note);
    if (!note.empty()) {
        answer.notes.push_back(note);
    }
    return found(toc, fetched.albums, answer, "");
}

DiscAnswer OnlineSource::found(const std::string& toc, const std::vector<FoundAlbum>& albums,
                               DiscAnswer answer, const std::string& from) const {
    answer.outcome = DiscAnswer::Outcome::kFound;
    answer.database = ResponseDatabase::build(toc, albums);
    answer.summary = mName + from + ": " + std::to_string(albums.size()) +
                     (albums.size() == 1 ? " candidate" : " candidates") +
                     ", a response database of " + std::to_string(answer.database.size()) +
                     " bytes";
    return answer;
}

}  // namespace moxphone
