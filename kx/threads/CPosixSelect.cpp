#include "kx/threads/CPosixSelect.h"

#include "kx/base/CError.h"
#include "kx/base/systemErrorText.h"

#include <cerrno>

namespace kx {

int CPosixSelect::select(int descriptorCount, fd_set* readable, fd_set* writable, fd_set* exceptional, int timeoutMs)
{
    timeval limit{timeoutMs / 1000, timeoutMs % 1000 * 1000L};
    const int ready = ::select(descriptorCount, readable, writable, exceptional, timeoutMs < 0 ? nullptr : &limit);
    if (ready >= 0)
        return ready;
    if (errno == EINTR) {
        for (fd_set* const set : {readable, writable, exceptional}) {
            if (set)
                FD_ZERO(set);
        }
        return 0;
    }
    throw CError("Waiting for descriptors has failed: " + systemErrorText(errno) + ".");
}

} // namespace kx
