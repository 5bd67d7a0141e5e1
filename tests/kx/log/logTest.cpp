#include "kx/log/log.h"

#include "kx/base/CError.h"
#include "kx/base/onExceptionInDestructorIgnored.h"
#include "tests/support/CLogRecorder.h"

#include <gtest/gtest.h>

#include <optional>

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
