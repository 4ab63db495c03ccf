// mox toc (--offsets N... | --cue FILE | --image FILE | --device [PATH]) [--json]:
// prints a disc's TOC text and disc IDs.
//
// The TOC comes from frame offsets typed in (the tracks', then the lead-out's),
// a CUE sheet (a BIN/CUE image, or one WAV or FLAC file per track), an image
// libcdio reads (BIN/CUE, cdrdao TOC, NRG) or the CD in a drive. Only the
// audio tracks of the first session count; a data track after them moves the
// lead-out to 11400 frames before it. Output:
//   (default)  readable lines: TOC text, track count, lead-out, the disc IDs,
//              the data track left out if any, then each track's offset and
//              length (minutes:seconds)
//   --json     exactly one JSON object: {"toc", "first", "last", "offsets",
//              "leadout", "musicbrainz", "freedb", "data_track"}
// Exit status: 0 on success; 2 for bad usage or a TOC that cannot be read
// (one line on stderr says why, nothing goes to stdout).
#include <cstdio>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "Commands.h"
#include "DiscLayout.h"
#include "TocSource.h"
#include "TocSourceOptions.h"

namespace {

const char* const PREFIX = "mox toc: ";

const int EXIT_READ = 0;
const int EXIT_BAD_INPUT = 2;

const uint32 FRAMES_PER_SECOND = 75;

using Json = nlohmann::ordered_json;

struct TocOptions {
    TocSourceOptions source;
    bool json = false;
};

// Whole minutes and seconds of `frames`, the seconds cut down: "4:00", "74:33".
std::string minutesSeconds(uint32 frames) {
    const uint32 seconds = frames / FRAMES_PER_SECOND;
    char text[16];
    std::snprintf(text, sizeof(text), "%u:%02u", seconds / 60, seconds % 60);
    return text;
}

std::string dataTrackLine(const DiscToc& toc) {
    std::string line = "track " + std::to_string(toc.dataTrackNumber) + " at " +
                       std::to_string(toc.dataTrackOffset) + " left out";
    if (toc.dataTrackNumber > toc.last) {
        line +=
            "; the lead-out lies " + std::to_string(DATA_TRACK_GAP_FRAMES) + " frames before it";
    }
    return line;
}

void printReadable(const DiscToc& toc) {
    std::printf("TOC text:     %s\n", toc.toc.c_str());
    std::printf("Tracks:       %zu (%u-%u)\n", toc.offsets.size(), toc.first, toc.last);
    std::printf("Lead-out:     %u\n", toc.leadOut);
    std::printf("MusicBrainz:  %s\n", toc.musicBrainzId.c_str());
    std::printf("FreeDB:       %s\n", toc.freedbId.c_str());
    if (toc.dataTrack) {
        std::printf("Data track:   %s\n", dataTrackLine(toc).c_str());
    }
    std::printf("Track   Offset  Length\n");
    for (size_t i = 0; i < toc.offsets.size(); ++i) {
        const uint32 end = i + 1 < toc.offsets.size() ? toc.offsets[i + 1] : toc.leadOut;
        std::printf("%5zu  %7u  %6s\n", toc.first + i, toc.offsets[i],
                    minutesSeconds(end - toc.offsets[i]).c_str());
    }
}

void printJson(const DiscToc& toc) {
    const Json out = {{"toc", toc.toc},         {"first", toc.first},
                      {"last", toc.last},       {"offsets", toc.offsets},
                      {"leadout", toc.leadOut}, {"musicbrainz", toc.musicBrainzId},
                      {"freedb", toc.freedbId}, {"data_track", toc.dataTrack}};
    std::cout << out.dump() << '\n';
}

int runToc(const TocOptions& options) {
    DiscToc toc;
    std::string why;
    if (!readDiscToc(options.source.request(), &toc, &why)) {
        std::cerr << PREFIX << why << '\n';
        return EXIT_BAD_INPUT;
    }
    if (options.json) {
        printJson(toc);
    } else {
        printReadable(toc);
    }
    std::fflush(stdout);
    return EXIT_READ;
}

}  // namespace

Command addTocCommand(CLI::App& app) {
    std::shared_ptr<TocOptions> options = std::make_shared<TocOptions>();
    CLI::App* toc = app.add_subcommand(
        "toc", "TOC text and disc IDs from offsets, a CUE sheet, an image or a CD drive");
    options->source.addTocText(*options->source.addTo(*toc));
    toc->add_flag("--json", options->json,
                  "print one JSON object: toc, first, last, offsets, leadout, musicbrainz, "
                  "freedb, data_track");
    return Command{toc, [options]() { return runToc(*options); }};
}
