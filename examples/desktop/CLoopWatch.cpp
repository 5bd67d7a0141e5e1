#include "examples/desktop/CLoopWatch.h"

#include "kx/text/numbers.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace {

CLoopWatch* g_loopWatch = nullptr; // GLib's function for waiting is told nothing of whom it serves

} // namespace

CLoopWatch::CLoopWatch()
    : m_poll(g_main_context_get_poll_func(nullptr))
    , m_statistics(open("/proc/thread-self/schedstat", O_RDONLY | O_CLOEXEC))
{
    g_loopWatch = this;
    g_main_context_set_poll_func(nullptr, &CLoopWatch::poll);
    beginTurn();
}

CLoopWatch::~CLoopWatch()
{
    g_main_context_set_poll_func(nullptr, m_poll);
    g_loopWatch = nullptr;
    if (m_statistics >= 0)
        close(m_statistics);
}

kx::String CLoopWatch::report() const
{
    using Milliseconds = std::chrono::duration<double, std::milli>;
    std::array<char, 160> text{};
    std::snprintf(text.data(), text.size(), "longest pause %.1f ms, with waits for a processor %.1f ms, in %lld turns",
        Milliseconds(m_longest).count(), Milliseconds(m_longestOnTheClock).count(), m_turns);
    return kx::String::fromLatin1(text.data());
}

gint CLoopWatch::poll(GPollFD* descriptors, guint count, gint timeout)
{
    CLoopWatch& watch = *g_loopWatch;
    watch.endTurn();
    const gint result = watch.m_poll(descriptors, count, timeout);
    watch.beginTurn();
    return result;
}

CLoopWatch::Clock::duration CLoopWatch::processorWaits() const
{
    std::array<char, 96> text{}; // nanoseconds that it ran, nanoseconds that it waited, how often it ran
    unsigned long long ran = 0;
    unsigned long long waited = 0;
    if (m_statistics < 0 || pread(m_statistics, text.data(), text.size() - 1, 0) <= 0
        || std::sscanf(text.data(), "%llu %llu", &ran, &waited) != 2)
        return {};
    return std::chrono::nanoseconds(waited);
}

void CLoopWatch::beginTurn()
{
    m_waitsAtTurn = processorWaits();
    m_turnBegan = Clock::now();
}

void CLoopWatch::endTurn()
{
    const auto onTheClock = Clock::now() - m_turnBegan;
    const auto waits = processorWaits() - m_waitsAtTurn;
    m_longestOnTheClock = std::max(m_longestOnTheClock, onTheClock);
    m_longest = std::max(m_longest, onTheClock - waits);
    ++m_turns;
}
