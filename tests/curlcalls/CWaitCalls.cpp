#include "tests/curlcalls/CWaitCalls.h"

#include "tests/curlcalls/TWatcher.h"

#include <cstdlib>
#include <ctime>
#include <dlfcn.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/select.h>
#include <utility>

namespace support {

namespace {

TWatcher<CWaitCalls> watcher;

bool addToWatcher(const std::string& wait)
{
    return watcher.ask([&wait](CWaitCalls& calls) {
        calls.add(wait);
        return true;
    });
}

// What this thread has read last from the clock by which condition variables wait.
thread_local timespec lastReading{};

long long millisecondsSinceLastReading(const timespec& end)
{
    constexpr long long second = 1'000'000'000;
    const long long nanoseconds = (end.tv_sec - lastReading.tv_sec) * second + (end.tv_nsec - lastReading.tv_nsec);
    return nanoseconds / 1'000'000;
}

template <typename TFunction>
TFunction* original(TFunction*, const char* name)
{
    void* const found = dlsym(RTLD_NEXT, name);
    if (!found)
        std::abort();
    return reinterpret_cast<TFunction*>(found);
}

} // namespace

CWaitCalls::CWaitCalls()
{
    watcher.set(*this);
}

CWaitCalls::~CWaitCalls()
{
    watcher.forget();
}

std::vector<std::string> CWaitCalls::takeWaits()
{
    const std::lock_guard lock(m_mutex);
    return std::exchange(m_waits, {});
}

void CWaitCalls::noteSignals()
{
    const std::lock_guard lock(m_mutex);
    m_noted = std::this_thread::get_id();
}

bool CWaitCalls::notesSignalsOf(std::thread::id thread)
{
    const std::lock_guard lock(m_mutex);
    return m_noted == thread;
}

void CWaitCalls::add(const std::string& wait)
{
    const std::lock_guard lock(m_mutex);
    m_waits.push_back(wait);
}

} // namespace support

extern "C" {

int select(int count, fd_set* readable, fd_set* writable, fd_set* exceptional, timeval* timeout)
{
    timeval atOnce{};
    if (timeout && support::addToWatcher("select " + std::to_string(timeout->tv_sec * 1000 + timeout->tv_usec / 1000)))
        timeout = &atOnce;
    return support::original(&select, "select")(count, readable, writable, exceptional, timeout);
}

int epoll_wait(int descriptor, epoll_event* found, int count, int milliseconds)
{
    char thread[16] = ""; // as long as a name may be
    pthread_getname_np(pthread_self(), thread, sizeof thread);
    support::addToWatcher("epoll " + std::to_string(milliseconds) + " " + thread);
    return support::original(&epoll_wait, "epoll_wait")(descriptor, found, count, milliseconds);
}

int nanosleep(const timespec* time, timespec* rest)
{
    if (support::addToWatcher("sleep " + std::to_string(time->tv_sec * 1000 + time->tv_nsec / 1'000'000)))
        return 0;
    return support::original(&nanosleep, "nanosleep")(time, rest);
}

int clock_gettime(clockid_t clock, timespec* time) noexcept
{
    static const auto system = support::original(&clock_gettime, "clock_gettime");
    const int result = system(clock, time);
    if (clock == CLOCK_MONOTONIC && result == 0)
        support::lastReading = *time;
    return result;
}

int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock, const timespec* end)
{
    if (clock == CLOCK_MONOTONIC && support::watcher.ask([](support::CWaitCalls& calls) {
            return calls.notesSignalsOf(std::this_thread::get_id());
        }))
        support::addToWatcher("signal " + std::to_string(support::millisecondsSinceLastReading(*end)));
    return support::original(&pthread_cond_clockwait, "pthread_cond_clockwait")(condition, mutex, clock, end);
}

} // extern "C"
