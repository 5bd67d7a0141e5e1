#pragma once

#include <chrono>
#include <functional>
#include <thread>

namespace support {

/// Waits for what another thread does, at most 20 seconds. @return whether it is there
inline bool waitUntil(const std::function<bool()>& condition)
{
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > limit)
            return false;
        std::this_thread::yield();
    }
    return true;
}

} // namespace support
