#pragma once

#include "examples/terminal.h"

#include <algorithm>
#include <cstdio>
#include <string>
#include <unistd.h>

/// Shows on a terminal how far a transfer is, on one line of standard error, as wide as the terminal; shows nothing
/// where that is no terminal.
class CProgressBar {
public:
    /// @param total bytes in all, 0 or less when unknown
    void show(double done, double total)
    {
        if (!m_onTerminal)
            return;
        const int percent = total > 0 ? static_cast<int>(100 * std::min(done / total, 1.0)) : -1;
        if (percent >= 0 && percent == m_shown)
            return;
        m_shown = percent;
        const size_t columns = terminalSize(STDERR_FILENO).columns - 1; // in the last one the cursor might wrap
        char text[64];
        if (percent < 0)
            std::snprintf(text, sizeof text, "%.0f bytes", done);
        else
            std::snprintf(text, sizeof text, "%3d %%", percent);
        const std::string bar = percent < 0 ? "" : barOf(percent, columns);
        std::fprintf(stderr, "\r%s%.*s", bar.c_str(), static_cast<int>(columns - bar.size()), text);
    }

    ~CProgressBar() { end(); }

    /// Leaves the line as it is and goes on below it.
    void end()
    {
        if (m_shown != notShown)
            std::fputc('\n', stderr);
        m_shown = notShown;
    }

private:
    static constexpr int notShown = -2;

    /// What stands before the percents; nothing where there is no room for it.
    static std::string barOf(int percent, size_t columns)
    {
        constexpr size_t others = std::char_traits<char>::length("[] 100 %");
        if (columns <= others)
            return "";
        const size_t width = columns - others;
        const size_t done = width * static_cast<size_t>(percent) / 100;
        return '[' + std::string(done, '#') + std::string(width - done, ' ') + "] ";
    }

    const bool m_onTerminal = isatty(STDERR_FILENO) != 0;
    int m_shown = notShown;
};
