#pragma once

#include "examples/CProgressBar.h"
#include "examples/exitCodes.h"
#include "norla/core/CNetRequest.h"

#include <cerrno>
#include <cstdio>
#include <unistd.h>

/// Writes the body to standard output and shows how far it is, unless both are on the terminal. What explains an HTTP error goes to the request's
/// default receive buffer, where perform() looks for it.
class COutputSink : public kx::CBase, public virtual norla::CNetRequest::IDataSink {
public:
    explicit COutputSink(norla::CNetRequest& request)
        : m_request(request)
    {
    }

    int write(const unsigned char* data, int size, int responseCode, const norla::CNetRequest::HeaderMap&) override
    {
        if (responseCode >= 300) {
            m_request.getDefaultReceiveBuffer()->append(data, static_cast<size_t>(size));
            return size;
        }
        const auto count = static_cast<size_t>(size);
        if (std::fwrite(data, 1, count, stdout) != count || std::fflush(stdout) != 0)
            throw fileError("standard output", errno);
        m_received += size;
        if (!m_isShown)
            m_progress.show(static_cast<double>(m_received), m_request.getDownloadSize());
        return size;
    }

private:
    norla::CNetRequest& m_request;
    const bool m_isShown = isatty(STDOUT_FILENO) != 0;
    long long m_received = 0;
    CProgressBar m_progress;
};
