#include "examples/desktop/CLoopWatch.h"

#include "kx/text/numbers.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
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
    std::snprintf(text.data(), text.size(), "longest pause %.1f ms, most work %.1f ms, %lld of %lld pauses above 50 ms",
        Milliseconds(m_longestPause).count(), Milliseconds(m_longestWork).count(), m_noticeable, m_turns);
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

CLoopWatch::Clock::duration CLoopWatch::work()
{
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

void CLoopWatch::beginTurn()
{
    m_waitsAtTurn = processorWaits();
    m_workAtTurn = work();
    m_turnBegan = Clock::now();
}

void CLoopWatch::endTurn()
{
    constexpr std::chrono::milliseconds noticeable{50};
    const auto onTheClock = Clock::now() - m_turnBegan;
    const auto worked = work() - m_workAtTurn;
    const auto pause = onTheClock - (processorWaits() - m_waitsAtTurn);
    m_longestPause = std::max(m_longestPause, pause);
    m_longestWork = std::max(m_longestWork, worked);
    m_noticeable += pause > noticeable ? 1 : 0;
    ++m_turns;
}
