#pragma once

#include "kx/base/language.h"

#include <compare>
#include <limits>

namespace kx {

/// A length of time: signed microseconds, or infinite. Lengths beyond 64 bits are not guarded against.
class CTimeSpan {
public:
    constexpr CTimeSpan() noexcept = default; ///< zero

    static constexpr CTimeSpan fromMicroseconds(long long microseconds) noexcept { return CTimeSpan(microseconds); }
    static constexpr CTimeSpan fromMilliseconds(long long milliseconds) noexcept
    {
        return CTimeSpan(milliseconds * 1000);
    }
    static constexpr CTimeSpan fromSeconds(long long seconds) noexcept { return CTimeSpan(seconds * 1'000'000); }

    /// Stored as the smallest 64-bit value.
    static constexpr CTimeSpan infinite() noexcept { return CTimeSpan(std::numeric_limits<long long>::min()); }

    constexpr long long getMicroseconds() const noexcept { return m_microseconds; }
    constexpr bool isInfinite() const noexcept { return *this == infinite(); }

    friend constexpr bool operator==(const CTimeSpan&, const CTimeSpan&) noexcept = default;

private:
    explicit constexpr CTimeSpan(long long microseconds) noexcept
        : m_microseconds(microseconds)
    {
    }

    long long m_microseconds = 0;
};

} // namespace kx
