#pragma once

#include <csignal>
#include <pthread.h>

namespace norla {

/// While it lives, threads that the own one starts are asked to handle no signal: the application's are handled on its
/// own threads, and SIGPIPE is of no use.
class CAllSignalsBlock {
public:
    CAllSignalsBlock() noexcept
    {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &m_previousMask);
    }
    CAllSignalsBlock(const CAllSignalsBlock&) = delete;
    CAllSignalsBlock& operator=(const CAllSignalsBlock&) = delete;
    ~CAllSignalsBlock() { pthread_sigmask(SIG_SETMASK, &m_previousMask, nullptr); }

private:
    sigset_t m_previousMask{};
};

} // namespace norla
