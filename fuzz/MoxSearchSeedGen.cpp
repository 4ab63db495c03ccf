// Writes the seed corpus of MoxSearchFuzzer: each seed is one byte holding the
// length of a TOC text, the TOC text, then a database made by the writer
// library (valid ones, ones broken the ways the reader must survive, and the
// answers that make a search without limits repeat its work).
//
// Usage: MoxSearchSeedGen DIRECTORY   (the directory must exist)
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "MoxDbWriter.h"

namespace {

bool writeSeed(const std::string& directory, const std::string& name, const std::string& toc,
               const moxdb::Bytes& database) {
    if (toc.size() > 255) {
        std::fprintf(stderr, "MoxSearchSeedGen: TOC text of %s too long\n", name.c_str());
        return false;
    }
    moxdb::Bytes seed;
    seed.push_back(static_cast<uint8_t>(toc.size()));
    seed.insert(seed.end(), toc.begin(), toc.end());
    seed.insert(seed.end(), database.begin(), database.end());
    const std::string path = directory + "/" + name;
    FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr) {
        std::fprintf(stderr, "MoxSearchSeedGen: cannot write %s\n", path.c_str());
        return false;
    }
    const bool written = std::fwrite(seed.data(), 1, seed.size(), file) == seed.size();
    return std::fclose(file) == 0 && written;
}

// Albums of `tracks` tracks sharing `toc`, with the given confidences.
moxdb::CatalogueBuilder albumsFor(const std::string& toc, const std::vector<int32_t>& confidences,
                                  int tracks) {
    moxdb::CatalogueBuilder cat;
    const uint32_t rock = cat.addGenre("ROCK");
    for (size_t a = 0; a < confidences.size(); ++a) {
        const std::string id = "A" + std::to_string(a);
        const uint32_t artist = cat.addArtist("Artist " + id);
        moxdb::AlbumFields draft;
        draft.idText = id;
        draft.title = "Title " + id;
        draft.genreCode = "ROCK";
        draft.language = a % 2 == 0 ? "ja" : "en";
        draft.confidence = confidences[a];
        for (int t = 0; t < tracks; ++t) {
            moxdb::TrackFields track;
            track.title = id + "-" + std::to_string(t);
            track.artistId = t == 1 ? 0 : artist;  // Performer 0 on the second track
            track.genreId = rock;
            draft.trackIds.push_back(cat.addTrack(track));
        }
        cat.addToc(toc, cat.addAlbum(draft), 1);
    }
    return cat;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: MoxSearchSeedGen DIRECTORY\n");
        return 2;
    }
    const std::string dir = argv[1];
    bool ok = true;

    moxdb::CatalogueBuilder sample = moxdb::CatalogueBuilder::makeSample();
    int n = 0;
    for (const moxdb::TocListing& listing : sample.tocListing()) {
        ok &= writeSeed(dir, "sample-" + std::to_string(n++), listing.tocText, sample.build());
    }

    const std::string toc3 = moxdb::makeTocTextOfTracks(3);
    ok &= writeSeed(dir, "ordered", toc3, albumsFor(toc3, {40, 90, -1, 90, 0}, 3).build());
    ok &= writeSeed(dir, "short-toc", "00009", albumsFor("00009", {1, 2}, 1).build());
    ok &= writeSeed(dir, "empty-toc", "", albumsFor("", {1}, 1).build());

    moxdb::CatalogueBuilder stride = albumsFor(toc3, {5, 6}, 3);
    stride.image().setRecordSize(moxdb::Section::QuillToc, 32);
    stride.image().setTocPadByte(0xEE);
    ok &= writeSeed(dir, "toc-stride-32", toc3, stride.build());

    moxdb::CatalogueBuilder version = albumsFor(toc3, {5}, 3);
    version.image().setVersion(0x10000001);
    ok &= writeSeed(dir, "bad-version", toc3, version.build());

    moxdb::CatalogueBuilder count = albumsFor(toc3, {5}, 3);
    count.image().setRecordCount(moxdb::Section::QuillTrack, 40);
    count.image().placeLast(moxdb::Section::QuillTrack);
    ok &= writeSeed(dir, "track-count-past-end", toc3, count.build());

    moxdb::CatalogueBuilder media = albumsFor(toc3, {5, 7}, 3);
    media.addToc(toc3, media.image().album(0).Id, 2);  // a medium without tracks
    ok &= writeSeed(dir, "missing-medium", toc3, media.build());

    moxdb::CatalogueBuilder longString = albumsFor(toc3, {5}, 3);
    longString.image().album(0).Title =
        longString.image().addRawStringEntry(1024, moxdb::Bytes(64, 0x41));
    ok &= writeSeed(dir, "overlong-string", toc3, longString.build());

    moxdb::Bytes cut = albumsFor(toc3, {5, 6}, 3).build();
    moxdb::cutTo(cut, cut.size() / 2);
    ok &= writeSeed(dir, "cut-in-half", toc3, cut);

    // Answers that make a search without limits repeat its work. The two
    // largest (65535 duplicate TOC records, a million zero identifiers) are
    // written smaller: libFuzzer reads at most 1 MiB of a seed, and these meet
    // the same limits.
    using moxdb::HostileAnswers;
    const std::string& hostile = HostileAnswers::TOC;
    ok &= writeSeed(dir, "hostile-repeated-toc-100", hostile,
                    HostileAnswers::repeatedTocRecord(100).build());
    ok &= writeSeed(dir, "hostile-repeated-toc-1000", hostile,
                    HostileAnswers::repeatedTocRecord(1000).build());
    ok &= writeSeed(dir, "hostile-duplicate-toc", hostile,
                    HostileAnswers::duplicateTocRecords(1000, 100).build());
    ok &= writeSeed(dir, "hostile-zero-track-list", hostile,
                    HostileAnswers::zeroTrackList(5000).build());
    ok &= writeSeed(dir, "hostile-other-medium-1000", hostile,
                    HostileAnswers::otherMediumTrackList(1000).build());
    ok &= writeSeed(dir, "hostile-long-toc-texts", hostile, HostileAnswers::longTocTexts().build());
    ok &= writeSeed(dir, "hostile-longest-texts", hostile, HostileAnswers::longestTexts().build());

    return ok ? 0 : 1;
}
