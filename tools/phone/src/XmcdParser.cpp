// xmcd entries to albums.
#include "moxphone/XmcdParser.h"

#include <vector>

#include "moxphone/CddbProtocol.h"
#include "moxphone/GenreMap.h"
#include "moxphone/OnlineText.h"

namespace moxphone {

namespace {

const std::string kSeparator = " / ";
const std::string kTrackKey = "TTITLE";

std::string unescaped(const std::string& value) {
    std::string text;
    for (size_t i = 0; i < value.size(); ++i) {
        if (value[i] != '\\' || i + 1 == value.size()) {
            text += value[i];
            continue;
        }
        const char next = value[++i];
        if (next == 'n' || next == 't') {
            text += ' ';
        } else if (next == '\\') {
            text += '\\';
        } else {
            text += '\\';
            text += next;
        }
    }
    return text;
}

// The track index of a TTITLEn key, or -1.
int trackIndex(const std::string& key) {
    if (key.compare(0, kTrackKey.size(), kTrackKey) != 0) {
        return -1;
    }
    const std::string digits = key.substr(kTrackKey.size());
    if (digits.empty() || digits.size() > 2) {
        return -1;
    }
    int index = 0;
    for (const char c : digits) {
        if (c < '0' || c > '9') {
            return -1;
        }
        index = index * 10 + (c - '0');
    }
    return index < static_cast<int>(XmcdParser::kMaxTracks) ? index : -1;
}

struct Entry {
    bool haveTitle = false;
    std::string discTitle;
    std::string genre;
    std::vector<std::string> tracks;
};

void take(Entry& entry, const std::string& key, const std::string& value) {
    if (key == "DTITLE") {
        entry.haveTitle = true;
        entry.discTitle += value;
        return;
    }
    if (key == "DGENRE") {
        entry.genre += value;
        return;
    }
    const int index = trackIndex(key);
    if (index < 0) {
        return;
    }
    const size_t at = static_cast<size_t>(index);
    if (entry.tracks.size() <= at) {
        entry.tracks.resize(at + 1);
    }
    entry.tracks[at] += value;
}

// "Artist / Title" split at the first separator; both the whole text without one.
void split(const std::string& text, std::string* artist, std::string* title) {
    const size_t at = text.find(kSeparator);
    if (at == std::string::npos) {
        *artist = text;
        *title = text;
        return;
    }
    *artist = text.substr(0, at);
    *title = text.substr(at + kSeparator.size());
}

bool isVarious(const std::string& artist) {
    std::string lower;
    for (const char c : artist) {
        lower += (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
    }
    return lower == "various" || lower == "various artists";
}

}  // namespace

bool XmcdParser::parse(const std::string& entryText, const std::string& category,
                       const std::string& discId, CatalogueAlbum* album, std::string* why) {
    Entry entry;
    for (const std::string& line : CddbProtocol::lines(entryText)) {
        if (line.empty() || line[0] == '#') {
            continue;
        }
        const size_t equals = line.find('=');
        if (equals == std::string::npos) {
            continue;
        }
        take(entry, line.substr(0, equals), unescaped(line.substr(equals + 1)));
    }
    if (!entry.haveTitle) {
        *why = "the xmcd entry has no DTITLE";
        return false;
    }
    if (entry.tracks.empty()) {
        *why = "the xmcd entry has no TTITLEn";
        return false;
    }
    std::string artist;
    std::string title;
    split(entry.discTitle, &artist, &title);
    const std::string genre =
        GenreMap::knows(entry.genre) ? GenreMap::codeOf(entry.genre) : GenreMap::codeOf(category);
    const bool various = isVarious(artist);
    CatalogueMedium medium;
    for (const std::string& text : entry.tracks) {
        CatalogueTrack track;
        track.title = text;
        track.performer = artist;
        if (various && text.find(kSeparator) != std::string::npos) {
            split(text, &track.performer, &track.title);
        }
        track.title = OnlineText::fit(track.title);
        track.performer = OnlineText::fit(track.performer);
        track.genre = genre;
        medium.tracks.push_back(track);
    }
    album->id = OnlineText::fit(category + "/" + discId);
    album->title = OnlineText::fit(title);
    album->genre = genre;
    album->language.clear();
    album->media.assign(1, medium);
    return true;
}

}  // namespace moxphone
