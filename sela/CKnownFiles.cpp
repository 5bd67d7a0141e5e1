#include "sela/CKnownFiles.h"

#include <algorithm>
#include <sys/stat.h>

namespace sela {

namespace {

bool isSame(const CKnownFiles::CState& one, const CKnownFiles::CState& other) noexcept
{
    return one.device == other.device && one.number == other.number && one.size == other.size
        && one.changed.tv_sec == other.changed.tv_sec && one.changed.tv_nsec == other.changed.tv_nsec;
}

} // namespace

std::optional<CKnownFiles::CState> CKnownFiles::stateOf(const std::string& path) noexcept
{
    constexpr time_t settled = 2; // seconds
    struct stat status {};
    if (path.find('\0') != std::string::npos || stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)
        || status.st_ctim.tv_sec + settled > time(nullptr))
        return {};
    return CState{.device = status.st_dev, .number = status.st_ino, .size = status.st_size, .changed = status.st_ctim};
}

bool CKnownFiles::isKnown(const CState& state) const noexcept
{
    const std::lock_guard lock(m_mutex);
    const auto* const end = m_states.begin() + std::min(m_count, mostFiles);
    return std::any_of(m_states.begin(), end, [&state](const CState& known) { return isSame(known, state); });
}

void CKnownFiles::add(const CState& state) noexcept
{
    const std::lock_guard lock(m_mutex);
    m_states[m_count++ % mostFiles] = state;
}

} // namespace sela
