// mox toc (--offsets N... | --toc TEXT | --cue FILE | --image FILE |
//          --device [PATH]) [--json | --format cddb | --format musicbrainz]:
// prints a disc's TOC text and disc IDs.
//
// The TOC comes from frame offsets typed in (the tracks', then the lead-out's),
// a TOC text as the tools write it, a CUE sheet (a BIN/CUE image, or one WAV
// or FLAC file per track), an image libcdio reads (BIN/CUE, cdrdao TOC, NRG)
// or the CD in a drive. Only the audio tracks of the first session make the
// TOC text; a data track after them moves the lead-out to 11400 frames before
// it. The disc IDs are those of the CD tools:
//   MusicBrainz, FreeDB  libdiscid's, from the tracks it counts reading a
//                        drive: the audio tracks, and a data track 1 before
//                        them (mixed mode), with the moved lead-out
//   cd-discid            the FreeDB formula over every track of the disc's
//                        TOC, data tracks too, and the disc's own lead-out;
//                        printed apart only where it differs from libdiscid's
// libdiscid refuses a disc longer than it accepts (90 minutes): its values
// are then left out with a note, the rest is printed.
// Output:
//   (default)  readable lines: TOC text, track count, lead-out, the disc IDs,
//              the data track left out if any, then per track its frame
//              offset, MSF and LSN as cd-info shows them and its length
//              (MSF), then the lead-out
//   --format cddb         the line that cd-discid prints
//   --format musicbrainz  libdiscid's TOC string, then MusicBrainz's
//                         submission URL, one per line
//   --json     exactly one JSON object with everything the readable output
//              shows (docs/schemas/mox-toc.schema.json)
// Exit status: 0 on success; 2 for bad usage or a TOC that cannot be read
// (one line on stderr says why, nothing goes to stdout); 1 when the asked
// --format needs libdiscid's values and it refuses the disc.
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
const uint32 FIRST_FRAME_OFFSET = 150;  // frame offset of LSN 0

using Json = nlohmann::ordered_json;

struct TocOptions {
    TocSourceOptions source;
    bool json = false;
    std::string format;
};

const int EXIT_NO_IDS = 1;

// "mm:ss:ff" of `frames`, as cd-info shows a position.
std::string msf(uint32 frames) {
    char text[16];
    std::snprintf(text, sizeof(text), "%02u:%02u:%02u", frames / FRAMES_PER_SECOND / 60,
                  frames / FRAMES_PER_SECOND % 60, frames % FRAMES_PER_SECOND);
    return text;
}

// The LSN (frame offset - 150) in six digits, as cd-info shows it.
std::string lsn(uint32 offset) {
    char text[16];
    std::snprintf(text, sizeof(text), "%06u", offset - FIRST_FRAME_OFFSET);
    return text;
}

std::string dataTrackLine(const DiscToc& toc) {
    std::string line = "track " + std::to_string(toc.dataTrackNumber) + " at " +
                       std::to_string(toc.dataTrackOffset) + " left out";
    if (toc.dataTrackNumber > toc.last) {
        line +=
            "; the lead-out lies " + std::to_string(DATA_TRACK_GAP_FRAMES) + " frames before it";
    } else if (toc.idFirst < toc.first) {
        line += " of the TOC text; libdiscid counts it";
    }
    return line;
}

uint32 trackEnd(const DiscToc& toc, size_t i) {
    return i + 1 < toc.offsets.size() ? toc.offsets[i + 1] : toc.leadOut;
}

void printIds(const DiscToc& toc) {
    if (toc.musicBrainzId.empty()) {
        std::printf("MusicBrainz:  not computed: %s\n", toc.idsNote.c_str());
        std::printf("FreeDB:       not computed by libdiscid\n");
        std::printf("cd-discid:    %s\n", toc.cdDiscidId.c_str());
        return;
    }
    std::printf("MusicBrainz:  %s\n", toc.musicBrainzId.c_str());
    if (toc.freedbId == toc.cdDiscidId) {
        std::printf("FreeDB:       %s\n", toc.freedbId.c_str());
        return;
    }
    std::printf("FreeDB:       %s (libdiscid: the tracks it counts)\n", toc.freedbId.c_str());
    std::printf("cd-discid:    %s (every track of the TOC, the disc's lead-out)\n",
                toc.cdDiscidId.c_str());
}

void printReadable(const DiscToc& toc) {
    std::printf("TOC text:     %s\n", toc.toc.c_str());
    std::printf("Tracks:       %zu (%u-%u)\n", toc.offsets.size(), toc.first, toc.last);
    std::printf("Lead-out:     %u\n", toc.leadOut);
    printIds(toc);
    if (toc.dataTrack) {
        std::printf("Data track:   %s\n", dataTrackLine(toc).c_str());
    }
    std::printf("Track   Offset  MSF       LSN     Length\n");
    for (size_t i = 0; i < toc.offsets.size(); ++i) {
        std::printf("%5zu  %7u  %s  %s  %s\n", toc.first + i, toc.offsets[i],
                    msf(toc.offsets[i]).c_str(), lsn(toc.offsets[i]).c_str(),
                    msf(trackEnd(toc, i) - toc.offsets[i]).c_str());
    }
    std::printf("  out  %7u  %s  %s\n", toc.leadOut, msf(toc.leadOut).c_str(),
                lsn(toc.leadOut).c_str());
}

// A text field, or null where libdiscid gave none.
Json orNull(const std::string& text) {
    return text.empty() ? Json() : Json(text);
}

void printJson(const DiscToc& toc) {
    Json tracks = Json::array();
    for (size_t i = 0; i < toc.offsets.size(); ++i) {
        const uint32 length = trackEnd(toc, i) - toc.offsets[i];
        tracks.push_back({{"number", toc.first + i},
                          {"offset", toc.offsets[i]},
                          {"lsn", toc.offsets[i] - FIRST_FRAME_OFFSET},
                          {"msf", msf(toc.offsets[i])},
                          {"length_frames", length},
                          {"length_msf", msf(length)}});
    }
    Json out = {{"toc", toc.toc},
                {"first", toc.first},
                {"last", toc.last},
                {"offsets", toc.offsets},
                {"leadout", toc.leadOut},
                {"leadout_msf", msf(toc.leadOut)},
                {"musicbrainz", orNull(toc.musicBrainzId)},
                {"freedb", orNull(toc.freedbId)},
                {"cd_discid", toc.cdDiscidId},
                {"cd_discid_line", toc.cdDiscidLine},
                {"musicbrainz_toc", orNull(toc.tocString)},
                {"submission_url", orNull(toc.submissionUrl)},
                {"ids_note", orNull(toc.idsNote)},
                {"data_track", toc.dataTrack},
                {"tracks", tracks}};
    if (toc.dataTrack) {
        out["left_out"] = {{"number", toc.dataTrackNumber},
                           {"offset", toc.dataTrackOffset},
                           {"counted_by_libdiscid", toc.idFirst < toc.first}};
    }
    std::cout << out.dump() << '\n';
}

int printFormat(const DiscToc& toc, const std::string& format) {
    if (format == "cddb") {
        std::printf("%s\n", toc.cdDiscidLine.c_str());
        return EXIT_READ;
    }
    if (toc.tocString.empty()) {
        std::fflush(stdout);
        std::cerr << PREFIX << toc.idsNote << '\n';
        return EXIT_NO_IDS;
    }
    std::printf("%s\n%s\n", toc.tocString.c_str(), toc.submissionUrl.c_str());
    return EXIT_READ;
}

int runToc(const TocOptions& options) {
    DiscToc toc;
    std::string why;
    if (!readDiscToc(options.source.request(), &toc, &why)) {
        std::cerr << PREFIX << why << '\n';
        return EXIT_BAD_INPUT;
    }
    int status = EXIT_READ;
    if (options.json) {
        printJson(toc);
    } else if (!options.format.empty()) {
        status = printFormat(toc, options.format);
    } else {
        printReadable(toc);
    }
    std::fflush(stdout);
    return status;
}

}  // namespace

Command addTocCommand(CLI::App& app) {
    std::shared_ptr<TocOptions> options = std::make_shared<TocOptions>();
    CLI::App* toc = app.add_subcommand(
        "toc", "TOC text and disc IDs from offsets, a CUE sheet, an image or a CD drive");
    options->source.addTocText(*options->source.addTo(*toc));
    CLI::Option* json =
        toc->add_flag("--json", options->json,
                      "print one JSON object with everything the readable output shows (see "
                      "mox-toc.schema.json)");
    CLI::Option* format =
        toc->add_option("--format", options->format,
                        "cddb: the line that cd-discid prints; musicbrainz: libdiscid's TOC "
                        "string and the MusicBrainz submission URL")
            ->check(CLI::IsMember({"cddb", "musicbrainz"}))
            ->type_name("FORMAT");
    json->excludes(format);
    return Command{toc, [options]() { return runToc(*options); }};
}
