#pragma once

#include "kx/text/numbers.h"
#include "norla/core/CNetRequest.h"
#include "norla/http/CHTTPContentRange.h"

#include <algorithm>
#include <limits>

/// Hands a part of a resource on to another sink, if it is the part that was asked for. HTTP servers may ignore what
/// they are asked for, and send everything.
class CRangeSink : public kx::CBase, public virtual norla::CNetRequest::IDataSink {
public:
    /// @param sink not null; a reference is kept
    /// @param first byte, counted from 0
    /// @param last byte; -1 for that of the resource
    CRangeSink(norla::CNetRequest::IDataSink* sink, long long first, long long last)
        : m_sink(sink)
        , m_first(first)
        , m_last(last)
    {
    }

    void begin() override
    {
        m_sink->begin();
        m_missing = -1;
    }

    int write(
        const unsigned char* data, int size, int responseCode, const norla::CNetRequest::HeaderMap& headers) override
    {
        if (responseCode < 300) {
            if (m_missing < 0)
                m_missing = lengthOf(responseCode, headers);
            if (size > m_missing)
                throw kx::CError("The server has sent more than the range that it names.");
            m_missing -= size;
        }
        return m_sink->write(data, size, responseCode, headers);
    }

    /// Call it when the transfer has ended well.
    void requireEnd() const
    {
        if (m_missing != 0)
            throw kx::CError("The server has not sent the range that it was asked for.");
    }

private:
    /// @return how many bytes are to come
    long long lengthOf(int responseCode, const norla::CNetRequest::HeaderMap& headers) const
    {
        const auto header = headers.find("content-range");
        if (responseCode == 206 && header != headers.end()) {
            const auto range = norla::CHTTPContentRange::parse(header->second);
            const long long total = range->getTotal(); // -1 when the server does not say
            const long long last = m_last < 0 ? total - 1 : total < 0 ? m_last : std::min(m_last, total - 1);
            const bool isEndless = range->getLast() == std::numeric_limits<long long>::max(); // nobody can count it
            const bool isWhole = !isEndless && range->getFirst() == m_first && (range->getLast() == last || last < 0);
            if (range->getUnit() == "bytes" && isWhole)
                return range->getLast() - m_first + 1;
        }
        throw kx::CError("The server was asked for the bytes " + kx::toString(m_first) + "-"
            + (m_last < 0 ? kx::String() : kx::toString(m_last)) + " and gave something else: status "
            + kx::toString(static_cast<long long>(responseCode)) + ", Content-Range '"
            + (header == headers.end() ? kx::String() : header->second) + "'.");
    }

    const kx::P<norla::CNetRequest::IDataSink> m_sink;
    const long long m_first;
    const long long m_last;
    long long m_missing = -1; ///< bytes that are still to come; -1 before the first one
};
