// `mox dump`: runs the built CLI on response databases made by the writer and
// checks every output line, the exit status and the one-line failure reason.

#include <array>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "CliRun.h"
#include "HbFramework/HbFileSys.h"
#include "HbFramework/HbFileSysHost.h"
#include "MeasuredRun.h"
#include "TestDir.h"
#include "TextEscape.h"
#include "moxdb/CatalogueBuilder.h"
#include "moxdb/DbBytes.h"
#include "private/MoxLimits.h"

namespace {

using moxdb::Bytes;
using moxdb::Section;

typedef CliResult RunResult;

// Runs the mox binary with `args`, its stdout and stderr going to files in `dir`.
RunResult runMox(const TestDir& dir, const std::vector<std::string>& args) {
    return runCli(MOX_CLI_PATH, args, dir);
}

// Splits output into lines; every line must end in "\n".
std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> out;
    size_t start = 0;
    while (start < text.size()) {
        const size_t end = text.find('\n', start);
        if (end == std::string::npos) {
            ADD_FAILURE() << "output does not end in a line feed: " << text.substr(start);
            out.push_back(text.substr(start));
            break;
        }
        out.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return out;
}

std::string hex8(uint32_t value) {
    char text[16];
    std::snprintf(text, sizeof(text), "0x%08x", value);
    return text;
}

std::string hex4(uint16_t value) {
    char text[16];
    std::snprintf(text, sizeof(text), "0x%04x ", value);
    return text;
}

// "key=0x........" pairs joined with ", ".
std::string fields(const std::vector<std::pair<const char*, uint32_t>>& pairs) {
    std::string out;
    for (size_t i = 0; i < pairs.size(); ++i) {
        out += (i == 0 ? "" : ", ") + std::string(pairs[i].first) + hex8(pairs[i].second);
    }
    return out;
}

// The header values a test sets, and the line they give.
struct HeaderValues {
    std::string signature = "DAP3";  // exactly 4 bytes
    uint32_t version = 0x01000000;
    std::array<uint16_t, 4> appVer1{{1, 2, 3, 4}};
    std::array<uint16_t, 4> appVer2{{0, 0, 0, 0xabcd}};

    void applyTo(moxdb::DbImageBuilder& image) const {
        image.setSignature(signature);
        image.setVersion(version);
        image.setAppVer1(appVer1);
        image.setAppVer2(appVer2);
    }

    std::string line() const {
        std::string out = "Signature=" + escapeControlCharacters(signature) +
                          ", Version=" + hex8(version) + ", AppVer1={";
        for (uint16_t v : appVer1) {
            out += hex4(v);
        }
        out += "}, AppVer2={";
        for (uint16_t v : appVer2) {
            out += hex4(v);
        }
        return out + "}";
    }
};

std::string tableLine(const moxdb::DbImageBuilder& image) {
    return fields({{"OwnSize=", 60},
                   {"RudTrack=", image.sectionWord(Section::RudTrack)},
                   {"RudPlaylist=", image.sectionWord(Section::RudPlaylist)},
                   {"RudPlaylistTrack=", image.sectionWord(Section::RudPlaylistTrack)},
                   {"StringTable=", image.sectionWord(Section::StringTable)},
                   {"StringList=", image.sectionWord(Section::StringList)},
                   {"QuillTrack=", image.sectionWord(Section::QuillTrack)},
                   {"QuillAlbum=", image.sectionWord(Section::QuillAlbum)},
                   {"QuillAlbumTracks=", image.sectionWord(Section::QuillAlbumTracks)},
                   {"QuillCredits=", image.sectionWord(Section::QuillCredits)},
                   {"QuillArtist=", image.sectionWord(Section::QuillArtist)},
                   {"QuillGenre=", image.sectionWord(Section::QuillGenre)},
                   {"QuillDesc=", image.sectionWord(Section::QuillDesc)},
                   {"QuillToc=", image.sectionWord(Section::QuillToc)},
                   {"QuillTrackIndices=", image.sectionWord(Section::QuillTrackIndices)}});
}

std::string headLine(const char* name, const moxdb::DbImageBuilder& image, Section section,
                     uint16_t recordSize, size_t count) {
    return std::string(name) + " " +
           fields({{"OwnSize=", image.sectionSpan(section).size},
                   {"RecordSize=", recordSize},
                   {"RecordCount=", static_cast<uint32_t>(count)}});
}

std::string tocLine(const moxdb::TocRecord& r) {
    return "  " + fields({{"Id=", r.Id},
                          {"AlbumId=", r.AlbumId},
                          {"MediaNum=", r.MediaNum},
                          {"RudArtFileName=", r.RudArtFileName},
                          {"RudPictFolderPath=", r.RudPictFolderPath}});
}

std::string albumLine(const moxdb::AlbumRecord& r) {
    return "  " + fields({{"Id=", r.Id},
                          {"MediaNum=", r.MediaNum},
                          {"MediaCount=", r.MediaCount},
                          {"Title=", r.Title},
                          {"TitleYomi=", r.TitleYomi},
                          {"Performer=", r.Performer},
                          {"Composer=", r.Composer},
                          {"Genre=", r.Genre},
                          {"Tracks=", r.Tracks},
                          {"Confidence=", r.Confidence},
                          {"Language=", r.Language},
                          {"ImageUrl=", r.ImageUrl},
                          {"Upc=", r.Upc},
                          {"RelYear=", r.RelYear},
                          {"PickFlag=", r.PickFlag},
                          {"KeyTitle=", r.KeyTitle},
                          {"Credits=", r.Credits},
                          {"FirstTrackByMedia=", r.FirstTrackByMedia},
                          {"Styles=", r.Styles},
                          {"Tones=", r.Tones},
                          {"Themas=", r.Themas}});
}

std::string trackLine(const moxdb::TrackRecord& r) {
    return "  " + fields({{"Id=", r.Id},
                          {"Title=", r.Title},
                          {"TitleYomi=", r.TitleYomi},
                          {"Performer=", r.Performer},
                          {"Composer=", r.Composer},
                          {"Genre=", r.Genre},
                          {"Time=", r.Time},
                          {"Language=", r.Language},
                          {"Confidence=", r.Confidence},
                          {"MediaNum=", r.MediaNum},
                          {"TrackNum=", r.TrackNum},
                          {"PickFlag=", r.PickFlag},
                          {"KeyTitle=", r.KeyTitle},
                          {"Work=", r.Work},
                          {"Part=", r.Part},
                          {"Conductor=", r.Conductor},
                          {"PerfDate=", r.PerfDate},
                          {"CompDate=", r.CompDate}});
}

std::string artistLine(const moxdb::ArtistRecord& r) {
    return "  " + fields({{"Id=", r.Id},
                          {"Name=", r.Name},
                          {"NameYomi=", r.NameYomi},
                          {"KeyName=", r.KeyName},
                          {"Genre=", r.Genre},
                          {"Styles=", r.Styles},
                          {"Tones=", r.Tones},
                          {"Themas=", r.Themas},
                          {"SimilarArtists=", r.SimilarArtists},
                          {"Influences=", r.Influences},
                          {"Followers=", r.Followers}});
}

std::string genreLine(const moxdb::GenreRecord& r) {
    return "  " + fields({{"Id=", r.Id}, {"Name=", r.Name}});
}

// Texts of a catalogue by string offset, for the --strings lines.
using TextsByOffset = std::map<uint32_t, std::string>;

// Every line that `mox dump` prints for `cat` (with the given head record
// sizes), resolving texts through `texts` when it is not null.
std::vector<std::string> expectedDump(moxdb::CatalogueBuilder& cat, const HeaderValues& header,
                                      const TextsByOffset* texts,
                                      const std::map<Section, uint16_t>& recordSizes = {}) {
    moxdb::DbImageBuilder& image = cat.image();
    auto size = [&](Section section, uint16_t fixed) {
        const auto found = recordSizes.find(section);
        return found == recordSizes.end() ? fixed : found->second;
    };
    auto text = [&](const char* label, uint32_t offset) {
        return "    " + std::string(label) + ": " + texts->at(offset);
    };
    std::vector<std::string> out = {header.line(), tableLine(image)};
    out.push_back(headLine("QuillToc", image, Section::QuillToc, size(Section::QuillToc, 20),
                           image.tocCount()));
    for (size_t i = 0; i < image.tocCount(); ++i) {
        out.push_back(tocLine(image.toc(i)));
        if (texts != nullptr) {
            out.push_back(text("Id", image.toc(i).Id));
        }
    }
    out.push_back(headLine("QuillAlbum", image, Section::QuillAlbum, size(Section::QuillAlbum, 84),
                           image.albumCount()));
    for (size_t i = 0; i < image.albumCount(); ++i) {
        const moxdb::AlbumRecord& r = image.album(i);
        out.push_back(albumLine(r));
        if (texts != nullptr) {
            out.push_back(text("Id", r.Id));
            out.push_back(text("Title", r.Title));
            out.push_back(text("Genre", r.Genre));
            out.push_back(text("Language", r.Language));
        }
    }
    out.push_back(headLine("QuillTrack", image, Section::QuillTrack, size(Section::QuillTrack, 72),
                           image.trackCount()));
    for (size_t i = 0; i < image.trackCount(); ++i) {
        out.push_back(trackLine(image.track(i)));
        if (texts != nullptr) {
            out.push_back(text("Title", image.track(i).Title));
        }
    }
    out.push_back(headLine("QuillArtist", image, Section::QuillArtist,
                           size(Section::QuillArtist, 44), image.artistCount()));
    for (size_t i = 0; i < image.artistCount(); ++i) {
        out.push_back(artistLine(image.artist(i)));
        if (texts != nullptr) {
            out.push_back(text("Name", image.artist(i).Name));
        }
    }
    out.push_back(headLine("QuillGenre", image, Section::QuillGenre, size(Section::QuillGenre, 8),
                           image.genreCount()));
    for (size_t i = 0; i < image.genreCount(); ++i) {
        out.push_back(genreLine(image.genre(i)));
        if (texts != nullptr) {
            out.push_back(text("Id", image.genre(i).Id));
        }
    }
    return out;
}

// A small catalogue whose every text the test knows.
struct Known {
    moxdb::CatalogueBuilder cat;
    TextsByOffset texts;

    uint32_t text(const std::string& value) {
        const uint32_t offset = cat.text(value);
        texts[offset] = value;
        return offset;
    }
};

Known makeKnown() {
    Known k;
    k.text("");
    const std::vector<std::string> words = {"ROCK",
                                            "JAZZ",
                                            "Artist One",
                                            "Artist Two",
                                            "First",
                                            "Second",
                                            "Third",
                                            "ALB-1",
                                            "Album One",
                                            "ALB-2",
                                            "Album Two",
                                            "en",
                                            "ja",
                                            "0000960046E6008D3600D386",
                                            "00009600623E00B82E011206",
                                            "Caf\xc3\xa9 \xe5\xa4\x9c"};
    for (const std::string& word : words) {
        k.text(word);
    }
    const uint32_t rock = k.cat.addGenre("ROCK");
    const uint32_t jazz = k.cat.addGenre("JAZZ");
    const uint32_t a1 = k.cat.addArtist("Artist One");
    const uint32_t a2 = k.cat.addArtist("Artist Two");
    const uint32_t t1 = k.cat.addTrack({"First", a1, rock, 1, 1, 100});
    const uint32_t t2 = k.cat.addTrack({"Second", a2, jazz, 1, 2, 200});
    const uint32_t t3 = k.cat.addTrack({"Caf\xc3\xa9 \xe5\xa4\x9c", a1, rock, 2, 1, 300});
    const uint32_t al1 =
        k.cat.addAlbum({"ALB-1", "Album One", "ROCK", "en", 90, 2, {t1, t2, t3}, 1});
    const uint32_t al2 = k.cat.addAlbum({"ALB-2", "Album Two", "JAZZ", "ja", -1, 1, {t2}, 1});
    k.cat.addToc("0000960046E6008D3600D386", al1, 1);
    k.cat.addToc("00009600623E00B82E011206", al2, 2);
    return k;
}

class MoxDumpTest : public ::testing::Test {
protected:
    TestDir dir{"MoxDumpTest"};

    std::string store(const Bytes& bytes, const std::string& name = "db.dap3") {
        const std::string path = dir.file(name);
        TestDir::writeFile(path, std::vector<unsigned char>(bytes.begin(), bytes.end()));
        return path;
    }
};

TEST_F(MoxDumpTest, Dump_Sample_PrintsHeaderTableAndEveryRecord) {
    moxdb::CatalogueBuilder cat = moxdb::CatalogueBuilder::makeSample();
    HeaderValues header;
    header.applyTo(cat.image());
    const RunResult result = runMox(dir, {"dump", store(cat.build())});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    const std::vector<std::string> expected = expectedDump(cat, header, nullptr);
    EXPECT_EQ(lines(result.out), expected);
    // 2 fixed lines, 5 heads, every record.
    EXPECT_EQ(expected.size(), 7 + cat.image().tocCount() + cat.image().albumCount() +
                                   cat.image().trackCount() + cat.image().artistCount() +
                                   cat.image().genreCount());
}

TEST_F(MoxDumpTest, Dump_WithStrings_AddsTheResolvedTextsUnderEachRecord) {
    Known k = makeKnown();
    HeaderValues header;
    header.applyTo(k.cat.image());
    const RunResult result = runMox(dir, {"dump", "--strings", store(k.cat.build())});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(lines(result.out), expectedDump(k.cat, header, &k.texts));
}

TEST_F(MoxDumpTest, Dump_WithStrings_SpotCheckOfTheLayout) {
    Known k = makeKnown();
    const RunResult result = runMox(dir, {"dump", store(k.cat.build()), "--strings"});
    ASSERT_EQ(result.status, 0);
    const std::vector<std::string> out = lines(result.out);
    ASSERT_GE(out.size(), 8u);
    EXPECT_EQ(out[2].rfind("QuillToc OwnSize=", 0), 0u);
    EXPECT_EQ(out[3].rfind("  Id=", 0), 0u);
    EXPECT_EQ(out[4], "    Id: 0000960046E6008D3600D386");
    EXPECT_NE(result.out.find("\n    Title: Caf\xc3\xa9 \xe5\xa4\x9c\n"), std::string::npos);
    EXPECT_NE(result.out.find("\n    Language: ja\n"), std::string::npos);
    EXPECT_NE(result.out.find("\n    Name: Artist Two\n"), std::string::npos);
    EXPECT_NE(result.out.find("Confidence=0xffffffff"), std::string::npos);
}

TEST_F(MoxDumpTest, Dump_TocRecordsFollowTheHeadsRecordSizeOtherFamiliesTheirFixedSize) {
    Known k = makeKnown();
    HeaderValues header;
    header.applyTo(k.cat.image());
    k.cat.image().setRecordSize(Section::QuillToc, 32);  // written at a stride of 32
    k.cat.image().setTocPadByte(0xEE);
    k.cat.image().setRecordSize(Section::QuillAlbum, 4);  // head only
    k.cat.image().setRecordSize(Section::QuillTrack, 500);
    const RunResult result = runMox(dir, {"dump", "--strings", store(k.cat.build())});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(lines(result.out),
              expectedDump(
                  k.cat, header, &k.texts,
                  {{Section::QuillToc, 32}, {Section::QuillAlbum, 4}, {Section::QuillTrack, 500}}));
}

TEST_F(MoxDumpTest, Dump_SignatureWithZeroBytes_IsPrintedEscaped) {
    Known k = makeKnown();
    HeaderValues header;
    header.signature = std::string("AB\0\0", 4);
    header.applyTo(k.cat.image());
    const RunResult result = runMox(dir, {"dump", store(k.cat.build())});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out.substr(0, 20), "Signature=AB\\x00\\x00");
    EXPECT_EQ(lines(result.out), expectedDump(k.cat, header, nullptr));
}

TEST_F(MoxDumpTest, Dump_SignatureThatClearsTheScreen_IsPrintedEscaped) {
    Known k = makeKnown();
    HeaderValues header;
    header.signature = "\x1b[2J";
    header.applyTo(k.cat.image());
    const RunResult result = runMox(dir, {"dump", store(k.cat.build())});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out.substr(0, 20), "Signature=\\x1b[2J, V");
    EXPECT_EQ(result.out.find('\x1b'), std::string::npos);
}

TEST_F(MoxDumpTest, Dump_WithStrings_EscapesControlCharacters) {
    moxdb::CatalogueBuilder cat;
    cat.addGenre("a\nb\\c\x7f");
    const RunResult result = runMox(dir, {"dump", "--strings", store(cat.build())});
    EXPECT_EQ(result.status, 0);
    const std::vector<std::string> out = lines(result.out);
    ASSERT_FALSE(out.empty());
    EXPECT_EQ(out.back(), "    Id: a\\x0ab\\\\c\\x7f");
}

TEST_F(MoxDumpTest, Dump_CutInsideARecord_PrintsWhatWasReadThenOneReasonAndExits1) {
    Known k = makeKnown();
    HeaderValues header;
    header.applyTo(k.cat.image());
    k.cat.image().placeLast(Section::QuillAlbum);
    Bytes bytes = k.cat.build();
    const uint32_t album = k.cat.image().sectionWord(Section::QuillAlbum);
    const uint32_t secondRecord = album + 8 + 84;
    ASSERT_TRUE(moxdb::cutTo(bytes, secondRecord + 50));
    const RunResult result = runMox(dir, {"dump", store(bytes)});
    EXPECT_EQ(result.status, 1);

    // Everything before the album section, its head and its first record.
    const std::vector<std::string> full = expectedDump(k.cat, header, nullptr);
    std::vector<std::string> expected;
    for (const std::string& line : full) {
        expected.push_back(line);
        if (line == albumLine(k.cat.image().album(0))) {
            break;
        }
    }
    ASSERT_EQ(expected.size(), 2 + 1 + k.cat.image().tocCount() + 1 + 1);
    EXPECT_EQ(lines(result.out), expected);
    EXPECT_EQ(result.err, "mox dump: QuillAlbum record 1 at offset " +
                              std::to_string(secondRecord) + ": file ends after " +
                              std::to_string(secondRecord + 50) + " bytes\n");
}

TEST_F(MoxDumpTest, Dump_CutInsideTheHeaderOrTable_ReportsWhichAndExits1) {
    Known k = makeKnown();
    HeaderValues header;
    header.applyTo(k.cat.image());
    Bytes bytes = k.cat.build();

    Bytes shortHeader = bytes;
    ASSERT_TRUE(moxdb::cutTo(shortHeader, 10));
    RunResult result = runMox(dir, {"dump", store(shortHeader)});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "mox dump: header at offset 0: file ends after 10 bytes\n");

    Bytes shortTable = bytes;
    ASSERT_TRUE(moxdb::cutTo(shortTable, 100));
    result = runMox(dir, {"dump", store(shortTable)});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, header.line() + "\n");
    EXPECT_EQ(result.err, "mox dump: section table at offset 64: file ends after 100 bytes\n");
}

TEST_F(MoxDumpTest, Dump_SectionWordPastTheEnd_ReportsTheHead) {
    Known k = makeKnown();
    const size_t size = k.cat.build().size();
    k.cat.image().setSectionWord(Section::QuillToc, static_cast<uint32_t>(size) + 4);
    const RunResult result = runMox(dir, {"dump", store(k.cat.build())});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(lines(result.out).size(), 2u);
    EXPECT_EQ(result.err, "mox dump: QuillToc head at offset " + std::to_string(size + 4) +
                              ": file ends after " + std::to_string(size) + " bytes\n");
}

TEST_F(MoxDumpTest, Dump_StringTooLong_FailsOnlyWithStrings) {
    moxdb::CatalogueBuilder cat;
    const uint32_t tooLong = cat.image().addRawStringEntry(1024, Bytes(2048, 'a'));
    moxdb::GenreRecord genre;
    genre.Id = tooLong;
    genre.Name = tooLong;
    cat.image().addGenre(genre);
    const std::string path = store(cat.build());

    RunResult result = runMox(dir, {"dump", path});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");

    result = runMox(dir, {"dump", "--strings", path});
    EXPECT_EQ(result.status, 1);
    const std::vector<std::string> out = lines(result.out);
    ASSERT_FALSE(out.empty());
    EXPECT_EQ(out.back(), genreLine(genre));
    EXPECT_EQ(result.err, "mox dump: QuillGenre record 0 Id string at offset " +
                              std::to_string(cat.image().stringBase() + tooLong) +
                              ": length 1024 is not below 1024\n");
}

TEST_F(MoxDumpTest, Dump_ReadsTheGivenFileNotTheResultFile) {
    Known k = makeKnown();
    HeaderValues header;
    header.version = 0x00000005;
    header.applyTo(k.cat.image());
    const std::string path = store(k.cat.build());

    // Another database at the module's result path must not be shown.
    moxdb::CatalogueBuilder other = moxdb::CatalogueBuilder::makeSample();
    other.image().setVersion(0x10000000);
    ASSERT_TRUE(HbFileSys::CreateDirectory(HbFileSysHost::getResultDirectory().c_str(), true));
    std::string error;
    ASSERT_TRUE(other.writeFile(HbFileSysHost::getResultFilePath(), &error)) << error;
    RunResult result = runMox(dir, {"dump", path});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(lines(result.out), expectedDump(k.cat, header, nullptr));

    // Nor is the result file needed at all.
    std::remove(HbFileSysHost::getResultFilePath().c_str());
    result = runMox(dir, {"dump", path});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(lines(result.out), expectedDump(k.cat, header, nullptr));
}

// A head may claim 65,535 records of size 0: every TOC record then lies at
// the same place, inside the file. Only the first 1000 are printed, each with
// its text of 1023 control characters, and one line counts the rest.
TEST_F(MoxDumpTest, Dump_65535RecordsOfSizeZero_PrintsTheFirst1000AndCountsTheRest) {
    moxdb::CatalogueBuilder cat;
    Bytes units;
    for (uint32_t i = 0; i < moxdb::kStringMaxUnits; ++i) {
        units.push_back(0x01);
        units.push_back(0x00);
    }
    moxdb::TocRecord toc;
    toc.Id = cat.image().addRawStringEntry(static_cast<uint16_t>(moxdb::kStringMaxUnits), units);
    cat.image().addToc(toc);
    cat.image().setRecordSize(Section::QuillToc, 0);
    cat.image().setRecordCount(Section::QuillToc, 65535);
    const std::string path = store(cat.build());

    MeasuredRun run(MOX_CLI_PATH, {"dump", "--strings", path}, dir);
    const MeasuredRun::Result result = run.finish(60);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.err, "");
    std::string text;
    for (uint32_t i = 0; i < moxdb::kStringMaxUnits; ++i) {
        text += "\\x01";
    }
    const std::vector<std::string> out = lines(result.out);
    ASSERT_EQ(out.size(), 3u + 2 * 1000 + 1 + 4);
    EXPECT_EQ(out[2].rfind("QuillToc ", 0), 0u);
    for (size_t i = 3; i < 3 + 2 * 1000; i += 2) {
        ASSERT_EQ(out[i], tocLine(toc)) << i;
        ASSERT_EQ(out[i + 1], "    Id: " + text) << i;
    }
    EXPECT_EQ(out[2003], "  ... 64535 more records left out");
    EXPECT_EQ(out[2004].rfind("QuillAlbum ", 0), 0u);
    EXPECT_EQ(out[2007].rfind("QuillGenre ", 0), 0u);
    std::printf("dump of 65535 records: %.2f s, %zu bytes out, peak resident %ld KiB\n",
                result.seconds, result.out.size(), result.peakResidentKiB);
    EXPECT_LT(result.out.size(), 5u * 1000 * 1000);
    if (MeasuredRun::kMemoryMeaningful) {
        EXPECT_LT(result.peakResidentKiB, 64 * 1024) << "peak resident KiB";
    }
}

// The module accepts at most RESULT_FILE_MAX bytes from the phone; a larger
// file cannot be an answer and is refused before it is read.
TEST_F(MoxDumpTest, Dump_FileLargerThanTheModuleAccepts_Exits2WithOneLine) {
    const std::string path = dir.file("large.dap3");
    const uint64_t size = MoxLimits::RESULT_FILE_MAX + 1ull;
    TestDir::writeFile(path, std::vector<unsigned char>(size, 0));
    const RunResult result = runMox(dir, {"dump", path});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "mox dump: " + path + ": " + std::to_string(size) +
                              " bytes, larger than the module accepts from the phone (" +
                              std::to_string(MoxLimits::RESULT_FILE_MAX) + " bytes)\n");
}

TEST_F(MoxDumpTest, Dump_FileOfExactlyTheLimit_IsRead) {
    moxdb::CatalogueBuilder cat = moxdb::CatalogueBuilder::makeSample();
    Bytes image = cat.build();
    image.resize(MoxLimits::RESULT_FILE_MAX, 0);  // junk after the database
    const RunResult result = runMox(dir, {"dump", store(image)});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.err, "");
}

TEST_F(MoxDumpTest, Dump_MissingFile_Exits2WithOneLine) {
    const std::string path = dir.file("absent.dap3");
    const RunResult result = runMox(dir, {"dump", path});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "mox dump: " + path + ": No such file or directory\n");
}

TEST_F(MoxDumpTest, Dump_Directory_Exits2WithOneLine) {
    const RunResult result = runMox(dir, {"dump", dir.path()});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.err, "mox dump: " + dir.path() + ": not a regular file\n");
}

TEST_F(MoxDumpTest, Dump_BadUsage_Exits2) {
    const std::string path = store(makeKnown().cat.build());
    EXPECT_EQ(runMox(dir, {"dump"}).status, 2);
    EXPECT_EQ(runMox(dir, {"dump", path, path}).status, 2);
    EXPECT_EQ(runMox(dir, {"dump", "--bogus", path}).status, 2);
    const RunResult result = runMox(dir, {"dump"});
    EXPECT_EQ(result.out, "");
    EXPECT_NE(result.err.find("FILE is required"), std::string::npos);
}

TEST_F(MoxDumpTest, Dump_Help_DescribesTheCommandAndExits0) {
    const RunResult result = runMox(dir, {"dump", "--help"});
    EXPECT_EQ(result.status, 0);
    EXPECT_NE(result.out.find("--strings"), std::string::npos);
    EXPECT_NE(result.out.find("FILE"), std::string::npos);
    const RunResult top = runMox(dir, {"--help"});
    EXPECT_EQ(top.status, 0);
    EXPECT_NE(top.out.find("dump"), std::string::npos);
}

}  // namespace
