#include "CdioReader.h"

#include <cdio/cdio.h>
#include <cdio/logging.h>
#include <fcntl.h>
#include <strings.h>
#include <unistd.h>

namespace {

const char* const NO_TRACKS = "no tracks";

// What libcdio logged while a read ran: its first warning or error, on one
// line. libcdio prints such messages to stderr by default; the tools print
// one line of their own instead.
std::string* gLogSink = nullptr;

void collectLog(cdio_log_level_t level, const char* message) {
    if (level < CDIO_LOG_WARN || gLogSink == nullptr || !gLogSink->empty() || message == nullptr) {
        return;
    }
    std::string line;
    for (const char* c = message; *c != '\0'; ++c) {
        const bool lineBreak = *c == '\n' || *c == '\r';
        if (lineBreak && !line.empty() && line.back() != ' ') {
            line += ' ';
        } else if (!lineBreak) {
            line += *c;
        }
    }
    while (!line.empty() && line.back() == ' ') {
        line.pop_back();
    }
    *gLogSink = line;
}

// Runs `read` with libcdio's messages going to `log` instead of stderr.
template <typename Read>
auto withCdioLog(std::string* log, Read read) -> decltype(read()) {
    gLogSink = log;
    const cdio_log_handler_t previous = cdio_log_set_handler(collectLog);
    auto result = read();
    cdio_log_set_handler(previous);
    gLogSink = nullptr;
    return result;
}

std::string withReason(const std::string& text, const std::string& log) {
    return log.empty() ? text : text + " (libcdio: " + log + ")";
}

bool hasExtension(const std::string& path, const char* extension) {
    const size_t length = std::char_traits<char>::length(extension);
    return path.size() > length &&
           ::strcasecmp(path.c_str() + path.size() - length, extension) == 0;
}

// libcdio opens the files that a cdrdao TOC file names relative to the
// working directory, while cdrdao writes them relative to the TOC file: the
// file is opened from its own directory, and the working directory put back.
CdIo_t* openCdrdao(const std::string& path) {
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos) {
        return cdio_open_cdrdao(path.c_str());
    }
    const int saved = ::open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const std::string directory = slash == 0 ? "/" : path.substr(0, slash);
    if (saved < 0 || ::chdir(directory.c_str()) != 0) {
        if (saved >= 0) {
            ::close(saved);
        }
        return cdio_open_cdrdao(path.c_str());
    }
    CdIo_t* cdio = cdio_open_cdrdao(path.c_str() + slash + 1);
    const int back = ::fchdir(saved);
    ::close(saved);
    if (back != 0 && cdio != nullptr) {
        cdio_log(CDIO_LOG_WARN, "cannot return to the working directory");
        cdio_destroy(cdio);
        return nullptr;
    }
    return cdio;
}

CdIo_t* openImage(const std::string& path) {
    if (hasExtension(path, ".cue")) {
        return cdio_open_cue(path.c_str());
    }
    if (hasExtension(path, ".bin")) {
        return cdio_open_bincue(path.c_str());
    }
    // Only by its name: the callers check a cdrdao TOC file's text, and the
    // files it names, before libcdio reads it.
    if (hasExtension(path, ".toc")) {
        return openCdrdao(path);
    }
    if (hasExtension(path, ".nrg") || cdio_is_nrg(path.c_str())) {
        return cdio_open_nrg(path.c_str());
    }
    return nullptr;
}

// Tracks from libcdio's TOC; with `sessions`, tracks from the start of the
// last session on are marked as not in the first one.
bool readTracks(CdIo_t* cdio, bool sessions, DiscLayout* layout, std::string* why) {
    const track_t first = cdio_get_first_track_num(cdio);
    const track_t count = cdio_get_num_tracks(cdio);
    if (first == CDIO_INVALID_TRACK || count == CDIO_INVALID_TRACK || count == 0) {
        *why = NO_TRACKS;
        return false;
    }
    lsn_t lastSession = 0;
    const bool knowsSessions =
        sessions && cdio_get_last_session(cdio, &lastSession) == DRIVER_OP_SUCCESS;
    layout->tracks.clear();
    for (unsigned int number = first; number < first + count; ++number) {
        const track_t track = static_cast<track_t>(number);
        const lba_t lba = cdio_get_track_lba(cdio, track);  // libcdio's LBA is the frame offset
        if (lba == CDIO_INVALID_LBA || lba < 0) {
            *why = "cannot read where track " + std::to_string(number) + " starts";
            return false;
        }
        DiscTrack entry;
        entry.number = number;
        entry.offset = static_cast<uint32>(lba);
        entry.audio = cdio_get_track_format(cdio, track) == TRACK_FORMAT_AUDIO;
        entry.firstSession =
            !knowsSessions || lastSession <= 0 || cdio_get_track_lsn(cdio, track) < lastSession;
        layout->tracks.push_back(entry);
    }
    const lba_t leadOut = cdio_get_track_lba(cdio, CDIO_CDROM_LEADOUT_TRACK);
    if (leadOut == CDIO_INVALID_LBA || leadOut < 0) {
        *why = "cannot read where the lead-out starts";
        return false;
    }
    layout->leadOut = static_cast<uint32>(leadOut);
    return true;
}

// A name that libcdio allocated, as a string ("" for none), freed.
std::string takeName(char* name) {
    if (name == nullptr) {
        return "";
    }
    std::string taken = name;
    cdio_free(name);
    return taken;
}

}  // namespace

bool CdioReader::readImage(const std::string& path, DiscLayout* layout, std::string* why) {
    std::string log;
    CdIo_t* cdio = withCdioLog(&log, [&path]() { return openImage(path); });
    if (cdio == nullptr) {
        *why =
            withReason(path + ": not an image that libcdio reads (BIN/CUE, cdrdao TOC, NRG)", log);
        return false;
    }
    std::string problem;
    const bool read = withCdioLog(
        &log, [cdio, layout, &problem]() { return readTracks(cdio, false, layout, &problem); });
    cdio_destroy(cdio);
    if (!read) {
        *why = withReason(path + ": " + problem, log);
    }
    return read;
}

bool CdioReader::readDevice(const std::string& device, DiscLayout* layout, std::string* why) {
    std::string log;
    std::string name = device;
    if (name.empty()) {
        driver_id_t driver = DRIVER_DEVICE;
        char* found =
            withCdioLog(&log, [&driver]() { return cdio_get_default_device_driver(&driver); });
        if (found == nullptr) {
            *why = withReason("no CD drive found", log);
            return false;
        }
        name = found;
        cdio_free(found);
    }
    CdIo_t* cdio = withCdioLog(&log, [&name]() { return cdio_open(name.c_str(), DRIVER_DEVICE); });
    if (cdio == nullptr) {
        *why = withReason(name + ": no CD drive there", log);
        return false;
    }
    std::string problem;
    const bool read = withCdioLog(
        &log, [cdio, layout, &problem]() { return readTracks(cdio, true, layout, &problem); });
    cdio_destroy(cdio);
    if (!read) {
        *why = withReason(name + ": " + (problem == NO_TRACKS ? "no disc in the drive" : problem),
                          log);
    }
    return read;
}

std::string CdioReader::cueForBin(const std::string& binPath) {
    return takeName(cdio_is_binfile(binPath.c_str()));
}

std::string CdioReader::binForCue(const std::string& cuePath) {
    return takeName(cdio_is_cuefile(cuePath.c_str()));
}
