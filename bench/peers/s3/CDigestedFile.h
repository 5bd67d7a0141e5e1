#pragma once

#include "bench/peers/s3/s3Work.h"
#include "norla/core/CFileSink.h"
#include "sela/CDigestType_MD5.h"

namespace bench {

/// A file that is only kept when its MD5 is the one that the store tells, for requests that are performed by a pool:
/// CS3Objects does so by itself.
class CDigestedFile : public kx::CBase, public virtual norla::CNetRequest::IDataSink {
public:
    CDigestedFile(norla::CNetRequest& request, const norla::CNetRequest::Path& path)
        : m_sink(kx::newObj<norla::CFileSink>(request, path))
    {
    }

    void begin() override
    {
        m_digest->reset();
        m_sink->begin();
    }

    int write(const unsigned char* data, int size, int code, const norla::CNetRequest::HeaderMap& headers) override
    {
        m_digest->update(data, static_cast<size_t>(size));
        return m_sink->write(data, size, code, headers);
    }

    void end(int code, const norla::CNetRequest::HeaderMap& headers) override { m_sink->end(code, headers); }

    void finish(const kx::String& eTag)
    {
        m_digest->finish();
        if (eTag.toUTF8() != '"' + hexOf(m_digest->getBytes(), m_digest->getLength()) + '"')
            throw std::runtime_error("an object has other bytes than the store tells");
        m_sink->finish();
    }

private:
    const kx::P<norla::CFileSink> m_sink;
    const kx::P<sela::CDigest> m_digest = sela::CDigestType_MD5::createDigest();
};

} // namespace bench
