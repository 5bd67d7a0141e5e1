#include "kx/random/CMTRand.h"

#include "kx/threads/CMutexLock.h"

#include <array>
#include <unistd.h>

namespace kx {

namespace {

std::mt19937_64 seededBySystem()
{
    std::random_device device;
    const std::array entropy = {device(), device(), device(), device(), device(), device(), device(), device()};
    std::seed_seq seed(entropy.begin(), entropy.end());
    return std::mt19937_64(seed);
}

} // namespace

CMTRand::CMTRand()
    : m_engine(seededBySystem())
{
}

CMTRand::CMTRand(unsigned long long seed)
    : m_engine(seed)
{
}

CMTRand& CMTRand::getGlobal()
{
    static CMTRand instance;
    static pid_t owner = getpid();
    if (owner != getpid()) {
        instance = CMTRand();
        owner = getpid();
    }
    return instance;
}

CMutex& CMTRand::getGlobalMutex()
{
    static CMutex mutex;
    return mutex;
}

unsigned long long rand64()
{
    const CMutexLock lock(CMTRand::getGlobalMutex());
    return CMTRand::getGlobal().rand64();
}

} // namespace kx
