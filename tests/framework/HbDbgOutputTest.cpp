#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "DbgCapture.h"
#include "HbFramework/HbDbgOutput.h"
#include "TestDir.h"
#include "TestEvent.h"

namespace {

std::string readText(const std::string& path) {
    std::vector<unsigned char> bytes = TestDir::readFile(path);
    return std::string(bytes.begin(), bytes.end());
}

// Sends everything written to stderr (fd 2) into a file while it lives.
class StderrToFile {
public:
    explicit StderrToFile(const std::string& path) : mPath(path) {
        std::fflush(stderr);
        mSaved = ::dup(2);
        int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        ::dup2(fd, 2);
        ::close(fd);
    }
    ~StderrToFile() { restore(); }
    // Restores stderr and returns what was written to it meanwhile.
    std::string finish() {
        restore();
        return readText(mPath);
    }

private:
    void restore() {
        if (mSaved < 0) {
            return;
        }
        std::fflush(stderr);
        ::dup2(mSaved, 2);
        ::close(mSaved);
        mSaved = -1;
    }

    std::string mPath;
    int mSaved = -1;
};

// Selects the default sink through the environment, as a deployment would.
void useSetting(const char* value) {
    if (value == nullptr) {
        ::unsetenv("HB_DBG_OUTPUT");
    } else {
        ::setenv("HB_DBG_OUTPUT", value, 1);
    }
    HbDbgOutput::ReloadSettings();
}

}  // namespace

TEST(HbDbgOutputTest, DbgPrint_NarrowFormat_HandsOneRecordWithTheCallersFields) {
    DbgCapture capture;
    HbDbgOutput::DbgPrint("src/Unit", "moxMsgSearch", 42, en_TAG_ERROR, "value %d of %s\n", 7,
                          "eight");
    const std::vector<HbDbgRecord> records = capture.records();
    ASSERT_EQ(1u, records.size());
    EXPECT_EQ("src/Unit", records[0].file);
    EXPECT_EQ("moxMsgSearch", records[0].function);
    EXPECT_EQ(42, records[0].line);
    EXPECT_EQ(1, records[0].tag);
    EXPECT_EQ("value 7 of eight\n", records[0].text);
}

TEST(HbDbgOutputTest, DbgPrint_WideFormat_ConvertedToUtf8) {
    DbgCapture capture;
    HbDbgOutput::DbgPrint("f", "fn", 1, en_TAG_ERROR, L"Gr\u00FC\u00DFe %ls %d %s\r\n",
                          L"\u65E5\u672C", 7, "ascii");
    ASSERT_EQ(1u, capture.records().size());
    EXPECT_EQ(
        "Gr\xC3\xBC\xC3\x9F"
        "e \xE6\x97\xA5\xE6\x9C\xAC 7 ascii\r\n",
        capture.records()[0].text);
    EXPECT_EQ("fn", capture.records()[0].function);
}

TEST(HbDbgOutputTest, DbgPrint_WideFormatOutsideTheBmp_BecomesFourUtf8Bytes) {
    DbgCapture capture;
    HbDbgOutput::DbgPrint("f", "fn", 1, en_TAG_ERROR, L"[\U0001F600]");
    ASSERT_EQ(1u, capture.records().size());
    EXPECT_EQ("[\xF0\x9F\x98\x80]", capture.records()[0].text);
}

TEST(HbDbgOutputTest, DbgPrint_WideSurrogateValue_BecomesReplacementCharacter) {
    DbgCapture capture;
    HbDbgOutput::DbgPrint("f", "fn", 1, en_TAG_ERROR, L"%lc.", static_cast<wint_t>(0xD800));
    ASSERT_EQ(1u, capture.records().size());
    EXPECT_EQ("\xEF\xBF\xBD.", capture.records()[0].text);
}

TEST(HbDbgOutputTest, DbgPrint_WideFormatWithUnconvertibleNarrowText_SaysSoInsteadOfLooping) {
    // In the "C" locale a byte above 0x7F in a narrow %s argument cannot be
    // widened; the record says so instead of growing its buffer without end.
    std::setlocale(LC_CTYPE, "C");
    DbgCapture capture;
    HbDbgOutput::DbgPrint("f", "fn", 1, en_TAG_ERROR, L"x %s y", "caf\xC3\xA9");
    HbDbgOutput::DbgPrint("f", "fn", 2, en_TAG_ERROR, L"x %s y", "plain");
    ASSERT_EQ(2u, capture.records().size());
    EXPECT_EQ("(message not convertible)", capture.records()[0].text);
    EXPECT_EQ("x plain y", capture.records()[1].text);
}

TEST(HbDbgOutputTest, DbgPrint_MessagesLongerThan256_AreKeptWhole) {
    DbgCapture capture;
    const std::string longText(1000, 'n');
    const std::wstring longWide(1000, L'w');
    HbDbgOutput::DbgPrint("f", "fn", 1, en_TAG_INFO, "%s|", longText.c_str());
    HbDbgOutput::DbgPrint("f", "fn", 2, en_TAG_INFO, L"%ls|", longWide.c_str());
    ASSERT_EQ(2u, capture.records().size());
    EXPECT_EQ(longText + "|", capture.records()[0].text);
    EXPECT_EQ(std::string(1000, 'w') + "|", capture.records()[1].text);
}

TEST(HbDbgOutputTest, DbgPrint_PlainForm_HasNoFileFunctionLineOrTag) {
    DbgCapture capture;
    HbDbgOutput::DbgPrint("ASSERT Failed! - %s(%d)\n", "HbFramework/Foundation/HbUnitFrame", 308);
    const std::vector<HbDbgRecord> records = capture.records();
    ASSERT_EQ(1u, records.size());
    EXPECT_EQ("", records[0].file);
    EXPECT_EQ("", records[0].function);
    EXPECT_EQ(0, records[0].line);
    EXPECT_EQ(0, records[0].tag);
    EXPECT_EQ("ASSERT Failed! - HbFramework/Foundation/HbUnitFrame(308)\n", records[0].text);
}

TEST(HbDbgOutputTest, Render_RecordWithSource_IsFileLineFunctionText) {
    HbDbgRecord record{"HbFramework/Foundation/HbDispatcher", "Dispatch", 140, 1,
                       "not found. msg id[5]\n"};
    EXPECT_EQ("HbFramework/Foundation/HbDispatcher:140 Dispatch: not found. msg id[5]\n",
              HbDbgOutput::Render(record));
}

TEST(HbDbgOutputTest, Render_TextWithoutLineFeed_GetsOne) {
    HbDbgRecord record{"a/b", "f", 3, 1, "no line feed"};
    EXPECT_EQ("a/b:3 f: no line feed\n", HbDbgOutput::Render(record));
}

TEST(HbDbgOutputTest, Render_PlainRecord_IsTheTextAlone) {
    HbDbgRecord banner{"", "", 0, 0, "#########\n#########\n"};
    EXPECT_EQ("#########\n#########\n", HbDbgOutput::Render(banner));
    HbDbgRecord empty{"", "", 0, 0, ""};
    EXPECT_EQ("\n", HbDbgOutput::Render(empty));
}

TEST(HbDbgOutputTest, DefaultSink_NoSetting_WritesTheRenderedRecordToStderr) {
    TestDir dir("HbDbgOutputStderr");
    useSetting(nullptr);
    StderrToFile redirect(dir.file("stderr"));
    HbDbgOutput::DbgPrint("src/x", "fn", 12, en_TAG_ERROR, "hello %d\n", 5);
    HbDbgOutput::DbgPrint("plain\n");
    EXPECT_EQ("src/x:12 fn: hello 5\nplain\n", redirect.finish());
}

TEST(HbDbgOutputTest, DefaultSink_SettingStderr_WritesToStderr) {
    TestDir dir("HbDbgOutputStderrNamed");
    useSetting("stderr");
    StderrToFile redirect(dir.file("stderr"));
    HbDbgOutput::DbgPrint("s", "f", 1, en_TAG_ERROR, "x");
    EXPECT_EQ("s:1 f: x\n", redirect.finish());
}

TEST(HbDbgOutputTest, DefaultSink_SettingOff_WritesNothing) {
    TestDir dir("HbDbgOutputOff");
    useSetting("off");
    StderrToFile redirect(dir.file("stderr"));
    HbDbgOutput::DbgPrint("s", "f", 1, en_TAG_ERROR, "silenced\n");
    HbDbgOutput::DbgPrint("silenced too\n");
    EXPECT_EQ("", redirect.finish());
}

TEST(HbDbgOutputTest, DefaultSink_SettingAFilePath_AppendsRenderedRecordsToIt) {
    TestDir dir("HbDbgOutputFile");
    const std::string logFile = dir.file("debug.log");
    TestDir::writeFile(logFile, {'o', 'l', 'd', '\n'});
    useSetting(logFile.c_str());
    StderrToFile redirect(dir.file("stderr"));
    HbDbgOutput::DbgPrint("s", "f", 1, en_TAG_ERROR, "first\n");
    HbDbgOutput::DbgPrint("s", "g", 2, en_TAG_ERROR, L"second \u00E9\n");
    EXPECT_EQ("", redirect.finish());
    EXPECT_EQ("old\ns:1 f: first\ns:2 g: second \xC3\xA9\n", readText(logFile));
}

TEST(HbDbgOutputTest, DefaultSink_FilePathThatCannotBeOpened_FallsBackToStderr) {
    TestDir dir("HbDbgOutputBadFile");
    useSetting(dir.path().c_str());  // a directory cannot be appended to
    StderrToFile redirect(dir.file("stderr"));
    HbDbgOutput::DbgPrint("s", "f", 1, en_TAG_ERROR, "kept\n");
    EXPECT_EQ("s:1 f: kept\n", redirect.finish());
}

TEST(HbDbgOutputTest, WriteDefault_FromASink_WritesWhereTheSettingSays) {
    TestDir dir("HbDbgOutputWriteDefault");
    const std::string logFile = dir.file("debug.log");
    useSetting(logFile.c_str());
    std::vector<std::string> kept;
    HbDbgOutput::Sink previous = HbDbgOutput::SetSink([&kept](const HbDbgRecord& record) {
        kept.push_back(record.text);
        HbDbgOutput::WriteDefault(record);
    });
    StderrToFile redirect(dir.file("stderr"));
    HbDbgOutput::DbgPrint("s", "f", 7, en_TAG_ERROR, "kept and written\n");
    HbDbgOutput::SetSink(previous);
    EXPECT_EQ("", redirect.finish());
    EXPECT_EQ(std::vector<std::string>{"kept and written\n"}, kept);
    EXPECT_EQ("s:7 f: kept and written\n", readText(logFile));
}

TEST(HbDbgOutputTest, WriteDefault_SettingOff_WritesNothing) {
    TestDir dir("HbDbgOutputWriteDefaultOff");
    useSetting("off");
    HbDbgOutput::Sink previous =
        HbDbgOutput::SetSink([](const HbDbgRecord& record) { HbDbgOutput::WriteDefault(record); });
    StderrToFile redirect(dir.file("stderr"));
    HbDbgOutput::DbgPrint("s", "f", 7, en_TAG_ERROR, "silenced\n");
    HbDbgOutput::SetSink(previous);
    EXPECT_EQ("", redirect.finish());
}

TEST(HbDbgOutputTest, SetSink_ReturnsThePreviousSinkAndEmptyRestoresTheDefault) {
    TestDir dir("HbDbgOutputSetSink");
    useSetting(nullptr);
    std::vector<std::string> first;
    std::vector<std::string> second;
    HbDbgOutput::Sink original =
        HbDbgOutput::SetSink([&first](const HbDbgRecord& r) { first.push_back(r.text); });
    EXPECT_FALSE(static_cast<bool>(original));
    HbDbgOutput::DbgPrint("one\n");
    HbDbgOutput::Sink previous =
        HbDbgOutput::SetSink([&second](const HbDbgRecord& r) { second.push_back(r.text); });
    ASSERT_TRUE(static_cast<bool>(previous));
    HbDbgOutput::DbgPrint("two\n");
    previous(HbDbgRecord{"", "", 0, 0, "through previous\n"});

    StderrToFile redirect(dir.file("stderr"));
    HbDbgOutput::SetSink(HbDbgOutput::Sink());
    HbDbgOutput::DbgPrint("three\n");
    EXPECT_EQ("three\n", redirect.finish());

    const std::vector<std::string> expectedFirst = {"one\n", "through previous\n"};
    const std::vector<std::string> expectedSecond = {"two\n"};
    EXPECT_EQ(expectedFirst, first);
    EXPECT_EQ(expectedSecond, second);
}

TEST(HbDbgOutputTest, Sink_RecordsFromManyThreads_AreDeliveredOneAtATime) {
    std::atomic<int> inside{0};
    std::atomic<int> mostInside{0};
    std::atomic<int> delivered{0};
    HbDbgOutput::Sink previous = HbDbgOutput::SetSink([&](const HbDbgRecord& record) {
        int now = ++inside;
        if (now > mostInside.load()) {
            mostInside.store(now);
        }
        if (record.text == "msg\n") {
            ++delivered;
        }
        --inside;
    });
    TestEvent go;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&go] {
            go.wait();
            for (int i = 0; i < 200; ++i) {
                HbDbgOutput::DbgPrint("s", "f", i, en_TAG_INFO, "msg\n");
            }
        });
    }
    go.set();
    for (std::thread& thread : threads) {
        thread.join();
    }
    HbDbgOutput::SetSink(previous);
    EXPECT_EQ(800, delivered.load());
    EXPECT_EQ(1, mostInside.load());
}

// The environment is read on first use, so these run in a fresh child process.
TEST(HbDbgOutputDeathTest, FirstUse_SettingOff_ReadFromTheEnvironment) {
    // "fast" forks without re-executing the binary, which also works under qemu-arm;
    // each test case runs in a process of its own, so nothing ran before.
    GTEST_FLAG_SET(death_test_style, "fast");
    EXPECT_EXIT(
        {
            ::setenv("HB_DBG_OUTPUT", "off", 1);
            HbDbgOutput::DbgPrint("s", "f", 1, en_TAG_ERROR, "silenced\n");
            std::fputs("child done\n", stderr);
            std::exit(0);
        },
        ::testing::ExitedWithCode(0),
        ::testing::AllOf(::testing::HasSubstr("child done"),
                         ::testing::Not(::testing::HasSubstr("silenced"))));
}

TEST(HbDbgOutputDeathTest, FirstUse_SettingAFilePath_ReadFromTheEnvironment) {
    // "fast" forks without re-executing the binary, which also works under qemu-arm;
    // each test case runs in a process of its own, so nothing ran before.
    GTEST_FLAG_SET(death_test_style, "fast");
    TestDir dir("HbDbgOutputFirstUse");
    const std::string logFile = dir.file("first.log");
    EXPECT_EXIT(
        {
            ::setenv("HB_DBG_OUTPUT", logFile.c_str(), 1);
            HbDbgOutput::DbgPrint("s", "f", 3, en_TAG_ERROR, "to the file\n");
            const std::string written = readText(logFile);
            TestDir::removeTree(dir.path());
            std::fprintf(stderr, "file held <%s>\n", written.c_str());
            std::exit(0);
        },
        ::testing::ExitedWithCode(0), ::testing::HasSubstr("file held <s:3 f: to the file\n>"));
}
