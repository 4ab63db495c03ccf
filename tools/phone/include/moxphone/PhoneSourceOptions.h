// The options that choose where the simulated phone looks discs up, shared
// by mox-phone and the built-in phone of `mox lookup`:
//
//   --source catalog|musicbrainz|cddb   (default catalog: the catalogue)
//   --musicbrainz-server URL            (default https://musicbrainz.org)
//   --cddb-server URL                   (a cddb.cgi URL; needed by --source cddb)
//   --cache-days N                      (default 30; 0: no cache)
//   --offline                           (answer from the cache alone)
//
// The online sources are built in when libcurl was found at configure time;
// otherwise choosing one is refused with a reason.
#ifndef MOXPHONE_PHONESOURCEOPTIONS_H
#define MOXPHONE_PHONESOURCEOPTIONS_H

#include <memory>
#include <string>

#include "moxphone/DiscSource.h"

namespace CLI {
class App;
}

namespace moxphone {

class PhoneSourceOptions {
public:
    std::string source = "catalog";
    std::string musicBrainzServer;
    std::string cddbServer;
    unsigned cacheDays;
    bool offline = false;

    PhoneSourceOptions();

    // Adds the options to `app`.
    void addTo(CLI::App& app);
    // True unless an online source is chosen.
    bool isCatalogue() const { return source == "catalog"; }
    // "musicbrainz at URL, cache 30 days" (", offline"), for the log.
    std::string describe() const;
    // True when this build has the online sources.
    static bool onlineBuiltIn();
    // The chosen online source, for `tool` at `version`, with the phone's
    // time scale; null for the catalogue. False with a one-line reason when
    // the options do not go together or the source is not built in.
    bool makeSource(const std::string& tool, const std::string& version, double timeScale,
                    std::shared_ptr<const DiscSource>* out, std::string* why) const;
};

}  // namespace moxphone

#endif  // MOXPHONE_PHONESOURCEOPTIONS_H
