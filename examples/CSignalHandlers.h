#pragma once

#include <array>
#include <csignal>
#include <cstddef>

/// As long as it lives, the signals by which people and systems end programs (SIGINT, SIGTERM, SIGHUP, SIGQUIT) call a
/// handler, but for those that are ignored, as under nohup. One at a time.
class CSignalHandlers {
public:
    /// @param handler may do only what is safe in signal handlers (signal-safety(7))
    explicit CSignalHandlers(void (*handler)(int))
    {
        struct sigaction ours {};
        ours.sa_handler = handler;
        for (size_t i = 0; i < numbers.size(); ++i) {
            sigaction(numbers[i], nullptr, &m_before[i]);
            if (m_before[i].sa_handler != SIG_IGN)
                sigaction(numbers[i], &ours, nullptr);
        }
    }
    CSignalHandlers(const CSignalHandlers&) = delete;
    CSignalHandlers& operator=(const CSignalHandlers&) = delete;

    ~CSignalHandlers()
    {
        for (size_t i = 0; i < numbers.size(); ++i)
            sigaction(numbers[i], &m_before[i], nullptr);
    }

    /// For handlers: from here on these signals end the program.
    static void endProgramNextTime()
    {
        for (const int number : numbers) {
            struct sigaction now {};
            sigaction(number, nullptr, &now);
            if (now.sa_handler != SIG_IGN)
                signal(number, SIG_DFL);
        }
    }

private:
    static constexpr std::array numbers{SIGINT, SIGTERM, SIGHUP, SIGQUIT};

    std::array<struct sigaction, numbers.size()> m_before{};
};
