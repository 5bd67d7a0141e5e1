#pragma once

#include "examples/CEndingSignals.h"
#include "examples/text.h"

#include <cerrno>
#include <cstdlib>
#include <iostream>
#include <optional>
#include <string>
#include <termios.h>
#include <unistd.h>

/// As long as it lives, what is typed at standard input, a terminal, is not shown.
class CHiddenTyping {
public:
    CHiddenTyping()
    {
        termios hidden = g_before;
        hidden.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        hidden.c_lflag |= ECHONL; // the line ends on the screen too
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &hidden);
    }
    CHiddenTyping(const CHiddenTyping&) = delete;
    CHiddenTyping& operator=(const CHiddenTyping&) = delete;

    ~CHiddenTyping()
    {
        showAgain();
        std::signal(SIGTSTP, m_suspension);
    }

private:
    static void showAgain() noexcept { tcsetattr(STDIN_FILENO, TCSANOW, &g_before); }

    static inline termios g_before{};
    const bool m_isKept = tcgetattr(STDIN_FILENO, &g_before) == 0;
    void (*const m_suspension)(int) = std::signal(SIGTSTP, SIG_IGN); // it would leave the shell without an echo
    const CEndingSignals m_endings{showAgain};                       // last: it needs the modes
};

/// What the user types at the terminal, unseen.
/// @param question such as "Password for ann"
/// @return nothing when there is no terminal to ask at
inline std::optional<std::string> typedSecret(const kx::String& question)
{
    if (isatty(STDIN_FILENO) == 0 || isatty(STDERR_FILENO) == 0)
        return std::nullopt;
    const CHiddenTyping hidden;
    std::cerr << printable(question) << ": " << std::flush;
    std::string typed;
    char character = 0;
    ssize_t count = 0;
    while ((count = read(STDIN_FILENO, &character, 1)) == 1 && character != '\n')
        typed += character;
    if (count != 1)
        throw fileError("the terminal", count < 0 ? errno : ENODATA);
    return typed;
}

/// What a variable of the environment holds, or else what the user types. Neither is seen by other users of the
/// machine, as the command line is (ps).
/// @return nothing when the variable is not set and there is no terminal to ask at
inline std::optional<kx::String> knownSecret(const std::string& variable, const kx::String& question)
{
    const kx::String shown = "the environment variable " + shownPath(variable);
    if (const char* const value = std::getenv(variable.c_str()))
        return textOf(value, shown);
    const auto typed = typedSecret(question);
    return typed ? std::optional(textOf(*typed, "what was typed")) : std::nullopt;
}

/// The same.
/// @throws as usageError() when the variable is not set and there is no terminal to ask at
inline kx::String secretOf(const std::string& variable, const kx::String& question)
{
    const auto secret = knownSecret(variable, question);
    if (!secret)
        throw usageError("the environment variable " + shownPath(variable) + " is not set");
    return *secret;
}
