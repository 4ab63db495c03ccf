#include "DiscImageFiles.h"

#include <sndfile.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <stdexcept>

namespace {

const uint32_t FIRST_FRAME_OFFSET = 150;
const uint64_t RAW_SECTOR_BYTES = 2352;
const uint32_t SAMPLES_PER_SECTOR = 588;

uint32_t totalSectors(const std::vector<ImageTrack>& tracks) {
    uint32_t total = 0;
    for (const ImageTrack& track : tracks) {
        total += track.pregap + track.sectors;
    }
    return total;
}

std::string trackLine(size_t index, const ImageTrack& track) {
    char number[8];
    std::snprintf(number, sizeof(number), "%02zu", index + 1);
    return std::string("  TRACK ") + number + (track.audio ? " AUDIO\n" : " MODE1/2352\n");
}

}  // namespace

std::vector<uint32_t> DiscImageFiles::offsetsOf(const std::vector<ImageTrack>& tracks) {
    std::vector<uint32_t> offsets;
    uint32_t at = FIRST_FRAME_OFFSET;
    for (const ImageTrack& track : tracks) {
        offsets.push_back(at + track.pregap);
        at += track.pregap + track.sectors;
    }
    offsets.push_back(at);
    return offsets;
}

std::string DiscImageFiles::msf(uint32_t sectors) {
    char text[16];
    std::snprintf(text, sizeof(text), "%02u:%02u:%02u", sectors / 4500, sectors / 75 % 60,
                  sectors % 75);
    return text;
}

std::string DiscImageFiles::writeBinCue(const std::string& dir, const std::string& name,
                                        const std::vector<ImageTrack>& tracks,
                                        const std::string& binName) {
    writeSparse(dir + "/" + name + ".bin", totalSectors(tracks) * RAW_SECTOR_BYTES);
    std::string sheet = "FILE \"" + (binName.empty() ? name + ".bin" : binName) + "\" BINARY\n";
    uint32_t at = 0;
    for (size_t i = 0; i < tracks.size(); ++i) {
        sheet += trackLine(i, tracks[i]);
        if (tracks[i].pregap > 0) {
            sheet += "    INDEX 00 " + msf(at) + "\n";
        }
        sheet += "    INDEX 01 " + msf(at + tracks[i].pregap) + "\n";
        at += tracks[i].pregap + tracks[i].sectors;
    }
    const std::string path = dir + "/" + name + ".cue";
    writeText(path, sheet);
    return path;
}

std::string DiscImageFiles::writeCdrdaoToc(const std::string& dir, const std::string& name,
                                           const std::vector<ImageTrack>& tracks) {
    writeSparse(dir + "/" + name + ".bin", totalSectors(tracks) * RAW_SECTOR_BYTES);
    bool data = false;
    for (const ImageTrack& track : tracks) {
        data = data || !track.audio;
    }
    std::string text = data ? "CD_ROM\n" : "CD_DA\n";
    uint32_t at = 0;
    for (const ImageTrack& track : tracks) {
        const uint32_t length = track.pregap + track.sectors;
        text += track.audio ? "\nTRACK AUDIO\n" : "\nTRACK MODE1_RAW\n";
        // libcdio takes a track's start and length only from FILE lines (it
        // misplaces DATAFILE tracks), so data tracks are written with FILE too.
        text += "FILE \"" + name + ".bin\" " + msf(at) + " " + msf(length) + "\n";
        if (track.pregap > 0) {
            text += "START " + msf(track.pregap) + "\n";
        }
        at += length;
    }
    const std::string path = dir + "/" + name + ".toc";
    writeText(path, text);
    return path;
}

std::string DiscImageFiles::writeAudioCue(const std::string& dir, const std::string& name,
                                          const std::vector<ImageTrack>& tracks,
                                          AudioFormat format) {
    const char* extension = format == AudioFormat::WAV ? ".wav" : ".flac";
    std::string sheet;
    for (size_t i = 0; i < tracks.size(); ++i) {
        const std::string file = name + "-" + std::to_string(i + 1) + extension;
        writeAudio(dir + "/" + file, format, tracks[i].pregap + tracks[i].sectors);
        sheet += "FILE \"" + file + "\" WAVE\n" + trackLine(i, tracks[i]);
        if (tracks[i].pregap > 0) {
            sheet += "    INDEX 00 00:00:00\n";
        }
        sheet += "    INDEX 01 " + msf(tracks[i].pregap) + "\n";
    }
    const std::string path = dir + "/" + name + ".cue";
    writeText(path, sheet);
    return path;
}

void DiscImageFiles::writeAudio(const std::string& path, AudioFormat format, uint32_t sectors,
                                int sampleRate, uint32_t extraFrames) {
    SF_INFO info = {};
    info.samplerate = sampleRate;
    info.channels = 2;
    info.format = (format == AudioFormat::WAV ? SF_FORMAT_WAV : SF_FORMAT_FLAC) | SF_FORMAT_PCM_16;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    if (file == nullptr) {
        throw std::runtime_error("cannot write " + path + ": " + sf_strerror(nullptr));
    }
    // A quiet ramp rather than silence, so that the encoders store real samples.
    std::vector<short> samples(2 * SAMPLES_PER_SECTOR);
    for (size_t i = 0; i < samples.size(); ++i) {
        samples[i] = static_cast<short>(i % 64);
    }
    for (uint32_t s = 0; s < sectors; ++s) {
        sf_writef_short(file, samples.data(), SAMPLES_PER_SECTOR);
    }
    sf_writef_short(file, samples.data(), extraFrames);
    sf_close(file);
}

void DiscImageFiles::writeText(const std::string& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
    if (!out) {
        throw std::runtime_error("cannot write " + path);
    }
}

void DiscImageFiles::writeSparse(const std::string& path, uint64_t bytes) {
    writeText(path, "");
    if (::truncate(path.c_str(), static_cast<off_t>(bytes)) != 0) {
        throw std::runtime_error("cannot size " + path);
    }
}

std::string DiscImageFiles::writeMisnumberedBinCue(const std::string& dir,
                                                   const std::string& name) {
    writeSparse(dir + "/" + name + ".bin", 23520);
    const std::string cue = dir + "/" + name + ".cue";
    writeText(cue, "FILE \"" + name +
                       ".bin\" BINARY\n  TRACK 99 AUDIO\n    INDEX 01 00:00:00\n"
                       "  TRACK 02 AUDIO\n    INDEX 01 00:04:00\n");
    return cue;
}
