#include "norla/files/CRateMeter.h"

#include <algorithm>

namespace norla {

void CRateMeter::add(Moment now, long long bytes)
{
    if (!m_samples.empty() && bytes < m_samples.back().bytes)
        m_samples.clear();
    const bool isSoon = m_samples.size() > 1 && now - m_samples[m_samples.size() - 2].moment < grain;
    if (isSoon)
        m_samples.back() = {now, bytes};
    else
        m_samples.push_back({now, bytes});
    while (m_samples.size() > 1 && now - m_samples[1].moment >= window)
        m_samples.pop_front();
}

double CRateMeter::bytesPerSecond(Moment now) const
{
    if (m_samples.size() < 2)
        return 0;
    const CSample& first = m_samples.front();
    const CSample& last = m_samples.back();
    if (now - last.moment >= window)
        return 0;
    const double seconds = std::chrono::duration<double>(std::max(now, last.moment) - first.moment).count();
    return seconds > 0 ? static_cast<double>(last.bytes - first.bytes) / seconds : 0;
}

} // namespace norla
