#pragma once

#include <cstdio>
#include <string>
#include <unistd.h>

/// Shows on a terminal how far a transfer is, on one line of standard error; shows nothing where that is no terminal.
class CProgressBar {
public:
    /// @param total bytes in all, 0 or less when unknown
    void show(double done, double total)
    {
        if (!m_onTerminal)
            return;
        const int percent = total > 0 ? static_cast<int>(100 * done / total) : -1;
        if (percent >= 0 && percent == m_shown)
            return;
        m_shown = percent;
        if (percent < 0)
            std::fprintf(stderr, "\r%.0f bytes", done);
        else
            std::fprintf(
                stderr, "\r[%-50s] %3d %%", std::string(static_cast<size_t>(percent / 2), '#').c_str(), percent);
    }

    /// Leaves the line as it is and goes on below it.
    ~CProgressBar()
    {
        if (m_shown != notShown)
            std::fputc('\n', stderr);
    }

private:
    static constexpr int notShown = -2;

    const bool m_onTerminal = isatty(STDERR_FILENO) != 0;
    int m_shown = notShown;
};
