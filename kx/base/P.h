#pragma once

#include "kx/base/IBase.h"
#include "kx/base/language.h"

#include <compare>
#include <concepts>
#include <cstddef>
#include <type_traits>
#include <utility>

namespace kx {

// To clang-format the constructors of a class with this name look like macro calls.
// clang-format off

/// A counted reference to an object that derives from IBase and was made with newObj(): the object lives at least as
/// long as the P. (One on the stack goes when its block ends, whoever refers to it: see CBase.) Copies may be used by
/// several threads, one P by one thread at a time. Empty (null) by default.
template <typename T>
class P {
public:
    P() noexcept = default;
    P(std::nullptr_t) noexcept {} // implicit, as for a raw pointer

    /// Takes a reference of its own; null is allowed.
    P(T* object) noexcept // implicit, so that setters take raw pointers
        : m_object(object)
    {
        if (m_object)
            counted(m_object).addRef();
    }

    P(const P& other) noexcept
        : P(other.m_object)
    {
    }

    P(P&& other) noexcept
        : m_object(std::exchange(other.m_object, nullptr))
    {
    }

    /// A reference to a derived class converts to its base, one to T to one to const T.
    template <typename U>
        requires std::is_convertible_v<U*, T*>
    P(const P<U>& other) noexcept
        : P(other.get())
    {
    }

    P& operator=(P other) noexcept
    {
        std::swap(m_object, other.m_object);
        return *this;
    }

    ~P()
    {
        if (m_object)
            counted(m_object).release();
    }

    T* get() const noexcept { return m_object; }
    T* operator->() const noexcept { return m_object; }
    T& operator*() const noexcept { return *m_object; }
    explicit operator bool() const noexcept { return m_object != nullptr; }

private:
    // A class may have a release() of its own, which means something else.
    static const IBase& counted(const T* object) noexcept { return *object; }

    T* m_object = nullptr;
};

// clang-format on

template <typename T, typename U>
bool operator==(const P<T>& left, const P<U>& right) noexcept
{
    return left.get() == right.get();
}

template <typename T, typename U>
requires std::equality_comparable_with<T*, U*>
bool operator==(const P<T>& left, U* right) noexcept
{
    return left.get() == right;
}

template <typename T>
bool operator==(const P<T>& left, std::nullptr_t) noexcept
{
    return left.get() == nullptr;
}

/// A counted reference through which the object cannot be changed.
template <typename T>
using PC = P<const T>;

/// Makes an object on the heap that its references own.
template <typename T, typename... TArguments>
P<T> newObj(TArguments&&... arguments)
{
    return P<T>(new T(std::forward<TArguments>(arguments)...));
}

/// The object under another of its interfaces; null when it does not have that interface or is null itself.
/// @throws CError if the object is being deleted.
template <typename T, typename U>
P<T> castTo(const P<U>& object)
{
    if (object)
        object->checkCastAllowed();
    return P<T>(dynamic_cast<T*>(object.get()));
}

} // namespace kx
