#pragma once

#include "examples/CProgressBar.h"
#include "examples/localFiles.h"
#include "norla/core/CFileSource.h"

#include <filesystem>
#include <string>

/// The file that is sent. Shows how far it is, unless that is somebody else's to show.
class CSentFile : public kx::CBase, public virtual norla::CNetRequest::IDataSource {
public:
    /// @throws as withLocalFile()
    explicit CSentFile(const std::string& name)
        : m_source(open(name))
    {
    }

    int read(unsigned char* buffer, int size, const norla::CNetRequest::HeaderMap& headers) override
    {
        const int count = withLocalFile([&] { return m_source->read(buffer, size, headers); });
        if (m_isShown)
            m_progress.show(static_cast<double>(getPosition()), static_cast<double>(getLength()));
        return count;
    }

    void hideProgress() { m_isShown = false; }

    /// Call it when the file has been sent and something else is shown: requests keep what they have sent.
    void endProgress() { m_progress.end(); }

    long long getLength() override { return m_source->getLength(); }

    void seek(long long position) override
    {
        withLocalFile([&] { m_source->seek(position); });
    }

    long long getPosition() override { return m_source->getPosition(); }

private:
    static kx::P<norla::CFileSource> open(const std::string& name)
    {
        std::error_code unknown; // opening it has better words
        const auto status = std::filesystem::status(name, unknown);
        if (!unknown && std::filesystem::exists(status) && !std::filesystem::is_regular_file(status))
            throw kx::CError("The file '" + shownPath(name) + "' cannot be sent: it is no regular file", "file");
        return withLocalFile([&] { return kx::newObj<norla::CFileSource>(Path::fromBytes(name)); });
    }

    const kx::P<norla::CFileSource> m_source;
    bool m_isShown = true;
    CProgressBar m_progress;
};
