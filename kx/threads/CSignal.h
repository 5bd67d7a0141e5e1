#pragma once

#include "kx/base/CBase.h"

#include <condition_variable>
#include <mutex>

namespace kx {

/// An event that stays set until it is reset. Any thread may use any operation.
class KX_EXPORT CSignal : public CBase {
public:
    CSignal() noexcept = default;
    CSignal(const CSignal&) = delete;
    CSignal& operator=(const CSignal&) = delete;
    ~CSignal() override;

    /// Sets the signal and wakes everybody who waits for it.
    void set();
    void reset();
    bool isSet() const;

    /// Waits until the signal is set, at most that many milliseconds: 0 only looks, a negative number waits without
    /// limit.
    /// @return whether the signal was set
    bool wait(int timeoutMs) const;

private:
    mutable std::mutex m_mutex;
    mutable std::condition_variable m_changed;
    bool m_set = false;
};

} // namespace kx
