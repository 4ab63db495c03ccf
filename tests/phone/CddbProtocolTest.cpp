// Answers of a CDDB server: the query's status codes and match lists, the
// read's xmcd entry, line ends, and status lines of the wrong form.
#include "moxphone/CddbProtocol.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using moxphone::CddbProtocol;
using Result = CddbProtocol::QueryResult;

struct Query {
    Result result = Result::kBroken;
    std::vector<CddbProtocol::Match> matches;
    std::string why;
};

Query query(const std::string& answer) {
    Query parsed;
    parsed.result = CddbProtocol::parseQuery(answer, &parsed.matches, &parsed.why);
    return parsed;
}

std::string text(const CddbProtocol::Match& match) {
    return match.category + " " + match.discId + (match.exact ? " exact" : " inexact");
}

std::vector<std::string> texts(const Query& parsed) {
    std::vector<std::string> out;
    for (const auto& match : parsed.matches) {
        out.push_back(text(match));
    }
    return out;
}

TEST(CddbProtocolTest, Status200_GivesTheOneExactMatch) {
    const Query parsed = query("200 rock 1802d003 The Band / Long Title\r\n");
    EXPECT_EQ(parsed.result, Result::kMatches);
    EXPECT_EQ(texts(parsed), (std::vector<std::string>{"rock 1802d003 exact"}));
}

TEST(CddbProtocolTest, Status210_GivesEveryListedMatchAsExact) {
    const Query parsed = query(
        "210 Found exact matches, list follows (until terminating `.')\r\n"
        "rock 1802d003 The Band / Long Title\r\n"
        "misc 1802d004 Other / Album\r\n"
        ".\r\n");
    EXPECT_EQ(parsed.result, Result::kMatches);
    EXPECT_EQ(texts(parsed),
              (std::vector<std::string>{"rock 1802d003 exact", "misc 1802d004 exact"}));
}

TEST(CddbProtocolTest, Status211_GivesEveryListedMatchAsInexact) {
    const Query parsed = query(
        "211 Found inexact matches, list follows (until terminating `.')\n"
        "jazz 0a0b0c03 Mira Quartet / Blue Hours\n"
        ".\n");
    EXPECT_EQ(parsed.result, Result::kMatches);
    EXPECT_EQ(texts(parsed), (std::vector<std::string>{"jazz 0a0b0c03 inexact"}));
}

TEST(CddbProtocolTest, Status202_IsNotFound) {
    const Query parsed = query("202 No match for disc ID 1802d003.\r\n");
    EXPECT_EQ(parsed.result, Result::kNotFound);
    EXPECT_TRUE(parsed.matches.empty());
}

TEST(CddbProtocolTest, ListWithoutTerminatingDot_IsBroken) {
    const Query parsed = query("210 Found exact matches\r\nrock 1802d003 A / B\r\n");
    EXPECT_EQ(parsed.result, Result::kBroken);
    EXPECT_EQ(parsed.why, "the query answer's list does not end with a line \".\"");
}

TEST(CddbProtocolTest, ListLinesOfTheWrongForm_AreSkipped) {
    const Query parsed = query(
        "211 Found inexact matches\n"
        "onlyoneword\n"
        "rock ../../etc A / B\n"
        "\n"
        "misc 1802d004 Other / Album\n"
        ".\n"
        "rock after0dot Not / Read\n");
    EXPECT_EQ(parsed.result, Result::kMatches);
    EXPECT_EQ(texts(parsed), (std::vector<std::string>{"misc 1802d004 inexact"}));
}

TEST(CddbProtocolTest, ListWithNoUsableLine_IsNotFound) {
    const Query parsed = query("210 Found exact matches\nbad\n.\n");
    EXPECT_EQ(parsed.result, Result::kNotFound);
}

TEST(CddbProtocolTest, LongList_IsCutAtTheBound) {
    std::string answer = "210 Found exact matches\n";
    for (size_t i = 0; i < CddbProtocol::kMaxMatches + 3; ++i) {
        answer += "rock id" + std::to_string(i) + " A / B\n";
    }
    const Query parsed = query(answer + ".\n");
    ASSERT_EQ(parsed.matches.size(), CddbProtocol::kMaxMatches);
    EXPECT_EQ(text(parsed.matches.back()), "rock id19 exact");
}

TEST(CddbProtocolTest, OtherStatus_IsBrokenNamingTheStatusLine) {
    const Query parsed = query("409 No handshake\r\n");
    EXPECT_EQ(parsed.result, Result::kBroken);
    EXPECT_EQ(parsed.why, "the query answer is 409 No handshake");
}

TEST(CddbProtocolTest, EmptyAnswer_IsBroken) {
    const Query parsed = query("");
    EXPECT_EQ(parsed.result, Result::kBroken);
    EXPECT_EQ(parsed.why, "the query answer is empty");
}

TEST(CddbProtocolTest, StatusLineWithoutCategoryAndDiscId_IsBroken) {
    const Query parsed = query("200 rock\r\n");
    EXPECT_EQ(parsed.result, Result::kBroken);
    EXPECT_EQ(parsed.why, "the query answer names no category and disc ID: 200 rock");
}

TEST(CddbProtocolTest, StatusLineWhoseCodeIsNotThreeDigitsAndASpace_IsBroken) {
    for (const std::string line :
         {"2000 rock 1802d003 A / B", "200rock 1802d003 A / B", "20", "2021 no match", "<html>"}) {
        const Query parsed = query(line + "\r\n");
        EXPECT_EQ(parsed.result, Result::kBroken) << line;
        EXPECT_EQ(parsed.why, "the query answer is " + line) << line;
    }
}

TEST(CddbProtocolTest, StatusLineControlCharactersAndLength_AreShownSafely) {
    const Query parsed = query("500 a\x1b[2Jb" + std::string(100, 'x') + "\n");
    EXPECT_EQ(parsed.result, Result::kBroken);
    EXPECT_EQ(parsed.why, "the query answer is 500 a?[2Jb" + std::string(70, 'x') + "...");
}

TEST(CddbProtocolTest, ReadAnswer_GivesTheEntryBetweenStatusAndDot) {
    std::string entry;
    std::string why;
    ASSERT_TRUE(CddbProtocol::parseRead(
        "210 rock 1802d003 CD database entry follows (until terminating `.')\r\n"
        "# xmcd\r\nDTITLE=A / B\r\nTTITLE0=Lo\r\nTTITLE0=ng\r\n.\r\n",
        &entry, &why))
        << why;
    EXPECT_EQ(entry, "# xmcd\nDTITLE=A / B\nTTITLE0=Lo\nTTITLE0=ng\n");
}

TEST(CddbProtocolTest, ReadAnswerOfAnotherStatus_IsRefused) {
    std::string entry;
    std::string why;
    EXPECT_FALSE(CddbProtocol::parseRead("401 rock 1802d003 No such CD entry in database.\r\n",
                                         &entry, &why));
    EXPECT_EQ(why, "the read answer is 401 rock 1802d003 No such CD entry in database.");
    EXPECT_FALSE(CddbProtocol::parseRead("", &entry, &why));
    EXPECT_EQ(why, "the read answer is empty");
    EXPECT_FALSE(CddbProtocol::parseRead("2101 rock x\nDTITLE=A\n.\n", &entry, &why));
    EXPECT_EQ(why, "the read answer is 2101 rock x");
}

TEST(CddbProtocolTest, ReadAnswerWithoutDot_IsRefused) {
    std::string entry;
    std::string why;
    EXPECT_FALSE(CddbProtocol::parseRead("210 rock x follows\nDTITLE=A / B\n", &entry, &why));
    EXPECT_EQ(why, "the read answer does not end with a line \".\"");
}

TEST(CddbProtocolTest, Lines_SplitAtLfAndDropTheCrBeforeIt) {
    EXPECT_EQ(CddbProtocol::lines("a\r\nb\nc\r\r\n\nd"),
              (std::vector<std::string>{"a", "b", "c\r", "", "d"}));
    EXPECT_TRUE(CddbProtocol::lines("").empty());
}

TEST(CddbProtocolTest, IsWord_TakesOneTo32LettersDigitsDashesAndUnderscores) {
    EXPECT_TRUE(CddbProtocol::isWord("rock"));
    EXPECT_TRUE(CddbProtocol::isWord("a-B_9"));
    EXPECT_TRUE(CddbProtocol::isWord(std::string(32, 'a')));
    EXPECT_FALSE(CddbProtocol::isWord(""));
    EXPECT_FALSE(CddbProtocol::isWord(std::string(33, 'a')));
    EXPECT_FALSE(CddbProtocol::isWord("a+b"));
    EXPECT_FALSE(CddbProtocol::isWord("../x"));
    EXPECT_FALSE(CddbProtocol::isWord("a&cmd=x"));
}

}  // namespace
