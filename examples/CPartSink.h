#pragma once

#include "examples/CProgressBar.h"
#include "examples/explanation.h"
#include "examples/localFiles.h"
#include "kx/streams/IOutStream.h"
#include "kx/text/numbers.h"
#include "norla/core/CNetRequest.h"
#include "norla/http/CHTTPContentRange.h"

/// Writes the parts of an object to a stream, one behind the other, and shows how far it is. It takes no answer for a
/// part that is another: a store may ignore what it is asked for, and the object may be replaced between two requests.
class CPartSink : public kx::CBase, public virtual norla::CNetRequest::IDataSink {
public:
    /// @param out a local file, not null; a reference is kept
    /// @param eTag, size of the whole object, as the store gave them
    CPartSink(norla::CNetRequest& request, kx::IOutStream* out, const kx::String& eTag, long long size)
        : m_request(request)
        , m_out(out)
        , m_eTag(eTag)
        , m_size(size)
    {
    }

    /// Call it before each request: what comes next goes from where the sink is up to that byte, which does not belong
    /// to it.
    void expectUpTo(long long end)
    {
        m_end = end;
        m_isChecked = false;
    }

    /// Call it after each request.
    void requireEnd() const
    {
        if (m_position != m_end)
            throw kx::CError("The store has sent less than it was asked for.");
    }

    /// How much was written.
    long long getPosition() const { return m_position; }

    int write(
        const unsigned char* data, int size, int responseCode, const norla::CNetRequest::HeaderMap& headers) override
    {
        if (isExplanation(responseCode)) {
            keepExplanation(m_request, data, size);
            return size;
        }
        if (!m_isChecked)
            check(responseCode, headers);
        if (size > m_end - m_position)
            throw kx::CError("The store has sent more than it was asked for.");
        withLocalFile([&] { m_out->write(data, size); });
        m_position += size;
        m_progress.show(static_cast<double>(m_position), static_cast<double>(m_size));
        return size;
    }

private:
    void check(int responseCode, const norla::CNetRequest::HeaderMap& headers)
    {
        if (valueOf(headers, "etag") != m_eTag)
            throw kx::CError("The object has changed while it was fetched.");
        const kx::String range = valueOf(headers, "content-range");
        if (responseCode == 200 && m_position == 0)
            m_end = m_size; // all of it at once
        else if (responseCode != 206 || !isExpected(range))
            throw kx::CError("The store was asked for the bytes " + kx::toString(m_position) + "-"
                + kx::toString(m_end - 1) + " of " + kx::toString(m_size) + " and gave something else: status "
                + kx::toString(responseCode) + ", Content-Range '" + range + "'.");
        m_isChecked = true;
    }

    bool isExpected(const kx::String& header) const
    {
        if (header.isEmpty())
            return false;
        const auto range = norla::CHTTPContentRange::parse(header);
        return range->getUnit() == "bytes" && range->getFirst() == m_position && range->getLast() == m_end - 1
            && range->getTotal() == m_size;
    }

    static kx::String valueOf(const norla::CNetRequest::HeaderMap& headers, const kx::String& name)
    {
        const auto found = headers.find(name);
        return found == headers.end() ? kx::String() : found->second;
    }

    norla::CNetRequest& m_request;
    const kx::P<kx::IOutStream> m_out;
    const kx::String m_eTag;
    const long long m_size;
    long long m_position = 0;
    long long m_end = 0;
    bool m_isChecked = false; // whether the answer that is coming is the one expected
    CProgressBar m_progress;
};
