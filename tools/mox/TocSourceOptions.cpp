#include "TocSourceOptions.h"

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

bool TocSourceOptions::given() const {
    return mOffsetsOption->count() > 0 || mCueOption->count() > 0 || mImageOption->count() > 0 ||
           mDeviceOption->count() > 0;
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
    } else {
        request.origin = TocOrigin::OFFSETS;
        request.offsets = mOffsets;
    }
    return request;
}
