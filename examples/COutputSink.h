#pragma once

#include "examples/CProgressBar.h"
#include "examples/exitCodes.h"
#include "examples/explanation.h"
#include "norla/core/CNetRequest.h"

#include <cerrno>
#include <cstdio>
#include <unistd.h>

/// Writes the body to standard output and shows how far it is, unless both are on the terminal. What explains an HTTP
/// error is kept for the error.
class COutputSink : public kx::CBase, public virtual norla::CNetRequest::IDataSink {
public:
    explicit COutputSink(norla::CNetRequest& request)
        : m_request(request)
    {
    }

    int write(const unsigned char* data, int size, int responseCode, const norla::CNetRequest::HeaderMap&) override
    {
        if (isExplanation(responseCode)) {
            keepExplanation(m_request, data, size);
            return size;
        }
        const auto count = static_cast<size_t>(size);
        if (std::fwrite(data, 1, count, stdout) != count || std::fflush(stdout) != 0)
            throw fileError("standard output", errno);
        m_received += size;
        if (!m_isBodyShown)
            m_progress.show(static_cast<double>(m_received), m_request.getDownloadSize());
        return size;
    }

private:
    norla::CNetRequest& m_request;
    const bool m_isBodyShown = isatty(STDOUT_FILENO) != 0;
    long long m_received = 0;
    CProgressBar m_progress;
};
