#pragma once

#include "examples/CPartRemoval.h"
#include "examples/CProgressBar.h"
#include "examples/localFiles.h"
#include "norla/core/CFileSink.h"

#include <string>

/// The file that a body goes to. Shows how far it is, and leaves nothing when a signal ends the program.
class CTargetFile : public kx::CBase, public virtual norla::CNetRequest::IDataSink {
public:
    CTargetFile(norla::CNetRequest& request, const std::string& name)
        : m_request(request)
        , m_sink(withLocalFile([&] { return kx::newObj<norla::CFileSink>(request, Path::fromBytes(name)); }))
        , m_removal(m_sink->getFile().getPartPath())
    {
    }

    void begin() override
    {
        withLocalFile([&] { m_sink->begin(); });
    }

    int write(
        const unsigned char* data, int size, int responseCode, const norla::CNetRequest::HeaderMap& headers) override
    {
        withLocalFile([&] { m_sink->write(data, size, responseCode, headers); });
        m_progress.show(static_cast<double>(m_sink->getFile().getLength()), m_request.getDownloadSize());
        return size;
    }

    bool canBeginAgain() const override { return m_sink->canBeginAgain(); }

    /// Gives the file its name.
    void finish()
    {
        m_progress.end();
        withLocalFile([&] { m_sink->finish(); });
    }

private:
    norla::CNetRequest& m_request;
    const kx::P<norla::CFileSink> m_sink;
    const CPartRemoval m_removal;
    CProgressBar m_progress;
};
