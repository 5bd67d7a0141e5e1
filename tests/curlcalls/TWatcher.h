#pragma once

#include <atomic>
#include <thread>

namespace support {

/// The one object, if any, that watches calls of all threads and may go while others make them. It asks nothing of the
/// functions that may be watched themselves, such as those of mutexes.
template <typename TCalls>
class TWatcher {
public:
    constexpr TWatcher() = default;
    TWatcher(const TWatcher&) = delete;
    TWatcher& operator=(const TWatcher&) = delete;

    void set(TCalls& calls) noexcept { m_calls = &calls; }

    /// Returns when nobody uses the object any more.
    void forget() noexcept
    {
        m_calls = nullptr;
        while (m_users != 0)
            std::this_thread::yield();
    }

    /// @return what the action, which calls nothing that is watched, answers to the object; nothing (false, null) when
    /// there is none
    template <typename TAction>
    auto ask(TAction action)
    {
        const CUse use(m_users);
        TCalls* const calls = m_calls;
        using TAnswer = decltype(action(*calls));
        return calls ? action(*calls) : TAnswer();
    }

private:
    class CUse {
    public:
        explicit CUse(std::atomic<int>& users) noexcept
            : m_users(users)
        {
            ++m_users;
        }
        CUse(const CUse&) = delete;
        CUse& operator=(const CUse&) = delete;
        ~CUse() { --m_users; }

    private:
        std::atomic<int>& m_users;
    };

    std::atomic<TCalls*> m_calls{nullptr};
    std::atomic<int> m_users{0};
};

} // namespace support
