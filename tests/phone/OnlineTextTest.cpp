// Text from online services: UTF-8 kept, Latin-1 decoded, long texts cut.
#include "moxphone/OnlineText.h"

#include <gtest/gtest.h>

#include <string>

#include "moxdb/DbBytes.h"

namespace {

using moxphone::OnlineText;

TEST(OnlineTextTest, Utf8Text_IsKeptAsItIs) {
    EXPECT_EQ(OnlineText::decode("Lumière 夜明け"), "Lumière 夜明け");
}

TEST(OnlineTextTest, Latin1Text_IsDecodedToUtf8) {
    EXPECT_EQ(OnlineText::decode("Lumi\xe8re d'\xe9t\xe9"), "Lumière d'été");
}

TEST(OnlineTextTest, OverlongFormsAndSurrogates_AreNotUtf8) {
    EXPECT_FALSE(OnlineText::isUtf8("\xc0\xaf"));
    EXPECT_FALSE(OnlineText::isUtf8("\xed\xa0\x80"));
    EXPECT_TRUE(OnlineText::isUtf8("\xf0\x9f\x8e\xb5"));
}

TEST(OnlineTextTest, LongText_IsCutAtACharacterToTheDatabasesLimit) {
    std::string japanese = "a";
    for (int i = 0; i < 1100; ++i) {
        japanese += "夜";
    }
    const std::string cut = OnlineText::fit(japanese);
    EXPECT_EQ(moxdb::utf8ToUtf16(cut).size(), 1023u);
    EXPECT_EQ(cut.size(), 1u + 1022u * 3u);
}

}  // namespace
