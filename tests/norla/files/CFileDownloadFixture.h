#pragma once

#include "kx/base/CError.h"
#include "norla/files/CFileDownload.h"
#include "tests/support/CScriptedServer.h"
#include "tests/support/CTemporaryFolder.h"
#include "tests/support/distinctBytes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

/// A folder for the file, and a server that answers as the test wrote: a connection for each request.
class CFileDownloadFixture : public testing::Test {
protected:
    using Options = norla::CFileDownloadOptions;

    CFileDownloadFixture()
    {
        m_options.retries.firstPause = kx::CTimeSpan::fromMilliseconds(1);
        m_options.retries.longestPause = kx::CTimeSpan::fromMilliseconds(1);
        m_options.pool = kx::newObj<norla::CTransferPool>();
    }

    support::CScriptedServer& server() { return m_server; }
    Options& options() { return m_options; }

    /// Bytes of which no two parts are the same.
    static std::string bytesOf(size_t size) { return support::distinctBytes(size); }

    /// An answer with the whole file, of which a beginning is sent.
    static std::string whole(
        const std::string& bytes, size_t sent = std::string::npos, const std::string& headers = "ETag: \"v1\"\r\n")
    {
        return "HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: " + std::to_string(bytes.size()) + "\r\n"
            + headers + "\r\n" + bytes.substr(0, sent);
    }

    /// An answer with the file from that byte on.
    static std::string rest(const std::string& bytes, size_t start, const std::string& headers = "ETag: \"v1\"\r\n")
    {
        return "HTTP/1.1 206 Partial Content\r\nConnection: close\r\nContent-Length: "
            + std::to_string(bytes.size() - start) + "\r\nContent-Range: bytes " + std::to_string(start) + "-"
            + std::to_string(bytes.size() - 1) + "/" + std::to_string(bytes.size()) + "\r\n" + headers + "\r\n"
            + bytes.substr(start);
    }

    /// Answers the next connection, and closes it.
    support::CScript& answer(const std::string& bytes)
    {
        return m_server.onConnection().readHead().send(bytes).close();
    }

    kx::P<norla::CFileDownload> download(const std::string& path = "/file")
    {
        return kx::newObj<norla::CFileDownload>(kx::String::fromUTF8(m_server.url(path)), target(), m_options);
    }

    norla::CFileDownload::Path target() const
    {
        return norla::CFileDownload::Path::fromBytes((m_folder.path() / "file").native());
    }

    /// The error with which it ends, null when it succeeds.
    static kx::P<kx::CError> failureOf(norla::CFileTransfer& file)
    {
        try {
            file.run();
        } catch (const kx::CError& error) {
            return error.clone();
        }
        return nullptr;
    }
    kx::P<kx::CError> failure(const std::string& path = "/file") { return failureOf(*download(path)); }

    std::string file() const { return m_folder.read("file"); }
    const support::CTemporaryFolder& folder() const { return m_folder; }

    /// The names in the folder, in their order.
    std::vector<std::string> names() const
    {
        std::vector<std::string> all;
        for (const auto& entry : std::filesystem::directory_iterator(m_folder.path()))
            all.push_back(entry.path().filename().string());
        std::sort(all.begin(), all.end());
        return all;
    }

    /// What the server read on that connection, once all scripts are over.
    std::string received(size_t connection)
    {
        m_server.join();
        EXPECT_EQ(m_server.problems(), std::vector<std::string>());
        return m_server.received(connection);
    }

private:
    support::CScriptedServer m_server;
    const support::CTemporaryFolder m_folder;
    Options m_options;
};
