#pragma once

#include "kx/base/P.h"
#include "kx/text/String.h"
#include "norla/core/CTransferProgress.h"
#include "norla/pool/CTransfer.h"

#include <chrono>

namespace norla {

/// Notices that nothing moves any more over SFTP: libcurl counts the inactivity of a body alone, and would wait for the
/// answer to a command without end. Used by one thread.
class CSilenceWatch {
public:
    /// An attempt begins. @param request with its limits of time; of another protocol nothing is watched
    void begin(CNetRequest& request);

    /// Whether the attempt has to be cancelled: nothing has moved for as long as the request allows for a connection
    /// and for the inactivity behind it, one after the other.
    bool isTooLong(CTransfer& transfer);

    /// @return the error with which the attempt has ended, or what it means where it was cancelled because of its
    /// silence; null for none
    kx::P<kx::CError> explained(const CTransfer& transfer) const;

private:
    using Clock = std::chrono::steady_clock;

    std::chrono::milliseconds m_limit{0}; // 0: none
    kx::String m_host;                    // of the URL, and its path
    kx::String m_path;
    Clock::time_point m_since;
    CTransferProgress m_last;
    bool m_isOver = false;
};

} // namespace norla
