// --source and its companions.
#include "moxphone/PhoneSourceOptions.h"

#include <CLI/CLI.hpp>

#include "moxphone/LookupCache.h"

#ifdef MOXPHONE_ONLINE
#include "moxphone/CddbSource.h"
#include "moxphone/HttpFetcher.h"
#include "moxphone/MusicBrainzSource.h"
#endif

namespace moxphone {

namespace {

const char* const kDefaultMusicBrainzServer = "https://musicbrainz.org";

bool isHttpUrl(const std::string& url) {
    return url.rfind("http://", 0) == 0 || url.rfind("https://", 0) == 0;
}

}  // namespace

PhoneSourceOptions::PhoneSourceOptions()
    : musicBrainzServer(kDefaultMusicBrainzServer), cacheDays(LookupCache::kDefaultDays) {}

void PhoneSourceOptions::addTo(CLI::App& app) {
    // The value names are given, so that the help (and the manual pages made
    // from it) shows no parser type notes.
    app.add_option("--source", source,
                   "Where discs are looked up: catalog (the catalogue, the default), musicbrainz "
                   "or cddb")
        ->check(CLI::IsMember({"catalog", "musicbrainz", "cddb"}))
        ->option_text("catalog|musicbrainz|cddb");
    app.add_option("--musicbrainz-server", musicBrainzServer,
                   std::string("MusicBrainz server of --source musicbrainz (default ") +
                       kDefaultMusicBrainzServer + ")")
        ->option_text("URL");
    app.add_option("--cddb-server", cddbServer,
                   "cddb.cgi URL of --source cddb, such as "
                   "https://gnudb.gnudb.org/~cddb/cddb.cgi")
        ->option_text("URL");
    app.add_option("--cache-days", cacheDays,
                   "Days an online answer is kept in $XDG_CACHE_HOME/mox (default " +
                       std::to_string(LookupCache::kDefaultDays) + "; 0: no cache)")
        ->option_text("N");
    app.add_flag("--offline", offline, "Answer online lookups from the cache alone");
}

std::string PhoneSourceOptions::describe() const {
    if (isCatalogue()) {
        return "the catalogue";
    }
    const std::string server = source == "cddb" ? cddbServer : musicBrainzServer;
    return source + " at " + server + ", cache " + std::to_string(cacheDays) + " days" +
           (offline ? ", offline" : "");
}

bool PhoneSourceOptions::onlineBuiltIn() {
#ifdef MOXPHONE_ONLINE
    return true;
#else
    return false;
#endif
}

bool PhoneSourceOptions::makeSource(const std::string& tool, const std::string& version,
                                    double timeScale, std::shared_ptr<const DiscSource>* out,
                                    std::string* why) const {
    out->reset();
    if (isCatalogue()) {
        return true;
    }
    if (!onlineBuiltIn()) {
        *why = "--source " + source + " is not built in (libcurl was not found when " + tool +
               " was built)";
        return false;
    }
    const bool cddb = source == "cddb";
    const std::string server = cddb ? cddbServer : musicBrainzServer;
    const std::string option = cddb ? "--cddb-server" : "--musicbrainz-server";
    if (server.empty()) {
        *why = "--source " + source + " needs " + option + " URL";
        return false;
    }
    if (!isHttpUrl(server)) {
        *why = option + " takes an http:// or https:// URL, not '" + server + "'";
        return false;
    }
    if (offline && cacheDays == 0) {
        *why = "--offline answers from the cache alone, which --cache-days 0 turns off";
        return false;
    }
#ifdef MOXPHONE_ONLINE
    OnlineSource::Settings settings;
    settings.server = server;
    settings.userAgent = HttpFetcher::userAgent(tool, version, MOXPHONE_CONTACT);
    settings.timeScale = timeScale;
    settings.cacheDays = cacheDays;
    settings.offline = offline;
    if (cddb) {
        *out = std::make_shared<CddbSource>(settings, version);
    } else {
        *out = std::make_shared<MusicBrainzSource>(settings);
    }
#else
    (void)timeScale;
#endif
    return true;
}

}  // namespace moxphone
