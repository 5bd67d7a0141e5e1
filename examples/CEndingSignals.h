#pragma once

#include "examples/CSignalHandlers.h"

/// As long as it lives, the signals by which people and systems end programs first run an action, and then end the
/// program as they do without it. One at a time.
class CEndingSignals {
public:
    /// @param action may do only what is safe in signal handlers (signal-safety(7))
    explicit CEndingSignals(void (*action)() noexcept)
        : m_handlers((g_action = action, onSignal))
    {
    }
    CEndingSignals(const CEndingSignals&) = delete;
    CEndingSignals& operator=(const CEndingSignals&) = delete;

private:
    static void onSignal(int number)
    {
        g_action();
        signal(number, SIG_DFL);
        raise(number); // which happens when this has returned
    }

    static inline void (*volatile g_action)() noexcept = nullptr;
    const CSignalHandlers m_handlers;
};
