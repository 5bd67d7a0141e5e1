// A program that fetches a file is killed at any moment, and begun again.
#include "norla/files/CDownloadRecord.h"
#include "tests/support/CChildProcess.h"
#include "tests/support/CNginxServer.h"
#include "tests/support/CTemporaryFolder.h"
#include "tests/support/distinctBytes.h"
#include "tests/support/files.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <random>

namespace {

constexpr size_t killedSize = 24 << 20;
constexpr int killedSpeed = 4 << 20; // bytes a second: what has come is noted every two seconds
constexpr int longestLife = 3500;    // milliseconds
constexpr long long overlapOfResumption = 64 << 10;

class FileDownloadKillTest : public testing::Test {
protected:
    FileDownloadKillTest()
    {
        support::writeFile(m_server.root() / "file.bin", m_bytes);
        std::filesystem::last_write_time(
            m_server.root() / "file.bin", std::filesystem::file_time_type::clock::now() - std::chrono::hours(1));
    }

    std::unique_ptr<support::CChildProcess> start(int speed)
    {
        return std::make_unique<support::CChildProcess>(support::CChildProcess::CSettings{.arguments
            = {NORLA_FILE_DOWNLOADER, m_server.url("/file.bin"), m_folder.path() / "file", std::to_string(speed)},
            .environment = support::inheritedLibraryPath()});
    }

    void killAfter(std::chrono::milliseconds moment)
    {
        const auto program = start(killedSpeed);
        program->waitForEnd(moment);
        program->kill();
        program->waitForEnd(std::chrono::seconds(10));
    }

    /// Kills it when it has noted for the first time what is there.
    void killOnceNoted()
    {
        const auto program = start(killedSpeed);
        const auto record = m_folder.path() / "file.norla-record";
        const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (!std::filesystem::exists(record) && std::chrono::steady_clock::now() < limit)
            ASSERT_FALSE(program->waitForEnd(std::chrono::milliseconds(20)));
        program->kill();
        program->waitForEnd(std::chrono::seconds(10));
        ASSERT_GT(recorded(), overlapOfResumption);
    }

    /// How many bytes from the beginning on the record says to be there.
    long long recorded() const
    {
        const auto file = m_folder.path() / "file.norla-record";
        if (!std::filesystem::exists(file))
            return 0;
        const auto record = norla::CDownloadRecord::fromText(support::readFile(file));
        EXPECT_TRUE(record) << "the record is damaged";
        return record ? record->arrived.sizeFrom(0) : 0;
    }

    bool isThere() const { return std::filesystem::exists(m_folder.path() / "file"); }
    std::string file() const { return m_folder.read("file"); }

    /// The range that goes on there, as nginx logs it.
    static std::string rangeFrom(long long recorded)
    {
        return recorded == 0 ? "range=- " : "range=bytes=" + std::to_string(recorded - overlapOfResumption) + "- ";
    }

    support::CNginxServer m_server;
    const std::string m_bytes = support::distinctBytes(killedSize);
    const support::CTemporaryFolder m_folder;
};

/// NORLA_KILLS: how often it is killed at most; otherwise a few times.
int killsWanted()
{
    constexpr int few = 5;
    const char* const wanted = std::getenv("NORLA_KILLS");
    return wanted ? std::atoi(wanted) : few;
}

TEST_F(FileDownloadKillTest, goesOnBehindWhatWasNotedBeforeEachKill)
{
    killOnceNoted();
    const char* const seed = std::getenv("NORLA_SEED");
    std::mt19937 random(seed ? static_cast<unsigned>(std::atoi(seed)) : 7);
    for (int kill = 1; kill < killsWanted() && !isThere(); ++kill) {
        const long long before = recorded();
        const size_t requests = m_server.accessLog().size();
        killAfter(std::chrono::milliseconds(std::uniform_int_distribution<>(0, longestLife)(random)));
        EXPECT_GE(recorded(), isThere() ? 0 : before);
        const auto log = m_server.accessLog();
        if (log.size() > requests) {
            EXPECT_NE(log[requests].find(rangeFrom(before)), std::string::npos) << before << ": " << log[requests];
        }
    }
    if (!isThere()) {
        const long long before = recorded();
        const auto program = start(0);
        ASSERT_TRUE(program->waitForEnd(std::chrono::seconds(60)));
        EXPECT_EQ(program->exitStatus(), 0);
        EXPECT_NE(m_server.lastAccess().find(rangeFrom(before)), std::string::npos) << m_server.lastAccess();
    }
    EXPECT_TRUE(file() == m_bytes);
    EXPECT_FALSE(std::filesystem::exists(m_folder.path() / "file.norla-part"));
    EXPECT_FALSE(std::filesystem::exists(m_folder.path() / "file.norla-record"));
}

} // namespace
