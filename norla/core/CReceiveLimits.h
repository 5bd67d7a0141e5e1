#pragma once

#include "kx/text/String.h"

#include <cstddef>

namespace norla {

/// How much of an answer is kept in memory. Used by the thread of the transfer.
class CReceiveLimits {
public:
    /// In bytes; 0 for no limit, as at first.
    /// @param buffer of the body in the default receive buffer
    /// @param lines of all header and reply lines of a transfer
    void set(long long buffer, long long lines) noexcept;

    /// A transfer begins.
    void begin() noexcept { m_lineBytes = 0; }

    /// Counts a line. @return which limit it exceeds, in words; empty for none
    kx::String excessOfLine(size_t size);

    bool isBodyLimited() const noexcept { return m_maxBuffer != 0; }

    /// Of a block of the body. @return as excessOfLine()
    /// @param held how many bytes the default receive buffer has already
    /// @param announced size of the whole body on its way here, which may be packed; -1 when unknown
    kx::String excessOfBody(size_t held, size_t size, long long announced) const;

    /// The same for a person, who knows of no buffers.
    kx::String plainExcessOfBody(size_t held, size_t size, long long announced) const;

private:
    kx::String sizeBeyondLimit(size_t held, size_t size, long long announced) const;

    long long m_maxBuffer = 0;
    long long m_maxLines = 0;
    long long m_lineBytes = 0;
};

} // namespace norla
