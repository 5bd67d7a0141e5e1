#pragma once

#include "kx/base/visibility.h"
#include "kx/threads/CMutex.h"

#include <random>

namespace kx {

/// A Mersenne Twister, for numbers that must differ, not for secrets. One object is used by one thread at a time.
class KX_EXPORT CMTRand {
public:
    /// Seeded by the system.
    CMTRand();

    /// A given sequence.
    explicit CMTRand(unsigned long long seed);

    /// Any 64-bit number, evenly distributed.
    unsigned long long rand64() { return m_engine(); }

    /// The instance of the process, used under getGlobalMutex() of this class. After fork() the child has one of its
    /// own, seeded by the system.
    static CMTRand& getGlobal();
    static CMutex& getGlobalMutex();

private:
    std::mt19937_64 m_engine;
};

/// A number of the process's instance. Any thread.
KX_EXPORT unsigned long long rand64();

} // namespace kx
