#pragma once

#include "kx/base/CBase.h"
#include "kx/base/P.h"
#include "kx/text/String.h"
#include "norla/core/CNetRequest.h"
#include "norla/s3/CS3BodyDigest.h"

namespace norla {

/// Gives the bytes of another source, and knows their MD5 at the end.
class CS3DigestingSource : public kx::CBase, public virtual CNetRequest::IDataSource {
public:
    /// @param size of what is sent, in bytes
    CS3DigestingSource(kx::P<CNetRequest::IDataSource> source, long long size);
    CS3DigestingSource(const CS3DigestingSource&) = delete;
    CS3DigestingSource& operator=(const CS3DigestingSource&) = delete;
    ~CS3DigestingSource() override;

    int read(unsigned char* buffer, int size, const HeaderMap& responseHeaders) override;
    long long getLength() override { return m_source->getLength(); }
    void seek(long long position) override;
    long long getPosition() override { return m_source->getPosition(); }

    /// @throws as CS3BodyDigest::requireAsSaid(); not where the bytes were not all read, one behind the other
    void requireAsSaid(const HeaderMap& headers, const kx::String& what);

    /// The digest of the bytes, read now, from the start; the source is at the start again behind it.
    /// @throws kx::CError where the source ends before; what the source throws
    static CS3BodyDigest digestOf(CNetRequest::IDataSource& source, long long size, CS3Checksum kind);

private:
    const kx::P<CNetRequest::IDataSource> m_source;
    const long long m_size;
    CS3BodyDigest m_digest{CS3Checksum::MD5};
    long long m_digested = 0;
};

} // namespace norla
