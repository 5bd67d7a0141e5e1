#pragma once

#include "examples/text.h"

#include <array>
#include <cstddef>
#include <cstdio>
#include <limits>
#include <optional>
#include <string>

/// Three digits and a unit, such as "512 B", "3.2 MiB" and "153 GiB": nine columns at most.
inline std::string shownSize(double bytes)
{
    constexpr double step = 1024;
    constexpr double fourDigits = 999.5; // when rounded
    constexpr double threeDigits = 99.95;
    constexpr std::array units{"B", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    size_t unit = 0;
    for (; bytes >= fourDigits && unit + 1 < units.size(); ++unit)
        bytes /= step;
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.*f %s", unit == 0 || bytes >= threeDigits ? 0 : 1, bytes, units[unit]);
    return text.data();
}

/// Such as "0:05", "12:34" and "3:07:00"; days for what takes more than one.
inline std::string shownTime(double seconds)
{
    constexpr double day = 24.0 * 3600;
    std::array<char, 32> text{};
    if (seconds >= day) {
        std::snprintf(text.data(), text.size(), "%.0f days", std::min(seconds / day, 999.0));
        return text.data();
    }
    const int whole = static_cast<int>(seconds);
    if (whole >= 3600)
        std::snprintf(text.data(), text.size(), "%d:%02d:%02d", whole / 3600, whole / 60 % 60, whole % 60);
    else
        std::snprintf(text.data(), text.size(), "%d:%02d", whole / 60, whole % 60);
    return text.data();
}

/// "BYTES", or with an ending: "500k", "1M", "2G", where k is 1,024.
/// @param name what an error calls it
inline long long sizeOf(const kx::String& text, const kx::String& name)
{
    constexpr std::array<wchar_t, 3> endings{L'K', L'M', L'G'};
    kx::String digits = text;
    long long unit = 1;
    for (size_t i = 0; i < endings.size() && !text.isEmpty(); ++i) {
        const wchar_t last = text[text.size() - 1];
        if (last != endings[i] && last != endings[i] + (L'a' - L'A'))
            continue;
        unit = 1LL << (10 * (i + 1));
        digits = text.substr(0, text.size() - 1);
    }
    try {
        return unit * numberOf(digits, name, 1, std::numeric_limits<long long>::max() / unit);
    } catch (const kx::CError&) {
        throw usageError(name + " is no size such as 800, 500k, 1M or 2G: '" + text + "'");
    }
}
