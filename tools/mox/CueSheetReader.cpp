#include "CueSheetReader.h"

#include <libcue.h>
#include <sndfile.h>
#include <strings.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sstream>

#include "SheetText.h"
#include "StderrCapture.h"
#include "TocInput.h"

namespace {

const uint32 CD_SAMPLE_RATE = 44100;
const uint64 SAMPLES_PER_SECTOR = 588;  // 44100 samples a second, 75 sectors a second
const uint32 RAW_SECTOR_BYTES = 2352;
const uint64 FIRST_FRAME_OFFSET = 150;      // frame offset of LBA 0
const uint64 LAST_FRAME_OFFSET = 0xFFFFFF;  // six hexadecimal digits of TOC text

bool hasExtension(const std::string& path, const char* extension) {
    const size_t length = std::strlen(extension);
    return path.size() > length &&
           ::strcasecmp(path.c_str() + path.size() - length, extension) == 0;
}

// Files of raw sectors, as BIN/CUE images hold them; everything else is read
// as audio with libsndfile.
bool isRawSectorFile(const std::string& path) {
    return hasExtension(path, ".bin") || hasExtension(path, ".img") || hasExtension(path, ".raw");
}

// Lines of the sheet that are TRACK commands.
size_t countTrackLines(const std::string& text) {
    std::istringstream lines(text);
    std::string word;
    std::string line;
    size_t count = 0;
    while (std::getline(lines, line)) {
        std::istringstream words(line);
        if (words >> word && ::strcasecmp(word.c_str(), "TRACK") == 0) {
            ++count;
        }
    }
    return count;
}

std::string firstLine(const std::string& text) {
    const size_t end = text.find_first_of("\r\n");
    return end == std::string::npos ? text : text.substr(0, end);
}

uint32 blockBytesOf(enum TrackMode mode) {
    switch (mode) {
        case MODE_MODE1:
        case MODE_MODE2_FORM1:
            return 2048;
        case MODE_MODE2:
            return 2336;
        case MODE_MODE2_FORM2:
            return 2324;
        case MODE_MODE2_FORM_MIX:
            return 2332;
        default:
            return RAW_SECTOR_BYTES;
    }
}

std::string directoryOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? "" : path.substr(0, slash + 1);
}

// Reads the sheet's tracks from libcue's parse; false with a reason.
bool takeTracks(const Cd* cd, const std::string& cuePath,
                std::vector<CueSheetReader::SheetTrack>* tracks, std::string* why) {
    const int count = cd_get_ntrack(cd);
    if (count < 1) {
        *why = cuePath + ": a CUE sheet without tracks";
        return false;
    }
    for (int i = 1; i <= count; ++i) {
        const Track* track = cd_get_track(cd, i);
        const char* file = track == nullptr ? nullptr : track_get_filename(track);
        const long index1 = track == nullptr ? -1 : track_get_index(track, 1);
        if (file == nullptr || index1 < 0) {
            *why = cuePath + ": malformed CUE sheet (track " + std::to_string(i) +
                   (file == nullptr ? " has no FILE)" : " has no INDEX 01)");
            return false;
        }
        CueSheetReader::SheetTrack entry;
        entry.number = static_cast<uint32>(i);
        entry.file = file[0] == '/' ? std::string(file) : directoryOf(cuePath) + file;
        entry.index1 = static_cast<uint32>(index1);
        entry.audio = track_get_mode(track) == MODE_AUDIO;
        entry.blockBytes = blockBytesOf(track_get_mode(track));
        tracks->push_back(entry);
    }
    return true;
}

}  // namespace

bool CueSheetReader::parse(const std::string& cuePath, std::string* why) {
    mCuePath = cuePath;
    mTracks.clear();
    std::string text;
    if (!SheetText::read(cuePath, &text, why)) {
        return false;
    }
    if (text.compare(0, 3, "\xEF\xBB\xBF") == 0) {
        text.erase(0, 3);  // rippers on some systems start the sheet with a UTF-8 byte-order mark
    }
    const size_t trackLines = countTrackLines(text);
    if (trackLines == 0) {
        *why = cuePath + ": a CUE sheet without tracks";
        return false;
    }
    if (trackLines > MAX_CD_TRACKS) {
        // Said here: libcue refuses such a sheet too, but loses memory doing so.
        *why = cuePath + ": " + std::to_string(trackLines) + " tracks: a CD holds at most " +
               std::to_string(MAX_CD_TRACKS);
        return false;
    }
    // Said before any library reads the sheet: libcdio writes into freed
    // memory on track numbers out of order, and blocks on a FIFO.
    if (!SheetText::checkTrackNumbers(cuePath, text, why) ||
        !SheetText::checkTimes(cuePath, text, why) ||
        !SheetText::checkFileNames(cuePath, text, why)) {
        return false;
    }
    mFileLines = SheetText::fileLines(text);
    // libcue reports syntax errors on stderr and may still return a partial parse.
    StderrCapture capture;
    Cd* cd = cue_parse_string(text.c_str());
    const std::string complaints = capture.finish();
    if (cd == nullptr || !complaints.empty()) {
        *why = cuePath + ": malformed CUE sheet" +
               (complaints.empty() ? "" : " (" + firstLine(complaints) + ")");
        if (cd != nullptr) {
            cd_delete(cd);
        }
        return false;
    }
    const bool taken = takeTracks(cd, cuePath, &mTracks, why);
    cd_delete(cd);
    if (!taken) {
        mTracks.clear();
    }
    return taken;
}

std::vector<std::string> CueSheetReader::files() const {
    std::vector<std::string> names;
    for (const SheetTrack& track : mTracks) {
        if (std::find(names.begin(), names.end(), track.file) == names.end()) {
            names.push_back(track.file);
        }
    }
    return names;
}

bool CueSheetReader::fileSectors(const std::string& file, uint32* sectors, std::string* why) const {
    struct stat info;
    if (::stat(file.c_str(), &info) != 0) {
        *why = file + ": " + std::strerror(errno);
        return false;
    }
    if (!S_ISREG(info.st_mode)) {
        *why = file + ": not a regular file";
        return false;
    }
    if (isRawSectorFile(file)) {
        // Sectors before the file's last track at their own sizes, the rest at its size.
        uint64 bytesBefore = 0;
        const SheetTrack* last = nullptr;
        for (const SheetTrack& track : mTracks) {
            if (track.file != file) {
                continue;
            }
            if (last != nullptr && track.index1 > last->index1) {
                bytesBefore += static_cast<uint64>(track.index1 - last->index1) * last->blockBytes;
            }
            last = &track;
        }
        const uint64 size = static_cast<uint64>(info.st_size);
        const uint64 rest = size > bytesBefore ? (size - bytesBefore) / last->blockBytes : 0;
        const uint64 total = last->index1 + rest;
        *sectors = static_cast<uint32>(total > LAST_FRAME_OFFSET ? LAST_FRAME_OFFSET + 1 : total);
        return true;
    }
    SF_INFO format = {};
    SNDFILE* audio = sf_open(file.c_str(), SFM_READ, &format);
    if (audio == nullptr) {
        // libsndfile's reason may run over several lines: its first is kept.
        std::string reason = sf_strerror(nullptr);
        reason = reason.substr(0, reason.find('\n'));
        *why = file + ": not an audio file that libsndfile reads (" + reason + ")";
        return false;
    }
    sf_close(audio);
    if (format.samplerate != static_cast<int>(CD_SAMPLE_RATE)) {
        *why = file + ": " + std::to_string(format.samplerate) + " Hz audio; a CD holds " +
               std::to_string(CD_SAMPLE_RATE) + " Hz";
        return false;
    }
    const uint64 frames = format.frames < 0 ? 0 : static_cast<uint64>(format.frames);
    const uint64 total = (frames + SAMPLES_PER_SECTOR - 1) / SAMPLES_PER_SECTOR;
    *sectors = static_cast<uint32>(total > LAST_FRAME_OFFSET ? LAST_FRAME_OFFSET + 1 : total);
    return true;
}

bool CueSheetReader::readLayout(DiscLayout* layout, std::string* why) const {
    layout->tracks.clear();
    uint64 fileStart = FIRST_FRAME_OFFSET;
    for (const std::string& file : files()) {
        uint32 sectors = 0;
        if (!fileSectors(file, &sectors, why)) {
            return false;
        }
        for (const SheetTrack& track : mTracks) {
            if (track.file != file) {
                continue;
            }
            if (track.index1 >= sectors) {
                *why = mCuePath + ": track " + std::to_string(track.number) +
                       " starts past the end of " + file;
                return false;
            }
            DiscTrack entry;
            entry.number = track.number;
            entry.offset = static_cast<uint32>(fileStart + track.index1);
            entry.audio = track.audio;
            layout->tracks.push_back(entry);
        }
        fileStart += sectors;
        if (fileStart > LAST_FRAME_OFFSET) {
            *why = mCuePath + ": the files add up to more than any CD holds";
            return false;
        }
    }
    layout->leadOut = static_cast<uint32>(fileStart);
    return true;
}
