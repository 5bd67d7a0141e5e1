#pragma once

#include "examples/CSignalHandlers.h"
#include "examples/exitCodes.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <functional>
#include <optional>
#include <sys/eventfd.h>
#include <thread>
#include <unistd.h>
#include <utility>

/// As long as it lives, the first signal by which people and systems end programs (SIGINT, SIGTERM, SIGHUP, SIGQUIT)
/// runs an action on a thread of its own; a second one ends the program at once. One at a time. For work that leaves
/// something behind when it is ended in the middle; main() calls endProgram() last.
class CInterruption {
public:
    /// @param action ends what the program is doing, and returns at once
    explicit CInterruption(std::function<void()> action)
        : m_action(std::move(action))
    {
        g_event = eventfd(0, EFD_CLOEXEC);
        if (g_event < 0)
            throw fileError("an event", errno);
        m_thread = std::thread([this] { waitForEvent(); });
        m_handlers.emplace(onSignal);
    }
    CInterruption(const CInterruption&) = delete;
    CInterruption& operator=(const CInterruption&) = delete;

    ~CInterruption()
    {
        m_handlers.reset();
        tellEvent();
        m_thread.join();
        close(g_event);
    }

    /// Ends the program as the signal does that has come; returns where none has.
    static void endProgram()
    {
        if (const int number = g_number) {
            signal(number, SIG_DFL);
            raise(number);
        }
    }

private:
    static void onSignal(int number)
    {
        const int errorNumber = errno; // of whatever was interrupted
        CSignalHandlers::endProgramNextTime();
        g_number = number;
        tellEvent();
        errno = errorNumber;
    }

    static void tellEvent()
    {
        const std::uint64_t one = 1;
        [[maybe_unused]] const auto written = write(g_event, &one, sizeof one);
    }

    void waitForEvent() const
    {
        std::uint64_t count = 0;
        while (read(g_event, &count, sizeof count) < 0 && errno == EINTR) {
        }
        if (g_number != 0)
            m_action();
    }

    static_assert(std::atomic<int>::is_always_lock_free); // so that signal handlers may use it
    static inline std::atomic<int> g_number = 0;          // the signal's
    static inline std::atomic<int> g_event = -1;
    const std::function<void()> m_action;
    std::thread m_thread;
    std::optional<CSignalHandlers> m_handlers;
};
