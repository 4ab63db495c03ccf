#include "TocSource.h"

#include <strings.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "CdioReader.h"
#include "CueSheetReader.h"
#include "DiscIds.h"
#include "DiscLayout.h"
#include "SheetText.h"
#include "TextEscape.h"
#include "TocInput.h"

namespace {

bool hasExtension(const std::string& path, const char* extension) {
    const size_t length = std::strlen(extension);
    return path.size() > length &&
           ::strcasecmp(path.c_str() + path.size() - length, extension) == 0;
}

// The file a user named must be there and be a file before any library looks at it.
bool checkFile(const std::string& path, std::string* why) {
    struct stat info;
    if (::stat(path.c_str(), &info) != 0) {
        *why = path + ": " + std::strerror(errno);
        return false;
    }
    if (!S_ISREG(info.st_mode)) {
        *why = path + ": not a regular file";
        return false;
    }
    return true;
}

bool sameFile(const std::string& a, const std::string& b) {
    struct stat infoA;
    struct stat infoB;
    return !a.empty() && !b.empty() && ::stat(a.c_str(), &infoA) == 0 &&
           ::stat(b.c_str(), &infoB) == 0 && infoA.st_dev == infoB.st_dev &&
           infoA.st_ino == infoB.st_ino;
}

// A sheet naming one file, the very BIN that libcdio reads for it, is a
// BIN/CUE image for libcdio; any other sheet is placed from its files' lengths.
// The sheet has been checked (CueSheetReader, SheetText) before libcdio reads it.
bool readCueSheet(const std::string& path, DiscLayout* layout, std::string* why) {
    CueSheetReader sheet;
    if (!sheet.parse(path, why)) {
        return false;
    }
    const std::vector<std::string> files = sheet.files();
    if (files.size() == 1 && sheet.fileLines() == 1) {
        const std::string bin = CdioReader::binForCue(path);
        if (sameFile(files.front(), bin)) {
            return checkFile(bin, why) && CdioReader::readImage(path, layout, why);
        }
    }
    return sheet.readLayout(layout, why);
}

// A BIN file is read by libcdio with the sheet beside it: the sheet, and the
// files it names, are checked first.
bool readBinImage(const std::string& path, DiscLayout* layout, std::string* why) {
    const std::string cue = CdioReader::cueForBin(path);
    CueSheetReader sheet;
    if (!cue.empty() && (!checkFile(cue, why) || !sheet.parse(cue, why))) {
        return false;
    }
    return CdioReader::readImage(path, layout, why);
}

// libcdio opens the files that a cdrdao TOC file names: each that is there
// must be a regular file; and it fails on some track modes (SheetText.h).
bool readCdrdaoImage(const std::string& path, DiscLayout* layout, std::string* why) {
    std::string text;
    return SheetText::read(path, &text, why) && SheetText::checkTrackModes(path, text, why) &&
           SheetText::checkFileNames(path, text, why) && CdioReader::readImage(path, layout, why);
}

bool readImageFile(const std::string& path, DiscLayout* layout, std::string* why) {
    if (!checkFile(path, why)) {
        return false;
    }
    if (hasExtension(path, ".cue")) {
        return readCueSheet(path, layout, why);
    }
    if (hasExtension(path, ".bin")) {
        return readBinImage(path, layout, why);
    }
    if (hasExtension(path, ".toc")) {
        return readCdrdaoImage(path, layout, why);
    }
    return CdioReader::readImage(path, layout, why);
}

bool readLayout(const TocRequest& request, DiscLayout* layout, std::string* why) {
    switch (request.origin) {
        case TocOrigin::CUE:
            return checkFile(request.path, why) && readCueSheet(request.path, layout, why);
        case TocOrigin::IMAGE:
            return readImageFile(request.path, layout, why);
        case TocOrigin::DEVICE:
            return CdioReader::readDevice(request.path, layout, why);
        case TocOrigin::OFFSETS:
            break;
    }
    *why = "no disc named";
    return false;
}

// TOC text and disc IDs for the tracks and lead-out already in `toc`. A TOC
// that libdiscid refuses (a disc longer than it accepts) keeps the TOC text
// and cd-discid's values; `idsNote` says why libdiscid's are missing.
bool completeToc(DiscToc* toc, std::string* why) {
    std::vector<uint32> all = toc->offsets;
    all.push_back(toc->leadOut);
    if (!tocFromOffsets(all, &toc->toc, why)) {
        return false;
    }
    toc->cdDiscidId = freedbFormula(toc->allOffsets, toc->discLeadOut);
    toc->cdDiscidLine = cdDiscidLine(toc->allOffsets, toc->discLeadOut);
    LibdiscidValues values;
    if (!computeLibdiscidValues(toc->idFirst, toc->idOffsets, toc->leadOut, &values,
                                &toc->idsNote)) {
        return true;
    }
    toc->musicBrainzId = values.musicBrainzId;
    toc->freedbId = values.freedbId;
    toc->tocString = values.tocString;
    toc->submissionUrl = values.submissionUrl;
    return true;
}

bool tocOfOffsets(const std::vector<uint32>& offsets, DiscToc* toc, std::string* why) {
    if (!tocFromOffsets(offsets, &toc->toc, why)) {
        return false;
    }
    toc->first = 1;
    toc->last = static_cast<uint32>(offsets.size() - 1);
    toc->offsets.assign(offsets.begin(), offsets.end() - 1);
    toc->leadOut = offsets.back();
    toc->idFirst = 1;
    toc->idOffsets = toc->offsets;
    toc->allOffsets = toc->offsets;
    toc->discLeadOut = toc->leadOut;
    return completeToc(toc, why);
}

}  // namespace

bool readDiscToc(const TocRequest& request, DiscToc* out, std::string* why) {
    DiscToc toc;
    if (request.origin == TocOrigin::OFFSETS) {
        if (!tocOfOffsets(request.offsets, &toc, why)) {
            return false;
        }
        *out = toc;
        return true;
    }
    DiscLayout layout;
    if (!readLayout(request, &layout, why)) {
        // A name from a sheet (libcue takes a quoted name across a line break)
        // or a path may hold control characters: the reason stays one line.
        *why = escapeControlCharacters(*why);
        return false;
    }
    std::string problem;
    if (!selectAudioTracks(layout, &toc, &problem) || !completeToc(&toc, &problem)) {
        *why =
            escapeControlCharacters(request.path.empty() ? problem : request.path + ": " + problem);
        return false;
    }
    *out = toc;
    return true;
}
