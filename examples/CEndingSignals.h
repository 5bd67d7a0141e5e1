#pragma once

#include <array>
#include <csignal>

/// As long as it lives, the signals by which people and systems end programs (SIGINT, SIGTERM, SIGHUP, SIGQUIT) first
/// run an action, and then end the program as they do without it. One at a time.
class CEndingSignals {
public:
    /// @param action may do only what is safe in signal handlers (signal-safety(7))
    explicit CEndingSignals(void (*action)() noexcept)
    {
        g_action = action;
        struct sigaction ours {};
        ours.sa_handler = onSignal;
        for (size_t i = 0; i < numbers.size(); ++i) {
            sigaction(numbers[i], nullptr, &m_before[i]);
            if (m_before[i].sa_handler != SIG_IGN) // as under nohup
                sigaction(numbers[i], &ours, nullptr);
        }
    }
    CEndingSignals(const CEndingSignals&) = delete;
    CEndingSignals& operator=(const CEndingSignals&) = delete;

    ~CEndingSignals()
    {
        for (size_t i = 0; i < numbers.size(); ++i)
            sigaction(numbers[i], &m_before[i], nullptr);
    }

private:
    static constexpr std::array numbers{SIGINT, SIGTERM, SIGHUP, SIGQUIT};

    static void onSignal(int number)
    {
        g_action();
        signal(number, SIG_DFL);
        raise(number); // which happens when this has returned
    }

    static inline void (*volatile g_action)() noexcept = nullptr;
    std::array<struct sigaction, numbers.size()> m_before{};
};
