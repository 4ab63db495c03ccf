// mox search FILE --toc TEXT [--json | --records]: runs the module's album
// search on a stored response database.
//
// FILE is only read, never written: it is copied, in pieces of 64 KiB, to the
// result file of a private result directory of this process (made for the
// run, removed when it ends, whatever MOX_RESULT_DIR says), and the album
// search runs on that copy with TEXT as the disc's TOC text. The module's
// public API searches only the answer of a lookup it has just made, so the
// search is the tools' own (StoredSearch.h), which finds and says what the
// module's does. So FILE may be any run's live result file, a link to one, a
// pipe or a file that is still being written. A FILE larger than the module's
// result-file limit (ModuleLimits::kResultFileMax) is refused: the phone could
// not deliver it. What the search left in the album list is printed, also
// after a failure:
//   (default)  a readable table per album, control characters of the
//              database's strings escaped (\xNN, "\\" for a backslash); the
//              module's debug messages go to the debug output (stderr unless
//              HB_DBG_OUTPUT says otherwise)
//   --json     exactly one JSON object on stdout:
//              {"ok": bool, "albums": [...], "log": ["message", ...]}, where
//              "log" holds every debug message of the search, in order, each
//              without its final line feed
//   --records  the module's text form of each album (AlbumText.h), one line
//              per album, nothing else; its strings are raw, byte for byte,
//              except on a terminal, which gets them escaped as the table
// Exit status: 0 when the search returns true, 1 when it returns false, 2 for
// bad usage, an unreadable or too large FILE or a result file that cannot be
// written (one line on stderr says why).
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <list>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <system_error>
#include <vector>

#include "AlbumOutput.h"
#include "AlbumText.h"
#include "Commands.h"
#include "HbFramework/HbDbgOutput.h"
#include "HbFramework/HbFileSysHost.h"
#include "ModuleLimits.h"
#include "StoredSearch.h"
#include "TextEscape.h"

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

// Bytes copied at a time from FILE to the result file.
const size_t COPY_PIECE = 64 * 1024;

// Why the last C library call failed, for a one-line reason.
std::string systemReason() {
    return std::strerror(errno);
}

// True when `path` is a regular file that the module would accept as its
// result file, or a pipe (bounded while it is read); otherwise false with a
// one-line reason.
bool checkInput(const std::string& path, std::string* why) {
    struct stat info;
    if (::stat(path.c_str(), &info) != 0) {
        *why = path + ": " + systemReason();
        return false;
    }
    if (S_ISFIFO(info.st_mode)) {
        return true;
    }
    if (!S_ISREG(info.st_mode)) {
        *why = path + ": not a regular file";
        return false;
    }
    if (static_cast<uint64_t>(info.st_size) > ModuleLimits::kResultFileMax) {
        *why = path + ": " + std::to_string(info.st_size) +
               " bytes, larger than the module accepts from the phone (" +
               std::to_string(ModuleLimits::kResultFileMax) + " bytes)";
        return false;
    }
    return true;
}

// Copies `input` to `output` a piece at a time, at most kResultFileMax
// bytes (the input may grow while it is read).
bool copyPieces(FILE* input, const std::string& inputPath, FILE* output,
                const std::string& outputPath, std::string* why) {
    std::vector<char> piece(COPY_PIECE);
    uint64_t copied = 0;
    size_t got = 0;
    while ((got = std::fread(piece.data(), 1, piece.size(), input)) > 0) {
        copied += got;
        if (copied > ModuleLimits::kResultFileMax) {
            *why = inputPath + ": grew past " + std::to_string(ModuleLimits::kResultFileMax) +
                   " bytes while it was copied";
            return false;
        }
        if (std::fwrite(piece.data(), 1, got, output) != got) {
            *why = outputPath + ": write failed: " + systemReason();
            return false;
        }
    }
    if (std::ferror(input) != 0) {
        *why = inputPath + ": read failed: " + systemReason();
        return false;
    }
    return true;
}

// Stores the file at `path` as the result file of this run's private result
// directory, whose path goes to `stored`; FILE itself is opened for reading
// only.
bool storeResultFile(const std::string& path, std::string* stored, std::string* why) {
    const std::string directory = HbFileSysHost::usePrivateResultDirectory();
    if (directory.empty()) {
        *why = "cannot make a private result directory: " + systemReason();
        return false;
    }
    const std::string resultPath = directory + HbFileSysHost::RESULT_FILE_NAME;
    *stored = resultPath;
    FILE* input = std::fopen(path.c_str(), "rb");
    if (input == nullptr) {
        *why = path + ": " + systemReason();
        return false;
    }
    FILE* output = std::fopen(resultPath.c_str(), "wbx");
    if (output == nullptr) {
        *why = resultPath + ": " + systemReason();
        std::fclose(input);
        return false;
    }
    bool copied = copyPieces(input, path, output, resultPath, why);
    std::fclose(input);
    if (std::fclose(output) != 0 && copied) {
        *why = resultPath + ": write failed: " + systemReason();
        copied = false;
    }
    return copied;
}

int runSearch(const SearchOptions& options) {
    std::string why;
    if (!checkInput(options.file, &why)) {
        std::cerr << PREFIX << why << "\n";
        return EXIT_BAD_INPUT;
    }
    std::string stored;
    if (!storeResultFile(options.file, &stored, &why)) {
        std::cerr << PREFIX << why << "\n";
        return EXIT_BAD_INPUT;
    }

    StoredSearch search(stored);
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
        found = search.run(options.toc, &albums);
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
        found = search.run(options.toc, &albums);
        if (options.records) {
            // Raw bytes are the text form's contract in a pipe; a terminal
            // gets them escaped (AlbumLang and Database are raw bytes).
            const bool terminal = isatty(STDOUT_FILENO) != 0;
            for (const HbSMoxDef::AlbumInfo& album : albums) {
                const std::string raw = AlbumText::of(album);
                const std::string text = terminal ? escapeControlCharacters(raw) : raw;
                std::cout.write(text.data(), static_cast<std::streamsize>(text.size()));
                std::cout << '\n';
            }
        } else {
            printAlbumTable(albums, std::cout);
            if (!found) {
                std::cerr << PREFIX << "the search failed; the albums above are what it left"
                          << "\n";
            }
        }
    }
    std::cout.flush();
    return found ? EXIT_FOUND : EXIT_SEARCH_FAILED;
}

// A TOC text never starts with '-': such a value is an option that took the
// place of the forgotten text ("--toc --json").
std::string notAnOption(std::string& value) {
    if (!value.empty() && value[0] == '-') {
        return value + " is not a TOC text (it starts with '-'); give the text right after --toc";
    }
    return std::string();
}

}  // namespace

Command addSearchCommand(CLI::App& app) {
    std::shared_ptr<SearchOptions> options = std::make_shared<SearchOptions>();
    CLI::App* search = app.add_subcommand("search", "Album search on a stored response database");
    search->add_option("FILE", options->file, "response database to search")->required();
    search->add_option("--toc", options->toc, "the disc's TOC text, compared byte for byte")
        ->required()
        ->check(CLI::Validator(notAnOption, ""));
    CLI::Option* json =
        search->add_flag("--json", options->json, "print one JSON object: ok, albums, log");
    CLI::Option* records = search->add_flag(
        "--records", options->records,
        "print the module's text form of each album, one per line; its strings are raw, "
        "byte for byte, in a pipe or file (a terminal, like the table, gets control "
        "characters escaped)");
    json->excludes(records);
    return Command{search, [options]() { return runSearch(*options); }};
}
