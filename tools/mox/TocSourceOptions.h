// The command-line options that name a disc's TOC source: --offsets, --cue,
// --image and --device, and where a subcommand wants it --toc. A subcommand adds them to its CLI11
// app and, once parsed, turns them into a TocRequest for readDiscToc().
#ifndef MOX_TOOLS_TOCSOURCEOPTIONS_H
#define MOX_TOOLS_TOCSOURCEOPTIONS_H

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "HbFramework/HbTypes.h"
#include "TocSource.h"

class TocSourceOptions {
public:
    // Adds the four options to `app` in one group that takes exactly one of
    // them; a subcommand may add its own alternatives (like --toc) to the
    // returned group. This object must outlive the parse.
    CLI::Option_group* addTo(CLI::App& app);

    // Adds --toc TEXT to `group` (returned by addTo): the TOC text as the
    // tools write it, read into its offsets.
    void addTocText(CLI::Option_group& group);

    // The check of a TOC text given on the command line (see
    // offsetsFromTocText): the reason names what breaks the tools' rules.
    static CLI::Validator tocTextCheck();

    // True when one of the options was given.
    bool given() const;

    // The request the given option names.
    TocRequest request() const;

private:
    std::vector<uint32> mOffsets;
    std::string mCue;
    std::string mImage;
    std::string mDevice;
    std::string mTocText;
    CLI::Option* mOffsetsOption = nullptr;
    CLI::Option* mCueOption = nullptr;
    CLI::Option* mImageOption = nullptr;
    CLI::Option* mDeviceOption = nullptr;
    CLI::Option* mTocTextOption = nullptr;
};

#endif  // MOX_TOOLS_TOCSOURCEOPTIONS_H
