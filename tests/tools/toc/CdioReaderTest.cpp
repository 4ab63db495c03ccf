// CdioReader: BIN/CUE images and cdrdao TOC files made here, read through the
// reader and compared with what libcdio's own API reads of the same file;
// drives that are not there.
#include <gtest/gtest.h>

#include <cdio/cdio.h>
#include <unistd.h>

#include <cstdlib>

#include <string>
#include <vector>

#include "CdioReader.h"
#include "DiscImageFiles.h"
#include "ReferenceReads.h"
#include "TestDir.h"

namespace {

class CdioReaderTest : public ::testing::Test {
protected:
    CdioReaderTest() : dir("CdioReaderTest") {}

    DiscLayout read(const std::string& path) {
        DiscLayout layout;
        std::string why;
        EXPECT_TRUE(CdioReader::readImage(path, &layout, &why)) << why;
        return layout;
    }

    // The layout must list exactly what libcdio's API lists for `path`.
    static void expectSameAsLibcdio(const DiscLayout& layout, const std::string& path,
                                    CdioImageKind kind) {
        const CdioTrackList reference = readWithLibcdio(path, kind);
        ASSERT_TRUE(reference.opened);
        ASSERT_EQ(layout.tracks.size(), reference.offsets.size());
        for (size_t i = 0; i < layout.tracks.size(); ++i) {
            EXPECT_EQ(layout.tracks[i].number, reference.first + i);
            EXPECT_EQ(layout.tracks[i].offset, reference.offsets[i]) << "track " << i + 1;
            EXPECT_EQ(layout.tracks[i].audio, reference.audio[i]) << "track " << i + 1;
            EXPECT_TRUE(layout.tracks[i].firstSession);
        }
        EXPECT_EQ(layout.leadOut, reference.leadOut);
    }

    static std::vector<uint32_t> offsetsOf(const DiscLayout& layout) {
        std::vector<uint32_t> offsets;
        for (const DiscTrack& track : layout.tracks) {
            offsets.push_back(track.offset);
        }
        offsets.push_back(layout.leadOut);
        return offsets;
    }

    TestDir dir;
};

}  // namespace

TEST_F(CdioReaderTest, ReadImage_WhenBinCueWithPregapsAndDataTrack_ReadsWhatLibcdioReads) {
    const std::vector<ImageTrack> tracks = {audio(18000), audio(17850, 150), audio(9000, 225),
                                            data(6000)};
    const std::string cue = DiscImageFiles::writeBinCue(dir.path(), "enhanced", tracks);
    const DiscLayout layout = read(cue);
    expectSameAsLibcdio(layout, cue, CdioImageKind::BIN_CUE);
    EXPECT_EQ(offsetsOf(layout), DiscImageFiles::offsetsOf(tracks));
    ASSERT_EQ(layout.tracks.size(), 4u);
    EXPECT_FALSE(layout.tracks[3].audio);
}

TEST_F(CdioReaderTest, ReadImage_WhenBinGiven_ReadsItsSheet) {
    const std::vector<ImageTrack> tracks = {audio(1000), audio(2000)};
    const std::string cue = DiscImageFiles::writeBinCue(dir.path(), "plain", tracks);
    const DiscLayout layout = read(dir.file("plain.bin"));
    expectSameAsLibcdio(layout, cue, CdioImageKind::BIN_CUE);
    EXPECT_EQ(offsetsOf(layout), (std::vector<uint32_t>{150, 1150, 3150}));
}

TEST_F(CdioReaderTest, ReadImage_WhenOneTrack_ReadsIt) {
    const std::string cue = DiscImageFiles::writeBinCue(dir.path(), "single", {audio(4500)});
    const DiscLayout layout = read(cue);
    expectSameAsLibcdio(layout, cue, CdioImageKind::BIN_CUE);
    EXPECT_EQ(offsetsOf(layout), (std::vector<uint32_t>{150, 4650}));
}

TEST_F(CdioReaderTest, ReadImage_When99Tracks_ReadsThemAll) {
    const std::vector<ImageTrack> tracks(99, audio(300, 0));
    const std::string cue = DiscImageFiles::writeBinCue(dir.path(), "many", tracks);
    const DiscLayout layout = read(cue);
    expectSameAsLibcdio(layout, cue, CdioImageKind::BIN_CUE);
    ASSERT_EQ(layout.tracks.size(), 99u);
    EXPECT_EQ(layout.tracks[98].number, 99u);
    EXPECT_EQ(offsetsOf(layout), DiscImageFiles::offsetsOf(tracks));
}

TEST_F(CdioReaderTest, ReadImage_WhenCdrdaoToc_ReadsWhatLibcdioReads) {
    const std::vector<ImageTrack> tracks = {audio(1000), audio(800, 150), audio(1200)};
    const std::string toc = DiscImageFiles::writeCdrdaoToc(dir.path(), "cdrdao", tracks);
    const DiscLayout layout = read(toc);
    expectSameAsLibcdio(layout, toc, CdioImageKind::CDRDAO);
    EXPECT_EQ(offsetsOf(layout), DiscImageFiles::offsetsOf(tracks));
}

TEST_F(CdioReaderTest, ReadImage_WhenCdrdaoTocWithDataTrack_ReadsWhatLibcdioReads) {
    const std::vector<ImageTrack> tracks = {audio(1000), audio(12000), data(2000)};
    const std::string toc = DiscImageFiles::writeCdrdaoToc(dir.path(), "cdrdaodata", tracks);
    const DiscLayout layout = read(toc);
    expectSameAsLibcdio(layout, toc, CdioImageKind::CDRDAO);
    EXPECT_EQ(offsetsOf(layout), DiscImageFiles::offsetsOf(tracks));
    ASSERT_EQ(layout.tracks.size(), 3u);
    EXPECT_FALSE(layout.tracks[2].audio);
}

TEST_F(CdioReaderTest, ReadImage_WhenNotAnImage_Refuses) {
    const std::string path = dir.file("notes.txt");
    DiscImageFiles::writeText(path, "not a disc\n");
    DiscLayout layout;
    std::string why;
    EXPECT_FALSE(CdioReader::readImage(path, &layout, &why));
    EXPECT_EQ(why, path + ": not an image that libcdio reads (BIN/CUE, cdrdao TOC, NRG)");
}

TEST_F(CdioReaderTest, ReadImage_WhenBinOfSheetMissing_GivesLibcdiosReason) {
    const std::string cue = DiscImageFiles::writeBinCue(dir.path(), "lost", {audio(1000)});
    ::remove(dir.file("lost.bin").c_str());
    DiscLayout layout;
    std::string why;
    EXPECT_FALSE(CdioReader::readImage(cue, &layout, &why));
    EXPECT_EQ(why, cue +
                       ": not an image that libcdio reads (BIN/CUE, cdrdao TOC, NRG) (libcdio: "
                       "could not retrieve file info for `" +
                       dir.file("lost.bin") + "': No such file or directory)");
}

TEST_F(CdioReaderTest, ReadDevice_WhenPathIsNoDrive_SaysNoDisc) {
    DiscLayout layout;
    std::string why;
    EXPECT_FALSE(CdioReader::readDevice("/dev/null", &layout, &why));
    EXPECT_EQ(why,
              "/dev/null: no disc in the drive (libcdio: error in ioctl CDROMREADTOCHDR: "
              "Inappropriate ioctl for device)");
}

TEST_F(CdioReaderTest, ReadDevice_WhenPathMissing_SaysNoDrive) {
    const std::string path = dir.file("sr9");
    DiscLayout layout;
    std::string why;
    EXPECT_FALSE(CdioReader::readDevice(path, &layout, &why));
    EXPECT_EQ(why, path + ": no CD drive there (libcdio: Can't get file status for " + path +
                       ": No such file or directory)");
}

TEST_F(CdioReaderTest, ReadDevice_WhenMachineHasNoDrive_SaysNoDriveFound) {
    driver_id_t driver = DRIVER_DEVICE;
    char* drive = cdio_get_default_device_driver(&driver);
    if (drive != nullptr) {
        cdio_free(drive);
        GTEST_SKIP() << "this machine has a CD drive";
    }
    DiscLayout layout;
    std::string why;
    EXPECT_FALSE(CdioReader::readDevice("", &layout, &why));
    EXPECT_EQ(why, "no CD drive found");
}

TEST_F(CdioReaderTest, BinForCue_WhenSheet_GivesTheBinBesideIt) {
    const std::string cue = DiscImageFiles::writeBinCue(dir.path(), "named", {audio(100)}, "x.bin");
    EXPECT_EQ(CdioReader::binForCue(cue), dir.file("named.bin"));
}

TEST_F(CdioReaderTest, BinForCue_WhenNoSheet_GivesNothing) {
    const std::string toc = DiscImageFiles::writeCdrdaoToc(dir.path(), "other", {audio(100)});
    EXPECT_EQ(CdioReader::binForCue(toc), "");
}

TEST_F(CdioReaderTest, ReadImage_WhenCdrdaoTocByRelativeName_ReadsItAndKeepsWorkingDirectory) {
    const std::vector<ImageTrack> tracks = {audio(500), audio(600)};
    DiscImageFiles::writeCdrdaoToc(dir.path(), "relative", tracks);
    char* here = ::getcwd(nullptr, 0);
    ASSERT_EQ(::chdir("/"), 0);
    const std::string relative = dir.file("relative.toc").substr(1);
    const DiscLayout layout = read(relative);
    char* after = ::getcwd(nullptr, 0);
    EXPECT_STREQ(after, "/");
    std::free(after);
    ASSERT_EQ(::chdir(here), 0);
    std::free(here);
    EXPECT_EQ(offsetsOf(layout), DiscImageFiles::offsetsOf(tracks));
}
