#include "TocSourceOptions.h"

#include "TocInput.h"

CLI::Option_group* TocSourceOptions::addTo(CLI::App& app) {
    CLI::Option_group* group =
        app.add_option_group("TOC source", "where the disc's TOC comes from (exactly one)");
    mOffsetsOption =
        group
            ->add_option("--offsets", mOffsets,
                         "frame offsets (LBA + 150) of the tracks, then of the lead-out")
            ->type_name("N");
    mCueOption = group
                     ->add_option("--cue", mCue,
                                  "a CUE sheet: a BIN/CUE image, or one WAV or FLAC file per track")
                     ->type_name("FILE");
    mImageOption =
        group->add_option("--image", mImage, "a BIN/CUE image, a cdrdao TOC file or an NRG image")
            ->type_name("FILE");
    mDeviceOption =
        group->add_option("--device", mDevice, "the CD in a drive; the default drive without PATH")
            ->expected(0, 1)
            ->type_name("[PATH]");
    group->require_option(1);
    return group;
}

void TocSourceOptions::addTocText(CLI::Option_group& group) {
    mTocTextOption = group
                         .add_option("--toc", mTocText,
                                     "a TOC text: six upper-case hexadecimal digits of each "
                                     "track's frame offset, then of the lead-out's")
                         ->check(tocTextCheck());
}

CLI::Validator TocSourceOptions::tocTextCheck() {
    return CLI::Validator(
        [](std::string& text) {
            std::vector<uint32> offsets;
            std::string why;
            return offsetsFromTocText(text, &offsets, &why) ? std::string() : why;
        },
        "TOC text");
}

bool TocSourceOptions::given() const {
    return mOffsetsOption->count() > 0 || mCueOption->count() > 0 || mImageOption->count() > 0 ||
           mDeviceOption->count() > 0 || (mTocTextOption != nullptr && mTocTextOption->count() > 0);
}

TocRequest TocSourceOptions::request() const {
    TocRequest request;
    if (mCueOption->count() > 0) {
        request.origin = TocOrigin::CUE;
        request.path = mCue;
    } else if (mImageOption->count() > 0) {
        request.origin = TocOrigin::IMAGE;
        request.path = mImage;
    } else if (mDeviceOption->count() > 0) {
        request.origin = TocOrigin::DEVICE;
        request.path = mDevice;
    } else if (mTocTextOption != nullptr && mTocTextOption->count() > 0) {
        std::string why;  // checked by the option
        request.origin = TocOrigin::OFFSETS;
        offsetsFromTocText(mTocText, &request.offsets, &why);
    } else {
        request.origin = TocOrigin::OFFSETS;
        request.offsets = mOffsets;
    }
    return request;
}
