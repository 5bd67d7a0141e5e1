#include "norla/mail/CLineEndStream.h"

#include "kx/base/CInvalidArgError.h"

#include <algorithm>

namespace norla {

CLineEndStream::CLineEndStream(kx::IInStream* source)
    : m_source(source)
{
    if (!source)
        throw kx::CInvalidArgError("stream is null", "CLineEndStream::CLineEndStream");
}

CLineEndStream::~CLineEndStream() = default;

int CLineEndStream::read(unsigned char* buffer, int size)
{
    int count = 0;
    while (count < size) {
        if (m_isLineFeedOwed) {
            buffer[count++] = '\n';
            m_isLineFeedOwed = false;
        } else if (m_next == m_end && !fill()) {
            break;
        } else {
            count += copyText(buffer + count, size - count);
            if (count < size && m_next < m_end)
                count += startLineEnd(buffer + count);
        }
    }
    m_position += count;
    return count;
}

/// @return false at the end of the source
bool CLineEndStream::fill()
{
    do {
        m_next = 0;
        m_end = 0; // also when the source throws
        m_end = std::max(0, m_source->read(m_block.data(), static_cast<int>(m_block.size())));
        if (m_end == 0)
            return false;
        skipLineFeed();
    } while (m_next == m_end);
    return true;
}

/// The second half of a line end whose first half was the last byte before.
void CLineEndStream::skipLineFeed()
{
    if (m_isLineFeedSkipped && m_block[static_cast<size_t>(m_next)] == '\n')
        ++m_next;
    m_isLineFeedSkipped = false;
}

/// What comes before the next line end.
int CLineEndStream::copyText(unsigned char* buffer, int size)
{
    const auto* const start = m_block.data() + m_next;
    const auto* const limit = start + std::min(size, m_end - m_next);
    const auto* const stop = std::find_if(start, limit, [](unsigned char c) { return c == '\r' || c == '\n'; });
    std::copy(start, stop, buffer);
    const auto count = static_cast<int>(stop - start);
    m_next += count;
    return count;
}

int CLineEndStream::startLineEnd(unsigned char* buffer)
{
    *buffer = '\r';
    m_isLineFeedOwed = true;
    m_isLineFeedSkipped = m_block[static_cast<size_t>(m_next++)] == '\r';
    if (m_next < m_end)
        skipLineFeed();
    return 1;
}

long long CLineEndStream::getLength()
{
    return -1;
}

void CLineEndStream::seek(long long position)
{
    if (position != 0)
        throw kx::CError("A message that is being sent can be sought to its start only.");
    restart();
    m_source->seek(0);
}

long long CLineEndStream::getPosition()
{
    return m_position != 0 ? m_position : m_source->getPosition();
}

void CLineEndStream::restart()
{
    m_next = 0;
    m_end = 0;
    m_isLineFeedOwed = false;
    m_isLineFeedSkipped = false;
    m_position = 0;
}

} // namespace norla
