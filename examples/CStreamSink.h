#pragma once

#include "examples/CProgressBar.h"
#include "norla/core/CNetRequest.h"

#include <ostream>

/// Writes the body to a stream and shows how far it is.
class CStreamSink : public kx::CBase, public virtual norla::CNetRequest::IDataSink {
public:
    CStreamSink(norla::CNetRequest& request, std::ostream& out)
        : m_request(request)
        , m_out(out)
    {
    }

    int write(const unsigned char* data, int size, int responseCode, const norla::CNetRequest::HeaderMap&) override
    {
        if (responseCode >= 300) // the text of an error, not the file: perform() will throw
            return size;
        if (!m_out.write(reinterpret_cast<const char*>(data), size))
            throw kx::CError("The output cannot be written.");
        m_received += size;
        m_progress.show(static_cast<double>(m_received), m_request.getDownloadSize());
        return size;
    }

private:
    norla::CNetRequest& m_request;
    std::ostream& m_out;
    long long m_received = 0;
    CProgressBar m_progress;
};
