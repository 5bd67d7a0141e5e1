#include "norla/core/CHeldCookies.h"

#include <curl/curl.h>

namespace norla {

namespace {

std::recursive_mutex*& heldLock() noexcept
{
    thread_local std::recursive_mutex* lock = nullptr;
    return lock;
}

} // namespace

bool CHeldCookies::areNeeded() noexcept
{
    static const bool needed = areNeeded(curl_version_info(CURLVERSION_NOW)->version_num);
    return needed;
}

bool CHeldCookies::areNeeded(unsigned int version) noexcept
{
    constexpr unsigned int first = 0x080b00;
    constexpr unsigned int mended = 0x081000;
    return version >= first && version < mended;
}

// One at a time, so that two threads never wait for each other's.
void CHeldCookies::hold(std::recursive_mutex& lock) noexcept
{
    release();
    lock.lock();
    heldLock() = &lock;
}

void CHeldCookies::release() noexcept
{
    std::recursive_mutex*& lock = heldLock();
    if (!lock)
        return;
    lock->unlock();
    lock = nullptr;
}

} // namespace norla
