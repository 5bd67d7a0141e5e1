#include "kx/log/log.h"

#include "kx/base/CError.h"
#include "kx/base/onExceptionInDestructorIgnored.h"
#include "tests/support/CLogRecorder.h"

#include <gtest/gtest.h>

#include <atomic>
#include <exception>
#include <memory>
#include <optional>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

using Lines = std::vector<std::string>;

TEST(LogTest, handsEntriesToTheHandler)
{
    const support::CLogRecorder log;
    kx::logInfo("one");
    kx::logWarning(kx::CError("bad"), "two", "context");
    kx::logError(kx::CError("worse"), "three", "");
    EXPECT_EQ(log.lines(), (Lines{"info: one", "warning: two [context]: bad", "error: three: worse"}));
}

TEST(LogTest, handsOverAttachedData)
{
    std::optional<std::pair<kx::String, kx::String>> data;
    kx::setLogHandler([&data](const kx::CLogEntry& entry) {
        EXPECT_EQ(entry.level, kx::LogLevel::error);
        EXPECT_EQ(entry.text, "text");
        EXPECT_EQ(entry.error, nullptr);
        data.emplace(entry.dataName, entry.data);
    });
    kx::logErrorData("text", "Answer", "<xml/>");
    kx::setLogHandler({});
    EXPECT_EQ(data, std::make_pair(kx::String("Answer"), kx::String("<xml/>")));
}

TEST(LogTest, writesToStandardErrorByDefault)
{
    testing::internal::CaptureStderr();
    kx::logWarning(kx::CError("bad"), L"gr\u00FCn", "context");
    kx::logErrorData("text", "Answer", "data");
    EXPECT_EQ(
        testing::internal::GetCapturedStderr(), "warning: gr\xC3\xBCn [context]: bad\nerror: text\nAnswer: data\n");
}

std::string writtenByDefault(const std::exception& error, const kx::String& text, const kx::String& context)
{
    testing::internal::CaptureStderr();
    kx::logError(error, text, context);
    return testing::internal::GetCapturedStderr();
}

TEST(LogTest, writesNoTextThatLooksLikeAnEntryOfItsOwn)
{
    EXPECT_EQ(writtenByDefault(kx::CError("a\nerror: b"), "c\nerror: d", "e\r\nerror: f"),
        "error: c\n    error: d [e\n    error: f]: a\n    error: b\n");
}

TEST(LogTest, writesNoAttachedDataThatLooksLikeAnEntryOfItsOwn)
{
    testing::internal::CaptureStderr();
    kx::logErrorData("text", "Answer\nerror: a", "one\r\nerror: two\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "error: text\nAnswer\n    error: a: one\n    error: two\n    \n");
}

TEST(LogTest, writesControlCharactersAsTheirCodes)
{
    EXPECT_EQ(writtenByDefault(kx::CError("x"), L"a\tb\x1B[2J\rc\x7F\x01 \u00FC~", ""),
        "error: a\tb\\x1B[2J\\x0Dc\\x7F\\x01 \xC3\xBC~: x\n");
}

TEST(LogTest, writesControlCharactersBeyondASCIIAsTheirCodes)
{
    EXPECT_EQ(writtenByDefault(kx::CError("x"), L"a\u0080\u009B2J\u009F\u00A0", ""),
        "error: a\\x80\\x9B2J\\x9F\xC2\xA0: x\n");
}

TEST(LogTest, writesWhatChangesTheDirectionOfWritingAsItsCode)
{
    EXPECT_EQ(writtenByDefault(kx::CError("x"), L"\u061C\u200D\u200E\u200F\u2010", ""),
        "error: \\u061C\xE2\x80\x8D\\u200E\\u200F\xE2\x80\x90: x\n");
    EXPECT_EQ(writtenByDefault(kx::CError("x"), L"\u2027\u2028\u202E\u202F\u2065\u2066\u2069\u206A", ""),
        "error: \xE2\x80\xA7\\u2028\\u202E\xE2\x80\xAF\xE2\x81\xA5\\u2066\\u2069\xE2\x81\xAA: x\n");
}

TEST(LogTest, writesBytesThatAreNoTextAsTheirCodes)
{
    EXPECT_EQ(writtenByDefault(std::runtime_error("gr\xFCn \x9B"), "text", ""), "error: text: gr\\xFCn \\x9B\n");
}

class CSilentException : public std::exception {
public:
    const char* what() const noexcept override { return nullptr; }
};

TEST(LogTest, writesNothingOfAnErrorThatSaysNothing)
{
    EXPECT_EQ(writtenByDefault(CSilentException(), "text", ""), "error: text\n");
}

TEST(LogTest, isToldItsHandlerWhileOthersLog)
{
    std::atomic<int> entries{0};
    std::vector<std::thread> threads;
    kx::setLogHandler([&entries](const kx::CLogEntry&) { ++entries; });
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            for (int round = 0; round < 1000; ++round)
                kx::logInfo("text");
        });
    }
    for (int round = 0; round < 1000; ++round)
        kx::setLogHandler([&entries](const kx::CLogEntry&) { ++entries; });
    for (std::thread& thread : threads)
        thread.join();
    kx::setLogHandler({});
    EXPECT_EQ(entries, 4000);
}

// The old handler goes with what it holds, which may log.
TEST(LogTest, mayBeUsedByWhatAHandlerHolds)
{
    Lines lines;
    struct CLastWords {
        ~CLastWords() { kx::logInfo("the end"); }
    };
    kx::setLogHandler([held = std::make_shared<CLastWords>()](const kx::CLogEntry&) {});
    kx::setLogHandler([&lines](const kx::CLogEntry& entry) { lines.push_back(entry.text.toUTF8()); });
    kx::setLogHandler({});
    EXPECT_EQ(lines, Lines{"the end"});
}

TEST(LogTest, saysQuietlyThatAHandlerThrewWhatIsNoException)
{
    kx::setLogHandler([](const kx::CLogEntry&) { throw 1; });
    testing::internal::CaptureStderr();
    kx::logErrorQuietly(kx::CError("bad"), "text");
    kx::onExceptionInDestructorIgnored("norla::CThing", kx::CError("bad"), true);
    kx::setLogHandler({});
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
        "An error could not be logged.\nException in a destructor (ignored); it could not be logged.\n");
}

TEST(LogTest, goesBackToTheDefault)
{
    {
        const support::CLogRecorder log;
    }
    testing::internal::CaptureStderr();
    kx::logInfo("text");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "info: text\n");
}

TEST(LogTest, letsAHandlerLog)
{
    Lines lines;
    kx::setLogHandler([&lines](const kx::CLogEntry& entry) {
        lines.push_back(entry.text.toUTF8());
        if (entry.text == "outer")
            kx::logInfo("inner");
    });
    kx::logInfo("outer");
    kx::setLogHandler({});
    EXPECT_EQ(lines, (Lines{"outer", "inner"}));
}

TEST(OnExceptionInDestructorIgnoredTest, logsAnErrorOrAWarning)
{
    const support::CLogRecorder log;
    kx::onExceptionInDestructorIgnored("norla::CThing", kx::CError("bad"), true);
    kx::onExceptionInDestructorIgnored("norla::CThing", kx::CError("bad"), false);
    EXPECT_EQ(log.lines(),
        (Lines{"error: Exception in the destructor of norla::CThing (ignored).: bad",
            "warning: Exception in the destructor of norla::CThing (ignored).: bad"}));
}

TEST(OnExceptionInDestructorIgnoredTest, neverThrows)
{
    kx::setLogHandler([](const kx::CLogEntry&) { throw kx::CError("handler"); });
    testing::internal::CaptureStderr();
    kx::onExceptionInDestructorIgnored("norla::CThing", kx::CError("bad"), true);
    kx::setLogHandler({});
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Exception in a destructor (ignored); it could not be logged.\n");
}

} // namespace
