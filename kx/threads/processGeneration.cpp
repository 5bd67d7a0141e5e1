#include "kx/threads/processGeneration.h"

#include <atomic>
#include <pthread.h>

namespace kx {

namespace {

std::atomic<unsigned int> generation{0};

bool countChildren() noexcept
{
    return pthread_atfork(nullptr, nullptr, [] { ++generation; }) == 0;
}

} // namespace

unsigned int processGeneration() noexcept
{
    static const bool isCounted = countChildren();
    static_cast<void>(isCounted);
    return generation.load(std::memory_order_relaxed);
}

} // namespace kx
