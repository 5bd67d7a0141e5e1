#pragma once

#include "kx/base/visibility.h"

#include <compare>
#include <limits>

namespace kx {

/// A point in time: microseconds since 1970-01-01 00:00:00 UTC, negative before; or unset.
class KX_EXPORT CTime {
public:
    constexpr CTime() noexcept = default; ///< unset
    explicit constexpr CTime(long long microseconds) noexcept
        : m_microseconds(microseconds)
    {
    }

    /// The system's clock.
    static CTime now();

    /// The smallest 64-bit value while unset.
    constexpr long long getMicroseconds() const noexcept { return m_microseconds; }
    constexpr bool isSet() const noexcept { return m_microseconds != unset; }

    friend constexpr auto operator<=>(const CTime&, const CTime&) noexcept = default;

private:
    static constexpr long long unset = std::numeric_limits<long long>::min();

    long long m_microseconds = unset;
};

} // namespace kx
