#pragma once

#include "kx/base/CError.h"
#include "norla/core/CTransferInfo.h"
#include "norla/files/CFileDownload.h"
#include "tests/support/CTemporaryFolder.h"
#include "tests/support/distinctBytes.h"
#include "tests/support/files.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace live {

/// Files of a real server that are fetched into a folder, and what went over the wire for them.
class CLiveDownload : public testing::Test {
protected:
    using Options = norla::CFileDownloadOptions;
    using Prepare = norla::CFileDownload::Prepare;

    static constexpr size_t fileSize = 8 << 20;
    static constexpr long long cutAt = 2 << 20;       // bytes of it that have come when it is cut off
    static constexpr long long speedOfCut = 16 << 20; // bytes a second, at which that is noticed in time

    CLiveDownload()
    {
        m_options.pool = kx::newObj<norla::CTransferPool>();
        m_options.retries = norla::CRetryPolicy::none();
    }

    Options& options() { return m_options; }

    /// Makes requests ready for what is to be fetched.
    void setPrepare(Prepare prepare) { m_prepare = std::move(prepare); }

    /// Bytes of which no two parts are the same.
    static std::string bytesOf(size_t size) { return support::distinctBytes(size); }

    /// A file that was changed so long ago that its time is a proof.
    static void writeOld(const std::filesystem::path& file, const std::string& bytes)
    {
        support::writeFile(file, bytes);
        setAge(file, std::chrono::hours(2));
    }

    static void setAge(const std::filesystem::path& file, std::chrono::seconds age)
    {
        using std::chrono::floor;
        const auto now = floor<std::chrono::seconds>(std::filesystem::file_time_type::clock::now());
        std::filesystem::last_write_time(file, now - age);
    }

    /// Fetches it, or throws.
    void fetch() { make(m_options)->run(); }

    /// The error with which it ends, null when it succeeds.
    kx::P<kx::CError> failure() { return failureOf(*make(m_options)); }

    /// Begins to fetch it, and cancels that.
    void cutOff()
    {
        Options options = m_options;
        options.speedLimit = speedOfCut;
        norla::CFileDownload* running = nullptr;
        options.onProgress = [&running](const norla::CFileProgress& progress) {
            if (progress.done >= cutAt)
                running->cancel();
        };
        const auto download = make(options);
        running = download.get();
        EXPECT_TRUE(failureOf(*download));
        EXPECT_EQ(download->getState(), norla::FileState::Cancelled);
        EXPECT_EQ(names(), (std::vector<std::string>{"file.norla-part", "file.norla-record"}));
        m_requests.clear();
    }

    std::string file() const { return m_folder.read("file"); }
    std::filesystem::path target() const { return m_folder.path() / "file"; }

    /// The names in the folder, in their order.
    std::vector<std::string> names() const
    {
        std::vector<std::string> all;
        for (const auto& entry : std::filesystem::directory_iterator(m_folder.path()))
            all.push_back(entry.path().filename().string());
        std::sort(all.begin(), all.end());
        return all;
    }

    /// Bytes of bodies that have come since the last cut.
    long long bytesFetched() const
    {
        long long bytes = 0;
        for (const auto& request : m_requests)
            bytes += request->getTransferInfo().bytesDown;
        return bytes;
    }

    /// Whether the last fetch has gone on where it was cut off.
    bool wasResumed() const { return bytesFetched() <= static_cast<long long>(fileSize) - cutAt + (64 << 10); }

private:
    kx::P<norla::CFileDownload> make(const Options& options)
    {
        return kx::newObj<norla::CFileDownload>(
            [this](norla::CNetRequest& request) {
                m_prepare(request);
                if (std::none_of(
                        m_requests.begin(), m_requests.end(), [&](const auto& r) { return r.get() == &request; }))
                    m_requests.emplace_back(&request);
            },
            norla::CFileDownload::Path::fromBytes(target().native()), options);
    }

    static kx::P<kx::CError> failureOf(norla::CFileDownload& download)
    {
        try {
            download.run();
        } catch (const kx::CError& error) {
            return error.clone();
        }
        return nullptr;
    }

    const support::CTemporaryFolder m_folder;
    Options m_options;
    Prepare m_prepare;
    std::vector<kx::P<norla::CNetRequest>> m_requests;
};

} // namespace live
