// Reads a disc's track list through libcdio: from a BIN/CUE image, a cdrdao
// TOC file or an NRG image, or from the CD in a drive.
#ifndef MOX_TOOLS_CDIOREADER_H
#define MOX_TOOLS_CDIOREADER_H

#include <string>

#include "DiscLayout.h"

class CdioReader {
public:
    // `path` names a CUE sheet (its image beside it with the sheet's name and
    // ".bin"), a BIN file (its sheet beside it), a cdrdao TOC file (by its
    // name, ".toc") or an NRG image. libcdio reads the sheets and the files
    // they name as they are: check them first (SheetText). False with a
    // one-line reason when libcdio cannot read it. A
    // cdrdao TOC file is opened from its own directory, as the names of the
    // files in it are relative to it: the working directory changes for the
    // call, so call this before starting threads that depend on it.
    static bool readImage(const std::string& path, DiscLayout* layout, std::string* why);

    // `device` names a CD drive; empty for the default drive. False with a
    // one-line reason when there is no such drive or no disc in it.
    static bool readDevice(const std::string& device, DiscLayout* layout, std::string* why);

    // The BIN file that libcdio reads for the CUE sheet `cuePath`; libcdio
    // parses the sheet for it.
    static std::string binForCue(const std::string& cuePath);

    // The CUE sheet that libcdio reads for the BIN file `binPath` ("" when
    // libcdio takes it for no BIN file); only the name is looked at.
    static std::string cueForBin(const std::string& binPath);
};

#endif  // MOX_TOOLS_CDIOREADER_H
