#pragma once

#include "kx/base/language.h"

#include <atomic>

namespace kx {

/// How far the process-wide instance of a class has come: one byte that needs no construction and outlives every static
/// object, so that it still answers when the instance is gone. Reads as a flag: true once construction has been
/// started.
class CSafeGlobalGuard {
public:
    constexpr CSafeGlobalGuard() noexcept = default;
    CSafeGlobalGuard(const CSafeGlobalGuard&) = delete;
    CSafeGlobalGuard& operator=(const CSafeGlobalGuard&) = delete;

    explicit operator bool() const noexcept { return m_stage != idle; }

    CSafeGlobalGuard& operator=(bool started) noexcept
    {
        m_stage = started ? running : idle;
        return *this;
    }

    /// Said by the instance's owner once the instance is there.
    void setConstructed() noexcept { m_stage = constructed; }

    /// Whether the instance is yet to be made, or being made.
    bool isUnsettled() const noexcept
    {
        const unsigned char stage = m_stage;
        return stage == idle || stage == running;
    }

    /// Said by the instance's owner when the process exits.
    void setTornDown() noexcept { m_stage = tornDown; }
    bool isTornDown() const noexcept { return m_stage == tornDown; }

private:
    static constexpr unsigned char idle = 0;
    static constexpr unsigned char running = 1;
    static constexpr unsigned char constructed = 2;
    static constexpr unsigned char tornDown = 3;

    std::atomic<unsigned char> m_stage{idle};
};

static_assert(sizeof(CSafeGlobalGuard) == 1);

} // namespace kx
