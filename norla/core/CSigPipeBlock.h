#pragma once

#include <csignal>

namespace norla {

/// Keeps SIGPIPE from the current thread during its life and takes away one that came meanwhile: a peer that closes its
/// end while OpenSSL writes must not end the process (CURLOPT_NOSIGNAL leaves this to libcurl's caller). The
/// application's own signal mask and a signal that was pending before stay as they were. Blocks nest.
class CSigPipeBlock {
public:
    CSigPipeBlock() noexcept;
    CSigPipeBlock(const CSigPipeBlock&) = delete;
    CSigPipeBlock& operator=(const CSigPipeBlock&) = delete;
    ~CSigPipeBlock();

private:
    sigset_t m_previousMask;
};

} // namespace norla
