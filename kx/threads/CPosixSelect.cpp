#include "kx/threads/CPosixSelect.h"

#include "kx/base/CError.h"

#include <cerrno>
#include <system_error>

namespace kx {

int CPosixSelect::select(int descriptorCount, fd_set* readable, fd_set* writable, fd_set* exceptional, int timeoutMs)
{
    timeval limit{timeoutMs / 1000, timeoutMs % 1000 * 1000L};
    const int ready = ::select(descriptorCount, readable, writable, exceptional, timeoutMs < 0 ? nullptr : &limit);
    if (ready >= 0)
        return ready;
    if (errno == EINTR)
        return 0;
    throw CError(
        String::fromLatin1("Waiting for descriptors has failed: " + std::generic_category().message(errno) + "."));
}

} // namespace kx
