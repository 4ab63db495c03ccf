// The lookup request, checked byte for byte: the fields read, and each way a
// frame can differ from what the module must send, with its reason.
#include "moxphone/LookupRequest.h"

#include <gtest/gtest.h>

#include <string>

#include "PhoneTestSupport.h"

using moxphone::LookupRequest;
using phonetest::Bytes;
using phonetest::lookupFrame;

namespace {

std::string refusal(const Bytes& frame) {
    LookupRequest request;
    std::string problem;
    if (LookupRequest::parse(frame.data(), frame.size(), &request, &problem)) {
        return "accepted";
    }
    return problem;
}

}  // namespace

TEST(LookupRequestTest, HeadAndTail_TheDocumentsFixedText) {
    EXPECT_EQ(phonetest::kXmlHead, LookupRequest::head());
    EXPECT_EQ(phonetest::kXmlTail, LookupRequest::tail());
    EXPECT_EQ(110u, LookupRequest::head().size());
    EXPECT_EQ(40u, LookupRequest::tail().size());
}

TEST(LookupRequestTest, Parse_FieldsAndTocText) {
    const Bytes frame = lookupFrame("0000960046E6008D3600D386", 0x12, 0x0304, 0x0506);
    LookupRequest request;
    std::string problem;
    ASSERT_TRUE(LookupRequest::parse(frame.data(), frame.size(), &request, &problem)) << problem;
    EXPECT_EQ(0x12, request.kind);
    EXPECT_EQ(0x0304, request.param1);
    EXPECT_EQ(0x0506, request.param2);
    EXPECT_EQ("0000960046E6008D3600D386", request.toc);
}

TEST(LookupRequestTest, Parse_EmptyToc_159Bytes) {
    const Bytes frame = lookupFrame("");
    ASSERT_EQ(159u, frame.size());
    LookupRequest request;
    std::string problem;
    ASSERT_TRUE(LookupRequest::parse(frame.data(), frame.size(), &request, &problem)) << problem;
    EXPECT_EQ("", request.toc);
}

TEST(LookupRequestTest, Parse_TocWithMarkup_TakenUnchanged) {
    const Bytes frame = lookupFrame("A<B&C</TOC>");
    LookupRequest request;
    std::string problem;
    ASSERT_TRUE(LookupRequest::parse(frame.data(), frame.size(), &request, &problem)) << problem;
    EXPECT_EQ("A<B&C</TOC>", request.toc);
}

TEST(LookupRequestTest, Parse_ShorterThanAnEmptyRequest_Refused) {
    Bytes frame = lookupFrame("");
    frame.pop_back();
    EXPECT_EQ("the frame has 158 bytes, fewer than the 159 of a request with an empty TOC text",
              refusal(frame));
    EXPECT_EQ("the frame has 0 bytes, fewer than the 159 of a request with an empty TOC text",
              refusal({}));
}

TEST(LookupRequestTest, Parse_OtherCommand_Refused) {
    Bytes frame = lookupFrame("ABC");
    frame[1] = 0x11;
    EXPECT_EQ("the frame is not a lookup request", refusal(frame));
}

TEST(LookupRequestTest, Parse_ReservedByteSet_Refused) {
    Bytes frame = lookupFrame("ABC");
    frame[3] = 0x20;
    EXPECT_EQ("the reserved byte 3 is 32, not 0", refusal(frame));
}

TEST(LookupRequestTest, Parse_HeadDiffers_ByteOfTheDifference) {
    Bytes frame = lookupFrame("ABC");
    frame[8 + 20] = 'x';  // inside "<DatabaseInfo>"
    EXPECT_EQ("the XML head differs from the expected one at byte 28", refusal(frame));
}

TEST(LookupRequestTest, Parse_CarriageReturnInsteadOfLineFeed_Refused) {
    Bytes frame = lookupFrame("ABC");
    frame[8 + 17] = '\r';
    EXPECT_EQ("the XML head differs from the expected one at byte 25", refusal(frame));
}

TEST(LookupRequestTest, Parse_NoTerminatingZero_Refused) {
    Bytes frame = lookupFrame("ABC");
    frame.back() = '\n';
    EXPECT_EQ("the frame does not end with a terminating zero byte", refusal(frame));
}

TEST(LookupRequestTest, Parse_TrailingLineFeedBeforeTheZero_TailDiffers) {
    Bytes frame = lookupFrame("ABC");
    frame.insert(frame.end() - 1, '\n');
    EXPECT_EQ(
        "the XML tail differs from the expected one at byte 122 (or the frame's length does "
        "not match its text)",
        refusal(frame));
}

TEST(LookupRequestTest, Parse_ExtraZeroAfterTheTerminator_TailDiffers) {
    Bytes frame = lookupFrame("ABC");
    frame.push_back(0x00);
    EXPECT_EQ(
        "the XML tail differs from the expected one at byte 122 (or the frame's length does "
        "not match its text)",
        refusal(frame));
}

TEST(LookupRequestTest, Parse_ZeroByteInsideTheToc_Refused) {
    Bytes frame = lookupFrame(std::string("AB\0C", 4));
    EXPECT_EQ("the XML text ends at a zero byte at byte 120, before its tail", refusal(frame));
}
