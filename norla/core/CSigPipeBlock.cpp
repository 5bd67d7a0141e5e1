#include "norla/core/CSigPipeBlock.h"

#include <ctime>

namespace norla {

namespace {

sigset_t onlySigPipe() noexcept
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGPIPE);
    return set;
}

} // namespace

// pthread_sigmask fails only for an unknown operation.
CSigPipeBlock::CSigPipeBlock() noexcept
{
    const sigset_t sigPipe = onlySigPipe();
    pthread_sigmask(SIG_BLOCK, &sigPipe, &m_previousMask);
}

CSigPipeBlock::~CSigPipeBlock()
{
    // Blocked before already: whoever did that deals with the signal.
    if (sigismember(&m_previousMask, SIGPIPE))
        return;
    const sigset_t sigPipe = onlySigPipe();
    const timespec atOnce{};
    while (sigtimedwait(&sigPipe, nullptr, &atOnce) == SIGPIPE)
        continue;
    pthread_sigmask(SIG_SETMASK, &m_previousMask, nullptr);
}

} // namespace norla
