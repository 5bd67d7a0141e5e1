#include "norla/s3/CS3BufferSink.h"

#include "kx/base/CError.h"
#include "kx/text/numbers.h"

#include <utility>

namespace norla {

CS3BufferSink::CS3BufferSink(kx::P<CNetRequest::Buffer> buffer, long long most, const kx::String& what)
    : m_buffer(std::move(buffer))
    , m_most(most)
    , m_what(what)
{
}

CS3BufferSink::~CS3BufferSink() = default;

int CS3BufferSink::write(
    const unsigned char* data, int size, int /*responseCode*/, const HeaderMap& /*responseHeaders*/)
{
    if (m_most != -1 && size > m_most - static_cast<long long>(m_buffer->getSize()))
        throw kx::CError(m_what + " has more than " + kx::toString(m_most) + " bytes.");
    m_buffer->append(data, static_cast<size_t>(size));
    return size;
}

} // namespace norla
