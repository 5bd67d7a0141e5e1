#pragma once

#include "tests/support/CDescriptor.h"

#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

namespace support {

/// The process has no standard input while one of these lives: the next file that is opened gets its descriptor, 0. For
/// tests of one thread.
class CWithoutStandardInput {
public:
    CWithoutStandardInput() noexcept { close(STDIN_FILENO); }
    CWithoutStandardInput(const CWithoutStandardInput&) = delete;
    CWithoutStandardInput& operator=(const CWithoutStandardInput&) = delete;
    ~CWithoutStandardInput()
    {
        if (m_kept && dup2(m_kept.get(), STDIN_FILENO) != STDIN_FILENO)
            std::abort();
    }

    /// Whether nothing has its descriptor now.
    static bool isFree() noexcept { return fcntl(STDIN_FILENO, F_GETFD) == -1; }

private:
    const CDescriptor m_kept{fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)};
};

} // namespace support
