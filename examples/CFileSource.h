#pragma once

#include "examples/CProgressBar.h"
#include "examples/text.h"
#include "norla/core/CNetRequest.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string>

/// Gives a file to the transfer and shows how far it is. It can seek, so that a redirect or a login may ask for it
/// again.
class CFileSource : public kx::CBase, public virtual norla::CNetRequest::IDataSource {
public:
    /// @throws as fileError()
    explicit CFileSource(const std::string& name)
        : m_name(name)
    {
        std::error_code unknown; // opening it has better words
        const auto status = std::filesystem::status(name, unknown);
        if (!unknown && !std::filesystem::is_regular_file(status)) // nobody knows its size, and a pipe is waited for
            throw kx::CError("The file '" + shownPath(name) + "' cannot be sent: it is no regular file", "file");
        m_file.open(name, std::ios::binary);
        if (!m_file)
            fail(errno);
        m_size = static_cast<long long>(std::filesystem::file_size(name));
    }

    int read(unsigned char* buffer, int size, const norla::CNetRequest::HeaderMap&) override
    {
        m_file.read(reinterpret_cast<char*>(buffer), size);
        if (m_file.bad())
            fail(errno);
        m_position += m_file.gcount();
        m_progress.show(static_cast<double>(m_position), static_cast<double>(m_size));
        return static_cast<int>(m_file.gcount());
    }

    long long getLength() override { return m_size; }

    void seek(long long position) override
    {
        m_file.clear(); // the end may have been reached
        m_file.seekg(position);
        m_position = position;
    }

    long long getPosition() override { return m_position; }

private:
    [[noreturn]] void fail(int errorNumber) const
    {
        throw fileError("The file '" + shownPath(m_name) + "' cannot be read", errorNumber);
    }

    const std::string m_name;
    std::ifstream m_file;
    long long m_size = 0;
    long long m_position = 0;
    CProgressBar m_progress;
};
