// Loading and checking of the catalogue: the bundled sample (and what it must
// show), its JSON Schema (checked with Debian's python3-jsonschema, which
// must also refuse what the schema can express of the bad catalogues), and
// every kind of problem with the JSON path of the first one and its reason.
#include "moxphone/Catalogue.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "PhoneTestSupport.h"
#include "TestDir.h"
#include "moxdb/DbBytes.h"
#include "moxdb/TocText.h"

using moxphone::Catalogue;
using moxphone::CatalogueProblem;

namespace {

// The module's genre codes; any other code has genre ID 0.
const std::set<std::string> kKnownGenres = {
    "ROCK",  "COUNT",     "JAZZ",  "R&B",    "VOCAL", "WORLD", "BLUES", "ELEC",   "FOLK",
    "OTHER", "CLASSICAL", "DANCE", "HIPHOP", "JPOP",  "LATIN", "POP",   "REGGAE", "SOUNDTRACK"};

// A valid catalogue in which each case replaces one piece.
const std::string kAlbum =
    R"({"id": "A-1", "title": "First", "genre": "ROCK", "language": "en",
        "media": [{"tracks": [{"title": "One", "performer": "Band", "genre": "ROCK"},
                              {"title": "Two", "performer": "Band", "genre": "ROCK"}]}]})";
const std::string kDisc =
    R"({"toc": "0000960046E6008D36", "candidates": [{"album": "A-1", "medium": 1, "confidence": 5}]})";

std::string catalogueOf(const std::string& albums, const std::string& discs) {
    return R"({"albums": [)" + albums + R"(], "discs": [)" + discs + "]}";
}

std::string albumWith(const std::string& from, const std::string& to) {
    std::string album = kAlbum;
    const size_t at = album.find(from);
    EXPECT_NE(std::string::npos, at) << from;
    return album.replace(at, from.size(), to);
}

std::string discWith(const std::string& from, const std::string& to) {
    std::string disc = kDisc;
    const size_t at = disc.find(from);
    EXPECT_NE(std::string::npos, at) << from;
    return disc.replace(at, from.size(), to);
}

struct BadCase {
    std::string name;
    std::string json;
    std::string path;
    std::string reason;
    bool schemaRefuses;  // the JSON Schema can express the problem
};

std::vector<BadCase> badCases() {
    const std::string title1024 = std::string(1024, 't');
    std::string moons;  // 512 characters outside the basic plane: 1024 UTF-16 units
    for (int i = 0; i < 512; ++i) {
        moons += "🌙";
    }
    return {
        {"NotAnObject", "[]", "$", "must be an object, not an array", true},
        {"UnknownTopKey", R"({"albums": [], "discs": [], "extra": 1})", "$.extra", "unknown key",
         true},
        {"UnknownKeyWithBlank", R"({"albums": [], "discs": [], "my key": 1})", "$[\"my key\"]",
         "unknown key", true},
        {"AlbumsMissing", R"({"discs": []})", "$", "\"albums\" is missing", true},
        {"DiscsMissing", R"({"albums": []})", "$", "\"discs\" is missing", true},
        {"AlbumsNotAnArray", R"({"albums": {}, "discs": []})", "$.albums",
         "must be an array, not an object", true},
        {"TopNoteNotAString", R"({"note": 3, "albums": [], "discs": []})", "$.note",
         "must be a string, not an integer", true},
        {"AlbumNotAnObject", catalogueOf("1", ""), "$.albums[0]",
         "must be an object, not an integer", true},
        {"AlbumIdMissing", catalogueOf(albumWith(R"("id": "A-1", )", ""), ""), "$.albums[0]",
         "\"id\" is missing", true},
        {"AlbumIdEmpty", catalogueOf(albumWith(R"("id": "A-1")", R"("id": "")"), ""),
         "$.albums[0].id", "must not be empty", true},
        {"AlbumIdNumber", catalogueOf(albumWith(R"("id": "A-1")", R"("id": 7)"), ""),
         "$.albums[0].id", "must be a string, not an integer", true},
        {"AlbumTitleNull", catalogueOf(albumWith(R"("title": "First")", R"("title": null)"), ""),
         "$.albums[0].title", "must be a string, not null", true},
        {"AlbumTitle1024Units",
         catalogueOf(albumWith(R"("title": "First")", "\"title\": \"" + title1024 + "\""), ""),
         "$.albums[0].title", "is 1024 UTF-16 units long; a response database holds at most 1023",
         true},
        {"AlbumTitle512CharactersOutsideTheBasicPlane",
         catalogueOf(albumWith(R"("title": "First")", "\"title\": \"" + moons + "\""), ""),
         "$.albums[0].title", "is 1024 UTF-16 units long; a response database holds at most 1023",
         false},
        {"AlbumGenreEmpty",
         catalogueOf(albumWith(R"("genre": "ROCK", "language")", R"("genre": "", "language")"), ""),
         "$.albums[0].genre", "must not be empty", true},
        {"AlbumNoteNotAString",
         catalogueOf(albumWith(R"("id": "A-1")", R"("id": "A-1", "note": true)"), ""),
         "$.albums[0].note", "must be a string, not a boolean", true},
        {"AlbumUnknownKey",
         catalogueOf(albumWith(R"("id": "A-1")", R"("id": "A-1", "year": 1999)"), ""),
         "$.albums[0].year", "unknown key", true},
        {"MediaEmpty", catalogueOf(albumWith(kAlbum.substr(kAlbum.find("[{\"tracks")), "[]}"), ""),
         "$.albums[0].media", "must hold at least one medium", true},
        {"MediumNotAnObject",
         catalogueOf(albumWith(kAlbum.substr(kAlbum.find("[{\"tracks")), "[[]]}"), ""),
         "$.albums[0].media[0]", "must be an object, not an array", true},
        {"TracksEmpty",
         catalogueOf(albumWith(kAlbum.substr(kAlbum.find("[{\"title")), "[]}]}"), ""),
         "$.albums[0].media[0].tracks", "must hold at least one track", true},
        {"TrackGenreEmpty",
         catalogueOf(albumWith(R"("title": "Two", "performer": "Band", "genre": "ROCK")",
                               R"("title": "Two", "performer": "Band", "genre": "")"),
                     ""),
         "$.albums[0].media[0].tracks[1].genre", "must not be empty", true},
        {"TrackMisspeltKey", catalogueOf(albumWith(R"({"title": "One")", R"({"titel": "One")"), ""),
         "$.albums[0].media[0].tracks[0].titel", "unknown key", true},
        {"TrackPerformerMissing",
         catalogueOf(albumWith(R"("title": "One", "performer": "Band", )", R"("title": "One", )"),
                     ""),
         "$.albums[0].media[0].tracks[0]", "\"performer\" is missing", true},
        {"AlbumIdTwice", catalogueOf(kAlbum + ", " + kAlbum, ""), "$.albums[1].id",
         "\"A-1\" is already the id of $.albums[0]", false},
        {"TocLowerCase", catalogueOf(kAlbum, discWith("0000960046E6008D36", "0000960046e6008d36")),
         "$.discs[0].toc",
         "must be six upper-case hexadecimal digits per track and six for the lead-out, at "
         "least one track",
         true},
        {"TocLeadOutOnly", catalogueOf(kAlbum, discWith("0000960046E6008D36", "000096")),
         "$.discs[0].toc",
         "must be six upper-case hexadecimal digits per track and six for the lead-out, at "
         "least one track",
         true},
        {"TocNotAMultipleOfSix",
         catalogueOf(kAlbum, discWith("0000960046E6008D36", "0000960046E6008D3")), "$.discs[0].toc",
         "must be six upper-case hexadecimal digits per track and six for the lead-out, at "
         "least one track",
         true},
        {"TocOffsetsNotIncreasing",
         catalogueOf(kAlbum, discWith("0000960046E6008D36", "0000960046E6004000")),
         "$.discs[0].toc",
         "frame offsets must increase: entry 3 (004000) does not come after entry 2 (0046E6)",
         false},
        {"TocTwice", catalogueOf(kAlbum, kDisc + ", " + kDisc), "$.discs[1].toc",
         "is already the TOC text of $.discs[0]", false},
        {"CandidatesMissing", catalogueOf(kAlbum, R"({"toc": "0000960046E6008D36"})"), "$.discs[0]",
         "\"candidates\" is missing", true},
        {"CandidateAlbumUnknown",
         catalogueOf(kAlbum, discWith(R"("album": "A-1")", R"("album": "B-9")")),
         "$.discs[0].candidates[0].album", "no album has the id \"B-9\"", false},
        {"CandidateMediumBeyondTheAlbum",
         catalogueOf(kAlbum, discWith(R"("medium": 1)", R"("medium": 2)")),
         "$.discs[0].candidates[0].medium", "album \"A-1\" has 1 medium; there is no medium 2",
         false},
        {"CandidateMediumZero", catalogueOf(kAlbum, discWith(R"("medium": 1)", R"("medium": 0)")),
         "$.discs[0].candidates[0].medium", "must be from 1 to 65535, not 0", true},
        {"CandidateMediumWithFraction",
         catalogueOf(kAlbum, discWith(R"("medium": 1)", R"("medium": 1.5)")),
         "$.discs[0].candidates[0].medium", "must be an integer, not a number with a fraction",
         true},
        {"CandidateMediumText", catalogueOf(kAlbum, discWith(R"("medium": 1)", R"("medium": "1")")),
         "$.discs[0].candidates[0].medium", "must be an integer, not a string", true},
        {"ConfidenceAboveInt32",
         catalogueOf(kAlbum, discWith(R"("confidence": 5)", R"("confidence": 2147483648)")),
         "$.discs[0].candidates[0].confidence",
         "must be from -2147483648 to 2147483647, not 2147483648", true},
        {"ConfidenceBelowInt32",
         catalogueOf(kAlbum, discWith(R"("confidence": 5)", R"("confidence": -2147483649)")),
         "$.discs[0].candidates[0].confidence",
         "must be from -2147483648 to 2147483647, not -2147483649", true},
        {"ConfidenceAboveInt64",
         catalogueOf(kAlbum,
                     discWith(R"("confidence": 5)", R"("confidence": 18446744073709551615)")),
         "$.discs[0].candidates[0].confidence",
         "must be from -2147483648 to 2147483647, not 18446744073709551615", true},
        {"SameAlbumTwiceForOneDisc",
         catalogueOf(kAlbum, discWith(R"({"album": "A-1", "medium": 1, "confidence": 5})",
                                      R"({"album": "A-1", "medium": 1, "confidence": 5},
                                         {"album": "A-1", "medium": 1, "confidence": 6})")),
         "$.discs[0].candidates[1].album", "album \"A-1\" is already candidate 0 of this disc",
         false},
        {"FirstProblemInDocumentOrder", R"({"albums": [{"id": "", "title": 1}], "discs": "x"})",
         "$.albums[0].id", "must not be empty", true},
    };
}

std::string describe(const CatalogueProblem& problem) {
    return problem.path + " | " + problem.reason;
}

// Runs Debian's Python with jsonschema on each file; "valid" or "invalid" per
// file, in order, or an empty list when Python or the module is missing.
std::vector<std::string> schemaVerdicts(const std::vector<std::string>& files,
                                        const std::string& outPath) {
    std::string command =
        std::string(MOX_PYTHON) +
        " -c 'import json, sys, jsonschema\n"
        "schema = json.load(open(sys.argv[1], encoding=\"utf-8\"))\n"
        "jsonschema.Draft7Validator.check_schema(schema)\n"
        "validator = jsonschema.Draft7Validator(schema)\n"
        "for path in sys.argv[2:]:\n"
        "    document = json.load(open(path, encoding=\"utf-8\"))\n"
        "    print(\"valid\" if validator.is_valid(document) else \"invalid\")\n'";
    command += " '" + Catalogue::schemaPath() + "'";
    for (const std::string& file : files) {
        command += " '" + file + "'";
    }
    command += " >'" + outPath + "' 2>&1";
    const int status = std::system(command.c_str());
    std::ifstream in(outPath);
    std::vector<std::string> verdicts;
    std::string line;
    while (std::getline(in, line)) {
        verdicts.push_back(line);
    }
    if (status == -1 || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        ADD_FAILURE() << "the schema check failed (is python3-jsonschema installed?):\n"
                      << [&] {
                             std::string all;
                             for (const std::string& v : verdicts) {
                                 all += v + "\n";
                             }
                             return all;
                         }();
        return {};
    }
    return verdicts;
}

// Every code point of a UTF-8 text.
std::vector<uint32_t> codePoints(const std::string& text) {
    std::vector<uint32_t> out;
    const std::u16string units = moxdb::utf8ToUtf16(text);
    for (size_t i = 0; i < units.size(); ++i) {
        const uint32_t unit = units[i];
        if (unit >= 0xD800 && unit < 0xDC00 && i + 1 < units.size()) {
            out.push_back(0x10000 + ((unit - 0xD800) << 10) + (units[i + 1] - 0xDC00));
            ++i;
        } else {
            out.push_back(unit);
        }
    }
    return out;
}

bool anyCodePoint(const Catalogue& catalogue, uint32_t low, uint32_t high) {
    std::vector<std::string> texts;
    for (const moxphone::CatalogueAlbum& album : catalogue.albums()) {
        texts.push_back(album.title);
        for (const moxphone::CatalogueMedium& medium : album.media) {
            for (const moxphone::CatalogueTrack& track : medium.tracks) {
                texts.push_back(track.title);
                texts.push_back(track.performer);
            }
        }
    }
    for (const std::string& text : texts) {
        for (uint32_t c : codePoints(text)) {
            if (c >= low && c <= high) {
                return true;
            }
        }
    }
    return false;
}

}  // namespace

// ---- The bundled sample ----

TEST(CatalogueTest, BundledPath_PointsAtTheSampleBesideItsSchema) {
    EXPECT_EQ("sample.json", Catalogue::bundledPath().substr(Catalogue::bundledPath().size() - 11));
    EXPECT_EQ(Catalogue::bundledPath().substr(0, Catalogue::bundledPath().size() - 11),
              Catalogue::schemaPath().substr(0, Catalogue::schemaPath().size() - 19));
}

TEST(CatalogueTest, BundledSample_LoadsWithEightDiscsAndTenAlbums) {
    Catalogue catalogue;
    CatalogueProblem problem;
    ASSERT_TRUE(Catalogue::loadFile(Catalogue::bundledPath(), &catalogue, &problem))
        << problem.text();
    EXPECT_EQ(8u, catalogue.discs().size());
    EXPECT_EQ(10u, catalogue.albums().size());
}

TEST(CatalogueTest, BundledSample_TocTextsFollowTheToolsConvention) {
    const auto catalogue = phonetest::sampleCatalogue();
    for (const moxphone::CatalogueDisc& disc : catalogue->discs()) {
        std::vector<uint32_t> lbas;
        for (size_t at = 0; at < disc.toc.size(); at += 6) {
            lbas.push_back(static_cast<uint32_t>(std::stoul(disc.toc.substr(at, 6), nullptr, 16)) -
                           150);
        }
        const uint32_t leadOut = lbas.back();
        lbas.pop_back();
        EXPECT_EQ(disc.toc, moxdb::makeTocText(lbas, leadOut));
    }
    EXPECT_EQ("0000960046E6008D3600D386", catalogue->discs().at(0).toc);
}

TEST(CatalogueTest, BundledSample_ShowsWhatTheSampleMustShow) {
    const auto catalogue = phonetest::sampleCatalogue();
    // A two-disc album: one album, two discs naming media 1 and 2 of it.
    std::map<std::string, std::set<uint16_t>> mediaByAlbum;
    // A disc with three candidates, two of equal confidence; a candidate whose
    // medium has another number of tracks than its disc's TOC text.
    bool threeWithTie = false;
    bool removedByTrackCount = false;
    for (const moxphone::CatalogueDisc& disc : catalogue->discs()) {
        std::map<int32_t, int> byConfidence;
        const size_t tocTracks = disc.toc.size() / 6 - 1;
        for (const moxphone::CatalogueCandidate& candidate : disc.candidates) {
            mediaByAlbum[candidate.album].insert(candidate.medium);
            ++byConfidence[candidate.confidence];
            const moxphone::CatalogueAlbum* album = catalogue->findAlbum(candidate.album);
            ASSERT_NE(nullptr, album);
            removedByTrackCount = removedByTrackCount ||
                                  album->media.at(candidate.medium - 1).tracks.size() != tocTracks;
        }
        for (const auto& entry : byConfidence) {
            threeWithTie = threeWithTie || (disc.candidates.size() >= 3 && entry.second >= 2);
        }
    }
    bool twoDiscAlbum = false;
    for (const auto& entry : mediaByAlbum) {
        twoDiscAlbum = twoDiscAlbum || entry.second == std::set<uint16_t>{1, 2};
    }
    bool unknownGenre = false;
    for (const moxphone::CatalogueAlbum& album : catalogue->albums()) {
        unknownGenre = unknownGenre || kKnownGenres.count(album.genre) == 0;
    }
    EXPECT_GE(catalogue->discs().size(), 6u);
    EXPECT_TRUE(twoDiscAlbum);
    EXPECT_TRUE(threeWithTie);
    EXPECT_TRUE(removedByTrackCount);
    EXPECT_TRUE(unknownGenre);
    EXPECT_TRUE(anyCodePoint(*catalogue, 0x3040, 0x30FF));  // hiragana and katakana
    EXPECT_TRUE(anyCodePoint(*catalogue, 0x00C0, 0x017F));  // accented Latin letters
}

TEST(CatalogueTest, Schema_AcceptsTheBundledSampleAndRefusesWhatItCanExpress) {
    TestDir dir("CatalogueSchemaTest");
    std::vector<std::string> files = {Catalogue::bundledPath()};
    std::vector<BadCase> cases;
    for (const BadCase& bad : badCases()) {
        if (bad.schemaRefuses) {
            cases.push_back(bad);
            files.push_back(dir.file(bad.name + ".json"));
            TestDir::writeFile(files.back(), phonetest::text(bad.json));
        }
    }
    const std::vector<std::string> verdicts = schemaVerdicts(files, dir.file("verdicts.txt"));
    ASSERT_EQ(files.size(), verdicts.size());
    EXPECT_EQ("valid", verdicts[0]);
    for (size_t i = 0; i < cases.size(); ++i) {
        EXPECT_EQ("invalid", verdicts[i + 1]) << cases[i].name;
    }
}

// ---- Problems, with the path of the first one ----

TEST(CatalogueTest, Parse_EveryKindOfProblem_PathAndReason) {
    for (const BadCase& bad : badCases()) {
        Catalogue catalogue;
        CatalogueProblem problem;
        EXPECT_FALSE(Catalogue::parse(bad.json, &catalogue, &problem)) << bad.name;
        EXPECT_EQ(bad.path + " | " + bad.reason, describe(problem)) << bad.name;
    }
}

TEST(CatalogueTest, Parse_TheBaseOfTheBadCases_IsValid) {
    Catalogue catalogue;
    CatalogueProblem problem;
    ASSERT_TRUE(Catalogue::parse(catalogueOf(kAlbum, kDisc), &catalogue, &problem))
        << problem.text();
    ASSERT_EQ(1u, catalogue.discs().size());
    const moxphone::CatalogueCandidate& candidate = catalogue.discs()[0].candidates.at(0);
    EXPECT_EQ("A-1", candidate.album);
    EXPECT_EQ(1, candidate.medium);
    EXPECT_EQ(5, candidate.confidence);
    EXPECT_EQ(2u, catalogue.albums().at(0).media.at(0).tracks.size());
    EXPECT_EQ("Two", catalogue.albums()[0].media[0].tracks[1].title);
}

TEST(CatalogueTest, Parse_1023UnitsAndExtremeConfidences_Accepted) {
    Catalogue catalogue;
    CatalogueProblem problem;
    const std::string json = catalogueOf(
        albumWith(R"("title": "First")", "\"title\": \"" + std::string(1023, 't') + "\""),
        discWith(R"("confidence": 5)", R"("confidence": -2147483648)"));
    ASSERT_TRUE(Catalogue::parse(json, &catalogue, &problem)) << problem.text();
    EXPECT_EQ(INT32_MIN, catalogue.discs()[0].candidates[0].confidence);
}

TEST(CatalogueTest, Parse_NotJson_PathIsTheRootAndTheParserSaysWhere) {
    Catalogue catalogue;
    CatalogueProblem problem;
    EXPECT_FALSE(Catalogue::parse("{\"albums\": [,]}", &catalogue, &problem));
    EXPECT_EQ("$", problem.path);
    EXPECT_EQ(
        "not valid JSON: parse error at line 1, column 13: syntax error while parsing value "
        "- unexpected ','; expected '[', '{', or a literal",
        problem.reason);
}

TEST(CatalogueTest, Parse_InvalidUtf8_RefusedAsNotJson) {
    Catalogue catalogue;
    CatalogueProblem problem;
    const std::string json = catalogueOf(albumWith("First", "Fi\xC3rst"), "");
    EXPECT_FALSE(Catalogue::parse(json, &catalogue, &problem));
    EXPECT_EQ("$", problem.path);
    EXPECT_EQ(0u, problem.reason.find("not valid JSON: parse error at line 1")) << problem.reason;
}

TEST(CatalogueTest, Parse_Refused_LeavesTheCatalogueAsItWas) {
    Catalogue catalogue;
    CatalogueProblem problem;
    ASSERT_TRUE(Catalogue::parse(catalogueOf(kAlbum, kDisc), &catalogue, &problem));
    EXPECT_FALSE(Catalogue::parse(catalogueOf(kAlbum, kDisc + ", " + kDisc), &catalogue, &problem));
    EXPECT_EQ(1u, catalogue.discs().size());
}

TEST(CatalogueTest, Parse_NotesAndSchemaKey_Accepted) {
    Catalogue catalogue;
    CatalogueProblem problem;
    const std::string json =
        R"({"$schema": "x", "note": "n", "albums": [)" +
        albumWith(R"({"title": "One", "performer": "Band", "genre": "ROCK"})",
                  R"({"title": "One", "performer": "Band", "genre": "ROCK", "note": "t"})") +
        R"(], "discs": [)" + discWith(R"("confidence": 5})", R"("confidence": 5, "note": "c"})") +
        "]}";
    EXPECT_TRUE(Catalogue::parse(json, &catalogue, &problem)) << problem.text();
}

TEST(CatalogueTest, Text_WithAndWithoutPath) {
    EXPECT_EQ("$.discs[0].toc: must not be empty",
              (CatalogueProblem{"$.discs[0].toc", "must not be empty"}).text());
    EXPECT_EQ("cannot open x", (CatalogueProblem{"", "cannot open x"}).text());
}

// ---- Files ----

TEST(CatalogueTest, LoadFile_Missing_ReasonWithoutPath) {
    TestDir dir("CatalogueTest");
    Catalogue catalogue;
    CatalogueProblem problem;
    EXPECT_FALSE(Catalogue::loadFile(dir.file("missing.json"), &catalogue, &problem));
    EXPECT_EQ("", problem.path);
    EXPECT_EQ("cannot open " + dir.file("missing.json") + ": No such file or directory",
              problem.reason);
}

TEST(CatalogueTest, LoadFile_Directory_Refused) {
    TestDir dir("CatalogueTest");
    Catalogue catalogue;
    CatalogueProblem problem;
    EXPECT_FALSE(Catalogue::loadFile(dir.path(), &catalogue, &problem));
    EXPECT_EQ("cannot read " + dir.path() + ": it is a directory", problem.reason);
}

TEST(CatalogueTest, LoadFile_BadContent_PathOfTheProblem) {
    TestDir dir("CatalogueTest");
    TestDir::writeFile(dir.file("bad.json"),
                       phonetest::text(catalogueOf(kAlbum, discWith("\"A-1\"", "\"A-2\""))));
    Catalogue catalogue;
    CatalogueProblem problem;
    EXPECT_FALSE(Catalogue::loadFile(dir.file("bad.json"), &catalogue, &problem));
    EXPECT_EQ("$.discs[0].candidates[0].album: no album has the id \"A-2\"", problem.text());
}

TEST(CatalogueTest, FindDiscAndAlbum_ExactMatchesOnly) {
    const auto catalogue = phonetest::smallCatalogue();
    EXPECT_NE(nullptr, catalogue->findDisc(phonetest::kToc));
    EXPECT_EQ(nullptr, catalogue->findDisc(phonetest::kToc + "000000"));
    EXPECT_NE(nullptr, catalogue->findAlbum("A-1"));
    EXPECT_EQ(nullptr, catalogue->findAlbum("a-1"));
}
