#pragma once

#include <cstddef>
#include <map>
#include <mutex>
#include <set>
#include <thread>

namespace support {

/// Watches the mutexes that lie within one object, as long as this lives: which thread holds them, and when. One at a
/// time; it is made before other threads use the object and destroyed when they have ended. Any thread.
///
/// Works by interposition as CCurlCalls does, of pthread_mutex_lock() and pthread_mutex_unlock(), which the standard
/// library's mutexes call: it counts what the library really locks, and not how often a race was lost.
class CLockCalls {
public:
    /// @param object of exactly this class, or the mutexes of a derived class are not watched
    template <typename T>
    explicit CLockCalls(const T& object)
        : CLockCalls(&object, sizeof(T))
    {
    }
    CLockCalls(const void* begin, size_t size);
    CLockCalls(const CLockCalls&) = delete;
    CLockCalls& operator=(const CLockCalls&) = delete;
    ~CLockCalls();

    /// How many of the mutexes the calling thread holds now.
    size_t heldCount() const;

    /// How often the calling thread has taken one while it held none: the number of its spans under a lock so far.
    int spanCount() const;

    /// The most mutexes that one thread has held together.
    size_t mostHeldTogether() const;

    /// How many different mutexes were taken.
    size_t mutexCount() const;

    /// Makes the next taking of one fail with EINVAL; a std::mutex throws then.
    void failNext();

    /// For the interposed functions alone.
    bool watches(const void* mutex) const noexcept;
    bool isToFail();
    void taken(const void* mutex);
    void released(const void* mutex);

private:
    struct CHeld {
        std::map<const void*, int> depths;
        int spans = 0;
    };

    const std::byte* const m_begin;
    const std::byte* const m_end;
    mutable std::mutex m_mutex;
    std::map<std::thread::id, CHeld> m_held;
    std::set<const void*> m_mutexes;
    size_t m_mostHeldTogether = 0;
    bool m_failsNext = false;
};

} // namespace support
