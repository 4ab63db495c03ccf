// mox search FILE --toc TEXT [--json | --records]: runs the module's album
// search on a stored response database.
//
// FILE is copied to the module's result file (MoxResultFile::FULL_PATH, its
// directory created when missing) and MoxDapDatabase::getSearchResult runs on
// it with TEXT as the disc's TOC text. What the search left in the album list
// is printed, also after a failure:
//   (default)  a readable table per album; the module's debug messages go to
//              the debug output (stderr unless HB_DBG_OUTPUT says otherwise)
//   --json     exactly one JSON object on stdout:
//              {"ok": bool, "albums": [...], "log": ["message", ...]}, where
//              "log" holds every debug message of the search, in order, each
//              without its final line feed
//   --records  the module's text form of each album (getStrAlbum), one line
//              per album, nothing else
// Exit status: 0 when the search returns true, 1 when it returns false, 2 for
// bad usage, an unreadable FILE or a result file that cannot be written (one
// line on stderr says why).
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <list>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "Commands.h"
#include "HbFramework/HbDbgOutput.h"
#include "HbFramework/HbFileSys.h"
#include "private/MoxDapDatabase.h"
#include "private/MoxResultFile.h"

namespace {

const char* const PREFIX = "mox search: ";

// Exit statuses of the subcommand.
const int EXIT_FOUND = 0;
const int EXIT_SEARCH_FAILED = 1;
const int EXIT_BAD_INPUT = 2;

using Json = nlohmann::ordered_json;

struct SearchOptions {
    std::string file;
    std::string toc;
    bool json = false;
    bool records = false;
};

// Reads the whole regular file `path` into `bytes`; false with a one-line
// reason otherwise.
bool readWholeFile(const std::string& path, std::string* bytes, std::string* why) {
    struct stat info;
    if (::stat(path.c_str(), &info) != 0) {
        *why = path + ": " + std::strerror(errno);
        return false;
    }
    if (!S_ISREG(info.st_mode)) {
        *why = path + ": not a regular file";
        return false;
    }
    FILE* file = std::fopen(path.c_str(), "rb");
    if (file == nullptr) {
        *why = path + ": " + std::strerror(errno);
        return false;
    }
    bytes->clear();
    char chunk[65536];
    size_t got = 0;
    while ((got = std::fread(chunk, 1, sizeof(chunk), file)) > 0) {
        bytes->append(chunk, got);
    }
    const bool failed = std::ferror(file) != 0;
    std::fclose(file);
    if (failed) {
        *why = path + ": read failed";
        return false;
    }
    return true;
}

// Stores `bytes` as the module's result file, creating its directory.
bool storeResultFile(const std::string& bytes, std::string* why) {
    if (!HbFileSys::CreateDirectory(MoxResultFile::DIRECTORY.c_str(), true)) {
        *why = "cannot create " + MoxResultFile::DIRECTORY;
        return false;
    }
    FILE* file = std::fopen(MoxResultFile::FULL_PATH.c_str(), "wb");
    if (file == nullptr) {
        *why = MoxResultFile::FULL_PATH + ": " + std::strerror(errno);
        return false;
    }
    const bool written = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    const bool closed = std::fclose(file) == 0;
    if (!written || !closed) {
        *why = MoxResultFile::FULL_PATH + ": write failed";
        return false;
    }
    return true;
}

Json trackToJson(const HbSMoxDef::TrackInfo& track) {
    Json out = Json::object();
    out["TrackName"] = track.TrackName;
    out["PerformerName"] = track.PerformerName;
    out["GenreName"] = track.GenreName;
    out["GenreID"] = track.GenreID;
    out["TrackNum"] = track.TrackNum;
    return out;
}

Json albumToJson(const HbSMoxDef::AlbumInfo& album) {
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

// Number of characters of a UTF-8 text (continuation bytes not counted), for
// lining up the table's columns.
size_t displayWidth(const std::string& text) {
    size_t width = 0;
    for (char c : text) {
        if ((static_cast<unsigned char>(c) & 0xC0) != 0x80) {
            ++width;
        }
    }
    return width;
}

std::string padded(const std::string& text, size_t width) {
    const size_t used = displayWidth(text);
    return used >= width ? text : text + std::string(width - used, ' ');
}

std::string languageText(uint8 code) {
    if (code == 3) {
        return "3 (Japanese)";
    }
    return std::to_string(code) + " (other)";
}

void printTable(const std::list<HbSMoxDef::AlbumInfo>& albums, std::ostream& out) {
    out << albums.size() << (albums.size() == 1 ? " album" : " albums") << "\n";
    size_t number = 0;
    for (const HbSMoxDef::AlbumInfo& album : albums) {
        ++number;
        out << "\n[" << number << "] " << album.AlbumName << "  (id " << album.AlbumId << ")\n";
        out << "    confidence " << album.Confidence << "   medium " << album.MediaNum << " of "
            << album.MediaCount << "   genre " << album.GenreName << " (" << album.GenreID
            << ")   language " << languageText(album.AlbumLang) << "\n";
        size_t titleWidth = displayWidth("title");
        size_t performerWidth = displayWidth("performer");
        for (const HbSMoxDef::TrackInfo& track : album.Tracks) {
            titleWidth = std::max(titleWidth, displayWidth(track.TrackName));
            performerWidth = std::max(performerWidth, displayWidth(track.PerformerName));
        }
        out << "    " << padded("#", 4) << padded("title", titleWidth + 2)
            << padded("performer", performerWidth + 2) << "genre\n";
        size_t trackNumber = 0;
        for (const HbSMoxDef::TrackInfo& track : album.Tracks) {
            ++trackNumber;
            out << "    " << padded(std::to_string(trackNumber), 4)
                << padded(track.TrackName, titleWidth + 2)
                << padded(track.PerformerName, performerWidth + 2) << track.GenreName << " ("
                << track.GenreID << ")\n";
        }
    }
}

int runSearch(const SearchOptions& options) {
    std::string bytes;
    std::string why;
    if (!readWholeFile(options.file, &bytes, &why) || !storeResultFile(bytes, &why)) {
        std::cerr << PREFIX << why << "\n";
        return EXIT_BAD_INPUT;
    }

    MoxDapDatabase* database = MoxDapDatabase::GetInstance();
    std::list<HbSMoxDef::AlbumInfo> albums;
    bool found = false;
    if (options.json) {
        // Every debug message of the search goes into "log", nothing to stderr.
        std::vector<std::string> log;
        HbDbgOutput::Sink previous = HbDbgOutput::SetSink([&log](const HbDbgRecord& record) {
            std::string text = record.text;
            if (!text.empty() && text.back() == '\n') {
                text.pop_back();
            }
            log.push_back(text);
        });
        found = database->getSearchResult(options.toc, &albums);
        HbDbgOutput::SetSink(previous);

        Json out = Json::object();
        out["ok"] = found;
        out["albums"] = Json::array();
        for (const HbSMoxDef::AlbumInfo& album : albums) {
            out["albums"].push_back(albumToJson(album));
        }
        out["log"] = log;
        std::cout << out.dump(-1, ' ', false, Json::error_handler_t::replace) << "\n";
    } else {
        found = database->getSearchResult(options.toc, &albums);
        if (options.records) {
            for (HbSMoxDef::AlbumInfo& album : albums) {
                const std::string text = database->getStrAlbum(album);
                std::cout.write(text.data(), static_cast<std::streamsize>(text.size()));
                std::cout << '\n';
            }
        } else {
            printTable(albums, std::cout);
            if (!found) {
                std::cerr << PREFIX << "the search failed; the albums above are what it left"
                          << "\n";
            }
        }
    }
    std::cout.flush();
    return found ? EXIT_FOUND : EXIT_SEARCH_FAILED;
}

}  // namespace

Command addSearchCommand(CLI::App& app) {
    std::shared_ptr<SearchOptions> options = std::make_shared<SearchOptions>();
    CLI::App* search = app.add_subcommand("search", "Album search on a stored response database");
    search->add_option("FILE", options->file, "response database to search")->required();
    search->add_option("--toc", options->toc, "the disc's TOC text, compared byte for byte")
        ->required();
    CLI::Option* json =
        search->add_flag("--json", options->json, "print one JSON object: ok, albums, log");
    CLI::Option* records = search->add_flag("--records", options->records,
                                            "print the text form of each album, one per line");
    json->excludes(records);
    return Command{search, [options]() { return runSearch(*options); }};
}
