#include "norla/s3/CS3BufferSink.h"

#include <utility>

namespace norla {

CS3BufferSink::CS3BufferSink(kx::P<CNetRequest::Buffer> buffer)
    : m_buffer(std::move(buffer))
{
}

CS3BufferSink::~CS3BufferSink() = default;

int CS3BufferSink::write(
    const unsigned char* data, int size, int /*responseCode*/, const HeaderMap& /*responseHeaders*/)
{
    m_buffer->append(data, static_cast<size_t>(size));
    return size;
}

} // namespace norla
