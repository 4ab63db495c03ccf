// readDiscToc: a disc's TOC from offsets, CUE sheets, images and drives, each
// result compared with what libcdio reads of the same image and with
// libdiscid's IDs for the same offsets.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "DiscImageFiles.h"
#include "ReferenceReads.h"
#include "TestDir.h"
#include "TocSource.h"

namespace {

using Format = DiscImageFiles::AudioFormat;

TocRequest fileRequest(TocOrigin origin, const std::string& path) {
    TocRequest request;
    request.origin = origin;
    request.path = path;
    return request;
}

class TocSourceTest : public ::testing::Test {
protected:
    TocSourceTest() : dir("TocSourceTest") {}

    static DiscToc read(const TocRequest& request) {
        DiscToc toc;
        std::string why;
        EXPECT_TRUE(readDiscToc(request, &toc, &why)) << why;
        EXPECT_EQ(why, "");
        return toc;
    }

    static std::string failure(const TocRequest& request) {
        DiscToc toc;
        std::string why;
        EXPECT_FALSE(readDiscToc(request, &toc, &why));
        EXPECT_EQ(toc.toc, "");
        return why;
    }

    // The disc IDs must be libdiscid's for the TOC's own offsets and lead-out.
    static void expectLibdiscidIds(const DiscToc& toc) {
        const DiscIdPair ids = idsFromLibdiscid(toc.first, toc.offsets, toc.leadOut);
        EXPECT_EQ(toc.musicBrainzId, ids.musicBrainz);
        EXPECT_EQ(toc.freedbId, ids.freedb);
        EXPECT_EQ(toc.musicBrainzId.size(), 28u);
        EXPECT_EQ(toc.freedbId.size(), 8u);
    }

    // An all-audio image: every track libcdio lists, and its lead-out.
    static void expectAllOfLibcdio(const DiscToc& toc, const std::string& path,
                                   CdioImageKind kind) {
        const CdioTrackList reference = readWithLibcdio(path, kind);
        ASSERT_TRUE(reference.opened);
        EXPECT_EQ(toc.first, reference.first);
        EXPECT_EQ(toc.offsets, reference.offsets);
        EXPECT_EQ(toc.leadOut, reference.leadOut);
        EXPECT_FALSE(toc.dataTrack);
        expectLibdiscidIds(toc);
    }

    TestDir dir;
};

}  // namespace

TEST_F(TocSourceTest, ReadDiscToc_WhenKnownOffsets_GivesItsTocTextAndIds) {
    TocRequest request;
    request.offsets = {150, 18150, 36150, 54150};
    const DiscToc toc = read(request);
    EXPECT_EQ(toc.toc, "0000960046E6008D3600D386");
    EXPECT_EQ(toc.first, 1u);
    EXPECT_EQ(toc.last, 3u);
    EXPECT_EQ(toc.offsets, (std::vector<uint32>{150, 18150, 36150}));
    EXPECT_EQ(toc.leadOut, 54150u);
    EXPECT_EQ(toc.musicBrainzId, "LyYHtwByCwAcdhuXmLHF.KGB224-");
    EXPECT_EQ(toc.freedbId, "1802d003");
    EXPECT_FALSE(toc.dataTrack);
}

TEST_F(TocSourceTest, ReadDiscToc_WhenBinCueOfKnownDisc_GivesTheSameTocAsItsOffsets) {
    const std::string cue = DiscImageFiles::writeBinCue(
        dir.path(), "known", {audio(17850), audio(18000, 150), audio(18000)});
    const DiscToc toc = read(fileRequest(TocOrigin::CUE, cue));
    EXPECT_EQ(toc.toc, "0000960046E6008D3600D386");
    EXPECT_EQ(toc.musicBrainzId, "LyYHtwByCwAcdhuXmLHF.KGB224-");
    EXPECT_EQ(toc.freedbId, "1802d003");
    expectAllOfLibcdio(toc, cue, CdioImageKind::BIN_CUE);
}

TEST_F(TocSourceTest, ReadDiscToc_WhenBinCueEndsInDataTrack_LeavesItOutAndMovesLeadOut) {
    const std::vector<ImageTrack> tracks = {audio(18000), audio(9000, 150), audio(13000, 75),
                                            data(20000)};
    const std::string cue = DiscImageFiles::writeBinCue(dir.path(), "enhanced", tracks);
    const DiscToc toc = read(fileRequest(TocOrigin::CUE, cue));
    const CdioTrackList reference = readWithLibcdio(cue, CdioImageKind::BIN_CUE);
    ASSERT_TRUE(reference.opened);
    ASSERT_EQ(reference.offsets.size(), 4u);
    ASSERT_FALSE(reference.audio[3]);
    EXPECT_EQ(toc.offsets,
              std::vector<uint32>(reference.offsets.begin(), reference.offsets.begin() + 3));
    EXPECT_EQ(toc.leadOut, reference.offsets[3] - 11400);
    EXPECT_EQ(toc.first, 1u);
    EXPECT_EQ(toc.last, 3u);
    EXPECT_TRUE(toc.dataTrack);
    EXPECT_EQ(toc.dataTrackNumber, 4u);
    EXPECT_EQ(toc.dataTrackOffset, reference.offsets[3]);
    EXPECT_EQ(toc.toc, "00009600477C006AEF00712F");
    expectLibdiscidIds(toc);
}

TEST_F(TocSourceTest, ReadDiscToc_WhenBinCueOfOneTrack_GivesOneTrack) {
    const std::string cue = DiscImageFiles::writeBinCue(dir.path(), "one", {audio(22500)});
    const DiscToc toc = read(fileRequest(TocOrigin::CUE, cue));
    EXPECT_EQ(toc.toc, "00009600587A");
    EXPECT_EQ(toc.last, 1u);
    expectAllOfLibcdio(toc, cue, CdioImageKind::BIN_CUE);
}

TEST_F(TocSourceTest, ReadDiscToc_WhenBinCueOf99Tracks_GivesThemAll) {
    const std::vector<ImageTrack> tracks(99, audio(450, 0));
    const std::string cue = DiscImageFiles::writeBinCue(dir.path(), "ninety-nine", tracks);
    const DiscToc toc = read(fileRequest(TocOrigin::CUE, cue));
    EXPECT_EQ(toc.last, 99u);
    EXPECT_EQ(toc.toc.size(), 600u);
    expectAllOfLibcdio(toc, cue, CdioImageKind::BIN_CUE);
}

TEST_F(TocSourceTest, ReadDiscToc_WhenSheetNamesAnotherBin_ReadsWhatLibcdioReadsOfThatImage) {
    const std::vector<ImageTrack> tracks = {audio(3000), audio(14000, 150), data(5000)};
    const std::string cue = DiscImageFiles::writeBinCue(dir.path(), "image", tracks);
    const std::string other = dir.file("renamed.cue");
    const std::vector<unsigned char> sheet = TestDir::readFile(cue);
    DiscImageFiles::writeText(other, std::string(sheet.begin(), sheet.end()));
    const DiscToc viaSheet = read(fileRequest(TocOrigin::CUE, other));
    const DiscToc viaLibcdio = read(fileRequest(TocOrigin::CUE, cue));
    EXPECT_EQ(viaSheet.toc, viaLibcdio.toc);
    EXPECT_EQ(viaSheet.leadOut, viaLibcdio.leadOut);
    EXPECT_EQ(viaSheet.dataTrackOffset, viaLibcdio.dataTrackOffset);
    EXPECT_EQ(viaSheet.musicBrainzId, viaLibcdio.musicBrainzId);
    EXPECT_TRUE(viaSheet.dataTrack);
}

TEST_F(TocSourceTest, ReadDiscToc_WhenWavPerTrack_PlacesTracksByFileLength) {
    const std::vector<ImageTrack> tracks = {audio(1500), audio(1000, 150), audio(800, 75)};
    const std::string cue = DiscImageFiles::writeAudioCue(dir.path(), "wav", tracks, Format::WAV);
    const DiscToc toc = read(fileRequest(TocOrigin::CUE, cue));
    const std::vector<uint32_t> expected = DiscImageFiles::offsetsOf(tracks);
    EXPECT_EQ(toc.offsets, std::vector<uint32>(expected.begin(), expected.end() - 1));
    EXPECT_EQ(toc.leadOut, expected.back());
    EXPECT_EQ(toc.toc, "000096000708000B3B000E5B");
    expectLibdiscidIds(toc);
}

TEST_F(TocSourceTest, ReadDiscToc_WhenFlacPerTrack_MatchesTheSameDiscAsBinCue) {
    const std::vector<ImageTrack> tracks = {audio(1500), audio(1000, 150), audio(800, 75)};
    const std::string flac =
        DiscImageFiles::writeAudioCue(dir.path(), "flac", tracks, Format::FLAC);
    const std::string bin = DiscImageFiles::writeBinCue(dir.path(), "bin", tracks);
    const DiscToc fromFlac = read(fileRequest(TocOrigin::CUE, flac));
    const DiscToc fromBin = read(fileRequest(TocOrigin::CUE, bin));
    EXPECT_EQ(fromFlac.toc, fromBin.toc);
    EXPECT_EQ(fromFlac.musicBrainzId, fromBin.musicBrainzId);
    EXPECT_EQ(fromFlac.freedbId, fromBin.freedbId);
    expectAllOfLibcdio(fromFlac, bin, CdioImageKind::BIN_CUE);
}

TEST_F(TocSourceTest, ReadDiscToc_WhenImageIsCdrdaoToc_ReadsWhatLibcdioReads) {
    const std::vector<ImageTrack> tracks = {audio(1000), audio(800, 150), audio(1200)};
    const std::string path = DiscImageFiles::writeCdrdaoToc(dir.path(), "cdrdao", tracks);
    const DiscToc toc = read(fileRequest(TocOrigin::IMAGE, path));
    expectAllOfLibcdio(toc, path, CdioImageKind::CDRDAO);
}

TEST_F(TocSourceTest, ReadDiscToc_WhenImageIsCdrdaoTocWithDataTrack_LeavesItOut) {
    const std::vector<ImageTrack> tracks = {audio(1000), audio(12000), data(2000)};
    const std::string path = DiscImageFiles::writeCdrdaoToc(dir.path(), "cdrdaodata", tracks);
    const DiscToc toc = read(fileRequest(TocOrigin::IMAGE, path));
    EXPECT_EQ(toc.offsets, (std::vector<uint32>{150, 1150}));
    EXPECT_EQ(toc.leadOut, 13150u - 11400u);
    EXPECT_TRUE(toc.dataTrack);
    expectLibdiscidIds(toc);
}

TEST_F(TocSourceTest, ReadDiscToc_WhenImageIsSheetOfAudioFiles_ReadsItLikeCue) {
    const std::string cue =
        DiscImageFiles::writeAudioCue(dir.path(), "img", {audio(600), audio(600)}, Format::FLAC);
    EXPECT_EQ(read(fileRequest(TocOrigin::IMAGE, cue)).toc,
              read(fileRequest(TocOrigin::CUE, cue)).toc);
}

TEST_F(TocSourceTest, ReadDiscToc_WhenImageIsBinFile_ReadsItsSheet) {
    const std::string cue = DiscImageFiles::writeBinCue(dir.path(), "bybin", {audio(900)});
    EXPECT_EQ(read(fileRequest(TocOrigin::IMAGE, dir.file("bybin.bin"))).toc, "00009600041A");
}

TEST_F(TocSourceTest, ReadDiscToc_WhenOffsetsFall_SaysSo) {
    TocRequest request;
    request.offsets = {150, 18150, 9000};
    EXPECT_EQ(failure(request), "offsets do not increase: 18150 then 9000");
}

TEST_F(TocSourceTest, ReadDiscToc_WhenSheetTracksShareAStart_NamesTheSheet) {
    DiscImageFiles::writeAudio(dir.file("a.wav"), Format::WAV, 300);
    const std::string cue = dir.file("same.cue");
    DiscImageFiles::writeText(cue,
                              "FILE \"a.wav\" WAVE\n"
                              "  TRACK 01 AUDIO\n    INDEX 01 00:00:00\n"
                              "  TRACK 02 AUDIO\n    INDEX 01 00:00:00\n");
    EXPECT_EQ(failure(fileRequest(TocOrigin::CUE, cue)),
              cue + ": offsets do not increase: 150 then 150");
}

TEST_F(TocSourceTest, ReadDiscToc_WhenSheetHasOnlyDataTrack_NamesTheSheet) {
    const std::string cue = DiscImageFiles::writeBinCue(dir.path(), "data", {data(3000)});
    EXPECT_EQ(failure(fileRequest(TocOrigin::CUE, cue)),
              cue + ": no audio track in the first session");
}

TEST_F(TocSourceTest, ReadDiscToc_WhenSheetMissing_NamesIt) {
    const std::string cue = dir.file("nowhere.cue");
    EXPECT_EQ(failure(fileRequest(TocOrigin::CUE, cue)), cue + ": No such file or directory");
}

TEST_F(TocSourceTest, ReadDiscToc_WhenImageMissing_NamesIt) {
    const std::string path = dir.file("nowhere.nrg");
    EXPECT_EQ(failure(fileRequest(TocOrigin::IMAGE, path)), path + ": No such file or directory");
}

TEST_F(TocSourceTest, ReadDiscToc_WhenImageIsADirectory_NamesIt) {
    EXPECT_EQ(failure(fileRequest(TocOrigin::IMAGE, dir.path())),
              dir.path() + ": not a regular file");
}

TEST_F(TocSourceTest, ReadDiscToc_WhenDeviceHasNoDisc_NamesTheDevice) {
    EXPECT_EQ(failure(fileRequest(TocOrigin::DEVICE, "/dev/null")),
              "/dev/null: no disc in the drive (libcdio: error in ioctl CDROMREADTOCHDR: "
              "Inappropriate ioctl for device)");
}
