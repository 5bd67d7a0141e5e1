#pragma once

#include "examples/printable.h"

#include <cstdlib>
#include <string>
#include <string_view>
#include <sys/ioctl.h>
#include <unistd.h>

struct CTerminalSize {
    size_t columns = 80;
    size_t rows = 24;
};

/// What the terminal says about itself now: people change its size. The usual size when it does not know.
inline CTerminalSize terminalSize(int descriptor)
{
    CTerminalSize size;
    winsize told{};
    if (ioctl(descriptor, TIOCGWINSZ, &told) == 0 && told.ws_col > 0 && told.ws_row > 0)
        size = {told.ws_col, told.ws_row};
    return size;
}

/// Whether it is a terminal where the cursor can go back to lines above.
inline bool canGoUp(int descriptor)
{
    const char* const type = std::getenv("TERM");
    return isatty(descriptor) != 0 && !(type && std::string_view(type) == "dumb");
}

/// As much of the text's start as fits into so many columns, in a printable form. Letters beyond U+1100, among which
/// are the wide ones, count as two columns.
/// @param columns those that are left, afterwards
inline std::string takeFitting(const kx::String& text, size_t& columns)
{
    std::string shown;
    for (const wchar_t character : text) {
        const std::string piece = printable(kx::String() += character);
        const size_t width = piece.starts_with('\\') ? piece.size() : character >= 0x1100 ? 2 : 1;
        if (width > columns)
            break;
        columns -= width;
        shown += piece;
    }
    return shown;
}

inline std::string fitted(const kx::String& text, size_t columns)
{
    return takeFitting(text, columns);
}

/// The same, with blanks behind it in the columns that are left.
inline std::string filled(const kx::String& text, size_t columns)
{
    const std::string shown = takeFitting(text, columns);
    return shown + std::string(columns, ' ');
}

/// A name of a server's for standard output: printable on a terminal, else as it is, for other programs.
inline std::string shownOnOutput(const kx::String& name)
{
    static const bool isTerminal = isatty(STDOUT_FILENO) != 0;
    return isTerminal ? printable(name) : name.toDisplayUTF8();
}
