// What the online sources share: the disc from the request's TOC text (its
// offsets by the tools' convention, its disc IDs with libdiscid; a text of
// another form is not looked up and answered as not found), the cache, the
// offline mode, HTTP, and the answer built from the albums found.
//
// Outcomes: albums found -> the response database; none -> not found; the
// service failed (an HTTP error, an answer that is malformed or too large)
// -> DiscSource::kServiceFailedStatus; no answer by the deadline ->
// DiscSource::kServiceTimedOutStatus.
#ifndef MOXPHONE_ONLINESOURCE_H
#define MOXPHONE_ONLINESOURCE_H

#include <string>
#include <vector>

#include "moxphone/DiscSource.h"
#include "moxphone/HttpFetcher.h"
#include "moxphone/LookupCache.h"
#include "moxphone/OnlineRecords.h"

namespace moxphone {

class OnlineSource : public DiscSource {
public:
    struct Settings {
        std::string server;     // the service's URL
        std::string userAgent;  // HttpFetcher::userAgent
        double timeScale = 1.0;
        unsigned cacheDays = LookupCache::kDefaultDays;
        std::string cacheDirectory;  // "" : LookupCache::defaultDirectory()
        bool offline = false;        // answer from the cache alone
    };

    bool answersAtOnce() const override { return false; }
    DiscAnswer lookUp(const std::string& toc, LookupControl& control) const override;

    // The disc of a TOC text in the tools' convention; false for any other text.
    static bool discOf(const std::string& toc, DiscQuery* disc);

protected:
    enum class Outcome { kFound, kFailed, kTimedOut };
    struct Fetch {
        Outcome outcome = Outcome::kFound;
        std::vector<FoundAlbum> albums;  // kFound; empty: the disc is not known
        std::string reason;              // kFailed, kTimedOut: one line
    };

    // `name` names the service in the log ("MusicBrainz").
    OnlineSource(const std::string& name, const Settings& settings);

    // The disc ID that the cache keys the answer by.
    virtual std::string cacheKey(const DiscQuery& disc) const = 0;
    // Asks the service; one log line per request goes to `notes`.
    virtual Fetch fetch(const DiscQuery& disc, LookupControl& control,
                        std::vector<std::string>* notes) const = 0;

    // A fetch that ends with a response that is not an answer.
    static Fetch unanswered(const HttpFetcher::Response& response);
    static Fetch failed(const std::string& reason);

    const std::string& server() const { return mSettings.server; }
    const HttpFetcher& http() const { return mHttp; }

private:
    DiscAnswer found(const std::string& toc, const std::vector<FoundAlbum>& albums,
                     DiscAnswer answer, const std::string& from) const;

    const std::string mName;
    const Settings mSettings;
    const LookupCache mCache;
    const HttpFetcher mHttp;
};

}  // namespace moxphone

#endif  // MOXPHONE_ONLINESOURCE_H
