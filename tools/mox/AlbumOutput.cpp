#include "AlbumOutput.h"

#include <algorithm>
#include <string>
#include <vector>

#include "TextEscape.h"

namespace {

using Json = nlohmann::ordered_json;

Json trackToJson(const HbSMoxDef::TrackInfo& track) {
    Json out = Json::object();
    out["TrackName"] = track.TrackName;
    out["PerformerName"] = track.PerformerName;
    out["GenreName"] = track.GenreName;
    out["GenreID"] = track.GenreID;
    out["TrackNum"] = track.TrackNum;
    return out;
}

std::string languageText(uint8 code) {
    if (code == 3) {
        return "3 (Japanese)";
    }
    return std::to_string(code) + " (other)";
}

}  // namespace

nlohmann::ordered_json albumToJson(const HbSMoxDef::AlbumInfo& album) {
    Json out = Json::object();
    out["AlbumId"] = album.AlbumId;
    out["AlbumName"] = album.AlbumName;
    out["GenreName"] = album.GenreName;
    out["GenreID"] = album.GenreID;
    out["Confidence"] = album.Confidence;
    out["AlbumLang"] = static_cast<unsigned int>(album.AlbumLang);
    out["MediaNum"] = album.MediaNum;
    out["MediaCount"] = album.MediaCount;
    out["Database"] = static_cast<unsigned int>(album.Database);
    Json tracks = Json::array();
    for (const HbSMoxDef::TrackInfo& track : album.Tracks) {
        tracks.push_back(trackToJson(track));
    }
    out["Tracks"] = tracks;
    return out;
}

nlohmann::ordered_json albumsToJson(const std::list<HbSMoxDef::AlbumInfo>& albums) {
    Json out = Json::array();
    for (const HbSMoxDef::AlbumInfo& album : albums) {
        out.push_back(albumToJson(album));
    }
    return out;
}

void printAlbumTable(const std::list<HbSMoxDef::AlbumInfo>& albums, std::ostream& out) {
    out << albums.size() << (albums.size() == 1 ? " album" : " albums") << "\n";
    size_t number = 0;
    for (const HbSMoxDef::AlbumInfo& album : albums) {
        ++number;
        out << "\n[" << number << "] " << escapeControlCharacters(album.AlbumName) << "  (id "
            << escapeControlCharacters(album.AlbumId) << ")\n";
        out << "    confidence " << album.Confidence << "   medium " << album.MediaNum << " of "
            << album.MediaCount << "   genre " << escapeControlCharacters(album.GenreName) << " ("
            << album.GenreID << ")   language " << languageText(album.AlbumLang) << "\n";
        std::vector<std::string> titles;
        std::vector<std::string> performers;
        size_t titleWidth = terminalCells("title");
        size_t performerWidth = terminalCells("performer");
        for (const HbSMoxDef::TrackInfo& track : album.Tracks) {
            titles.push_back(escapeControlCharacters(track.TrackName));
            performers.push_back(escapeControlCharacters(track.PerformerName));
            titleWidth = std::max(titleWidth, terminalCells(titles.back()));
            performerWidth = std::max(performerWidth, terminalCells(performers.back()));
        }
        out << "    " << padToCells("#", 4) << padToCells("title", titleWidth + 2)
            << padToCells("performer", performerWidth + 2) << "genre\n";
        for (size_t i = 0; i < album.Tracks.size(); ++i) {
            const HbSMoxDef::TrackInfo& track = album.Tracks[i];
            out << "    " << padToCells(std::to_string(i + 1), 4)
                << padToCells(titles[i], titleWidth + 2)
                << padToCells(performers[i], performerWidth + 2)
                << escapeControlCharacters(track.GenreName) << " (" << track.GenreID << ")\n";
        }
    }
}
