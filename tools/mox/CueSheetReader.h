// Reads CUE sheets with libcue, also those that name one audio file per track
// (WAV or FLAC, as rippers write them) which libcdio cannot read. Each file's
// length comes from libsndfile, or from its size for raw sector files (.bin,
// .img, .raw). The files follow each other on the disc in the order the sheet
// names them; a track starts at its INDEX 01. PREGAP lines (silence that no
// file holds) add nothing, as in libcdio.
#ifndef MOX_TOOLS_CUESHEETREADER_H
#define MOX_TOOLS_CUESHEETREADER_H

#include <string>
#include <vector>

#include "DiscLayout.h"
#include "HbFramework/HbTypes.h"

class CueSheetReader {
public:
    struct SheetTrack {
        uint32 number = 0;
        std::string file;   // path of its file, relative names taken from the sheet's directory
        uint32 index1 = 0;  // INDEX 01 in frames from the start of its file
        bool audio = true;
        uint32 blockBytes = 2352;  // bytes per sector of its mode in a raw file
    };

    // Parses `cuePath`. False with a one-line reason for a missing or
    // unreadable sheet, a sheet without tracks or with more than 99, tracks
    // not numbered 1, 2, 3 ..., a named file that is there but is not a
    // regular file (SheetText.h), or a malformed sheet.
    bool parse(const std::string& cuePath, std::string* why);

    // The files the sheet names, each once, in order.
    std::vector<std::string> files() const;
    // The sheet's FILE lines, however a library may read them.
    size_t fileLines() const { return mFileLines; }
    const std::vector<SheetTrack>& tracks() const { return mTracks; }

    // Places the tracks on the disc from the lengths of their files. False
    // with a one-line reason for a missing or unreadable file, audio that is
    // not 44100 Hz, or a track that starts past the end of its file.
    bool readLayout(DiscLayout* layout, std::string* why) const;

private:
    bool fileSectors(const std::string& file, uint32* sectors, std::string* why) const;

    std::string mCuePath;
    std::vector<SheetTrack> mTracks;
    size_t mFileLines = 0;
};

#endif  // MOX_TOOLS_CUESHEETREADER_H
