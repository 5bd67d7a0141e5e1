#include "norla/s3/CS3DigestingSource.h"

#include "kx/base/CError.h"
#include "kx/text/numbers.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace norla {

CS3DigestingSource::CS3DigestingSource(kx::P<CNetRequest::IDataSource> source, long long size)
    : m_source(std::move(source))
    , m_size(size)
{
}

CS3DigestingSource::~CS3DigestingSource() = default;

int CS3DigestingSource::read(unsigned char* buffer, int size, const HeaderMap& responseHeaders)
{
    const long long position = m_source->getPosition();
    const int count = m_source->read(buffer, size, responseHeaders);
    if (position == 0 && m_digested != 0) {
        m_digest = CS3BodyDigest(CS3Checksum::MD5);
        m_digested = 0;
    }
    if (position == m_digested && count > 0) {
        m_digest.update({reinterpret_cast<const char*>(buffer), static_cast<size_t>(count)});
        m_digested += count;
    }
    return count;
}

void CS3DigestingSource::seek(long long position)
{
    m_source->seek(position);
}

void CS3DigestingSource::requireAsSaid(const HeaderMap& headers, const kx::String& what)
{
    if (m_digested == m_size)
        m_digest.requireAsSaid(headers, what);
}

CS3BodyDigest CS3DigestingSource::digestOf(CNetRequest::IDataSource& source, long long size, CS3Checksum kind)
{
    constexpr long long blockSize = 1 << 16;
    std::vector<unsigned char> block(static_cast<size_t>(std::min(size, blockSize)));
    CS3BodyDigest digest(kind);
    source.seek(0);
    for (long long left = size; left > 0;) {
        const int count = source.read(block.data(), static_cast<int>(std::min(left, blockSize)), {});
        if (count <= 0)
            throw kx::CError("The data to be sent have ended " + kx::toString(left) + " bytes before their size of "
                + kx::toString(size) + ".");
        digest.update({reinterpret_cast<const char*>(block.data()), static_cast<size_t>(count)});
        left -= count;
    }
    source.seek(0);
    return digest;
}

} // namespace norla
