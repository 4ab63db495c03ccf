// Disc images that the tests of the TOC readers make on the spot: sparse BIN
// files with CUE sheets, cdrdao TOC files, and CUE sheets over one WAV or FLAC
// file per track written with libsndfile.
#ifndef MOX_TESTS_DISCIMAGEFILES_H
#define MOX_TESTS_DISCIMAGEFILES_H

#include <cstdint>
#include <string>
#include <vector>

struct ImageTrack {
    uint32_t sectors = 0;  // from INDEX 01 to the next track's INDEX 00
    uint32_t pregap = 0;   // sectors from INDEX 00 to INDEX 01, held in the image
    bool audio = true;     // false: a MODE1/2352 data track
};

// An audio track of `sectors` sectors, `pregap` of them before INDEX 01.
inline ImageTrack audio(uint32_t sectors, uint32_t pregap = 0) {
    ImageTrack track;
    track.sectors = sectors;
    track.pregap = pregap;
    return track;
}

// A MODE1/2352 data track of `sectors` sectors.
inline ImageTrack data(uint32_t sectors) {
    ImageTrack track = audio(sectors);
    track.audio = false;
    return track;
}

class DiscImageFiles {
public:
    enum class AudioFormat { WAV, FLAC };

    // Frame offsets (LBA + 150) of every track's INDEX 01, then of the end of
    // the image, as the tracks lie one after the other from LBA 0.
    static std::vector<uint32_t> offsetsOf(const std::vector<ImageTrack>& tracks);

    // "mm:ss:ff" of a sector count, as CUE sheets and cdrdao TOC files write it.
    static std::string msf(uint32_t sectors);

    // <dir>/<name>.bin, sparse, 2352 bytes per sector of every track, and
    // <dir>/<name>.cue naming `binName` (empty: "<name>.bin"). Returns the
    // sheet's path.
    static std::string writeBinCue(const std::string& dir, const std::string& name,
                                   const std::vector<ImageTrack>& tracks,
                                   const std::string& binName = "");

    // <dir>/<name>.bin, 23,520 bytes (10 sectors), and <dir>/<name>.cue whose
    // tracks are numbered 99, then 02: a sheet that libcdio must never read
    // (it writes into freed memory on it). Returns the sheet's path.
    static std::string writeMisnumberedBinCue(const std::string& dir, const std::string& name);

    // <dir>/<name>.bin as above and <dir>/<name>.toc, a cdrdao TOC file over
    // it. Returns the TOC file's path.
    static std::string writeCdrdaoToc(const std::string& dir, const std::string& name,
                                      const std::vector<ImageTrack>& tracks);

    // One audio file per track, <dir>/<name>-<n>.wav or .flac, holding its
    // pregap (INDEX 00 at 00:00:00) and its sectors, and <dir>/<name>.cue over
    // them. Every track must be audio. Returns the sheet's path.
    static std::string writeAudioCue(const std::string& dir, const std::string& name,
                                     const std::vector<ImageTrack>& tracks, AudioFormat format);

    // `sectors` sectors of 16-bit stereo audio (588 sample frames each) at
    // `sampleRate`, plus `extraFrames` sample frames.
    static void writeAudio(const std::string& path, AudioFormat format, uint32_t sectors,
                           int sampleRate = 44100, uint32_t extraFrames = 0);

    static void writeText(const std::string& path, const std::string& text);
    static void writeSparse(const std::string& path, uint64_t bytes);
};

#endif  // MOX_TESTS_DISCIMAGEFILES_H
