#include "norla/core/CStreamDataSink.h"

#include "kx/base/CInvalidArgError.h"

namespace norla {

CStreamDataSink::CStreamDataSink(kx::IOutStream* stream)
    : m_stream(stream)
{
    if (!stream)
        throw kx::CInvalidArgError("stream is null", "CNetRequest::CStreamDataSink::CStreamDataSink");
}

int CStreamDataSink::write(const unsigned char* data, int size, int, const HeaderMap&)
{
    return m_stream->write(data, size);
}

} // namespace norla
