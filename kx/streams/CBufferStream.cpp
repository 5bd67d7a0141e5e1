#include "kx/streams/CBufferStream.h"

#include "kx/base/CError.h"
#include "kx/base/CInvalidArgError.h"
#include "kx/text/numbers.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <utility>

namespace kx {

namespace {

// 0 where the factor says nothing of use: the comparison is false for what is no number.
size_t grownSize(size_t size, double growth) noexcept
{
    constexpr double limit = 0x1p62; // beyond any memory, and well within size_t
    const double grown = static_cast<double>(size) * growth;
    return grown > 0 && grown < limit ? static_cast<size_t>(grown) : 0;
}

bool isWithin(const CBufferStream::Buffer& buffer, const unsigned char* data) noexcept
{
    const std::less<> isBefore; // where < says nothing about pointers into different blocks
    return !isBefore(data, buffer.getData()) && isBefore(data, buffer.getData() + buffer.getSize());
}

} // namespace

CBufferStream::CBufferStream()
    : CBufferStream(newObj<Buffer>())
{
}

CBufferStream::CBufferStream(P<Buffer> buffer, double growth)
    : m_written(buffer ? std::move(buffer) : throw CInvalidArgError("buffer is null", "CBufferStream::CBufferStream"))
    , m_buffer(m_written.get())
    , m_growth(growth)
{
}

CBufferStream::CBufferStream(const Buffer& borrowed)
    : m_buffer(&borrowed)
{
}

CBufferStream::~CBufferStream() = default;

int CBufferStream::read(unsigned char* buffer, int size)
{
    if (size <= 0 || m_position >= m_buffer->getSize())
        return 0;
    const size_t count = std::min(static_cast<size_t>(size), m_buffer->getSize() - m_position);
    std::memcpy(buffer, m_buffer->getData() + m_position, count);
    m_position += count;
    return static_cast<int>(count);
}

int CBufferStream::write(const unsigned char* data, int size)
{
    if (!m_written)
        throw CError("The stream reads a borrowed buffer and cannot be written to.");
    if (size <= 0)
        return 0;
    const auto count = static_cast<size_t>(size);
    const unsigned char* const before = m_written->getData();
    const bool isOwn = isWithin(*m_written, data);
    growTo(m_position + count);
    std::memmove(m_written->getData() + m_position, isOwn ? m_written->getData() + (data - before) : data, count);
    m_position += count;
    return size;
}

void CBufferStream::growTo(size_t end)
{
    const size_t oldSize = m_written->getSize();
    if (end <= oldSize)
        return;
    if (end > m_written->getCapacity())
        m_written->reserve(std::max(end, grownSize(oldSize, m_growth)));
    m_written->setSize(end);
    if (m_position > oldSize)
        std::memset(m_written->getData() + oldSize, 0, m_position - oldSize);
}

long long CBufferStream::getLength()
{
    return static_cast<long long>(m_buffer->getSize());
}

void CBufferStream::seek(long long position)
{
    if (position < 0)
        throw CError("A stream cannot be set to the negative position " + toString(position) + ".");
    m_position = static_cast<size_t>(position);
}

long long CBufferStream::getPosition()
{
    return static_cast<long long>(m_position);
}

} // namespace kx
