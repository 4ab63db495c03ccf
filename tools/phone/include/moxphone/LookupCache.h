// Answers of the online services kept on disk, so that a disc looked up once
// can be looked up again without the network: one JSON file per server and
// disc ID in $XDG_CACHE_HOME/mox/ (or ~/.cache/mox/), holding the candidate
// albums found, the TOC text and the time they were saved. An answer older
// than the cache's days, for another TOC text, or in a file that cannot be
// read as one is not used (and a new answer replaces the file). Only answers
// with albums are kept. Files are written whole under a temporary name and
// renamed, so lookups in several processes may share the folder.
#ifndef MOXPHONE_LOOKUPCACHE_H
#define MOXPHONE_LOOKUPCACHE_H

#include <cstdint>
#include <string>
#include <vector>

#include "moxphone/OnlineRecords.h"

namespace moxphone {

class LookupCache {
public:
    static constexpr unsigned kDefaultDays = 30;
    // A cache file larger than this is not read.
    static constexpr uintmax_t kMaxFileBytes = 8 * 1024 * 1024;

    // `directory` "" means defaultDirectory(). `days` 0 turns the cache off.
    LookupCache(const std::string& directory, unsigned days);

    // $XDG_CACHE_HOME/mox, else $HOME/.cache/mox; "" when neither is set.
    static std::string defaultDirectory();

    bool enabled() const { return mDays > 0 && !mDirectory.empty(); }
    // The file of `server` and `discId`.
    std::string pathOf(const std::string& server, const std::string& discId) const;
    // The cached albums of the disc; false when there are none to use, with
    // a log line in `note` when a file was there but not used.
    bool load(const std::string& server, const std::string& discId, const std::string& toc,
              std::vector<FoundAlbum>* albums, std::string* note) const;
    // Keeps `albums`; false with a log line in `note` when it cannot.
    bool store(const std::string& server, const std::string& discId, const std::string& toc,
               const std::vector<FoundAlbum>& albums, std::string* note) const;

private:
    std::string mDirectory;
    unsigned mDays;
};

}  // namespace moxphone

#endif  // MOXPHONE_LOOKUPCACHE_H
