// The example desktop with its window, on a display of its own.
#include "tests/desktop/CVirtualDisplay.h"
#include "tests/support/CNginxServer.h"
#include "tests/support/CProcessRun.h"
#include "tests/support/CRefusedPort.h"
#include "tests/support/CServerProcess.h"
#include "tests/support/CTemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <poll.h>
#include <string>
#include <sys/inotify.h>
#include <unistd.h>
#include <vector>

namespace {

using testing::EndsWith;
using Words = std::vector<std::string>;

Words operator+(Words words, const Words& more)
{
    words.insert(words.end(), more.begin(), more.end());
    return words;
}

/// Of the main loop, as the program tells them; in milliseconds, and their numbers.
struct CPauses {
    double longest = 0;
    double mostWork = 0;
    int noticeable = 0;
    int all = 0;
};

/// @return nothing where the program has not come to its end
std::optional<CPauses> pausesIn(const std::string& log)
{
    CPauses pauses;
    const size_t start = std::min(log.find("longest pause"), log.size());
    const int read = std::sscanf(log.c_str() + start, "longest pause %lf ms, most work %lf ms, %d of %d pauses",
        &pauses.longest, &pauses.mostWork, &pauses.noticeable, &pauses.all);
    return read == 4 ? std::optional(pauses) : std::nullopt;
}

/// Tells when a folder gets another file.
class CFolderWatch {
public:
    explicit CFolderWatch(const std::filesystem::path& folder)
        : m_events(inotify_init1(IN_CLOEXEC))
    {
        EXPECT_GE(inotify_add_watch(m_events.get(), folder.c_str(), IN_CREATE | IN_MOVED_TO), 0);
    }

    /// @return whether one has come before that moment
    bool wait(std::chrono::steady_clock::time_point limit) const
    {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(limit - std::chrono::steady_clock::now());
        pollfd source{m_events.get(), POLLIN, 0};
        std::array<char, 4096> events{};
        return left.count() > 0 && poll(&source, 1, static_cast<int>(left.count())) == 1
            && read(m_events.get(), events.data(), events.size()) > 0;
    }

private:
    const support::CDescriptor m_events;
};

class DesktopTest : public testing::Test {
protected:
    std::filesystem::path folder() const { return m_folder.path(); }

    /// The program, from its window's first drawing on; what it says is in its log.
    /// @param urls what is in its list
    std::unique_ptr<support::CServerProcess> start(const Words& urls)
    {
        const Words command{NORLA_DESKTOP, "--measure", "--at-once", "256", "--directory", folder().string()};
        return std::make_unique<support::CServerProcess>(support::CServerProcess::CSettings{.arguments = command + urls,
            .package = "",
            .logFile = m_logs.path() / "log",
            .environment
            = m_display.environment() + support::inheritedLibraryPath() + Words{"LD_PRELOAD=" NORLA_HANGING_LOOKUP},
            .stopLimit = std::chrono::seconds(60)});
    }

    /// How many of the slow file are there, under names of their own.
    size_t countSlowFiles() const
    {
        constexpr std::uintmax_t size = 200'000;
        std::error_code unknown; // of a part that has just got its name
        const auto isWhole = [&](const std::filesystem::directory_entry& entry) {
            return entry.path().extension() == ".bin" && entry.file_size(unknown) == size;
        };
        return static_cast<size_t>(std::count_if(
            std::filesystem::directory_iterator(folder()), std::filesystem::directory_iterator(), isWhole));
    }

private:
    const support::CTemporaryFolder m_folder;
    const support::CTemporaryFolder m_logs;
    const CVirtualDisplay m_display;
};

TEST_F(DesktopTest, theWindowAnswersBesideHangingLookupsManyTransfersAndServersThatFail)
{
    constexpr size_t many = 200;
    const support::CNginxServer server;
    const support::CRefusedPort refused;
    Words urls(3, "http://hanging.test/file");
    for (int i = 0; i < 5; ++i)
        urls = urls
            + Words{server.url("/status/404"), server.url("/status/503"), server.url("/drop"), refused.url("/no")};
    urls = urls + Words(many, server.url("/slow.bin"));
    const CFolderWatch watch(folder());
    const auto program = start(urls);
    program->waitUntilLogged("a lookup hangs");
    const auto limit = std::chrono::steady_clock::now() + std::chrono::minutes(3);
    while (countSlowFiles() < many)
        ASSERT_TRUE(watch.wait(limit)) << countSlowFiles() << " files\n" << program->log();
    program->stop();
    const auto pauses = pausesIn(program->log());
    ASSERT_TRUE(pauses) << program->log();
    RecordProperty("longest", std::to_string(pauses->longest));
    RecordProperty("mostWork", std::to_string(pauses->mostWork));
    RecordProperty("noticeable", pauses->noticeable);
    EXPECT_LT(pauses->mostWork, 50) << program->log();
    // Where processors are scarce it waits now and then for the display, or for a thread that has a lock and none.
    EXPECT_LT(pauses->longest, 2000) << program->log();
    EXPECT_LT(pauses->noticeable, 0.01 * pauses->all) << program->log();
}

TEST_F(DesktopTest, endsAsSoonAsItIsAskedToThoughALookupHangs)
{
    const auto program = start({"http://hanging.test/file"});
    program->waitUntilLogged("a lookup hangs");
    program->stop();
    EXPECT_TRUE(pausesIn(program->log())) << program->log(); // it was not killed
}

TEST(DesktopWithoutDisplayTest, saysThatThereIsNone)
{
    const support::CProcessRun run({.arguments = {NORLA_DESKTOP},
        .environment = support::inheritedLibraryPath() + Words{"DISPLAY=", "WAYLAND_DISPLAY=none"}});
    EXPECT_EQ(run.exitStatus(), 1);
    EXPECT_THAT(run.errors(), EndsWith("desktop: no display for a window: DISPLAY or WAYLAND_DISPLAY names one\n"));
}

} // namespace
