#pragma once

#include "kx/base/CError.h"
#include "kx/base/P.h"

#include <exception>

namespace norla {

/// The first error of several that callbacks have thrown in a transfer, kept for the time when libcurl, through which
/// nothing may be thrown, has returned. Used by the thread of the transfer.
class CFirstError {
public:
    /// A transfer begins.
    void forget() noexcept { m_error = nullptr; }

    bool isThere() const noexcept { return static_cast<bool>(m_error); }

    /// @throws it; does nothing when there is none
    void throwIt() const
    {
        if (m_error)
            m_error->throwClone();
    }

    void keep(const std::exception& error) noexcept;

    /// @return whether the action has returned; otherwise what it threw is kept
    template <typename TAction>
    bool keepFrom(TAction action) noexcept
    {
        try {
            action();
            return true;
        } catch (const std::exception& error) {
            keep(error);
            return false;
        }
    }

private:
    kx::P<kx::CError> m_error;
    // Kept when there is no memory for more.
    const kx::P<kx::CError> m_outOfMemory = kx::newObj<kx::CError>("Out of memory.");
};

} // namespace norla
