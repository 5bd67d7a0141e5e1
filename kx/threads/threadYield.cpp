#include "kx/threads/threadYield.h"

#include <chrono>
#include <thread>

namespace kx {

void threadYield(bool rest)
{
    if (rest)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    else
        std::this_thread::yield();
}

} // namespace kx
