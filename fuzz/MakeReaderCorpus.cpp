// Writes the seed corpus of MoxDapDatabaseReaderFuzzer: response databases
// made by the writer, valid ones and ones damaged the ways the reader must
// survive (cut files, counts past the end, strings at and over the length
// limit, refused versions, odd record sizes), and the answers that make a
// reader without limits repeat its work (moxdb::HostileAnswers).
//
//   MakeReaderCorpus fuzz/corpus/MoxDapDatabaseReaderFuzzer
//
// Exit status: 0 written, 1 a file could not be written, 2 bad usage.
#include <cstdio>
#include <string>
#include <vector>

#include "moxdb/CatalogueBuilder.h"
#include "moxdb/DbBytes.h"
#include "moxdb/HostileAnswers.h"
#include "moxdb/TocText.h"

namespace {

using moxdb::Bytes;
using moxdb::CatalogueBuilder;
using moxdb::Section;

struct Seed {
    std::string name;
    Bytes bytes;
};

// Two albums (one on two discs), three tracks, two artists, two genres.
CatalogueBuilder makeSmall() {
    CatalogueBuilder cat;
    const uint32_t rock = cat.addGenre("ROCK");
    const uint32_t jazz = cat.addGenre("JAZZ");
    const uint32_t a1 = cat.addArtist("Artist One");
    const uint32_t a2 = cat.addArtist("Artist Two");
    const uint32_t t1 = cat.addTrack({"First", a1, rock, 1, 1, 100});
    const uint32_t t2 = cat.addTrack({"Second", a2, jazz, 1, 2, 200});
    const uint32_t t3 = cat.addTrack({"Third", a1, rock, 2, 1, 300});
    const uint32_t al1 = cat.addAlbum({"ALB-1", "Album One", "ROCK", "en", 90, 2, {t1, t2, t3}, 1});
    const uint32_t al2 = cat.addAlbum({"ALB-2", "Album Two", "JAZZ", "ja", 40, 1, {t2}, 1});
    cat.addToc(moxdb::makeTocText({0, 18000, 36000}, 54000), al1, 1);
    cat.addToc(moxdb::makeTocText({0, 20000}, 40000), al2, 1);
    return cat;
}

std::vector<Seed> makeSeeds() {
    std::vector<Seed> seeds;
    seeds.push_back({"sample.dap3", CatalogueBuilder::makeSample().build()});
    seeds.push_back(
        {"uniform-3x4.dap3",
         CatalogueBuilder::makeUniform(moxdb::makeTocText({0, 9000, 18000, 27000}, 36000), 3, 4)
             .build()});
    seeds.push_back({"small.dap3", makeSmall().build()});
    seeds.push_back({"empty-sections.dap3", CatalogueBuilder().build()});

    CatalogueBuilder stride = makeSmall();
    stride.image().setRecordSize(Section::QuillToc, 32);
    stride.image().setRecordSize(Section::QuillAlbum, 4);
    seeds.push_back({"record-sizes-differ.dap3", stride.build()});

    for (Section section : {Section::QuillAlbum, Section::QuillTrack}) {
        CatalogueBuilder pastEnd = makeSmall();
        pastEnd.image().placeLast(section);
        pastEnd.image().setRecordCount(section, 40);
        seeds.push_back({section == Section::QuillAlbum ? "album-count-past-end.dap3"
                                                        : "track-count-past-end.dap3",
                         pastEnd.build()});
    }

    CatalogueBuilder lists = makeSmall();
    lists.image().placeLast(Section::QuillAlbumTracks);
    lists.image().addTrackListWithCount(1000, {1, 2});
    seeds.push_back({"track-list-cut-short.dap3", lists.build()});

    CatalogueBuilder strings = makeSmall();
    strings.image().addStringUnits(std::u16string(1023, u'x'));
    strings.image().addRawStringEntry(1024, Bytes(2048, 'y'));
    seeds.push_back({"strings-at-limit.dap3", strings.build()});

    for (uint32_t version : {0x10000000u, 0x02000000u}) {
        CatalogueBuilder versioned = makeSmall();
        versioned.image().setVersion(version);
        seeds.push_back({version == 0x10000000u ? "version-10000000.dap3" : "version-02000000.dap3",
                         versioned.build()});
    }

    const Bytes sample = CatalogueBuilder::makeSample().build();
    for (size_t length : {size_t{40}, size_t{100}, sample.size() / 2}) {
        Bytes cut = sample;
        moxdb::cutTo(cut, length);
        seeds.push_back({"sample-cut-" + std::to_string(length) + ".dap3", cut});
    }

    // Answers that make a reader without limits repeat its work. The two
    // largest (65535 duplicate TOC records, a million zero identifiers) are
    // written smaller: libFuzzer reads at most 1 MiB of a seed, and these meet
    // the same limits.
    using moxdb::HostileAnswers;
    seeds.push_back(
        {"hostile-repeated-toc-100.dap3", HostileAnswers::repeatedTocRecord(100).build()});
    seeds.push_back(
        {"hostile-repeated-toc-1000.dap3", HostileAnswers::repeatedTocRecord(1000).build()});
    seeds.push_back(
        {"hostile-duplicate-toc.dap3", HostileAnswers::duplicateTocRecords(1000, 100).build()});
    seeds.push_back({"hostile-zero-track-list.dap3", HostileAnswers::zeroTrackList(5000).build()});
    seeds.push_back(
        {"hostile-other-medium-1000.dap3", HostileAnswers::otherMediumTrackList(1000).build()});
    seeds.push_back({"hostile-long-toc-texts.dap3", HostileAnswers::longTocTexts().build()});
    seeds.push_back({"hostile-longest-texts.dap3", HostileAnswers::longestTexts().build()});
    return seeds;
}

bool writeSeed(const std::string& path, const Bytes& bytes) {
    FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr) {
        return false;
    }
    const bool written =
        bytes.empty() || std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    return std::fclose(file) == 0 && written;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: MakeReaderCorpus DIRECTORY\n");
        return 2;
    }
    const std::string directory = argv[1];
    for (const Seed& seed : makeSeeds()) {
        const std::string path = directory + "/" + seed.name;
        if (!writeSeed(path, seed.bytes)) {
            std::fprintf(stderr, "MakeReaderCorpus: cannot write %s\n", path.c_str());
            return 1;
        }
        std::printf("%s\t%zu bytes\n", seed.name.c_str(), seed.bytes.size());
    }
    return 0;
}
