// MusicBrainz JSON to candidate albums.
#include "moxphone/MusicBrainzParser.h"

#include <limits>
#include <nlohmann/json.hpp>

#include "moxphone/GenreMap.h"
#include "moxphone/OnlineText.h"

namespace moxphone {

namespace {

using Json = nlohmann::json;

// ISO 639-3 codes of MusicBrainz's text representation that have a
// two-letter ISO 639-1 code.
const struct {
    const char* three;
    const char* two;
} kLanguages[] = {
    {"ara", "ar"}, {"cat", "ca"}, {"ces", "cs"}, {"cym", "cy"}, {"dan", "da"}, {"deu", "de"},
    {"ell", "el"}, {"eng", "en"}, {"est", "et"}, {"eus", "eu"}, {"fas", "fa"}, {"fin", "fi"},
    {"fra", "fr"}, {"gle", "ga"}, {"glg", "gl"}, {"heb", "he"}, {"hin", "hi"}, {"hrv", "hr"},
    {"hun", "hu"}, {"ind", "id"}, {"isl", "is"}, {"ita", "it"}, {"jpn", "ja"}, {"kor", "ko"},
    {"lat", "la"}, {"lav", "lv"}, {"lit", "lt"}, {"nld", "nl"}, {"nor", "no"}, {"pol", "pl"},
    {"por", "pt"}, {"ron", "ro"}, {"rus", "ru"}, {"slk", "sk"}, {"slv", "sl"}, {"spa", "es"},
    {"srp", "sr"}, {"swe", "sv"}, {"tha", "th"}, {"tur", "tr"}, {"ukr", "uk"}, {"vie", "vi"},
    {"zho", "zh"},
};

// The member `key` of `object` when it is of the wanted kind, else null.
const Json* member(const Json& object, const char* key) {
    if (!object.is_object()) {
        return nullptr;
    }
    const auto found = object.find(key);
    return found == object.end() ? nullptr : &*found;
}

const Json* arrayMember(const Json& object, const char* key) {
    const Json* value = member(object, key);
    return value != nullptr && value->is_array() ? value : nullptr;
}

std::string textMember(const Json& object, const char* key) {
    const Json* value = member(object, key);
    return value != nullptr && value->is_string() ? value->get<std::string>() : std::string();
}

// A non-negative integer member, or -1.
int64_t countMember(const Json& object, const char* key) {
    const Json* value = member(object, key);
    if (value == nullptr || !value->is_number_integer()) {
        return -1;
    }
    if (value->is_number_unsigned()) {
        const uint64_t number = value->get<uint64_t>();
        return number > static_cast<uint64_t>(std::numeric_limits<int64_t>::max())
                   ? std::numeric_limits<int64_t>::max()
                   : static_cast<int64_t>(number);
    }
    const int64_t number = value->get<int64_t>();
    return number < 0 ? -1 : number;
}

// Nesting deeper than `limit` anywhere in the text, strings skipped.
bool nestsDeeperThan(const std::string& text, size_t limit) {
    size_t depth = 0;
    bool inString = false;
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (inString) {
            if (c == '\\') {
                ++i;
            } else if (c == '"') {
                inString = false;
            }
            continue;
        }
        if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            if (++depth > limit) {
                return true;
            }
        } else if ((c == ']' || c == '}') && depth > 0) {
            --depth;
        }
    }
    return false;
}

// An artist credit as MusicBrainz writes it: each name, then its join phrase.
std::string creditText(const Json& owner) {
    const Json* credits = arrayMember(owner, "artist-credit");
    if (credits == nullptr) {
        return std::string();
    }
    std::string text;
    for (const Json& credit : *credits) {
        text += textMember(credit, "name");
        text += textMember(credit, "joinphrase");
    }
    return text;
}

// The most-voted genre of `owner` (the first of equal votes), "" if none.
std::string topGenre(const Json& owner) {
    const Json* genres = arrayMember(owner, "genres");
    if (genres == nullptr) {
        return std::string();
    }
    std::string best;
    int64_t bestCount = -1;
    for (const Json& genre : *genres) {
        const std::string name = textMember(genre, "name");
        const int64_t count = countMember(genre, "count");
        if (!name.empty() && count > bestCount) {
            best = name;
            bestCount = count;
        }
    }
    return best;
}

std::string genreCode(const Json& release) {
    std::string genre = topGenre(release);
    if (genre.empty()) {
        const Json* group = member(release, "release-group");
        genre = group == nullptr ? std::string() : topGenre(*group);
    }
    return GenreMap::codeOf(genre);
}

std::string languageCode(const Json& release) {
    const Json* representation = member(release, "text-representation");
    const std::string language =
        representation == nullptr ? std::string() : textMember(*representation, "language");
    for (const auto& entry : kLanguages) {
        if (language == entry.three) {
            return entry.two;
        }
    }
    return std::string();
}

bool listsDiscId(const Json& medium, const std::string& discId) {
    const Json* discs = arrayMember(medium, "discs");
    if (discs == nullptr) {
        return false;
    }
    for (const Json& disc : *discs) {
        if (!discId.empty() && textMember(disc, "id") == discId) {
            return true;
        }
    }
    return false;
}

size_t trackCount(const Json& medium) {
    const Json* tracks = arrayMember(medium, "tracks");
    if (tracks != nullptr) {
        return tracks->size();
    }
    const int64_t count = countMember(medium, "track-count");
    return count < 0 ? 0 : static_cast<size_t>(count);
}

// How far the offsets of one listed disc lie from the looked-up disc's (sum
// of frame differences, the lead-out included); the largest value when they
// cannot be compared.
uint64_t distance(const Json& listed, const DiscQuery& disc) {
    const uint64_t far = std::numeric_limits<uint64_t>::max();
    const Json* offsets = arrayMember(listed, "offsets");
    if (offsets == nullptr || offsets->size() != disc.tracks.size()) {
        return far;
    }
    uint64_t total = 0;
    for (size_t i = 0; i < disc.tracks.size(); ++i) {
        const Json& offset = (*offsets)[i];
        if (!offset.is_number_unsigned()) {
            return far;
        }
        const uint64_t value = std::min<uint64_t>(offset.get<uint64_t>(), 0xFFFFFFFFu);
        total += value > disc.tracks[i] ? value - disc.tracks[i] : disc.tracks[i] - value;
    }
    const int64_t sectors = countMember(listed, "sectors");
    if (sectors >= 0) {
        const uint64_t value = std::min<uint64_t>(static_cast<uint64_t>(sectors), 0xFFFFFFFFu);
        total += value > disc.leadOut ? value - disc.leadOut : disc.leadOut - value;
    }
    return total;
}

uint64_t nearest(const Json& medium, const DiscQuery& disc) {
    uint64_t best = std::numeric_limits<uint64_t>::max();
    const Json* discs = arrayMember(medium, "discs");
    if (discs != nullptr) {
        for (const Json& listed : *discs) {
            best = std::min(best, distance(listed, disc));
        }
    }
    return best;
}

// The index of the medium holding the disc, with the confidence of the
// match; false when no medium fits.
bool findMedium(const Json& media, const DiscQuery& disc, size_t* index, int32_t* confidence) {
    for (size_t i = 0; i < media.size(); ++i) {
        if (listsDiscId(media[i], disc.musicBrainzId)) {
            *index = i;
            *confidence = MusicBrainzParser::kDiscIdConfidence;
            return true;
        }
    }
    bool found = false;
    uint64_t best = 0;
    for (size_t i = 0; i < media.size(); ++i) {
        if (trackCount(media[i]) != disc.tracks.size()) {
            continue;
        }
        const uint64_t away = nearest(media[i], disc);
        if (!found || away < best) {
            found = true;
            best = away;
            *index = i;
        }
    }
    *confidence = MusicBrainzParser::kTocConfidence;
    return found;
}

CatalogueMedium mediumOf(const Json& medium, const std::string& releaseArtist,
                         const std::string& genre) {
    CatalogueMedium out;
    const Json* tracks = arrayMember(medium, "tracks");
    if (tracks == nullptr) {
        return out;
    }
    for (const Json& track : *tracks) {
        CatalogueTrack entry;
        entry.title = textMember(track, "title");
        if (entry.title.empty()) {
            const Json* recording = member(track, "recording");
            entry.title = recording == nullptr ? std::string() : textMember(*recording, "title");
        }
        entry.performer = creditText(track);
        if (entry.performer.empty()) {
            entry.performer = releaseArtist;
        }
        entry.title = OnlineText::fit(entry.title);
        entry.performer = OnlineText::fit(entry.performer);
        entry.genre = genre;
        out.tracks.push_back(entry);
    }
    return out;
}

bool albumOf(const Json& release, const DiscQuery& disc, FoundAlbum* found) {
    const Json* media = arrayMember(release, "media");
    const std::string id = textMember(release, "id");
    size_t index = 0;
    int32_t confidence = 0;
    if (media == nullptr || media->size() > MusicBrainzParser::kMaxMedia || id.empty() ||
        !findMedium(*media, disc, &index, &confidence)) {
        return false;
    }
    CatalogueAlbum& album = found->album;
    album.id = OnlineText::fit(id);
    album.title = OnlineText::fit(textMember(release, "title"));
    album.genre = genreCode(release);
    album.language = languageCode(release);
    const std::string artist = creditText(release);
    for (const Json& medium : *media) {
        album.media.push_back(mediumOf(medium, artist, album.genre));
    }
    found->medium = static_cast<uint16_t>(index + 1);
    found->confidence = confidence;
    return true;
}

}  // namespace

bool MusicBrainzParser::parse(const std::string& json, const DiscQuery& disc,
                              std::vector<FoundAlbum>* albums, std::string* why) {
    albums->clear();
    if (nestsDeeperThan(json, kMaxDepth)) {
        *why = "the answer nests deeper than " + std::to_string(kMaxDepth) + " levels";
        return false;
    }
    const Json root = Json::parse(json, nullptr, false);
    if (root.is_discarded()) {
        *why = "the answer is not well-formed JSON";
        return false;
    }
    if (!root.is_object()) {
        *why = "the answer is not a JSON object";
        return false;
    }
    const Json* releases = arrayMember(root, "releases");
    if (releases == nullptr) {
        return true;  // no release (an error document or a CD stub)
    }
    for (const Json& release : *releases) {
        if (albums->size() == kMaxReleases) {
            break;
        }
        FoundAlbum found;
        if (albumOf(release, disc, &found)) {
            albums->push_back(found);
        }
    }
    return true;
}

}  // namespace moxphone
