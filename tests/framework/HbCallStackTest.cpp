#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "DbgCapture.h"
#include "HbFramework/HbCallStack.h"

namespace {

size_t frameLines(const std::string& text) {
    size_t count = 0;
    for (size_t pos = text.find("\n  #"); pos != std::string::npos;
         pos = text.find("\n  #", pos + 1)) {
        ++count;
    }
    return count;
}

}  // namespace

TEST(HbCallStackTest, DumpDirectly_AllFrames_WritesOneCallStackRecord) {
    DbgCapture capture;
    HbCallStack::dumpDirectly(-1);
    const std::vector<HbDbgRecord> records = capture.records();
    ASSERT_EQ(1u, records.size());
    EXPECT_EQ("HbFramework/HbCallStack", records[0].file);
    EXPECT_EQ("dumpDirectly", records[0].function);
    EXPECT_EQ(0u, records[0].text.rfind("call stack:\n  #0 ", 0));
    EXPECT_GE(frameLines(records[0].text), 2u);  // at least this test and the dump itself
    EXPECT_EQ('\n', records[0].text.back());
}

TEST(HbCallStackTest, DumpDirectly_Depth2_WritesTwoFrames) {
    DbgCapture capture;
    HbCallStack::dumpDirectly(2);
    ASSERT_EQ(1u, capture.records().size());
    const std::string text = capture.records()[0].text;
    EXPECT_EQ(2u, frameLines(text));
    EXPECT_NE(std::string::npos, text.find("\n  #1 "));
    EXPECT_EQ(std::string::npos, text.find("\n  #2 "));
}

TEST(HbCallStackTest, DumpDirectly_Depth0_WritesOnlyTheHeading) {
    DbgCapture capture;
    HbCallStack::dumpDirectly(0);
    ASSERT_EQ(1u, capture.records().size());
    EXPECT_EQ("call stack:\n", capture.records()[0].text);
}
