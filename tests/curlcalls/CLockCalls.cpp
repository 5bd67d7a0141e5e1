#include "tests/curlcalls/CLockCalls.h"

#include "tests/curlcalls/TWatcher.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <dlfcn.h>
#include <functional>
#include <pthread.h>
#include <utility>

namespace support {

namespace {

TWatcher<CLockCalls> watcher;

// Every mutex of the program comes by here: looked up once.
using Function = int(pthread_mutex_t*);

Function* original(std::atomic<Function*>& known, const char* name)
{
    if (Function* const function = known)
        return function;
    void* const found = dlsym(RTLD_NEXT, name);
    if (!found)
        std::abort();
    known = reinterpret_cast<Function*>(found);
    return known;
}

/// @return what the action answers; false when nobody watches the mutex
template <typename TAction>
bool askWatcherOf(const void* mutex, TAction action)
{
    return watcher.ask([mutex, action](CLockCalls& calls) { return calls.watches(mutex) && action(calls); });
}

} // namespace

CLockCalls::CLockCalls(const void* begin, size_t size)
    : m_begin(static_cast<const std::byte*>(begin))
    , m_end(m_begin + size)
{
    watcher.set(*this);
}

CLockCalls::~CLockCalls()
{
    watcher.forget();
}

size_t CLockCalls::heldCount() const
{
    const std::lock_guard lock(m_mutex);
    const auto found = m_held.find(std::this_thread::get_id());
    return found == m_held.end() ? 0 : found->second.depths.size();
}

int CLockCalls::spanCount() const
{
    const std::lock_guard lock(m_mutex);
    const auto found = m_held.find(std::this_thread::get_id());
    return found == m_held.end() ? 0 : found->second.spans;
}

size_t CLockCalls::mostHeldTogether() const
{
    const std::lock_guard lock(m_mutex);
    return m_mostHeldTogether;
}

size_t CLockCalls::mutexCount() const
{
    const std::lock_guard lock(m_mutex);
    return m_mutexes.size();
}

void CLockCalls::failNext()
{
    const std::lock_guard lock(m_mutex);
    m_failsNext = true;
}

bool CLockCalls::watches(const void* mutex) const noexcept
{
    const std::less<> before;
    return !before(mutex, m_begin) && before(mutex, m_end);
}

bool CLockCalls::isToFail()
{
    const std::lock_guard lock(m_mutex);
    return std::exchange(m_failsNext, false);
}

void CLockCalls::taken(const void* mutex)
{
    const std::lock_guard lock(m_mutex);
    CHeld& held = m_held[std::this_thread::get_id()];
    if (held.depths.empty())
        ++held.spans;
    ++held.depths[mutex];
    m_mutexes.insert(mutex);
    m_mostHeldTogether = std::max(m_mostHeldTogether, held.depths.size());
}

void CLockCalls::released(const void* mutex)
{
    const std::lock_guard lock(m_mutex);
    CHeld& held = m_held[std::this_thread::get_id()];
    const auto found = held.depths.find(mutex);
    if (found != held.depths.end() && --found->second == 0)
        held.depths.erase(found);
}

} // namespace support

extern "C" {

int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept
{
    static std::atomic<support::Function*> known{nullptr};
    if (support::askWatcherOf(mutex, [](support::CLockCalls& calls) { return calls.isToFail(); }))
        return EINVAL;
    const int result = support::original(known, "pthread_mutex_lock")(mutex);
    if (result == 0)
        support::askWatcherOf(mutex, [mutex](support::CLockCalls& calls) { return calls.taken(mutex), true; });
    return result;
}

int pthread_mutex_unlock(pthread_mutex_t* mutex) noexcept
{
    static std::atomic<support::Function*> known{nullptr};
    support::askWatcherOf(mutex, [mutex](support::CLockCalls& calls) { return calls.released(mutex), true; });
    return support::original(known, "pthread_mutex_unlock")(mutex);
}

} // extern "C"
