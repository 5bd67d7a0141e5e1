#include "norla/files/CByteRanges.h"

#include <algorithm>
#include <iterator>

namespace norla {

void CByteRanges::add(long long start, long long end)
{
    if (start >= end)
        return;
    auto next = m_ends.upper_bound(start);
    if (next != m_ends.begin() && std::prev(next)->second >= start)
        --next;
    while (next != m_ends.end() && next->first <= end) {
        start = std::min(start, next->first);
        end = std::max(end, next->second);
        next = m_ends.erase(next);
    }
    m_ends.emplace(start, end);
}

void CByteRanges::cut(long long position)
{
    m_ends.erase(m_ends.lower_bound(position), m_ends.end());
    if (!m_ends.empty())
        m_ends.rbegin()->second = std::min(m_ends.rbegin()->second, position);
}

long long CByteRanges::getSize() const noexcept
{
    long long size = 0;
    for (const auto& [start, end] : m_ends)
        size += end - start;
    return size;
}

bool CByteRanges::covers(long long start, long long end) const
{
    if (start >= end)
        return true;
    const auto next = m_ends.upper_bound(start);
    return next != m_ends.begin() && std::prev(next)->second >= end;
}

std::optional<CByteRanges::CRange> CByteRanges::gapFrom(long long position, long long end) const
{
    auto next = m_ends.upper_bound(position);
    if (next != m_ends.begin() && std::prev(next)->second > position)
        position = std::prev(next)->second;
    if (position >= end)
        return std::nullopt;
    return CRange{position, next == m_ends.end() ? end : std::min(end, next->first)};
}

long long CByteRanges::sizeFrom(long long position) const
{
    const auto next = m_ends.upper_bound(position);
    return next == m_ends.begin() ? 0 : std::max(0LL, std::prev(next)->second - position);
}

long long CByteRanges::sizeBefore(long long position) const
{
    const auto next = m_ends.lower_bound(position);
    if (next == m_ends.begin() || std::prev(next)->second < position)
        return 0;
    return position - std::prev(next)->first;
}

} // namespace norla
