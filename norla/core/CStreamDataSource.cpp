#include "norla/core/CStreamDataSource.h"

#include "kx/base/CInvalidArgError.h"

namespace norla {

CStreamDataSource::CStreamDataSource(kx::IInStream* stream)
    : m_stream(stream)
{
    if (!stream)
        throw kx::CInvalidArgError("stream is null", "CNetRequest::CStreamDataSource::CStreamDataSource");
}

int CStreamDataSource::read(unsigned char* buffer, int size, const HeaderMap&)
{
    return m_stream->read(buffer, size);
}

long long CStreamDataSource::getLength()
{
    return m_stream->getLength();
}

void CStreamDataSource::seek(long long position)
{
    m_stream->seek(position);
}

long long CStreamDataSource::getPosition()
{
    return m_stream->getPosition();
}

} // namespace norla
