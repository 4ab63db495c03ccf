// MusicBrainz disc ID answers (web service version 2, JSON) to candidate
// albums: the medium that holds the disc, the credits, genre and language,
// the order of the releases, and answers that are malformed or hostile.
#include "moxphone/MusicBrainzParser.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "moxphone/OnlineRecords.h"

namespace {

using Json = nlohmann::json;
using moxphone::DiscQuery;
using moxphone::FoundAlbum;
using moxphone::MusicBrainzParser;

const char* const kDiscId = "LyYHtwByCwAcdhuXmLHF.KGB224-";

// The looked-up disc: three tracks, frame offsets 150, 18150, 36150, lead-out 54150.
DiscQuery threeTrackDisc() {
    DiscQuery disc;
    disc.toc = "0000960046E6008D3600D386";
    disc.tracks = {150, 18150, 36150};
    disc.leadOut = 54150;
    disc.musicBrainzId = kDiscId;
    disc.freedbId = "1802d003";
    return disc;
}

Json track(const std::string& title) {
    return Json{{"position", 1}, {"title", title}};
}

Json medium(const std::string& discId, const std::vector<uint32_t>& offsets, uint32_t sectors,
            const std::vector<std::string>& titles) {
    Json tracks = Json::array();
    for (const std::string& title : titles) {
        tracks.push_back(track(title));
    }
    return Json{
        {"format", "CD"},
        {"track-count", titles.size()},
        {"discs", Json::array({{{"id", discId}, {"offsets", offsets}, {"sectors", sectors}}})},
        {"tracks", tracks}};
}

Json release(const std::string& id, const std::string& title, const Json& media) {
    return Json{{"id", id},
                {"title", title},
                {"artist-credit", Json::array({{{"name", "Mira Quartet"}, {"joinphrase", ""}}})},
                {"media", media}};
}

Json answer(const Json& releases) {
    return Json{{"id", kDiscId}, {"releases", releases}};
}

Json oneTrackMediumOfTheDisc() {
    return medium(kDiscId, {150, 18150, 36150}, 54150, {"Opening", "Blue Hour", "Café"});
}

struct Parsed {
    bool ok = false;
    std::vector<FoundAlbum> albums;
    std::string why;
};

Parsed parse(const std::string& text) {
    Parsed parsed;
    parsed.ok = MusicBrainzParser::parse(text, threeTrackDisc(), &parsed.albums, &parsed.why);
    return parsed;
}

Parsed parse(const Json& json) {
    return parse(json.dump());
}

std::vector<std::string> titlesOf(const FoundAlbum& found, size_t medium) {
    std::vector<std::string> titles;
    for (const auto& entry : found.album.media.at(medium).tracks) {
        titles.push_back(entry.title);
    }
    return titles;
}

TEST(MusicBrainzParserTest, OneRelease_GivesOneAlbumOfTheReleaseMatchedByDiscId) {
    Json one = release("0a3c2d9e-7f41-4c8e-9a55-3b7e1f2d4c60", "Blue Hours",
                       Json::array({oneTrackMediumOfTheDisc()}));
    one["text-representation"] = {{"language", "eng"}, {"script", "Latn"}};
    one["genres"] = Json::array({{{"name", "jazz"}, {"count", 2}}});
    const Parsed parsed = parse(answer(Json::array({one})));
    ASSERT_TRUE(parsed.ok) << parsed.why;
    ASSERT_EQ(parsed.albums.size(), 1u);
    const FoundAlbum& found = parsed.albums[0];
    EXPECT_EQ(found.album.id, "0a3c2d9e-7f41-4c8e-9a55-3b7e1f2d4c60");
    EXPECT_EQ(found.album.title, "Blue Hours");
    EXPECT_EQ(found.album.genre, "JAZZ");
    EXPECT_EQ(found.album.language, "en");
    EXPECT_EQ(found.medium, 1u);
    EXPECT_EQ(found.confidence, MusicBrainzParser::kDiscIdConfidence);
    ASSERT_EQ(found.album.media.size(), 1u);
    EXPECT_EQ(titlesOf(found, 0), (std::vector<std::string>{"Opening", "Blue Hour", "Café"}));
    for (const auto& entry : found.album.media[0].tracks) {
        EXPECT_EQ(entry.performer, "Mira Quartet");
        EXPECT_EQ(entry.genre, "JAZZ");
    }
}

TEST(MusicBrainzParserTest, TwoDiscRelease_LookedUpByItsSecondDisc_GivesMediumTwoOfTwo) {
    const Json first = medium("x3Qk9cJ1v6dFkS0pLw2mR8tYb4E-", {150, 18150, 36150}, 54150,
                              {"First A", "First B", "First C"});
    const Json second = medium(kDiscId, {150, 20000, 40000}, 60000, {"Set", "Walk", "Encore"});
    const Parsed parsed = parse(answer(Json::array({release("r", "Live", {first, second})})));
    ASSERT_TRUE(parsed.ok) << parsed.why;
    ASSERT_EQ(parsed.albums.size(), 1u);
    EXPECT_EQ(parsed.albums[0].medium, 2u);
    EXPECT_EQ(parsed.albums[0].confidence, MusicBrainzParser::kDiscIdConfidence);
    ASSERT_EQ(parsed.albums[0].album.media.size(), 2u);
    EXPECT_EQ(titlesOf(parsed.albums[0], 0),
              (std::vector<std::string>{"First A", "First B", "First C"}));
    EXPECT_EQ(titlesOf(parsed.albums[0], 1), (std::vector<std::string>{"Set", "Walk", "Encore"}));
}

TEST(MusicBrainzParserTest, TocOnlyMatch_TakesTheMediumOfTheTrackCountWithTheNearestOffsets) {
    const Json fourTracks =
        medium("other-4", {150, 18150, 36150, 40000}, 54150, {"a", "b", "c", "d"});
    const Json far = medium("other-far", {150, 30000, 40000}, 70000, {"Far 1", "Far 2", "Far 3"});
    const Json near =
        medium("other-near", {150, 18160, 36140}, 54170, {"Near 1", "Near 2", "Near 3"});
    const Parsed parsed =
        parse(answer(Json::array({release("r", "Fuzzy", {fourTracks, far, near})})));
    ASSERT_TRUE(parsed.ok) << parsed.why;
    ASSERT_EQ(parsed.albums.size(), 1u);
    EXPECT_EQ(parsed.albums[0].medium, 3u);
    EXPECT_EQ(parsed.albums[0].confidence, MusicBrainzParser::kTocConfidence);
    EXPECT_EQ(parsed.albums[0].album.media.size(), 3u);
}

TEST(MusicBrainzParserTest, TocOnlyMatch_NoMediumOfTheDiscsTrackCount_LeavesTheReleaseOut) {
    const Json fourTracks =
        medium("other-4", {150, 18150, 36150, 40000}, 54150, {"a", "b", "c", "d"});
    const Parsed parsed =
        parse(answer(Json::array({release("r", "Other", Json::array({fourTracks}))})));
    ASSERT_TRUE(parsed.ok) << parsed.why;
    EXPECT_TRUE(parsed.albums.empty());
}

TEST(MusicBrainzParserTest, ThreeReleases_KeepTheServicesOrderWhateverTheirConfidence) {
    const Json tocOnly = medium("other", {150, 18150, 36150}, 54150, {"a", "b", "c"});
    const Parsed parsed = parse(
        answer(Json::array({release("first", "First", Json::array({tocOnly})),
                            release("second", "Second", Json::array({oneTrackMediumOfTheDisc()})),
                            release("third", "Third", Json::array({oneTrackMediumOfTheDisc()}))})));
    ASSERT_TRUE(parsed.ok) << parsed.why;
    ASSERT_EQ(parsed.albums.size(), 3u);
    EXPECT_EQ(parsed.albums[0].album.id, "first");
    EXPECT_EQ(parsed.albums[0].confidence, MusicBrainzParser::kTocConfidence);
    EXPECT_EQ(parsed.albums[1].album.id, "second");
    EXPECT_EQ(parsed.albums[1].confidence, MusicBrainzParser::kDiscIdConfidence);
    EXPECT_EQ(parsed.albums[2].album.id, "third");
}

TEST(MusicBrainzParserTest, MoreReleasesThanTheBound_AreCutToTheBound) {
    Json releases = Json::array();
    for (size_t i = 0; i < MusicBrainzParser::kMaxReleases + 5; ++i) {
        releases.push_back(
            release("r" + std::to_string(i), "T", Json::array({oneTrackMediumOfTheDisc()})));
    }
    const Parsed parsed = parse(answer(releases));
    ASSERT_TRUE(parsed.ok) << parsed.why;
    ASSERT_EQ(parsed.albums.size(), MusicBrainzParser::kMaxReleases);
    EXPECT_EQ(parsed.albums.back().album.id, "r99");
}

TEST(MusicBrainzParserTest, TrackArtistCredit_IsTheNamesWithTheirJoinPhrases) {
    Json media = Json::array({oneTrackMediumOfTheDisc()});
    media[0]["tracks"][1]["artist-credit"] =
        Json::array({{{"name", "Mira Quartet"}, {"joinphrase", " feat. "}},
                     {{"name", "Jon Sato"}, {"joinphrase", " & "}},
                     {{"name", "Ana"}, {"joinphrase", ""}}});
    const Parsed parsed = parse(answer(Json::array({release("r", "T", media)})));
    ASSERT_TRUE(parsed.ok) << parsed.why;
    ASSERT_EQ(parsed.albums.size(), 1u);
    const auto& tracks = parsed.albums[0].album.media[0].tracks;
    EXPECT_EQ(tracks[0].performer, "Mira Quartet");
    EXPECT_EQ(tracks[1].performer, "Mira Quartet feat. Jon Sato & Ana");
    EXPECT_EQ(tracks[2].performer, "Mira Quartet");
}

TEST(MusicBrainzParserTest, TrackWithoutTitle_TakesItsRecordingsTitle) {
    Json media = Json::array({oneTrackMediumOfTheDisc()});
    media[0]["tracks"][0].erase("title");
    media[0]["tracks"][0]["recording"] = {{"title", "Recorded"}};
    const Parsed parsed = parse(answer(Json::array({release("r", "T", media)})));
    ASSERT_TRUE(parsed.ok) << parsed.why;
    EXPECT_EQ(parsed.albums.at(0).album.media[0].tracks[0].title, "Recorded");
}

// The genre code of a release with `releaseGenres` whose group has `groupGenres`.
std::string genreOf(const Json& releaseGenres, const Json& groupGenres) {
    Json one = release("r", "T", Json::array({oneTrackMediumOfTheDisc()}));
    one["genres"] = releaseGenres;
    one["release-group"] = {{"id", "g"}, {"genres", groupGenres}};
    const Parsed parsed = parse(answer(Json::array({one})));
    EXPECT_TRUE(parsed.ok) << parsed.why;
    return parsed.albums.empty() ? std::string("no album") : parsed.albums[0].album.genre;
}

TEST(MusicBrainzParserTest, Genre_IsTheReleasesMostVoted) {
    EXPECT_EQ(
        genreOf(Json::array({{{"name", "rock"}, {"count", 1}}, {{"name", "jazz"}, {"count", 4}}}),
                Json::array({{{"name", "pop"}, {"count", 9}}})),
        "JAZZ");
}

TEST(MusicBrainzParserTest, Genre_OfEqualVotes_IsTheFirstListed) {
    EXPECT_EQ(
        genreOf(Json::array({{{"name", "blues"}, {"count", 2}}, {{"name", "jazz"}, {"count", 2}}}),
                Json::array()),
        "BLUES");
}

TEST(MusicBrainzParserTest, Genre_WithoutOneOnTheRelease_IsTheReleaseGroupsMostVoted) {
    EXPECT_EQ(genreOf(Json::array(), Json::array({{{"name", "j-pop"}, {"count", 1}},
                                                  {{"name", "Hip Hop"}, {"count", 3}}})),
              "HIPHOP");
}

TEST(MusicBrainzParserTest, Genre_UnmappedOrNone_IsOther) {
    EXPECT_EQ(genreOf(Json::array({{{"name", "krautrock-polka"}, {"count", 5}}}), Json::array()),
              "OTHER");
    EXPECT_EQ(genreOf(Json::array(), Json::array()), "OTHER");
    EXPECT_EQ(genreOf(nullptr, nullptr), "OTHER");
}

std::string languageOf(const Json& representation) {
    Json one = release("r", "T", Json::array({oneTrackMediumOfTheDisc()}));
    one["text-representation"] = representation;
    const Parsed parsed = parse(answer(Json::array({one})));
    EXPECT_TRUE(parsed.ok) << parsed.why;
    return parsed.albums.empty() ? std::string("no album") : parsed.albums[0].album.language;
}

TEST(MusicBrainzParserTest, Language_IsTheTwoLetterCodeOfTheTextRepresentation) {
    EXPECT_EQ(languageOf({{"language", "jpn"}, {"script", "Jpan"}}), "ja");
    EXPECT_EQ(languageOf({{"language", "deu"}}), "de");
}

TEST(MusicBrainzParserTest, Language_NoneOrWithoutTwoLetterCode_IsEmpty) {
    EXPECT_EQ(languageOf({{"script", "Latn"}}), "");
    EXPECT_EQ(languageOf({{"language", nullptr}}), "");
    EXPECT_EQ(languageOf(nullptr), "");
    EXPECT_EQ(languageOf({{"language", "mul"}}), "");
    EXPECT_EQ(languageOf({{"language", "zxx"}}), "");
}

TEST(MusicBrainzParserTest, CdStub_GivesNoAlbum) {
    const Parsed parsed =
        parse(Json{{"id", kDiscId},
                   {"title", "Stub"},
                   {"artist", "Someone"},
                   {"track-count", 3},
                   {"tracks", Json::array({{{"title", "a"}}, {{"title", "b"}}})}});
    EXPECT_TRUE(parsed.ok) << parsed.why;
    EXPECT_TRUE(parsed.albums.empty());
}

TEST(MusicBrainzParserTest, NotJson_IsRefusedAsNotWellFormed) {
    for (const std::string text : {"", "{", "<html>503</html>", "{\"releases\": [}", "nul"}) {
        const Parsed parsed = parse(text);
        EXPECT_FALSE(parsed.ok) << text;
        EXPECT_EQ(parsed.why, "the answer is not well-formed JSON") << text;
        EXPECT_TRUE(parsed.albums.empty());
    }
}

TEST(MusicBrainzParserTest, JsonThatIsNoObject_IsRefused) {
    for (const std::string text : {"[]", "null", "42", "\"releases\""}) {
        const Parsed parsed = parse(text);
        EXPECT_FALSE(parsed.ok) << text;
        EXPECT_EQ(parsed.why, "the answer is not a JSON object") << text;
    }
}

TEST(MusicBrainzParserTest, DeepNesting_IsRefusedBeforeParsing) {
    const std::string text =
        "{\"releases\":" + std::string(100000, '[') + std::string(100000, ']') + "}";
    const Parsed parsed = parse(text);
    EXPECT_FALSE(parsed.ok);
    EXPECT_EQ(parsed.why, "the answer nests deeper than 64 levels");
}

TEST(MusicBrainzParserTest, BracketsInsideStrings_DoNotCountAsNesting) {
    Json one = release("r", std::string(200, '[') + "\\\"" + std::string(200, '{'),
                       Json::array({oneTrackMediumOfTheDisc()}));
    const Parsed parsed = parse(answer(Json::array({one})));
    ASSERT_TRUE(parsed.ok) << parsed.why;
    EXPECT_EQ(parsed.albums.size(), 1u);
}

TEST(MusicBrainzParserTest, NumberTooLargeForADouble_IsRefusedAsNotWellFormed) {
    const Parsed parsed = parse(std::string("{\"releases\": [], \"sectors\": 1e999}"));
    EXPECT_FALSE(parsed.ok);
    EXPECT_EQ(parsed.why, "the answer is not well-formed JSON");
}

TEST(MusicBrainzParserTest, ReleasesThatAreNoList_AreRefused) {
    for (const Json& releases : {Json("r"), Json(7), Json::object(), Json(nullptr)}) {
        const Parsed parsed = parse(Json{{"id", kDiscId}, {"releases", releases}});
        EXPECT_FALSE(parsed.ok) << releases.dump();
        EXPECT_EQ(parsed.why, "the answer's \"releases\" is not a list") << releases.dump();
    }
}

TEST(MusicBrainzParserTest, ReleasesOfWrongTypesOrMissingFields_AreLeftOutAndTheOthersKept) {
    const Json good = release("good", "Good", Json::array({oneTrackMediumOfTheDisc()}));
    Json noId = good;
    noId.erase("id");
    Json nullId = good;
    nullId["id"] = nullptr;
    Json numberId = good;
    numberId["id"] = 12;
    Json noMedia = good;
    noMedia.erase("media");
    Json mediaObject = good;
    mediaObject["media"] = Json::object();
    Json noMediumFits = good;
    noMediumFits["media"] = Json::array({nullptr, 3, "x", Json::array()});
    const Parsed parsed =
        parse(answer(Json::array({nullptr, 5, "release", Json::array(), noId, nullId, numberId,
                                  noMedia, mediaObject, noMediumFits, good})));
    ASSERT_TRUE(parsed.ok) << parsed.why;
    ASSERT_EQ(parsed.albums.size(), 1u);
    EXPECT_EQ(parsed.albums[0].album.id, "good");
}

TEST(MusicBrainzParserTest, FieldsOfWrongTypesOrNull_GiveEmptyTextsNotAFailure) {
    Json one = release("r", "T", Json::array({oneTrackMediumOfTheDisc()}));
    one["title"] = nullptr;
    one["artist-credit"] = Json::array({nullptr, {{"name", 5}, {"joinphrase", nullptr}}, "x"});
    one["genres"] = Json::array(
        {nullptr, {{"name", nullptr}, {"count", 9}}, {{"name", "jazz"}, {"count", "9"}}});
    one["release-group"] = "group";
    one["text-representation"] = Json::array({"jpn"});
    one["media"][0]["tracks"] = Json::array({nullptr, {{"title", 3}, {"artist-credit", "A"}}});
    const Parsed parsed = parse(answer(Json::array({one})));
    ASSERT_TRUE(parsed.ok) << parsed.why;
    ASSERT_EQ(parsed.albums.size(), 1u);
    const auto& album = parsed.albums[0].album;
    EXPECT_EQ(album.title, "");
    EXPECT_EQ(album.genre, "OTHER");
    EXPECT_EQ(album.language, "");
    ASSERT_EQ(album.media[0].tracks.size(), 2u);
    EXPECT_EQ(album.media[0].tracks[0].title, "");
    EXPECT_EQ(album.media[0].tracks[1].performer, "");
}

TEST(MusicBrainzParserTest, HugeAndNegativeNumbers_AreReadAsNoMatchNotACrash) {
    Json media = Json::array({medium("other", {150, 18150, 36150}, 54150, {"a", "b", "c"})});
    media[0]["discs"][0]["offsets"] = Json::array({18446744073709551615ull, -5, 1.5});
    media[0]["discs"][0]["sectors"] = -1;
    media[0]["track-count"] = 18446744073709551615ull;
    Json hugeCount = release("huge", "T", media);
    hugeCount["genres"] = Json::array({{{"name", "rock"}, {"count", 18446744073709551615ull}},
                                       {{"name", "jazz"}, {"count", -9223372036854775807LL - 1}}});
    const Parsed parsed = parse(answer(Json::array({hugeCount})));
    ASSERT_TRUE(parsed.ok) << parsed.why;
    ASSERT_EQ(parsed.albums.size(), 1u);  // three tracks: still the only medium of that count
    EXPECT_EQ(parsed.albums[0].confidence, MusicBrainzParser::kTocConfidence);
    EXPECT_EQ(parsed.albums[0].album.genre, "ROCK");
}

TEST(MusicBrainzParserTest, MoreMediaThanTheBound_LeavesTheReleaseOut) {
    Json media = Json::array();
    for (size_t i = 0; i < MusicBrainzParser::kMaxMedia; ++i) {
        media.push_back(Json::object());
    }
    media.push_back(oneTrackMediumOfTheDisc());
    const Parsed parsed = parse(answer(Json::array({release("many", "T", media)})));
    ASSERT_TRUE(parsed.ok) << parsed.why;
    EXPECT_TRUE(parsed.albums.empty());
}

}  // namespace
