#pragma once

#include "kx/base/CError.h"
#include "kx/base/CSafeGlobalGuard.h"
#include "kx/base/P.h"
#include "kx/threads/CMutexLock.h"
#include "kx/threads/globalMutex.h"
#include "kx/threads/threadYield.h"

#include <atomic>
#include <mutex>
#include <utility>

namespace kx {

/// Holds the process-wide instance of a class: built on first use, released at process exit. Meant as a function-local
/// static:
///
///     TSafeGlobalPointer<CThing>& CThing::get()
///     {
///         const auto lock = TSafeGlobalPointer<CThing>::lockUntilConstructed(globalInstanceGuard());
///         static TSafeGlobalPointer<CThing> g_pInstance(globalInstanceGuard(), [] { return newObj<CThing>(); });
///         return TSafeGlobalPointer<CThing>::waitConstructed(g_pInstance, globalInstanceGuard());
///     }
///
/// A construction that throws leaves the guard cleared, so that the next call tries again. One that makes other such
/// instances may: the lock comes before the static, so that all of them are made under one lock, whoever begins.
template <typename T>
class TSafeGlobalPointer {
public:
    /// Calls `create` under the global mutex, unless the guard says that it was called before.
    /// @param create makes the instance, returned as P<T>; what it throws is passed on
    template <typename TCreate>
    TSafeGlobalPointer(CSafeGlobalGuard& guard, TCreate create)
        : m_guard(guard)
    {
        const CMutexLock lock(getGlobalMutex());
        if (guard)
            return;
        guard = true;
        try {
            m_instance = create();
        } catch (...) {
            guard = false;
            m_state = failed;
            throw;
        }
        m_state = constructed;
        guard.setConstructed();
    }

    TSafeGlobalPointer(const TSafeGlobalPointer&) = delete;
    TSafeGlobalPointer& operator=(const TSafeGlobalPointer&) = delete;

    ~TSafeGlobalPointer()
    {
        m_state = notConstructed;
        m_guard.setTornDown();
    }

    /// The global mutex, held as long as what is returned; nothing once the instance is there or gone. The language has
    /// a lock of its own for the static: taken before the global mutex, it would wait for whoever makes an instance
    /// that needs this one.
    [[nodiscard]] static std::unique_lock<CMutex> lockUntilConstructed(const CSafeGlobalGuard& guard)
    {
        return guard.isUnsettled() ? std::unique_lock(getGlobalMutex()) : std::unique_lock<CMutex>();
    }

    /// Waits, yielding, while another thread is still constructing the instance. Asks the guard first, because at
    /// process exit the pointer may be gone already.
    /// @throws CError "Construction of static object has failed." when it has failed or the instance is gone
    static TSafeGlobalPointer& waitConstructed(TSafeGlobalPointer& pointer, const CSafeGlobalGuard& guard)
    {
        for (;;) {
            if (guard.isTornDown() || pointer.m_state == failed)
                throw CError("Construction of static object has failed.");
            if (pointer.m_state == constructed)
                return pointer;
            threadYield(true);
        }
    }

    T* get() const noexcept { return m_instance.get(); }
    T* operator->() const noexcept { return m_instance.get(); }
    T& operator*() const noexcept { return *m_instance; }

private:
    enum EState { notConstructed = 0, constructed, failed };

    CSafeGlobalGuard& m_guard;
    P<T> m_instance;
    std::atomic<EState> m_state{notConstructed};
};

} // namespace kx
