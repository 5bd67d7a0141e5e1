#pragma once

#include "kx/base/CBase.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <type_traits>

namespace kx {

/// A growable block of plain elements, shared by reference. New elements are not initialised: whoever grows a buffer
/// writes what it added. Shrinking keeps the allocation. Used by one thread at a time; several may read.
template <typename T>
class TBuffer : public CBase {
    static_assert(std::is_trivially_copyable_v<T>, "a buffer moves its elements as bytes");

public:
    TBuffer() noexcept = default;
    ~TBuffer() override = default;

    /// A buffer of that many uninitialised elements.
    explicit TBuffer(size_t size) { setSize(size); }

    TBuffer(const TBuffer& other)
        : CBase(other)
    {
        append(other.getData(), other.getSize());
    }

    /// Without memory for the other elements its own stay.
    /// @throws std::bad_alloc
    TBuffer& operator=(const TBuffer& other)
    {
        if (this == &other)
            return *this;
        reserve(other.getSize());
        m_size = 0;
        append(other.getData(), other.getSize());
        return *this;
    }

    /// The first element; null while nothing was ever allocated. Growing invalidates it.
    T* getData() noexcept { return m_data.get(); }
    const T* getData() const noexcept { return m_data.get(); }

    /// In elements.
    size_t getSize() const noexcept { return m_size; }
    size_t getCapacity() const noexcept { return m_capacity; }

    /// Changes the size; elements below the smaller of both sizes stay.
    /// @throws std::bad_alloc
    void setSize(size_t size)
    {
        reserve(size);
        m_size = size;
    }

    /// Makes room for that many elements in all, exactly; a smaller number than the capacity changes nothing.
    /// @throws std::bad_alloc
    void reserve(size_t capacity)
    {
        if (capacity <= m_capacity)
            return;
        if (capacity > std::numeric_limits<size_t>::max() / sizeof(T))
            throw std::bad_alloc();
        void* const grown = std::realloc(m_data.get(), capacity * sizeof(T));
        if (!grown)
            throw std::bad_alloc();
        static_cast<void>(m_data.release()); // realloc has taken it over
        m_data.reset(static_cast<T*>(grown));
        m_capacity = capacity;
    }

    /// Adds elements at the end, growing at least to the double; they may lie in this buffer, also behind its end.
    /// @throws std::bad_alloc
    void append(const T* elements, size_t count)
    {
        if (count == 0)
            return;
        if (count > std::numeric_limits<size_t>::max() - m_size)
            throw std::bad_alloc();
        if (m_size + count > m_capacity)
            elements = growFor(elements, count);
        std::memmove(m_data.get() + m_size, elements, count * sizeof(T));
        m_size += count;
    }

private:
    struct CFree {
        void operator()(T* data) const noexcept { std::free(data); }
    };

    const T* growFor(const T* elements, size_t count)
    {
        const std::less<const T*> before;
        const bool inside = m_data && !before(elements, m_data.get()) && before(elements, m_data.get() + m_size);
        const auto offset = inside ? elements - m_data.get() : 0;
        const size_t doubled = m_capacity > std::numeric_limits<size_t>::max() / 2 ? m_capacity : 2 * m_capacity;
        reserve(std::max(m_size + count, doubled));
        return inside ? m_data.get() + offset : elements;
    }

    std::unique_ptr<T, CFree> m_data;
    size_t m_size = 0;
    size_t m_capacity = 0;
};

} // namespace kx
