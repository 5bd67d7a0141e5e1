#include "tests/curlcalls/CWaitCalls.h"

#include <atomic>
#include <cstdlib>
#include <ctime>
#include <dlfcn.h>
#include <sys/select.h>
#include <utility>

namespace support {

namespace {

std::atomic<CWaitCalls*> watcher{nullptr};

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
    watcher = this;
}

CWaitCalls::~CWaitCalls()
{
    watcher = nullptr;
}

std::vector<std::string> CWaitCalls::takeWaits()
{
    const std::lock_guard lock(m_mutex);
    return std::exchange(m_waits, {});
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
    if (support::CWaitCalls* const calls = support::watcher; calls && timeout) {
        calls->add("select " + std::to_string(timeout->tv_sec * 1000 + timeout->tv_usec / 1000));
        timeout = &atOnce;
    }
    return support::original(&select, "select")(count, readable, writable, exceptional, timeout);
}

int nanosleep(const timespec* time, timespec* rest)
{
    if (support::CWaitCalls* const calls = support::watcher) {
        calls->add("sleep " + std::to_string(time->tv_sec * 1000 + time->tv_nsec / 1'000'000));
        return 0;
    }
    return support::original(&nanosleep, "nanosleep")(time, rest);
}

} // extern "C"
