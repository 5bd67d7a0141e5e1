#pragma once

#include "examples/CProgressBar.h"
#include "examples/arguments.h"
#include "norla/core/CNetRequest.h"

#include <filesystem>
#include <fstream>
#include <string>

/// Gives a file to the transfer and shows how far it is. It can seek, so that a redirect or a login may ask for it again.
class CFileSource : public kx::CBase, public virtual norla::CNetRequest::IDataSource {
public:
    explicit CFileSource(const std::string& name)
        : m_file(name, std::ios::binary)
        , m_size(static_cast<long long>(std::filesystem::file_size(name)))
    {
        if (!m_file)
            throw kx::CError("The file '" + shownPath(name) + "' cannot be read.");
    }

    int read(unsigned char* buffer, int size, const norla::CNetRequest::HeaderMap&) override
    {
        m_file.read(reinterpret_cast<char*>(buffer), size);
        if (m_file.bad())
            throw kx::CError("The file cannot be read any further.");
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
    std::ifstream m_file;
    const long long m_size;
    long long m_position = 0;
    CProgressBar m_progress;
};
