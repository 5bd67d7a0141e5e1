// The streams that a request's body comes from and goes to.
#include "kx/base/CInvalidArgError.h"
#include "norla/core/CNetRequest.h"

namespace norla {

CNetRequest::CStreamDataSink::CStreamDataSink(kx::IOutStream* stream)
    : m_stream(stream)
{
    if (!stream)
        throw kx::CInvalidArgError("stream is null", "CNetRequest::CStreamDataSink::CStreamDataSink");
}

int CNetRequest::CStreamDataSink::write(const unsigned char* data, int size, int, const HeaderMap&)
{
    return m_stream->write(data, size);
}

CNetRequest::CStreamDataSource::CStreamDataSource(kx::IInStream* stream)
    : m_stream(stream)
{
    if (!stream)
        throw kx::CInvalidArgError("stream is null", "CNetRequest::CStreamDataSource::CStreamDataSource");
}

int CNetRequest::CStreamDataSource::read(unsigned char* buffer, int size, const HeaderMap&)
{
    return m_stream->read(buffer, size);
}

long long CNetRequest::CStreamDataSource::getLength()
{
    return m_stream->getLength();
}

void CNetRequest::CStreamDataSource::seek(long long position)
{
    m_stream->seek(position);
}

long long CNetRequest::CStreamDataSource::getPosition()
{
    return m_stream->getPosition();
}

} // namespace norla
