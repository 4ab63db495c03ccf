// The text of a CUE sheet or a cdrdao TOC file, read and checked before a
// library parses it. libcue and libcdio read these files by rules of their
// own, so the checks take the text the widest way: lines end at a line feed
// or a carriage return, words are separated by any blank, keywords match in
// any case, and a file name counts in every form a parser may take it. What
// passes here is safe for every reading of it:
// - every file the text names, if it exists, is a regular file (a FIFO or a
//   device would block the parser, or be read without end);
// - the TRACK lines of a CUE sheet number the tracks 1, 2, 3 ... (libcdio
//   writes into freed memory on other numbers).
#ifndef MOX_TOOLS_SHEETTEXT_H
#define MOX_TOOLS_SHEETTEXT_H

#include <cstddef>
#include <string>
#include <vector>

class SheetText {
public:
    // Largest sheet read: a sheet is a few kilobytes of text.
    static constexpr size_t kMaxBytes = 1024 * 1024;

    // Reads the regular file `path` whole. False with a one-line reason for a
    // missing or unreadable file, one that is not a regular file, one larger
    // than kMaxBytes, or one holding a NUL byte (libcue stops reading at it,
    // libcdio reads on: the two would see different sheets).
    static bool read(const std::string& path, std::string* text, std::string* why);

    // The lines of `text` that are FILE, AUDIOFILE or DATAFILE commands.
    static size_t fileLines(const std::string& text);

    // Every name that a FILE, AUDIOFILE or DATAFILE line may stand for: the
    // quoted name (also without its closing quote), the rest of the line, and
    // each word of it.
    static std::vector<std::string> fileNames(const std::string& text);

    // Each of fileNames() that exists, taken from the sheet's directory or
    // from the working directory, must be a regular file. False with
    // "<path>: not a regular file" otherwise.
    static bool checkFileNames(const std::string& sheetPath, const std::string& text,
                               std::string* why);

    // The TRACK lines must number the tracks 1, 2, 3 ... in order. False with
    // a one-line reason naming the first that does not.
    static bool checkTrackNumbers(const std::string& sheetPath, const std::string& text,
                                  std::string* why);

    // CUE sheets: every INDEX, PREGAP and POSTGAP time is mm:ss:ff with
    // seconds up to 59 and frames up to 74, and every TRACK has an INDEX 01
    // before the next TRACK. False with "<path>:<line>: <reason>" for the
    // first line (counted by line feeds) that breaks it.
    static bool checkTimes(const std::string& sheetPath, const std::string& text, std::string* why);

    // cdrdao TOC files: every TRACK line must name a mode that libcdio sizes:
    // AUDIO, MODE1, MODE1_RAW, MODE2_FORM_MIX or MODE2_RAW. libcdio divides
    // by zero on a track without a mode, or of mode MODE2, MODE2_FORM1 or
    // MODE2_FORM2, whose file length it has to work out. False with a
    // one-line reason naming the first such line.
    static bool checkTrackModes(const std::string& tocPath, const std::string& text,
                                std::string* why);
};

#endif  // MOX_TOOLS_SHEETTEXT_H
