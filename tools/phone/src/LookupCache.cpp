// The on-disk cache of online answers.
#include "moxphone/LookupCache.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <thread>

#include "moxphone/OnlineText.h"

namespace moxphone {

namespace {

using Json = nlohmann::json;

constexpr int kFormat = 1;
constexpr int64_t kSecondsPerDay = 86400;

int64_t nowSeconds() {
    return std::chrono::duration_cast<std::chrono::seconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

// FNV-1a, 64 bits: a short, stable name for a server URL.
std::string hashText(const std::string& text) {
    uint64_t hash = 14695981039346656037ull;
    for (const char c : text) {
        hash ^= static_cast<unsigned char>(c);
        hash *= 1099511628211ull;
    }
    char digits[17];
    std::snprintf(digits, sizeof(digits), "%016llx", static_cast<unsigned long long>(hash));
    return digits;
}

// A disc ID as part of a file name: letters, digits, '-' and '_' kept, '.'
// and anything else written as '_'.
std::string fileWord(const std::string& text) {
    std::string word;
    for (const char c : text) {
        const bool keep = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                          (c >= '0' && c <= '9') || c == '-' || c == '_';
        word += keep ? c : '_';
    }
    return word;
}

bool makeDirectories(const std::string& path) {
    std::string partial;
    std::istringstream parts(path);
    std::string part;
    if (!path.empty() && path[0] == '/') {
        partial = "/";
    }
    while (std::getline(parts, part, '/')) {
        if (part.empty()) {
            continue;
        }
        partial += part + "/";
        if (::mkdir(partial.c_str(), 0700) != 0 && errno != EEXIST) {
            return false;
        }
    }
    return true;
}

Json trackToJson(const CatalogueTrack& track) {
    return Json{{"title", track.title}, {"performer", track.performer}, {"genre", track.genre}};
}

Json albumToJson(const FoundAlbum& found) {
    Json media = Json::array();
    for (const CatalogueMedium& medium : found.album.media) {
        Json tracks = Json::array();
        for (const CatalogueTrack& track : medium.tracks) {
            tracks.push_back(trackToJson(track));
        }
        media.push_back(Json{{"tracks", tracks}});
    }
    return Json{{"id", found.album.id},
                {"title", found.album.title},
                {"genre", found.album.genre},
                {"language", found.album.language},
                {"medium", found.medium},
                {"confidence", found.confidence},
                {"media", media}};
}

bool textOf(const Json& object, const char* key, std::string* out) {
    const auto found = object.find(key);
    if (found == object.end() || !found->is_string()) {
        return false;
    }
    *out = OnlineText::fit(found->get<std::string>());
    return true;
}

bool trackOf(const Json& json, CatalogueTrack* track) {
    return json.is_object() && textOf(json, "title", &track->title) &&
           textOf(json, "performer", &track->performer) && textOf(json, "genre", &track->genre);
}

bool mediumOf(const Json& json, CatalogueMedium* medium) {
    if (!json.is_object() || !json.contains("tracks") || !json["tracks"].is_array()) {
        return false;
    }
    for (const Json& entry : json["tracks"]) {
        CatalogueTrack track;
        if (!trackOf(entry, &track)) {
            return false;
        }
        medium->tracks.push_back(track);
    }
    return true;
}

bool albumOf(const Json& json, FoundAlbum* found) {
    CatalogueAlbum& album = found->album;
    if (!json.is_object() || !textOf(json, "id", &album.id) ||
        !textOf(json, "title", &album.title) || !textOf(json, "genre", &album.genre) ||
        !textOf(json, "language", &album.language) || !json.contains("medium") ||
        !json["medium"].is_number_unsigned() || !json.contains("confidence") ||
        !json["confidence"].is_number_integer() || !json.contains("media") ||
        !json["media"].is_array()) {
        return false;
    }
    for (const Json& entry : json["media"]) {
        CatalogueMedium medium;
        if (!mediumOf(entry, &medium)) {
            return false;
        }
        album.media.push_back(medium);
    }
    const uint64_t medium = json["medium"].get<uint64_t>();
    const int64_t confidence = json["confidence"].get<int64_t>();
    if (medium < 1 || medium > album.media.size() || confidence < INT32_MIN ||
        confidence > INT32_MAX) {
        return false;
    }
    found->medium = static_cast<uint16_t>(medium);
    found->confidence = static_cast<int32_t>(confidence);
    return true;
}

bool readWhole(const std::string& path, std::string* text) {
    struct stat info;
    if (::stat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode) ||
        static_cast<uintmax_t>(info.st_size) > LookupCache::kMaxFileBytes) {
        return false;
    }
    std::ifstream in(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << in.rdbuf();
    *text = bytes.str();
    return static_cast<bool>(in);
}

}  // namespace

LookupCache::LookupCache(const std::string& directory, unsigned days)
    : mDirectory(directory.empty() ? defaultDirectory() : directory), mDays(days) {}

std::string LookupCache::defaultDirectory() {
    const char* cache = std::getenv("XDG_CACHE_HOME");
    if (cache != nullptr && cache[0] == '/') {
        return std::string(cache) + "/mox";
    }
    const char* home = std::getenv("HOME");
    if (home != nullptr && home[0] == '/') {
        return std::string(home) + "/.cache/mox";
    }
    return std::string();
}

std::string LookupCache::pathOf(const std::string& server, const std::string& discId) const {
    return mDirectory + "/" + hashText(server) + "-" + fileWord(discId) + ".json";
}

bool LookupCache::load(const std::string& server, const std::string& discId, const std::string& toc,
                       std::vector<FoundAlbum>* albums, std::string* note) const {
    note->clear();
    if (!enabled()) {
        return false;
    }
    const std::string path = pathOf(server, discId);
    if (::access(path.c_str(), F_OK) != 0) {
        return false;
    }
    std::string text;
    const Json root = readWhole(path, &text) ? Json::parse(text, nullptr, false) : Json();
    std::vector<FoundAlbum> found;
    std::string savedServer;
    std::string savedToc;
    bool valid = root.is_object() && root.contains("format") && root["format"] == kFormat &&
                 textOf(root, "server", &savedServer) && savedServer == server &&
                 textOf(root, "toc", &savedToc) && savedToc == toc && root.contains("saved") &&
                 root["saved"].is_number_integer() && root.contains("albums") &&
                 root["albums"].is_array() && !root["albums"].empty();
    for (size_t i = 0; valid && i < root["albums"].size(); ++i) {
        FoundAlbum album;
        valid = albumOf(root["albums"][i], &album);
        found.push_back(album);
    }
    if (!valid) {
        *note = "the cache file " + path + " is not a cached answer of this disc; ignored";
        return false;
    }
    const int64_t age = nowSeconds() - root["saved"].get<int64_t>();
    if (age < 0 || age > static_cast<int64_t>(mDays) * kSecondsPerDay) {
        *note =
            "the cache file " + path + " is older than " + std::to_string(mDays) + " days; ignored";
        return false;
    }
    *albums = found;
    *note = "answered from the cache file " + path;
    return true;
}

bool LookupCache::store(const std::string& server, const std::string& discId,
                        const std::string& toc, const std::vector<FoundAlbum>& albums,
                        std::string* note) const {
    note->clear();
    if (!enabled() || albums.empty()) {
        return false;
    }
    Json list = Json::array();
    for (const FoundAlbum& album : albums) {
        list.push_back(albumToJson(album));
    }
    const Json root = {{"format", kFormat}, {"server", server},      {"disc", discId},
                       {"toc", toc},        {"saved", nowSeconds()}, {"albums", list}};
    const std::string path = pathOf(server, discId);
    const std::string temporary =
        path + "." + std::to_string(::getpid()) + "." +
        std::to_string(std::hash<std::thread::id>()(std::this_thread::get_id())) + ".tmp";
    if (!makeDirectories(mDirectory)) {
        *note = "cannot make the cache folder " + mDirectory + ": " + std::strerror(errno);
        return false;
    }
    {
        std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
        out << root.dump(-1, ' ', false, Json::error_handler_t::replace) << "\n";
        if (!out) {
            *note = "cannot write the cache file " + temporary;
            std::remove(temporary.c_str());
            return false;
        }
    }
    if (std::rename(temporary.c_str(), path.c_str()) != 0) {
        *note = "cannot write the cache file " + path + ": " + std::strerror(errno);
        std::remove(temporary.c_str());
        return false;
    }
    *note = "the answer is kept in the cache file " + path;
    return true;
}

}  // namespace moxphone
