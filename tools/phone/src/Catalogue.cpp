// Loading and checking of the catalogue JSON. Every check names the JSON path
// of the value it refuses; objects keep their document order, so "the first
// problem" is the first one a reader of the file meets.
#include "moxphone/Catalogue.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>
#include <set>

#include "moxdb/DbBytes.h"
#include "moxdb/DbRecords.h"
#include "moxphone/CatalogueLocation.h"

namespace moxphone {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::streamoff kMaxFileBytes = 64 * 1024 * 1024;
constexpr size_t kTocEntryDigits = 6;
constexpr int64_t kMaxMedia = 65535;  // the medium number of a TOC record is 16 bits

bool fail(CatalogueProblem* problem, const std::string& path, const std::string& reason) {
    problem->path = path;
    problem->reason = reason;
    return false;
}

std::string typeName(const Json& value) {
    if (value.is_null()) {
        return "null";
    }
    if (value.is_boolean()) {
        return "a boolean";
    }
    if (value.is_number_integer()) {
        return "an integer";
    }
    if (value.is_number()) {
        return "a number with a fraction";
    }
    if (value.is_string()) {
        return "a string";
    }
    if (value.is_array()) {
        return "an array";
    }
    return "an object";
}

bool isIdentifier(const std::string& key) {
    if (key.empty()) {
        return false;
    }
    for (size_t i = 0; i < key.size(); ++i) {
        const char c = key[i];
        const bool letter =
            (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' || c == '$';
        const bool digit = c >= '0' && c <= '9';
        if (!letter && !(digit && i > 0)) {
            return false;
        }
    }
    return true;
}

std::string member(const std::string& path, const std::string& key) {
    if (isIdentifier(key)) {
        return path + "." + key;
    }
    return path + "[" + Json(key).dump(-1, ' ', false, Json::error_handler_t::replace) + "]";
}

std::string element(const std::string& path, size_t index) {
    return path + "[" + std::to_string(index) + "]";
}

bool checkObject(const Json& value, const std::string& path, CatalogueProblem* problem) {
    if (!value.is_object()) {
        return fail(problem, path, "must be an object, not " + typeName(value));
    }
    return true;
}

// Refuses any key but the allowed ones, so a misspelt key is reported.
bool checkKeys(const Json& object, const std::string& path, const std::set<std::string>& allowed,
               CatalogueProblem* problem) {
    for (auto it = object.begin(); it != object.end(); ++it) {
        if (allowed.count(it.key()) == 0) {
            return fail(problem, member(path, it.key()), "unknown key");
        }
    }
    if (object.contains("note") && !object["note"].is_string()) {
        return fail(problem, member(path, "note"),
                    "must be a string, not " + typeName(object["note"]));
    }
    return true;
}

bool present(const Json& object, const char* key, const std::string& path,
             CatalogueProblem* problem) {
    if (!object.contains(key)) {
        return fail(problem, path, std::string("\"") + key + "\" is missing");
    }
    return true;
}

bool getText(const Json& object, const char* key, const std::string& path, bool mayBeEmpty,
             std::string* out, CatalogueProblem* problem) {
    if (!present(object, key, path, problem)) {
        return false;
    }
    const Json& value = object[key];
    const std::string where = member(path, key);
    if (!value.is_string()) {
        return fail(problem, where, "must be a string, not " + typeName(value));
    }
    const std::string text = value.get<std::string>();
    if (text.empty() && !mayBeEmpty) {
        return fail(problem, where, "must not be empty");
    }
    const size_t units = moxdb::utf8ToUtf16(text).size();
    if (units > moxdb::kStringMaxUnits) {
        return fail(problem, where,
                    "is " + std::to_string(units) +
                        " UTF-16 units long; a response database holds at most " +
                        std::to_string(moxdb::kStringMaxUnits));
    }
    *out = text;
    return true;
}

bool getInteger(const Json& object, const char* key, const std::string& path, int64_t minimum,
                int64_t maximum, int64_t* out, CatalogueProblem* problem) {
    if (!present(object, key, path, problem)) {
        return false;
    }
    const Json& value = object[key];
    const std::string where = member(path, key);
    if (!value.is_number_integer()) {
        return fail(problem, where, "must be an integer, not " + typeName(value));
    }
    const bool tooBig =
        value.is_number_unsigned() && value.get<uint64_t>() > static_cast<uint64_t>(maximum);
    const int64_t number = tooBig ? maximum : value.get<int64_t>();
    if (tooBig || number < minimum || number > maximum) {
        return fail(problem, where,
                    "must be from " + std::to_string(minimum) + " to " + std::to_string(maximum) +
                        ", not " + value.dump());
    }
    *out = number;
    return true;
}

bool getArray(const Json& object, const char* key, const std::string& path, const Json** out,
              CatalogueProblem* problem) {
    if (!present(object, key, path, problem)) {
        return false;
    }
    const Json& value = object[key];
    if (!value.is_array()) {
        return fail(problem, member(path, key), "must be an array, not " + typeName(value));
    }
    *out = &value;
    return true;
}

bool readTrack(const Json& value, const std::string& path, CatalogueTrack* track,
               CatalogueProblem* problem) {
    return checkObject(value, path, problem) &&
           checkKeys(value, path, {"title", "performer", "genre", "note"}, problem) &&
           getText(value, "title", path, true, &track->title, problem) &&
           getText(value, "performer", path, true, &track->performer, problem) &&
           getText(value, "genre", path, false, &track->genre, problem);
}

bool readMedium(const Json& value, const std::string& path, CatalogueMedium* medium,
                CatalogueProblem* problem) {
    const Json* tracks = nullptr;
    if (!checkObject(value, path, problem) ||
        !checkKeys(value, path, {"tracks", "note"}, problem) ||
        !getArray(value, "tracks", path, &tracks, problem)) {
        return false;
    }
    const std::string tracksPath = member(path, "tracks");
    if (tracks->empty()) {
        return fail(problem, tracksPath, "must hold at least one track");
    }
    for (size_t i = 0; i < tracks->size(); ++i) {
        CatalogueTrack track;
        if (!readTrack((*tracks)[i], element(tracksPath, i), &track, problem)) {
            return false;
        }
        medium->tracks.push_back(track);
    }
    return true;
}

bool readAlbum(const Json& value, const std::string& path, CatalogueAlbum* album,
               CatalogueProblem* problem) {
    const Json* media = nullptr;
    if (!checkObject(value, path, problem) ||
        !checkKeys(value, path, {"id", "title", "genre", "language", "media", "note"}, problem) ||
        !getText(value, "id", path, false, &album->id, problem) ||
        !getText(value, "title", path, true, &album->title, problem) ||
        !getText(value, "genre", path, false, &album->genre, problem) ||
        !getText(value, "language", path, true, &album->language, problem) ||
        !getArray(value, "media", path, &media, problem)) {
        return false;
    }
    const std::string mediaPath = member(path, "media");
    if (media->empty()) {
        return fail(problem, mediaPath, "must hold at least one medium");
    }
    if (static_cast<int64_t>(media->size()) > kMaxMedia) {
        return fail(
            problem, mediaPath,
            "holds more media than a TOC record can number (" + std::to_string(kMaxMedia) + ")");
    }
    for (size_t i = 0; i < media->size(); ++i) {
        CatalogueMedium medium;
        if (!readMedium((*media)[i], element(mediaPath, i), &medium, problem)) {
            return false;
        }
        album->media.push_back(medium);
    }
    return true;
}

bool isUpperHex(char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F');
}

// The tools' TOC text: six upper-case hexadecimal digits of the frame offset
// per track and for the lead-out, the offsets increasing.
bool checkTocText(const std::string& toc, const std::string& path, CatalogueProblem* problem) {
    bool wellFormed = toc.size() >= 2 * kTocEntryDigits && toc.size() % kTocEntryDigits == 0;
    for (char c : toc) {
        wellFormed = wellFormed && isUpperHex(c);
    }
    if (!wellFormed) {
        return fail(problem, path,
                    "must be six upper-case hexadecimal digits per track and six for the "
                    "lead-out, at least one track");
    }
    const size_t entries = toc.size() / kTocEntryDigits;
    for (size_t i = 1; i < entries; ++i) {
        const std::string before = toc.substr((i - 1) * kTocEntryDigits, kTocEntryDigits);
        const std::string entry = toc.substr(i * kTocEntryDigits, kTocEntryDigits);
        if (std::stoul(entry, nullptr, 16) <= std::stoul(before, nullptr, 16)) {
            return fail(problem, path,
                        "frame offsets must increase: entry " + std::to_string(i + 1) + " (" +
                            entry + ") does not come after entry " + std::to_string(i) + " (" +
                            before + ")");
        }
    }
    return true;
}

const CatalogueAlbum* findAlbumIn(const std::vector<CatalogueAlbum>& albums,
                                  const std::string& id) {
    for (const CatalogueAlbum& album : albums) {
        if (album.id == id) {
            return &album;
        }
    }
    return nullptr;
}

bool readCandidate(const Json& value, const std::string& path,
                   const std::vector<CatalogueAlbum>& albums, CatalogueCandidate* candidate,
                   CatalogueProblem* problem) {
    std::string album;
    int64_t medium = 0;
    int64_t confidence = 0;
    if (!checkObject(value, path, problem) ||
        !checkKeys(value, path, {"album", "medium", "confidence", "note"}, problem) ||
        !getText(value, "album", path, false, &album, problem)) {
        return false;
    }
    const CatalogueAlbum* found = findAlbumIn(albums, album);
    if (found == nullptr) {
        return fail(problem, member(path, "album"), "no album has the id \"" + album + "\"");
    }
    if (!getInteger(value, "medium", path, 1, kMaxMedia, &medium, problem)) {
        return false;
    }
    if (static_cast<size_t>(medium) > found->media.size()) {
        const size_t count = found->media.size();
        return fail(problem, member(path, "medium"),
                    "album \"" + album + "\" has " + std::to_string(count) +
                        (count == 1 ? " medium" : " media") + "; there is no medium " +
                        std::to_string(medium));
    }
    if (!getInteger(value, "confidence", path, std::numeric_limits<int32_t>::min(),
                    std::numeric_limits<int32_t>::max(), &confidence, problem)) {
        return false;
    }
    candidate->album = album;
    candidate->medium = static_cast<uint16_t>(medium);
    candidate->confidence = static_cast<int32_t>(confidence);
    return true;
}

bool readDisc(const Json& value, const std::string& path, const std::vector<CatalogueAlbum>& albums,
              CatalogueDisc* disc, CatalogueProblem* problem) {
    const Json* candidates = nullptr;
    if (!checkObject(value, path, problem) ||
        !checkKeys(value, path, {"toc", "candidates", "note"}, problem) ||
        !getText(value, "toc", path, false, &disc->toc, problem) ||
        !checkTocText(disc->toc, member(path, "toc"), problem) ||
        !getArray(value, "candidates", path, &candidates, problem)) {
        return false;
    }
    const std::string candidatesPath = member(path, "candidates");
    std::map<std::string, size_t> seen;  // album id -> candidate index
    for (size_t i = 0; i < candidates->size(); ++i) {
        CatalogueCandidate candidate;
        const std::string where = element(candidatesPath, i);
        if (!readCandidate((*candidates)[i], where, albums, &candidate, problem)) {
            return false;
        }
        const auto before = seen.find(candidate.album);
        if (before != seen.end()) {
            return fail(problem, member(where, "album"),
                        "album \"" + candidate.album + "\" is already candidate " +
                            std::to_string(before->second) + " of this disc");
        }
        seen[candidate.album] = i;
        disc->candidates.push_back(candidate);
    }
    return true;
}

bool readAlbums(const Json& root, std::vector<CatalogueAlbum>* out, CatalogueProblem* problem) {
    const Json* albums = nullptr;
    if (!getArray(root, "albums", "$", &albums, problem)) {
        return false;
    }
    std::map<std::string, size_t> seen;  // id -> index
    for (size_t i = 0; i < albums->size(); ++i) {
        CatalogueAlbum album;
        const std::string where = element("$.albums", i);
        if (!readAlbum((*albums)[i], where, &album, problem)) {
            return false;
        }
        const auto before = seen.find(album.id);
        if (before != seen.end()) {
            return fail(
                problem, member(where, "id"),
                "\"" + album.id + "\" is already the id of " + element("$.albums", before->second));
        }
        seen[album.id] = i;
        out->push_back(album);
    }
    return true;
}

bool readDiscs(const Json& root, const std::vector<CatalogueAlbum>& albums,
               std::vector<CatalogueDisc>* out, CatalogueProblem* problem) {
    const Json* discs = nullptr;
    if (!getArray(root, "discs", "$", &discs, problem)) {
        return false;
    }
    std::map<std::string, size_t> seen;  // TOC text -> index
    for (size_t i = 0; i < discs->size(); ++i) {
        CatalogueDisc disc;
        const std::string where = element("$.discs", i);
        if (!readDisc((*discs)[i], where, albums, &disc, problem)) {
            return false;
        }
        const auto before = seen.find(disc.toc);
        if (before != seen.end()) {
            return fail(problem, member(where, "toc"),
                        "is already the TOC text of " + element("$.discs", before->second));
        }
        seen[disc.toc] = i;
        out->push_back(disc);
    }
    return true;
}

// nlohmann's messages start with "[json.exception.parse_error.101] ".
std::string withoutExceptionTag(const std::string& message) {
    const size_t end = message.find("] ");
    if (!message.empty() && message[0] == '[' && end != std::string::npos) {
        return message.substr(end + 2);
    }
    return message;
}

}  // namespace

bool Catalogue::parse(const std::string& json, Catalogue* out, CatalogueProblem* problem) {
    Json root;
    try {
        root = Json::parse(json);
    } catch (const Json::parse_error& e) {
        return fail(problem, "$", "not valid JSON: " + withoutExceptionTag(e.what()));
    }
    Catalogue loaded;
    if (!checkObject(root, "$", problem) ||
        !checkKeys(root, "$", {"$schema", "note", "albums", "discs"}, problem) ||
        !readAlbums(root, &loaded.mAlbums, problem) ||
        !readDiscs(root, loaded.mAlbums, &loaded.mDiscs, problem)) {
        return false;
    }
    *out = std::move(loaded);
    return true;
}

bool Catalogue::loadFile(const std::string& path, Catalogue* out, CatalogueProblem* problem) {
    std::error_code code;
    if (std::filesystem::is_directory(path, code)) {
        return fail(problem, "", "cannot read " + path + ": it is a directory");
    }
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        return fail(problem, "", "cannot open " + path + ": " + std::strerror(errno));
    }
    std::string text;
    char buffer[65536];
    while (in.read(buffer, sizeof(buffer)) || in.gcount() > 0) {
        text.append(buffer, static_cast<size_t>(in.gcount()));
        if (static_cast<std::streamoff>(text.size()) > kMaxFileBytes) {
            return fail(problem, "", "cannot read " + path + ": it is larger than 64 MiB");
        }
    }
    if (in.bad()) {
        return fail(problem, "", "cannot read " + path);
    }
    return parse(text, out, problem);
}

std::string Catalogue::bundledPath() {
    return CatalogueLocation::directory() + "/sample.json";
}

std::string Catalogue::schemaPath() {
    return CatalogueLocation::directory() + "/catalog.schema.json";
}

const CatalogueDisc* Catalogue::findDisc(const std::string& toc) const {
    for (const CatalogueDisc& disc : mDiscs) {
        if (disc.toc == toc) {
            return &disc;
        }
    }
    return nullptr;
}

const CatalogueAlbum* Catalogue::findAlbum(const std::string& id) const {
    return findAlbumIn(mAlbums, id);
}

}  // namespace moxphone
