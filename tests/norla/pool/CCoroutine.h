#pragma once

#include "kx/threads/CSignal.h"

#include <coroutine>
#include <exception>
#include <memory>
#include <utility>

/// A coroutine, which begins at once, and is destroyed with this.
class CCoroutine {
public:
    struct promise_type;
    using Handle = std::coroutine_handle<promise_type>;

    /// Tells the end when nothing of the coroutine runs any more.
    struct CEnd {
        static bool await_ready() noexcept { return false; }
        static void await_suspend(Handle handle) noexcept;
        static void await_resume() noexcept {}
    };

    struct promise_type {
        CCoroutine get_return_object() { return CCoroutine(Handle::from_promise(*this), ended); }
        static std::suspend_never initial_suspend() noexcept { return {}; }
        static CEnd final_suspend() noexcept { return {}; }
        static void return_void() noexcept {}
        static void unhandled_exception() noexcept { std::terminate(); }

        std::shared_ptr<kx::CSignal> ended = std::make_shared<kx::CSignal>(); // which may outlive the coroutine
    };

    CCoroutine(CCoroutine&& other) noexcept
        : m_handle(std::exchange(other.m_handle, nullptr))
        , m_ended(std::move(other.m_ended))
    {
    }
    CCoroutine& operator=(CCoroutine&&) = delete;
    ~CCoroutine() { destroy(); }

    void destroy()
    {
        if (m_handle)
            std::exchange(m_handle, nullptr).destroy();
    }

    bool hasEnded() const { return m_ended->isSet(); }
    bool wait() const { return m_ended->wait(20'000); }

private:
    CCoroutine(Handle handle, std::shared_ptr<const kx::CSignal> ended)
        : m_handle(handle)
        , m_ended(std::move(ended))
    {
    }

    Handle m_handle;
    std::shared_ptr<const kx::CSignal> m_ended;
};

inline void CCoroutine::CEnd::await_suspend(Handle handle) noexcept
{
    const auto ended = handle.promise().ended; // the coroutine may go at once
    ended->set();
}
