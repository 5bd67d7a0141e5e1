#pragma once

#include "tests/live/exampleRun.h"
#include "tests/support/CChildProcess.h"
#include "tests/support/CDescriptor.h"
#include "tests/support/systemError.h"

#include <array>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <stdexcept>
#include <string>
#include <string_view>
#include <termios.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace live {

/// A run of an example program at a terminal: its three standard streams are one, in the mode that shells use.
class CTerminalRun {
public:
    /// @param arguments whose first one is the name of the example
    explicit CTerminalRun(const std::vector<std::string>& arguments, const std::vector<std::string>& environment = {},
        unsigned short columns = 80, unsigned short rows = 24)
        : m_terminal(openTerminal(columns, rows))
        , m_process(start(arguments, environment))
    {
    }

    /// Blocks until the program has written that, since its start.
    /// @throws std::runtime_error when it ends without, and after ten seconds
    void waitFor(std::string_view text)
    {
        readWhile([&] { return m_shown.find(text) == std::string::npos; });
        if (m_shown.find(text) == std::string::npos)
            throw std::runtime_error("the program ended without '" + std::string(text) + "': " + m_shown);
    }

    void type(std::string_view text) { support::checked(write(m_terminal.get(), text.data(), text.size()), "write"); }

    /// Whether what is typed is shown.
    bool hasEcho() const
    {
        termios modes{};
        support::checked(tcgetattr(m_terminal.get(), &modes), "tcgetattr");
        return (modes.c_lflag & ECHO) != 0;
    }

    void sendSignal(int number) { support::checked(kill(m_process.getPid(), number), "kill"); }

    /// Blocks until the program has ended. @return its exit status
    int waitForEnd()
    {
        readWhile([] { return true; });
        return *m_process.exitStatus();
    }

    /// What the terminal got so far. The terminal turns "\n" into "\r\n".
    const std::string& shown() const { return m_shown; }

private:
    support::CDescriptor openTerminal(unsigned short columns, unsigned short rows)
    {
        winsize size{};
        size.ws_col = columns;
        size.ws_row = rows;
        int ours = -1;
        int theirs = -1;
        support::checked(openpty(&ours, &theirs, nullptr, nullptr, &size), "openpty");
        for (const int end : {ours, theirs})
            support::checked(fcntl(end, F_SETFD, FD_CLOEXEC), "FD_CLOEXEC");
        m_theirs = support::CDescriptor(theirs);
        return support::CDescriptor(ours);
    }

    support::CChildProcess::CSettings start(
        const std::vector<std::string>& arguments, const std::vector<std::string>& environment) const
    {
        const auto whole = prepared({.arguments = arguments, .environment = environment});
        return {.arguments = whole.arguments,
            .environment = whole.environment,
            .input = m_theirs.get(),
            .output = m_theirs.get(),
            .errors = m_theirs.get()};
    }

    /// Reads as long as the condition holds, at most up to the program's end.
    template <typename TCondition>
    void readWhile(TCondition condition)
    {
        const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (condition()) {
            const bool hasEnded = m_process.waitForEnd(std::chrono::milliseconds(0));
            if (!readMore(hasEnded ? 0 : 10) && hasEnded)
                return;
            if (std::chrono::steady_clock::now() > limit)
                throw std::runtime_error("the program says no more: " + m_shown);
        }
    }

    /// @return whether something came in so many milliseconds
    bool readMore(int limitMs)
    {
        pollfd watched{m_terminal.get(), POLLIN, 0};
        if (support::checked(poll(&watched, 1, limitMs), "poll") == 0)
            return false;
        std::array<char, 4096> block{};
        const ssize_t count = support::checked(read(m_terminal.get(), block.data(), block.size()), "read");
        m_shown.append(block.data(), static_cast<size_t>(count));
        return true;
    }

    // The program's end, which stays open here too: a terminal that nobody has open forgets its modes.
    support::CDescriptor m_theirs;
    const support::CDescriptor m_terminal;
    support::CChildProcess m_process;
    std::string m_shown;
};

} // namespace live
